/*
 * zamac-decode, MP3: one Layer III frame from its side information and main data
 * to PCM. The library does the bit-stream stages (scale factors, Huffman), the
 * 4/3 power law, the inverse MDCTs, the polyphase synthesis and the conversion to
 * 16 bits; this file holds the glue between them: gains, stereo processing,
 * short-block reordering, alias reduction, windowing and overlap, frequency
 * inversion.
 */
#include <math.h>
#include <stdlib.h>
#include <string.h>

/* The library needs AVX2 and FMA anyway; let the glue loops use them too. */
#pragma GCC target("avx2,fma")
#include <immintrin.h>

#include "mp3_internal.h"

#define GAIN_MIN (-512)
#define GAIN_MAX 256

struct Mp3Layer3 {
    MdctInvSpec_32f* mdct36;
    MdctInvSpec_32f* mdct12;
    uint8_t* mdctBuffer;
    PqmfSynthesisState_MP3* synthesis[2];
    float overlap[2][576];     /* second halves of the last granule's blocks, [sb * 18 + i] */
    int overlapBands[2];       /* subbands whose overlap may be non-zero */
    int8_t scalefac[2][40];    /* kept between granules for scfsi reuse */
    int32_t quantized[576];
    int16_t quantized16[576];
    float spectrum[2][576];
    int spectrumEnd[2];        /* lines from here on are zero */
    float reorder[576];
    float hybrid[576];
    float pcm[2][576];
    float gain[GAIN_MAX - GAIN_MIN];  /* 2^(q/4) for q in GAIN_MIN..GAIN_MAX-1 */
    float window[4][36];       /* block types 0..3 (2: the 12-point window in 0..11), IMDCT scale included */
    float aliasCs[8], aliasCa[8];
    float inversion[2][18];    /* frequency inversion: -1 on the odd samples of odd subbands */
    float isRatioLeft[7], isRatioRight[7];
};

/* Preemphasis added to the long scale factors when preflag is set. */
static const int8_t kPretab[22] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};
static const double kAliasCoefficients[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};

Mp3Layer3* mp3_layer3_create(void)
{
    Mp3Layer3* l3 = (Mp3Layer3*)calloc(1, sizeof *l3);
    if (!l3) return NULL;
    int size36 = 0, size12 = 0;
    if (zamsMDCTInvInitAlloc_32f(&l3->mdct36, 36) != zamStsOk ||
        zamsMDCTInvInitAlloc_32f(&l3->mdct12, 12) != zamStsOk ||
        zamsMDCTInvGetBufSize_32f(l3->mdct36, &size36) != zamStsOk ||
        zamsMDCTInvGetBufSize_32f(l3->mdct12, &size12) != zamStsOk ||
        zamsSynthesisFilterInitAlloc_PQMF_MP3_32f(&l3->synthesis[0]) != zamStsOk ||
        zamsSynthesisFilterInitAlloc_PQMF_MP3_32f(&l3->synthesis[1]) != zamStsOk) {
        mp3_layer3_destroy(l3);
        return NULL;
    }
    const int bufferSize = size36 > size12 ? size36 : size12;
    l3->mdctBuffer = (uint8_t*)malloc(bufferSize > 0 ? (size_t)bufferSize : 1);
    if (!l3->mdctBuffer) {
        mp3_layer3_destroy(l3);
        return NULL;
    }

    /* Output in 16-bit units: the synthesis bank is unscaled, so 2^15 goes into the gain. */
    for (int q = GAIN_MIN; q < GAIN_MAX; ++q) l3->gain[q - GAIN_MIN] = (float)pow(2.0, (q + 60) / 4.0);

    /* The inverse MDCT carries a factor 2/N that the standard's IMDCT has not:
     * multiply by N/2 (18 or 6) in the windows. */
    const double pi = 3.14159265358979323846;
    for (int i = 0; i < 36; ++i) {
        const double longWindow = sin(pi / 36 * (i + 0.5));
        l3->window[0][i] = (float)(18 * longWindow);
        double start = 0, stop = 0;
        if (i < 18) start = longWindow;
        else if (i < 24) start = 1;
        else if (i < 30) start = sin(pi / 12 * (i - 18 + 0.5));
        if (i >= 18) stop = longWindow;
        else if (i >= 12) stop = 1;
        else if (i >= 6) stop = sin(pi / 12 * (i - 6 + 0.5));
        l3->window[1][i] = (float)(18 * start);
        l3->window[3][i] = (float)(18 * stop);
        l3->window[2][i] = i < 12 ? (float)(6 * sin(pi / 12 * (i + 0.5))) : 0.0f;
    }
    for (int i = 0; i < 18; ++i) {
        l3->inversion[0][i] = 1.0f;
        l3->inversion[1][i] = (i & 1) ? -1.0f : 1.0f;
    }
    for (int i = 0; i < 8; ++i) {
        const double c = kAliasCoefficients[i];
        l3->aliasCs[i] = (float)(1 / sqrt(1 + c * c));
        l3->aliasCa[i] = (float)(c / sqrt(1 + c * c));
    }
    for (int p = 0; p < 7; ++p) {
        if (p == 6) {
            l3->isRatioLeft[p] = 1.0f;
            l3->isRatioRight[p] = 0.0f;
        } else {
            const double t = tan(p * pi / 12);
            l3->isRatioLeft[p] = (float)(t / (1 + t));
            l3->isRatioRight[p] = (float)(1 / (1 + t));
        }
    }
    return l3;
}

void mp3_layer3_destroy(Mp3Layer3* l3)
{
    if (!l3) return;
    if (l3->mdct36) zamsMDCTInvFree_32f(l3->mdct36);
    if (l3->mdct12) zamsMDCTInvFree_32f(l3->mdct12);
    for (int ch = 0; ch < 2; ++ch)
        if (l3->synthesis[ch]) zamsSynthesisFilterFree_PQMF_MP3_32f(l3->synthesis[ch]);
    free(l3->mdctBuffer);
    free(l3);
}

static inline float gain_of(const Mp3Layer3* l3, int q)
{
    if (q < GAIN_MIN) return 0.0f;
    if (q >= GAIN_MAX) q = GAIN_MAX - 1;
    return l3->gain[q - GAIN_MIN];
}

/* ------------------------------------------------------------------ layout of a granule */

typedef struct {
    const int16_t* longBands;   /* 23 boundaries */
    const int16_t* shortBands;  /* 14 boundaries (one window) */
    int isShort;                /* block_type 2 */
    int isMixed;
    int mixedLongBands;         /* long bands below the switch at line 36 */
} GranuleLayout;

static void layout_of(const Mp3Header* h, const Mp3SideInfo* si, GranuleLayout* g)
{
    const int row = h->version * 3 + h->srIndex;
    g->longBands = mp3_sfb_long[row];
    g->shortBands = mp3_sfb_short[row];
    g->isShort = si->window_switching_flag && si->block_type == 2;
    g->isMixed = g->isShort && si->mixed_block_flag;
    g->mixedLongBands = h->version == MP3_MPEG1 ? 8 : 6;
}

/* ------------------------------------------------------------------ requantization */

/* Lines [0, end) of `quantized` to float with the gains of their bands. */
static void requantize(Mp3Layer3* l3, const GranuleLayout* g, const Mp3SideInfo* si, const int8_t* sfCoded,
                       int end, float* xr)
{
    /* The MPEG-2 intensity right channel carries its largest values negated (the
     * illegal-position markers); as gains they count with their coded value. */
    int8_t sf[40];
    for (int i = 0; i < 40; ++i) sf[i] = (int8_t)(sfCoded[i] < 0 ? -sfCoded[i] : sfCoded[i]);
    for (int i = 0; i < end; ++i) l3->quantized16[i] = (int16_t)l3->quantized[i];
    if (end > 0) zamsPow43_16s32f(l3->quantized16, xr, end);
    for (int i = end; i < 576; ++i) xr[i] = 0.0f;

    const int base = si->global_gain - 210;
    const int shift = si->scalefac_scale ? 4 : 2;  /* quarter steps per scale-factor unit */
    int longEnd = 0;  /* lines covered by long bands */
    int longBands = 22;
    if (g->isShort) longBands = g->isMixed ? g->mixedLongBands : 0;
    for (int sfb = 0; sfb < longBands && g->longBands[sfb] < end; ++sfb) {
        const int pre = si->preflag ? kPretab[sfb] : 0;
        const float scale = gain_of(l3, base - shift * (sf[sfb] + pre));
        const int stop = g->longBands[sfb + 1] < end ? g->longBands[sfb + 1] : end;
        for (int i = g->longBands[sfb]; i < stop; ++i) xr[i] *= scale;
    }
    if (!g->isShort) return;
    longEnd = g->isMixed ? g->longBands[g->mixedLongBands] : 0;
    const int firstShort = g->isMixed ? 3 : 0;
    const int sfOffset = g->isMixed ? g->mixedLongBands - 3 * firstShort : 0;
    (void)longEnd;
    for (int sfb = firstShort; sfb < 13; ++sfb) {
        const int width = g->shortBands[sfb + 1] - g->shortBands[sfb];
        const int start = 3 * g->shortBands[sfb];
        if (start >= end) break;
        for (int w = 0; w < 3; ++w) {
            const int q = base - 8 * si->subblock_gain[w] - shift * sf[sfOffset + 3 * sfb + w];
            const float scale = gain_of(l3, q);
            float* line = xr + start + w * width;
            for (int i = 0; i < width; ++i) line[i] *= scale;
        }
    }
}

/* ------------------------------------------------------------------ stereo */

static void ms_lines(float* l, float* r, int from, int to)
{
    const float s = 0.70710678118654752f;
    for (int i = from; i < to; ++i) {
        const float m = l[i], d = r[i];
        l[i] = (m + d) * s;
        r[i] = (m - d) * s;
    }
}

static int band_is_zero(const float* x, int from, int to)
{
    for (int i = from; i < to; ++i)
        if (x[i] != 0.0f) return 0;
    return 1;
}

/* Intensity processing of one band (lines from..to) with position `pos` of the
 * right channel; a negative (MPEG-2 illegal marker) or MPEG-1 value 7 position
 * falls back to M/S or plain stereo. */
static void intensity_band(Mp3Layer3* l3, const Mp3Header* h, const Mp3SideInfo* siRight, int ms, int pos,
                           float* l, float* r, int from, int to)
{
    float kl, kr;
    if (h->version == MP3_MPEG1) {
        if (pos < 0 || pos >= 7) {
            if (ms) ms_lines(l, r, from, to);
            return;
        }
        kl = l3->isRatioLeft[pos];
        kr = l3->isRatioRight[pos];
    } else {
        if (pos < 0) {
            if (ms) ms_lines(l, r, from, to);
            return;
        }
        const double io = (siRight->scalefac_compress & 1) ? 0.70710678118654752 : 0.84089641525371454;
        kl = kr = 1.0f;
        if (pos & 1) kl = (float)pow(io, (pos + 1) / 2);
        else if (pos > 0) kr = (float)pow(io, pos / 2);
    }
    for (int i = from; i < to; ++i) {
        const float v = l[i];
        l[i] = v * kl;
        r[i] = v * kr;
    }
}

static void stereo(Mp3Layer3* l3, const Mp3Header* h, int modeExtension, const GranuleLayout* g,
                   const Mp3SideInfo* siRight, const int8_t* sfRight)
{
    float* l = l3->spectrum[0];
    float* r = l3->spectrum[1];
    const int ms = (modeExtension & 2) != 0;
    const int is = (modeExtension & 1) != 0;
    int end = l3->spectrumEnd[0] > l3->spectrumEnd[1] ? l3->spectrumEnd[0] : l3->spectrumEnd[1];
    if (!is) {
        if (ms) ms_lines(l, r, 0, end);
        l3->spectrumEnd[0] = l3->spectrumEnd[1] = end;
        return;
    }
    const int rightEnd = l3->spectrumEnd[1];
    /* The top band (long 21, short 12) has no scale factor of its own: it takes
     * the position of the band below. When that band is not in the intensity
     * region, MPEG-1 still takes its value (what mpg123 and ffmpeg do), MPEG-2 takes
     * position 0 (what the ISO reference decoder does: both channels get the mid
     * value). */
    const int mpeg1 = h->version == MP3_MPEG1;
    if (!g->isShort) {
        int sfb = 0;
        while (sfb < 22 && g->longBands[sfb + 1] <= rightEnd) ++sfb;
        if (sfb < 22 && !band_is_zero(r, g->longBands[sfb], g->longBands[sfb + 1])) ++sfb;
        const int bound = g->longBands[sfb];
        if (ms) ms_lines(l, r, 0, bound);
        for (; sfb < 22; ++sfb) {
            const int pos = sfb < 21 ? sfRight[sfb] : (mpeg1 || bound <= g->longBands[20] ? sfRight[20] : 0);
            intensity_band(l3, h, siRight, ms, pos, l, r, g->longBands[sfb], g->longBands[sfb + 1]);
        }
    } else {
        /* Per window: intensity above the highest non-zero short band of the right channel. */
        const int firstShort = g->isMixed ? 3 : 0;
        const int sfOffset = g->isMixed ? g->mixedLongBands - 3 * firstShort : 0;
        int anyShortNonZero = 0;
        for (int w = 0; w < 3; ++w) {
            int top = firstShort;  /* first band of the intensity region of this window */
            for (int sfb = 12; sfb >= firstShort; --sfb) {
                const int width = g->shortBands[sfb + 1] - g->shortBands[sfb];
                const int start = 3 * g->shortBands[sfb] + w * width;
                if (!band_is_zero(r, start, start + width)) {
                    top = sfb + 1;
                    anyShortNonZero = 1;
                    break;
                }
            }
            for (int sfb = firstShort; sfb < 13; ++sfb) {
                const int width = g->shortBands[sfb + 1] - g->shortBands[sfb];
                const int start = 3 * g->shortBands[sfb] + w * width;
                if (sfb < top) {
                    if (ms) ms_lines(l, r, start, start + width);
                } else {
                    const int pos = sfb < 12 ? sfRight[sfOffset + 3 * sfb + w]
                                             : (mpeg1 || top <= 11 ? sfRight[sfOffset + 3 * 11 + w] : 0);
                    intensity_band(l3, h, siRight, ms, pos, l, r, start, start + width);
                }
            }
        }
        if (g->isMixed) {
            const int longEnd = g->longBands[g->mixedLongBands];
            int sfb = g->mixedLongBands;
            if (!anyShortNonZero) {
                sfb = 0;
                while (sfb < g->mixedLongBands && g->longBands[sfb + 1] <= rightEnd) ++sfb;
                if (sfb < g->mixedLongBands && !band_is_zero(r, g->longBands[sfb], g->longBands[sfb + 1])) ++sfb;
            }
            const int bound = g->longBands[sfb];
            if (ms) ms_lines(l, r, 0, bound);
            for (; sfb < g->mixedLongBands; ++sfb)
                intensity_band(l3, h, siRight, ms, sfRight[sfb], l, r, g->longBands[sfb], g->longBands[sfb + 1]);
            (void)longEnd;
        }
    }
    l3->spectrumEnd[0] = l3->spectrumEnd[1] = 576;
}

/* ------------------------------------------------------------------ hybrid synthesis */

/* Short blocks arrive band by band, window by window; the IMDCT wants each
 * subband's 18 lines as 6 frequencies x 3 windows. */
static void reorder_short(Mp3Layer3* l3, const GranuleLayout* g, float* xr)
{
    const int firstShort = g->isMixed ? 3 : 0;
    const int from = 3 * g->shortBands[firstShort];
    float* out = l3->reorder;
    for (int sfb = firstShort; sfb < 13; ++sfb) {
        const int width = g->shortBands[sfb + 1] - g->shortBands[sfb];
        const int start = 3 * g->shortBands[sfb];
        for (int w = 0; w < 3; ++w)
            for (int j = 0; j < width; ++j) out[3 * (g->shortBands[sfb] + j) + w] = xr[start + w * width + j];
    }
    memcpy(xr + from, out + from, (size_t)(576 - from) * sizeof(float));
}

/* The eight butterflies of each boundary in one vector each way: lo holds the
 * lower subband's lines 17..10 (reversed), hi the upper one's lines 0..7. */
static void alias_reduce(const Mp3Layer3* l3, float* xr, int boundaries)
{
    const __m256i reverse = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
    const __m256 cs = _mm256_loadu_ps(l3->aliasCs), ca = _mm256_loadu_ps(l3->aliasCa);
    for (int sb = 1; sb <= boundaries; ++sb) {
        float* a = xr + 18 * sb;
        const __m256 lo = _mm256_permutevar8x32_ps(_mm256_loadu_ps(a - 8), reverse);
        const __m256 hi = _mm256_loadu_ps(a);
        const __m256 newLo = _mm256_fmsub_ps(lo, cs, _mm256_mul_ps(hi, ca));
        const __m256 newHi = _mm256_fmadd_ps(hi, cs, _mm256_mul_ps(lo, ca));
        _mm256_storeu_ps(a - 8, _mm256_permutevar8x32_ps(newLo, reverse));
        _mm256_storeu_ps(a, newHi);
    }
}

/* IMDCT, window, overlap-add and frequency inversion of one channel's granule
 * into l3->hybrid ([sb * 18 + t]). */
static void hybrid(Mp3Layer3* l3, int ch, const Mp3SideInfo* si, const float* xr, int end)
{
    float* overlap = l3->overlap[ch];
    float* out = l3->hybrid;
    const int blockType = si->window_switching_flag ? si->block_type : 0;
    int activeBands = (end + 17) / 18;
    const int previousBands = l3->overlapBands[ch];
    int lastNonZero = 0;
    float y[36], z[36];
    for (int sb = 0; sb < 32; ++sb) {
        float* o = out + 18 * sb;
        float* ov = overlap + 18 * sb;
        const float* inv = l3->inversion[sb & 1];
        if (sb >= activeBands) {
            if (sb >= previousBands) {
                /* No input and no overlap from here on. */
                memset(o, 0, (size_t)(32 - sb) * 18 * sizeof(float));
                break;
            }
            for (int i = 0; i < 18; ++i) o[i] = ov[i] * inv[i];
            memset(ov, 0, 18 * sizeof(float));
        } else {
            /* The mixed flag puts the two lowest subbands on the normal window for
             * every window-switching block type, start and stop included. */
            const int type = (si->window_switching_flag && si->mixed_block_flag && sb < 2) ? 0 : blockType;
            if (type != 2) {
                zamsMDCTInv_32f(xr + 18 * sb, y, l3->mdct36, l3->mdctBuffer);
                const float* w = l3->window[type];
                for (int i = 0; i < 18; ++i) o[i] = (y[i] * w[i] + ov[i]) * inv[i];
                for (int i = 18; i < 36; ++i) ov[i - 18] = y[i] * w[i];
            } else {
                memset(z, 0, sizeof z);
                const float* w = l3->window[2];
                for (int win = 0; win < 3; ++win) {
                    float in[6], y12[12];
                    for (int f = 0; f < 6; ++f) in[f] = xr[18 * sb + 3 * f + win];
                    zamsMDCTInv_32f(in, y12, l3->mdct12, l3->mdctBuffer);
                    for (int i = 0; i < 12; ++i) z[6 + 6 * win + i] += y12[i] * w[i];
                }
                for (int i = 0; i < 18; ++i) o[i] = (z[i] + ov[i]) * inv[i];
                memcpy(ov, z + 18, 18 * sizeof(float));
            }
            lastNonZero = sb + 1;
        }
    }
    l3->overlapBands[ch] = lastNonZero;
}

/* ------------------------------------------------------------------ frame */

typedef struct {
    const uint8_t* ptr;
    int offset;
} BitPos;

static long bits_between(const uint8_t* base, const BitPos* p) { return (long)(p->ptr - base) * 8 + p->offset; }

static void output_granule(Mp3Layer3* l3, int frameChannels, int outChannels, int16_t* pcm)
{
    const float* src[2] = {l3->pcm[0], frameChannels == 2 ? l3->pcm[1] : l3->pcm[0]};
    if (outChannels == 1 && frameChannels == 2) {
        /* A stereo frame in a stream announced as mono: the mix of both. */
        for (int i = 0; i < 576; ++i) l3->pcm[0][i] = 0.5f * (l3->pcm[0][i] + l3->pcm[1][i]);
    }
    zamsJoin_32f16s_D2L(src, outChannels, 576, pcm);
}

int mp3_layer3_decode_frame(Mp3Layer3* l3, const Mp3Header* header, const Mp3FrameHeader* fh,
                            Mp3SideInfo* si, int32_t* scfsi, const uint8_t* main, long mainBits,
                            int outChannels, int16_t* pcm)
{
    const int nch = header->channels;
    const int granules = header->version == MP3_MPEG1 ? 2 : 1;
    Mp3FrameHeader frame = *fh;
    if (header->mode != 1) frame.mode_extension = 0;  /* the joint-stereo tools exist in joint stereo only */
    int corrupt = 0;
    BitPos pos = {main, 0};
    for (int gr = 0; gr < granules; ++gr) {
        GranuleLayout layouts[2];
        for (int ch = 0; ch < nch; ++ch) {
            Mp3SideInfo* s = &si[gr * nch + ch];
            GranuleLayout* g = &layouts[ch];
            const long start = bits_between(main, &pos);
            const long stop = start + s->part2_3_length;
            int ok = stop <= mainBits;
            int32_t nonZero = 0;
            if (ok) {
                const uint8_t* p = pos.ptr;
                int32_t off = pos.offset;
                ok = zamsUnpackScaleFactors_MP3_1u8s(&p, &off, l3->scalefac[ch], s, scfsi + 4 * ch, &frame, gr, ch) ==
                     zamStsOk;
                const long used = (long)(p - main) * 8 + off - start;
                const int hufSize = (int)(s->part2_3_length - used);
                if (ok && hufSize >= 0) {
                    ZamStatus st;
                    if (header->version == MP3_MPEG25)
                    {
                        /* At 8 kHz the bands are twice as wide: region 0 of a
                         * window-switching granule ends at 3 x short boundary [3] (72
                         * lines) or long boundary [8] (108), not at the 36 or 54 lines
                         * of the other rates, so its bounds come from the band tables. */
                        static const int16_t mixedPartition[6][2] = {{3, 0}, {3, 0}, {3, 0}, {3, 0}, {3, 0}, {3, 0}};
                        if (header->srIndex == 2)
                            st = zamsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &off, l3->quantized, &nonZero, s, &frame,
                                                                   hufSize, &mp3_sfb_long[6][0], &mp3_sfb_short[6][0],
                                                                   &mixedPartition[0][0]);
                        else
                            st = zamsHuffmanDecodeSfb_MP3_1u32s(&p, &off, l3->quantized, &nonZero, s, &frame, hufSize,
                                                                &mp3_sfb_long[6][0]);
                    }
                    else
                        st = zamsHuffmanDecode_MP3_1u32s(&p, &off, l3->quantized, &nonZero, s, &frame, hufSize);
                    ok = st == zamStsOk;
                } else {
                    ok = 0;
                }
            }
            if (!ok) {
                ++corrupt;
                nonZero = 0;
            }
            pos.ptr = main + (stop >> 3);
            pos.offset = (int)(stop & 7);
            layout_of(header, s, g);
            if (nonZero > 576 || nonZero < 0) nonZero = 576;
            requantize(l3, g, s, l3->scalefac[ch], ok ? nonZero : 0, l3->spectrum[ch]);
            l3->spectrumEnd[ch] = ok ? nonZero : 0;
        }
        if (nch == 2 && frame.mode_extension != 0 && si[gr * 2].block_type == si[gr * 2 + 1].block_type &&
            si[gr * 2].mixed_block_flag == si[gr * 2 + 1].mixed_block_flag)
            stereo(l3, header, frame.mode_extension, &layouts[1], &si[gr * 2 + 1], l3->scalefac[1]);
        else if (nch == 2 && frame.mode_extension != 0)
            stereo(l3, header, frame.mode_extension & 2, &layouts[1], &si[gr * 2 + 1], l3->scalefac[1]);
        for (int ch = 0; ch < nch; ++ch) {
            const Mp3SideInfo* s = &si[gr * nch + ch];
            const GranuleLayout* g = &layouts[ch];
            float* xr = l3->spectrum[ch];
            int end = l3->spectrumEnd[ch];
            if (g->isShort) {
                reorder_short(l3, g, xr);
                if (g->isMixed) alias_reduce(l3, xr, 1);
                if (end > 0) end = 576;
            } else {
                const int boundaries = end > 0 ? ((end + 17) / 18 < 32 ? (end + 17) / 18 : 31) : 0;
                alias_reduce(l3, xr, boundaries);
                if (boundaries > 0) end = 18 * (boundaries + 1) < 576 ? 18 * (boundaries + 1) : 576;
            }
            hybrid(l3, ch, s, xr, end);
            zamsSynthesisFilter_PQMF_MP3_32f(l3->hybrid, l3->pcm[ch], l3->synthesis[ch], 1);
        }
        output_granule(l3, nch, outChannels, pcm + gr * 576 * outChannels);
    }
    return corrupt;
}

void mp3_layer3_conceal_frame(Mp3Layer3* l3, const Mp3Header* header, int outChannels, int16_t* pcm)
{
    const int granules = header->version == MP3_MPEG1 ? 2 : 1;
    Mp3SideInfo silent;
    memset(&silent, 0, sizeof silent);
    GranuleLayout g;
    layout_of(header, &silent, &g);
    for (int gr = 0; gr < granules; ++gr) {
        for (int ch = 0; ch < header->channels; ++ch) {
            memset(l3->spectrum[ch], 0, sizeof l3->spectrum[ch]);
            hybrid(l3, ch, &silent, l3->spectrum[ch], 0);
            zamsSynthesisFilter_PQMF_MP3_32f(l3->hybrid, l3->pcm[ch], l3->synthesis[ch], 1);
        }
        output_granule(l3, header->channels, outChannels, pcm + gr * 576 * outChannels);
    }
}
