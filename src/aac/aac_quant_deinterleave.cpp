// Reorders an eight-short-window spectrum from the bit stream's grouped,
// band-interleaved order (band by band, each band holding its group's windows one
// after the other) into eight consecutive windows of 128 coefficients.
#include <cstring>

#include "aac/aac_quant.h"
#include "core/export.h"

using namespace zam;

ZAM_API ZamStatus zamsDeinterleaveSpectrum_AAC_32s(const int32_t* pSrc, int32_t* pDst, int32_t numWinGrp,
                                                   const int32_t* pWinGrpLen, int32_t maxSfb,
                                                   int32_t samplingRateIndex, int32_t winLen)
{
    if (!pSrc || !pDst || !pWinGrpLen) return zamStsNullPtr;
    if (winLen != kAacShortWindowLength) return zamStsAacWinLenErr;
    if (numWinGrp < 1 || numWinGrp > 8) return zamStsAacNumWinGrpErr;
    if (maxSfb < 0 || maxSfb > 51) return zamStsAacMaxSfbErr;
    if (static_cast<uint32_t>(samplingRateIndex) > 11) return zamStsAacSmplRateIdxErr;
    if (maxSfb > aacNumSwb(samplingRateIndex, true)) return zamStsAacMaxSfbErr;

    const uint16_t* offsets = aacSwbOffsets(samplingRateIndex, true);
    const AacGroupLengths groups = aacGroupLengths(numWinGrp, pWinGrpLen, winLen);
    const int top = offsets[maxSfb];
    for (int g = 0; g < groups.count; ++g) {
        const int len = groups.length[g];
        const int32_t* src = pSrc;
        for (int b = 0; b < maxSfb; ++b) {
            const int width = offsets[b + 1] - offsets[b];
            for (int j = 0; j < len; ++j) {
                std::memcpy(pDst + j * kAacShortWindowLength + offsets[b], src, sizeof(int32_t) * width);
                src += width;
            }
        }
        for (int j = 0; j < len; ++j)
            std::memset(pDst + j * kAacShortWindowLength + top, 0, sizeof(int32_t) * (kAacShortWindowLength - top));
        pSrc += len * kAacShortWindowLength;
        pDst += len * kAacShortWindowLength;
    }
    return zamStsOk;
}
