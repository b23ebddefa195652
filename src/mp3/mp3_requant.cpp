// Layer III requantization in fixed point (ISO/IEC 11172-3, 2.4.3.4; ISO/IEC
// 13818-3, 2.4.3.2 for the LSF intensity rules): the Huffman-decoded values of one
// granule, both channels, become Q24 spectral values in place, with the stereo
// processing and the short-block reordering.
//
// xr = sign(is) |is|^(4/3) 2^(q / 4), q = global_gain - 210 - (scale-factor and
// subblock-gain steps). |is|^(4/3) comes from a compile-time table as a 31-bit
// mantissa with its exponent; 2^(q/4) as 2^floor(q/4) times one of four Q30
// fractions; one 64-bit product and one rounded shift give Q24.
#include <cstdlib>

#include "core/export.h"
#include "mp3/mp3_fixed.h"
#include "mp3/mp3_tables.h"
#include "transform/trig.h"

namespace zam::mp3 {
namespace {

constexpr int kMaxQuantized = 8206;
constexpr int kScaleFactorStride = 40;

constexpr double cubeRoot(double x)
{
    double y = 1.0;
    while (y * y * y < x) y *= 2.0;
    for (int i = 0; i < 40; ++i) y -= (y * y * y - x) / (3.0 * y * y);
    return y;
}

constexpr double squareRoot(double x)
{
    double y = x > 1.0 ? x : 1.0;
    for (int i = 0; i < 60; ++i) y = 0.5 * (y + x / y);
    return y;
}

constexpr int64_t roundToInt(double v) { return v >= 0 ? static_cast<int64_t>(v + 0.5) : -static_cast<int64_t>(-v + 0.5); }

// n^(4/3) = mant / 2^30 * 2^exp, mant in [2^30, 2^31).
struct Pow43Table {
    uint32_t mant[kMaxQuantized + 1];
    uint8_t exp[kMaxQuantized + 1];
};

constexpr Pow43Table makePow43()
{
    Pow43Table t{};
    for (int n = 1; n <= kMaxQuantized; ++n) {
        const double v = n * cubeRoot(n);
        int e = 0;
        double p = 1.0;
        while (p * 2.0 <= v) p *= 2.0, ++e;
        int64_t m = roundToInt(v / p * 1073741824.0);
        if (m >= (int64_t{1} << 31)) m >>= 1, ++e;
        t.mant[n] = static_cast<uint32_t>(m);
        t.exp[n] = static_cast<uint8_t>(e);
    }
    return t;
}

constexpr Pow43Table kPow43 = makePow43();

// 2^(b/4) and 2^(-b/4) in Q30, b = 0..3.
constexpr double kQuarter = squareRoot(squareRoot(2.0));
constexpr uint32_t kPowQuarter[4] = {1u << 30, uint32_t(roundToInt(1073741824.0 * kQuarter)),
                                     uint32_t(roundToInt(1073741824.0 * kQuarter * kQuarter)),
                                     uint32_t(roundToInt(1073741824.0 * kQuarter * kQuarter * kQuarter))};
constexpr uint32_t kNegPowQuarter[4] = {1u << 30, uint32_t(roundToInt(1073741824.0 / kQuarter)),
                                        uint32_t(roundToInt(1073741824.0 / (kQuarter * kQuarter))),
                                        uint32_t(roundToInt(1073741824.0 / (kQuarter * kQuarter * kQuarter)))};
constexpr int64_t kInvSqrt2Q31 = roundToInt(2147483648.0 / squareRoot(2.0));

// MPEG-1 intensity ratios k_l = tan/(1 + tan), k_r = 1/(1 + tan) of is_pos * pi/12,
// written with sin and cos so that position 6 (tan infinite) needs no case; Q30.
struct IsRatios {
    int64_t left[7];
    int64_t right[7];
};
constexpr IsRatios makeIsRatios()
{
    IsRatios r{};
    for (int p = 0; p < 7; ++p) {
        const SinCos sc = sinCosTurn(p, 24);
        r.left[p] = roundToInt(1073741824.0 * sc.s / (sc.s + sc.c));
        r.right[p] = roundToInt(1073741824.0 * sc.c / (sc.s + sc.c));
    }
    return r;
}
constexpr IsRatios kIsRatios = makeIsRatios();

// Pre-emphasis of the long bands (ISO/IEC 11172-3, Table B.6).
constexpr int8_t kPretab[22] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};

// One gain 2^(q/4) applied to quantized values.
struct Gain {
    uint32_t fraction;  // Q30
    int shift;          // 36 - floor(q / 4): Q60 product to Q24 before the table exponent
};

inline Gain gainOf(int q) { return {kPowQuarter[q & 3], 36 - (q >> 2)}; }

// Branch-free: n = 0 has mantissa 0 and gives 0; shifts are clamped to 1..62 (a
// shift below 30 means a product of at least 2^60, which saturates through the
// clamp to 2^31 - 1).
inline int32_t requantizeValue(int32_t is, Gain g)
{
    const int32_t sign = is >> 31;
    const uint32_t n = static_cast<uint32_t>((is ^ sign) - sign);
    int r = g.shift - kPow43.exp[n];
    r = r < 1 ? 1 : (r > 62 ? 62 : r);
    const int64_t p = static_cast<int64_t>(kPow43.mant[n]) * g.fraction;
    int64_t m = (p + (int64_t{1} << (r - 1))) >> r;
    m = m > INT32_MAX ? INT32_MAX : m;
    m += (m == 0) & (n != 0);  // a non-zero value stays non-zero (the intensity bound relies on it)
    return (static_cast<int32_t>(m) ^ sign) - sign;
}

struct Layout {
    const int16_t* longBands;   // 23 boundaries
    const int16_t* shortBands;  // 14 boundaries of one window
    bool isShort;
    bool isMixed;
    int mixedLongBands;         // long bands of a mixed block: 8 (MPEG-1), 6 (MPEG-2)
};

Layout layoutOf(const Mp3FrameHeader& h, const Mp3SideInfo& si, const int16_t* longBands, const int16_t* shortBands)
{
    Layout g;
    g.longBands = longBands;
    g.shortBands = shortBands;
    g.isShort = si.window_switching_flag && si.block_type == 2;
    g.isMixed = g.isShort && si.mixed_block_flag;
    g.mixedLongBands = h.ID == 1 ? 8 : 6;
    return g;
}

void requantizeChannel(int32_t* x, int bound, const int8_t* sfCoded, const Mp3SideInfo& si, const Layout& g)
{
    // The MPEG-2 intensity right channel carries its illegal positions negated; as
    // gains they count with their coded value.
    int sf[39];
    for (int i = 0; i < 39; ++i) sf[i] = std::abs(static_cast<int>(sfCoded[i]));
    const int base = si.global_gain - 210;
    const int step = si.scalefac_scale ? 4 : 2;  // quarter steps per scale-factor unit
    int longBands = 22;
    if (g.isShort) longBands = g.isMixed ? g.mixedLongBands : 0;
    for (int sfb = 0; sfb < longBands && g.longBands[sfb] < bound; ++sfb) {
        const int pre = si.preflag ? kPretab[sfb] : 0;
        const Gain gain = gainOf(base - step * (sf[sfb] + pre));
        const int stop = g.longBands[sfb + 1] < bound ? g.longBands[sfb + 1] : bound;
        for (int i = g.longBands[sfb]; i < stop; ++i) x[i] = requantizeValue(x[i], gain);
    }
    if (g.isShort) {
        const int firstShort = g.isMixed ? 3 : 0;
        const int sfOffset = g.isMixed ? g.mixedLongBands - 3 * firstShort : 0;
        for (int sfb = firstShort; sfb < 13; ++sfb) {
            const int width = g.shortBands[sfb + 1] - g.shortBands[sfb];
            const int start = 3 * g.shortBands[sfb];
            if (start >= bound) break;
            for (int w = 0; w < 3; ++w) {
                const Gain gain = gainOf(base - 8 * si.subblock_gain[w] - step * sf[sfOffset + 3 * sfb + w]);
                const int from = start + w * width;
                const int stop = from + width < bound ? from + width : bound;
                for (int i = from; i < stop; ++i) x[i] = requantizeValue(x[i], gain);
            }
        }
    }
    for (int i = bound; i < 576; ++i) x[i] = 0;
}

// ------------------------------------------------------------------ stereo

void msLines(int32_t* l, int32_t* r, int from, int to)
{
    for (int i = from; i < to; ++i) {
        const int64_t m = l[i], d = r[i];
        l[i] = mulShiftRound(m + d, kInvSqrt2Q31, 31);
        r[i] = mulShiftRound(m - d, kInvSqrt2Q31, 31);
    }
}

bool bandIsZero(const int32_t* x, int from, int to)
{
    for (int i = from; i < to; ++i)
        if (x[i] != 0) return false;
    return true;
}

inline int32_t scaleQ30(int32_t v, int64_t mant, int shift)
{
    if (shift >= 62) return 0;
    return mulShiftRound(v, mant, shift);
}

// Intensity processing of one band with the right channel's position `pos`; an
// illegal position (MPEG-1: 7, MPEG-2: the negated marker) falls back to M/S or to
// plain stereo.
void intensityBand(const Mp3FrameHeader& h, const Mp3SideInfo& right, bool ms, int pos, int32_t* l, int32_t* r,
                   int from, int to)
{
    int64_t kl = int64_t{1} << 30, kr = int64_t{1} << 30;
    int shiftL = 30, shiftR = 30;
    if (h.ID == 1) {
        if (pos < 0 || pos >= 7) {
            if (ms) msLines(l, r, from, to);
            return;
        }
        kl = kIsRatios.left[pos];
        kr = kIsRatios.right[pos];
    } else {
        if (pos < 0) {
            if (ms) msLines(l, r, from, to);
            return;
        }
        // intensity_scale: i0 = 2^(-1/4) or 2^(-1/2), raised to the power (pos + 1) / 2
        // (odd pos, left channel) or pos / 2 (even pos, right channel).
        const int quarters = (right.scalefac_compress & 1) ? 2 : 1;
        if (pos & 1) {
            const int e = quarters * ((pos + 1) / 2);
            kl = kNegPowQuarter[e & 3];
            shiftL = 30 + (e >> 2);
        } else if (pos > 0) {
            const int e = quarters * (pos / 2);
            kr = kNegPowQuarter[e & 3];
            shiftR = 30 + (e >> 2);
        }
    }
    for (int i = from; i < to; ++i) {
        const int32_t v = l[i];
        l[i] = scaleQ30(v, kl, shiftL);
        r[i] = scaleQ30(v, kr, shiftR);
    }
}

void stereo(const Mp3FrameHeader& h, int modeExtension, const Layout& g, const Mp3SideInfo& right,
            const int8_t* sfRight, int32_t* l, int32_t* r, const int32_t* bound)
{
    const bool ms = (modeExtension & 2) != 0;
    const bool is = (modeExtension & 1) != 0;
    if (!is) {
        if (ms) msLines(l, r, 0, bound[0] > bound[1] ? bound[0] : bound[1]);
        return;
    }
    const int rightEnd = bound[1];
    // The top band (long 21, short 12) has no scale factor of its own and takes the
    // position of the band below. When that band is not in the intensity region,
    // MPEG-1 still takes its value, MPEG-2 takes position 0 (both channels get the
    // mid value), as the ISO reference decoder does.
    const bool mpeg1 = h.ID == 1;
    if (!g.isShort) {
        int sfb = 0;
        while (sfb < 22 && g.longBands[sfb + 1] <= rightEnd) ++sfb;
        if (sfb < 22 && !bandIsZero(r, g.longBands[sfb], g.longBands[sfb + 1])) ++sfb;
        const int first = g.longBands[sfb];
        if (ms) msLines(l, r, 0, first);
        for (; sfb < 22; ++sfb) {
            const int pos = sfb < 21 ? sfRight[sfb] : (mpeg1 || first <= g.longBands[20] ? sfRight[20] : 0);
            intensityBand(h, right, ms, pos, l, r, g.longBands[sfb], g.longBands[sfb + 1]);
        }
        return;
    }
    // Per window: intensity above the highest non-zero short band of the right channel.
    const int firstShort = g.isMixed ? 3 : 0;
    const int sfOffset = g.isMixed ? g.mixedLongBands - 3 * firstShort : 0;
    bool anyShortNonZero = false;
    for (int w = 0; w < 3; ++w) {
        int top = firstShort;
        for (int sfb = 12; sfb >= firstShort; --sfb) {
            const int width = g.shortBands[sfb + 1] - g.shortBands[sfb];
            const int start = 3 * g.shortBands[sfb] + w * width;
            if (!bandIsZero(r, start, start + width)) {
                top = sfb + 1;
                anyShortNonZero = true;
                break;
            }
        }
        for (int sfb = firstShort; sfb < 13; ++sfb) {
            const int width = g.shortBands[sfb + 1] - g.shortBands[sfb];
            const int start = 3 * g.shortBands[sfb] + w * width;
            if (sfb < top) {
                if (ms) msLines(l, r, start, start + width);
            } else {
                const int pos = sfb < 12 ? sfRight[sfOffset + 3 * sfb + w]
                                         : (mpeg1 || top <= 11 ? sfRight[sfOffset + 3 * 11 + w] : 0);
                intensityBand(h, right, ms, pos, l, r, start, start + width);
            }
        }
    }
    if (g.isMixed) {
        int sfb = g.mixedLongBands;
        if (!anyShortNonZero) {
            sfb = 0;
            while (sfb < g.mixedLongBands && g.longBands[sfb + 1] <= rightEnd) ++sfb;
            if (sfb < g.mixedLongBands && !bandIsZero(r, g.longBands[sfb], g.longBands[sfb + 1])) ++sfb;
        }
        if (ms) msLines(l, r, 0, g.longBands[sfb]);
        for (; sfb < g.mixedLongBands; ++sfb)
            intensityBand(h, right, ms, sfRight[sfb], l, r, g.longBands[sfb], g.longBands[sfb + 1]);
    }
}

// Short blocks arrive band by band, window by window; the inverse MDCT wants each
// subband's 18 lines as 6 frequencies x 3 windows.
void reorderShort(int32_t* x, const Layout& g)
{
    int32_t out[576];
    const int firstShort = g.isMixed ? 3 : 0;
    const int from = 3 * g.shortBands[firstShort];
    for (int sfb = firstShort; sfb < 13; ++sfb) {
        const int width = g.shortBands[sfb + 1] - g.shortBands[sfb];
        const int start = 3 * g.shortBands[sfb];
        for (int w = 0; w < 3; ++w)
            for (int j = 0; j < width; ++j) out[3 * (g.shortBands[sfb] + j) + w] = x[start + w * width + j];
    }
    for (int i = from; i < 576; ++i) x[i] = out[i];
}

// One past the last non-zero value below `limit`, eight at a time.
int lastNonZero(const int32_t* x, int limit)
{
    int n = limit;
    while (n >= 8) {
        int32_t any = 0;
        for (int i = 1; i <= 8; ++i) any |= x[n - i];
        if (any) break;
        n -= 8;
    }
    while (n > 0 && x[n - 1] == 0) --n;
    return n;
}

bool sideInfoOk(const Mp3SideInfo& s)
{
    if (static_cast<uint32_t>(s.window_switching_flag) > 1 || static_cast<uint32_t>(s.block_type) > 3 ||
        static_cast<uint32_t>(s.mixed_block_flag) > 1 || (s.window_switching_flag && s.block_type == 0) ||
        static_cast<uint32_t>(s.global_gain) > 255 || static_cast<uint32_t>(s.scalefac_scale) > 1 ||
        static_cast<uint32_t>(s.preflag) > 1)
        return false;
    for (int w = 0; w < 3; ++w)
        if (static_cast<uint32_t>(s.subblock_gain[w]) > 7) return false;
    return true;
}

ZamStatus requantizeGranule(int32_t* xr, int32_t* bound, const int8_t* sf, const Mp3SideInfo* si,
                            const Mp3FrameHeader* h, const int16_t* longBands, const int16_t* shortBands)
{
    if (static_cast<uint32_t>(h->ID) > 1 || h->layer != 1 || static_cast<uint32_t>(h->mode) > 3 ||
        static_cast<uint32_t>(h->mode_extension) > 3)
        return zamStsMp3FrameHeaderErr;
    const int nch = h->mode == 3 ? 1 : 2;
    for (int ch = 0; ch < nch; ++ch)
        if (!sideInfoOk(si[ch])) return zamStsMp3SideInfoErr;
    for (int ch = 0; ch < nch; ++ch)
        for (int i = 0; i < bound[ch]; ++i)
            if (xr[576 * ch + i] > kMaxQuantized || xr[576 * ch + i] < -kMaxQuantized) return zamStsBadData;

    Layout g[2];
    for (int ch = 0; ch < nch; ++ch) {
        g[ch] = layoutOf(*h, si[ch], longBands, shortBands);
        requantizeChannel(xr + 576 * ch, bound[ch], sf + kScaleFactorStride * ch, si[ch], g[ch]);
    }
    // The joint-stereo tools exist in joint stereo only; with block types that differ
    // between the channels only M/S is applied. Where the lines can reach afterwards:
    int limit[2] = {bound[0], nch == 2 ? bound[1] : 0};
    if (nch == 2 && h->mode == 1 && h->mode_extension != 0) {
        const int both = bound[0] > bound[1] ? bound[0] : bound[1];
        limit[0] = limit[1] = (h->mode_extension & 1) ? 576 : both;
        const bool sameBlocks = si[0].block_type == si[1].block_type &&
                                si[0].mixed_block_flag == si[1].mixed_block_flag &&
                                si[0].window_switching_flag == si[1].window_switching_flag;
        stereo(*h, sameBlocks ? h->mode_extension : (h->mode_extension & 2), g[1], si[1], sf + kScaleFactorStride,
               xr, xr + 576, bound);
    }
    for (int ch = 0; ch < nch; ++ch) {
        if (g[ch].isShort) {
            reorderShort(xr + 576 * ch, g[ch]);
            limit[ch] = 576;
        }
        bound[ch] = lastNonZero(xr + 576 * ch, limit[ch]);
    }
    return zamStsOk;
}

bool boundsOk(const int32_t* bound, int nch)
{
    for (int ch = 0; ch < nch; ++ch)
        if (static_cast<uint32_t>(bound[ch]) > 576) return false;
    return true;
}

}  // namespace
}  // namespace zam::mp3

using namespace zam::mp3;

ZAM_API ZamStatus zamsReQuantize_MP3_32s_I(int32_t* pSrcDstIsXr, int32_t* pSrcDstNonZeroBound,
                                           const int8_t* pSrcScaleFactor, const Mp3SideInfo* pSideInfo,
                                           const Mp3FrameHeader* pFrameHeader)
{
    if (!pSrcDstIsXr || !pSrcDstNonZeroBound || !pSrcScaleFactor || !pSideInfo || !pFrameHeader)
        return zamStsNullPtr;
    if (!boundsOk(pSrcDstNonZeroBound, pFrameHeader->mode == 3 ? 1 : 2)) return zamStsBadArg;
    if (static_cast<uint32_t>(pFrameHeader->sampling_frequency) > 2 || static_cast<uint32_t>(pFrameHeader->ID) > 1)
        return zamStsMp3FrameHeaderErr;
    const int row = pFrameHeader->ID * 3 + pFrameHeader->sampling_frequency;
    return requantizeGranule(pSrcDstIsXr, pSrcDstNonZeroBound, pSrcScaleFactor, pSideInfo, pFrameHeader,
                             kSfbLongBuiltIn[row], kSfbShortBuiltIn[row]);
}

ZAM_API ZamStatus zamsReQuantizeSfb_MP3_32s_I(int32_t* pSrcDstIsXr, int32_t* pSrcDstNonZeroBound,
                                              const int8_t* pSrcScaleFactor, const Mp3SideInfo* pSideInfo,
                                              const Mp3FrameHeader* pFrameHeader, const int16_t* pSfbTableLong,
                                              const int16_t* pSfbTableShort)
{
    if (!pSrcDstIsXr || !pSrcDstNonZeroBound || !pSrcScaleFactor || !pSideInfo || !pFrameHeader ||
        !pSfbTableLong || !pSfbTableShort)
        return zamStsNullPtr;
    if (!boundsOk(pSrcDstNonZeroBound, pFrameHeader->mode == 3 ? 1 : 2)) return zamStsBadArg;
    if (pSfbTableLong[0] != 0 || pSfbTableLong[22] != 576 || pSfbTableShort[0] != 0 || pSfbTableShort[13] != 192)
        return zamStsBadArg;
    for (int i = 0; i < 23; ++i)
        if (pSfbTableLong[i] < 0 || pSfbTableLong[i] > 576 || (i > 0 && pSfbTableLong[i] < pSfbTableLong[i - 1]))
            return zamStsBadArg;
    for (int i = 0; i < 14; ++i)
        if (pSfbTableShort[i] < 0 || pSfbTableShort[i] > 192 ||
            (i > 0 && pSfbTableShort[i] < pSfbTableShort[i - 1]))
            return zamStsBadArg;
    return requantizeGranule(pSrcDstIsXr, pSrcDstNonZeroBound, pSrcScaleFactor, pSideInfo, pFrameHeader,
                             pSfbTableLong, pSfbTableShort);
}
