/*
 * Temporal noise shaping analysis (ISO/IEC 14496-3, 4.6.9) for long windows: a
 * linear predictor over frequency, from the autocorrelation of the spectrum above
 * about 1.4 kHz (each band brought to unit energy), by the Levinson-Durbin recursion.
 * When its prediction gain reaches 2, the reflection coefficients are quantized with 4 bits and
 * the spectrum is filtered by the library (zamsEncodeTNS_AAC_32s_I), which applies
 * exactly the filter the decoder inverts.
 */
#include <math.h>
#include <string.h>

#include "aac_encoder.h"

static const int kTnsMaxBandLong[12] = {31, 31, 34, 40, 42, 51, 46, 46, 42, 42, 42, 39};

enum { TNS_ORDER = 8 };

void aac_tns_analyse(AacChannel* ch, int samplingIndex, int sampleRate)
{
    ch->tnsPresent = 0;
    if (ch->sequence == AAC_EIGHT_SHORT) return;
    const AacBandTable* t = &kAacSwbLong[samplingIndex];
    int top = ch->maxSfb < kTnsMaxBandLong[samplingIndex] ? ch->maxSfb : kTnsMaxBandLong[samplingIndex];
    int startBand = 0;
    while (startBand < t->count && t->offset[startBand] * (double)sampleRate / 2048.0 < 1400.0) ++startBand;
    if (top - startBand < 4) return;
    const int lo = t->offset[startBand], hi = t->offset[top];

    /* the spectrum with each band brought to unit energy, so that the loudest bands do
     * not decide the filter alone */
    float w[1024];
    for (int b = startBand; b < top; ++b) {
        double e = 0.0;
        for (int n = t->offset[b]; n < t->offset[b + 1]; ++n) e += (double)ch->spec[n] * ch->spec[n];
        const float g = e > 0.0 ? (float)(1.0 / sqrt(e / (t->offset[b + 1] - t->offset[b]))) : 0.0f;
        for (int n = t->offset[b]; n < t->offset[b + 1]; ++n) w[n] = ch->spec[n] * g;
    }
    double r[TNS_ORDER + 1];
    for (int k = 0; k <= TNS_ORDER; ++k) {
        double s = 0.0;
        for (int n = lo + k; n < hi; ++n) s += (double)w[n] * w[n - k];
        r[k] = s;
    }
    if (r[0] <= 1e-3 * (hi - lo)) return;
    r[0] *= 1.0001; /* a little white noise keeps the recursion stable */
    double a[TNS_ORDER + 1] = {1.0}, parcor[TNS_ORDER];
    double err = r[0];
    for (int m = 1; m <= TNS_ORDER; ++m) {
        double acc = r[m];
        for (int i = 1; i < m; ++i) acc += a[i] * r[m - i];
        const double k = -acc / err;
        parcor[m - 1] = k;
        double next[TNS_ORDER + 1];
        for (int i = 0; i <= m; ++i) next[i] = a[i] + (i > 0 ? k * a[m - i] : 0.0);
        next[m] = k;
        memcpy(a, next, sizeof(double) * (m + 1));
        err *= 1.0 - k * k;
    }
    const double gain = r[0] / err;
    if (gain < 2.0) return;

    /* quantize: the decoder's coefficient is sin(i / ((8 -/+ 0.5) / (pi / 2))) */
    int order = 0;
    int8_t idx[TNS_ORDER];
    for (int m = 0; m < TNS_ORDER; ++m) {
        /* the library's step-up recursion is the one above: its coefficients are ours */
        const double k = parcor[m];
        const double v = asin(k) * ((k >= 0 ? 7.5 : 8.5) / (M_PI / 2.0));
        int i = (int)lrint(v);
        if (i > 7) i = 7;
        if (i < -8) i = -8;
        idx[m] = (int8_t)i;
        if (i) order = m + 1;
    }
    if (order == 0) return;

    ch->tnsPresent = 1;
    ch->nFilt[0] = 1;
    ch->coefRes[0] = 4;
    ch->length[0] = t->count - startBand;
    ch->order[0] = order;
    ch->direction[0] = 0;
    memcpy(ch->tnsCoef, idx, (size_t)order);

    int32_t fixed[1024];
    for (int n = 0; n < 1024; ++n) fixed[n] = (int32_t)lrintf(ch->spec[n] * 4.0f);
    if (zamsEncodeTNS_AAC_32s_I(fixed, ch->nFilt, ch->length, ch->order, ch->coefRes, ch->tnsCoef, ch->direction,
                                ch->maxSfb, 1, (uint32_t)samplingIndex, 1024) != zamStsOk) {
        ch->tnsPresent = 0;
        return;
    }
    for (int n = 0; n < 1024; ++n) ch->spec[n] = (float)fixed[n] * 0.25f;
}
