#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/export.h"
#include "vq/vq_codebook.h"

namespace zam::vq {

namespace {

// Lane totals are folded as 8 -> 4 -> 2 -> 1, the halves added pairwise; the
// scalar twins below fold their lane arrays in exactly this order.
inline float foldLanes(__m128 v)
{
    const __m128 pairs = _mm_add_ps(v, _mm_movehl_ps(v, v));       // v0+v2, v1+v3
    return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_movehdup_ps(pairs)));  // (v0+v2)+(v1+v3)
}

inline float foldLanes(__m256 v) { return foldLanes(_mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1))); }

float foldLanes4(const float* lanes) { return (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]); }

float foldLanes8(const float* lanes)
{
    const float half[4] = {lanes[0] + lanes[4], lanes[1] + lanes[5], lanes[2] + lanes[6], lanes[3] + lanes[7]};
    return foldLanes4(half);
}

// One weighted squared difference added to a running sum.
inline float addSquare(float sum, float weight, float diff) { return std::fma(weight * diff, diff, sum); }

inline __m256 addSquare(__m256 sum, __m256 weight, __m256 diff)
{
    return _mm256_fmadd_ps(_mm256_mul_ps(weight, diff), diff, sum);
}

inline __m128 addSquare(__m128 sum, __m128 weight, __m128 diff)
{
    return _mm_fmadd_ps(_mm_mul_ps(weight, diff), diff, sum);
}

}  // namespace

// ---------------------------------------------------- preliminary distances

namespace {

// Distances of `R` code vectors to one sub-vector at once. Each code vector has
// its own sums, formed exactly as in the one-vector kernel; working on several
// lets their scalar head and tail chains overlap instead of waiting on each
// fused multiply-add in turn.
template <int R>
void distancesAvx2(const float* x, const float* w, const float* const* c, int n, float* out)
{
    const int head = headCount(x, n);
    float headSum[R] = {};
    for (int j = 0; j < head; ++j)
        for (int r = 0; r < R; ++r) headSum[r] = addSquare(headSum[r], w[j], c[r][j] - x[j]);

    __m256 acc0[R], acc1[R];
    for (int r = 0; r < R; ++r) acc0[r] = acc1[r] = _mm256_setzero_ps();
    int j = head;
    for (; j + 16 <= n; j += 16) {
        const __m256 x0 = _mm256_loadu_ps(x + j), x1 = _mm256_loadu_ps(x + j + 8);
        const __m256 w0 = _mm256_loadu_ps(w + j), w1 = _mm256_loadu_ps(w + j + 8);
        for (int r = 0; r < R; ++r) {
            acc0[r] = addSquare(acc0[r], w0, _mm256_sub_ps(_mm256_loadu_ps(c[r] + j), x0));
            acc1[r] = addSquare(acc1[r], w1, _mm256_sub_ps(_mm256_loadu_ps(c[r] + j + 8), x1));
        }
    }
    if (j + 8 <= n) {
        const __m256 x0 = _mm256_loadu_ps(x + j), w0 = _mm256_loadu_ps(w + j);
        for (int r = 0; r < R; ++r) acc0[r] = addSquare(acc0[r], w0, _mm256_sub_ps(_mm256_loadu_ps(c[r] + j), x0));
        j += 8;
    }
    float tailSum[R] = {};
    for (; j < n; ++j)
        for (int r = 0; r < R; ++r) tailSum[r] = addSquare(tailSum[r], w[j], c[r][j] - x[j]);
    for (int r = 0; r < R; ++r) out[r] = (headSum[r] + foldLanes(_mm256_add_ps(acc0[r], acc1[r]))) + tailSum[r];
}

template <int R>
void signedDistancesAvx2(const float* x, const float* w, const float* const* c, int n, SignedDistances* out)
{
    const int head = headCount(x, n);
    float headMinus[R] = {}, headPlus[R] = {};
    for (int j = 0; j < head; ++j)
        for (int r = 0; r < R; ++r) {
            headMinus[r] = addSquare(headMinus[r], w[j], c[r][j] - x[j]);
            headPlus[r] = addSquare(headPlus[r], w[j], c[r][j] + x[j]);
        }
    __m256 accMinus[R], accPlus[R];
    for (int r = 0; r < R; ++r) accMinus[r] = accPlus[r] = _mm256_setzero_ps();
    int j = head;
    for (; j + 8 <= n; j += 8) {
        const __m256 xv = _mm256_loadu_ps(x + j);
        const __m256 wv = _mm256_loadu_ps(w + j);
        for (int r = 0; r < R; ++r) {
            const __m256 cv = _mm256_loadu_ps(c[r] + j);
            accMinus[r] = addSquare(accMinus[r], wv, _mm256_sub_ps(cv, xv));
            accPlus[r] = addSquare(accPlus[r], wv, _mm256_add_ps(cv, xv));
        }
    }
    float tailMinus[R] = {}, tailPlus[R] = {};
    for (; j < n; ++j)
        for (int r = 0; r < R; ++r) {
            tailMinus[r] = addSquare(tailMinus[r], w[j], c[r][j] - x[j]);
            tailPlus[r] = addSquare(tailPlus[r], w[j], c[r][j] + x[j]);
        }
    for (int r = 0; r < R; ++r)
        out[r] = {(headMinus[r] + foldLanes(accMinus[r])) + tailMinus[r],
                  (headPlus[r] + foldLanes(accPlus[r])) + tailPlus[r]};
}

}  // namespace

float distanceAvx2(const float* x, const float* w, const float* c, int n)
{
    float d;
    distancesAvx2<1>(x, w, &c, n, &d);
    return d;
}

SignedDistances signedDistancesAvx2(const float* x, const float* w, const float* c, int n)
{
    SignedDistances d;
    signedDistancesAvx2<1>(x, w, &c, n, &d);
    return d;
}

void distances4Avx2(const float* x, const float* w, const float* const* c, int n, float* out)
{
    distancesAvx2<4>(x, w, c, n, out);
}

void signedDistances4Avx2(const float* x, const float* w, const float* const* c, int n, SignedDistances* out)
{
    signedDistancesAvx2<4>(x, w, c, n, out);
}

float distanceScalar(const float* x, const float* w, const float* c, int n)
{
    const int head = headCount(x, n);
    float headSum = 0.0f;
    for (int j = 0; j < head; ++j) headSum = addSquare(headSum, w[j], c[j] - x[j]);
    float lanes[16] = {};
    int j = head;
    for (; j + 16 <= n; j += 16)
        for (int l = 0; l < 16; ++l) lanes[l] = addSquare(lanes[l], w[j + l], c[j + l] - x[j + l]);
    if (j + 8 <= n) {
        for (int l = 0; l < 8; ++l) lanes[l] = addSquare(lanes[l], w[j + l], c[j + l] - x[j + l]);
        j += 8;
    }
    float tailSum = 0.0f;
    for (; j < n; ++j) tailSum = addSquare(tailSum, w[j], c[j] - x[j]);
    float merged[8];
    for (int l = 0; l < 8; ++l) merged[l] = lanes[l] + lanes[l + 8];
    return (headSum + foldLanes8(merged)) + tailSum;
}

SignedDistances signedDistancesScalar(const float* x, const float* w, const float* c, int n)
{
    const int head = headCount(x, n);
    float headMinus = 0.0f, headPlus = 0.0f;
    for (int j = 0; j < head; ++j) {
        headMinus = addSquare(headMinus, w[j], c[j] - x[j]);
        headPlus = addSquare(headPlus, w[j], c[j] + x[j]);
    }
    float minus[8] = {}, plus[8] = {};
    int j = head;
    for (; j + 8 <= n; j += 8)
        for (int l = 0; l < 8; ++l) {
            minus[l] = addSquare(minus[l], w[j + l], c[j + l] - x[j + l]);
            plus[l] = addSquare(plus[l], w[j + l], c[j + l] + x[j + l]);
        }
    float tailMinus = 0.0f, tailPlus = 0.0f;
    for (; j < n; ++j) {
        tailMinus = addSquare(tailMinus, w[j], c[j] - x[j]);
        tailPlus = addSquare(tailPlus, w[j], c[j] + x[j]);
    }
    return {(headMinus + foldLanes8(minus)) + tailMinus, (headPlus + foldLanes8(plus)) + tailPlus};
}

// ------------------------------------------------------------ pair distance

float refinedReciprocal(float divisor)
{
    const float r0 = _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(divisor)));
    return (r0 + r0) - divisor * (r0 * r0);
}

float pairDistanceAvx2(const float* x, const float* w, const float* a, float sa, const float* b, float sb, int n,
                       float divisor, float reciprocal)
{
    const int head = headCount(x, n);
    float headSum = 0.0f;
    for (int j = 0; j < head; ++j) headSum = addSquare(headSum, w[j], x[j] - std::fma(sb, b[j], sa * a[j]) / divisor);

    const __m256 sa8 = _mm256_set1_ps(sa), sb8 = _mm256_set1_ps(sb), r8 = _mm256_set1_ps(reciprocal);
    __m256 acc = _mm256_setzero_ps();
    int j = head;
    for (; j + 8 <= n; j += 8) {
        const __m256 y = _mm256_mul_ps(
            _mm256_fmadd_ps(sb8, _mm256_loadu_ps(b + j), _mm256_mul_ps(sa8, _mm256_loadu_ps(a + j))), r8);
        acc = addSquare(acc, _mm256_loadu_ps(w + j), _mm256_sub_ps(_mm256_loadu_ps(x + j), y));
    }
    __m128 acc4 = _mm_setzero_ps();
    if (j + 4 <= n) {
        const __m128 y = _mm_mul_ps(_mm_fmadd_ps(_mm256_castps256_ps128(sb8), _mm_loadu_ps(b + j),
                                                 _mm_mul_ps(_mm256_castps256_ps128(sa8), _mm_loadu_ps(a + j))),
                                    _mm256_castps256_ps128(r8));
        acc4 = addSquare(acc4, _mm_loadu_ps(w + j), _mm_sub_ps(_mm_loadu_ps(x + j), y));
        j += 4;
    }
    float tailSum = 0.0f;
    for (; j < n; ++j) tailSum = addSquare(tailSum, w[j], x[j] - std::fma(sb, b[j], sa * a[j]) * reciprocal);
    return ((headSum + foldLanes(acc)) + foldLanes(acc4)) + tailSum;
}

float pairDistanceScalar(const float* x, const float* w, const float* a, float sa, const float* b, float sb, int n,
                         float divisor, float reciprocal)
{
    const int head = headCount(x, n);
    float headSum = 0.0f;
    for (int j = 0; j < head; ++j) headSum = addSquare(headSum, w[j], x[j] - std::fma(sb, b[j], sa * a[j]) / divisor);
    auto scaledDiff = [&](int m) { return x[m] - std::fma(sb, b[m], sa * a[m]) * reciprocal; };
    float lanes[8] = {}, lanes4[4] = {};
    int j = head;
    for (; j + 8 <= n; j += 8)
        for (int l = 0; l < 8; ++l) lanes[l] = addSquare(lanes[l], w[j + l], scaledDiff(j + l));
    if (j + 4 <= n) {
        for (int l = 0; l < 4; ++l) lanes4[l] = addSquare(lanes4[l], w[j + l], scaledDiff(j + l));
        j += 4;
    }
    float tailSum = 0.0f;
    for (; j < n; ++j) tailSum = addSquare(tailSum, w[j], scaledDiff(j));
    return ((headSum + foldLanes8(lanes)) + foldLanes4(lanes4)) + tailSum;
}

namespace {

// Keeps the nCand smallest of the code book's distances in its sorted scratch
// arrays (height > nCand >= 1 here, so they have room for nCand entries).
void keepSmallest(CodeBookRecord& cb, int nCand)
{
    float* dist = cb.sortedDistances;
    int32_t* index = cb.sortedIndices;
    for (int p = 0; p < nCand; ++p) {
        dist[p] = kDistanceSentinel;
        index[p] = 0;
    }
    const int last = nCand - 1;
    int count = 0;
    for (int k = 0; k < cb.height; ++k) {
        const float d = cb.distances[k];
        if (!(dist[count] > d)) continue;
        // First kept entry not below d: d goes in front of equal distances.
        int lo = 0, hi = count;
        while (lo < hi) {
            const int mid = (lo + hi) / 2;
            if (dist[mid] < d)
                lo = mid + 1;
            else
                hi = mid;
        }
        const int p = lo;
        const int newCount = std::min(count + 1, last);
        if (newCount > p) {
            std::memmove(dist + p + 1, dist + p, sizeof(float) * static_cast<size_t>(newCount - p));
            std::memmove(index + p + 1, index + p, sizeof(int32_t) * static_cast<size_t>(newCount - p));
        }
        dist[p] = d;
        index[p] = k;
        count = newCount;
    }
}

// Both signs tried: the negated code vector only when strictly nearer.
inline void chooseSign(const SignedDistances& d, float& distance, int32_t& sign)
{
    const bool negate = d.minus > d.plus;
    distance = negate ? d.plus : d.minus;
    sign = negate ? 1 : 0;
}

}  // namespace

}  // namespace zam::vq

using namespace zam::vq;

ZAM_API ZamStatus zamsVQPreliminarySelect_32f(const float* pSrc, const float* pWeights, int nDiv, const int* pLengths,
                                              int* pIndices, int* pSigns, int nCand, const int* pSignMode,
                                              VqCodeBook* pCodeBook)
{
    if (!pSrc || !pWeights || !pLengths || !pIndices || !pSigns || !pCodeBook || !pSignMode) return zamStsNullPtr;
    if (nDiv < 1) return zamStsOk;

    CodeBookRecord& cb = *record(pCodeBook);
    const float* x = pSrc;
    const float* w = pWeights;
    for (int i = 0; i < nDiv; ++i) {
        const int len = pLengths[i];
        const bool bothSigns = pSignMode[i] == 1;
        if (len < 1) {
            for (int k = 0; k < cb.height; ++k) {
                cb.distances[k] = 0.0f;
                cb.signs[k] = 0;
            }
        } else if (bothSigns) {
            int k = 0;
            SignedDistances d[4];
            for (; k + 4 <= cb.height; k += 4) {
                signedDistances4Avx2(x, w, cb.rows + k, len, d);
                for (int r = 0; r < 4; ++r) chooseSign(d[r], cb.distances[k + r], cb.signs[k + r]);
            }
            for (; k < cb.height; ++k) chooseSign(signedDistancesAvx2(x, w, cb.rows[k], len), cb.distances[k], cb.signs[k]);
        } else {
            int k = 0;
            for (; k + 4 <= cb.height; k += 4) distances4Avx2(x, w, cb.rows + k, len, cb.distances + k);
            for (; k < cb.height; ++k) cb.distances[k] = distanceAvx2(x, w, cb.rows[k], len);
            for (k = 0; k < cb.height; ++k) cb.signs[k] = 0;
        }

        int* outIndex = pIndices + static_cast<int64_t>(i) * nCand;
        int* outSign = pSigns + static_cast<int64_t>(i) * nCand;
        if (nCand >= 1) {
            if (cb.height <= nCand) {
                for (int j = 0; j < nCand; ++j) {
                    outIndex[j] = j;
                    outSign[j] = j < cb.height ? cb.signs[j] : 0;
                }
            } else {
                keepSmallest(cb, nCand);
                for (int j = 0; j < nCand; ++j) {
                    outIndex[j] = cb.sortedIndices[j];
                    outSign[j] = cb.signs[cb.sortedIndices[j]];
                }
            }
        }
        if (len > 0) {
            x += len;
            w += len;
        }
    }
    return zamStsOk;
}

ZAM_API ZamStatus zamsVQMainSelect_32f(const float* pSrc, const float* pWeights, const int* pLengths, int nDiv,
                                       int nCand, CandidateLists indices, CandidateLists signs, IndexPair outIndices,
                                       IndexPair outSigns, CodeBookPair codeBooks, int divisor)
{
    if (!pSrc || !pWeights || !pLengths || !indices.pA || !indices.pB || !signs.pA || !signs.pB ||
        !outIndices.pA || !outIndices.pB || !outSigns.pA || !outSigns.pB || !codeBooks.pA || !codeBooks.pB)
        return zamStsNullPtr;
    if (nDiv < 1) return zamStsOk;

    const CodeBookRecord& bookA = *record(codeBooks.pA);
    const CodeBookRecord& bookB = *record(codeBooks.pB);
    const float fDivisor = static_cast<float>(divisor);
    const float reciprocal = refinedReciprocal(fDivisor);
    const float* x = pSrc;
    const float* w = pWeights;
    for (int i = 0; i < nDiv; ++i) {
        const int len = pLengths[i];
        const int64_t base = static_cast<int64_t>(i) * nCand;
        float best = kDistanceSentinel;
        int bestJ = 0, bestK = 0;
        for (int j = 0; j < nCand; ++j) {
            const float* a = bookA.rows[indices.pA[base + j]];
            const float sa = 1.0f - 2.0f * static_cast<float>(signs.pA[base + j]);
            for (int k = 0; k < nCand; ++k) {
                const float* b = bookB.rows[indices.pB[base + k]];
                const float sb = 1.0f - 2.0f * static_cast<float>(signs.pB[base + k]);
                const float d = len < 1 ? 0.0f : pairDistanceAvx2(x, w, a, sa, b, sb, len, fDivisor, reciprocal);
                if (best > d) {
                    best = d;
                    bestJ = j;
                    bestK = k;
                }
            }
        }
        if (nCand >= 1) {
            outIndices.pA[i] = indices.pA[base + bestJ];
            outIndices.pB[i] = indices.pB[base + bestK];
            outSigns.pA[i] = signs.pA[base + bestJ];
            outSigns.pB[i] = signs.pB[base + bestK];
        } else {
            outIndices.pA[i] = outIndices.pB[i] = 0;
            outSigns.pA[i] = outSigns.pB[i] = 0;
        }
        if (len > 0) {
            x += len;
            w += len;
        }
    }
    return zamStsOk;
}
