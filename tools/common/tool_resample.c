/* Two-to-one down-sampling (see tool_resample.h). */
#include "tool_resample.h"

#include <math.h>
#include <string.h>

enum { TAPS = 2 * TOOL_HALVE_DELAY + 1, CAPACITY = 2 * TOOL_HALVE_DELAY + 256 };

/* Windowed sinc: cut-off in the middle of the transition band 0.20 .. 0.25 of the
 * input rate, Kaiser window beta 11. */
#define CUTOFF 0.225
#define BETA 11.0

static float g_taps[TAPS];
static int g_ready;

static double bessel_i0(double x)
{
    double sum = 1.0, term = 1.0;
    for (int k = 1; k < 200; ++k) {
        term *= (x / (2.0 * k)) * (x / (2.0 * k));
        sum += term;
        if (term < sum * 1e-17) break;
    }
    return sum;
}

const float* tool_halve_taps(void)
{
    if (!g_ready) {
        double h[TAPS], total = 0.0;
        for (int j = 0; j < TAPS; ++j) {
            const double n = j - TOOL_HALVE_DELAY, r = n / TOOL_HALVE_DELAY;
            const double sinc = n == 0 ? 1.0 : sin(2.0 * M_PI * CUTOFF * n) / (2.0 * M_PI * CUTOFF * n);
            h[j] = sinc * bessel_i0(BETA * sqrt(1.0 - r * r));
            total += h[j];
        }
        for (int j = 0; j < TAPS; ++j) g_taps[j] = (float)(h[j] / total);
        g_ready = 1;
    }
    return g_taps;
}

void tool_halve_init(ToolHalver* h)
{
    memset(h, 0, sizeof *h);
    tool_halve_taps();
    h->held = TOOL_HALVE_DELAY; /* zeros before the first sample */
    h->base = -TOOL_HALVE_DELAY;
}

/* The outputs whose window lies in the history, up to `limit` outputs in all. */
static int emit(ToolHalver* h, float* out, long limit)
{
    const float* taps = g_taps;
    int made = 0;
    while (h->produced < limit && 2 * h->produced + TOOL_HALVE_DELAY < h->base + h->held) {
        const float* x = h->history + (2 * h->produced - TOOL_HALVE_DELAY - h->base);
        float sum = taps[TOOL_HALVE_DELAY] * x[TOOL_HALVE_DELAY];
        for (int j = 0; j < TOOL_HALVE_DELAY; ++j) sum += taps[j] * (x[j] + x[TAPS - 1 - j]);
        out[made++] = sum;
        h->produced++;
    }
    /* drop what no later output needs */
    const long drop = 2 * h->produced - TOOL_HALVE_DELAY - h->base;
    if (drop > 0) {
        h->held -= (int)drop;
        memmove(h->history, h->history + drop, (size_t)h->held * sizeof(float));
        h->base += drop;
    }
    return made;
}

static int feed(ToolHalver* h, const float* in, int n, float* out, long limit)
{
    int made = 0;
    for (int k = 0; k < n;) {
        int take = CAPACITY - h->held;
        if (take > n - k) take = n - k;
        if (in)
            memcpy(h->history + h->held, in + k, (size_t)take * sizeof(float));
        else
            memset(h->history + h->held, 0, (size_t)take * sizeof(float));
        h->held += take;
        k += take;
        made += emit(h, out + made, limit);
    }
    return made;
}

int tool_halve(ToolHalver* h, const float* in, int n, float* out)
{
    h->consumed += n;
    return feed(h, in, n, out, (h->consumed + 1) / 2);
}

int tool_halve_flush(ToolHalver* h, float* out)
{
    return feed(h, NULL, TOOL_HALVE_DELAY + 2, out, (h->consumed + 1) / 2);
}
