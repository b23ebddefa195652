/*
 * The SBR payload writer (see sbr_writer.h): sbr_header(), sbr_grid(), sbr_dtdf(),
 * sbr_invf(), sbr_envelope(), sbr_noise() and the element syntax, in the order the
 * decoder reads them (ISO/IEC 14496-3, 4.4.2.8).
 */
#include <string.h>

#include "sbr_tables.h"
#include "sbr_writer.h"

void sbr_put_bits(SbrBitWriter* w, unsigned value, int n)
{
    for (int i = n - 1; i >= 0; --i, ++w->pos) {
        if (w->pos >= 8 * w->bytes) {
            w->overflow = 1;
            continue;
        }
        uint8_t* byte = &w->data[w->pos >> 3];
        const int shift = 7 - (w->pos & 7);
        *byte = (uint8_t)((*byte & ~(1u << shift)) | (((value >> i) & 1u) << shift));
    }
}

/* ceil(log2(numEnv + 1)) bits of bs_pointer */
static int pointer_width(int numEnv)
{
    return numEnv < 2 ? 1 : numEnv < 4 ? 2 : 3;
}

int sbr_grid_borders(SbrEncChannel* ch, int headerAmpRes)
{
    const int L = ch->numEnv;
    ch->ampRes = ch->frameClass == SBR_FIXFIX && L == 1 ? 0 : headerAmpRes;
    if (ch->frameClass == SBR_FIXFIX) {
        if (L != 1 && L != 2 && L != 4) return -1;
        ch->pointer = ch->numRel0 = ch->numRel1 = 0;
    } else {
        if (ch->numRel0 > 3 || ch->numRel1 > 3) return -1;
        if (L > (ch->frameClass == SBR_VARVAR ? SBR_ENC_MAX_ENV : SBR_ENC_MAX_ENV - 1)) return -1;
        if ((ch->frameClass == SBR_FIXVAR && ch->numRel0) || (ch->frameClass == SBR_VARFIX && ch->numRel1)) return -1;
        if (ch->pointer < 0 || ch->pointer >= 1 << pointer_width(L)) return -1;
    }
    SbrGridFields g = {ch->frameClass, L, ch->bord0, ch->bord1, ch->numRel0, ch->numRel1, ch->pointer,
                       {ch->rel0[0], ch->rel0[1], ch->rel0[2]}, {ch->rel1[0], ch->rel1[1], ch->rel1[2]}};
    return sbr_grid_times(&g, ch->tEnv, ch->tNoise, &ch->numNoise, &ch->lA);
}

static void write_header(SbrBitWriter* w, const SbrHeader* h)
{
    const int extra1 = h->freqScale != 2 || h->alterScale != 1 || h->noiseBands != 2;
    const int extra2 = h->limiterBands != 2 || h->limiterGains != 2 || h->interpolFreq != 1 || h->smoothingMode != 1;
    sbr_put_bits(w, (unsigned)h->ampRes, 1);
    sbr_put_bits(w, (unsigned)h->startFreq, 4);
    sbr_put_bits(w, (unsigned)h->stopFreq, 4);
    sbr_put_bits(w, (unsigned)h->xoverBand, 3);
    sbr_put_bits(w, 0, 2); /* bs_reserved */
    sbr_put_bits(w, (unsigned)extra1, 1);
    sbr_put_bits(w, (unsigned)extra2, 1);
    if (extra1) {
        sbr_put_bits(w, (unsigned)h->freqScale, 2);
        sbr_put_bits(w, (unsigned)h->alterScale, 1);
        sbr_put_bits(w, (unsigned)h->noiseBands, 2);
    }
    if (extra2) {
        sbr_put_bits(w, (unsigned)h->limiterBands, 2);
        sbr_put_bits(w, (unsigned)h->limiterGains, 2);
        sbr_put_bits(w, (unsigned)h->interpolFreq, 1);
        sbr_put_bits(w, (unsigned)h->smoothingMode, 1);
    }
}

static void write_grid(SbrBitWriter* w, const SbrEncChannel* ch)
{
    const int L = ch->numEnv;
    sbr_put_bits(w, (unsigned)ch->frameClass, 2);
    switch (ch->frameClass) {
    case SBR_FIXFIX:
        sbr_put_bits(w, L == 1 ? 0u : L == 2 ? 1u : 2u, 2);
        sbr_put_bits(w, ch->freqRes[0], 1);
        return;
    case SBR_FIXVAR:
        sbr_put_bits(w, (unsigned)ch->bord1, 2);
        sbr_put_bits(w, (unsigned)ch->numRel1, 2);
        break;
    case SBR_VARFIX:
        sbr_put_bits(w, (unsigned)ch->bord0, 2);
        sbr_put_bits(w, (unsigned)ch->numRel0, 2);
        break;
    default:
        sbr_put_bits(w, (unsigned)ch->bord0, 2);
        sbr_put_bits(w, (unsigned)ch->bord1, 2);
        sbr_put_bits(w, (unsigned)ch->numRel0, 2);
        sbr_put_bits(w, (unsigned)ch->numRel1, 2);
        break;
    }
    for (int i = 0; i < ch->numRel0; ++i) sbr_put_bits(w, (unsigned)(ch->rel0[i] - 2) / 2, 2);
    for (int i = 0; i < ch->numRel1; ++i) sbr_put_bits(w, (unsigned)(ch->rel1[i] - 2) / 2, 2);
    sbr_put_bits(w, (unsigned)ch->pointer, pointer_width(L));
    for (int l = 0; l < L; ++l) sbr_put_bits(w, ch->freqRes[ch->frameClass == SBR_FIXVAR ? L - 1 - l : l], 1);
}

/* Bits of coding values[0..n-1] as deltas (divided by step) against ref[0..n-1] with
 * `code`, or -1 when a delta is not a multiple of step or is out of the code's range;
 * with ref NULL, in frequency: the first value in firstBits bits, then the deltas. */
static int delta_cost(const int16_t* values, const int16_t* ref, int n, int step, const SbrCode* code, int firstBits)
{
    int bits = 0;
    for (int k = 0; k < n; ++k) {
        int d;
        if (!ref && k == 0) {
            if (values[0] < 0 || values[0] % step || values[0] / step >= 1 << firstBits) return -1;
            bits += firstBits;
            continue;
        }
        d = values[k] - (ref ? ref[k] : values[k - 1]);
        if (d % step) return -1;
        d /= step;
        if (d < -code->lav || d > code->lav) return -1;
        bits += code->len[d + code->lav];
    }
    return bits;
}

static void write_deltas(SbrBitWriter* w, const int16_t* values, const int16_t* ref, int n, int step, const SbrCode* code,
                         int firstBits)
{
    for (int k = 0; k < n; ++k) {
        if (!ref && k == 0) {
            sbr_put_bits(w, (unsigned)(values[0] / step), firstBits);
            continue;
        }
        const int d = (values[k] - (ref ? ref[k] : values[k - 1])) / step + code->lav;
        sbr_put_bits(w, code->code[d], code->len[d]);
    }
}

/* The codes of one channel's envelopes and noise floors. */
typedef struct {
    const SbrCode *envT, *envF, *noiseT, *noiseF;
    int envFirst, step;
} ChannelCodes;

static ChannelCodes channel_codes(int ampRes, int balance)
{
    ChannelCodes c;
    if (ampRes) {
        c.envT = balance ? &kSbrCode_t_huffman_env_bal_3_0dB : &kSbrCode_t_huffman_env_3_0dB;
        c.envF = balance ? &kSbrCode_f_huffman_env_bal_3_0dB : &kSbrCode_f_huffman_env_3_0dB;
        c.envFirst = balance ? 5 : 6;
    } else {
        c.envT = balance ? &kSbrCode_t_huffman_env_bal_1_5dB : &kSbrCode_t_huffman_env_1_5dB;
        c.envF = balance ? &kSbrCode_f_huffman_env_bal_1_5dB : &kSbrCode_f_huffman_env_1_5dB;
        c.envFirst = balance ? 6 : 7;
    }
    c.noiseT = balance ? &kSbrCode_t_huffman_noise_bal_3_0dB : &kSbrCode_t_huffman_noise_3_0dB;
    c.noiseF = balance ? &kSbrCode_f_huffman_env_bal_3_0dB : &kSbrCode_f_huffman_env_3_0dB;
    c.step = balance ? 2 : 1;
    return c;
}

/* One channel's coding plan: the time references (NULL: frequency coding). */
typedef struct {
    int16_t envRef[SBR_ENC_MAX_ENV][SBR_MAX_BANDS];
    uint8_t envTime[SBR_ENC_MAX_ENV], noiseTime[SBR_ENC_MAX_NOISE];
    ChannelCodes codes;
} ChannelPlan;

static int plan_channel(ChannelPlan* p, const SbrFreq* f, const SbrEncChannel* ch, const SbrWriteHistory* hist,
                        int balance, int allowTime)
{
    p->codes = channel_codes(ch->ampRes, balance);
    const ChannelCodes* c = &p->codes;
    for (int l = 0; l < ch->numEnv; ++l) {
        const int res = ch->freqRes[l], n = f->n[res];
        const int16_t* prev = l == 0 ? hist->env : ch->env[l - 1];
        const int prevRes = l == 0 ? hist->freqRes : ch->freqRes[l - 1];
        for (int k = 0; k < n; ++k) {
            const int i = prevRes == res ? k : sbr_band_containing(f->fTable[prevRes], f->n[prevRes], f->fTable[res][k]);
            p->envRef[l][k] = prev[i];
        }
        const int freqBits = delta_cost(ch->env[l], NULL, n, c->step, c->envF, c->envFirst);
        const int timeBits = l > 0 || allowTime ? delta_cost(ch->env[l], p->envRef[l], n, c->step, c->envT, 0) : -1;
        if (freqBits < 0 && timeBits < 0) return -1;
        p->envTime[l] = (uint8_t)(timeBits >= 0 && (freqBits < 0 || timeBits < freqBits));
    }
    for (int l = 0; l < ch->numNoise; ++l) {
        const int16_t* prev = l == 0 ? hist->noise : ch->noise[l - 1];
        const int freqBits = delta_cost(ch->noise[l], NULL, f->nQ, c->step, c->noiseF, 5);
        const int timeBits = l > 0 || allowTime ? delta_cost(ch->noise[l], prev, f->nQ, c->step, c->noiseT, 0) : -1;
        if (freqBits < 0 && timeBits < 0) return -1;
        p->noiseTime[l] = (uint8_t)(timeBits >= 0 && (freqBits < 0 || timeBits < freqBits));
    }
    return 0;
}

static void write_dtdf(SbrBitWriter* w, const SbrEncChannel* ch, const ChannelPlan* p)
{
    for (int l = 0; l < ch->numEnv; ++l) sbr_put_bits(w, p->envTime[l], 1);
    for (int l = 0; l < ch->numNoise; ++l) sbr_put_bits(w, p->noiseTime[l], 1);
}

static void write_invf(SbrBitWriter* w, const SbrFreq* f, const SbrEncChannel* ch)
{
    for (int q = 0; q < f->nQ; ++q) sbr_put_bits(w, ch->invf[q], 2);
}

static void write_envelope(SbrBitWriter* w, const SbrFreq* f, const SbrEncChannel* ch, const ChannelPlan* p,
                           SbrWriteHistory* hist)
{
    const ChannelCodes* c = &p->codes;
    for (int l = 0; l < ch->numEnv; ++l) {
        const int n = f->n[ch->freqRes[l]];
        if (p->envTime[l]) write_deltas(w, ch->env[l], p->envRef[l], n, c->step, c->envT, 0);
        else write_deltas(w, ch->env[l], NULL, n, c->step, c->envF, c->envFirst);
    }
    memcpy(hist->env, ch->env[ch->numEnv - 1], sizeof hist->env);
    hist->freqRes = ch->freqRes[ch->numEnv - 1];
}

static void write_noise(SbrBitWriter* w, const SbrFreq* f, const SbrEncChannel* ch, const ChannelPlan* p,
                        SbrWriteHistory* hist)
{
    const ChannelCodes* c = &p->codes;
    for (int l = 0; l < ch->numNoise; ++l) {
        if (p->noiseTime[l]) write_deltas(w, ch->noise[l], l ? ch->noise[l - 1] : hist->noise, f->nQ, c->step, c->noiseT, 0);
        else write_deltas(w, ch->noise[l], NULL, f->nQ, c->step, c->noiseF, 5);
    }
    memcpy(hist->noise, ch->noise[ch->numNoise - 1], sizeof hist->noise);
}

static void write_harmonics(SbrBitWriter* w, const SbrFreq* f, const SbrEncChannel* ch)
{
    sbr_put_bits(w, (unsigned)ch->addHarmonicFlag, 1);
    if (ch->addHarmonicFlag)
        for (int k = 0; k < f->n[1]; ++k) sbr_put_bits(w, ch->addHarmonic[k], 1);
}

int sbr_write_extension(SbrBitWriter* w, const SbrHeader* h, const SbrFreq* f, int channels, int coupling,
                        const SbrEncChannel ch[2], SbrWriteHistory history[2], int allowTime)
{
    static ChannelPlan plan[2]; /* the encoder is single-threaded; keeps the plans off the stack */
    const int start = w->pos;
    coupling = channels == 2 && coupling;
    for (int c = 0; c < channels; ++c)
        if (plan_channel(&plan[c], f, &ch[c], &history[c], coupling && c == 1, allowTime) != 0) return -1;
    SbrWriteHistory saved[2];
    memcpy(saved, history, (size_t)channels * sizeof *history);
    sbr_put_bits(w, h != NULL, 1);
    if (h) write_header(w, h);
    sbr_put_bits(w, 0, 1); /* bs_data_extra */
    if (channels == 1) {
        write_grid(w, &ch[0]);
        write_dtdf(w, &ch[0], &plan[0]);
        write_invf(w, f, &ch[0]);
        write_envelope(w, f, &ch[0], &plan[0], &history[0]);
        write_noise(w, f, &ch[0], &plan[0], &history[0]);
        write_harmonics(w, f, &ch[0]);
    } else if (coupling) {
        sbr_put_bits(w, 1, 1);
        write_grid(w, &ch[0]);
        write_dtdf(w, &ch[0], &plan[0]);
        write_dtdf(w, &ch[1], &plan[1]);
        write_invf(w, f, &ch[0]);
        for (int c = 0; c < 2; ++c) {
            write_envelope(w, f, &ch[c], &plan[c], &history[c]);
            write_noise(w, f, &ch[c], &plan[c], &history[c]);
        }
        write_harmonics(w, f, &ch[0]);
        write_harmonics(w, f, &ch[1]);
    } else {
        sbr_put_bits(w, 0, 1);
        for (int c = 0; c < 2; ++c) write_grid(w, &ch[c]);
        for (int c = 0; c < 2; ++c) write_dtdf(w, &ch[c], &plan[c]);
        for (int c = 0; c < 2; ++c) write_invf(w, f, &ch[c]);
        for (int c = 0; c < 2; ++c) write_envelope(w, f, &ch[c], &plan[c], &history[c]);
        for (int c = 0; c < 2; ++c) write_noise(w, f, &ch[c], &plan[c], &history[c]);
        for (int c = 0; c < 2; ++c) write_harmonics(w, f, &ch[c]);
    }
    sbr_put_bits(w, 0, 1); /* bs_extended_data */
    if (w->overflow) {
        memcpy(history, saved, (size_t)channels * sizeof *history);
        return -1;
    }
    return w->pos - start;
}
