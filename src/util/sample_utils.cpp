// Channel interleaving and sample conversion at the edges of a codec.
#include <immintrin.h>

#include "core/export.h"
#include "core/memory.h"
#include "util/sample_kernels.h"

namespace {

using namespace zam::util;

inline bool misaligned16(const void* p) { return !zam::isAligned(p, 16); }

// Checks shared by interleave and deinterleave, after the two null tests: the
// channel count, the length, then each channel pointer in order. `misaligned` is
// set when a channel pointer is not 16-byte aligned.
template <typename ChannelPtr>
ZamStatus checkChannels(ChannelPtr const* channelPtrs, int channels, int len, bool& misaligned)
{
    if (channels < 1) return zamStsNumChannels;
    if (len < 1) return zamStsSize;
    for (int c = 0; c < channels; ++c) {
        if (!channelPtrs[c]) return zamStsNullPtr;
        misaligned |= misaligned16(channelPtrs[c]);
    }
    return zamStsOk;
}

template <typename T>
ZamStatus interleave(const T* const* src, int channels, int len, T* dst,
                     void (*pair)(const T*, const T*, int, T*), void (*any)(const T* const*, int, int, T*))
{
    if (!dst || !src) return zamStsNullPtr;
    bool misaligned = misaligned16(dst);
    if (ZamStatus st = checkChannels(src, channels, len, misaligned); st != zamStsOk) return st;
    if (channels == 2)
        pair(src[0], src[1], len, dst);
    else
        any(src, channels, len, dst);
    return misaligned ? zamStsMisalignedData : zamStsOk;
}

template <typename T>
ZamStatus deinterleave(const T* src, int channels, int len, T* const* dst, void (*pair)(const T*, int, T*, T*))
{
    if (!src || !dst) return zamStsNullPtr;
    bool misaligned = misaligned16(src);
    if (ZamStatus st = checkChannels(dst, channels, len, misaligned); st != zamStsOk) return st;
    if (channels == 2) {
        pair(src, len, dst[0], dst[1]);
    } else {
        for (int c = 0; c < channels; ++c) {
            T* d = dst[c];
            for (int i = 0; i < len; ++i) d[i] = src[i * channels + c];
        }
    }
    return misaligned ? zamStsMisalignedData : zamStsOk;
}

// Forces round-to-nearest-even in the vector unit for its lifetime and then gives
// the caller's control word back.
class RoundToNearest {
public:
    RoundToNearest() : saved_(_mm_getcsr()) { _mm_setcsr(saved_ & ~kRoundingBits); }
    ~RoundToNearest() { _mm_setcsr(saved_); }
    RoundToNearest(const RoundToNearest&) = delete;
    RoundToNearest& operator=(const RoundToNearest&) = delete;

private:
    static constexpr unsigned kRoundingBits = 0x6000;
    unsigned saved_;
};

}  // namespace

ZAM_API ZamStatus zamsInterleave_16s(const int16_t** ppSrc, int channels, int len, int16_t* pDst)
{
    return interleave<int16_t>(ppSrc, channels, len, pDst, interleave2_16s_avx2, interleaveN_16s_avx2);
}

ZAM_API ZamStatus zamsInterleave_32f(const float** ppSrc, int channels, int len, float* pDst)
{
    return interleave<float>(ppSrc, channels, len, pDst, interleave2_32f_avx2, interleaveN_32f_avx2);
}

ZAM_API ZamStatus zamsDeinterleave_16s(const int16_t* pSrc, int channels, int len, int16_t** ppDst)
{
    return deinterleave<int16_t>(pSrc, channels, len, ppDst, deinterleave2_16s_avx2);
}

ZAM_API ZamStatus zamsDeinterleave_32f(const float* pSrc, int channels, int len, float** ppDst)
{
    return deinterleave<float>(pSrc, channels, len, ppDst, deinterleave2_32f_avx2);
}

ZAM_API ZamStatus zamsJoin_32f16s_D2L(const float** ppSrc, int channels, int len, int16_t* pDst)
{
    if (!pDst) return zamStsNullPtr;
    if (channels < 1 || len < 1) return zamStsBadArg;
    if (!ppSrc) return zamStsNullPtr;
    for (int c = 0; c < channels; ++c)
        if (!ppSrc[c]) return zamStsNullPtr;
    RoundToNearest rounding;
    join_32f16s_avx2(ppSrc, channels, len, pDst);
    return zamStsOk;
}

ZAM_API ZamStatus zamsMakeFloat_16s32f(const int16_t* pSrcMant, const int16_t* pSrcExp, int len, float* pDst)
{
    if (!pSrcMant || !pSrcExp || !pDst) return zamStsNullPtr;
    if (len < 1) return zamStsSize;
    makeFloat_avx2(pSrcMant, pSrcExp, len, pDst);
    const bool misaligned = misaligned16(pSrcMant) || misaligned16(pSrcExp) || misaligned16(pDst);
    return misaligned ? zamStsMisalignedData : zamStsOk;
}

ZAM_API ZamStatus zamsScale_32f_I(float* pSrcDst, const float* pScale, const int* pBandOffset, int numBands)
{
    if (!pSrcDst || !pScale || !pBandOffset) return zamStsNullPtr;
    if (numBands < 1) return zamStsSize;
    for (int b = 0; b < numBands; ++b) {
        const int start = pBandOffset[b];
        const int end = pBandOffset[b + 1];
        if (end > start) scaleBand_avx2(pSrcDst + start, pScale[b], end - start);
    }
    return zamStsOk;
}
