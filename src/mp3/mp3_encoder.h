// Internals of the Layer III encoder stages shared between their files and tests.
#pragma once

#include <cstdint>

#include "zamac.h"

namespace zam::mp3 {

constexpr int kGranuleLines = 576;
constexpr int kAnalysisHistory = 480;  // input samples the analysis bank keeps
constexpr float kSubbandScale = 256.0f;  // fixed-point subband samples and lines: 8 fraction bits

// Row of the band tables: ID * 3 + sampling_frequency.
inline int bandRow(const Mp3FrameHeader* h) { return h->ID * 3 + h->sampling_frequency; }

// Forward hybrid MDCT in float on subband samples [sb * 18 + t] of the previous and
// current granule (before frequency inversion); lines in stream order.
void mdctForwardFloat(const float* prev, const float* cur, float* lines, int blockType, int row);

}  // namespace zam::mp3
