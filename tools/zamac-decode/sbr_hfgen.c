/*
 * SBR high-frequency generation (ISO/IEC 14496-3, 4.6.18.6): chirp factors from the
 * inverse-filtering modes, the second-order predictor of each low subband
 * (zamsPredictCoef_SBR_*; with --fixed zamsPredictOneCoef_SBR*_D2L), and the patches that copy the whitened low band up.
 */
#include <string.h>

#include "sbr.h"
#include "sbr_tables.h"
#include "zamac.h"

static void chirp_factors(SbrChannel* ch, const SbrFreq* f, const SbrFrame* fr, float* bw)
{
    for (int i = 0; i < f->nQ; ++i) {
        const float target = kSbrNewBw[ch->prevInvf[i]][fr->invf[i]];
        float w = target < ch->bwPrev[i] ? 0.75f * target + 0.25f * ch->bwPrev[i]
                                         : 0.90625f * target + 0.09375f * ch->bwPrev[i];
        if (w < 0.015625f) w = 0.0f;
        if (w >= 0.99609375f) w = 0.99609375f;
        bw[i] = w;
        ch->bwPrev[i] = w;
        ch->prevInvf[i] = fr->invf[i];
    }
}

/* Low power: the degree of aliasing of each source band from the signs of the first
 * reflection coefficients r(k) = -phi(0,1)/phi(1,1) of it and its two neighbours
 * below (ISO/IEC 14496-3, low-power high-frequency generation). */
static void aliasing_degree(const SbrChannel* ch, int k0, float* degree)
{
    float r[64];
    for (int k = 0; k < k0; ++k) {
        float p01 = 0.0f, p11 = 0.0f;
        for (int n = 0; n < SBR_XSLOTS - 2; ++n) {
            p01 += ch->xRe[n + 2][k] * ch->xRe[n + 1][k];
            p11 += ch->xRe[n + 1][k] * ch->xRe[n + 1][k];
        }
        r[k] = p11 > 0.0f ? -p01 / p11 : 0.0f;
        r[k] = r[k] > 1.0f ? 1.0f : r[k] < -1.0f ? -1.0f : r[k];
        degree[k] = 0.0f;
    }
    for (int k = 2; k < k0; ++k) {
        const float sign = (k & 1) ? 1.0f : -1.0f;  /* even bands look for r < 0, odd ones for r > 0 */
        if (sign * r[k] <= 0.0f) continue;
        const float partial = 1.0f - r[k - 1] * r[k - 1];
        if (sign * r[k - 1] > 0.0f) {
            degree[k] = 1.0f;
            if (sign * r[k - 2] < 0.0f) degree[k - 1] = partial;
        } else if (sign * r[k - 2] < 0.0f) {
            degree[k] = partial;
        }
    }
}

void sbr_hf_generate(SbrChannel* ch, const SbrFreq* f, const SbrFrame* fr, float (*hRe)[64], float (*hIm)[64],
                     int lowPower, const int32_t (*fixedRows)[64])
{
    float bw[SBR_MAX_NQ];
    chirp_factors(ch, f, fr, bw);

    const float* rowsRe[SBR_XSLOTS];
    const float* rowsIm[SBR_XSLOTS];
    for (int l = 0; l < SBR_XSLOTS; ++l) {
        rowsRe[l] = ch->xRe[l];
        rowsIm[l] = ch->xIm[l];
    }
    float a0Re[64] = {0}, a0Im[64] = {0}, a1Re[64] = {0}, a1Im[64] = {0};
    if (fixedRows) {
        /* the integer predictor; its Q29 coefficients become floats here for the
         * patching below (integer to float boundary) */
        const int32_t* q[SBR_XSLOTS];
        for (int l = 0; l < SBR_XSLOTS; ++l) q[l] = fixedRows[l];
        const float unit = 1.0f / 536870912.0f;
        for (int k = 0; k < f->k0; ++k) {
            int32_t a0[2] = {0, 0}, a1[2] = {0, 0};
            if (lowPower) zamsPredictOneCoef_SBRLP_32s_D2L(q, a0, a1, k, SBR_XSLOTS - 2);
            else zamsPredictOneCoef_SBRHQ_32sc_D2L(q, a0, a1, k, SBR_XSLOTS - 2);
            a0Re[k] = unit * (float)a0[0], a0Im[k] = unit * (float)a0[1];
            a1Re[k] = unit * (float)a1[0], a1Im[k] = unit * (float)a1[1];
        }
    } else if (lowPower) {
        zamsPredictCoef_SBR_R_32f_D2L(rowsRe, a0Re, a1Re, f->k0, SBR_XSLOTS - 2);
    } else {
        zamsPredictCoef_SBR_C_32f_D2L(rowsRe, rowsIm, a0Re, a0Im, a1Re, a1Im, f->k0, SBR_XSLOTS - 2);
    }

    float degree[64];
    if (lowPower) aliasing_degree(ch, f->k0, degree);
    const int first = 2 * fr->tEnv[0] + SBR_HFADJ, last = 2 * fr->tEnv[fr->numEnv] + SBR_HFADJ;
    int k = f->kx, g = 0;
    for (int i = 0; i < f->numPatches; ++i) {
        for (int x = 0; x < f->patchBands[i]; ++x, ++k) {
            const int p = f->patchStart[i] + x;
            /* a patch's first band does not continue the band below it */
            if (lowPower) ch->degreeAlias[k] = x == 0 ? 0.0f : degree[p];
            while (g + 1 < f->nQ && k >= f->fNoise[g + 1]) ++g;
            const float b = bw[g], b2 = b * b;
            const float c0r = b * a0Re[p], c0i = b * a0Im[p], c1r = b2 * a1Re[p], c1i = b2 * a1Im[p];
            if (b == 0.0f) {
                for (int l = first; l < last; ++l) {
                    hRe[l][k] = ch->xRe[l][p];
                    hIm[l][k] = ch->xIm[l][p];
                }
                continue;
            }
            for (int l = first; l < last; ++l) {
                const float r1 = ch->xRe[l - 1][p], i1 = ch->xIm[l - 1][p];
                const float r2 = ch->xRe[l - 2][p], i2 = ch->xIm[l - 2][p];
                hRe[l][k] = ch->xRe[l][p] + c0r * r1 - c0i * i1 + c1r * r2 - c1i * i2;
                hIm[l][k] = ch->xIm[l][p] + c0r * i1 + c0i * r1 + c1r * i2 + c1i * r2;
            }
        }
    }
}
