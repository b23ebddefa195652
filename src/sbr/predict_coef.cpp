#include "sbr/predict_coef.h"

#include <immintrin.h>

#include <cmath>

#include "core/export.h"

namespace zam::sbr {

namespace {

// Divisor guards and stability test of each path.
inline bool alpha1Allowed(float det, float energy, Path path)
{
    if (path == Path::Group) return !(det == 0.0f);
    // The single path divides only when the energy is positive and det² does not
    // vanish in single precision, which also rejects |det| below about 1e-19.
    return energy > 0.0f && det * det > 0.0f;
}

inline bool alpha0Allowed(float p1, Path path) { return path == Path::Group ? !(p1 == 0.0f) : p1 > 0.0f; }

inline bool keepPair(float square0, float square1, Path path)
{
    if (path == Path::Group) return square0 <= kAlphaSquareLimit && square1 <= kAlphaSquareLimit;
    return !(square0 >= kAlphaSquareLimit || square1 >= kAlphaSquareLimit);
}

}  // namespace

void finishReal(const RealSums& s, Path path, float& alpha0, float& alpha1)
{
    const float det = s.p0 * s.p1 - (s.a * s.a) * kRelaxation;
    float a1 = 0.0f;
    // The real single path guards α1 by det² alone (P1 is tested for α0).
    if (path == Path::Group ? !(det == 0.0f) : det * det > 0.0f) a1 = (s.a * s.b - s.p1 * s.q) / det;
    float a0 = 0.0f;
    if (alpha0Allowed(s.p1, path)) a0 = -(s.b + a1 * s.a) / s.p1;
    if (!keepPair(a0 * a0, a1 * a1, path)) a0 = a1 = 0.0f;
    alpha0 = a0;
    alpha1 = a1;
}

void finishComplex(const ComplexSums& s, Path path, Complex& alpha0, Complex& alpha1)
{
    const float absA2 = s.aRe * s.aRe + s.aIm * s.aIm;
    const float det = s.p0 * s.p1 - absA2 * kRelaxation;
    // α1 = (B·A - P1·Q) / det
    const float numRe = (s.bRe * s.aRe - s.bIm * s.aIm) - s.p1 * s.qRe;
    const float numIm = (s.bRe * s.aIm + s.bIm * s.aRe) - s.p1 * s.qIm;
    Complex a1{0.0f, 0.0f};
    if (alpha1Allowed(det, s.p1, path)) a1 = {numRe / det, numIm / det};
    // α0 = -(B + α1·conj(A)) / P1
    Complex a0{0.0f, 0.0f};
    if (alpha0Allowed(s.p1, path)) {
        const float cRe = a1.re * s.aRe + a1.im * s.aIm;
        const float cIm = a1.im * s.aRe - a1.re * s.aIm;
        a0 = {-(s.bRe + cRe) / s.p1, -(s.bIm + cIm) / s.p1};
    }
    const float square0 = a0.re * a0.re + a0.im * a0.im;
    const float square1 = a1.re * a1.re + a1.im * a1.im;
    if (!keepPair(square0, square1, path)) a0 = a1 = Complex{0.0f, 0.0f};
    alpha0 = a0;
    alpha1 = a1;
}

// ------------------------------------------------------------------ real

RealSums realSums(const float* const* rows, int column, int len)
{
    RealSums s{0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    float x0 = rows[0][column];
    float x1 = rows[1][column];
    for (int n = 0; n < len; ++n) {
        const float x2 = rows[n + 2][column];
        s.a = std::fma(x0, x1, s.a);
        s.b = std::fma(x1, x2, s.b);
        s.q = std::fma(x0, x2, s.q);
        s.p0 = std::fma(x0, x0, s.p0);
        s.p1 = std::fma(x1, x1, s.p1);
        x0 = x1;
        x1 = x2;
    }
    return s;
}

void realGroupScalar(const float* const* rows, int column, int len, float* alpha0, float* alpha1)
{
    for (int lane = 0; lane < 4; ++lane)
        finishReal(realSums(rows, column + lane, len), Path::Group, alpha0[column + lane], alpha1[column + lane]);
}

void realGroupAvx2(const float* const* rows, int column, int len, float* alpha0, float* alpha1)
{
    // [A | B] and [Q | P0] in two 256-bit accumulators, P1 in a 128-bit one.
    __m256 accAB = _mm256_setzero_ps();
    __m256 accQP0 = _mm256_setzero_ps();
    __m128 accP1 = _mm_setzero_ps();
    __m128 x0 = _mm_loadu_ps(rows[0] + column);
    __m128 x1 = _mm_loadu_ps(rows[1] + column);
    for (int n = 0; n < len; ++n) {
        const __m128 x2 = _mm_loadu_ps(rows[n + 2] + column);
        accAB = _mm256_fmadd_ps(_mm256_set_m128(x1, x0), _mm256_set_m128(x2, x1), accAB);
        accQP0 = _mm256_fmadd_ps(_mm256_set_m128(x0, x0), _mm256_set_m128(x0, x2), accQP0);
        accP1 = _mm_fmadd_ps(x1, x1, accP1);
        x0 = x1;
        x1 = x2;
    }
    const __m128 a = _mm256_castps256_ps128(accAB);
    const __m128 b = _mm256_extractf128_ps(accAB, 1);
    const __m128 q = _mm256_castps256_ps128(accQP0);
    const __m128 p0 = _mm256_extractf128_ps(accQP0, 1);
    const __m128 p1 = accP1;
    const __m128 zero = _mm_setzero_ps();

    const __m128 det = _mm_sub_ps(_mm_mul_ps(p0, p1), _mm_mul_ps(_mm_mul_ps(a, a), _mm_set1_ps(kRelaxation)));
    const __m128 num = _mm_sub_ps(_mm_mul_ps(a, b), _mm_mul_ps(p1, q));
    __m128 a1 = _mm_div_ps(num, det);
    a1 = _mm_andnot_ps(_mm_cmp_ps(det, zero, _CMP_EQ_OQ), a1);
    const __m128 negSum = _mm_xor_ps(_mm_add_ps(b, _mm_mul_ps(a1, a)), _mm_set1_ps(-0.0f));
    __m128 a0 = _mm_div_ps(negSum, p1);
    a0 = _mm_andnot_ps(_mm_cmp_ps(p1, zero, _CMP_EQ_OQ), a0);
    const __m128 limit = _mm_set1_ps(kAlphaSquareLimit);
    const __m128 keep = _mm_and_ps(_mm_cmp_ps(_mm_mul_ps(a0, a0), limit, _CMP_LE_OQ),
                                   _mm_cmp_ps(_mm_mul_ps(a1, a1), limit, _CMP_LE_OQ));
    _mm_storeu_ps(alpha0 + column, _mm_and_ps(keep, a0));
    _mm_storeu_ps(alpha1 + column, _mm_and_ps(keep, a1));
}

// --------------------------------------------------------------- complex

namespace {

// Complex sums of one subband. Every product has its own accumulator, exactly as
// the lanes of the vector kernel, and the lanes are combined at the end.
template <typename Sample>
ComplexSums complexSums(Sample sample, int len)
{
    float aRR = 0, aII = 0, aRI = 0, aIR = 0;
    float bRR = 0, bII = 0, bRI = 0, bIR = 0;
    float qRR = 0, qII = 0, qRI = 0, qIR = 0;
    float p0R = 0, p0I = 0, p1R = 0, p1I = 0;
    Complex u = sample(0);
    Complex v = sample(1);
    for (int n = 0; n < len; ++n) {
        const Complex w = sample(n + 2);
        aRR = std::fma(v.re, u.re, aRR);
        aII = std::fma(v.im, u.im, aII);
        aRI = std::fma(v.re, u.im, aRI);
        aIR = std::fma(v.im, u.re, aIR);
        bRR = std::fma(w.re, v.re, bRR);
        bII = std::fma(w.im, v.im, bII);
        bRI = std::fma(w.re, v.im, bRI);
        bIR = std::fma(w.im, v.re, bIR);
        qRR = std::fma(w.re, u.re, qRR);
        qII = std::fma(w.im, u.im, qII);
        qRI = std::fma(w.re, u.im, qRI);
        qIR = std::fma(w.im, u.re, qIR);
        p0R = std::fma(u.re, u.re, p0R);
        p0I = std::fma(u.im, u.im, p0I);
        p1R = std::fma(v.re, v.re, p1R);
        p1I = std::fma(v.im, v.im, p1I);
        u = v;
        v = w;
    }
    return {aRR + aII, aIR - aRI, bRR + bII, bIR - bRI, qRR + qII, qIR - qRI, p0R + p0I, p1R + p1I};
}

// Two interleaved subbands [re0 im0 re1 im1] per row: four 256-bit accumulators
//   direct [A | B]  : [v|w]·[u|v]          cross [A | B] : [v|w]·swap([u|v])
//   direct [Q | P0] : [w|u]·[u|u]          cross [Q | P1]: [w|v]·[swap(u)|v]
template <typename Load>
void complexPairSums(Load load, int len, ComplexSums& s0, ComplexSums& s1)
{
    __m256 dirAB = _mm256_setzero_ps(), crossAB = _mm256_setzero_ps();
    __m256 dirQP0 = _mm256_setzero_ps(), crossQP1 = _mm256_setzero_ps();
    __m128 u = load(0);
    __m128 v = load(1);
    for (int n = 0; n < len; ++n) {
        const __m128 w = load(n + 2);
        const __m256 uv = _mm256_set_m128(v, u);
        const __m256 vw = _mm256_set_m128(w, v);
        const __m128 uSwap = _mm_permute_ps(u, _MM_SHUFFLE(2, 3, 0, 1));
        dirAB = _mm256_fmadd_ps(vw, uv, dirAB);
        crossAB = _mm256_fmadd_ps(vw, _mm256_permute_ps(uv, _MM_SHUFFLE(2, 3, 0, 1)), crossAB);
        dirQP0 = _mm256_fmadd_ps(_mm256_set_m128(u, w), _mm256_set_m128(u, u), dirQP0);
        crossQP1 = _mm256_fmadd_ps(_mm256_set_m128(v, w), _mm256_set_m128(v, uSwap), crossQP1);
        u = v;
        v = w;
    }
    alignas(32) float d[8], c[8], e[8], f[8];
    _mm256_store_ps(d, dirAB);
    _mm256_store_ps(c, crossAB);
    _mm256_store_ps(e, dirQP0);
    _mm256_store_ps(f, crossQP1);
    ComplexSums* out[2] = {&s0, &s1};
    for (int k = 0; k < 2; ++k) {
        const int re = 2 * k, im = 2 * k + 1;
        *out[k] = {d[re] + d[im],         c[im] - c[re],         d[4 + re] + d[4 + im], c[4 + im] - c[4 + re],
                   e[re] + e[im],         f[im] - f[re],         e[4 + re] + e[4 + im], f[4 + re] + f[4 + im]};
    }
}

}  // namespace

ComplexSums complexSumsInterleaved(const float* const* rows, int band, int len)
{
    return complexSums([&](int n) { return Complex{rows[n][2 * band], rows[n][2 * band + 1]}; }, len);
}

ComplexSums complexSumsSplit(const float* const* re, const float* const* im, int band, int len)
{
    return complexSums([&](int n) { return Complex{re[n][band], im[n][band]}; }, len);
}

void complexPairSumsAvx2Interleaved(const float* const* rows, int band, int len, ComplexSums& s0, ComplexSums& s1)
{
    complexPairSums([&](int n) { return _mm_loadu_ps(rows[n] + 2 * band); }, len, s0, s1);
}

void complexPairSumsAvx2Split(const float* const* re, const float* const* im, int band, int len, ComplexSums& s0,
                              ComplexSums& s1)
{
    complexPairSums(
        [&](int n) {
            const __m128 r = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(re[n] + band)));
            const __m128 i = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(im[n] + band)));
            return _mm_unpacklo_ps(r, i);
        },
        len, s0, s1);
}

}  // namespace zam::sbr

using namespace zam::sbr;

ZAM_API ZamStatus zamsPredictCoef_SBR_R_32f_D2L(const float* const* pSrc, float* pAlpha0, float* pAlpha1,
                                                int numBands, int len)
{
    if (!pSrc || !pAlpha0 || !pAlpha1) return zamStsNullPtr;
    if (len < 1 || numBands < 1) return zamStsOk;
    int k = 0;
    for (; k + 4 <= numBands; k += 4) realGroupAvx2(pSrc, k, len, pAlpha0, pAlpha1);
    for (; k < numBands; ++k) finishReal(realSums(pSrc, k, len), Path::Single, pAlpha0[k], pAlpha1[k]);
    return zamStsOk;
}

ZAM_API ZamStatus zamsPredictCoef_SBR_C_32fc_D2L(const float* const* pSrc, float* pAlpha0, float* pAlpha1,
                                                 int numBands, int len)
{
    if (!pSrc || !pAlpha0 || !pAlpha1) return zamStsNullPtr;
    if (len < 1 || numBands < 1) return zamStsOk;
    auto store = [&](int k, const ComplexSums& s, Path path) {
        Complex a0, a1;
        finishComplex(s, path, a0, a1);
        pAlpha0[2 * k] = a0.re;
        pAlpha0[2 * k + 1] = a0.im;
        pAlpha1[2 * k] = a1.re;
        pAlpha1[2 * k + 1] = a1.im;
    };
    int k = 0;
    for (; k + 2 <= numBands; k += 2) {
        ComplexSums s0, s1;
        complexPairSumsAvx2Interleaved(pSrc, k, len, s0, s1);
        store(k, s0, Path::Group);
        store(k + 1, s1, Path::Group);
    }
    for (; k < numBands; ++k) store(k, complexSumsInterleaved(pSrc, k, len), Path::Single);
    return zamStsOk;
}

ZAM_API ZamStatus zamsPredictCoef_SBR_C_32f_D2L(const float* const* pSrcRe, const float* const* pSrcIm,
                                                float* pAlpha0Re, float* pAlpha0Im, float* pAlpha1Re,
                                                float* pAlpha1Im, int numBands, int len)
{
    if (!pSrcRe || !pSrcIm || !pAlpha0Re || !pAlpha0Im || !pAlpha1Re || !pAlpha1Im) return zamStsNullPtr;
    if (len < 1 || numBands < 1) return zamStsOk;
    auto store = [&](int k, const ComplexSums& s, Path path) {
        Complex a0, a1;
        finishComplex(s, path, a0, a1);
        pAlpha0Re[k] = a0.re;
        pAlpha0Im[k] = a0.im;
        pAlpha1Re[k] = a1.re;
        pAlpha1Im[k] = a1.im;
    };
    int k = 0;
    for (; k + 2 <= numBands; k += 2) {
        ComplexSums s0, s1;
        complexPairSumsAvx2Split(pSrcRe, pSrcIm, k, len, s0, s1);
        store(k, s0, Path::Group);
        store(k + 1, s1, Path::Group);
    }
    for (; k < numBands; ++k) store(k, complexSumsSplit(pSrcRe, pSrcIm, k, len), Path::Single);
    return zamStsOk;
}
