// Frequency-domain prediction of AAC Main (ISO/IEC 13818-7, 12.x "prediction"):
// one backward-adaptive second-order lattice LMS predictor per spectral line of
// the long window. Its stored values are floats cut to 16-bit mantissas so that
// encoder and decoder stay bit-identical on any platform.
#include <cstring>

#include "core/export.h"
#include "core/memory.h"

namespace {

using namespace zam;

constexpr float kAlpha = 0.90625f;  // 29/32
constexpr float kA = 0.953125f;     // 61/64
constexpr int kMaxLines = 1024;
constexpr int kMaxBands = 64;

// Record at the first 16-byte boundary of the object; six float arrays follow,
// each rounded up to 16 bytes.
struct FdpHeader {
    uint32_t tag;        // 59; 0 after Free
    int32_t ownsMemory;  // 1 when made by InitAlloc
    int32_t length;      // predicted lines
    int32_t stride;      // floats per array
};
static_assert(sizeof(FdpHeader) == 16);

enum { kR0, kR1, kCor0, kCor1, kVar0, kVar1, kArrays };

inline float* arrays(FdpHeader* h) { return reinterpret_cast<float*>(h + 1); }

inline uint32_t bitsOf(float f)
{
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}
inline float fromBits(uint32_t u)
{
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}
// The three 16-bit-mantissa roundings: stored state values are truncated, the
// prediction is rounded half away from zero, a / VAR is rounded half to even.
inline float trunc16(float f) { return fromBits(bitsOf(f) & 0xFFFF0000u); }
inline float round16(float f) { return fromBits((bitsOf(f) + 0x8000u) & 0xFFFF0000u); }
inline float even16(float f)
{
    const uint32_t u = bitsOf(f);
    return fromBits((u + 0x7FFFu + ((u >> 16) & 1u)) & 0xFFFF0000u);
}

void resetLines(FdpHeader* h, int start, int step)
{
    float* a = arrays(h);
    const int s = h->stride;
    for (int k = start; k < h->length; k += step) {
        a[kR0 * s + k] = a[kR1 * s + k] = a[kCor0 * s + k] = a[kCor1 * s + k] = 0.0f;
        a[kVar0 * s + k] = a[kVar1 * s + k] = 1.0f;
    }
}

int strideFor(int len) { return (len + 3) & ~3; }

FdpHeader* locate(void* p) { return findHeader<FdpHeader>(p, kTagFdp); }

// Band table checks shared by the filtering and band-reset calls: count, then
// ascending offsets within the long window.
ZamStatus checkBands(const int32_t* offsets, int sfbCount)
{
    if (sfbCount < 0 || sfbCount > kMaxBands) return zamStsSize;
    if (offsets[0] < 0) return zamStsBadArg;
    for (int b = 0; b < sfbCount; ++b)
        if (offsets[b + 1] < offsets[b] || offsets[b + 1] > kMaxLines) return zamStsBadArg;
    return zamStsOk;
}

// One predictor step on line k: the prediction, the output (x plus the
// prediction for the decoder, x minus it for the encoder) and the update with
// the reconstructed value.
template <bool Encoder>
inline float step(float* a, int s, int k, float x, bool used)
{
    const float r0 = a[kR0 * s + k], r1 = a[kR1 * s + k];
    const float cor0 = a[kCor0 * s + k], cor1 = a[kCor1 * s + k];
    const float var0 = a[kVar0 * s + k], var1 = a[kVar1 * s + k];
    const float k1 = var0 > 1.0f ? cor0 * even16(kA / var0) : 0.0f;
    const float k2 = var1 > 1.0f ? cor1 * even16(kA / var1) : 0.0f;
    const float pv = round16(k1 * r0 + k2 * r1);
    float out = x, e0 = x;
    if (used) {
        if (Encoder) {
            out = x - pv;
            e0 = out + pv;  // what the decoder will reconstruct
        } else {
            out = e0 = x + pv;
        }
    }
    const float e1 = e0 - k1 * r0;
    a[kCor1 * s + k] = trunc16(kAlpha * cor1 + r1 * e1);
    a[kVar1 * s + k] = trunc16(kAlpha * var1 + 0.5f * (r1 * r1 + e1 * e1));
    a[kCor0 * s + k] = trunc16(kAlpha * cor0 + r0 * e0);
    a[kVar0 * s + k] = trunc16(kAlpha * var0 + 0.5f * (r0 * r0 + e0 * e0));
    a[kR1 * s + k] = trunc16(kA * (r0 - k1 * e0));
    a[kR0 * s + k] = trunc16(kA * e0);
    return out;
}

template <bool Encoder>
ZamStatus run(const float* src, float* dst, const int32_t* offsets, const uint8_t* used, int sfbCount, void* state)
{
    if (!src || !dst || !offsets || !used || !state) return zamStsNullPtr;
    FdpHeader* h = locate(state);
    if (!h) return zamStsContextMismatch;
    if (ZamStatus st = checkBands(offsets, sfbCount); st != zamStsOk) return st;
    float* a = arrays(h);
    const int s = h->stride, len = h->length;
    // Per line: the band flag (lines outside every band are not predicted).
    uint8_t lineUsed[kMaxLines] = {};
    for (int b = 0; b < sfbCount; ++b)
        if (used[b]) std::memset(lineUsed + offsets[b], 1, offsets[b + 1] - offsets[b]);
    for (int k = 0; k < len; ++k) dst[k] = step<Encoder>(a, s, k, src[k], lineUsed[k] != 0);
    if (Encoder && dst != src) std::memcpy(dst + len, src + len, sizeof(float) * (kMaxLines - len));
    return zamStsOk;
}

}  // namespace

ZAM_API ZamStatus zamsFDPGetSize_32f(int len, int* pSize)
{
    if (!pSize) return zamStsNullPtr;
    if (len < 1 || len > kMaxLines) return zamStsSize;
    *pSize = static_cast<int>(sizeof(FdpHeader)) + kArrays * 4 * strideFor(len) + kStateSlack;
    return zamStsOk;
}

ZAM_API ZamStatus zamsFDPInit_32f(int len, FdpState_32f** ppState, uint8_t* pMem)
{
    if (!ppState || !pMem) return zamStsNullPtr;
    if (len < 1 || len > kMaxLines) return zamStsSize;
    FdpHeader* h = alignUp<FdpHeader>(pMem, kStateAlign);
    h->tag = kTagFdp;
    h->ownsMemory = kCallerMemory;
    h->length = len;
    h->stride = strideFor(len);
    std::memset(arrays(h), 0, sizeof(float) * kArrays * h->stride);
    resetLines(h, 0, 1);
    *ppState = reinterpret_cast<FdpState_32f*>(h);
    return zamStsOk;
}

ZAM_API ZamStatus zamsFDPInitAlloc_32f(int len, FdpState_32f** ppState)
{
    if (!ppState) return zamStsNullPtr;
    int size = 0;
    if (ZamStatus st = zamsFDPGetSize_32f(len, &size); st != zamStsOk) return st;
    auto* mem = static_cast<uint8_t*>(allocBytes(size));
    if (!mem) return zamStsMemAlloc;
    FdpState_32f* aligned = nullptr;
    zamsFDPInit_32f(len, &aligned, mem);
    reinterpret_cast<FdpHeader*>(aligned)->ownsMemory = kOwnedByLibrary;
    *ppState = reinterpret_cast<FdpState_32f*>(mem);
    return zamStsOk;
}

ZAM_API ZamStatus zamsFDPFree_32f(FdpState_32f* pState)
{
    if (!pState) return zamStsNullPtr;
    FdpHeader* h = locate(pState);
    if (!h) return zamStsContextMismatch;
    h->tag = 0;
    if (h->ownsMemory == kOwnedByLibrary) release(pState);
    return zamStsOk;
}

ZAM_API ZamStatus zamsFDPReset_32f(FdpState_32f* pState)
{
    if (!pState) return zamStsNullPtr;
    FdpHeader* h = locate(pState);
    if (!h) return zamStsContextMismatch;
    resetLines(h, 0, 1);
    return zamStsOk;
}

ZAM_API ZamStatus zamsFDPResetSfb_32f(const int32_t* pSfbOffset, const uint8_t* pResetFlag, int sfbCount,
                                      FdpState_32f* pState)
{
    if (!pSfbOffset || !pResetFlag || !pState) return zamStsNullPtr;
    FdpHeader* h = locate(pState);
    if (!h) return zamStsContextMismatch;
    if (ZamStatus st = checkBands(pSfbOffset, sfbCount); st != zamStsOk) return st;
    float* a = arrays(h);
    const int s = h->stride;
    for (int b = 0; b < sfbCount; ++b) {
        if (!pResetFlag[b]) continue;
        const int end = pSfbOffset[b + 1] < h->length ? pSfbOffset[b + 1] : h->length;
        for (int k = pSfbOffset[b]; k < end; ++k) {
            a[kR0 * s + k] = a[kR1 * s + k] = a[kCor0 * s + k] = a[kCor1 * s + k] = 0.0f;
            a[kVar0 * s + k] = a[kVar1 * s + k] = 1.0f;
        }
    }
    return zamStsOk;
}

ZAM_API ZamStatus zamsFDPResetGroup_32f(int start, int step, FdpState_32f* pState)
{
    if (!pState) return zamStsNullPtr;
    if (start < 0) return zamStsSize;
    if (step < 1) return zamStsStep;
    FdpHeader* h = locate(pState);
    if (!h) return zamStsContextMismatch;
    resetLines(h, start, step);
    return zamStsOk;
}

ZAM_API ZamStatus zamsFDPFwd_32f(const float* pSrc, float* pDst, const int32_t* pSfbOffset, const uint8_t* pPredUsed,
                                 int sfbCount, FdpState_32f* pState)
{
    return run<true>(pSrc, pDst, pSfbOffset, pPredUsed, sfbCount, pState);
}

ZAM_API ZamStatus zamsFDPInv_32f_I(float* pSrcDst, const int32_t* pSfbOffset, const uint8_t* pPredUsed, int sfbCount,
                                   FdpState_32f* pState)
{
    return run<false>(pSrcDst, pSrcDst, pSfbOffset, pPredUsed, sfbCount, pState);
}
