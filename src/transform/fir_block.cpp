// Block FIR filter: out[i] = sum_j taps[j] * (block passed j calls ago)[i], with
// the last numTaps blocks kept in a ring of rows.
#include "transform/fir_block.h"

#include <immintrin.h>

#include <climits>
#include <cmath>
#include <cstring>

#include "core/export.h"
#include "core/memory.h"
#include "transform/fft.h"

namespace zam {

void firAccumulateScalar(float* dst, const float* const* rows, const float* weights, int count, int len,
                         bool continueSums)
{
    for (int i = 0; i < len; ++i) {
        int j = 0;
        float a = continueSums ? dst[i] : (j = 1, weights[0] * rows[0][i]);
        for (; j < count; ++j) a = std::fma(weights[j], rows[j][i], a);
        dst[i] = a;
    }
}

// Same operations per element as the scalar twin; a run of 32 outputs stays in
// registers across all taps of the batch.
void firAccumulateAvx2(float* dst, const float* const* rows, const float* weights, int count, int len,
                       bool continueSums)
{
    const int j0 = continueSums ? 0 : 1;
    int i = 0;
    for (; i + 32 <= len; i += 32) {
        __m256 a0, a1, a2, a3;
        if (continueSums) {
            a0 = _mm256_loadu_ps(dst + i);
            a1 = _mm256_loadu_ps(dst + i + 8);
            a2 = _mm256_loadu_ps(dst + i + 16);
            a3 = _mm256_loadu_ps(dst + i + 24);
        } else {
            __m256 w = _mm256_broadcast_ss(weights);
            a0 = _mm256_mul_ps(w, _mm256_loadu_ps(rows[0] + i));
            a1 = _mm256_mul_ps(w, _mm256_loadu_ps(rows[0] + i + 8));
            a2 = _mm256_mul_ps(w, _mm256_loadu_ps(rows[0] + i + 16));
            a3 = _mm256_mul_ps(w, _mm256_loadu_ps(rows[0] + i + 24));
        }
        for (int j = j0; j < count; ++j) {
            __m256 w = _mm256_broadcast_ss(weights + j);
            const float* r = rows[j] + i;
            a0 = _mm256_fmadd_ps(w, _mm256_loadu_ps(r), a0);
            a1 = _mm256_fmadd_ps(w, _mm256_loadu_ps(r + 8), a1);
            a2 = _mm256_fmadd_ps(w, _mm256_loadu_ps(r + 16), a2);
            a3 = _mm256_fmadd_ps(w, _mm256_loadu_ps(r + 24), a3);
        }
        _mm256_storeu_ps(dst + i, a0);
        _mm256_storeu_ps(dst + i + 8, a1);
        _mm256_storeu_ps(dst + i + 16, a2);
        _mm256_storeu_ps(dst + i + 24, a3);
    }
    for (; i + 8 <= len; i += 8) {
        __m256 a = continueSums ? _mm256_loadu_ps(dst + i)
                                : _mm256_mul_ps(_mm256_broadcast_ss(weights), _mm256_loadu_ps(rows[0] + i));
        for (int j = j0; j < count; ++j)
            a = _mm256_fmadd_ps(_mm256_broadcast_ss(weights + j), _mm256_loadu_ps(rows[j] + i), a);
        _mm256_storeu_ps(dst + i, a);
    }
    for (; i < len; ++i) {
        float a = continueSums ? dst[i] : weights[0] * rows[0][i];
        for (int j = j0; j < count; ++j) a = std::fma(weights[j], rows[j][i], a);
        dst[i] = a;
    }
}

namespace {

FirBlockState* asState(void* p) { return static_cast<FirBlockState*>(p); }

}  // namespace

}  // namespace zam

using zam::FirBlockState;

ZAM_API ZamStatus zamsFIRBlockInitAlloc_32f(FirBlockState_32f** ppState, int numTaps, int len)
{
    if (!ppState) return zamStsNullPtr;
    if (numTaps < 1 || len < 1) return zamStsFirLength;
    auto* s = static_cast<FirBlockState*>(zam::allocBytes(sizeof(FirBlockState)));
    if (!s) return zamStsMemAlloc;
    s->numTaps = static_cast<int16_t>(numTaps);
    s->len = static_cast<int16_t>(len);
    // Rounded in 16 bits: a len above 32767 keeps its unsigned 16-bit stride for
    // the allocation but reads back negative in the filtering call.
    const uint16_t stride = static_cast<uint16_t>((static_cast<uint16_t>(len) + 3) & ~3);
    s->stride = static_cast<int16_t>(stride);
    s->tag = zam::kTagFirBlock;
    const int64_t count = int64_t{stride} * numTaps;
    float* history = count > INT_MAX / 4 ? nullptr : static_cast<float*>(zam::allocElements32(static_cast<int32_t>(count)));
    if (!history) {
        zam::release(s);
        return zamStsMemAlloc;
    }
    std::memset(history, 0, static_cast<size_t>(count) * 4);
    s->history = history;
    s->position = 0;
    *ppState = reinterpret_cast<FirBlockState_32f*>(s);
    return zamStsOk;
}

ZAM_API ZamStatus zamsFIRBlockOne_32f(const float* pSrc, float* pDst, FirBlockState_32f* pState, const float* pTaps)
{
    if (!pSrc || !pDst || !pState || !pTaps) return zamStsNullPtr;
    FirBlockState* s = zam::asState(pState);
    if (s->tag != zam::kTagFirBlock) return zamStsContextMismatch;
    const int numTaps = s->numTaps, len = s->len;
    if (len < 1 || numTaps < 1) return zamStsFirLength;
    if (s->position < 0 || s->position >= numTaps) return zamStsFirLength;
    const int pos = static_cast<int16_t>(s->position + 1) % numTaps;
    s->position = static_cast<int16_t>(pos);
    const int stride = static_cast<uint16_t>(s->stride);
    float* row = s->history + static_cast<int64_t>(pos) * stride;
    const bool overlaps = pSrc < row + len && row < pSrc + len;
    if (len > 24 && !overlaps)
        std::memcpy(row, pSrc, static_cast<size_t>(len) * 4);
    else
        for (int i = 0; i < len; ++i) row[i] = pSrc[i];
    // Rows in accumulation order with their weights: the newest with taps[0],
    // then row (pos + j) mod numTaps with taps[numTaps - j].
    constexpr int kBatch = 64;
    const float* rows[kBatch];
    float weights[kBatch];
    for (int j0 = 0; j0 < numTaps; j0 += kBatch) {
        const int count = numTaps - j0 < kBatch ? numTaps - j0 : kBatch;
        for (int b = 0; b < count; ++b) {
            const int j = j0 + b;
            rows[b] = s->history + static_cast<int64_t>((pos + j) % numTaps) * stride;
            weights[b] = j == 0 ? pTaps[0] : pTaps[numTaps - j];
        }
        zam::firAccumulateAvx2(pDst, rows, weights, count, len, j0 > 0);
    }
    const bool misaligned = !zam::isAligned(pSrc, 16) || !zam::isAligned(pDst, 16) || !zam::isAligned(pTaps, 16);
    return misaligned ? zamStsMisalignedData : zamStsOk;
}

ZAM_API ZamStatus zamsFIRBlockFree_32f(FirBlockState_32f* pState)
{
    if (!pState) return zamStsNullPtr;
    FirBlockState* s = zam::asState(pState);
    if (s->tag != zam::kTagFirBlock) return zamStsContextMismatch;
    zam::release(s->history);
    zam::release(s);
    return zamStsOk;
}
