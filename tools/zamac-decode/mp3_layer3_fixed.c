/*
 * zamac-decode, MP3 --fixed: one Layer III frame from its side information and
 * main data to PCM in integers only. The road of a granule: scale factors and
 * Huffman values (as in mp3_layer3.c), then the library's fixed-point stages:
 * requantization with the stereo tools (zamsReQuantize_MP3_32s_I, or the Sfb form
 * with the MPEG-2.5 band tables), the hybrid filter bank (zamsMDCTInv_MP3_32s) and
 * the polyphase synthesis to 16 bits (zamsSynthPQMF_MP3_32s16s). No floating point
 * is used per frame.
 */
#include <stdlib.h>
#include <string.h>

#include "mp3_internal.h"

struct Mp3Layer3Fixed {
    int32_t xr[2][576];          /* quantized values in, Q24 spectrum out */
    int32_t subband[576];        /* Q24 subband samples of one channel */
    int32_t overlap[2][576];
    int32_t v[2][ZAM_MP3_SYNTH_V_SIZE];
    int32_t vPosition[2];
    int16_t pcm[2][576];         /* one granule per channel */
    int8_t scalefac[2][ZAM_MP3_SCALEFAC_STRIDE];
};

Mp3Layer3Fixed* mp3_layer3_fixed_create(void)
{
    /* 32-byte alignment for the V buffers (calloc gives 16). */
    void* p = NULL;
    if (posix_memalign(&p, 64, sizeof(Mp3Layer3Fixed)) != 0) return NULL;
    memset(p, 0, sizeof(Mp3Layer3Fixed));
    return (Mp3Layer3Fixed*)p;
}

void mp3_layer3_fixed_destroy(Mp3Layer3Fixed* l3) { free(l3); }

typedef struct {
    const uint8_t* ptr;
    int offset;
} FixedBitPos;

static long fixed_bits_between(const uint8_t* base, const FixedBitPos* p) { return (long)(p->ptr - base) * 8 + p->offset; }

/* Scale factors and Huffman values of one granule and channel into l3->xr[ch].
 * Returns 0 and the non-zero bound, or -1 for corrupt data. */
static int fixed_read_channel(Mp3Layer3Fixed* l3, const Mp3Header* header, const Mp3FrameHeader* frame, Mp3SideInfo* s,
                        int32_t* scfsi, int gr, int ch, const uint8_t* main, long mainBits, FixedBitPos* pos,
                        int32_t* nonZero)
{
    const long start = fixed_bits_between(main, pos);
    const long stop = start + s->part2_3_length;
    int ok = stop <= mainBits;
    *nonZero = 0;
    if (ok) {
        const uint8_t* p = pos->ptr;
        int32_t off = pos->offset;
        ok = zamsUnpackScaleFactors_MP3_1u8s(&p, &off, l3->scalefac[ch], s, scfsi, frame, gr, ch) == zamStsOk;
        const int hufSize = (int)(s->part2_3_length - ((long)(p - main) * 8 + off - start));
        if (ok && hufSize >= 0) {
            ZamStatus st;
            if (header->version == MP3_MPEG25 && header->srIndex == 2) {
                /* 8 kHz: region 0 of window-switching granules from the band tables. */
                static const int16_t mixedPartition[6][2] = {{3, 0}, {3, 0}, {3, 0}, {3, 0}, {3, 0}, {3, 0}};
                st = zamsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, l3->xr[ch], nonZero, s, frame, hufSize,
                                                       &mp3_sfb_long[6][0], &mp3_sfb_short[6][0],
                                                       &mixedPartition[0][0]);
            } else if (header->version == MP3_MPEG25) {
                st = zamsHuffmanDecodeSfb_MP3_1u32s(&p, &off, l3->xr[ch], nonZero, s, frame, hufSize,
                                                    &mp3_sfb_long[6][0]);
            } else {
                st = zamsHuffmanDecode_MP3_1u32s(&p, &off, l3->xr[ch], nonZero, s, frame, hufSize);
            }
            ok = st == zamStsOk;
        } else {
            ok = 0;
        }
    }
    pos->ptr = main + (stop >> 3);
    pos->offset = (int)(stop & 7);
    if (!ok || *nonZero < 0 || *nonZero > 576) {
        memset(l3->xr[ch], 0, sizeof l3->xr[ch]);
        *nonZero = 0;
        return -1;
    }
    return 0;
}

/* The granule's PCM of each channel in l3->pcm to the interleaved output. */
static void fixed_output_granule(Mp3Layer3Fixed* l3, int frameChannels, int outChannels, int16_t* pcm)
{
    if (outChannels == 1) {
        if (frameChannels == 1) {
            memcpy(pcm, l3->pcm[0], sizeof l3->pcm[0]);
        } else {
            /* A stereo frame in a stream announced as mono: the mix of both. */
            for (int i = 0; i < 576; ++i) pcm[i] = (int16_t)((l3->pcm[0][i] + l3->pcm[1][i]) >> 1);
        }
        return;
    }
    const int16_t* right = l3->pcm[frameChannels == 2 ? 1 : 0];
    for (int i = 0; i < 576; ++i) {
        pcm[2 * i] = l3->pcm[0][i];
        pcm[2 * i + 1] = right[i];
    }
}

static void fixed_synthesize(Mp3Layer3Fixed* l3, int ch, const Mp3SideInfo* s, int32_t nonZero)
{
    zamsMDCTInv_MP3_32s(l3->xr[ch], l3->subband, nonZero, s, l3->overlap[ch]);
    zamsSynthPQMF_MP3_32s16s(l3->subband, l3->pcm[ch], 1, l3->v[ch], &l3->vPosition[ch]);
}

int mp3_layer3_fixed_decode_frame(Mp3Layer3Fixed* l3, const Mp3Header* header, const Mp3FrameHeader* fh,
                                  Mp3SideInfo* si, int32_t* scfsi, const uint8_t* main, long mainBits,
                                  int outChannels, int16_t* pcm)
{
    const int nch = header->channels;
    const int granules = header->version == MP3_MPEG1 ? 2 : 1;
    const int row = header->version * 3 + header->srIndex;
    Mp3FrameHeader frame = *fh;
    if (header->mode != 1) frame.mode_extension = 0;  /* the joint-stereo tools exist in joint stereo only */
    int corrupt = 0;
    FixedBitPos pos = {main, 0};
    for (int gr = 0; gr < granules; ++gr) {
        Mp3SideInfo* s = &si[gr * nch];
        int32_t nonZero[2] = {0, 0};
        for (int ch = 0; ch < nch; ++ch)
            if (fixed_read_channel(l3, header, &frame, &s[ch], scfsi + 4 * ch, gr, ch, main, mainBits, &pos, &nonZero[ch]))
                ++corrupt;
        ZamStatus st;
        if (header->version == MP3_MPEG25)
            st = zamsReQuantizeSfb_MP3_32s_I(&l3->xr[0][0], nonZero, &l3->scalefac[0][0], s, &frame,
                                             mp3_sfb_long[row], mp3_sfb_short[row]);
        else
            st = zamsReQuantize_MP3_32s_I(&l3->xr[0][0], nonZero, &l3->scalefac[0][0], s, &frame);
        if (st != zamStsOk) {
            memset(l3->xr, 0, sizeof l3->xr);
            nonZero[0] = nonZero[1] = 0;
            ++corrupt;
        }
        for (int ch = 0; ch < nch; ++ch) fixed_synthesize(l3, ch, &s[ch], nonZero[ch]);
        fixed_output_granule(l3, nch, outChannels, pcm + gr * 576 * outChannels);
    }
    return corrupt;
}

void mp3_layer3_fixed_conceal_frame(Mp3Layer3Fixed* l3, const Mp3Header* header, int outChannels, int16_t* pcm)
{
    const int granules = header->version == MP3_MPEG1 ? 2 : 1;
    Mp3SideInfo silent;
    memset(&silent, 0, sizeof silent);
    memset(l3->xr, 0, sizeof l3->xr);
    for (int gr = 0; gr < granules; ++gr) {
        for (int ch = 0; ch < header->channels; ++ch) fixed_synthesize(l3, ch, &silent, 0);
        fixed_output_granule(l3, header->channels, outChannels, pcm + gr * 576 * outChannels);
    }
}
