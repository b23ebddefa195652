/*
 * AAC-LC encoding with the zamac stages. The road of one frame (1024 samples per
 * channel, with one frame of look-ahead):
 *
 *   window decision  aac_psy_detect_attack on the next frame; the four window
 *                    sequences follow from this frame's and the next frame's attacks
 *   filter bank      sine (long) / Kaiser-Bessel-derived (short) windows, zamsMDCTFwd_32f
 *                    at 2048 and 256 points (or, with --fixed, the integer analysis bank
 *                    zamsMDCTFwd_AAC_32s); eight short windows are grouped and
 *                    interleaved into the bit-stream order
 *   TNS              aac_tns_analyse (long windows), filtering by zamsEncodeTNS_AAC_32s_I
 *   psychoacoustics  aac_psy_analyse: band energies and masking thresholds
 *   stereo           aac_stereo_decide: M/S per band of each channel pair
 *   rate control     one offset for all thresholds of the frame, searched so that the
 *                    frame fits its share of the bit budget (aac_quantize_channel counts
 *                    with zamsVLCCountBits_16s32s / zamsVLCCountEscBits_AAC_16s32s), less
 *                    the fill elements of the extension payloads (HE-AAC's SBR data)
 *   bit stream       aac_write_element (zamsVLCEncodeBlock_16s1u, zamsVLCEncodeEscBlock_AAC_16s1u,
 *                    zamsVLCEncodeOne_16s1u), each followed by its extension payload's
 *                    fill element, then fill, END, ADTS header
 *
 * Average bit rate: each frame may take the mean frame size plus what the bit reservoir
 * holds (at most 6144 bits per channel in all); adts_buffer_fullness is the reservoir
 * level after the frame in 32-bit words per channel. Quality mode: a fixed threshold
 * offset, adts_buffer_fullness 0x7FF.
 */
#include "aac_api.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aac_encoder.h"

static const int kSampleRates[12] = {96000, 88200, 64000, 48000, 44100, 32000,
                                     24000, 22050, 16000, 12000, 11025, 8000};

typedef struct {
    AacConfig cfg;
    int samplingIndex;
    int elementCount;
    AacElement element[4];
    int inputOf[AAC_MAX_CHANNELS];  /* input channel of each coded channel */
    AacChannel ch[AAC_MAX_CHANNELS];
    AacPsyState psy[AAC_MAX_CHANNELS];
    float* buffer[AAC_MAX_CHANNELS]; /* 3072 samples: previous, current and next frame */
    int sequence[4], shape[4], attack[4], attackWindow[4];
    int maxSfbLong, maxSfbShort;
    int pns;               /* noise substitution allowed */
    int intensityStartBand; /* first long-window band of intensity stereo; -1: none */

    MdctFwdSpec_32f* mdctLong;
    MdctFwdSpec_32f* mdctShort;
    uint8_t* work;
    float* windowed;
    float* windowOrder;
    int32_t* fixedTime;    /* integer filter bank: 2048 samples in, 1024 coefficients out */
    int32_t* fixedSpec;
    float longWindow[2][1024], shortWindow[2][128];
    AacCodes codes;

    double meanBits;       /* average bits per frame */
    double reservoir;      /* bits saved up */
    double maxReservoir;
    int maxFrameBits;
    int offset;            /* threshold offset of the last frame */
    uint8_t* out;

    /* extension payloads of the frame (HE-AAC: SBR data), one fill element per element */
    uint8_t extension[4][512];
    int extensionType[4], extensionPayloadBits[4];
    int extensionBits;     /* of all their fill elements */
} AacEncoder;

/* ------------------------------------------------------------ windows */

static double bessel_i0(double x)
{
    double sum = 1.0, term = 1.0;
    for (int k = 1; k < 64; ++k) {
        term *= (x / (2.0 * k)) * (x / (2.0 * k));
        sum += term;
        if (term < sum * 1e-17) break;
    }
    return sum;
}

static void make_windows(float* sine, float* kbd, int length, double alpha)
{
    const int half = length / 2;
    double kernel[1025], total = 0.0, running = 0.0;
    for (int n = 0; n <= half; ++n) {
        const double r = (n - half / 2.0) / (half / 2.0);
        kernel[n] = bessel_i0(M_PI * alpha * sqrt(1.0 - r * r));
        total += kernel[n];
    }
    for (int n = 0; n < half; ++n) {
        sine[n] = (float)sin(M_PI / length * (n + 0.5));
        running += kernel[n];
        kbd[n] = (float)sqrt(running / total);
    }
}

/* ------------------------------------------------------------ set-up */

static void* aligned_zeroed(size_t bytes)
{
    void* p = aligned_alloc(64, (bytes + 63) & ~(size_t)63);
    if (p) memset(p, 0, (bytes + 63) & ~(size_t)63);
    return p;
}

/* Bits per second and channel (the LFE not counted); in quality mode a nominal
 * figure that sets the tools and the bandwidth as the average rate mode would. */
static int per_channel_rate(const AacConfig* cfg)
{
    const int coded = cfg->channels >= 6 ? 5 : cfg->channels;
    return cfg->quality > 0 ? 16000 + cfg->quality * 900 : cfg->bitRate / coded;
}

/* Threshold offset of a quality (1..100): 1.5 dB of noise per 4 steps of quality. */
static int quality_offset(int quality)
{
    return (56 - quality) / 4;
}

/* Audio bandwidth: full (20 kHz) from 40 kb/s per channel, narrowing to 6.5 kHz at
 * 24 kb/s and in proportion below; noise substitution keeps the upper bands alive in
 * between. */
static int bandwidth_for(const AacConfig* cfg)
{
    int bw = cfg->bandwidth;
    if (bw <= 0) {
        const int perChannel = per_channel_rate(cfg);
        if (perChannel >= 40000)
            bw = 20000;
        else if (perChannel >= 24000)
            bw = 6500 + (perChannel - 24000) * 27 / 32;
        else
            bw = 6500 * perChannel / 24000;
        if (bw < 3000) bw = 3000;
    }
    if (bw > cfg->sampleRate / 2) bw = cfg->sampleRate / 2;
    return bw;
}

static int bands_below(const AacBandTable* t, int lines)
{
    int n = 0;
    while (n < t->count && t->offset[n] < lines) ++n;
    return n;
}

static void encoder_free(AacEncoder* e)
{
    if (e->mdctLong) zamsMDCTFwdFree_32f(e->mdctLong);
    if (e->mdctShort) zamsMDCTFwdFree_32f(e->mdctShort);
    aac_codes_free(&e->codes);
    free(e->work);
    free(e->windowed);
    free(e->windowOrder);
    free(e->fixedTime);
    free(e->fixedSpec);
    free(e->out);
    for (int c = 0; c < AAC_MAX_CHANNELS; ++c) {
        free(e->buffer[c]);
        free(e->ch[c].spec);
        free(e->ch[c].pow34);
        free(e->ch[c].q);
    }
}

static int encoder_init(AacEncoder* e, const AacConfig* cfg)
{
    memset(e, 0, sizeof *e);
    e->cfg = *cfg;
    e->samplingIndex = -1;
    for (int i = 0; i < 12; ++i)
        if (kSampleRates[i] == cfg->sampleRate) e->samplingIndex = i;
    if (e->samplingIndex < 0) {
        fprintf(stderr, "zamac-encode: AAC does not support %d Hz\n", cfg->sampleRate);
        return -1;
    }
    if (cfg->channels < 1 || cfg->channels > 6) {
        fprintf(stderr, "zamac-encode: AAC output takes 1 to 6 channels, not %d\n", cfg->channels);
        return -1;
    }
    /* elements of channel_configuration 1..6 and the WAVE input channel of each coded channel */
    static const int kLayout[7][7] = {{0}, {1, AAC_SCE}, {1, AAC_CPE}, {2, AAC_SCE, AAC_CPE},
                                      {3, AAC_SCE, AAC_CPE, AAC_SCE}, {3, AAC_SCE, AAC_CPE, AAC_CPE},
                                      {4, AAC_SCE, AAC_CPE, AAC_CPE, AAC_LFE}};
    static const int kInput[7][6] = {{0}, {0}, {0, 1}, {2, 0, 1}, {2, 0, 1, 3}, {2, 0, 1, 3, 4}, {2, 0, 1, 4, 5, 3}};
    const int n = cfg->channels;
    e->elementCount = kLayout[n][0];
    int first = 0, tags[8] = {0};
    for (int i = 0; i < e->elementCount; ++i) {
        AacElement* el = &e->element[i];
        el->type = kLayout[n][1 + i];
        el->tag = tags[el->type]++;
        el->first = first;
        first += el->type == AAC_CPE ? 2 : 1;
        e->sequence[i] = AAC_ONLY_LONG;
        e->attack[i] = 0;
    }
    for (int c = 0; c < n; ++c) e->inputOf[c] = kInput[n][c];

    aac_quant_init();
    make_windows(e->longWindow[AAC_SHAPE_SINE], e->longWindow[AAC_SHAPE_KBD], 2048, 4.0);
    make_windows(e->shortWindow[AAC_SHAPE_SINE], e->shortWindow[AAC_SHAPE_KBD], 256, 6.0);
    int wl = 0, ws = 0;
    if (zamsMDCTFwdInitAlloc_32f(&e->mdctLong, 2048) != zamStsOk ||
        zamsMDCTFwdInitAlloc_32f(&e->mdctShort, 256) != zamStsOk ||
        zamsMDCTFwdGetBufSize_32f(e->mdctLong, &wl) != zamStsOk ||
        zamsMDCTFwdGetBufSize_32f(e->mdctShort, &ws) != zamStsOk || aac_codes_init(&e->codes) != 0) {
        fprintf(stderr, "zamac-encode: cannot set up the AAC filter bank and code books\n");
        return -1;
    }
    e->work = (uint8_t*)aligned_zeroed((size_t)(wl > ws ? wl : ws) + 64);
    e->windowed = (float*)aligned_zeroed(2048 * sizeof(float));
    e->windowOrder = (float*)aligned_zeroed(1024 * sizeof(float));
    e->fixedTime = (int32_t*)aligned_zeroed(2048 * sizeof(int32_t));
    e->fixedSpec = (int32_t*)aligned_zeroed(1024 * sizeof(int32_t));
    e->out = (uint8_t*)aligned_zeroed(8192 + 1024);
    int ok = e->work && e->windowed && e->windowOrder && e->out && e->fixedTime && e->fixedSpec;
    for (int c = 0; c < n; ++c) {
        e->buffer[c] = (float*)aligned_zeroed(3072 * sizeof(float));
        e->ch[c].spec = (float*)aligned_zeroed(1024 * sizeof(float));
        e->ch[c].pow34 = (float*)aligned_zeroed(1024 * sizeof(float));
        e->ch[c].q = (int16_t*)aligned_zeroed(1024 * sizeof(int16_t));
        ok = ok && e->buffer[c] && e->ch[c].spec && e->ch[c].pow34 && e->ch[c].q;
        aac_psy_init(&e->psy[c], cfg->sampleRate, e->samplingIndex);
    }
    if (!ok) return -1;

    const int bw = bandwidth_for(cfg);
    const int lines = (int)((double)bw * 2048.0 / cfg->sampleRate);
    e->maxSfbLong = bands_below(&kAacSwbLong[e->samplingIndex], lines);
    e->maxSfbShort = bands_below(&kAacSwbShort[e->samplingIndex], (lines + 7) / 8);

    e->meanBits = (double)cfg->bitRate * 1024.0 / cfg->sampleRate;
    {
        const int perChannel = per_channel_rate(cfg);
        e->pns = !cfg->noPns && perChannel < 64000;
        /* intensity stereo from 6 kHz at the lowest rates */
        e->intensityStartBand = -1;
        if (!cfg->noIntensity && perChannel < 32000)
            e->intensityStartBand = bands_below(&kAacSwbLong[e->samplingIndex],
                                                (int)(6000.0 * 2048.0 / cfg->sampleRate));
    }
    e->maxFrameBits = 6144 * n;
    if (e->maxFrameBits > 8191 * 8 - 64) e->maxFrameBits = 8191 * 8 - 64;
    e->maxReservoir = e->maxFrameBits - e->meanBits;
    if (e->maxReservoir < 0) e->maxReservoir = 0;
    e->reservoir = 0.0;
    e->offset = 0;
    return 0;
}

/* ------------------------------------------------------------ filter bank */

/* MDCT of one channel's block (2048 samples) into 1024 coefficients in window order:
 * the float MDCT with the windows above, or the library's integer AAC analysis bank. */
static void transform(AacEncoder* e, const float* block, int sequence, int shape, int previousShape, float* out)
{
    float* x = e->windowed;
    if (e->cfg.fixedBank) {
        int32_t* t = e->fixedTime;
        for (int n = 0; n < 2048; ++n) t[n] = (int32_t)lrintf(block[n] * 256.0f); /* 8 fractional bits */
        zamsMDCTFwd_AAC_32s(t, e->fixedSpec, sequence, shape, previousShape);
        for (int k = 0; k < 1024; ++k) out[k] = (float)e->fixedSpec[k] * 0.125f; /* 3 fractional bits */
        return;
    }
    if (sequence == AAC_EIGHT_SHORT) {
        for (int w = 0; w < 8; ++w) {
            const float* rise = e->shortWindow[w == 0 ? previousShape : shape];
            const float* fall = e->shortWindow[shape];
            const float* s = block + 448 + 128 * w;
            for (int n = 0; n < 128; ++n) x[n] = s[n] * rise[n];
            for (int n = 0; n < 128; ++n) x[128 + n] = s[128 + n] * fall[127 - n];
            zamsMDCTFwd_32f(x, out + 128 * w, e->mdctShort, e->work);
        }
        return;
    }
    if (sequence == AAC_LONG_STOP) {
        const float* rise = e->shortWindow[previousShape];
        for (int n = 0; n < 448; ++n) x[n] = 0.0f;
        for (int n = 0; n < 128; ++n) x[448 + n] = block[448 + n] * rise[n];
        for (int n = 576; n < 1024; ++n) x[n] = block[n];
    } else {
        const float* rise = e->longWindow[previousShape];
        for (int n = 0; n < 1024; ++n) x[n] = block[n] * rise[n];
    }
    if (sequence == AAC_LONG_START) {
        const float* fall = e->shortWindow[shape];
        for (int n = 1024; n < 1472; ++n) x[n] = block[n];
        for (int n = 0; n < 128; ++n) x[1472 + n] = block[1472 + n] * fall[127 - n];
        for (int n = 1600; n < 2048; ++n) x[n] = 0.0f;
    } else {
        const float* fall = e->longWindow[shape];
        for (int n = 0; n < 1024; ++n) x[1024 + n] = block[1024 + n] * fall[1023 - n];
    }
    zamsMDCTFwd_32f(x, out, e->mdctLong, e->work);
}

/* Eight windows of 128 into the grouped, band-interleaved order of the bit stream. */
static void interleave(const AacChannel* ch, const float* windows, float* out)
{
    int w0 = 0, pos = 0;
    for (int g = 0; g < ch->numGroups; ++g) {
        for (int b = 0; b < ch->numSwb; ++b) {
            const int width = ch->swb[b + 1] - ch->swb[b];
            for (int j = 0; j < ch->groupLen[g]; ++j) {
                memcpy(out + pos, windows + 128 * (w0 + j) + ch->swb[b], (size_t)width * sizeof(float));
                pos += width;
            }
        }
        w0 += ch->groupLen[g];
    }
}

/* ------------------------------------------------------------ one frame */

static int next_sequence(int previous, int attackNow, int attackNext)
{
    if (attackNow) return AAC_EIGHT_SHORT;
    if (previous == AAC_EIGHT_SHORT || previous == AAC_LONG_START)
        return attackNext ? AAC_EIGHT_SHORT : AAC_LONG_STOP;
    return attackNext ? AAC_LONG_START : AAC_ONLY_LONG;
}

/* Filter bank, TNS and psychoacoustics of one element. */
static void analyse_element(AacEncoder* e, int index)
{
    AacElement* el = &e->element[index];
    const int count = el->type == AAC_CPE ? 2 : 1;
    int attackNext = 0, attackWindow = -1;
    for (int c = 0; c < count; ++c) {
        const int w = aac_psy_detect_attack(&e->psy[el->first + c], e->buffer[el->first + c] + 1024);
        if (w >= 0 && (attackWindow < 0 || w < attackWindow)) attackWindow = w;
        attackNext |= w >= 0;
    }
    if (el->type == AAC_LFE) attackNext = 0;
    const int previous = e->sequence[index];
    const int previousShape = e->shape[index];
    const int sequence = next_sequence(previous, e->attack[index], attackNext);
    const int shape = (sequence == AAC_EIGHT_SHORT || sequence == AAC_LONG_START) ? AAC_SHAPE_KBD : AAC_SHAPE_SINE;
    const int thisAttackWindow = e->attackWindow[index];
    e->sequence[index] = sequence;
    e->shape[index] = shape;
    e->attack[index] = attackNext;
    e->attackWindow[index] = attackWindow;

    float winEnergy[8] = {0};
    for (int c = 0; c < count; ++c) {
        AacChannel* ch = &e->ch[el->first + c];
        ch->sequence = sequence;
        ch->shape = shape;
        const int isShort = sequence == AAC_EIGHT_SHORT;
        const AacBandTable* t = isShort ? &kAacSwbShort[e->samplingIndex] : &kAacSwbLong[e->samplingIndex];
        ch->swb = t->offset;
        ch->numSwb = t->count;
        ch->maxSfb = isShort ? e->maxSfbShort : e->maxSfbLong;
        if (el->type == AAC_LFE) ch->maxSfb = bands_below(t, (int)(240.0 * 2048.0 / e->cfg.sampleRate) + 1);
        transform(e, e->buffer[el->first + c], sequence, shape, previousShape, isShort ? e->windowOrder : ch->spec);
        if (isShort)
            for (int w = 0; w < 8; ++w) {
                float s = 0.0f;
                for (int k = 0; k < 128; ++k) s += e->windowOrder[128 * w + k] * e->windowOrder[128 * w + k];
                winEnergy[w] += s;
            }
        if (!isShort) {
            ch->numGroups = 1;
            ch->groupLen[0] = 1;
            ch->grouping = 0;
            if (!e->cfg.noTns && el->type != AAC_LFE)
                aac_tns_analyse(ch, e->samplingIndex, e->cfg.sampleRate);
            else
                ch->tnsPresent = 0;
        } else {
            ch->tnsPresent = 0;
            /* keep the windows until the grouping is known */
            memcpy(ch->pow34, e->windowOrder, 1024 * sizeof(float));
        }
    }
    for (int c = 0; c < count; ++c) {
        AacChannel* ch = &e->ch[el->first + c];
        if (sequence == AAC_EIGHT_SHORT) {
            aac_psy_group(ch, winEnergy, thisAttackWindow);
            interleave(ch, ch->pow34, ch->spec);
        }
        aac_psy_analyse(&e->psy[el->first + c], ch, 6.0f);
    }
    if (el->type == AAC_CPE)
        aac_stereo_decide(el, &e->ch[el->first], &e->ch[el->first + 1],
                          sequence == AAC_EIGHT_SHORT ? -1 : e->intensityStartBand, !e->cfg.noMidSide);
    else
        memset(e->ch[el->first].intensity, 0, sizeof e->ch[el->first].intensity);
    /* noise substitution at low rates: noise-like long-window bands above 4 kHz, not M/S */
    for (int c = 0; c < count; ++c) {
        AacChannel* ch = &e->ch[el->first + c];
        memset(ch->noiseCandidate, 0, sizeof ch->noiseCandidate);
        if (!e->pns || sequence == AAC_EIGHT_SHORT || el->type == AAC_LFE) continue;
        for (int b = 0; b < ch->maxSfb; ++b) {
            const double hz = ch->swb[b] * (double)e->cfg.sampleRate / 2048.0;
            const int ms = el->type == AAC_CPE && el->msMaskPresent && el->msUsed[b];
            const int intensity = el->type == AAC_CPE && e->ch[el->first + 1].intensity[b];
            ch->noiseCandidate[b] = hz >= 4000.0 && !ms && !intensity && ch->tonality[b] < 0.3f;
        }
    }
}

/* Bits of the whole frame (ADTS header included) with threshold offset `offset`. */
static int quantize_frame(AacEncoder* e, int offset)
{
    int bits = 56 + 3 + e->extensionBits; /* ADTS header, END, extension payloads */
    for (int i = 0; i < e->elementCount; ++i) {
        const AacElement* el = &e->element[i];
        AacChannel* ch = &e->ch[el->first];
        const int icsInfo = ch->sequence == AAC_EIGHT_SHORT ? 15 : 11;
        bits += 7 + icsInfo;
        if (el->type == AAC_CPE) {
            bits += 1 + 2 + (el->msMaskPresent == 1 ? ch->numGroups * ch->maxSfb : 0);
            bits += aac_quantize_channel(&e->codes, ch, offset);
            bits += aac_quantize_channel(&e->codes, ch + 1, offset);
        } else {
            bits += aac_quantize_channel(&e->codes, ch, offset);
        }
    }
    return bits + 7; /* byte alignment at most */
}

/* The smallest offset whose frame fits `target` bits; leaves the frame quantized with it. */
static int fit_frame(AacEncoder* e, int target)
{
    enum { LOW = -60, HIGH = 160, STEP = 4 };
    int o = e->offset, bits = quantize_frame(e, o);
    int lo, hi; /* bits(lo) > target (or lo = LOW - 1), bits(hi) <= target */
    if (bits > target) {
        lo = o;
        do {
            o += STEP;
            bits = quantize_frame(e, o);
            if (bits <= target) break;
            lo = o;
        } while (o < HIGH);
        hi = o;
    } else {
        hi = o;
        do {
            o -= STEP;
            if (o < LOW) {
                o = LOW;
                break;
            }
            bits = quantize_frame(e, o);
            if (bits > target) break;
            hi = o;
        } while (1);
        lo = o;
    }
    while (hi - lo > 1) {
        const int mid = (lo + hi) / 2;
        if (quantize_frame(e, mid) <= target)
            hi = mid;
        else
            lo = mid;
    }
    bits = quantize_frame(e, hi);
    e->offset = hi;
    return bits;
}

/* Writes the frame's raw data block behind the room of the ADTS header; returns the
 * frame's size in bytes, header included. */
static int build_frame(AacEncoder* e, int fillBits)
{
    BitWriter w = {e->out + 7, 0};
    for (int i = 0; i < e->elementCount; ++i) {
        aac_write_element(&w, &e->codes, &e->element[i], e->ch);
        if (e->extensionPayloadBits[i] > 0)
            aac_write_extension(&w, e->extensionType[i], e->extension[i], e->extensionPayloadBits[i]);
    }
    if (fillBits > 0) aac_write_fill(&w, fillBits);
    bw_put(&w, AAC_END, 3);
    if (w.bit) bw_put(&w, 0, 8 - w.bit);
    return (int)(w.byte - e->out);
}

/* The extension payloads of the frame and the bits of their fill elements; -1 to stop. */
static int gather_extensions(AacEncoder* e)
{
    const AacExtension* x = &e->cfg.extension;
    e->extensionBits = 0;
    for (int i = 0; i < e->elementCount; ++i) {
        e->extensionPayloadBits[i] = 0;
        if (!x->payload) continue;
        const int bits = x->payload(x->ctx, i, &e->extensionType[i], e->extension[i], (int)sizeof e->extension[i]);
        const int fill = bits > 0 ? aac_extension_bits(bits) : 0;
        if (bits < 0 || fill < 0) return -1;
        e->extensionPayloadBits[i] = bits;
        e->extensionBits += fill;
    }
    return 0;
}

static int encode_frame(AacEncoder* e, AacSink* out, AacEncodeStats* stats)
{
    int anyShort = 0;
    for (int i = 0; i < e->elementCount; ++i) {
        analyse_element(e, i);
        anyShort |= e->sequence[i] == AAC_EIGHT_SHORT;
    }
    if (gather_extensions(e) != 0) return -1;
    int bits, fill = 0, fullness = 0x7FF;
    const double reservoirBefore = e->reservoir;
    if (e->cfg.quality > 0) {
        e->offset = quality_offset(e->cfg.quality);
        bits = quantize_frame(e, e->offset);
        if (bits > e->maxFrameBits) bits = fit_frame(e, e->maxFrameBits);
    } else {
        const double available = e->meanBits + e->reservoir;
        double target = e->meanBits * (anyShort ? 1.5 : 1.0) + 0.2 * (e->reservoir - 0.5 * e->maxReservoir);
        if (target > available) target = available;
        if (target > e->maxFrameBits) target = e->maxFrameBits;
        if (target < 0.5 * e->meanBits) target = 0.5 * e->meanBits;
        bits = fit_frame(e, (int)target);
        if (bits > available) {
            /* cannot happen with a sane rate; the reservoir goes negative once */
            fprintf(stderr, "zamac-encode: frame exceeds the bit budget\n");
        }
        const double after = e->reservoir + e->meanBits - bits;
        if (after > e->maxReservoir) fill = (int)(after - e->maxReservoir) + 8;
    }
    const int bytes = build_frame(e, fill);
    if (e->cfg.quality == 0) {
        /* the reservoir after this frame, from its real size */
        e->reservoir = reservoirBefore + e->meanBits - 8.0 * bytes;
        if (e->reservoir > e->maxReservoir) e->reservoir = e->maxReservoir;
        if (e->reservoir < 0) e->reservoir = 0;
        fullness = (int)(e->reservoir / (32.0 * e->cfg.channels));
        if (fullness > 0x7FE) fullness = 0x7FE;
    }
    aac_write_adts_header(e->out, e->samplingIndex, e->cfg.channels, bytes, fullness);
    if (out->write(out->ctx, e->out, (size_t)bytes) != 0) return -1;
    stats->frames++;
    stats->shortFrames += anyShort;
    stats->bytes += bytes;
    return 0;
}

int aac_encode(const AacConfig* config, AacPcmSource* source, AacSink* out, AacEncodeStats* stats)
{
    AacEncoder* e = (AacEncoder*)calloc(1, sizeof *e);
    if (!e) return -1;
    memset(stats, 0, sizeof *stats);
    if (encoder_init(e, config) != 0) {
        encoder_free(e);
        free(e);
        return -1;
    }
    const int n = config->channels;
    float* pcm = (float*)malloc(1024 * (size_t)n * sizeof(float));
    int status = pcm ? 0 : -1;
    /* the first frame goes to the current slot, then one frame of look-ahead each time */
    long got = pcm ? source->read(source->ctx, pcm, 1024) : 0;
    for (int c = 0; c < n; ++c)
        for (long i = 0; i < 1024; ++i) e->buffer[c][1024 + i] = i < got ? pcm[i * n + e->inputOf[c]] : 0.0f;
    long remaining = got; /* input frames still in the buffer, counted in samples */
    while (status == 0 && remaining > -1024) {
        got = source->read(source->ctx, pcm, 1024);
        if (got < 0) got = 0;
        for (int c = 0; c < n; ++c)
            for (long i = 0; i < 1024; ++i) e->buffer[c][2048 + i] = i < got ? pcm[i * n + e->inputOf[c]] : 0.0f;
        if (encode_frame(e, out, stats) != 0) status = -1;
        for (int c = 0; c < n; ++c) memmove(e->buffer[c], e->buffer[c] + 1024, 2048 * sizeof(float));
        stats->samples += got;
        remaining += got - 1024;
    }
    free(pcm);
    encoder_free(e);
    free(e);
    return status;
}
