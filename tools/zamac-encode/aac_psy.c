/*
 * Psychoacoustic model of the AAC encoder: attack detection for window switching,
 * grouping of short windows, and per-band masking thresholds.
 *
 * Thresholds: the band energies spread over the Bark scale (a masker reaches
 * 27 dB per Bark downwards and 15 dB per Bark upwards), lowered by a signal-to-mask
 * ratio, and never below the threshold in quiet (Terhardt's approximation, with a
 * full-scale sine taken as 96 dB SPL). The rate control scales all thresholds of a
 * frame together.
 */
#include <math.h>
#include <string.h>

#include "aac_encoder.h"

static double bark(double f)
{
    return 13.0 * atan(0.00076 * f) + 3.5 * atan((f / 7500.0) * (f / 7500.0));
}

/* Threshold in quiet in dB SPL at f Hz. */
static double ath_db(double f)
{
    const double k = (f < 20.0 ? 20.0 : f) / 1000.0;
    double db = 3.64 * pow(k, -0.8) - 6.5 * exp(-0.6 * (k - 3.3) * (k - 3.3)) + 1e-3 * k * k * k * k;
    /* capped: high-frequency content above 20 dB SPL stays coded (the bandwidth is
     * set by the rate, not by the threshold in quiet) */
    return db > 20.0 ? 20.0 : db;
}

static void band_constants(const AacBandTable* t, int lines, int sampleRate, float* athOut, float* barkOut,
                           float* hzOut, double fullScaleEnergy)
{
    for (int b = 0; b < t->count; ++b) {
        double minDb = 1e9;
        for (int k = t->offset[b]; k < t->offset[b + 1]; ++k) {
            const double db = ath_db((k + 0.5) * sampleRate / (2.0 * lines));
            if (db < minDb) minDb = db;
        }
        /* 96 dB SPL = a full-scale sine */
        athOut[b] = (float)(fullScaleEnergy * pow(10.0, (minDb - 96.0) / 10.0));
        hzOut[b] = (float)(0.5 * (t->offset[b] + t->offset[b + 1]) * sampleRate / (2.0 * lines));
        barkOut[b] = (float)bark(hzOut[b]);
    }
}

void aac_psy_init(AacPsyState* psy, int sampleRate, int samplingIndex)
{
    memset(psy, 0, sizeof *psy);
    /* a full-scale sine gives coefficients of about 32767 * N / 4 (N the window length) */
    const double longPeak = 32767.0 * 512.0, shortPeak = 32767.0 * 64.0;
    psy->fullScaleLong = (float)(longPeak * longPeak / 2.0);
    psy->fullScaleShort = (float)(shortPeak * shortPeak / 2.0);
    band_constants(&kAacSwbLong[samplingIndex], 1024, sampleRate, psy->athLong, psy->barkLong, psy->hzLong,
                   psy->fullScaleLong);
    band_constants(&kAacSwbShort[samplingIndex], 128, sampleRate, psy->athShort, psy->barkShort, psy->hzShort,
                   psy->fullScaleShort);
}

int aac_psy_detect_attack(AacPsyState* psy, const float* block)
{
    /* eight segments of 128 samples centred on the short windows (448 + 128 w + 64),
     * high-passed by a second difference */
    float energy[8];
    for (int w = 0; w < 8; ++w) {
        const float* x = block + 512 + 128 * w;
        double e = 0.0;
        for (int n = 0; n < 128; ++n) {
            const float d = x[n] - 2.0f * x[n - 1] + x[n - 2];
            e += (double)d * d;
        }
        energy[w] = (float)e;
    }
    int attack = -1;
    for (int w = 0; w < 8 && attack < 0; ++w) {
        /* mean of the eight segments before this one */
        double mean = 0.0;
        for (int k = w - 8; k < w; ++k) mean += k < 0 ? psy->lastEnergy8[k + 8] : energy[k];
        mean /= 8.0;
        if (energy[w] > 12.0 * mean && energy[w] > 2.0e6) attack = w;
    }
    memcpy(psy->lastEnergy8, energy, sizeof energy);
    return attack;
}

void aac_psy_group(AacChannel* ch, const float winEnergy[8], int attackWindow)
{
    int groups = 1;
    ch->groupLen[0] = 1;
    ch->grouping = 0;
    float groupEnergy = winEnergy[0];
    for (int w = 1; w < 8; ++w) {
        const float e = winEnergy[w];
        const int split = w == attackWindow || w == attackWindow + 1 || e > 8.0f * groupEnergy + 1.0f ||
                          8.0f * e + 1.0f < groupEnergy;
        if (split) {
            ch->groupLen[groups++] = 1;
            groupEnergy = e;
        } else {
            ch->groupLen[groups - 1]++;
            ch->grouping |= 1 << (7 - w); /* bit 6 belongs to window 1 */
        }
    }
    ch->numGroups = groups;
}

void aac_psy_analyse(const AacPsyState* psy, AacChannel* ch, float snrDb)
{
    const int isShort = ch->sequence == AAC_EIGHT_SHORT;
    const float* ath = isShort ? psy->athShort : psy->athLong;
    const float* bk = isShort ? psy->barkShort : psy->barkLong;
    const float* hz = isShort ? psy->hzShort : psy->hzLong;
    const float fullScale = isShort ? psy->fullScaleShort : psy->fullScaleLong;
    int groupStart = 0;
    zamsPow34_32f(ch->spec, ch->pow34, 1024); /* signed; the quantizer takes magnitudes */
    for (int g = 0; g < ch->numGroups; ++g) {
        const int L = ch->groupLen[g];
        float* e = ch->energy + g * AAC_BANDS;
        float* thr = ch->threshold + g * AAC_BANDS;
        float smrDb[64];
        for (int b = 0; b < ch->maxSfb; ++b) {
            const int start = groupStart + ch->swb[b] * L;
            const int n = (ch->swb[b + 1] - ch->swb[b]) * L;
            float sum = 0.0f, ss = 0.0f, m = 0.0f, logSum = 0.0f;
            for (int k = 0; k < n; k += 2) {
                const float x = ch->spec[start + k], y = ch->spec[start + k + 1];
                const float a = fabsf(x), c = fabsf(y), p = x * x + y * y;
                sum += p;
                ss += sqrtf(a) + sqrtf(c);
                if (a > m) m = a;
                if (c > m) m = c;
                logSum += log2f(p + 1.0f);
            }
            e[b] = sum;
            /* spectral flatness of the line pairs: 0 dB for noise, far below for a tone */
            const float pairs = (float)(n / 2);
            const float flatnessDb = 3.0103f * (logSum / pairs - log2f(sum / pairs + 1.0f));
            float tonality = flatnessDb / -20.0f;
            if (tonality > 1.0f) tonality = 1.0f;
            if (tonality < 0.0f) tonality = 0.0f;
            /* a tone masks with 14.5 + z dB of distance, capped at 15 dB */
            float tsmr = 14.5f + bk[b];
            if (tsmr > 15.0f) tsmr = 15.0f;
            smrDb[b] = tonality * tsmr + (1.0f - tonality) * snrDb;
            ch->tonality[g * AAC_BANDS + b] = tonality;
            ch->sumSqrt[g * AAC_BANDS + b] = ss;
            ch->maxAbs[g * AAC_BANDS + b] = m;
        }
        /* spreading, summed over the maskers: upwards in frequency with a slope that
         * flattens as the masker gets louder (24 + 230 / f - 0.2 L dB per Bark, L in dB
         * SPL), downwards at 27 dB per Bark */
        /* each band masks with its energy lowered by its signal-to-mask ratio */
        float up[64], spread[64], masker[64];
        for (int b = 0; b < ch->maxSfb; ++b) masker[b] = e[b] * powf(10.0f, -0.1f * smrDb[b]);
        for (int b = 0; b < ch->maxSfb; ++b) {
            const float level = e[b] > 0.0f ? 10.0f * log10f(e[b] / fullScale) + 96.0f : 0.0f;
            float slope = 24.0f + 230.0f / hz[b] - 0.2f * level;
            if (slope < 5.0f) slope = 5.0f;
            up[b] = slope;
        }
        float acc = 0.0f;
        for (int b = 0; b < ch->maxSfb; ++b) {
            if (b > 0) acc *= powf(10.0f, -0.1f * up[b - 1] * (bk[b] - bk[b - 1]));
            acc += masker[b];
            spread[b] = acc;
        }
        acc = 0.0f;
        for (int b = ch->maxSfb - 1; b >= 0; --b) {
            if (b < ch->maxSfb - 1) acc *= powf(10.0f, -2.7f * (bk[b + 1] - bk[b]));
            spread[b] += acc;
            acc += masker[b];
        }
        for (int b = 0; b < ch->maxSfb; ++b) {
            float t = spread[b];
            const float q = ath[b] * (float)L;
            thr[b] = t > q ? t : q;
        }
        groupStart += 128 * L;
    }
}
