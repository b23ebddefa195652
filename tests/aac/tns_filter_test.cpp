// Temporal noise shaping of the AAC spectral tools.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "aac/aac_quant.h"
#include "aac/aac_tns.h"
#include "test_support.h"
#include "zamac.h"

namespace {

using zamtest::canaryVector;
using zamtest::untouched;

TEST(TnsTables, ReflectionCoefficientsFollowTheirDefinition)
{
    for (int r = 3; r <= 4; ++r) {
        for (int i = -8; i <= 7; ++i) {
            const double step = i < 0 ? (std::ldexp(1.0, r - 1) + 0.5) : (std::ldexp(1.0, r - 1) - 0.5);
            const double exact = std::sin(i / (step / (M_PI / 2))) * 2147483648.0;
            EXPECT_NEAR(zam::kAacTnsReflection[r - 3][i + 8], exact, 1.0) << r << " " << i;
        }
    }
}

struct Conversion {
    std::vector<int8_t> indices;
    int res;
    std::vector<int32_t> a;
    int shift;
};

// Worked out independently (scripts/aac_spectral_vectors.py).
const Conversion kConversions[] = {
    {{3}, 4, {39445600}, 26},
    {{-8}, 4, {-66822590}, 26},
    {{7, -3}, 3, {0, -58117982}, 26},
    {{1, 2, 3}, 4, {35671772, 38832570, 39445600}, 26},
    {{-4, 3, -2, 1, 0}, 3, {-47823306, 53528317, -29503764, 7279361, 0}, 24},
    {{7, 7, 7, 7, 7, 7, 7}, 4, {7265547, 21643490, 35931583, 35903486, 21592729, 7237139, 1042831}, 20},
    {{-8, 5, -3, 2, 6, -7, 1, 0, 4, -2, 3, -5},
     4,
     {-17640547, 32900087, -37354540, 28811445, -13966626, -1190864, 16981077, -31406495, 37007855, -29960657,
      14972796, -3347127},
     22},
    {{3, -4, 2, 1, -1, 3, -2, 0, 1, 2, -3, 3},
     3,
     {-22704659, 10130551, 31860919, -40638515, -9361694, 44431217, -8389813, -41008760, 31183128, 10627647,
      -22495123, 8178288},
     23},
};

TEST(TnsConvert, WorkedVectors)
{
    for (const auto& c : kConversions) {
        int32_t a[12];
        int shift = 0;
        ASSERT_EQ(zam::aacTnsConvert(c.indices.data(), static_cast<int>(c.indices.size()), c.res, a, &shift), zamStsOk);
        EXPECT_EQ(shift, c.shift);
        for (size_t i = 0; i < c.a.size(); ++i) EXPECT_EQ(a[i], c.a[i]) << "order " << c.indices.size() << " i " << i;
    }
    // Order 1 with index 0 is no filter at all.
    int8_t zero = 0;
    int32_t a[1];
    int shift = 0;
    ASSERT_EQ(zam::aacTnsConvert(&zero, 1, 4, a, &shift), zamStsOk);
    EXPECT_EQ(a[0], 0);
    EXPECT_EQ(shift, 31);
    int8_t bad[3] = {1, 8, 0};
    EXPECT_EQ(zam::aacTnsConvert(bad, 3, 4, a, &shift), zamStsAacTnsCoefErr);
    bad[1] = -9;
    EXPECT_EQ(zam::aacTnsConvert(bad, 3, 3, a, &shift), zamStsAacTnsCoefErr);
}

// Orders 1..12, both widths: the fixed-point coefficients follow a double-precision
// step-up recursion on the same reflection coefficients.
TEST(TnsConvert, CloseToDoublePrecisionStepUp)
{
    std::mt19937 gen(21);
    for (int res = 3; res <= 4; ++res) {
        const int lo = res == 3 ? -4 : -8, hi = res == 3 ? 3 : 7;
        std::uniform_int_distribution<int> index(lo, hi);
        for (int order = 1; order <= 12; ++order) {
            for (int trial = 0; trial < 50; ++trial) {
                std::vector<int8_t> idx(order);
                for (auto& v : idx) v = static_cast<int8_t>(index(gen));
                double ref[13] = {};
                for (int m = 1; m <= order; ++m) {
                    const double k = zam::kAacTnsReflection[res - 3][idx[m - 1] + 8] / 2147483648.0;
                    double prev[13];
                    std::copy(ref, ref + 13, prev);
                    ref[m] = k;
                    for (int i = 1; i < m; ++i) ref[i] = prev[i] + k * prev[m - i];
                }
                int32_t a[12];
                int shift = 0;
                ASSERT_EQ(zam::aacTnsConvert(idx.data(), order, res, a, &shift), zamStsOk);
                double largest = 0;
                for (int i = 1; i <= order; ++i) largest = std::max(largest, std::fabs(ref[i]));
                for (int i = 1; i <= order; ++i)
                    ASSERT_NEAR(std::ldexp(a[i - 1], -shift), ref[i], 1e-5 * (1 + largest)) << order << " " << i;
                int32_t biggest = 0;
                for (int i = 0; i < order; ++i) biggest = std::max(biggest, std::abs(a[i]));
                EXPECT_LE(biggest, 1 << 26);
            }
        }
    }
}

// ---------------------------------------------------------------- filters

const int32_t kInput[16] = {-1700, -663, 448, 1633, 2892, -775, 632, 2113, 3668, 5297, 2000, 3777, 5628, 7553, 9552, 6625};
const int32_t kAllPole[16] = {-1700, 34, -461, 1839, 1895, -585, 1869, 1038, 4226, 4110, 2539, 4899, 4955, 8099, 8838, 7263};
const int32_t kAllZero[16] = {-1700, -1361, 1071, 2165, 3325, -449, -1209, 2780, 4201, 5688, 2241, 1808, 6124, 7872, 9686, 6566};
const int32_t kAllPoleDown[16] = {-1355, 44, 691, 1883, 1929, 1979, -286, 5009, 2160, 7184, 2734, 5715, 5847, 8237, 6834, 6625};

// A long 44.1 kHz frame with two filters: one of order 0 over bands 4..48 and one of
// order 2 (indices 5, -3, width 4) over bands 0..3, i.e. coefficients 0..15.
struct LongTns {
    std::vector<int32_t> x = std::vector<int32_t>(1024);
    int32_t numFilt[8] = {2};
    int32_t length[8] = {45, 4};
    int32_t order[8] = {0, 2};
    int32_t coefRes[8] = {4};
    int8_t coef[60] = {5, -3};
    int32_t direction[8] = {0, 0};
    LongTns()
    {
        for (int i = 0; i < 1024; ++i) x[i] = i < 16 ? kInput[i] : 3 * i - 500;
    }
    ZamStatus decode(int32_t maxSfb = 49)
    {
        return zamsDecodeTNS_AAC_32s_I(x.data(), numFilt, length, order, coefRes, coef, direction, maxSfb, 0, 4, 1024);
    }
    ZamStatus encode(int32_t maxSfb = 49)
    {
        return zamsEncodeTNS_AAC_32s_I(x.data(), numFilt, length, order, coefRes, coef, direction, maxSfb, 1, 4, 1024);
    }
};

TEST(TnsFilter, WorkedVectorsBothDirections)
{
    for (int dir = 0; dir < 2; ++dir) {
        for (int enc = 0; enc < 2; ++enc) {
            LongTns t;
            t.direction[1] = dir;
            ASSERT_EQ(enc ? t.encode() : t.decode(), zamStsOk);
            const int32_t* expect = dir ? kAllPoleDown : (enc ? kAllZero : kAllPole);
            if (dir && enc) continue;  // not worked out
            for (int i = 0; i < 16; ++i) EXPECT_EQ(t.x[i], expect[i]) << dir << enc << " " << i;
            for (int i = 16; i < 1024; ++i) ASSERT_EQ(t.x[i], 3 * i - 500);
        }
    }
}

TEST(TnsFilter, RangeAboveTheLimitConsumesCoefficients)
{
    // 44.1 kHz long: TNS stops at band 42. Filter 1 covers bands 44..48 (empty after
    // the limit) with 2 coefficients; filter 2 covers 4..43 with the next 2.
    LongTns t;
    t.length[0] = 5;
    t.order[0] = 2;
    t.coef[0] = 7;
    t.coef[1] = 7;
    t.length[1] = 40;
    t.order[1] = 2;
    t.coef[2] = 5;
    t.coef[3] = -3;
    std::vector<int32_t> expect = t.x;
    int32_t a[2];
    int shift = 0;
    ASSERT_EQ(zam::aacTnsConvert(t.coef + 2, 2, 4, a, &shift), zamStsOk);
    const uint16_t* off = zam::aacSwbOffsets(4, false);
    zam::aacTnsAllPole(expect.data() + off[4], off[42] - off[4], 1, a, 2, shift);
    ASSERT_EQ(t.decode(), zamStsOk);
    EXPECT_EQ(t.x, expect);

    // max_sfb lower than the limit moves the limit down.
    LongTns u;
    u.length[0] = 5;
    u.order[0] = 2;
    u.length[1] = 40;
    u.coef[2] = 5;
    u.coef[3] = -3;
    std::vector<int32_t> expectU = u.x;
    zam::aacTnsAllPole(expectU.data() + off[4], off[20] - off[4], 1, a, 2, shift);
    ASSERT_EQ(u.decode(20), zamStsOk);
    EXPECT_EQ(u.x, expectU);
}

TEST(TnsFilter, LengthBeyondTheBandsLeftRunsToBandZero)
{
    LongTns t;
    t.numFilt[0] = 2;
    t.length[0] = 40;  // bands 9..48
    t.order[0] = 0;
    t.length[1] = 49;  // asks for 49 bands below band 9: runs down to 0
    t.order[1] = 2;
    std::vector<int32_t> expect = t.x;
    int32_t a[2];
    int shift = 0;
    ASSERT_EQ(zam::aacTnsConvert(t.coef, 2, 4, a, &shift), zamStsOk);
    const uint16_t* off = zam::aacSwbOffsets(4, false);
    zam::aacTnsAllPole(expect.data(), off[9], 1, a, 2, shift);
    ASSERT_EQ(t.decode(), zamStsOk);
    EXPECT_EQ(t.x, expect);
}

TEST(TnsFilter, OrderOneIndexZeroChangesNothing)
{
    LongTns t;
    t.numFilt[0] = 1;
    t.length[0] = 49;
    t.order[0] = 1;
    t.coef[0] = 0;
    const auto before = t.x;
    ASSERT_EQ(t.decode(), zamStsOk);
    EXPECT_EQ(t.x, before);
    ASSERT_EQ(t.encode(), zamStsOk);
    EXPECT_EQ(t.x, before);
}

// A short 48 kHz frame: every window has one filter over all 14 bands.
struct ShortTns {
    std::vector<int32_t> x = std::vector<int32_t>(1024);
    int32_t numFilt[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    int32_t length[8] = {14, 14, 14, 14, 14, 14, 14, 14};
    int32_t order[8] = {3, 2, 1, 7, 0, 2, 3, 1};
    int32_t coefRes[8] = {4, 3, 4, 4, 3, 3, 4, 3};
    int8_t coef[60] = {};
    int32_t direction[8] = {0, 1, 0, 1, 0, 0, 1, 1};
    ShortTns()
    {
        std::mt19937 gen(77);
        std::uniform_int_distribution<int32_t> v(-30000, 30000);
        for (auto& e : x) e = v(gen);
        std::uniform_int_distribution<int> c(-4, 3);
        for (auto& e : coef) e = static_cast<int8_t>(c(gen));
    }
    ZamStatus decode() { return zamsDecodeTNS_AAC_32s_I(x.data(), numFilt, length, order, coefRes, coef, direction, 14, 0, 3, 128); }
    ZamStatus encode() { return zamsEncodeTNS_AAC_32s_I(x.data(), numFilt, length, order, coefRes, coef, direction, 14, 1, 3, 128); }
    // The expected spectrum after windows 0..lastWindow.
    std::vector<int32_t> expected(int lastWindow, std::vector<int32_t> y) const
    {
        int pos = 0;
        for (int w = 0; w <= lastWindow; ++w) {
            if (order[w] > 0) {
                int32_t a[12];
                int shift = 0;
                EXPECT_EQ(zam::aacTnsConvert(coef + pos, order[w], coefRes[w], a, &shift), zamStsOk);
                int32_t* first = direction[w] ? y.data() + w * 128 + 127 : y.data() + w * 128;
                zam::aacTnsAllPole(first, 128, direction[w] ? -1 : 1, a, order[w], shift);
            }
            pos += order[w];
        }
        return y;
    }
};

TEST(TnsFilter, EightShortWindowsAndStatusesKeepTheWorkDone)
{
    ShortTns t;
    const auto input = t.x;
    ASSERT_EQ(t.decode(), zamStsOk);
    EXPECT_EQ(t.x, t.expected(7, input));

    struct Fault {
        int window;
        void (*apply)(ShortTns&, int);
        ZamStatus status;
    } faults[] = {
        {3, [](ShortTns& s, int w) { s.numFilt[w] = 2; }, zamStsAacTnsNumFiltErr},
        {2, [](ShortTns& s, int w) { s.numFilt[w] = -1; }, zamStsAacTnsNumFiltErr},
        {5, [](ShortTns& s, int w) { s.length[w] = 15; }, zamStsAacTnsLenErr},
        {1, [](ShortTns& s, int w) { s.length[w] = -1; }, zamStsAacTnsLenErr},
        {6, [](ShortTns& s, int w) { s.order[w] = 8; }, zamStsAacTnsOrderErr},
        {4, [](ShortTns& s, int w) { s.order[w] = -1; }, zamStsAacTnsOrderErr},
        {2, [](ShortTns& s, int w) { s.coefRes[w] = 5; }, zamStsAacTnsCoefResErr},
        {3, [](ShortTns& s, int w) { s.coef[3 + 2 + 1 + 4] = 8; }, zamStsAacTnsCoefErr},
        {1, [](ShortTns& s, int w) { s.direction[w] = 2; }, zamStsAacTnsDirErr},
    };
    for (const auto& f : faults) {
        ShortTns s;
        f.apply(s, f.window);
        const auto in = s.x;
        ASSERT_EQ(s.decode(), f.status) << f.window;
        EXPECT_EQ(s.x, s.expected(f.window - 1, in)) << f.window;
    }
    // An order-0 filter checks neither its window's width nor its direction.
    ShortTns z;
    z.coefRes[4] = 9;
    z.direction[4] = 7;
    const auto in = z.x;
    ASSERT_EQ(z.decode(), zamStsOk);
    EXPECT_EQ(z.x, z.expected(7, in));
}

TEST(TnsFilter, LongWindowFaultsAfterTheFirstFilter)
{
    for (int which = 0; which < 3; ++which) {
        LongTns t;
        t.numFilt[0] = 3;
        t.length[0] = 20;  // bands 29..48, beyond the limit 42 only partly
        t.order[0] = 2;
        t.coef[0] = 3;
        t.coef[1] = -2;
        t.length[1] = 10;
        t.order[1] = 13;
        t.length[2] = 5;
        if (which == 1) {
            t.order[1] = 1;
            t.length[1] = 50;
        }
        if (which == 2) t.numFilt[0] = 4;
        std::vector<int32_t> expect = t.x;
        if (which != 2) {
            int32_t a[2];
            int shift = 0;
            ASSERT_EQ(zam::aacTnsConvert(t.coef, 2, 4, a, &shift), zamStsOk);
            const uint16_t* off = zam::aacSwbOffsets(4, false);
            zam::aacTnsAllPole(expect.data() + off[29], off[42] - off[29], 1, a, 2, shift);
        }
        const ZamStatus want[3] = {zamStsAacTnsOrderErr, zamStsAacTnsLenErr, zamStsAacTnsNumFiltErr};
        ASSERT_EQ(t.decode(), want[which]);
        EXPECT_EQ(t.x, expect);
    }
}

// Decoding after encoding with the same filters returns the input up to the
// truncations: with e the difference, e[n] = -(t1 + t2) - sum a_i e[n-i] / 2^s with
// both truncations t in [0, 1), so |e| <= 2 * sum |h|, h the impulse response of
// the decoder's all-pole filter.
TEST(TnsFilter, DecodeAfterEncodeIsTheInputWithinTheTruncationBound)
{
    std::mt19937 gen(1234);
    double worstBound = 0;
    int32_t worstError = 0;
    for (int trial = 0; trial < 300; ++trial) {
        const bool eightShort = trial % 3 == 2;
        const int sri = static_cast<int>(gen() % 12);
        const int numSwb = zam::aacNumSwb(sri, eightShort);
        const int res = 3 + static_cast<int>(gen() % 2);
        std::uniform_int_distribution<int> index(res == 3 ? -4 : -8, res == 3 ? 3 : 7);
        int32_t numFilt[8], length[8], order[8], coefRes[8], direction[8];
        int8_t coef[60] = {};
        const int windows = eightShort ? 8 : 1;
        int filters = 0, pos = 0;
        double bound = 0;
        for (int w = 0; w < windows; ++w) {
            numFilt[w] = eightShort ? 1 : 1 + static_cast<int>(gen() % 3);
            coefRes[w] = res;
            for (int f = 0; f < numFilt[w]; ++f, ++filters) {
                length[filters] = 1 + static_cast<int>(gen() % numSwb);
                order[filters] = 1 + static_cast<int>(gen() % (eightShort ? 7 : 12));
                direction[filters] = static_cast<int>(gen() % 2);
                for (int i = 0; i < order[filters]; ++i) coef[pos + i] = static_cast<int8_t>(index(gen));
                int32_t a[12];
                int shift = 0;
                ASSERT_EQ(zam::aacTnsConvert(coef + pos, order[filters], res, a, &shift), zamStsOk);
                std::vector<double> h(eightShort ? 128 : 1024, 0.0);
                double sum = 0;
                for (size_t n = 0; n < h.size(); ++n) {
                    double v = n == 0 ? 1.0 : 0.0;
                    for (int i = 1; i <= order[filters] && i <= static_cast<int>(n); ++i)
                        v -= std::ldexp(a[i - 1], -shift) * h[n - i];
                    h[n] = v;
                    sum += std::fabs(v);
                }
                bound = std::max(bound, 2 * sum);
                pos += order[filters];
            }
        }
        if (bound > 1e4) continue;  // nearly unstable: the round trip says nothing useful
        std::vector<int32_t> x(1024);
        std::uniform_int_distribution<int32_t> v(-(1 << 18), 1 << 18);
        for (auto& e : x) e = v(gen);
        auto y = x;
        ASSERT_EQ(zamsEncodeTNS_AAC_32s_I(y.data(), numFilt, length, order, coefRes, coef, direction, numSwb, 1,
                                          static_cast<uint32_t>(sri), eightShort ? 128 : 1024),
                  zamStsOk);
        ASSERT_EQ(zamsDecodeTNS_AAC_32s_I(y.data(), numFilt, length, order, coefRes, coef, direction, numSwb, 0,
                                          static_cast<uint32_t>(sri), eightShort ? 128 : 1024),
                  zamStsOk);
        for (int i = 0; i < 1024; ++i) {
            const int32_t err = std::abs(y[i] - x[i]);
            ASSERT_LE(err, bound) << "trial " << trial << " coef " << i;
            worstError = std::max(worstError, err);
        }
        worstBound = std::max(worstBound, bound);
    }
    RecordProperty("worst_error", worstError);
    EXPECT_GT(worstError, 0);  // the truncations are real
}

TEST(TnsFilter, ArgumentChecksInOrderWriteNothing)
{
    auto x = canaryVector<int32_t>(1024);
    int32_t numFilt[8] = {1}, length[8] = {49}, order[8] = {2}, coefRes[8] = {4}, direction[8] = {0};
    int8_t coef[60] = {5, -3};
    for (int enc = 0; enc < 2; ++enc) {
        auto call = [&](int32_t* px, int32_t maxSfb, int32_t profile, uint32_t sri, int32_t winLen) {
            return enc ? zamsEncodeTNS_AAC_32s_I(px, numFilt, length, order, coefRes, coef, direction, maxSfb, profile,
                                                 sri, winLen)
                       : zamsDecodeTNS_AAC_32s_I(px, numFilt, length, order, coefRes, coef, direction, maxSfb, profile,
                                                 sri, winLen);
        };
        EXPECT_EQ(call(nullptr, 99, 0, 99, 7), zamStsNullPtr);
        EXPECT_EQ(zamsDecodeTNS_AAC_32s_I(x.data(), numFilt, length, order, coefRes, nullptr, direction, 1, 0, 4, 1024),
                  zamStsNullPtr);
        EXPECT_EQ(zamsEncodeTNS_AAC_32s_I(x.data(), numFilt, length, order, coefRes, coef, nullptr, 1, 1, 4, 1024),
                  zamStsNullPtr);
        EXPECT_EQ(call(x.data(), 99, 0, 99, 7), zamStsAacWinLenErr);
        if (enc) EXPECT_EQ(call(x.data(), 99, 0, 99, 1024), zamStsAacProfileErr);
        EXPECT_EQ(call(x.data(), 99, 1, 12, 1024), zamStsAacSmplRateIdxErr);
        EXPECT_EQ(call(x.data(), 52, 1, 4, 1024), zamStsAacMaxSfbErr);
        EXPECT_EQ(call(x.data(), -1, 1, 4, 1024), zamStsAacMaxSfbErr);
        EXPECT_EQ(call(x.data(), 50, 1, 4, 1024), zamStsAacMaxSfbErr);
        EXPECT_EQ(call(x.data(), 15, 1, 4, 128), zamStsAacMaxSfbErr);
        EXPECT_TRUE(untouched(x));
    }
}

}  // namespace
