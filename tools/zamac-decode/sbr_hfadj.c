/*
 * SBR envelope adjustment (ISO/IEC 14496-3, 4.6.18.7): dequantisation of the
 * envelope and noise floor values, mapping to QMF bands, the energy of the generated
 * band, gains with the limiter and the boost, gain and noise smoothing over time,
 * and the assembly with the noise floor and the added sinusoids.
 */
#include <math.h>
#include <string.h>

#include "sbr.h"
#include "sbr_tables.h"

void sbr_dequantize(const SbrFreq* f, const SbrFrame* fr, int channels, int coupled,
                    float env[2][SBR_MAX_ENV][SBR_MAX_BANDS], float noise[2][SBR_MAX_NOISE][SBR_MAX_NQ])
{
    if (coupled) {
        const float a = fr[0].ampRes ? 1.0f : 2.0f;
        const float pan = fr[0].ampRes ? 12.0f : 24.0f;
        for (int l = 0; l < fr[0].numEnv; ++l)
            for (int k = 0; k < f->n[fr[0].freqRes[l]]; ++k) {
                const float t1 = exp2f(fr[0].env[l][k] / a + 7.0f);
                const float t2 = exp2f((pan - fr[1].env[l][k]) / a);
                env[0][l][k] = t1 / (1.0f + t2);
                env[1][l][k] = env[0][l][k] * t2;
            }
        for (int l = 0; l < fr[0].numNoise; ++l)
            for (int k = 0; k < f->nQ; ++k) {
                const float t1 = exp2f(7.0f - fr[0].noise[l][k]);
                const float t2 = exp2f(12.0f - fr[1].noise[l][k]);
                noise[0][l][k] = t1 / (1.0f + t2);
                noise[1][l][k] = noise[0][l][k] * t2;
            }
        return;
    }
    for (int c = 0; c < channels; ++c) {
        const float a = fr[c].ampRes ? 1.0f : 2.0f;
        for (int l = 0; l < fr[c].numEnv; ++l)
            for (int k = 0; k < f->n[fr[c].freqRes[l]]; ++k) env[c][l][k] = exp2f(fr[c].env[l][k] / a + 6.0f);
        for (int l = 0; l < fr[c].numNoise; ++l)
            for (int k = 0; k < f->nQ; ++k) noise[c][l][k] = exp2f(6.0f - fr[c].noise[l][k]);
    }
}

/* Low power: bands whose real-valued signals alias into each other get a common
 * gain, blended with their own by the degree of aliasing, at the group's energy. */
static void aliasing_reduction(const float* degree, const float* eCurr, float* gain, int m)
{
    int borders[2 * SBR_MAX_BANDS + 2], count = 0, grouping = 0;
    for (int k = 0; k < m - 1; ++k) {
        if (degree[k + 1] != 0.0f) {
            if (!grouping) {
                borders[count++] = k;
                grouping = 1;
            } else if (borders[count - 1] + 3 == k) {
                borders[count++] = k + 1;
                grouping = 0;
            }
        } else if (grouping) {
            borders[count++] = k + 1;
            grouping = 0;
        }
    }
    if (grouping) borders[count++] = m;
    for (int g = 0; g + 1 < count; g += 2) {
        const int start = borders[g], stop = borders[g + 1];
        float nrgOrig = 0.0f, nrgAmp = 0.0f, nrgMod = 0.0f;
        for (int k = start; k < stop; ++k) {
            nrgOrig += eCurr[k];
            nrgAmp += eCurr[k] * gain[k] * gain[k];
        }
        if (nrgOrig <= 0.0f) continue;
        const float groupGain = nrgAmp / nrgOrig;
        float energyGain[SBR_MAX_BANDS];
        for (int k = start; k < stop; ++k) {
            float alpha = degree[k];
            if (k < m - 1 && degree[k + 1] > alpha) alpha = degree[k + 1];
            energyGain[k] = alpha * groupGain + (1.0f - alpha) * gain[k] * gain[k];
            nrgMod += energyGain[k] * eCurr[k];
        }
        const float compensation = nrgMod > 0.0f ? nrgAmp / nrgMod : 1.0f;
        for (int k = start; k < stop; ++k) gain[k] = sqrtf(energyGain[k] * compensation);
    }
}

/* Gains, noise and sinusoid levels of one envelope, per QMF band m - kx. */
typedef struct {
    float gain[SBR_MAX_BANDS], noise[SBR_MAX_BANDS], sine[SBR_MAX_BANDS];
} EnvelopeGains;

static void envelope_gains(const SbrChannel* ch, const SbrFreq* f, const SbrHeader* h, const SbrFrame* fr, int l,
                           const float* envOrig, const float* noiseOrig, const uint8_t* sineIndex, int delta,
                           const float (*hRe)[64], const float (*hIm)[64], EnvelopeGains* out)
{
    const int kx = f->kx, m = f->m;
    const int res = fr->freqRes[l];
    const uint8_t* table = f->fTable[res];
    float eOrig[SBR_MAX_BANDS], q[SBR_MAX_BANDS], eCurr[SBR_MAX_BANDS];
    uint8_t sinePresent[SBR_MAX_BANDS];
    for (int i = 0; i < f->n[res]; ++i) {
        int any = 0;
        for (int k = table[i]; k < table[i + 1]; ++k) any |= sineIndex[k - kx];
        for (int k = table[i]; k < table[i + 1]; ++k) {
            eOrig[k - kx] = envOrig[i];
            sinePresent[k - kx] = (uint8_t)any;
        }
    }
    for (int i = 0; i < f->nQ; ++i)
        for (int k = f->fNoise[i]; k < f->fNoise[i + 1]; ++k) q[k - kx] = noiseOrig[i];

    /* energy of the generated band over the envelope; real-valued subband samples carry
     * half the energy of complex ones for the same signal (and the real synthesis
     * gives them twice the weight), so low power counts them twice */
    const int first = 2 * fr->tEnv[l] + SBR_HFADJ, last = 2 * fr->tEnv[l + 1] + SBR_HFADJ;
    const float realScale = ch->lowPower ? 2.0f : 1.0f;
    if (h->interpolFreq) {
        const float scale = realScale / (float)(last - first);
        for (int j = 0; j < m; ++j) {
            float sum = 0.0f;
            for (int s = first; s < last; ++s) sum += hRe[s][kx + j] * hRe[s][kx + j] + hIm[s][kx + j] * hIm[s][kx + j];
            eCurr[j] = sum * scale;
        }
    } else {
        for (int i = 0; i < f->n[res]; ++i) {
            float sum = 0.0f;
            for (int k = table[i]; k < table[i + 1]; ++k)
                for (int s = first; s < last; ++s) sum += hRe[s][k] * hRe[s][k] + hIm[s][k] * hIm[s][k];
            sum *= realScale / (float)((last - first) * (table[i + 1] - table[i]));
            for (int k = table[i]; k < table[i + 1]; ++k) eCurr[k - kx] = sum;
        }
    }

    const float limGain = kSbrLimiterGains[h->limiterGains];
    const float eps = 1e-12f;
    for (int b = 0; b < f->nLim; ++b) {
        const int lo = f->fLim[b] - kx, hi = f->fLim[b + 1] - kx;
        float sumOrig = 0.0f, sumCurr = 0.0f;
        for (int j = lo; j < hi; ++j) {
            const float t = eOrig[j] / (1.0f + q[j]);
            out->noise[j] = sqrtf(t * q[j]);
            out->sine[j] = sqrtf(t * sineIndex[j]);
            if (!sinePresent[j]) out->gain[j] = sqrtf(eOrig[j] / ((1.0f + eCurr[j]) * (1.0f + q[j] * delta)));
            else out->gain[j] = sqrtf(eOrig[j] * q[j] / ((1.0f + eCurr[j]) * (1.0f + q[j])));
            sumOrig += eOrig[j];
            sumCurr += eCurr[j];
        }
        float gainMax = limGain * sqrtf((eps + sumOrig) / (eps + sumCurr));
        if (gainMax > 1e5f) gainMax = 1e5f;
        float sumAdjusted = 0.0f;
        for (int j = lo; j < hi; ++j) {
            if (out->gain[j] > gainMax) {
                out->noise[j] *= gainMax / out->gain[j];
                out->gain[j] = gainMax;
            }
            sumAdjusted += eCurr[j] * out->gain[j] * out->gain[j] + out->sine[j] * out->sine[j] +
                           (delta && out->sine[j] == 0.0f ? out->noise[j] * out->noise[j] : 0.0f);
        }
        float boost = sqrtf((eps + sumOrig) / (eps + sumAdjusted));
        if (boost > 1.584893192f) boost = 1.584893192f;
        for (int j = lo; j < hi; ++j) {
            out->gain[j] *= boost;
            out->noise[j] *= boost;
            out->sine[j] *= boost;
        }
    }
    if (ch->lowPower) aliasing_reduction(ch->degreeAlias + kx, eCurr, out->gain, m);
}

void sbr_hf_adjust(SbrChannel* ch, const SbrFreq* f, const SbrHeader* h, const SbrFrame* fr,
                   const float (*env)[SBR_MAX_BANDS], const float (*noise)[SBR_MAX_NQ], const float (*hRe)[64],
                   const float (*hIm)[64], int reset)
{
    const int kx = f->kx, m = f->m;
    const int lAPrev = ch->prevLAIsLast ? 0 : -1;
    const int smooth = !h->smoothingMode;
    float (*yRe)[64] = ch->yRe[ch->yCur];
    float (*yIm)[64] = ch->yIm[ch->yCur];
    if (reset || ch->histM != m) ch->histValid = 0;

    for (int l = 0; l < fr->numEnv; ++l) {
        /* sinusoids: in the middle band of each high-resolution band that has one */
        uint8_t sineIndex[SBR_MAX_BANDS];
        memset(sineIndex, 0, sizeof sineIndex);
        for (int i = 0; i < f->n[1]; ++i) {
            const int mid = (f->fTable[1][i] + f->fTable[1][i + 1]) / 2 - kx;
            sineIndex[mid] = (uint8_t)(fr->addHarmonic[i] && (l >= fr->lA || ch->sinePrev[mid]));
        }
        const int q = fr->numNoise > 1 && fr->tEnv[l] >= fr->tNoise[1];
        const int delta = !(l == fr->lA || l == lAPrev);
        EnvelopeGains g;
        envelope_gains(ch, f, h, fr, l, env[l], noise[q], sineIndex, delta, hRe, hIm, &g);
        if (l == fr->numEnv - 1) memcpy(ch->sinePrev, sineIndex, sizeof sineIndex);

        if (!ch->histValid) {
            for (int j = 0; j < 4; ++j) {
                memcpy(ch->gainHist[j], g.gain, sizeof g.gain);
                memcpy(ch->noiseHist[j], g.noise, sizeof g.noise);
            }
            ch->histValid = 1;
        }
        const int filtered = smooth && delta;
        for (int s = 2 * fr->tEnv[l]; s < 2 * fr->tEnv[l + 1]; ++s) {
            float gFilt[SBR_MAX_BANDS], qFilt[SBR_MAX_BANDS];
            if (filtered) {
                const float* hs = kSbrHSmooth;
                for (int j = 0; j < m; ++j) {
                    gFilt[j] = hs[0] * g.gain[j] + hs[1] * ch->gainHist[3][j] + hs[2] * ch->gainHist[2][j] +
                               hs[3] * ch->gainHist[1][j] + hs[4] * ch->gainHist[0][j];
                    qFilt[j] = hs[0] * g.noise[j] + hs[1] * ch->noiseHist[3][j] + hs[2] * ch->noiseHist[2][j] +
                               hs[3] * ch->noiseHist[1][j] + hs[4] * ch->noiseHist[0][j];
                }
            } else {
                memcpy(gFilt, g.gain, sizeof gFilt);
                memcpy(qFilt, g.noise, sizeof qFilt);
            }
            memmove(ch->gainHist[0], ch->gainHist[1], 3 * sizeof ch->gainHist[0]);
            memmove(ch->noiseHist[0], ch->noiseHist[1], 3 * sizeof ch->noiseHist[0]);
            memcpy(ch->gainHist[3], g.gain, sizeof g.gain);
            memcpy(ch->noiseHist[3], g.noise, sizeof g.noise);

            const float* in = hRe[s + SBR_HFADJ];
            const float* inIm = hIm[s + SBR_HFADJ];
            const float phiRe = kSbrPhi[ch->indexSine][0], phiIm = kSbrPhi[ch->indexSine][1];
            int noiseIndex = ch->indexNoise;
            for (int j = 0; j < m; ++j) {
                const int k = kx + j;
                float re = in[k] * gFilt[j], im = inIm[k] * gFilt[j];
                noiseIndex = (noiseIndex + 1) & 511;
                if (g.sine[j] != 0.0f) {
                    re += g.sine[j] * phiRe;
                    im += g.sine[j] * ((k & 1) ? -phiIm : phiIm);
                } else if (delta) {
                    re += qFilt[j] * kSbrNoise[noiseIndex][0];
                    im += qFilt[j] * kSbrNoise[noiseIndex][1];
                }
                yRe[s][k] = re;
                yIm[s][k] = im;
            }
            ch->indexNoise = (ch->indexNoise + m) & 511;
            ch->indexSine = (ch->indexSine + 1) & 3;
        }
    }
    ch->prevLAIsLast = fr->lA == fr->numEnv;
    ch->histM = m;
}
