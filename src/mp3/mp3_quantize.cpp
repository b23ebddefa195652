// Layer III quantization of one granule and channel (ISO/IEC 11172-3, Annex C
// loops): the inner loop finds the global gain whose Huffman bits fit the budget,
// the outer loop amplifies the scale-factor bands whose noise exceeds the allowed
// distortion; the best pass is kept. Bits are counted with the same ISO code tables
// that zamsHuffmanEncode_MP3_32s1u writes.
#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

#include "core/export.h"
#include "mp3/mp3_encoder.h"
#include "mp3/mp3_tables.h"

namespace zam::mp3 {
namespace {

constexpr int kMaxIx = 8206;  // 15 + 2^13 - 1: the largest value table 23/31 carry
constexpr int kMaxOuterPasses = 10;
constexpr int8_t kPretab[22] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};
// Region counts by the number of long bands the big values reach (a common split).
constexpr int8_t kSubdivide[23][2] = {{0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 1}, {1, 1}, {1, 1},
                                      {1, 2}, {2, 2}, {2, 3}, {2, 3}, {3, 4}, {3, 4}, {3, 4}, {4, 5},
                                      {4, 5}, {4, 6}, {5, 6}, {5, 6}, {5, 7}, {6, 7}, {6, 7}};

constexpr double cbrtConst(double x)
{
    double y = x > 1 ? x / 3 + 1 : 1.0;
    for (int i = 0; i < 80; ++i) y -= (y * y * y - x) / (3 * y * y);
    return y;
}
constexpr int kPow43Small = 256;
constexpr std::array<float, kPow43Small> makePow43()
{
    std::array<float, kPow43Small> t{};
    for (int n = 0; n < kPow43Small; ++n) t[n] = static_cast<float>(n * cbrtConst(n));
    return t;
}
alignas(64) constexpr std::array<float, kPow43Small> kPow43 = makePow43();
inline float pow43(int n) { return n < kPow43Small ? kPow43[n] : static_cast<float>(n * std::cbrt(static_cast<double>(n))); }

// 2^(n/16) and 2^(n/4) for any int n: a power of two times a fraction table.
constexpr double exp2Const(double f)  // 2^f for 0 <= f < 1
{
    const double x = f * 0.69314718055994530942;
    double term = 1.0, sum = 1.0;
    for (int k = 1; k < 30; ++k) sum += term *= x / k;
    return sum;
}
constexpr std::array<float, 16> makeSixteenths()
{
    std::array<float, 16> t{};
    for (int i = 0; i < 16; ++i) t[i] = static_cast<float>(exp2Const(i / 16.0));
    return t;
}
constexpr std::array<float, 16> kSixteenths = makeSixteenths();

inline float pow2Sixteenths(int n)
{
    const int e = std::clamp(n >> 4, -126, 127);
    return kSixteenths[n & 15] * std::bit_cast<float>((e + 127) << 23);
}

// ------------------------------------------------------------- bit counting

// The cheapest table for the pairs in [from, to) and its bits: one pass adds the
// packed bit counts of every table of the size class the largest value needs.
int bestTable(const int* ix, int from, int to, int& table)
{
    table = 0;
    if (from >= to) return 0;
    int maxV = 0;
    for (int i = from; i < to; ++i) maxV = std::max(maxV, ix[i]);
    if (maxV == 0) return 0;
    static constexpr int8_t kClass[16] = {0, 0, 1, 2, 3, 3, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5};
    static constexpr int8_t kTables[7][3] = {{1, 0, 0}, {2, 3, 0}, {5, 6, 0}, {7, 8, 9}, {10, 11, 12}, {13, 15, 0}, {16, 24, 0}};
    const int cls = maxV < 16 ? kClass[maxV] : 6;
    const uint64_t* packed = kPairBitsPacked[cls];
    uint64_t sum = 0;
    int escapes = 0;
    if (cls < 6) {
        for (int i = from; i < to; i += 2) sum += packed[ix[i] * 16 + ix[i + 1]];
    } else {
        for (int i = from; i < to; i += 2) {
            const int x = std::min(ix[i], 15), y = std::min(ix[i + 1], 15);
            sum += packed[x * 16 + y];
            escapes += (x == 15) + (y == 15);
        }
    }
    if (cls == 6) {
        int best = 1 << 30;
        for (int family = 0; family < 2; ++family) {
            int t = family ? 24 : 16;
            while (t < (family ? 31 : 23) && 15 + (1 << kPairTables[t].linbits) - 1 < maxV) ++t;
            const int bits = static_cast<int>((sum >> (16 * family)) & 0xFFFF) + escapes * kPairTables[t].linbits;
            if (bits < best) best = bits, table = t;
        }
        return best;
    }
    int best = 1 << 30;
    for (int k = 0; k < 3 && kTables[cls][k]; ++k) {
        const int bits = static_cast<int>((sum >> (16 * k)) & 0xFFFF);
        if (bits < best) best = bits, table = kTables[cls][k];
    }
    return best;
}

struct HuffmanPlan {
    int bigValues;      // pairs
    int count1Len;      // lines of count-1 quadruples
    int count1Table;    // 0 A, 1 B
    int table[3];
    int region0, region1;
    int bits;
};

// Splits the lines into big values, count-1 quadruples and zeros and chooses the
// tables. `searchRegions` tries every long-block region split (final pass only).
HuffmanPlan planHuffman(const int* ix, int blockType, int row, bool sameTable, bool searchRegions)
{
    HuffmanPlan p{};
    int last = kGranuleLines;
    while (last > 0 && ix[last - 1] == 0 && ix[last - 2] == 0) last -= 2;
    int bv2 = last;
    while (bv2 >= 4 && ix[bv2 - 1] <= 1 && ix[bv2 - 2] <= 1 && ix[bv2 - 3] <= 1 && ix[bv2 - 4] <= 1) bv2 -= 4;
    p.bigValues = bv2 / 2;
    p.count1Len = last - bv2;
    int bitsA = 0, bitsB = 0;
    for (int i = bv2; i < last; i += 4) {
        const int v = (ix[i] ? 8 : 0) | (ix[i + 1] ? 4 : 0) | (ix[i + 2] ? 2 : 0) | (ix[i + 3] ? 1 : 0);
        const int signs = __builtin_popcount(v);
        bitsA += (kQuadAEncode[v] & 15) + signs;
        bitsB += 4 + signs;
    }
    p.count1Table = bitsB < bitsA;
    p.bits = std::min(bitsA, bitsB);
    if (sameTable) {
        p.bits += bestTable(ix, 0, bv2, p.table[0]);
        p.table[1] = p.table[2] = p.table[0];
        if (blockType == 0) p.region0 = 7, p.region1 = 7;
        else p.region0 = blockType == 2 ? 8 : 7, p.region1 = blockType == 2 ? 12 : 13;
        return p;
    }
    if (blockType != 0) {
        const int r0 = std::min(36, bv2);
        p.bits += bestTable(ix, 0, r0, p.table[0]) + bestTable(ix, r0, bv2, p.table[1]);
        p.table[2] = 0;
        p.region0 = blockType == 2 ? 8 : 7;
        p.region1 = blockType == 2 ? 12 : 13;
        return p;
    }
    const int16_t* bound = kSfbLongBuiltIn[row];
    int band = 0;
    while (band < 22 && bound[band] < bv2) ++band;
    auto trySplit = [&](int r0, int r1, int& bits, int* tables) {
        const int e0 = std::min<int>(bound[r0 + 1], bv2), e1 = std::min<int>(bound[r0 + r1 + 2], bv2);
        bits = bestTable(ix, 0, e0, tables[0]) + bestTable(ix, e0, e1, tables[1]) + bestTable(ix, e1, bv2, tables[2]);
    };
    int bestBits = 0, tables[3];
    p.region0 = kSubdivide[band][0];
    p.region1 = kSubdivide[band][1];
    trySplit(p.region0, p.region1, bestBits, p.table);
    if (searchRegions && bv2 > 0) {
        for (int r0 = 0; r0 < 16; ++r0) {
            if (bound[r0 + 1] >= bv2) break;
            for (int r1 = 0; r1 < 8 && r0 + r1 + 2 < 23; ++r1) {
                int b;
                trySplit(r0, r1, b, tables);
                if (b < bestBits) bestBits = b, p.region0 = r0, p.region1 = r1, std::memcpy(p.table, tables, sizeof tables);
                if (bound[r0 + r1 + 2] >= bv2) break;
            }
        }
    }
    p.bits += bestBits;
    return p;
}

// ------------------------------------------------------------ the granule

struct Band {
    int16_t start, width;
    int8_t sfLimitGroup;  // scale-factor length group (0..3), -1 for no scale factor
    int8_t window;        // short window, -1 long
};

struct Layout {
    Band band[39];
    int count;
    bool isShort;
};

Layout makeLayout(int blockType, int row, bool mpeg1)
{
    Layout l{};
    if (blockType == 2) {
        const int16_t* b = kSfbShortBuiltIn[row];
        l.isShort = true;
        l.count = 39;
        for (int s = 0; s < 13; ++s)
            for (int w = 0; w < 3; ++w) {
                const int width = b[s + 1] - b[s];
                int8_t group = s == 12 ? -1 : (mpeg1 ? (s < 6 ? 0 : 1) : static_cast<int8_t>(s / 3));
                l.band[3 * s + w] = {static_cast<int16_t>(3 * b[s] + w * width), static_cast<int16_t>(width), group, static_cast<int8_t>(w)};
            }
        return l;
    }
    const int16_t* b = kSfbLongBuiltIn[row];
    l.count = 22;
    static constexpr int8_t kLsfLongGroup[21] = {0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3};
    for (int s = 0; s < 22; ++s) {
        int8_t group = s == 21 ? -1 : (mpeg1 ? (s < 11 ? 0 : 1) : kLsfLongGroup[s]);
        l.band[s] = {b[s], static_cast<int16_t>(b[s + 1] - b[s]), group, -1};
    }
    return l;
}

// Largest scale factor of a length group: MPEG-1 slen1 up to 4 bits, slen2 up to 3;
// MPEG-2 (non-intensity) slen1, slen2 up to 4 bits, slen3, slen4 up to 3.
inline int sfLimit(int group, bool mpeg1) { return mpeg1 ? (group == 0 ? 15 : 7) : (group < 2 ? 15 : 7); }

inline int bitsFor(int v) { return v == 0 ? 0 : 32 - __builtin_clz(static_cast<unsigned>(v)); }

// Scale-factor bits and scalefac_compress for the group maxima.
int part2Bits(const int* groupMax, bool isShort, bool mpeg1, int& sfc)
{
    if (mpeg1) {
        const int n1 = isShort ? 18 : 11, n2 = isShort ? 18 : 10;
        int best = 1 << 30;
        for (int c = 0; c < 16; ++c) {
            if (kSlen1[c] < bitsFor(groupMax[0]) || kSlen2[c] < bitsFor(groupMax[1])) continue;
            const int b = n1 * kSlen1[c] + n2 * kSlen2[c];
            if (b < best) best = b, sfc = c;
        }
        return best;
    }
    int slen[4];
    for (int g = 0; g < 4; ++g) slen[g] = bitsFor(groupMax[g]);
    sfc = (((slen[0] * 5) + slen[1]) << 4) + (slen[2] << 2) + slen[3];
    static constexpr int kLong[4] = {6, 5, 5, 5}, kShort[4] = {9, 9, 9, 9};
    int bits = 0;
    for (int g = 0; g < 4; ++g) bits += (isShort ? kShort : kLong)[g] * slen[g];
    return bits;
}

struct Quantizer {
    const Layout& layout;
    const float* x;      // |line|
    const float* xr34;   // |line|^(3/4)
    const float* xmin;   // allowed noise per band, linear
    bool mpeg1;
    int blockType, row;
    int sf[39] = {};
    int scale = 0;  // scalefac_scale
    int preflag = 0;
    float bandMax34[39] = {};

    int shift(int b) const
    {
        const int mult = scale ? 4 : 2;
        return mult * (sf[b] + (preflag && !layout.isShort ? kPretab[b] : 0));
    }
    // Smallest global gain that keeps every value within the tables.
    int minGain() const
    {
        int g = 0;
        for (int b = 0; b < layout.count; ++b) {
            if (bandMax34[b] <= 0.0f) continue;
            const double a = 16.0 / 3.0 * std::log2(bandMax34[b] / (kMaxIx - 0.4054));
            g = std::max(g, static_cast<int>(std::ceil(a)) + 118 + shift(b));
        }
        return std::min(g, 255);
    }
    void quantize(int gain, int* ix) const
    {
        const __m256 round = _mm256_set1_ps(0.4054f);
        for (int b = 0; b < layout.count; ++b) {
            const Band& band = layout.band[b];
            const float q = pow2Sixteenths(-3 * (gain - 118 - shift(b)));
            const __m256 qv = _mm256_set1_ps(q);
            int i = band.start;
            const int end = band.start + band.width;
            for (; i + 8 <= end; i += 8) {
                const __m256 v = _mm256_add_ps(_mm256_mul_ps(_mm256_loadu_ps(xr34 + i), qv), round);
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(ix + i), _mm256_cvttps_epi32(v));
            }
            for (; i < end; ++i) ix[i] = static_cast<int>(xr34[i] * q + 0.4054f);
        }
    }
    int huffmanBits(int gain, int* ix) const
    {
        quantize(gain, ix);
        return planHuffman(ix, blockType, row, !mpeg1, false).bits;
    }
    // Smallest gain from `lo` whose bits fit; a binary search, or a walk up from a
    // gain known to be near.
    int innerLoop(int lo, int budget, int* ix, bool walk) const
    {
        if (walk) {
            int g = lo;
            while (g < 255 && huffmanBits(g, ix) > budget) ++g;
            return g;
        }
        int hi = 255;
        while (lo < hi) {
            const int mid = (lo + hi) / 2;
            if (huffmanBits(mid, ix) <= budget) hi = mid;
            else lo = mid + 1;
        }
        return lo;
    }
    // Noise over the allowed, per band, in dB (<= 0 where within), summed.
    float overNoise(int gain, const int* ix, bool* over) const
    {
        float total = 0.0f;
        for (int b = 0; b < layout.count; ++b) {
            const Band& band = layout.band[b];
            const float step = pow2Sixteenths(4 * (gain - 118 - shift(b)));
            float noise = 0.0f;
            for (int i = band.start; i < band.start + band.width; ++i) {
                const float d = x[i] - pow43(ix[i]) * step;
                noise += d * d;
            }
            over[b] = noise > xmin[b];
            if (over[b]) total += 10.0f * std::log10(noise / xmin[b]);
        }
        return total;
    }
    int groupMax(int* gm) const
    {
        std::fill(gm, gm + 4, 0);
        for (int b = 0; b < layout.count; ++b)
            if (layout.band[b].sfLimitGroup >= 0) gm[layout.band[b].sfLimitGroup] = std::max(gm[layout.band[b].sfLimitGroup], sf[b]);
        return 0;
    }
};

}  // namespace
}  // namespace zam::mp3

using namespace zam::mp3;

ZAM_API ZamStatus zamsQuantize_MP3_32s_I(int32_t* pSrcDst, const int32_t* pXmin, int8_t* pDstScaleFactor,
                                        Mp3SideInfo* pSideInfo, int32_t* pDstCount1Len, int32_t* pDstHufSize,
                                        int bitBudget, const Mp3FrameHeader* pFrameHeader)
{
    if (!pSrcDst || !pXmin || !pDstScaleFactor || !pSideInfo || !pDstCount1Len || !pDstHufSize || !pFrameHeader)
        return zamStsNullPtr;
    if (bitBudget < 0 || bitBudget > 4095) return zamStsBadArg;
    Mp3SideInfo& si = *pSideInfo;
    if (static_cast<uint32_t>(si.window_switching_flag) > 1 || static_cast<uint32_t>(si.block_type) > 3 ||
        si.mixed_block_flag != 0 || (si.window_switching_flag && si.block_type == 0))
        return zamStsMp3SideInfoErr;
    const Mp3FrameHeader* h = pFrameHeader;
    if (static_cast<uint32_t>(h->ID) > 1 || static_cast<uint32_t>(h->sampling_frequency) > 2) return zamStsMp3FrameHeaderErr;

    const bool mpeg1 = h->ID == 1;
    const int blockType = si.window_switching_flag ? si.block_type : 0;
    const int row = bandRow(h);
    const Layout layout = makeLayout(blockType, row, mpeg1);

    alignas(32) float x[kGranuleLines], xr34[kGranuleLines], xmin[39];
    for (int i = 0; i < kGranuleLines; ++i) x[i] = std::fabs(static_cast<float>(pSrcDst[i]));
    for (int i = 0; i < kGranuleLines; ++i) xr34[i] = std::sqrt(x[i] * std::sqrt(x[i]));
    for (int b = 0; b < layout.count; ++b) xmin[b] = std::exp2(static_cast<float>(pXmin[b]) * (0.1f / 256.0f) * 3.32192809f);

    Quantizer q{layout, x, xr34, xmin, mpeg1, blockType, row, {}, 0, 0, {}};
    for (int b = 0; b < layout.count; ++b) {
        float m = 0.0f;
        for (int i = layout.band[b].start; i < layout.band[b].start + layout.band[b].width; ++i) m = std::max(m, xr34[i]);
        q.bandMax34[b] = m;
    }

    alignas(32) int ix[kGranuleLines], bestIx[kGranuleLines];
    int bestSf[39] = {}, bestScale = 0, bestGain = 255, gm[4], sfc = 0;
    float bestOver = 1e30f;
    bool over[39];
    int gain = q.innerLoop(q.minGain(), bitBudget, ix, false);
    bool haveBest = false;
    if (q.huffmanBits(gain, ix) > bitBudget) {  // nothing fits: an empty granule
        std::memset(ix, 0, sizeof ix);
        haveBest = true;
        bestOver = 0.0f;
        std::memcpy(bestIx, ix, sizeof ix);
    }
    for (int pass = 0; pass < kMaxOuterPasses && bestOver > 0.0f; ++pass) {
        q.quantize(gain, ix);
        const float total = q.overNoise(gain, ix, over);
        if (!haveBest || total < bestOver) {
            haveBest = true;
            bestOver = total;
            bestGain = gain;
            bestScale = q.scale;
            std::memcpy(bestIx, ix, sizeof ix);
            std::memcpy(bestSf, q.sf, sizeof bestSf);
        }
        if (total <= 0.0f) break;
        // Amplify the bands over their allowed noise.
        bool allAmplified = true, anyAmplified = false;
        for (int b = 0; b < layout.count; ++b) {
            if (layout.band[b].sfLimitGroup < 0) continue;
            if (over[b]) ++q.sf[b], anyAmplified = true;
            allAmplified &= q.sf[b] > 0;
        }
        if (allAmplified || !anyAmplified) break;
        bool tooLarge = false;
        for (int b = 0; b < layout.count; ++b)
            if (layout.band[b].sfLimitGroup >= 0 && q.sf[b] > sfLimit(layout.band[b].sfLimitGroup, mpeg1)) tooLarge = true;
        bool rescaled = false;
        if (tooLarge) {
            if (q.scale) break;
            q.scale = 1;
            rescaled = true;
            for (int b = 0; b < layout.count; ++b) q.sf[b] = (q.sf[b] + 1) / 2;
        }
        q.groupMax(gm);
        const int p2 = part2Bits(gm, layout.isShort, mpeg1, sfc);
        if (p2 > bitBudget) break;
        const int lo = q.minGain();
        gain = q.innerLoop(rescaled ? lo : std::max(lo, gain), bitBudget - p2, ix, !rescaled);
        if (q.huffmanBits(gain, ix) > bitBudget - p2) break;
    }

    // The best pass. When it is within the allowed noise everywhere, the coarsest gain
    // that stays within is taken instead: the bits saved go back to the reservoir.
    std::memcpy(q.sf, bestSf, sizeof bestSf);
    q.scale = bestScale;
    if (bestOver <= 0.0f && bestGain < 255) {
        int lo = bestGain, hi = 255;  // lo within, hi to be tested
        while (lo < hi) {
            const int mid = (lo + hi + 1) / 2;
            q.quantize(mid, ix);
            if (q.overNoise(mid, ix, over) <= 0.0f) lo = mid;
            else hi = mid - 1;
        }
        if (lo != bestGain) {
            bestGain = lo;
            q.quantize(lo, bestIx);
        }
    }
    if (mpeg1 && !layout.isShort) {
        bool fits = true;
        for (int b = 11; b < 21; ++b) fits &= q.sf[b] >= kPretab[b];
        if (fits) {
            q.preflag = 1;
            for (int b = 11; b < 21; ++b) q.sf[b] -= kPretab[b];
        }
    }
    q.groupMax(gm);
    const int p2 = part2Bits(gm, layout.isShort, mpeg1, sfc);
    const HuffmanPlan plan = planHuffman(bestIx, blockType, row, !mpeg1, true);

    for (int i = 0; i < kGranuleLines; ++i) pSrcDst[i] = pSrcDst[i] < 0 ? -bestIx[i] : bestIx[i];
    std::memset(pDstScaleFactor, 0, 39);
    for (int b = 0; b < layout.count; ++b) pDstScaleFactor[b] = static_cast<int8_t>(q.sf[b]);
    si.part2_3_length = p2 + plan.bits;
    si.big_values = plan.bigValues;
    si.global_gain = bestGain;
    si.scalefac_compress = sfc;
    for (int r = 0; r < 3; ++r) si.table_select[r] = plan.table[r];
    si.subblock_gain[0] = si.subblock_gain[1] = si.subblock_gain[2] = 0;
    si.region0_count = plan.region0;
    si.region1_count = plan.region1;
    si.preflag = q.preflag;
    si.scalefac_scale = bestScale;
    si.count1table_select = plan.count1Table;
    *pDstCount1Len = plan.count1Len;
    *pDstHufSize = plan.bits;
    return zamStsOk;
}
