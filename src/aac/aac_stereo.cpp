// AAC mid/side and intensity stereo on the grouped, band-interleaved spectrum.
#include <immintrin.h>

#include "aac/aac_quant.h"
#include "aac/aac_stereo.h"
#include "core/export.h"

namespace zam {

namespace {

// 0.5^(p/4) / 2 in Q31 for p = -3..7.
constexpr int32_t kIntensityMid[11] = {1805811301, 1518500250, 1276901417, 1073741824, 902905651, 759250125,
                                       638450708,  536870912,  451452825,  379625062,  319225354};
// 0.5^(p/4) / 2 for p = 0..3, the fraction of the positions from 8 upwards.
constexpr int32_t kIntensityHigh[4] = {1073741824, 902905651, 759250125, 638450708};
// 2^(j/4) / 2 for j = 0..3, reversed: the fraction of the positions below -3.
constexpr int32_t kIntensityLow[4] = {1805811301, 1518500250, 1276901417, 1073741824};

inline int32_t mulHigh(int32_t a, int32_t b) { return static_cast<int32_t>((static_cast<int64_t>(a) * b) >> 32); }

inline int32_t shiftLeftWrap(int32_t v, int count)
{
    // The shift count is taken modulo 32, as the 32-bit shift instructions do.
    return static_cast<int32_t>(static_cast<uint32_t>(v) << (count & 31));
}

inline bool isIntensityBook(uint8_t cb) { return cb == 14 || cb == 15; }

}  // namespace

void aacMsButterflyScalar(int32_t* left, int32_t* right, int n)
{
    for (int i = 0; i < n; ++i) {
        uint32_t l = static_cast<uint32_t>(left[i]);
        uint32_t r = static_cast<uint32_t>(right[i]);
        left[i] = static_cast<int32_t>(l + r);
        right[i] = static_cast<int32_t>(l - r);
    }
}

void aacMsButterflyAvx2(int32_t* left, int32_t* right, int n)
{
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        __m256i l = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(left + i));
        __m256i r = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(right + i));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(left + i), _mm256_add_epi32(l, r));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(right + i), _mm256_sub_epi32(l, r));
    }
    if (i + 4 <= n) {
        __m128i l = _mm_loadu_si128(reinterpret_cast<const __m128i*>(left + i));
        __m128i r = _mm_loadu_si128(reinterpret_cast<const __m128i*>(right + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(left + i), _mm_add_epi32(l, r));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(right + i), _mm_sub_epi32(l, r));
        i += 4;
    }
    aacMsButterflyScalar(left + i, right + i, n - i);
}

int32_t aacIntensityScale(int32_t left, int p)
{
    if (p >= -3 && p <= 7) return mulHigh(shiftLeftWrap(left, 2), kIntensityMid[p + 3]);
    if (p >= 8) {
        int shift = (p >> 2) - 2;
        return mulHigh(left, kIntensityHigh[p & 3]) >> (shift > 31 ? 31 : shift);
    }
    int t = 128 - p;
    return mulHigh(shiftLeftWrap(left, (t >> 2) + 2), kIntensityLow[3 - (t & 3)]);
}

}  // namespace zam

using namespace zam;

ZAM_API ZamStatus zamsDecodeMsStereo_AAC_32s_I(int32_t* pSrcDstL, int32_t* pSrcDstR, int32_t msMaskPresent,
                                               const uint8_t* pMsUsed, uint8_t* pSfbCb, int32_t numWinGrp,
                                               const int32_t* pWinGrpLen, int32_t maxSfb,
                                               int32_t samplingRateIndex, int32_t winLen)
{
    if (!pSrcDstL || !pSrcDstR || !pMsUsed || !pSfbCb || !pWinGrpLen) return zamStsNullPtr;
    if (winLen != kAacFrameLength && winLen != kAacShortWindowLength) return zamStsAacWinLenErr;
    if (winLen == kAacFrameLength ? numWinGrp != 1 : (numWinGrp < 1 || numWinGrp > 8))
        return zamStsAacNumWinGrpErr;
    if (maxSfb < 0 || maxSfb > 51) return zamStsAacMaxSfbErr;
    if (static_cast<uint32_t>(samplingRateIndex) > 11) return zamStsAacSmplRateIdxErr;
    if (msMaskPresent != 1 && msMaskPresent != 2) return zamStsAacMsMaskErr;
    const bool eightShort = winLen == kAacShortWindowLength;
    if (maxSfb > aacNumSwb(samplingRateIndex, eightShort)) return zamStsAacMaxSfbErr;

    const uint16_t* offsets = aacSwbOffsets(samplingRateIndex, eightShort);
    const AacGroupLengths groups = aacGroupLengths(numWinGrp, pWinGrpLen, winLen);
    aacForEachGroupedBand(groups, offsets, maxSfb, winLen, [&](int g, int b, int band, int start, int width) {
        const uint8_t cb = pSfbCb[band];
        const bool used = pMsUsed[g * 60 + b] != 0;
        if (isIntensityBook(cb)) {
            // The M/S sign of an intensity band reaches the intensity tool this way.
            if (msMaskPresent == 1 && used) pSfbCb[band] = cb == 14 ? 15 : 14;
        } else if ((msMaskPresent == 2 || used) && cb != 13) {
            aacMsButterflyAvx2(pSrcDstL + start, pSrcDstR + start, width);
        }
    });
    return zamStsOk;
}

ZAM_API ZamStatus zamsDecodeIsStereo_AAC_32s(const int32_t* pSrcL, int32_t* pDstR, const int16_t* pScaleFactor,
                                             const uint8_t* pSfbCb, int32_t numWinGrp, const int32_t* pWinGrpLen,
                                             int32_t maxSfb, int32_t samplingRateIndex, int32_t winLen)
{
    if (!pSrcL || !pDstR || !pScaleFactor || !pSfbCb || !pWinGrpLen) return zamStsNullPtr;
    ZamStatus st = aacCheckBandWalkArgs(numWinGrp, maxSfb, static_cast<uint32_t>(samplingRateIndex), winLen);
    if (st != zamStsOk) return st;

    const bool eightShort = winLen == kAacShortWindowLength;
    const uint16_t* offsets = aacSwbOffsets(samplingRateIndex, eightShort);
    const AacGroupLengths groups = aacGroupLengths(numWinGrp, pWinGrpLen, winLen);
    aacForEachGroupedBand(groups, offsets, maxSfb, winLen, [&](int, int, int band, int start, int width) {
        const uint8_t cb = pSfbCb[band];
        if (!isIntensityBook(cb)) return;
        const int position = pScaleFactor[band];
        for (int i = start; i < start + width; ++i) {
            int32_t v = aacIntensityScale(pSrcL[i], position);
            pDstR[i] = cb == 15 ? v : static_cast<int32_t>(0u - static_cast<uint32_t>(v));
        }
    });
    return zamStsOk;
}
