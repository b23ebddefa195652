/* Two-to-one down-sampling of PCM (float), for the half-rate core of HE-AAC encoding.
 *
 * A linear-phase low-pass FIR of 2 * TOOL_HALVE_DELAY + 1 taps (windowed sinc, Kaiser
 * window, beta 10: about 100 dB stop-band attenuation), evaluated only at the kept
 * samples (polyphase). Pass band up to 0.40 of the input rate's Nyquist frequency
 * (0.80 of the output's), ripple below 0.001 dB; stop band from the output's Nyquist
 * frequency on, so nothing aliases. Output sample i stands for input sample 2 i: the
 * filter's delay is taken out (the first outputs wait for TOOL_HALVE_DELAY input
 * samples of look-ahead; tool_halve_flush gives the last ones).
 */
#ifndef ZAMAC_TOOL_RESAMPLE_H
#define ZAMAC_TOOL_RESAMPLE_H

#ifdef __cplusplus
extern "C" {
#endif

#define TOOL_HALVE_DELAY 80 /* input samples of look-ahead (the filter's group delay) */

typedef struct {
    float history[2 * TOOL_HALVE_DELAY + 256]; /* input samples base .. base + held - 1 */
    int held;
    long base;            /* input index of history[0] (negative: the zeros before the start) */
    long consumed;        /* input samples taken in all */
    long produced;        /* output samples given out */
} ToolHalver;

/* The filter's taps, h[0 .. 2 * TOOL_HALVE_DELAY], symmetric, unit gain at 0 Hz. */
const float* tool_halve_taps(void);

void tool_halve_init(ToolHalver* h);
/* Takes n input samples (one channel); writes the output samples that became ready
 * (at most n / 2 + 1) and returns their count. */
int tool_halve(ToolHalver* h, const float* in, int n, float* out);
/* After the last input: the outputs still owed for input samples 0 .. consumed - 1
 * (ceil(consumed / 2) outputs in all), the input taken as zero beyond its end. */
int tool_halve_flush(ToolHalver* h, float* out);

#ifdef __cplusplus
}
#endif

#endif
