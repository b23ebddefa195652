// Long-term prediction of AAC LTP (ISO/IEC 14496-3, 4.6.6) in fixed point: the
// predicted time signal from the history, the addition of its transformed
// spectrum in the flagged bands, and the history update. The analysis filter
// bank between the first two is zamsMDCTFwd_AAC_32s (src/transform/mdct_aac.cpp).
#include <climits>
#include <cstring>

#include "aac/aac_tables.h"
#include "core/export.h"

namespace {

constexpr int32_t kLtpCoefQ14[8] = {9352, 11413, 13320, 14931, 16137, 17496, 19572, 22438};
constexpr int kMaxLtpLongBands = 40;

inline int32_t sat32(int64_t v) { return static_cast<int32_t>(v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : v); }

void addRange(const int32_t* est, int32_t* spec, int from, int to)
{
    for (int k = from; k < to; ++k) spec[k] = sat32(int64_t{spec[k]} + est[k]);
}

}  // namespace

ZAM_API ZamStatus zamsLongTermPredict_AAC_32s(const int32_t* pHistory, int32_t* pDst, int lag, int coefIndex)
{
    if (!pHistory || !pDst) return zamStsNullPtr;
    if (lag < 0 || lag > 2047 || coefIndex < 0 || coefIndex > 7) return zamStsBadArg;
    const int64_t c = kLtpCoefQ14[coefIndex];
    const int count = 1024 + lag < 2048 ? 1024 + lag : 2048;
    const int32_t* src = pHistory + 2048 - lag;
    for (int i = 0; i < count; ++i) pDst[i] = sat32((src[i] * c + (1 << 13)) >> 14);
    for (int i = count; i < 2048; ++i) pDst[i] = 0;
    return zamStsOk;
}

ZAM_API ZamStatus zamsLongTermReconstruct_AAC_32s(const int32_t* pSrcEstSpec, int32_t* pSrcDstSpec,
                                                  const AacLtpData* pLtpData, int windowSequence, int maxSfb,
                                                  uint32_t samplingRateIndex)
{
    if (!pSrcEstSpec || !pSrcDstSpec || !pLtpData) return zamStsNullPtr;
    if (static_cast<unsigned>(windowSequence) > 3) return zamStsAacWinSeqErr;
    if (maxSfb < 0 || maxSfb > 51) return zamStsAacMaxSfbErr;
    if (samplingRateIndex > 11) return zamStsAacSmplRateIdxErr;
    const bool eightShort = windowSequence == 2;
    if (maxSfb > zam::aacNumSwb(static_cast<int>(samplingRateIndex), eightShort)) return zamStsAacMaxSfbErr;
    if (!pLtpData->ltp_data_present) return zamStsOk;
    const uint16_t* offsets = zam::aacSwbOffsets(static_cast<int>(samplingRateIndex), eightShort);
    if (!eightShort) {
        const int bands = maxSfb < kMaxLtpLongBands ? maxSfb : kMaxLtpLongBands;
        for (int b = 0; b < bands; ++b)
            if (pLtpData->ltp_long_used[b + 1]) addRange(pSrcEstSpec, pSrcDstSpec, offsets[b], offsets[b + 1]);
        return zamStsOk;
    }
    for (int w = 0; w < 8; ++w)
        if (pLtpData->ltp_short_used[w])
            addRange(pSrcEstSpec + 128 * w, pSrcDstSpec + 128 * w, 0, offsets[maxSfb]);
    return zamStsOk;
}

ZAM_API ZamStatus zamsLtpUpdate_AAC_32s(const int32_t* pOutput, const int32_t* pOverlap, int32_t* pHistory)
{
    if (!pOutput || !pOverlap || !pHistory) return zamStsNullPtr;
    std::memmove(pHistory, pHistory + 1024, 1024 * sizeof(int32_t));
    std::memcpy(pHistory + 1024, pOutput, 1024 * sizeof(int32_t));
    std::memcpy(pHistory + 2048, pOverlap, 1024 * sizeof(int32_t));
    return zamStsOk;
}
