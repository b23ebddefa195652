/*
 * Stereo decisions of the AAC encoder: M/S per band (ISO/IEC 14496-3, 4.6.8.1).
 * A band is coded as M = (L + R) / 2 and S = (L - R) / 2 when that lowers its
 * perceptual entropy, both taking the lower of the two thresholds halved (the
 * decoder's L = M + S, R = M - S adds the noise of both).
 */
#include <math.h>
#include <string.h>

#include "aac_encoder.h"

static float pe(float e, float thr, int n)
{
    return e > thr ? (float)n * log2f(e / thr) : 0.0f;
}

/* Intensity band: the first channel carries l + s r scaled to l's energy, the second
 * only its position p = 2 log2(El / Er), so that the decoder's r = s l' 0.5^(p / 4) has
 * r's energy (s = +1 for book 15, -1 for book 14; ISO/IEC 14496-3, 4.6.8.2). */
static int try_intensity(AacChannel* l, AacChannel* r, int b)
{
    const int start = l->swb[b], n = l->swb[b + 1] - l->swb[b];
    float* x = l->spec + start;
    const float* y = r->spec + start;
    double el = 0, er = 0, c = 0;
    for (int k = 0; k < n; ++k) {
        el += (double)x[k] * x[k];
        er += (double)y[k] * y[k];
        c += (double)x[k] * y[k];
    }
    if (el <= 0 || er <= 0 || fabs(c) < 0.7 * sqrt(el * er)) return 0;
    const float s = c >= 0 ? 1.0f : -1.0f;
    double es = 0;
    for (int k = 0; k < n; ++k) es += (double)(x[k] + s * y[k]) * (x[k] + s * y[k]);
    if (es <= 0) return 0;
    const float g = (float)sqrt(el / es);
    float sum = 0.0f, m = 0.0f;
    for (int k = 0; k < n; ++k) {
        x[k] = (x[k] + s * y[k]) * g;
        const float a = fabsf(x[k]);
        sum += sqrtf(a);
        if (a > m) m = a;
    }
    zamsPow34_32f(x, l->pow34 + start, n);
    l->sumSqrt[b] = sum;
    l->maxAbs[b] = m;
    r->intensity[b] = s > 0 ? 15 : 14;
    r->isPosition[b] = (int)lrint(2.0 * log2(el / er));
    return 1;
}

void aac_stereo_decide(AacElement* el, AacChannel* l, AacChannel* r, int isStartBand, int allowMidSide)
{
    int used = 0, total = 0, groupStart = 0;
    memset(r->intensity, 0, sizeof r->intensity);
    if (l->numGroups == 1 && isStartBand >= 0)
        for (int b = isStartBand; b < l->maxSfb; ++b) try_intensity(l, r, b);
    for (int g = 0; g < l->numGroups; ++g) {
        const int L = l->groupLen[g];
        for (int b = 0; b < l->maxSfb; ++b) {
            const int i = g * AAC_BANDS + b;
            const int start = groupStart + l->swb[b] * L;
            const int n = (l->swb[b + 1] - l->swb[b]) * L;
            float* x = l->spec + start;
            float* y = r->spec + start;
            float em = 0.0f, es = 0.0f;
            for (int k = 0; k < n; ++k) {
                const float m = 0.5f * (x[k] + y[k]), s = 0.5f * (x[k] - y[k]);
                em += m * m;
                es += s * s;
            }
            if (r->intensity[i] || !allowMidSide) {
                el->msUsed[i] = 0;
                ++total;
                continue;
            }
            const float tl = l->threshold[i], tr = r->threshold[i];
            const float tms = 0.5f * (tl < tr ? tl : tr);
            const float peLR = pe(l->energy[i], tl, n) + pe(r->energy[i], tr, n);
            const float peMS = pe(em, tms, n) + pe(es, tms, n);
            ++total;
            el->msUsed[i] = peMS < peLR;
            if (!el->msUsed[i]) continue;
            ++used;
            float sm = 0, ss = 0, mm = 0, ms = 0;
            for (int k = 0; k < n; ++k) {
                const float m = 0.5f * (x[k] + y[k]), s = 0.5f * (x[k] - y[k]);
                x[k] = m;
                y[k] = s;
                const float am = fabsf(m), as = fabsf(s);
                sm += sqrtf(am);
                ss += sqrtf(as);
                if (am > mm) mm = am;
                if (as > ms) ms = as;
            }
            zamsPow34_32f(x, l->pow34 + start, n);
            zamsPow34_32f(y, r->pow34 + start, n);
            l->energy[i] = em;
            r->energy[i] = es;
            l->threshold[i] = r->threshold[i] = tms;
            l->sumSqrt[i] = sm;
            r->sumSqrt[i] = ss;
            l->maxAbs[i] = mm;
            r->maxAbs[i] = ms;
        }
        groupStart += 128 * L;
    }
    el->msMaskPresent = used == 0 ? 0 : used == total ? 2 : 1;
}
