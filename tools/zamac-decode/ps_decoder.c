/*
 * Parametric stereo (ISO/IEC 14496-3, 8.6.4): the mono QMF matrix of an SBR frame
 * becomes left and right.
 *
 *   hybrid analysis    the lowest 3 (20-band configuration) or 5 (34-band) QMF bands
 *                      split further (zamsAnalysisFilter_PS_32fc_D2)
 *   decorrelation      all-pass chain with fractional delays in the lower bands, plain
 *                      delays above, scaled down on transients
 *   mixing             per parameter band a 2x2 matrix from IID and ICC (procedure Ra
 *                      or Rb), turned by IPD/OPD, interpolated across each envelope
 *   hybrid synthesis   the sub-bands summed back into their QMF bands
 */
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "sbr.h"
#include "sbr_tables.h"
#include "zamac.h"

enum { NSLOTS = SBR_SLOTS, MAX_BANDS = 91, MAX_DELAY = 14, AP_DELAY = 5, HIST = 12 };

struct PsState {
    float in[5][2 * (HIST + NSLOTS)];           /* hybrid analysis input: 12 earlier slots, then 32 */
    float hyb[NSLOTS][2 * 32];                   /* hybrid analysis output */
    float sRe[NSLOTS][MAX_BANDS], sIm[NSLOTS][MAX_BANDS];  /* mono, by band k */
    float dRe[NSLOTS][MAX_BANDS], dIm[NSLOTS][MAX_BANDS];  /* decorrelated */
    float delayRe[MAX_BANDS][MAX_DELAY + NSLOTS], delayIm[MAX_BANDS][MAX_DELAY + NSLOTS];
    float apRe[MAX_BANDS][3][AP_DELAY + NSLOTS], apIm[MAX_BANDS][3][AP_DELAY + NSLOTS];
    float peakDecay[PS_MAX_PAR], powerSmooth[PS_MAX_PAR], peakDiffSmooth[PS_MAX_PAR];
    float hPrev[2][PS_MAX_PAR][4];              /* mixing matrix at the end of the last frame (re, im) */
    int8_t ipdHist[PS_MAX_PAR], opdHist[PS_MAX_PAR];
    int configured, is34;
    float mixA[46][8][4], mixB[46][8][4];       /* procedures Ra and Rb by IID index and ICC */
    float pdRe[512], pdIm[512];                 /* smoothed IPD/OPD phases */
};

static void mixing_tables(PsState* ps)
{
    for (int iid = 0; iid < 46; ++iid) {
        const double c = kPsIidC[iid];
        const double c1 = sqrt(2.0) / sqrt(1.0 + c * c), c2 = c * c1;
        for (int icc = 0; icc < 8; ++icc) {
            const double alpha = kPsIccAlpha[icc];
            const double beta = alpha * (c1 - c2) / sqrt(2.0);
            ps->mixA[iid][icc][0] = (float)(c2 * cos(beta + alpha));
            ps->mixA[iid][icc][1] = (float)(c1 * cos(beta - alpha));
            ps->mixA[iid][icc][2] = (float)(c2 * sin(beta + alpha));
            ps->mixA[iid][icc][3] = (float)(c1 * sin(beta - alpha));
            const double rho = kPsIccRho[icc] > 0.05 ? kPsIccRho[icc] : 0.05;
            double a = 0.5 * atan2(2.0 * c * rho, c * c - 1.0);
            double mu = c + 1.0 / c;
            mu = sqrt(1.0 + (4.0 * rho * rho - 4.0) / (mu * mu));
            const double gamma = atan(sqrt((1.0 - mu) / (1.0 + mu)));
            if (a < 0) a += M_PI / 2;
            ps->mixB[iid][icc][0] = (float)(sqrt(2.0) * cos(a) * cos(gamma));
            ps->mixB[iid][icc][1] = (float)(sqrt(2.0) * sin(a) * cos(gamma));
            ps->mixB[iid][icc][2] = (float)(-sqrt(2.0) * sin(a) * sin(gamma));
            ps->mixB[iid][icc][3] = (float)(sqrt(2.0) * cos(a) * sin(gamma));
        }
    }
    /* phase smoothing over the last three values: weights 1/4, 1/2, 1 */
    for (int i = 0; i < 512; ++i) {
        const double p0 = (i >> 6) * M_PI / 4, p1 = ((i >> 3) & 7) * M_PI / 4, p2 = (i & 7) * M_PI / 4;
        const double re = 0.25 * cos(p0) + 0.5 * cos(p1) + cos(p2);
        const double im = 0.25 * sin(p0) + 0.5 * sin(p1) + sin(p2);
        const double mag = hypot(re, im);
        ps->pdRe[i] = (float)(re / mag);
        ps->pdIm[i] = (float)(im / mag);
    }
}

PsState* ps_create(void)
{
    PsState* ps = (PsState*)calloc(1, sizeof *ps);
    if (ps) mixing_tables(ps);
    return ps;
}

void ps_free(PsState* ps) { free(ps); }

/* ---------------------------------------------------------- parameter maps */

static void map_10_to_20(int8_t* out, const int8_t* in, int full)
{
    const int n = full ? 10 : 5;
    for (int b = n - 1; b >= 0; --b) out[2 * b] = out[2 * b + 1] = in[b];
    if (!full) out[10] = 0;
}

static void map_34_to_20(int8_t* out, const int8_t* in, int full)
{
    out[0] = (int8_t)((2 * in[0] + in[1]) / 3);
    out[1] = (int8_t)((in[1] + 2 * in[2]) / 3);
    out[2] = (int8_t)((2 * in[3] + in[4]) / 3);
    out[3] = (int8_t)((in[4] + 2 * in[5]) / 3);
    out[4] = (int8_t)((in[6] + in[7]) / 2);
    out[5] = (int8_t)((in[8] + in[9]) / 2);
    out[6] = in[10];
    out[7] = in[11];
    out[8] = (int8_t)((in[12] + in[13]) / 2);
    out[9] = (int8_t)((in[14] + in[15]) / 2);
    out[10] = in[16];
    if (full) {
        out[11] = in[17];
        out[12] = in[18];
        out[13] = in[19];
        out[14] = (int8_t)((in[20] + in[21]) / 2);
        out[15] = (int8_t)((in[22] + in[23]) / 2);
        out[16] = (int8_t)((in[24] + in[25]) / 2);
        out[17] = (int8_t)((in[26] + in[27]) / 2);
        out[18] = (int8_t)((in[28] + in[29] + in[30] + in[31]) / 4);
        out[19] = (int8_t)((in[32] + in[33]) / 2);
    }
}

static void map_20_to_34(int8_t* out, const int8_t* in, int full)
{
    static const int8_t kFrom[34] = {0, -1, 1, 2, -2, 3, 4, 4, 5, 5, 6, 7, 8, 8, 9, 9, 10,
                                     11, 12, 13, 14, 14, 15, 15, 16, 16, 17, 17, 18, 18, 18, 18, 19, 19};
    const int n = full ? 34 : 17;
    for (int b = 0; b < n; ++b) {
        if (kFrom[b] == -1) out[b] = (int8_t)((in[0] + in[1]) / 2);
        else if (kFrom[b] == -2) out[b] = (int8_t)((in[2] + in[3]) / 2);
        else out[b] = in[kFrom[b]];
    }
}

static void map_10_to_34(int8_t* out, const int8_t* in, int full)
{
    static const int8_t kFrom[34] = {0, 0, 0, 1, 1, 1, 2, 2, 2, 2, 3, 3, 4, 4, 4, 4, 5,
                                     5, 6, 6, 7, 7, 7, 7, 8, 8, 8, 8, 9, 9, 9, 9, 9, 9};
    const int n = full ? 34 : 16;
    for (int b = 0; b < n; ++b) out[b] = in[kFrom[b]];
    if (!full) out[16] = 0;
}

/* Parameters of an envelope at the resolution of the configuration (20 or 34 bands). */
static void map_parameters(int8_t* out, const int8_t* in, int count, int is34, int full)
{
    if (is34) {
        if (count == 20 || count == 11) map_20_to_34(out, in, full);
        else if (count == 10 || count == 5) map_10_to_34(out, in, full);
        else memcpy(out, in, PS_MAX_PAR);
    } else {
        if (count == 34 || count == 17) map_34_to_20(out, in, full);
        else if (count == 10 || count == 5) map_10_to_20(out, in, full);
        else memcpy(out, in, PS_MAX_PAR);
    }
}

/* ---------------------------------------------------------- the stages */

static void hybrid_analysis(PsState* ps, const float (*xRe)[64], const float (*xIm)[64], int nSplit)
{
    const float* rows[5];
    float* out[NSLOTS];
    for (int b = 0; b < nSplit; ++b) {
        float* in = ps->in[b];
        memmove(in, in + 2 * NSLOTS, 2 * HIST * sizeof(float));
        for (int n = 0; n < NSLOTS; ++n) {
            in[2 * (HIST + n)] = xRe[n + 6][b];
            in[2 * (HIST + n) + 1] = xIm[n + 6][b];
        }
        rows[b] = in;
    }
    for (int n = 0; n < NSLOTS; ++n) out[n] = ps->hyb[n];
    zamsAnalysisFilter_PS_32fc_D2(rows, out, NSLOTS, ps->is34 ? 34 : 20);
}

static void decorrelate(PsState* ps, int nBands, int nHyb, int qmfOffset)
{
    const PsDecorrelation* dc = ps->is34 ? &kPsDecorrelation34 : &kPsDecorrelation20;
    const uint8_t* kToI = ps->is34 ? kPsKToI34 : kPsKToI20;
    const int nPar = ps->is34 ? 34 : 20;
    float power[NSLOTS][PS_MAX_PAR], gain[NSLOTS][PS_MAX_PAR];
    memset(power, 0, sizeof power);
    for (int n = 0; n < NSLOTS; ++n)
        for (int k = 0; k < nBands; ++k)
            power[n][kToI[k]] += ps->sRe[n][k] * ps->sRe[n][k] + ps->sIm[n][k] * ps->sIm[n][k];
    /* transient detection */
    for (int i = 0; i < nPar; ++i)
        for (int n = 0; n < NSLOTS; ++n) {
            const float decayed = dc->peakDecay * ps->peakDecay[i];
            ps->peakDecay[i] = decayed > power[n][i] ? decayed : power[n][i];
            ps->powerSmooth[i] += dc->aSmooth * (power[n][i] - ps->powerSmooth[i]);
            ps->peakDiffSmooth[i] += dc->aSmooth * (ps->peakDecay[i] - power[n][i] - ps->peakDiffSmooth[i]);
            const float denom = dc->transientImpact * ps->peakDiffSmooth[i];
            gain[n][i] = denom > ps->powerSmooth[i] ? ps->powerSmooth[i] / denom : 1.0f;
        }
    const int allpassEnd = dc->allpassEndQmf - qmfOffset + nHyb;
    const int shortStart = dc->shortDelayQmf - qmfOffset + nHyb;
    const int cutoff = dc->decayCutoffQmf - qmfOffset + nHyb;
    for (int k = 0; k < nBands; ++k) {
        float* dr = ps->delayRe[k];
        float* di = ps->delayIm[k];
        memmove(dr, dr + NSLOTS, MAX_DELAY * sizeof(float));
        memmove(di, di + NSLOTS, MAX_DELAY * sizeof(float));
        for (int n = 0; n < NSLOTS; ++n) {
            dr[MAX_DELAY + n] = ps->sRe[n][k];
            di[MAX_DELAY + n] = ps->sIm[n][k];
        }
        const int i = kToI[k];
        if (k >= allpassEnd) {
            const int d = k >= shortStart ? dc->shortDelay : dc->longDelay;
            for (int n = 0; n < NSLOTS; ++n) {
                ps->dRe[n][k] = gain[n][i] * dr[MAX_DELAY + n - d];
                ps->dIm[n][k] = gain[n][i] * di[MAX_DELAY + n - d];
            }
            continue;
        }
        float slope = 1.0f - dc->decaySlope * (float)(k - cutoff);
        slope = slope < 0.0f ? 0.0f : slope > 1.0f ? 1.0f : slope;
        const float* phi = k < nHyb ? (ps->is34 ? kPsPhiFract34[k] : kPsPhiFract20[k]) : kPsPhiFractQmf[k - nHyb + qmfOffset];
        const float (*q)[2] = k < nHyb ? (ps->is34 ? kPsQFract34[k] : kPsQFract20[k]) : kPsQFractQmf[k - nHyb + qmfOffset];
        float ag[3];
        for (int m = 0; m < 3; ++m) {
            ag[m] = kPsAllpassA[m] * slope;
            memmove(ps->apRe[k][m], ps->apRe[k][m] + NSLOTS, AP_DELAY * sizeof(float));
            memmove(ps->apIm[k][m], ps->apIm[k][m] + NSLOTS, AP_DELAY * sizeof(float));
        }
        for (int n = 0; n < NSLOTS; ++n) {
            const float r0 = dr[MAX_DELAY + n - 2], i0 = di[MAX_DELAY + n - 2];
            float re = r0 * phi[0] - i0 * phi[1];
            float im = r0 * phi[1] + i0 * phi[0];
            for (int m = 0; m < 3; ++m) {
                float* apr = ps->apRe[k][m];
                float* api = ps->apIm[k][m];
                const int back = AP_DELAY + n - kPsAllpassDelay[m];
                const float lr = apr[back], li = api[back];
                const float outRe = lr * q[m][0] - li * q[m][1] - ag[m] * re;
                const float outIm = lr * q[m][1] + li * q[m][0] - ag[m] * im;
                apr[AP_DELAY + n] = re + ag[m] * outRe;
                api[AP_DELAY + n] = im + ag[m] * outIm;
                re = outRe;
                im = outIm;
            }
            ps->dRe[n][k] = gain[n][i] * re;
            ps->dIm[n][k] = gain[n][i] * im;
        }
    }
}

static void mix(PsState* ps, const PsData* data, int nBands, int nHyb)
{
    const int is34 = ps->is34, nPar = is34 ? 34 : 20, nIpd = is34 ? 17 : 11;
    const uint8_t* kToI = is34 ? kPsKToI34 : kPsKToI20;
    const uint8_t* neg = is34 ? kPsHybridNeg34 : kPsHybridNeg20;
    const float (*table)[8][4] = data->iccMode < 3 ? ps->mixA : ps->mixB;
    const int ipdOn = data->enableIpdOpd;
    for (int e = 0; e < data->numEnv; ++e) {
        int8_t iid[PS_MAX_PAR] = {0}, icc[PS_MAX_PAR] = {0}, ipd[PS_MAX_PAR] = {0}, opd[PS_MAX_PAR] = {0};
        map_parameters(iid, data->iid[e], data->nrIidPar, is34, 1);
        map_parameters(icc, data->icc[e], data->nrIccPar, is34, 1);
        if (ipdOn) {
            map_parameters(ipd, data->ipd[e], data->nrIpdOpdPar, is34, 0);
            map_parameters(opd, data->opd[e], data->nrIpdOpdPar, is34, 0);
        }
        float h[2][PS_MAX_PAR][4];
        memset(h, 0, sizeof h);
        for (int b = 0; b < nPar; ++b) {
            const int iidIndex = data->iidQuant ? 30 + iid[b] : 7 + iid[b];
            for (int j = 0; j < 4; ++j) h[0][b][j] = table[iidIndex][icc[b]][j];
            if (ipdOn && b < nIpd) {
                const int opdIndex = ps->opdHist[b] * 8 + opd[b], ipdIndex = ps->ipdHist[b] * 8 + ipd[b];
                const float opdRe = ps->pdRe[opdIndex], opdIm = ps->pdIm[opdIndex];
                const float ipdRe = ps->pdRe[ipdIndex], ipdIm = ps->pdIm[ipdIndex];
                ps->opdHist[b] = (int8_t)(opdIndex & 0x3F);
                ps->ipdHist[b] = (int8_t)(ipdIndex & 0x3F);
                const float adjRe = opdRe * ipdRe + opdIm * ipdIm, adjIm = opdIm * ipdRe - opdRe * ipdIm;
                const float h11 = h[0][b][0], h12 = h[0][b][1], h21 = h[0][b][2], h22 = h[0][b][3];
                h[0][b][0] = h11 * opdRe, h[1][b][0] = h11 * opdIm;
                h[0][b][1] = h12 * adjRe, h[1][b][1] = h12 * adjIm;
                h[0][b][2] = h21 * opdRe, h[1][b][2] = h21 * opdIm;
                h[0][b][3] = h22 * adjRe, h[1][b][3] = h22 * adjIm;
            }
        }
        const int start = data->border[e], stop = data->border[e + 1];
        const float width = 1.0f / (float)(stop - start > 0 ? stop - start : 1);
        int phases = ipdOn;  /* imaginary matrix parts: with IPD/OPD, or still fading out */
        for (int b = 0; b < nPar && !phases; ++b)
            for (int j = 0; j < 4; ++j) phases |= ps->hPrev[1][b][j] != 0.0f;
        for (int k = 0; k < nBands && !phases; ++k) {
            const int b = kToI[k];
            float c[4], step[4];
            for (int j = 0; j < 4; ++j) {
                c[j] = ps->hPrev[0][b][j];
                step[j] = (h[0][b][j] - c[j]) * width;
            }
            for (int n = start + 1; n <= stop; ++n) {
                for (int j = 0; j < 4; ++j) c[j] += step[j];
                const float lr = ps->sRe[n][k], li = ps->sIm[n][k], rr = ps->dRe[n][k], ri = ps->dIm[n][k];
                ps->sRe[n][k] = c[0] * lr + c[2] * rr;
                ps->sIm[n][k] = c[0] * li + c[2] * ri;
                ps->dRe[n][k] = c[1] * lr + c[3] * rr;
                ps->dIm[n][k] = c[1] * li + c[3] * ri;
            }
        }
        for (int k = 0; k < nBands && phases; ++k) {
            const int b = kToI[k];
            const float sign = (k < nHyb && neg[k]) ? -1.0f : 1.0f;
            float c[4], ci[4], step[4], stepI[4];
            for (int j = 0; j < 4; ++j) {
                c[j] = ps->hPrev[0][b][j];
                step[j] = (h[0][b][j] - c[j]) * width;
                ci[j] = sign * ps->hPrev[1][b][j];
                stepI[j] = (sign * h[1][b][j] - ci[j]) * width;
            }
            for (int n = start + 1; n <= stop; ++n) {
                for (int j = 0; j < 4; ++j) {
                    c[j] += step[j];
                    ci[j] += stepI[j];
                }
                const float lr = ps->sRe[n][k], li = ps->sIm[n][k], rr = ps->dRe[n][k], ri = ps->dIm[n][k];
                ps->sRe[n][k] = c[0] * lr + c[2] * rr - ci[0] * li - ci[2] * ri;
                ps->sIm[n][k] = c[0] * li + c[2] * ri + ci[0] * lr + ci[2] * rr;
                ps->dRe[n][k] = c[1] * lr + c[3] * rr - ci[1] * li - ci[3] * ri;
                ps->dIm[n][k] = c[1] * li + c[3] * ri + ci[1] * lr + ci[3] * rr;
            }
        }
        memcpy(ps->hPrev, h, sizeof h);
    }
}

static void hybrid_synthesis(const PsState* ps, const float (*re)[MAX_BANDS], const float (*im)[MAX_BANDS], int nBands,
                             int nHyb, int qmfOffset, float (*outRe)[64], float (*outIm)[64])
{
    const uint8_t* qmf = ps->is34 ? kPsHybridQmf34 : kPsHybridQmf20;
    for (int n = 0; n < NSLOTS; ++n) {
        for (int b = 0; b < qmfOffset; ++b) outRe[n][b] = outIm[n][b] = 0.0f;
        for (int k = 0; k < nHyb; ++k) {
            outRe[n][qmf[k]] += re[n][k];
            outIm[n][qmf[k]] += im[n][k];
        }
        for (int k = nHyb; k < nBands; ++k) {
            outRe[n][k - nHyb + qmfOffset] = re[n][k];
            outIm[n][k - nHyb + qmfOffset] = im[n][k];
        }
        for (int b = nBands - nHyb + qmfOffset; b < 64; ++b) outRe[n][b] = outIm[n][b] = 0.0f;
    }
}

void ps_apply(PsState* ps, const PsData* data, float (*lRe)[64], float (*lIm)[64], float (*rRe)[64],
              float (*rIm)[64], int top)
{
    if (!ps->configured || ps->is34 != data->is34) {
        /* a new configuration: the filter states start again */
        memset(ps->delayRe, 0, sizeof ps->delayRe);
        memset(ps->delayIm, 0, sizeof ps->delayIm);
        memset(ps->apRe, 0, sizeof ps->apRe);
        memset(ps->apIm, 0, sizeof ps->apIm);
        memset(ps->peakDecay, 0, sizeof ps->peakDecay);
        memset(ps->powerSmooth, 0, sizeof ps->powerSmooth);
        memset(ps->peakDiffSmooth, 0, sizeof ps->peakDiffSmooth);
        memset(ps->ipdHist, 0, sizeof ps->ipdHist);
        memset(ps->opdHist, 0, sizeof ps->opdHist);
        if (ps->configured) memset(ps->in, 0, sizeof ps->in);
        ps->is34 = data->is34;
        ps->configured = 1;
    }
    const int nHyb = ps->is34 ? 32 : 10, qmfOffset = ps->is34 ? 5 : 3;
    const int nBands = nHyb + 64 - qmfOffset;
    const int topBand = top + nHyb - qmfOffset;  /* bands at and above are silent */
    for (int k = topBand; k < nBands; ++k) {
        memset(ps->delayRe[k], 0, sizeof ps->delayRe[k]);
        memset(ps->delayIm[k], 0, sizeof ps->delayIm[k]);
        memset(ps->apRe[k], 0, sizeof ps->apRe[k]);
        memset(ps->apIm[k], 0, sizeof ps->apIm[k]);
    }
    hybrid_analysis(ps, (const float (*)[64])lRe, (const float (*)[64])lIm, qmfOffset);
    for (int n = 0; n < NSLOTS; ++n) {
        for (int k = 0; k < nHyb; ++k) {
            ps->sRe[n][k] = ps->hyb[n][2 * k];
            ps->sIm[n][k] = ps->hyb[n][2 * k + 1];
        }
        for (int k = nHyb; k < nBands; ++k) {
            ps->sRe[n][k] = lRe[n][k - nHyb + qmfOffset];
            ps->sIm[n][k] = lIm[n][k - nHyb + qmfOffset];
        }
    }
    decorrelate(ps, nBands, nHyb, qmfOffset);
    mix(ps, data, nBands, nHyb);
    hybrid_synthesis(ps, (const float (*)[MAX_BANDS])ps->sRe, (const float (*)[MAX_BANDS])ps->sIm, nBands, nHyb,
                     qmfOffset, lRe, lIm);
    hybrid_synthesis(ps, (const float (*)[MAX_BANDS])ps->dRe, (const float (*)[MAX_BANDS])ps->dIm, nBands, nHyb,
                     qmfOffset, rRe, rIm);
}
