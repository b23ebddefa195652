// zamac-encode --he: the 2:1 resampler of the half-rate core (tools/common) measured
// on tones, and the command line's refusals.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "tool_resample.h"

namespace {

// Halves a tone of frequency f (fraction of the input rate) fed in uneven chunks;
// returns the output's error against the tone at the even input instants, in dB
// relative to the tone (passband), or the output's level (stop band).
double halvedToneDb(double f, bool passband)
{
    const int n = 40000;
    std::vector<float> x(n), y(n / 2 + 8);
    for (int i = 0; i < n; ++i) x[i] = static_cast<float>(10000.0 * std::sin(2 * M_PI * f * i + 0.3));
    ToolHalver h;
    tool_halve_init(&h);
    int made = 0;
    for (int at = 0, chunk = 1; at < n; at += chunk, chunk = chunk * 5 % 997 + 1) {
        chunk = std::min(chunk, n - at);
        made += tool_halve(&h, x.data() + at, chunk, y.data() + made);
    }
    made += tool_halve_flush(&h, y.data() + made);
    EXPECT_EQ(made, n / 2);
    double e = 0;
    for (int i = 1000; i < n / 2 - 1000; ++i) {
        const double want = passband ? x[2 * i] : 0.0;
        e += (y[i] - want) * (y[i] - want);
    }
    return 10 * std::log10(e / (n / 2 - 2000) / (10000.0 * 10000.0 / 2));
}

TEST(HeAacResampler, PassBandIsFlatAndInStepStopBandIsGone)
{
    for (double f = 0.01; f <= 0.20; f += 0.0237) EXPECT_LT(halvedToneDb(f, true), -90.0) << f;
    for (double f = 0.25; f < 0.5; f += 0.0311) EXPECT_LT(halvedToneDb(f, false), -100.0) << f;
}

}  // namespace
