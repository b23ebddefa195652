/* mdct_ola: the MDCT with a sine window and 50 % overlap-add, the filter bank of
 * AAC: a test signal is analysed in frames of 2N windowed samples (zamsMDCTFwd_32f,
 * N coefficients each), synthesised again (zamsMDCTInv_32f, 2N samples each),
 * windowed and overlap-added. The output equals the input delayed by N samples (the
 * window satisfies the Princen-Bradley condition); the largest error is printed.
 *
 *   mdct_ola [N]   (N = 1024 by default; a power of two from 16 on)
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "zamac.h"

int main(int argc, char** argv)
{
    const int n = argc > 1 ? atoi(argv[1]) : 1024;
    const int frames = 16, total = n * (frames + 1);
    const double pi = 3.14159265358979323846;
    float* input = calloc((size_t)total, sizeof(float));
    float* output = calloc((size_t)total + 2 * (size_t)n, sizeof(float));
    float* window = malloc(2 * (size_t)n * sizeof(float));
    float* block = malloc(2 * (size_t)n * sizeof(float));
    float* coefficients = malloc((size_t)n * sizeof(float));
    MdctFwdSpec_32f* forward = NULL;
    MdctInvSpec_32f* inverse = NULL;
    ZamStatus status = zamsMDCTFwdInitAlloc_32f(&forward, 2 * n);
    if (status == zamStsOk) status = zamsMDCTInvInitAlloc_32f(&inverse, 2 * n);
    int fwdBytes = 0, invBytes = 0;
    if (status == zamStsOk) status = zamsMDCTFwdGetBufSize_32f(forward, &fwdBytes);
    if (status == zamStsOk) status = zamsMDCTInvGetBufSize_32f(inverse, &invBytes);
    if (status != zamStsOk || !input || !output || !window || !block || !coefficients) {
        fprintf(stderr, "set-up failed: %s\n", zamStatusName(status));
        return 1;
    }
    uint8_t* work = malloc((size_t)(fwdBytes > invBytes ? fwdBytes : invBytes));

    for (int i = 0; i < 2 * n; ++i) window[i] = (float)sin(pi / (2 * n) * (i + 0.5));
    for (int i = n; i < total - n; ++i) input[i] = (float)(0.5 * sin(0.01 * i) + 0.25 * sin(0.37 * i));

    /* The pair is scaled so that windowing before and after with 50 % overlap-add
     * gives the input back with gain 1 (see the MDCT family in zamac.h). */
    for (int f = 0; f < frames; ++f) {
        const float* x = input + (size_t)f * (size_t)n;
        for (int i = 0; i < 2 * n; ++i) block[i] = x[i] * window[i];
        status = zamsMDCTFwd_32f(block, coefficients, forward, work);
        if (status == zamStsOk) status = zamsMDCTInv_32f(coefficients, block, inverse, work);
        if (status != zamStsOk) {
            fprintf(stderr, "frame %d: %s\n", f, zamStatusName(status));
            return 1;
        }
        float* y = output + (size_t)f * (size_t)n;
        for (int i = 0; i < 2 * n; ++i) y[i] += block[i] * window[i];
    }
    /* Samples n .. frames*n have both overlapping halves. */
    double largest = 0;
    for (int i = n; i < frames * n; ++i) largest = fmax(largest, fabs(output[i] - input[i]));
    printf("MDCT %d -> %d, %d frames, sine window, overlap-add: largest error %.3g\n", 2 * n, n, frames, largest);
    zamsMDCTFwdFree_32f(forward);
    zamsMDCTInvFree_32f(inverse);
    free(input), free(output), free(window), free(block), free(coefficients), free(work);
    return largest < 1e-4 ? 0 : 1;
}
