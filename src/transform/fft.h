// The internal transform engine: complex FFT of 2^order points (interleaved or
// split real/imaginary data), DCT of any length, and the memory primitives every
// family uses. No caller sees these directly; the MDCT and filter-bank families
// embed the objects in their own spec memory.
#pragma once

#include <cstdint>

#include "zamac.h"

namespace zam {

// Scaling modes of the FFT.
enum FftFlag : int32_t {
    kFftScaleFwdByN = 1,
    kFftScaleInvByN = 2,
    kFftScaleBySqrtN = 4,
    kFftNoScale = 8,
};

constexpr uint32_t kTagFftInterleaved = 4;
constexpr uint32_t kTagFftSplit = 5;
constexpr uint32_t kTagDct = 22;

constexpr int kFftMaxOrder = 28;
// Orders up to this one run the in-cache radix path; above it the large path.
constexpr int kFftRadixMaxOrder = 18;
// The large path transforms blocks of 2^kFftBlockOrder points while they fit the
// cache, then combines them with whole-array passes.
constexpr int kFftBlockOrder = 16;

// The record sits at a 64-byte boundary in its owner's memory. The bit-reversal
// table starts directly behind it (the record is padded to 64 bytes).
struct alignas(64) FftSpec {
    uint32_t tag;           // 4 interleaved, 5 split, 0 after a failed init
    int32_t order;          // log2 N, 0..28
    int32_t scaleFwd;       // 1: forward result is multiplied by scale
    int32_t scaleInv;       // 1: inverse result is multiplied by scale
    float scale;            // 1/N or 1/sqrt(N)
    int32_t hint;           // stored, unused
    int32_t workSize;       // bytes of scratch one transform needs
    int32_t reserved;       // 0
    uint32_t* bitReverse;   // radix path: (order-2)-bit reversal of the N/4 group indices
    float* twiddles;        // per-stage twiddles; the large path keeps the stage tables of
                            // the block order followed by two short tables whose products
                            // give every W_N^k (see fft.cpp)
};
static_assert(sizeof(FftSpec) == 64);

// Bytes the init routine clears before setting any field.
constexpr int kFftClearBytes = 136;

struct FftSizes {
    int spec;
    int init;
    int work;
};

// Which kernel set a transform uses: the AVX2 one, or its plain scalar twin
// (kept callable so that tests can compare the two).
enum class Kernels { Avx2, Scalar };

ZamStatus fftGetSize(int order, int flag, int hint, int* pSpecSize, int* pInitSize, int* pWorkSize);
ZamStatus fftInit(FftSpec** ppSpec, int order, int flag, int hint, uint8_t* pMemSpec, uint8_t* pMemInit);
ZamStatus fftInitSplit(FftSpec** ppSpec, int order, int flag, int hint, uint8_t* pMemSpec, uint8_t* pMemInit);
// Allocating initialiser and release, for owners that keep the FFT as an
// allocation of its own. The object is the start of its allocation.
ZamStatus fftInitAlloc(FftSpec** ppSpec, int order, int flag, int hint);
ZamStatus fftFree(FftSpec* pSpec);

// Forward transform, exp(-2*pi*i*n*k/N); src may equal dst. pWork may be null
// (then a buffer is allocated for the call).
ZamStatus fftFwd(const float* pSrc, float* pDst, const FftSpec* pSpec, uint8_t* pWork,
                 Kernels kernels = Kernels::Avx2);
ZamStatus fftFwdSplit(const float* pSrcRe, const float* pSrcIm, float* pDstRe, float* pDstIm,
                      const FftSpec* pSpec, uint8_t* pWork, Kernels kernels = Kernels::Avx2);
// Inverse transform, exp(+2*pi*i*n*k/N), scaled as the flag says.
ZamStatus fftInv(const float* pSrc, float* pDst, const FftSpec* pSpec, uint8_t* pWork,
                 Kernels kernels = Kernels::Avx2);

// DCT of any length N >= 1, orthonormal type III (the inverse of the orthonormal
// type II): y[n] = s0*x[0] + s1 * sum_{k>=1} x[k]*cos(pi*k*(2n+1)/(2N)),
// s0 = 1/sqrt(N), s1 = sqrt(2/N).
struct DctSpec {
    uint32_t tag;        // 22
    int32_t length;      // N
    int32_t hint;
    int32_t workSize;
    int32_t reserved;
    float s0;
    float s1;
    int32_t smallKernel;  // N a power of two <= 8
    int32_t fftPath;      // N a power of two > 8
    int32_t generalPath;  // N not a power of two, >= 36
    float* table;         // matrix path: N x N cosines; FFT and general paths: complex tables
    FftSpec* fft;         // FFT and general paths
    float* chirpSpectrum; // general path: transform of the conjugate chirp
    int32_t convOrder;    // general path: log2 of the convolution length
};
static_assert(sizeof(DctSpec) <= 96);
constexpr int kDctClearBytes = 96;

ZamStatus dctGetSize(int length, int hint, int* pSpecSize, int* pInitSize, int* pWorkSize);
ZamStatus dctInit(DctSpec** ppSpec, int length, int hint, uint8_t* pMemSpec, uint8_t* pMemInit);
ZamStatus dctApply(const float* pSrc, float* pDst, const DctSpec* pSpec, uint8_t* pWork);

// Memory primitives.
ZamStatus zeroFillBytes(void* p, int byteCount);
ZamStatus zeroFillFloats(float* p, int count);
ZamStatus copyBytes(const void* src, void* dst, int byteCount);
ZamStatus copyFloats(const float* src, float* dst, int count);
float* allocFloats(int count);

// Double-precision reciprocal square root as the init routines compute it: an
// estimate refined by one Newton step.
float rsqrtNewton(float x);

}  // namespace zam
