// Layer III hybrid synthesis in fixed point (ISO/IEC 11172-3, 2.4.3.4.10):
// alias reduction, inverse MDCT with the block type's window, overlap-add and
// frequency inversion.
//
// The 36-point inverse MDCT x[i] = sum_k X[k] cos(pi/72 (2i + 19)(2k + 1)) is an
// 18-point DCT-IV y[j] = sum_k X[k] cos(pi/72 (2j + 1)(2k + 1)) unfolded:
// x[i] = y[i + 9] (i < 9), -y[26 - i] (9 <= i < 27), -y[i - 27] (i >= 27); the
// 12-point one of short blocks is a 6-point DCT-IV unfolded the same way
// (offsets 3, 8, 9). Coefficients Q31, windows Q30, products in 64 bits, each
// stage rounded once and saturated to 32 bits.
#include <immintrin.h>

#include "core/export.h"
#include "core/memory.h"
#include "mp3/mp3_fixed.h"
#include "transform/trig.h"

namespace zam::mp3 {
namespace {

constexpr int32_t q31(double v)
{
    const double s = v * 2147483648.0;
    return static_cast<int32_t>(s >= 0 ? s + 0.5 : s - 0.5);
}
constexpr int32_t q30(double v)
{
    const double s = v * 1073741824.0;
    return static_cast<int32_t>(s >= 0 ? s + 0.5 : s - 0.5);
}

constexpr double squareRoot(double x)
{
    double y = x > 1.0 ? x : 1.0;
    for (int i = 0; i < 60; ++i) y = 0.5 * (y + x / y);
    return y;
}

struct ImdctTables {
    alignas(32) int64_t cos18[18][20];  // [k][j], j padded to 20; Q31 in the low half of each lane
    int32_t cos6[6][6];                 // [k][j]
    int32_t window[4][36];              // block types 0..3, Q30; type 2: the 12-point window in 0..11
    int32_t aliasCs[8], aliasCa[8];     // Q31
};

constexpr ImdctTables makeImdctTables()
{
    ImdctTables t{};
    for (int k = 0; k < 18; ++k)
        for (int j = 0; j < 18; ++j) t.cos18[k][j] = q31(sinCosTurn((2 * j + 1) * (2 * k + 1), 144).c);
    for (int k = 0; k < 6; ++k)
        for (int j = 0; j < 6; ++j) t.cos6[k][j] = q31(sinCosTurn((2 * j + 1) * (2 * k + 1), 48).c);
    for (int i = 0; i < 36; ++i) {
        const double longWindow = sinCosTurn(2 * i + 1, 144).s;  // sin(pi/36 (i + 1/2))
        double start = 0, stop = 0;
        if (i < 18) start = longWindow;
        else if (i < 24) start = 1;
        else if (i < 30) start = sinCosTurn(2 * (i - 18) + 1, 48).s;
        if (i >= 18) stop = longWindow;
        else if (i >= 12) stop = 1;
        else if (i >= 6) stop = sinCosTurn(2 * (i - 6) + 1, 48).s;
        t.window[0][i] = q30(longWindow);
        t.window[1][i] = q30(start);
        t.window[3][i] = q30(stop);
        t.window[2][i] = i < 12 ? q30(sinCosTurn(2 * i + 1, 48).s) : 0;
    }
    // Alias-reduction coefficients c_i of ISO/IEC 11172-3, Table B.9, in ten-thousandths.
    constexpr int kC[8] = {-6000, -5350, -3300, -1850, -950, -410, -142, -37};
    for (int i = 0; i < 8; ++i) {
        const double c = kC[i] / 10000.0;
        const double n = squareRoot(1 + c * c);
        t.aliasCs[i] = q31(1 / n);
        t.aliasCa[i] = q31(c / n);
    }
    return t;
}

constexpr ImdctTables kImdct = makeImdctTables();

inline int32_t round31(int64_t acc) { return saturate32((acc + (int64_t{1} << 30)) >> 31); }
inline int32_t round30(int64_t acc) { return saturate32((acc + (int64_t{1} << 29)) >> 30); }

// Unfolds the 18-point DCT-IV into the 36 windowed samples.
inline void unfoldLong(const int32_t* y, const int32_t* w, int32_t* out)
{
    for (int i = 0; i < 9; ++i) out[i] = round30(int64_t{y[i + 9]} * w[i]);
    for (int i = 9; i < 27; ++i) out[i] = round30(-int64_t{y[26 - i]} * w[i]);
    for (int i = 27; i < 36; ++i) out[i] = round30(-int64_t{y[i - 27]} * w[i]);
}

void shortBlock(const int32_t* x, int32_t* out)
{
    int64_t z[36] = {};
    const int32_t* w = kImdct.window[2];
    for (int win = 0; win < 3; ++win) {
        int32_t y[6];
        for (int j = 0; j < 6; ++j) {
            int64_t acc = 0;
            for (int k = 0; k < 6; ++k) acc += int64_t{x[3 * k + win]} * kImdct.cos6[k][j];
            y[j] = round31(acc);
        }
        int64_t* zz = z + 6 + 6 * win;
        for (int i = 0; i < 3; ++i) zz[i] += round30(int64_t{y[i + 3]} * w[i]);
        for (int i = 3; i < 9; ++i) zz[i] += round30(-int64_t{y[8 - i]} * w[i]);
        for (int i = 9; i < 12; ++i) zz[i] += round30(-int64_t{y[i - 9]} * w[i]);
    }
    for (int i = 0; i < 36; ++i) out[i] = saturate32(z[i]);
}

void longBlockScalar(const int32_t* x, int32_t* out, int type)
{
    int32_t y[18];
    for (int j = 0; j < 18; ++j) {
        int64_t acc = 0;
        for (int k = 0; k < 18; ++k) acc += int64_t{x[k]} * static_cast<int32_t>(kImdct.cos18[k][j]);
        y[j] = round31(acc);
    }
    unfoldLong(y, kImdct.window[type], out);
}

// The DCT-IV with four outputs per vector: X[k] broadcast, coefficients in the low
// halves of 64-bit lanes, sums in 64 bits; rounding and saturation as round31.
void longBlockAvx2(const int32_t* x, int32_t* out, int type)
{
    __m256i acc[5];
    for (int v = 0; v < 5; ++v) acc[v] = _mm256_setzero_si256();
    for (int k = 0; k < 18; ++k) {
        const __m256i xk = _mm256_set1_epi32(x[k]);
        const __m256i* c = reinterpret_cast<const __m256i*>(kImdct.cos18[k]);
        for (int v = 0; v < 5; ++v) acc[v] = _mm256_add_epi64(acc[v], _mm256_mul_epi32(xk, _mm256_load_si256(c + v)));
    }
    const __m256i bias = _mm256_set1_epi64x(int64_t{1} << 30);
    const __m256i hi = _mm256_set1_epi64x((int64_t{1} << 62) - 1);  // t above: t >> 31 > INT32_MAX
    const __m256i lo = _mm256_set1_epi64x(-(int64_t{1} << 62));     // t below: t >> 31 < INT32_MIN
    alignas(32) int64_t lanes[20];
    for (int v = 0; v < 5; ++v) {
        const __m256i t = _mm256_add_epi64(acc[v], bias);
        __m256i r = _mm256_srli_epi64(t, 31);  // low halves hold t >> 31 when it fits
        r = _mm256_blendv_epi8(r, _mm256_set1_epi64x(INT32_MAX), _mm256_cmpgt_epi64(t, hi));
        r = _mm256_blendv_epi8(r, _mm256_set1_epi64x(static_cast<uint32_t>(INT32_MIN)), _mm256_cmpgt_epi64(lo, t));
        _mm256_store_si256(reinterpret_cast<__m256i*>(lanes) + v, r);
    }
    int32_t y[18];
    for (int j = 0; j < 18; ++j) y[j] = static_cast<int32_t>(lanes[j]);
    unfoldLong(y, kImdct.window[type], out);
}

template <void (*LongBlock)(const int32_t*, int32_t*, int)>
void imdctWindowWith(const int32_t* src, int32_t* dst, int count, int blockType, bool mixed)
{
    for (int sb = 0; sb < count; ++sb) {
        const int type = (mixed && sb < 2) ? 0 : blockType;
        if (type == 2) shortBlock(src + 18 * sb, dst + 36 * sb);
        else LongBlock(src + 18 * sb, dst + 36 * sb, type);
    }
}

// Alias-reduction butterflies across the subband boundaries 1..boundaries.
void aliasReduce(int32_t* x, int boundaries)
{
    for (int sb = 1; sb <= boundaries; ++sb) {
        int32_t* a = x + 18 * sb;
        for (int i = 0; i < 8; ++i) {
            const int64_t lo = a[-1 - i], hi = a[i];
            a[-1 - i] = round31(lo * kImdct.aliasCs[i] - hi * kImdct.aliasCa[i]);
            a[i] = round31(hi * kImdct.aliasCs[i] + lo * kImdct.aliasCa[i]);
        }
    }
}

inline int32_t addSat(int32_t a, int32_t b)
{
    const int64_t v = int64_t{a} + b;
    return static_cast<int32_t>(v > INT32_MAX ? INT32_MAX : (v < INT32_MIN ? INT32_MIN : v));
}
inline int32_t negSat(int32_t a) { return a == INT32_MIN ? INT32_MAX : -a; }

bool sideInfoOk(const Mp3SideInfo& s)
{
    return static_cast<uint32_t>(s.window_switching_flag) <= 1 && static_cast<uint32_t>(s.block_type) <= 3 &&
           static_cast<uint32_t>(s.mixed_block_flag) <= 1 && !(s.window_switching_flag && s.block_type == 0);
}

}  // namespace

void imdctWindowScalar(const int32_t* src, int32_t* dst, int count, int blockType, bool mixed)
{
    imdctWindowWith<longBlockScalar>(src, dst, count, blockType, mixed);
}

void imdctWindowAvx2(const int32_t* src, int32_t* dst, int count, int blockType, bool mixed)
{
    imdctWindowWith<longBlockAvx2>(src, dst, count, blockType, mixed);
}

}  // namespace zam::mp3

using namespace zam::mp3;
using zam::isAligned;

ZAM_API ZamStatus zamsMDCTInv_MP3_32s(const int32_t* pSrcXr, int32_t* pDstY, int32_t nonZeroBound,
                                      const Mp3SideInfo* pSideInfo, int32_t* pSrcDstOverlap)
{
    if (!pSrcXr || !pDstY || !pSideInfo || !pSrcDstOverlap) return zamStsNullPtr;
    if (static_cast<uint32_t>(nonZeroBound) > 576) return zamStsBadArg;
    if (!sideInfoOk(*pSideInfo)) return zamStsMp3SideInfoErr;

    const int blockType = pSideInfo->window_switching_flag ? pSideInfo->block_type : 0;
    const bool mixed = pSideInfo->window_switching_flag && pSideInfo->mixed_block_flag;
    const bool shortBlocks = blockType == 2;
    // Subbands holding non-zero lines; alias reduction reaches one subband further.
    const int used = (nonZeroBound + 17) / 18;
    int aliasBoundaries = 0;
    int active = used;
    if (!shortBlocks) {
        aliasBoundaries = used < 32 ? used : 31;
        active = used == 0 ? 0 : (used < 32 ? used + 1 : 32);
    } else if (mixed && used > 0) {
        aliasBoundaries = 1;
        active = used > 2 ? used : 2;
    }

    alignas(32) int32_t x[576];
    for (int i = 0; i < 18 * active; ++i) x[i] = pSrcXr[i];
    aliasReduce(x, aliasBoundaries);
    for (int sb = 0; sb < 32; ++sb) {
        int32_t* o = pDstY + 18 * sb;
        int32_t* ov = pSrcDstOverlap + 18 * sb;
        if (sb < active) {
            alignas(32) int32_t b[36];
            imdctWindow(x + 18 * sb, b, 1, (mixed && sb < 2) ? 0 : blockType, false);
            for (int i = 0; i < 18; ++i) {
                o[i] = addSat(b[i], ov[i]);
                ov[i] = b[18 + i];
            }
        } else {
            for (int i = 0; i < 18; ++i) {
                o[i] = ov[i];
                ov[i] = 0;
            }
        }
        if (sb & 1)
            for (int i = 1; i < 18; i += 2) o[i] = negSat(o[i]);
    }
    const bool aligned = isAligned(pSrcXr, 16) && isAligned(pDstY, 16) && isAligned(pSrcDstOverlap, 16);
    return aligned ? zamStsOk : zamStsMisalignedData;
}

ZAM_API ZamStatus zamsMDCTInvWindow_MP3_32s(const int32_t* pSrcXr, int32_t* pDst, int32_t numSubbands,
                                            int32_t blockType, int32_t mixedBlock)
{
    if (!pSrcXr || !pDst) return zamStsNullPtr;
    if (numSubbands < 1 || numSubbands > 32) return zamStsSize;
    if (static_cast<uint32_t>(blockType) > 3 || static_cast<uint32_t>(mixedBlock) > 1) return zamStsBadArg;
    imdctWindow(pSrcXr, pDst, numSubbands, blockType, mixedBlock != 0);
    return isAligned(pSrcXr, 16) && isAligned(pDst, 16) ? zamStsOk : zamStsMisalignedData;
}
