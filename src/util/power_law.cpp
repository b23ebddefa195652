// The exported power-law, scale-factor and spreading kernels: argument checks, then
// the AVX2 path of each kernel (util/power_kernels.h holds the scalar twins).
#include "core/export.h"
#include "core/memory.h"
#include "util/power_kernels.h"

namespace {

inline bool aligned16(const void* a, const void* b) { return zam::isAligned(a, 16) && zam::isAligned(b, 16); }

constexpr int kMaxSfOffset = 65536;

}  // namespace

ZAM_API ZamStatus zamsPow34_32f(const float* pSrc, float* pDst, int len)
{
    if (!pSrc || !pDst) return zamStsNullPtr;
    if (len < 1) return zamStsSize;
    zam::util::pow34_32f_avx2(pSrc, pDst, len);
    return aligned16(pSrc, pDst) ? zamStsOk : zamStsMisalignedData;
}

ZAM_API ZamStatus zamsPow34_32f16s(const float* pSrc, int16_t* pDst, int len)
{
    if (!pSrc || !pDst) return zamStsNullPtr;
    if (len < 1) return zamStsSize;
    zam::util::pow34_32f16s_avx2(pSrc, pDst, len);
    return aligned16(pSrc, pDst) ? zamStsOk : zamStsMisalignedData;
}

ZAM_API ZamStatus zamsPow34_16s_Sfs(const int16_t* pSrc, int16_t* pDst, int len, int scaleFactor)
{
    if (!pSrc || !pDst) return zamStsNullPtr;
    if (len < 1) return zamStsSize;
    zam::util::pow34_16s_avx2(pSrc, pDst, len, scaleFactor);
    return zamStsOk;
}

ZAM_API ZamStatus zamsPow43Scale_16s32s_Sf(const int16_t* pSrc, int32_t* pDst, int len, int gain, int scaleFactor)
{
    if (!pSrc || !pDst) return zamStsNullPtr;
    if (len < 1) return zamStsSize;
    zam::util::pow43Scale_avx2(pSrc, pDst, len, gain, scaleFactor);
    return zamStsOk;
}

ZAM_API ZamStatus zamsCalcSF_16s32f(const int16_t* pSrc, float* pDst, int len, int offset)
{
    if (!pSrc || !pDst) return zamStsNullPtr;
    if (len < 1) return zamStsSize;
    if (offset < -kMaxSfOffset || offset > kMaxSfOffset) return zamStsBadArg;
    zam::util::calcSF_avx2(pSrc, pDst, len, offset);
    return zamStsOk;
}

ZAM_API ZamStatus zamsSpread_16s_Sfs(const int16_t* pSrc, int16_t* pDst, int len, int scaleFactor)
{
    if (!pSrc || !pDst) return zamStsNullPtr;
    if (len < 1) return zamStsSize;
    zam::util::spread_avx2(pSrc, pDst, len, scaleFactor);
    return zamStsOk;
}
