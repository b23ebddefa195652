// Scale-factor band tables of AAC, shared by the bit-stream readers and the
// spectral tools. Indexed by sampling_frequency_index 0..11 (96000 .. 8000 Hz).
#pragma once

#include <cstdint>

namespace zam {

constexpr int kAacNumSampleRates = 12;
constexpr int kAacMaxSwbLong = 51;
constexpr int kAacMaxSwbShort = 15;

// Band counts per window length.
extern const uint8_t kAacNumSwbLong[kAacNumSampleRates];
extern const uint8_t kAacNumSwbShort[kAacNumSampleRates];

// Band start offsets; entry num_swb is the window length (1024 or 128). Entries
// past it repeat the window length.
extern const uint16_t kAacSwbOffsetLong[kAacNumSampleRates][kAacMaxSwbLong + 1];
extern const uint16_t kAacSwbOffsetShort[kAacNumSampleRates][kAacMaxSwbShort + 1];

inline const uint16_t* aacSwbOffsets(int samplingFrequencyIndex, bool eightShort)
{
    return eightShort ? kAacSwbOffsetShort[samplingFrequencyIndex] : kAacSwbOffsetLong[samplingFrequencyIndex];
}

inline int aacNumSwb(int samplingFrequencyIndex, bool eightShort)
{
    return eightShort ? kAacNumSwbShort[samplingFrequencyIndex] : kAacNumSwbLong[samplingFrequencyIndex];
}

}  // namespace zam
