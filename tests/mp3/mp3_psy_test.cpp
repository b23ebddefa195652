// Psychoacoustic model 2: a tone stands out of its band's mask, silence costs no
// entropy, and an attack after quiet gives start, short, stop in that order, one
// granule late; the state may be moved between calls.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "zamac.h"

namespace {

TEST(Mp3Psy, ToneSilenceAndAttack)
{
    const Mp3FrameHeader h{1, 1, 1, 9, 0, 0, 0, 3, 0, 0, 0, 0, 0};
    const int granules = 12, attackGranule = 6;
    std::vector<int16_t> pcm(576 * (granules + 2) + 1024, 0);
    // A 1 kHz tone throughout at -20 dBFS; a loud click burst inside granule 6's window.
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = static_cast<int16_t>(3000 * std::sin(2 * M_PI * 1000 * i / 44100.0));
    for (int i = 0; i < 64; ++i) pcm[576 * attackGranule + 600 + i] = static_cast<int16_t>(i % 2 ? 30000 : -30000);
    auto state = std::make_unique<Mp3PsychoacousticState>();
    std::memset(state.get(), 0, sizeof *state);
    std::vector<int> types;
    Mp3PsychoacousticInfo info{};
    for (int g = 0; g <= granules; ++g) {
        if (g == 3) {  // moved to other memory between calls
            auto moved = std::make_unique<Mp3PsychoacousticState>(*state);
            state = std::move(moved);
        }
        ASSERT_EQ(zamsPsychoacousticModelTwo_MP3_16s(pcm.data() + 576 * g, &info, 1, &h, state.get()), zamStsOk);
        if (g == 0) EXPECT_EQ(info.pe, 0);
        if (g == 2) {
            // 1 kHz lies in long band 6 (lines 24..29) at 44.1 kHz; the far bands hold nothing.
            EXPECT_GT(info.smrLong[6], 10 * 256);
            EXPECT_LT(info.smrLong[20], 0);
        }
        if (g > 0) types.push_back(info.block_type);
    }
    // The click falls in the second short window of granule 6's analysis: granule 5
    // becomes a start block, 6 short, 7 the stop.
    const std::vector<int> expected = {0, 0, 0, 0, 0, 1, 2, 3, 0, 0, 0, 0};
    EXPECT_EQ(types, expected);
    std::vector<int16_t> silence(1024, 0);
    Mp3PsychoacousticState quiet{};
    for (int g = 0; g < 3; ++g) zamsPsychoacousticModelTwo_MP3_16s(silence.data(), &info, 1, &h, &quiet);
    EXPECT_EQ(info.pe, 0);
    EXPECT_EQ(info.block_type, 0);
    EXPECT_EQ(zamsPsychoacousticModelTwo_MP3_16s(silence.data(), &info, 3, &h, &quiet), zamStsBadArg);
}

}  // namespace
