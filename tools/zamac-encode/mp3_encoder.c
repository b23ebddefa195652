/*
 * The road of an MP3 frame, per granule and channel, through the library:
 *   zamsAnalysisPQMF_MP3_16s32s         576 PCM samples -> 32 x 18 subband samples
 *   zamsPsychoacousticModelTwo_MP3_16s  SMRs, perceptual entropy and block type
 *                                       (one granule of look-ahead: mp3_psy.c)
 *   zamsMDCTFwd_MP3_32s                 576 lines by block type; the low-pass
 *   zamsJointStereoEncode_MP3_32s_I     M/S for the frame (joint stereo)
 *   zamsQuantize_MP3_32s_I              to the allowed noise, within the bit budget
 *                                       the reservoir gives (mp3_reservoir.c)
 * then the frame: zamsPackFrameHeader_MP3, zamsPackSideInfo_MP3, and for each
 * granule and channel zamsPackScaleFactors_MP3_8s1u and zamsHuffmanEncode_MP3_32s1u
 * into the main data, placed main_data_begin bytes back.
 *
 * Timing: the analysis of granule g reads input samples 576g .. 576g + 575; its MDCT
 * block is centred on sample 576g - 224, where the model's 1024-sample window is
 * put. A decoder's output is the input delayed by 1057 samples (481 of the polyphase
 * pair, 576 of the hybrid overlap): the LAME tag declares 528 + the decoder's 529.
 */
#include "mp3_encoder.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mp3_bands.h"
#include "mp3_psy.h"
#include "mp3_reservoir.h"
#include "mp3_tag.h"
#include "zamac.h"

#define CODEC_DELAY 1057  /* input to decoded output, samples */
#define DECODER_DELAY 529 /* what gapless decoders add to the declared delay */
#define PSY_BEFORE 736    /* the model's window starts this far before a granule's samples */
#define PSY_AFTER 864     /* ... and a granule's look-ahead window ends this far after */

static const int kBitrates[2][15] = {{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
                                     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}};
static const int kRates[2][3] = {{22050, 24000, 16000}, {44100, 48000, 32000}};

struct Mp3Encoder {
    EncoderSettings set;
    Mp3FrameHeader header;
    int id, row, channels, granules, samplesPerFrame, sideInfoBytes, joint, downmix;
    int cutLine;
    float noiseOffsetDb;   /* CBR: how much stricter than the model the quantizer aims */
    Mp3BitReservoir res;
    /* input: coded channels, interleaved; buf[0] is input sample `base` */
    int16_t* buf;
    long long base, filled;
    size_t capacity;
    long long inputFrames;
    long long granule;     /* next granule to encode */
    int psyPrimed;
    int lastType;
    int16_t history[2][480];
    int32_t overlap[2][576];
    Mp3PsychoacousticState* psy[2];
    /* output */
    ByteBuffer out;
    MainDataWriter md;
    int tagBytes;
    long frames;
    size_t* frameOffsets;
    size_t frameOffsetsCap;
    int minBitrate;
};

/* ------------------------------------------------------------------ set-up */

Mp3Encoder* mp3_encoder_open(const EncoderSettings* s, const char** why)
{
    int id = -1, sf = 0;
    for (int v = 0; v < 2; ++v)
        for (int i = 0; i < 3; ++i)
            if (kRates[v][i] == s->sampleRate) id = v, sf = i;
    if (id < 0) {
        *why = "sampling rate not supported (MPEG-1: 32, 44.1, 48 kHz; MPEG-2: 16, 22.05, 24 kHz)";
        return NULL;
    }
    if (s->inputChannels < 1 || s->inputChannels > 2) {
        *why = "only mono and stereo input is supported";
        return NULL;
    }
    int bitrateIndex = 0;
    if (s->vbrQuality < 0) {
        for (int i = 1; i < 15; ++i)
            if (kBitrates[id][i] == s->bitrate) bitrateIndex = i;
        if (!bitrateIndex) {
            *why = id ? "bit rate not legal for MPEG-1 (32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320)"
                      : "bit rate not legal for MPEG-2 (8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160)";
            return NULL;
        }
    }
    Mp3Encoder* e = calloc(1, sizeof *e);
    if (!e) {
        *why = "out of memory";
        return NULL;
    }
    e->set = *s;
    e->id = id;
    e->row = id * 3 + sf;
    e->downmix = s->inputChannels == 2 && s->mode == CHANNELS_MONO;
    e->channels = s->inputChannels == 2 && !e->downmix ? 2 : 1;
    e->joint = e->channels == 2 && s->mode != CHANNELS_STEREO;
    e->granules = id ? 2 : 1;
    e->samplesPerFrame = 576 * e->granules;
    e->sideInfoBytes = id ? (e->channels == 1 ? 17 : 32) : (e->channels == 1 ? 9 : 17);
    Mp3FrameHeader h = {0};
    h.ID = id;
    h.layer = 1;
    h.protection_bit = 1;
    h.bitrate_index = bitrateIndex;
    h.sampling_frequency = sf;
    h.mode = e->channels == 1 ? 3 : (e->joint ? 1 : 0);
    h.original_copy = 1;
    e->header = h;
    const int rateForReservoir = s->vbrQuality < 0 ? s->bitrate : kBitrates[id][14];
    zamsBitReservoirInit_MP3(&e->res, rateForReservoir, s->sampleRate, e->channels);
    const int lowpass = s->lowpassHz > 0 ? s->lowpassHz
                                         : psy_default_lowpass(s->bitrate, e->channels, s->vbrQuality, s->sampleRate);
    e->cutLine = (int)((double)lowpass * 1152.0 / s->sampleRate);
    if (e->cutLine > 576) e->cutLine = 576;
    for (int c = 0; c < e->channels; ++c) {
        e->psy[c] = calloc(1, sizeof(Mp3PsychoacousticState));
        if (!e->psy[c]) {
            mp3_encoder_close(e);
            *why = "out of memory";
            return NULL;
        }
    }
    /* Silence before the first sample, for the model's first windows. */
    e->base = -PSY_BEFORE;
    e->capacity = 16384;
    e->buf = calloc(e->capacity * (size_t)e->channels, sizeof(int16_t));
    e->filled = PSY_BEFORE;
    e->noiseOffsetDb = s->vbrQuality >= 0 ? 1.5f * (float)(s->vbrQuality - 3) : 0.0f;
    e->minBitrate = 1000;
    /* The tag frame: the stream's own rate when it fits (CBR), else the smallest that does. */
    if (s->writeTag) {
        int idx = bitrateIndex;
        const int need = mp3_tag_min_bytes(e->sideInfoBytes);
        if (!idx || reservoir_frame_bytes(&e->res, kBitrates[id][idx]) < need) {
            idx = 1;
            while (idx < 14 && reservoir_frame_bytes(&e->res, kBitrates[id][idx]) < need) ++idx;
        }
        e->tagBytes = reservoir_frame_bytes(&e->res, kBitrates[id][idx]);
        if (bytes_reserve(&e->out, (size_t)e->tagBytes)) {
            mp3_encoder_close(e);
            *why = "out of memory";
            return NULL;
        }
        memset(e->out.data, 0, (size_t)e->tagBytes);
        e->out.size = (size_t)e->tagBytes;
    }
    if (!e->buf) {
        mp3_encoder_close(e);
        *why = "out of memory";
        return NULL;
    }
    return e;
}

void mp3_encoder_close(Mp3Encoder* e)
{
    if (!e) return;
    for (int c = 0; c < 2; ++c) free(e->psy[c]);
    free(e->buf);
    free(e->out.data);
    free(e->frameOffsets);
    free(e);
}

const ByteBuffer* mp3_encoder_stream(const Mp3Encoder* e) { return &e->out; }
long mp3_encoder_frames(const Mp3Encoder* e) { return e->frames; }

long mp3_encoder_frames_for(const Mp3Encoder* e, long long inputFrames)
{
    return (long)((inputFrames + CODEC_DELAY + e->samplesPerFrame - 1) / e->samplesPerFrame);
}

void mp3_encoder_describe(const Mp3Encoder* e, char* text, size_t size)
{
    const char* mode = e->channels == 1 ? "single-ch" : (e->joint ? "j-stereo" : "stereo");
    if (e->set.vbrQuality >= 0)
        snprintf(text, size, "%g kHz %s MPEG-%d Layer III VBR(q=%d)", e->set.sampleRate / 1000.0, mode, e->id ? 1 : 2,
                 e->set.vbrQuality);
    else
        snprintf(text, size, "%g kHz %s MPEG-%d Layer III %d kbps", e->set.sampleRate / 1000.0, mode, e->id ? 1 : 2,
                 e->set.bitrate);
}

/* ------------------------------------------------------------------ input */

static const int16_t* samples_at(const Mp3Encoder* e, long long index)
{
    return e->buf + (size_t)(index - e->base) * (size_t)e->channels;
}

static int append_samples(Mp3Encoder* e, const int16_t* pcm, long frames)
{
    const size_t need = (size_t)(e->filled + frames);
    if (need > e->capacity) {
        size_t cap = e->capacity;
        while (cap < need) cap *= 2;
        int16_t* p = realloc(e->buf, cap * (size_t)e->channels * sizeof(int16_t));
        if (!p) return -1;
        e->buf = p;
        e->capacity = cap;
    }
    int16_t* dst = e->buf + (size_t)e->filled * (size_t)e->channels;
    if (!pcm) {
        memset(dst, 0, (size_t)frames * (size_t)e->channels * sizeof(int16_t));
    } else if (e->downmix) {
        for (long i = 0; i < frames; ++i) dst[i] = (int16_t)((pcm[2 * i] + pcm[2 * i + 1]) >> 1);
    } else {
        memcpy(dst, pcm, (size_t)frames * (size_t)e->channels * sizeof(int16_t));
    }
    e->filled += frames;
    return 0;
}

/* Drops the samples no later granule reads. */
static void discard_old(Mp3Encoder* e)
{
    const long long keepFrom = 576 * e->granule - PSY_BEFORE;
    const long long drop = keepFrom - e->base;
    if (drop < 65536) return;
    memmove(e->buf, e->buf + (size_t)drop * (size_t)e->channels,
            (size_t)(e->filled - drop) * (size_t)e->channels * sizeof(int16_t));
    e->filled -= drop;
    e->base += drop;
}

/* ------------------------------------------------------------------ a frame */

typedef struct {
    int32_t lines[2][2 * 576];   /* [channel][granule * 576 + line] */
    Mp3SideInfo si[4];           /* granule-major */
    int32_t xmin[2][2][39];      /* [granule][channel] */
    int8_t sf[2][2][39];
    int32_t count1[2][2], huf[2][2];
    int pe[2][2];
} FrameWork;

/* Analysis, model and MDCT of the frame's granules. */
static void analyse_frame(Mp3Encoder* e, FrameWork* w)
{
    for (int gr = 0; gr < e->granules; ++gr) {
        const long long g = e->granule + gr;
        Mp3PsychoacousticInfo info[2];
        int types[2];
        int32_t sub[2][576];
        for (int c = 0; c < e->channels; ++c) {
            zamsAnalysisPQMF_MP3_16s32s(samples_at(e, 576 * g) + c, sub[c], e->channels, e->history[c]);
            zamsPsychoacousticModelTwo_MP3_16s(samples_at(e, 576 * (g + 1) - PSY_BEFORE) + c, &info[c], e->channels,
                                               &e->header, e->psy[c]);
            types[c] = info[c].block_type;
        }
        const int type = psy_common_block_type(types, e->channels, e->lastType);
        e->lastType = type;
        for (int c = 0; c < e->channels; ++c) {
            Mp3SideInfo* si = &w->si[gr * e->channels + c];
            memset(si, 0, sizeof *si);
            si->window_switching_flag = type != 0;
            si->block_type = type;
            int32_t* lines = w->lines[c] + gr * 576;
            zamsMDCTFwd_MP3_32s(sub[c], lines, si, &e->header, e->overlap[c]);
            psy_lowpass(lines, type, e->row, e->cutLine);
            float energy[39];
            psy_band_energy(lines, type, e->row, energy);
            psy_allowed_noise(&info[c], energy, type, e->noiseOffsetDb, w->xmin[gr][c]);
            w->pe[gr][c] = info[c].pe;
        }
    }
}

static int quantize_frame(Mp3Encoder* e, FrameWork* w, const int* budget)
{
    int used = 0;
    for (int gr = 0; gr < e->granules; ++gr)
        for (int c = 0; c < e->channels; ++c) {
            Mp3SideInfo* si = &w->si[gr * e->channels + c];
            zamsQuantize_MP3_32s_I(w->lines[c] + gr * 576, w->xmin[gr][c], w->sf[gr][c], si, &w->count1[gr][c],
                                   &w->huf[gr][c], budget[gr * e->channels + c], &e->header);
            used += si->part2_3_length;
        }
    return used;
}

/* Header, side information and main data of the frame into the stream. */
static int write_frame(Mp3Encoder* e, FrameWork* w, int usedBits)
{
    uint8_t head[40];
    uint8_t* p = head;
    const int scfsi[8] = {0};
    e->header.padding_bit = e->res.paddingBit;
    zamsPackFrameHeader_MP3(&e->header, &p);
    zamsPackSideInfo_MP3(w->si, &p, e->res.bits / 8, 0, scfsi, &e->header);
    if (e->frames == (long)e->frameOffsetsCap) {
        const size_t cap = e->frameOffsetsCap ? 2 * e->frameOffsetsCap : 1024;
        size_t* q = realloc(e->frameOffsets, cap * sizeof *q);
        if (!q) return -1;
        e->frameOffsets = q;
        e->frameOffsetsCap = cap;
    }
    e->frameOffsets[e->frames] = e->out.size;
    if (main_data_add_frame(&e->md, &e->out, head, (int)(p - head), e->res.mainDataBits / 8)) return -1;

    uint8_t data[4 * 4096 / 8 + 16];
    memset(data, 0, sizeof data);
    uint8_t* q = data;
    int32_t offset = 0;
    Mp3FrameHeader huffmanHeader = e->header;
    huffmanHeader.ID = 1; /* MPEG-2 granules use one table for all regions (see the quantizer) */
    for (int gr = 0; gr < e->granules; ++gr)
        for (int c = 0; c < e->channels; ++c) {
            Mp3SideInfo* si = &w->si[gr * e->channels + c];
            zamsPackScaleFactors_MP3_8s1u(w->sf[gr][c], &q, &offset, &e->header, si, scfsi, gr, c);
            zamsHuffmanEncode_MP3_32s1u(w->lines[c] + gr * 576, &q, &offset, &huffmanHeader, si, w->count1[gr][c],
                                        w->huf[gr][c]);
        }
    const int bytes = (usedBits + 7) / 8;
    main_data_write(&e->md, &e->out, e->res.bits / 8, data, bytes);
    e->frames++;
    return 0;
}

static int encode_frame(Mp3Encoder* e)
{
    FrameWork w;
    analyse_frame(e, &w);
    if (e->joint) {
        e->header.mode = 1;
        zamsJointStereoEncode_MP3_32s_I(w.lines[0], w.lines[1], &e->header, w.si);
        if (e->header.mode_extension & 2)
            for (int gr = 0; gr < e->granules; ++gr)
                psy_shared_noise(w.xmin[gr][0], w.xmin[gr][1], w.si[gr * 2].block_type == 2 ? 39 : 22);
    }
    const int count = e->granules * e->channels;
    int pe[4], types[4], budget[4];
    for (int gr = 0; gr < e->granules; ++gr)
        for (int c = 0; c < e->channels; ++c) {
            pe[gr * e->channels + c] = w.pe[gr][c];
            types[gr * e->channels + c] = w.si[gr * e->channels + c].block_type;
        }
    int used;
    if (e->set.vbrQuality < 0) {
        reservoir_begin_frame(&e->res);
        reservoir_budgets(&e->res, pe, types, count, budget);
        used = quantize_frame(e, &w, budget);
    } else {
        /* VBR: every granule to its allowed noise, then the smallest frame that holds it. */
        reservoir_begin_frame_at(&e->res, kBitrates[e->id][14]);
        int left = e->res.bits + e->res.mainDataBits;
        for (int i = 0; i < count; ++i) budget[i] = left / count > 4095 ? 4095 : left / count;
        used = quantize_frame(e, &w, budget);
        int idx = 1;
        while (idx < 14 && e->res.bits + 8 * reservoir_frame_bytes(&e->res, kBitrates[e->id][idx]) -
                                   e->res.sideInfoBits < used)
            ++idx;
        e->header.bitrate_index = idx;
        if (kBitrates[e->id][idx] < e->minBitrate) e->minBitrate = kBitrates[e->id][idx];
        reservoir_begin_frame_at(&e->res, kBitrates[e->id][idx]);
    }
    if (write_frame(e, &w, used)) return -1;
    const int given = reservoir_end_frame(&e->res, used);
    if (e->set.vbrQuality < 0) {
        /* Bits given up are bits the quantizer could have used: aim stricter. */
        if (given > 64 && e->noiseOffsetDb > -30.0f) e->noiseOffsetDb -= 1.0f;
        else if (e->res.bits < e->res.maxBits / 2 && e->noiseOffsetDb < 0.0f) e->noiseOffsetDb += 0.25f;
    }
    e->granule += e->granules;
    return 0;
}

/* Encodes every frame whose samples (with the model's look-ahead) are in. */
static int encode_ready(Mp3Encoder* e)
{
    if (!e->psyPrimed) {
        if (e->base + e->filled < PSY_AFTER - 576) return 0;
        for (int c = 0; c < e->channels; ++c) {
            Mp3PsychoacousticInfo unused;
            zamsPsychoacousticModelTwo_MP3_16s(samples_at(e, -PSY_BEFORE) + c, &unused, e->channels, &e->header,
                                               e->psy[c]);
        }
        e->psyPrimed = 1;
    }
    while (e->base + e->filled >= 576 * (e->granule + e->granules - 1) + PSY_AFTER) {
        if (encode_frame(e)) return -1;
        discard_old(e);
    }
    return 0;
}

int mp3_encoder_push(Mp3Encoder* e, const int16_t* pcm, long frames)
{
    if (append_samples(e, pcm, frames)) return -1;
    e->inputFrames += frames;
    return encode_ready(e);
}

static void write_tag(Mp3Encoder* e)
{
    Mp3Tag t;
    memset(&t, 0, sizeof t);
    t.header = e->header;
    t.header.padding_bit = 0;
    t.header.mode_extension = 0;
    int idx = 1;
    while (idx < 14 && reservoir_frame_bytes(&e->res, kBitrates[e->id][idx]) != e->tagBytes) ++idx;
    t.header.bitrate_index = idx;
    t.frameBytes = e->tagBytes;
    t.sideInfoBytes = e->sideInfoBytes;
    t.vbr = e->set.vbrQuality >= 0;
    t.frames = (uint32_t)e->frames;
    t.bytes = (uint32_t)e->out.size;
    const size_t audio = e->out.size - (size_t)e->tagBytes;
    for (int i = 0; i < 100; ++i) {
        long f = (long)((double)i / 100.0 * (double)e->frames);
        if (f >= e->frames) f = e->frames - 1;
        const double at = e->frames > 0 ? (double)e->frameOffsets[f] : 0.0;
        int v = (int)(at * 256.0 / (double)e->out.size);
        t.toc[i] = (uint8_t)(v > 255 ? 255 : v);
    }
    t.encoderDelay = CODEC_DELAY - DECODER_DELAY;
    t.padding = (int)((long long)e->frames * e->samplesPerFrame - t.encoderDelay - e->inputFrames);
    t.lowpassHz = (int)((double)e->cutLine * e->set.sampleRate / 1152.0);
    t.bitrate = e->set.vbrQuality < 0 ? e->set.bitrate : e->minBitrate;
    t.musicCrc = mp3_tag_crc(0, e->out.data + e->tagBytes, audio);
    mp3_tag_write(&t, e->out.data);
}

int mp3_encoder_finish(Mp3Encoder* e)
{
    const long total = mp3_encoder_frames_for(e, e->inputFrames);
    const long long need = 576LL * ((long long)total * e->granules - 1) + PSY_AFTER;
    const long long have = e->base + e->filled;
    if (need > have && append_samples(e, NULL, (long)(need - have))) return -1;
    if (encode_ready(e)) return -1;
    if (e->tagBytes) write_tag(e);
    return 0;
}
