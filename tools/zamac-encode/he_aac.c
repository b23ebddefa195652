/*
 * HE-AAC v1 encoding: the AAC-LC core at half the input rate, spectral band
 * replication above it. The road of a frame (2048 input samples per channel):
 *
 *   input        full-rate PCM from the caller's source, kept in a history for the SBR
 *   down-sampling tool_halve (tools/common): 2:1 polyphase low-pass, its delay taken
 *                out, so core sample i stands for input sample 2 i
 *   core         aac_encode() on the half-rate samples, its bandwidth ending where the
 *                SBR range starts
 *   SBR          sbr_encoder_frame() on the 2048 full-rate samples whose envelopes
 *                belong to the core frame of the same access unit (see kSbrLag below);
 *                its sbr_extension_data() goes into a fill element (EXT_SBR_DATA)
 *                right after the SCE or CPE, its bits taken from the frame's budget
 *   ADTS         the core's rate and profile LC: decoders find the SBR data in the fill
 *                elements (implicit signalling) and play at twice the core's rate
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aac_api.h"
#include "aac_encoder.h"
#include "sbr_encoder.h"
#include "tool_resample.h"

/* Alignment of the SBR input with the core's (the one place it is set). The decoder's
 * output of access unit n is the core's input frame n - 1 (the MDCT's overlap: 1024 core
 * samples = 2048 input samples late), and its 32-band QMF analysis of that output has the
 * same delay, in input samples, as the encoder's 64-band analysis of the full-rate input
 * (the same prototype, 64 input samples per slot). So the SBR frame of access unit n is
 * the input from sample 2048 n - lag on, lag = CORE_DELAY + sbr_encoder_delay() (the SBR
 * encoder's own look-ahead). Measured with zamac-decode and ffmpeg at 32, 44.1 and 48 kHz:
 * the output lags the input by 3008 samples (2048 + 960 for the decoder's QMF banks), and
 * the edges of a noise burst in the SBR range keep the low band's timing within the
 * envelopes' time resolution (tests/tools/aac_encoder_test.cpp, HeAacStream). The core carries DECODER_QMF_DELAY / 2
 * zeros beyond the input's end, so that the stream's last frame reaches the input's
 * last sample through the decoder's banks too. */
enum { CORE_DELAY = 2048, DECODER_QMF_DELAY = 960 };

typedef struct {
    AacPcmSource* input;   /* full rate */
    int channels;
    ToolHalver halver[2];
    float* block;          /* READ_FRAMES interleaved input frames */
    float* core[2];        /* half-rate samples not yet given to the core */
    int coreHeld;
    int ended;

    SbrEncoder* sbr;
    long lag;              /* SBR frame n starts at input sample 2048 n - lag */
    float* history[2];     /* input samples historyBase .. historyBase + historyHeld - 1 */
    long historyBase;
    int historyHeld, historyCapacity;
    long sbrFrames;        /* SBR frames written */
    float* sbrIn[2];       /* the 2048 samples of the SBR frame */
    int failed;
} HeAac;

enum { CORE_CAPACITY = 4096, READ_FRAMES = 1024 /* what the caller's source gives at most */ };

/* Reads one block of input, keeps it for the SBR and halves it for the core. */
static int read_block(HeAac* h)
{
    const int n = h->channels;
    long got = h->input->read(h->input->ctx, h->block, READ_FRAMES);
    if (got <= 0) {
        int made = 0;
        for (int c = 0; c < n; ++c) {
            made = tool_halve_flush(&h->halver[c], h->core[c] + h->coreHeld);
            memset(h->core[c] + h->coreHeld + made, 0, DECODER_QMF_DELAY / 2 * sizeof(float));
        }
        h->coreHeld += made + DECODER_QMF_DELAY / 2;
        h->ended = 1;
        return 0;
    }
    if (h->historyHeld + got > h->historyCapacity) {
        h->failed = 1; /* the core runs ahead of the SBR by a fixed amount: cannot happen */
        return -1;
    }
    float line[READ_FRAMES];
    int made = 0;
    for (int c = 0; c < n; ++c) {
        for (long i = 0; i < got; ++i) line[i] = h->block[i * n + c];
        memcpy(h->history[c] + h->historyHeld, line, (size_t)got * sizeof(float));
        made = tool_halve(&h->halver[c], line, (int)got, h->core[c] + h->coreHeld);
    }
    h->historyHeld += (int)got;
    h->coreHeld += made;
    return 0;
}

/* The core's source: 1024 half-rate frames at a time (fewer at the end). */
static long read_core(void* ctx, float* out, long frames)
{
    HeAac* h = (HeAac*)ctx;
    while (h->coreHeld < frames && !h->ended)
        if (read_block(h) != 0) return 0;
    const long n = h->coreHeld < frames ? h->coreHeld : frames;
    for (int c = 0; c < h->channels; ++c) {
        for (long i = 0; i < n; ++i) out[i * h->channels + c] = h->core[c][i];
        memmove(h->core[c], h->core[c] + n, (size_t)(h->coreHeld - n) * sizeof(float));
    }
    h->coreHeld -= (int)n;
    return n;
}

/* The SBR data of the next access unit (one element: the SCE or the CPE). */
static int sbr_payload(void* ctx, int element, int* type, uint8_t* buf, int bufBytes)
{
    HeAac* h = (HeAac*)ctx;
    if (element != 0) return 0;
    const long start = 2048 * h->sbrFrames - h->lag;
    for (int c = 0; c < h->channels; ++c)
        for (long i = 0; i < 2048; ++i) {
            const long at = start + i - h->historyBase;
            h->sbrIn[c][i] = at >= 0 && at < h->historyHeld ? h->history[c][at] : 0.0f;
        }
    /* what the next frame no longer needs */
    const long drop = start + 2048 - h->historyBase;
    if (drop > 0) {
        const int d = drop < h->historyHeld ? (int)drop : h->historyHeld;
        for (int c = 0; c < h->channels; ++c)
            memmove(h->history[c], h->history[c] + d, (size_t)(h->historyHeld - d) * sizeof(float));
        h->historyHeld -= d;
        h->historyBase += d;
    }
    h->sbrFrames++;
    *type = AAC_EXT_SBR_DATA;
    const int bits = sbr_encoder_frame(h->sbr, (const float* const*)h->sbrIn, buf, bufBytes);
    if (bits < 0) fprintf(stderr, "zamac-encode: the SBR encoder failed\n");
    return bits;
}

int he_aac_supported(int sampleRate, int channels, int bitRate, const char** why)
{
    if (sampleRate != 32000 && sampleRate != 44100 && sampleRate != 48000) {
        *why = "HE-AAC takes input at 32, 44.1 or 48 kHz";
        return 0;
    }
    if (channels < 1 || channels > 2) {
        *why = "HE-AAC takes mono or stereo input";
        return 0;
    }
    const int lo = channels == 2 ? 24000 : 16000, hi = channels == 2 ? 64000 : 48000;
    if (bitRate < lo || bitRate > hi) {
        *why = channels == 2 ? "HE-AAC stereo takes 24 to 64 kbps" : "HE-AAC mono takes 16 to 48 kbps";
        return 0;
    }
    return 1;
}

int he_aac_encode(const AacConfig* config, AacPcmSource* source, AacSink* sink, AacEncodeStats* stats)
{
    const char* why = NULL;
    if (!he_aac_supported(config->sampleRate, config->channels, config->bitRate, &why)) {
        fprintf(stderr, "zamac-encode: %s\n", why);
        return -1;
    }
    HeAac h;
    memset(&h, 0, sizeof h);
    h.input = source;
    h.channels = config->channels;
    h.sbr = sbr_encoder_open(config->sampleRate, config->channels, config->bitRate);
    if (!h.sbr) {
        fprintf(stderr, "zamac-encode: no SBR encoder for %d Hz, %d channels, %d b/s\n", config->sampleRate,
                config->channels, config->bitRate);
        return -1;
    }
    h.lag = CORE_DELAY + sbr_encoder_delay(h.sbr);
    h.historyCapacity = (int)h.lag + 4 * 2048 + 2 * TOOL_HALVE_DELAY;
    h.block = malloc(READ_FRAMES * sizeof(float) * (size_t)h.channels);
    int ok = h.block != NULL;
    for (int c = 0; c < h.channels; ++c) {
        tool_halve_init(&h.halver[c]);
        h.core[c] = malloc(CORE_CAPACITY * sizeof(float));
        h.history[c] = malloc((size_t)h.historyCapacity * sizeof(float));
        h.sbrIn[c] = malloc(2048 * sizeof(float));
        ok = ok && h.core[c] && h.history[c] && h.sbrIn[c];
    }
    int status = -1;
    if (ok) {
        AacConfig core = *config;
        core.sampleRate = config->sampleRate / 2;
        core.quality = 0;
        const int crossover = sbr_encoder_crossover_hz(h.sbr); /* the SBR replaces everything above */
        core.bandwidth = crossover;
        core.extension.ctx = &h;
        core.extension.payload = sbr_payload;
        AacPcmSource half = {&h, read_core};
        status = aac_encode(&core, &half, sink, stats);
        if (h.failed) status = -1;
    }
    sbr_encoder_close(h.sbr);
    free(h.block);
    for (int c = 0; c < h.channels; ++c) {
        free(h.core[c]);
        free(h.history[c]);
        free(h.sbrIn[c]);
    }
    return status;
}
