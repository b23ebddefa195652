// AAC perceptual noise substitution: bands with code book 13 are filled with noise
// from a linear congruential generator, normalised to unit energy and scaled by
// 2^(energy/4). The generator and every fixed-point step are reproduced bit for
// bit, so that a decoder's noise is the same on every run and every machine.
#include "aac/aac_pns.h"
#include "aac/aac_quant.h"
#include "core/export.h"

namespace zam {

namespace {

struct AmplitudeTable {
    int32_t v[97];
};

constexpr AmplitudeTable makeAmplitudes()
{
    AmplitudeTable t{};
    const double full = 18446744073709551616.0 / 1e10;  // 2^64 / 10^10
    for (int w = 1; w <= 96; ++w) t.v[w] = static_cast<int32_t>(full / aacConstSqrt(w) + 0.5);
    return t;
}

constexpr AmplitudeTable kAmplitude = makeAmplitudes();
static_assert(kAmplitude.v[1] == 1844674407 && kAmplitude.v[2] == 1304381783 && kAmplitude.v[3] == 1065023266 &&
              kAmplitude.v[4] == 922337204 && kAmplitude.v[5] == 824963474);

// 2^(j/4) in Q30, j = 0..3.
constexpr int32_t kNoiseGainFraction[4] = {1073741824, 1276901416, 1518500250, 1805811301};

constexpr int32_t kSqrt2Q30 = 1518500249;

inline int32_t shiftLeftWrap(int32_t v, int count)
{
    return static_cast<int32_t>(static_cast<uint32_t>(v) << count);
}

}  // namespace

int32_t aacNoiseAmplitude(int width) { return kAmplitude.v[width]; }

int32_t aacNoiseGain(uint32_t energy)
{
    int32_t one = shiftLeftWrap(1, static_cast<int>((energy >> 2) & 31));  // turns negative at 31
    int64_t product = static_cast<int64_t>(kNoiseGainFraction[energy & 3]) * one;
    return static_cast<int32_t>(static_cast<uint64_t>(product) >> 20);
}

void aacApplyNoiseGain(int32_t* dst, int width, uint32_t energy)
{
    const int64_t gain = aacNoiseGain(energy);
    for (int i = 0; i < width; ++i) dst[i] = static_cast<int32_t>((dst[i] * gain) >> 38);
}

void aacNoiseBand(int32_t* dst, int width, uint32_t* statePtr)
{
    const uint64_t amplitude = static_cast<uint32_t>(kAmplitude.v[width]);
    uint32_t state = *statePtr;
    uint32_t energy = 0;
    for (int i = 0; i < width; ++i) {
        state = aacNoiseStep(state);
        int32_t x = static_cast<int32_t>(static_cast<uint32_t>((state * amplitude) >> 30));
        dst[i] = x;
        energy += static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(x) * x) >> 33);
    }
    *statePtr = state;

    if (energy == 0) {
        // No normalisation exists for a silent band: it stays silent.
        for (int i = 0; i < width; ++i) dst[i] = 0;
        return;
    }
    int n = 0;
    uint32_t m = energy;
    while (m < (1u << 30)) {
        m <<= 1;
        ++n;
    }
    // Quadratic approximation of 2^30 / sqrt(m / 2^31) on [2^30, 2^31).
    const uint64_t m64 = m;
    const int64_t poly = static_cast<int64_t>((m64 * m64) >> 32) * 13563 + static_cast<int64_t>(m64) * -16760 +
                         39107824713728LL;
    const int64_t inverseRoot = static_cast<int32_t>(static_cast<uint64_t>(poly >> 14));
    const int k = (n >> 1) - 1;
    // Only the result is cut to 32 bits: x * R alone can exceed 31 bits, and the
    // scaled value (x / |x| * 2^31) does too when a band's noise is nearly silent
    // (a sum of squares of a few units leaves k at 14, so y reaches 2^46). The
    // sqrt(2) step is therefore taken in 128 bits; for every value that fits it is
    // the same product, and the final cut keeps the low 32 bits as before.
    for (int i = 0; i < width; ++i) {
        int64_t y = (dst[i] * inverseRoot) >> 30;
        y = k >= 1 ? y * (int64_t{1} << k) : (y >> -k);
        if (n & 1) y = static_cast<int64_t>((static_cast<__int128>(y) * kSqrt2Q30) >> 30);
        dst[i] = static_cast<int32_t>(y);
    }
}

}  // namespace zam

using namespace zam;

namespace {

// How each noise band of one call gets its noise.
struct NoiseSource {
    int32_t channel;            // -1: single channel (no pairing)
    const uint8_t* msUsed;      // may be null: no band is shared
    int32_t* noiseState;        // may be null: nothing stored or shared
    int maxSfb;
};

ZamStatus checkPnsArgs(int32_t maxSfb, int32_t numWinGrp, int32_t samplingRateIndex, int32_t winLen)
{
    if (maxSfb < 0 || maxSfb > 51) return zamStsAacMaxSfbErr;
    if (numWinGrp < 1 || numWinGrp > 8) return zamStsAacNumWinGrpErr;
    if (samplingRateIndex < 0 || samplingRateIndex > 11) return zamStsAacSmplRateIdxErr;
    if (winLen != kAacFrameLength && winLen != kAacShortWindowLength) return zamStsAacWinLenErr;
    return zamStsOk;
}

void substituteNoise(int32_t* pSrcDst, int32_t* pPredUsed, const uint8_t* pSfbCb, const uint16_t* pScaleFactor,
                     int32_t maxSfb, int32_t numWinGrp, const int32_t* pWinGrpLen, int32_t samplingRateIndex,
                     int32_t winLen, int32_t* pRandomState, const NoiseSource& source)
{
    const bool eightShort = winLen == kAacShortWindowLength;
    const uint16_t* offsets = aacSwbOffsets(samplingRateIndex, eightShort);
    const int numSwb = aacNumSwb(samplingRateIndex, eightShort);
    // The walk steps windows by the start of the last band and scale factors by
    // max_sfb per window; with one long window this is the plain band walk.
    const int windowStep = maxSfb > 0 ? aacBandOffset(offsets, numSwb, winLen, maxSfb - 1) : 0;
    // Long frames have one group of one window whatever the group count says.
    const AacGroupLengths groups = eightShort ? aacGroupLengths(numWinGrp, pWinGrpLen, winLen)
                                              : aacGroupLengths(1, pWinGrpLen, winLen);
    uint32_t state = static_cast<uint32_t>(*pRandomState);
    int windowPos = 0;
    const uint16_t* sf = pScaleFactor;
    const uint8_t* cb = pSfbCb;
    for (int g = 0; g < groups.count; ++g) {
        for (int w = 0; w < groups.length[g]; ++w) {
            for (int b = 0; b < maxSfb; ++b) {
                if (cb[b] != 13) continue;
                if (numWinGrp == 1) pPredUsed[b + 1] = 0;
                const int start = aacBandOffset(offsets, numSwb, winLen, b);
                const int width = aacBandOffset(offsets, numSwb, winLen, b + 1) - start;
                if (width <= 0) continue;
                int32_t* dst = pSrcDst + windowPos + start;
                const int slot = g * source.maxSfb + b;
                if (source.channel == 0) {
                    if (source.noiseState) source.noiseState[slot] = static_cast<int32_t>(state);
                    aacNoiseBand(dst, width, &state);
                } else if (source.channel == 1 && source.msUsed && source.noiseState &&
                           source.msUsed[g * 60 + b] == 1) {
                    uint32_t shared = static_cast<uint32_t>(source.noiseState[slot]);
                    aacNoiseBand(dst, width, &shared);
                } else {
                    aacNoiseBand(dst, width, &state);
                }
                aacApplyNoiseGain(dst, width, sf[b]);
            }
            sf += maxSfb;
            windowPos += windowStep;
        }
        cb += maxSfb;
    }
    *pRandomState = static_cast<int32_t>(state);
}

}  // namespace

ZAM_API ZamStatus zamsDecodePNS_AAC_32s(int32_t* pSrcDst, int32_t* pPredUsed, const uint8_t* pSfbCb,
                                        const uint16_t* pScaleFactor, int32_t maxSfb, int32_t numWinGrp,
                                        const int32_t* pWinGrpLen, int32_t samplingRateIndex, int32_t winLen,
                                        int32_t* pRandomState)
{
    if (!pSrcDst || !pPredUsed || !pSfbCb || !pScaleFactor || !pWinGrpLen || !pRandomState) return zamStsNullPtr;
    ZamStatus st = checkPnsArgs(maxSfb, numWinGrp, samplingRateIndex, winLen);
    if (st != zamStsOk) return st;
    substituteNoise(pSrcDst, pPredUsed, pSfbCb, pScaleFactor, maxSfb, numWinGrp, pWinGrpLen, samplingRateIndex,
                    winLen, pRandomState, NoiseSource{-1, nullptr, nullptr, maxSfb});
    return zamStsOk;
}

ZAM_API ZamStatus zamsDecodeMsPNS_AAC_32s(int32_t* pSrcDst, int32_t* pPredUsed, const uint8_t* pSfbCb,
                                          const uint16_t* pScaleFactor, int32_t maxSfb, int32_t numWinGrp,
                                          const int32_t* pWinGrpLen, int32_t samplingRateIndex, int32_t winLen,
                                          int32_t* pRandomState, int32_t channel, const uint8_t* pMsUsed,
                                          int32_t* pNoiseState)
{
    if (!pSrcDst || !pPredUsed || !pSfbCb || !pScaleFactor || !pWinGrpLen || !pRandomState) return zamStsNullPtr;
    ZamStatus st = checkPnsArgs(maxSfb, numWinGrp, samplingRateIndex, winLen);
    if (st != zamStsOk) return st;
    substituteNoise(pSrcDst, pPredUsed, pSfbCb, pScaleFactor, maxSfb, numWinGrp, pWinGrpLen, samplingRateIndex,
                    winLen, pRandomState, NoiseSource{channel, pMsUsed, pNoiseState, maxSfb});
    return zamStsOk;
}
