#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <vector>

#include "sbr/predict_coef.h"
#include "test_support.h"
#include "zamac.h"

namespace {

using cd = std::complex<double>;
using zamtest::rng;

// Rows of QMF samples: `slots` rows of `columns` floats each (a complex row holds
// interleaved pairs, so columns = 2 * bands).
struct Rows {
    Rows(int slots, int columns) : data(static_cast<size_t>(slots) * columns), ptr(slots)
    {
        for (int n = 0; n < slots; ++n) ptr[n] = data.data() + static_cast<size_t>(n) * columns;
        cols = columns;
    }
    float& at(int n, int c) { return data[static_cast<size_t>(n) * cols + c]; }
    std::vector<float> data;
    std::vector<const float*> ptr;
    int cols;
};

// The covariance method of SBR high-frequency generation, straight from its
// formulas, in double precision: x[n+2] ~ -a0 x[n+1] - a1 x[n].
struct RefAlpha {
    cd a0, a1;
    double cond;  // P0*P1 / |det|: how much rounding the float result may carry
};

RefAlpha reference(const std::vector<cd>& x, int len)
{
    cd phi01 = 0, phi02 = 0, phi12 = 0;
    double phi11 = 0, phi22 = 0;
    for (int n = 0; n < len; ++n) {
        phi01 += x[n + 2] * std::conj(x[n + 1]);
        phi02 += x[n + 2] * std::conj(x[n]);
        phi12 += x[n + 1] * std::conj(x[n]);
        phi11 += std::norm(x[n + 1]);
        phi22 += std::norm(x[n]);
    }
    const double r = static_cast<double>(zam::sbr::kRelaxation);
    const double det = phi22 * phi11 - r * std::norm(phi12);
    RefAlpha out{};
    out.a1 = det != 0 ? (phi01 * phi12 - phi02 * phi11) / det : cd(0);
    out.a0 = phi11 != 0 ? -(phi01 + out.a1 * std::conj(phi12)) / phi11 : cd(0);
    out.cond = det != 0 ? phi22 * phi11 / std::abs(det) : 0;
    if (std::norm(out.a0) >= 16 || std::norm(out.a1) >= 16) out.a0 = out.a1 = 0;
    return out;
}

void expectNear(cd got, cd want, double cond, int len, const char* what, int band)
{
    const double tol = 1e-6 * (4 + len) * (1 + cond) * (1 + std::abs(want));
    EXPECT_NEAR(got.real(), want.real(), tol) << what << " band " << band;
    EXPECT_NEAR(got.imag(), want.imag(), tol) << what << " band " << band;
}

enum class Signal { Noise, Sinusoid };

// Real: white noise, or a cosine of its own frequency per subband (|a1| = 1).
Rows realSignal(Signal kind, int bands, int len)
{
    Rows rows(len + 2, bands);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    for (int k = 0; k < bands; ++k) {
        const double w = 0.3 + 2.5 * k / bands, phase = 0.1 * k;
        for (int n = 0; n < len + 2; ++n)
            rows.at(n, k) = kind == Signal::Noise ? noise(rng()) : static_cast<float>(std::cos(w * n + phase));
    }
    return rows;
}

// Complex: noise, or two complex exponentials per subband (a1 = e^{i(w1+w2)}).
Rows complexSignal(Signal kind, int bands, int len)
{
    Rows rows(len + 2, 2 * bands);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    for (int k = 0; k < bands; ++k) {
        const double w1 = 0.2 + 0.05 * k, w2 = w1 - 1.3 - 0.02 * k;
        for (int n = 0; n < len + 2; ++n) {
            const cd v = kind == Signal::Noise ? cd(noise(rng()), noise(rng()))
                                               : std::polar(1.0, w1 * n) + std::polar(0.5, w2 * n + 0.3);
            rows.at(n, 2 * k) = static_cast<float>(v.real());
            rows.at(n, 2 * k + 1) = static_cast<float>(v.imag());
        }
    }
    return rows;
}

struct Shape {
    int bands, len;
};

class PredictAgainstReference : public ::testing::TestWithParam<Shape> {};

TEST_P(PredictAgainstReference, Real)
{
    const auto [bands, len] = GetParam();
    for (Signal kind : {Signal::Noise, Signal::Sinusoid}) {
        Rows rows = realSignal(kind, bands, len);
        std::vector<float> a0(bands), a1(bands);
        ASSERT_EQ(zamsPredictCoef_SBR_R_32f_D2L(rows.ptr.data(), a0.data(), a1.data(), bands, len), zamStsOk);
        for (int k = 0; k < bands; ++k) {
            std::vector<cd> x(len + 2);
            for (int n = 0; n < len + 2; ++n) x[n] = rows.at(n, k);
            const RefAlpha ref = reference(x, len);
            expectNear(a0[k], ref.a0, ref.cond, len, "alpha0", k);
            expectNear(a1[k], ref.a1, ref.cond, len, "alpha1", k);
            if (kind == Signal::Sinusoid && len >= 8) EXPECT_NEAR(a1[k], 1.0f, 1e-3) << k;
            if (kind == Signal::Noise && len >= 32) EXPECT_LT(std::abs(a1[k]), 0.6f) << k;
        }
    }
}

TEST_P(PredictAgainstReference, ComplexInterleavedAndSplitAgree)
{
    const auto [bands, len] = GetParam();
    for (Signal kind : {Signal::Noise, Signal::Sinusoid}) {
        Rows rows = complexSignal(kind, bands, len);
        Rows re(len + 2, bands), im(len + 2, bands);
        for (int n = 0; n < len + 2; ++n)
            for (int k = 0; k < bands; ++k) {
                re.at(n, k) = rows.at(n, 2 * k);
                im.at(n, k) = rows.at(n, 2 * k + 1);
            }
        std::vector<float> a0(2 * bands), a1(2 * bands), a0r(bands), a0i(bands), a1r(bands), a1i(bands);
        ASSERT_EQ(zamsPredictCoef_SBR_C_32fc_D2L(rows.ptr.data(), a0.data(), a1.data(), bands, len), zamStsOk);
        ASSERT_EQ(zamsPredictCoef_SBR_C_32f_D2L(re.ptr.data(), im.ptr.data(), a0r.data(), a0i.data(), a1r.data(),
                                                a1i.data(), bands, len),
                  zamStsOk);
        for (int k = 0; k < bands; ++k) {
            std::vector<cd> x(len + 2);
            for (int n = 0; n < len + 2; ++n) x[n] = cd(rows.at(n, 2 * k), rows.at(n, 2 * k + 1));
            const RefAlpha ref = reference(x, len);
            const cd got0(a0[2 * k], a0[2 * k + 1]), got1(a1[2 * k], a1[2 * k + 1]);
            expectNear(got0, ref.a0, ref.cond, len, "alpha0", k);
            expectNear(got1, ref.a1, ref.cond, len, "alpha1", k);
            if (kind == Signal::Sinusoid && len >= 8) {
                const double w1 = 0.2 + 0.05 * k, w2 = w1 - 1.3 - 0.02 * k;
                EXPECT_NEAR(std::abs(got1), 1.0, 1e-3) << k;
                EXPECT_NEAR(std::abs(got1 - std::polar(1.0, w1 + w2)), 0.0, 1e-3) << k;
            }
            // The split form is the interleaved one on separate arrays, bit for bit.
            EXPECT_EQ(a0r[k], a0[2 * k]);
            EXPECT_EQ(a0i[k], a0[2 * k + 1]);
            EXPECT_EQ(a1r[k], a1[2 * k]);
            EXPECT_EQ(a1i[k], a1[2 * k + 1]);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, PredictAgainstReference,
                         ::testing::Values(Shape{64, 38}, Shape{7, 38}, Shape{5, 16}, Shape{3, 1}, Shape{1, 2},
                                           Shape{13, 30}));

// The vector group kernels against their scalar twins, and the group sums against
// the single-path sums: identical bits on ordinary data.
TEST(PredictKernels, VectorGroupsMatchScalarTwins)
{
    const int len = 38, bands = 8;
    Rows real = realSignal(Signal::Noise, bands, len);
    Rows cplx = complexSignal(Signal::Noise, bands, len);
    float v0[bands], v1[bands], s0[bands], s1[bands];
    for (int k = 0; k + 4 <= bands; k += 4) {
        zam::sbr::realGroupAvx2(real.ptr.data(), k, len, v0, v1);
        zam::sbr::realGroupScalar(real.ptr.data(), k, len, s0, s1);
    }
    for (int k = 0; k < bands; ++k) {
        EXPECT_EQ(v0[k], s0[k]);
        EXPECT_EQ(v1[k], s1[k]);
        float t0, t1;
        zam::sbr::finishReal(zam::sbr::realSums(real.ptr.data(), k, len), zam::sbr::Path::Single, t0, t1);
        EXPECT_EQ(t0, v0[k]);
        EXPECT_EQ(t1, v1[k]);
    }
    for (int k = 0; k + 2 <= bands; k += 2) {
        zam::sbr::ComplexSums p0, p1;
        zam::sbr::complexPairSumsAvx2Interleaved(cplx.ptr.data(), k, len, p0, p1);
        for (auto [got, band] : {std::pair{p0, k}, std::pair{p1, k + 1}}) {
            const zam::sbr::ComplexSums want = zam::sbr::complexSumsInterleaved(cplx.ptr.data(), band, len);
            EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0) << band;
        }
    }
}

// Constructed subbands whose predictor lands exactly on |alpha|^2 = 16:
//   len 1, x = (1, 1, 4):     A = 1, det = 2^-20, alpha1 = 0, alpha0 = -4
//   len 2, x = (1, 0, 4, 0):  A = 0, alpha1 = -Q/P0 = -4, alpha0 = 0
// A group keeps such a pair, the single path clears it.
TEST(PredictLimit, ExactSquareSixteenKeptInGroupClearedInTail)
{
    struct Case {
        int len;
        std::vector<float> x;
        float alpha0, alpha1;
    };
    for (const Case& c : {Case{1, {1, 1, 4}, -4, 0}, Case{2, {1, 0, 4, 0}, 0, -4}}) {
        const int bands = 5;  // bands 0..3 grouped, band 4 alone
        Rows rows(c.len + 2, bands);
        for (int n = 0; n < c.len + 2; ++n)
            for (int k = 0; k < bands; ++k) rows.at(n, k) = (k == 1 || k == 4) ? c.x[n] : 0.5f * (n + k % 3) - 1;
        std::vector<float> a0(bands, 9), a1(bands, 9);
        ASSERT_EQ(zamsPredictCoef_SBR_R_32f_D2L(rows.ptr.data(), a0.data(), a1.data(), bands, c.len), zamStsOk);
        EXPECT_EQ(a0[1], c.alpha0);
        EXPECT_EQ(a1[1], c.alpha1);
        EXPECT_EQ(a0[4], 0.0f);
        EXPECT_EQ(a1[4], 0.0f);
    }
    // Complex, len 1, x = (1, 1, 4i): alpha0 = -4i exactly.
    const int bands = 3;  // bands 0, 1 paired, band 2 alone
    Rows rows(3, 2 * bands), re(3, bands), im(3, bands);
    const float xr[3] = {1, 1, 0}, xi[3] = {0, 0, 4};
    for (int n = 0; n < 3; ++n)
        for (int k = 0; k < bands; ++k) {
            rows.at(n, 2 * k) = re.at(n, k) = xr[n];
            rows.at(n, 2 * k + 1) = im.at(n, k) = xi[n];
        }
    float a0[6], a1[6], s0r[3], s0i[3], s1r[3], s1i[3];
    ASSERT_EQ(zamsPredictCoef_SBR_C_32fc_D2L(rows.ptr.data(), a0, a1, bands, 1), zamStsOk);
    ASSERT_EQ(zamsPredictCoef_SBR_C_32f_D2L(re.ptr.data(), im.ptr.data(), s0r, s0i, s1r, s1i, bands, 1), zamStsOk);
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(a0[2 * k], 0.0f);
        EXPECT_EQ(a0[2 * k + 1], -4.0f);
        EXPECT_EQ(s0i[k], -4.0f);
    }
    EXPECT_EQ(a0[5], 0.0f);
    EXPECT_EQ(s0i[2], 0.0f);
}

// Tiny samples: det is a normal float but det^2 underflows to zero. The group
// divides by det; the single path takes alpha1 = 0 and alpha0 = -B/P1.
TEST(PredictLimit, ZeroGuardsDifferBetweenPaths)
{
    const int len = 38, bands = 5;
    Rows rows = realSignal(Signal::Noise, bands, len);
    for (int n = 0; n < len + 2; ++n) {
        for (int k = 0; k < bands; ++k) rows.at(n, k) *= 1e-8f;
        rows.at(n, 4) = rows.at(n, 0);
    }
    std::vector<float> a0(bands), a1(bands);
    ASSERT_EQ(zamsPredictCoef_SBR_R_32f_D2L(rows.ptr.data(), a0.data(), a1.data(), bands, len), zamStsOk);
    const zam::sbr::RealSums s = zam::sbr::realSums(rows.ptr.data(), 0, len);
    const float det = s.p0 * s.p1 - (s.a * s.a) * zam::sbr::kRelaxation;
    ASSERT_NE(det, 0.0f);
    ASSERT_EQ(det * det, 0.0f);
    EXPECT_NE(a1[0], 0.0f);
    EXPECT_EQ(a1[4], 0.0f);
    EXPECT_EQ(a0[4], -s.b / s.p1);
}

TEST(PredictEdges, AllZeroSubbandGivesZeroInBothPaths)
{
    Rows rows(40, 5);  // zero-filled
    std::vector<float> a0(5, 7), a1(5, 7);
    ASSERT_EQ(zamsPredictCoef_SBR_R_32f_D2L(rows.ptr.data(), a0.data(), a1.data(), 5, 38), zamStsOk);
    for (int k = 0; k < 5; ++k) EXPECT_TRUE(a0[k] == 0 && a1[k] == 0) << k;
    Rows cr(40, 6);
    std::vector<float> c0(6, 7), c1(6, 7);
    ASSERT_EQ(zamsPredictCoef_SBR_C_32fc_D2L(cr.ptr.data(), c0.data(), c1.data(), 3, 38), zamStsOk);
    for (int k = 0; k < 6; ++k) EXPECT_TRUE(c0[k] == 0 && c1[k] == 0) << k;
}

// Pointers are checked before the counts; a failed check and an empty block
// write nothing.
TEST(PredictEdges, ChecksInOrderAndWriteNothing)
{
    Rows rows = realSignal(Signal::Noise, 8, 4);
    const float* const* src = rows.ptr.data();
    auto o0 = zamtest::canaryVector<float>(16), o1 = zamtest::canaryVector<float>(16);
    auto o2 = zamtest::canaryVector<float>(16), o3 = zamtest::canaryVector<float>(16);
    auto untouched = [&] { return zamtest::untouched(o0) && zamtest::untouched(o1) && zamtest::untouched(o2) &&
                                  zamtest::untouched(o3); };
    struct Args {
        int bands, len;
        ZamStatus want;
    };
    for (auto [bands, len, want] : {Args{8, 0, zamStsOk}, Args{8, -3, zamStsOk}, Args{0, 4, zamStsOk},
                                    Args{-1, 4, zamStsOk}}) {
        EXPECT_EQ(zamsPredictCoef_SBR_R_32f_D2L(src, o0.data(), o1.data(), bands, len), want);
        EXPECT_EQ(zamsPredictCoef_SBR_C_32fc_D2L(src, o0.data(), o1.data(), bands / 2, len), want);
        EXPECT_EQ(zamsPredictCoef_SBR_C_32f_D2L(src, src, o0.data(), o1.data(), o2.data(), o3.data(), bands, len),
                  want);
        EXPECT_TRUE(untouched());
    }
    EXPECT_EQ(zamsPredictCoef_SBR_R_32f_D2L(nullptr, o0.data(), o1.data(), 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsPredictCoef_SBR_R_32f_D2L(src, nullptr, o1.data(), 8, 4), zamStsNullPtr);
    EXPECT_EQ(zamsPredictCoef_SBR_R_32f_D2L(src, o0.data(), nullptr, 8, 4), zamStsNullPtr);
    EXPECT_EQ(zamsPredictCoef_SBR_C_32fc_D2L(nullptr, o0.data(), o1.data(), 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsPredictCoef_SBR_C_32fc_D2L(src, o0.data(), nullptr, 4, 4), zamStsNullPtr);
    EXPECT_EQ(zamsPredictCoef_SBR_C_32fc_D2L(src, nullptr, o1.data(), 4, 4), zamStsNullPtr);
    float* outs[4] = {o0.data(), o1.data(), o2.data(), o3.data()};
    for (int missing = 0; missing < 6; ++missing) {
        const float* const* r = missing == 0 ? nullptr : src;
        const float* const* i = missing == 1 ? nullptr : src;
        float* p[4];
        for (int j = 0; j < 4; ++j) p[j] = missing == j + 2 ? nullptr : outs[j];
        EXPECT_EQ(zamsPredictCoef_SBR_C_32f_D2L(r, i, p[0], p[1], p[2], p[3], 0, 0), zamStsNullPtr) << missing;
    }
    EXPECT_TRUE(untouched());
}

// Rows need no alignment: shifting every row by one float changes nothing.
TEST(PredictEdges, UnalignedRows)
{
    const int bands = 9, len = 20;
    Rows rows = realSignal(Signal::Noise, bands, len);
    Rows shifted(len + 2, bands + 1);
    std::vector<const float*> ptr(len + 2);
    for (int n = 0; n < len + 2; ++n) {
        for (int k = 0; k < bands; ++k) shifted.at(n, k + 1) = rows.at(n, k);
        ptr[n] = shifted.ptr[n] + 1;
    }
    float a0[bands], a1[bands], b0[bands], b1[bands];
    zamsPredictCoef_SBR_R_32f_D2L(rows.ptr.data(), a0, a1, bands, len);
    zamsPredictCoef_SBR_R_32f_D2L(ptr.data(), b0, b1, bands, len);
    EXPECT_EQ(std::memcmp(a0, b0, sizeof a0), 0);
    EXPECT_EQ(std::memcmp(a1, b1, sizeof a1), 0);
}

}  // namespace
