#include "aac_filterbank.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

/* The library needs AVX2 anyway; the window loops use it too (without FMA, so
 * every product is rounded before its sum as in plain C). */
#pragma GCC target("avx2")

/* Zeroth-order modified Bessel function of the first kind, by its power series. */
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

/* Rising half (length/2 values) of the sine window of the given length. */
static void make_sine_window(float* rise, int length)
{
    for (int n = 0; n < length / 2; ++n) rise[n] = (float)sin(M_PI / length * (n + 0.5));
}

/* Rising half of the Kaiser-Bessel-derived window: the running sum of a Kaiser
 * kernel of length/2 + 1 points, normalised by its total and square-rooted. */
static void make_kbd_window(float* rise, int length, double alpha)
{
    const int half = length / 2;
    double kernel[1025];
    double total = 0.0;
    for (int n = 0; n <= half; ++n) {
        const double r = (n - half / 2.0) / (half / 2.0);
        kernel[n] = bessel_i0(M_PI * alpha * sqrt(1.0 - r * r));
        total += kernel[n];
    }
    double running = 0.0;
    for (int n = 0; n < half; ++n) {
        running += kernel[n];
        rise[n] = (float)sqrt(running / total);
    }
}

static void* aligned_floats(size_t count)
{
    void* p = aligned_alloc(64, (count * sizeof(float) + 63) & ~(size_t)63);
    if (p) memset(p, 0, count * sizeof(float));
    return p;
}

int aac_filterbank_init(AacFilterBank* bank)
{
    memset(bank, 0, sizeof *bank);
    make_sine_window(bank->longWindow[AAC_WINDOW_SINE], 2048);
    make_kbd_window(bank->longWindow[AAC_WINDOW_KBD], 2048, 4.0);
    make_sine_window(bank->shortWindow[AAC_WINDOW_SINE], 256);
    make_kbd_window(bank->shortWindow[AAC_WINDOW_KBD], 256, 6.0);

    ZamStatus status = zamsMDCTInvInitAlloc_32f(&bank->imdctLong, 2048);
    if (status == zamStsOk) status = zamsMDCTInvInitAlloc_32f(&bank->imdctShort, 256);
    int longWork = 0, shortWork = 0;
    if (status == zamStsOk) status = zamsMDCTInvGetBufSize_32f(bank->imdctLong, &longWork);
    if (status == zamStsOk) status = zamsMDCTInvGetBufSize_32f(bank->imdctShort, &shortWork);
    if (status != zamStsOk) {
        aac_filterbank_free(bank);
        return status;
    }
    const int workBytes = longWork > shortWork ? longWork : shortWork;
    bank->work = (uint8_t*)aligned_floats((size_t)workBytes / sizeof(float) + 1);
    bank->coefficients = (float*)aligned_floats(1024);
    bank->transformed = (float*)aligned_floats(2048);
    bank->frame = (float*)aligned_floats(2048);
    if (!bank->work || !bank->coefficients || !bank->transformed || !bank->frame) {
        aac_filterbank_free(bank);
        return zamStsMemAlloc;
    }
    return zamStsOk;
}

void aac_filterbank_free(AacFilterBank* bank)
{
    if (bank->imdctLong) zamsMDCTInvFree_32f(bank->imdctLong);
    if (bank->imdctShort) zamsMDCTInvFree_32f(bank->imdctShort);
    free(bank->work);
    free(bank->coefficients);
    free(bank->transformed);
    free(bank->frame);
    memset(bank, 0, sizeof *bank);
}

void aac_history_reset(AacChannelHistory* history)
{
    memset(history->overlap, 0, sizeof history->overlap);
    history->previousShape = AAC_WINDOW_SINE;
}

/* Eight short transforms, each windowed and added into the 2048-sample frame at
 * 448 + 128 w; the first short window rises with the previous frame's shape. */
static ZamStatus run_short_windows(AacFilterBank* bank, int shape, int previousShape)
{
    float* frame = bank->frame;
    memset(frame, 0, 2048 * sizeof(float));
    for (int w = 0; w < 8; ++w) {
        ZamStatus status = zamsMDCTInv_32f(bank->coefficients + 128 * w, bank->transformed,
                                           bank->imdctShort, bank->work);
        if (status != zamStsOk) return status;
        const float* rise = bank->shortWindow[w == 0 ? previousShape : shape];
        const float* fall = bank->shortWindow[shape];
        float* out = frame + 448 + 128 * w;
        const float* y = bank->transformed;
        for (int n = 0; n < 128; ++n) out[n] += y[n] * rise[n];
        for (int n = 0; n < 128; ++n) out[128 + n] += y[128 + n] * fall[127 - n];
    }
    return zamStsOk;
}

int aac_filterbank_run(AacFilterBank* bank, const int32_t* spectrum, int windowSequence, int windowShape,
                       AacChannelHistory* history, float* output)
{
    /* The spectrum has 3 fractional bits. */
    for (int k = 0; k < 1024; ++k) bank->coefficients[k] = (float)spectrum[k] * 0.125f;

    const int shape = windowShape & 1;
    const int previous = history->previousShape & 1;
    float* overlap = history->overlap;
    ZamStatus status;

    if (windowSequence == AAC_EIGHT_SHORT_SEQUENCE) {
        status = run_short_windows(bank, shape, previous);
        if (status != zamStsOk) return status;
        const float* frame = bank->frame;
        for (int n = 0; n < 1024; ++n) output[n] = overlap[n] + frame[n];
        memcpy(overlap, frame + 1024, 1024 * sizeof(float));
    } else {
        status = zamsMDCTInv_32f(bank->coefficients, bank->transformed, bank->imdctLong, bank->work);
        if (status != zamStsOk) return status;
        const float* y = bank->transformed;

        /* Left half: a long rise, or for LONG_STOP 448 zeros, a short rise and 448 ones. */
        if (windowSequence == AAC_LONG_STOP_SEQUENCE) {
            const float* rise = bank->shortWindow[previous];
            for (int n = 0; n < 448; ++n) output[n] = overlap[n];
            for (int n = 0; n < 128; ++n) output[448 + n] = overlap[448 + n] + y[448 + n] * rise[n];
            for (int n = 576; n < 1024; ++n) output[n] = overlap[n] + y[n];
        } else {
            const float* rise = bank->longWindow[previous];
            for (int n = 0; n < 1024; ++n) output[n] = overlap[n] + y[n] * rise[n];
        }

        /* Right half: a long fall, or for LONG_START 448 ones, a short fall and 448 zeros. */
        if (windowSequence == AAC_LONG_START_SEQUENCE) {
            const float* fall = bank->shortWindow[shape];
            for (int n = 0; n < 448; ++n) overlap[n] = y[1024 + n];
            for (int n = 0; n < 128; ++n) overlap[448 + n] = y[1472 + n] * fall[127 - n];
            for (int n = 576; n < 1024; ++n) overlap[n] = 0.0f;
        } else {
            const float* fall = bank->longWindow[shape];
            for (int n = 0; n < 1024; ++n) overlap[n] = y[1024 + n] * fall[1023 - n];
        }
    }
    history->previousShape = shape;
    return zamStsOk;
}
