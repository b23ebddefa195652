// Internal pieces of the AAC spectral tools: the dequantization kernels (scalar and
// AVX2 twins), the constant tables they use, and the helpers that the band walks of
// the inverse quantizer, deinterleaver, stereo, noise and TNS tools share.
#pragma once

#include <cstdint>
#include <type_traits>

#include "aac/aac_tables.h"
#include "zamac.h"

namespace zam {

constexpr int kAacFrameLength = 1024;
constexpr int kAacShortWindowLength = 128;
constexpr int kAacMaxQuantMagnitude = 8191;

// ---------------------------------------------------------------- dequantization

// Constant-expression arithmetic for the power tables (Newton iterations that
// settle within an ulp; every table entry lies at least 0.003 from a rounding tie).
constexpr double aacConstSqrt(double x)
{
    double y = x < 1.0 ? 1.0 : x;
    for (int i = 0; i < 200; ++i) {
        double next = 0.5 * (y + x / y);
        if (next == y) break;
        y = next;
    }
    return y;
}

constexpr double aacConstCbrt(double x)
{
    double y = x < 1.0 ? 1.0 : x;
    for (int i = 0; i < 400; ++i) {
        double next = (2.0 * y + x / (y * y)) / 3.0;
        if (next == y) break;
        y = next;
    }
    return y;
}

// 2^(-f/4), f = 0..3.
constexpr double aacQuarterPowerDown(int f)
{
    double step = 1.0 / aacConstSqrt(aacConstSqrt(2.0));
    double r = 1.0;
    for (int k = 0; k < f; ++k) r *= step;
    return r;
}

struct AacSmallPowerTable {
    int32_t v[4][16];
};

struct AacMediumPowerTable {
    int32_t v[129];
};

// Row f (0..3), entry i: i^(4/3) * 2^(-f/4), Q28 for i = 1..3, Q25 for i = 4..15,
// rounded to nearest; entry 0 is 0.
constexpr AacSmallPowerTable aacMakeSmallPowers()
{
    AacSmallPowerTable t{};
    for (int f = 0; f < 4; ++f) {
        for (int i = 1; i < 16; ++i) {
            double scale = i < 4 ? 268435456.0 : 33554432.0;
            t.v[f][i] = static_cast<int32_t>(i * aacConstCbrt(i) * aacQuarterPowerDown(f) * scale + 0.5);
        }
    }
    return t;
}

// i^(4/3): Q23 for 16..63, Q21 for 64..128, rounded to nearest; entries below 16
// are 0 and unused.
constexpr AacMediumPowerTable aacMakeMediumPowers()
{
    AacMediumPowerTable t{};
    for (int i = 16; i <= 128; ++i) {
        double scale = i < 64 ? 8388608.0 : 2097152.0;
        t.v[i] = static_cast<int32_t>(i * aacConstCbrt(i) * scale + 0.5);
    }
    return t;
}

alignas(64) inline constexpr AacSmallPowerTable kAacSmallPowers = aacMakeSmallPowers();
alignas(64) inline constexpr AacMediumPowerTable kAacMediumPowers = aacMakeMediumPowers();
static_assert(kAacMediumPowers.v[16] == 338207482 && kAacMediumPowers.v[64] == 536870912 &&
              kAacMediumPowers.v[128] == 1352829926);

// 2^(-f/4) in Q31.
inline constexpr int32_t kAacFractionalGain[4] = {2147483647, 1805811301, 1518500250, 1276901417};
// x^(4/3) on [0.5, 1): the coefficients after the leading pair -457633446, 1445956062.
inline constexpr int32_t kAacCubeRootPolynomial[6] = {-2036421417, 1707815404, -991941369,
                                                      535739478,   127541088,  -1613111};
// 2^(-1/3), 1, 2^(-2/3) in Q31, repeating, and the matching fractional bit counts,
// indexed by 6 - (doublings of the normalisation).
alignas(32) inline constexpr int32_t kAacCubeRootNormaliser[8] = {1704458900, 2147483647, 1352829926, 1704458900,
                                                                 2147483647, 1352829926, 1704458900, 0};
alignas(32) inline constexpr int32_t kAacCubeRootExponent[8] = {20, 19, 17, 16, 15, 13, 12, 0};

// Dequantizes `count` values in place with exponent e = scale factor - 100. Stops
// at the first magnitude above 8191 and returns zamStsAacQuantValErr; the values
// before it are converted. Both twins give identical results.
ZamStatus aacDequantizeScalar(int32_t* values, int count, int exponent);
ZamStatus aacDequantizeAvx2(int32_t* values, int count, int exponent);

// One value (|q| <= 8191), for tests and the scalar twin.
int32_t aacDequantizeOne(int32_t q, int exponent);

// ---------------------------------------------------------------- band walks

// Window lengths of the groups, made safe for walking: a long frame has one group
// of one window; an eight-short frame's group lengths are clipped to 0..(windows
// left of 8), so that no walk leaves the 1024-value frame.
struct AacGroupLengths {
    int count;
    int length[8];
};

inline AacGroupLengths aacGroupLengths(int32_t numWinGrp, const int32_t* pWinGrpLen, int32_t winLen)
{
    AacGroupLengths g{};
    if (winLen == kAacFrameLength) {
        g.count = 1;
        g.length[0] = 1;
        return g;
    }
    int left = 8;
    g.count = numWinGrp;
    for (int i = 0; i < numWinGrp; ++i) {
        int len = pWinGrpLen[i];
        len = len < 0 ? 0 : (len > left ? left : len);
        g.length[i] = len;
        left -= len;
    }
    return g;
}

// Calls visit(group, sfb, bandIndex, start, width) for bands 0..maxSfb-1 of every
// group, in the grouped band-interleaved order: a band of a group covers its lines
// in all the group's windows, `width` values from `start`. A visitor that returns a
// status stops the walk at the first one that is not zamStsOk, which is returned.
template <typename Visit>
inline ZamStatus aacForEachGroupedBand(const AacGroupLengths& groups, const uint16_t* swbOffsets, int maxSfb,
                                       int winLen, Visit&& visit)
{
    int groupStart = 0;
    int band = 0;
    for (int g = 0; g < groups.count; ++g) {
        const int len = groups.length[g];
        int start = groupStart;
        for (int b = 0; b < maxSfb; ++b, ++band) {
            const int width = (swbOffsets[b + 1] - swbOffsets[b]) * len;
            if constexpr (std::is_void_v<decltype(visit(g, b, band, start, width))>) {
                visit(g, b, band, start, width);
            } else {
                const ZamStatus st = visit(g, b, band, start, width);
                if (st != zamStsOk) return st;
            }
            start += width;
        }
        groupStart += len * winLen;
    }
    return zamStsOk;
}

// Band offset b of the table for the window length; offsets past the band count
// read as the window length (a band there is empty).
inline int aacBandOffset(const uint16_t* offsets, int numSwb, int winLen, int band)
{
    return band <= numSwb ? offsets[band] : winLen;
}

// The argument checks shared by the inverse quantizer and the M/S and intensity
// tools, in their order: window length, group count, max_sfb range, sampling
// index, max_sfb against the band count. Pointers are checked by the callers.
inline ZamStatus aacCheckBandWalkArgs(int32_t numWinGrp, int32_t maxSfb, uint32_t samplingRateIndex,
                                      int32_t winLen)
{
    if (winLen != kAacFrameLength && winLen != kAacShortWindowLength) return zamStsAacWinLenErr;
    if (winLen == kAacFrameLength ? numWinGrp != 1 : (numWinGrp < 1 || numWinGrp > 8))
        return zamStsAacNumWinGrpErr;
    if (maxSfb < 0 || maxSfb > 51) return zamStsAacMaxSfbErr;
    if (samplingRateIndex > 11) return zamStsAacSmplRateIdxErr;
    if (maxSfb > aacNumSwb(static_cast<int>(samplingRateIndex), winLen == kAacShortWindowLength))
        return zamStsAacMaxSfbErr;
    return zamStsOk;
}

}  // namespace zam
