// Random arguments, valid and invalid, on arrays of exactly the documented sizes:
// every call returns one of its statuses, and (in the sanitizer build) none reads
// or writes outside its arrays.
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

#include "zamac.h"

namespace {

struct RandomFrame {
    std::mt19937 gen;
    int32_t winLen, numWinGrp, maxSfb, sri;
    std::vector<int32_t> groupLength;

    explicit RandomFrame(uint32_t seed) : gen(seed)
    {
        winLen = pick({1024, 128, 1024, 128, 512});
        numWinGrp = winLen == 1024 ? pick({1, 1, 1, 2}) : 1 + static_cast<int32_t>(gen() % 9);
        groupLength.assign(8, 0);
        // Usually a real grouping; sometimes lengths that do not add up to 8.
        int left = 8;
        for (int g = 0; g < numWinGrp && g < 8; ++g) {
            int len = g + 1 == numWinGrp ? left : 1 + static_cast<int>(gen() % std::max(1, left - (numWinGrp - g - 1)));
            if (gen() % 10 == 0) len = static_cast<int>(gen() % 12) - 2;
            groupLength[g] = len;
            left = std::max(0, left - std::max(0, len));
        }
        maxSfb = static_cast<int32_t>(gen() % 56) - 2;
        sri = static_cast<int32_t>(gen() % 14) - 1;
    }
    int32_t pick(std::initializer_list<int32_t> v) { return *(v.begin() + gen() % v.size()); }
    size_t bands(int perGroupOrWindow) const { return static_cast<size_t>(std::max(0, maxSfb) * perGroupOrWindow); }
    template <typename T>
    std::vector<T> randomVector(size_t n, int lo, int hi)
    {
        std::vector<T> v(std::max<size_t>(n, 1));
        std::uniform_int_distribution<int> d(lo, hi);
        for (auto& e : v) e = static_cast<T>(d(gen));
        return v;
    }
};

const std::set<ZamStatus> kWalkStatuses = {zamStsOk, zamStsAacWinLenErr, zamStsAacNumWinGrpErr, zamStsAacMaxSfbErr,
                                           zamStsAacSmplRateIdxErr};

TEST(SpectralRobustness, RandomArgumentsStayInsideTheirArrays)
{
    for (uint32_t seed = 0; seed < 3000; ++seed) {
        RandomFrame f(seed);
        const int groups = std::max(1, std::min(8, f.numWinGrp));
        std::vector<int32_t> x = f.randomVector<int32_t>(1024, -9000, 9000);
        std::vector<int32_t> y = f.randomVector<int32_t>(1024, -9000, 9000);
        std::vector<uint8_t> cb = f.randomVector<uint8_t>(f.bands(groups), 0, 15);
        std::vector<int16_t> sf = f.randomVector<int16_t>(f.bands(groups), -20, 300);
        std::vector<uint8_t> ms = f.randomVector<uint8_t>(480, 0, 1);

        ZamStatus st = zamsQuantInv_AAC_32s_I(x.data(), sf.data(), f.numWinGrp, f.groupLength.data(), f.maxSfb,
                                              cb.data(), static_cast<uint32_t>(f.sri), f.winLen);
        EXPECT_TRUE(kWalkStatuses.count(st) || st == zamStsAacQuantValErr) << st;

        const int32_t mask = static_cast<int32_t>(f.gen() % 4);
        st = zamsDecodeMsStereo_AAC_32s_I(x.data(), y.data(), mask, ms.data(), cb.data(), f.numWinGrp,
                                          f.groupLength.data(), f.maxSfb, f.sri, f.winLen);
        EXPECT_TRUE(kWalkStatuses.count(st) || st == zamStsAacMsMaskErr) << st;

        st = zamsDecodeIsStereo_AAC_32s(x.data(), y.data(), sf.data(), cb.data(), f.numWinGrp, f.groupLength.data(),
                                        f.maxSfb, f.sri, f.winLen);
        EXPECT_TRUE(kWalkStatuses.count(st)) << st;

        // Noise: scale factors per window, prediction flags up to maxSfb + 1.
        std::vector<uint16_t> noiseSf = f.randomVector<uint16_t>(f.bands(8), 0, 255);
        std::vector<int32_t> pred(static_cast<size_t>(std::max(0, f.maxSfb) + 1), 1);
        std::vector<int32_t> noiseState = f.randomVector<int32_t>(f.bands(groups), -1000, 1000);
        int32_t state = static_cast<int32_t>(f.gen());
        st = zamsDecodePNS_AAC_32s(x.data(), pred.data(), cb.data(), noiseSf.data(), f.maxSfb, f.numWinGrp,
                                   f.groupLength.data(), f.sri, f.winLen, &state);
        EXPECT_TRUE(kWalkStatuses.count(st)) << st;
        st = zamsDecodeMsPNS_AAC_32s(y.data(), pred.data(), cb.data(), noiseSf.data(), f.maxSfb, f.numWinGrp,
                                     f.groupLength.data(), f.sri, f.winLen, &state, static_cast<int32_t>(f.gen() % 3),
                                     ms.data(), noiseState.data());
        EXPECT_TRUE(kWalkStatuses.count(st)) << st;

        std::vector<int32_t> out(1024);
        st = zamsDeinterleaveSpectrum_AAC_32s(x.data(), out.data(), f.numWinGrp, f.groupLength.data(), f.maxSfb, f.sri,
                                              f.winLen);
        EXPECT_TRUE(kWalkStatuses.count(st)) << st;

        // TNS: one entry per window / filter, 60 coefficient bytes.
        std::vector<int32_t> numFilt = f.randomVector<int32_t>(8, -1, 4);
        std::vector<int32_t> length = f.randomVector<int32_t>(8, -1, 52);
        std::vector<int32_t> order = f.randomVector<int32_t>(8, -1, 13);
        std::vector<int32_t> coefRes = f.randomVector<int32_t>(8, 2, 5);
        std::vector<int32_t> direction = f.randomVector<int32_t>(8, -1, 2);
        std::vector<int8_t> coef = f.randomVector<int8_t>(60, -9, 8);
        if (f.gen() % 2) {  // mostly valid filter data, so that the filters run
            for (auto& v : numFilt) v = f.winLen == 128 ? static_cast<int32_t>(f.gen() % 2) : 1;
            for (auto& v : order) v = static_cast<int32_t>(f.gen() % 8);
            for (auto& v : coefRes) v = 3 + static_cast<int32_t>(f.gen() % 2);
            for (auto& v : direction) v = static_cast<int32_t>(f.gen() % 2);
            for (auto& v : coef) v = static_cast<int8_t>(static_cast<int>(f.gen() % 8) - 4);
            for (auto& v : length) v = static_cast<int32_t>(f.gen() % 15);
        }
        const std::set<ZamStatus> tns = {zamStsOk,           zamStsAacWinLenErr,    zamStsAacSmplRateIdxErr,
                                         zamStsAacMaxSfbErr, zamStsAacTnsNumFiltErr, zamStsAacTnsLenErr,
                                         zamStsAacTnsOrderErr, zamStsAacTnsCoefResErr, zamStsAacTnsCoefErr,
                                         zamStsAacTnsDirErr,  zamStsAacProfileErr};
        st = zamsDecodeTNS_AAC_32s_I(x.data(), numFilt.data(), length.data(), order.data(), coefRes.data(), coef.data(),
                                     direction.data(), f.maxSfb, 0, static_cast<uint32_t>(f.sri), f.winLen);
        EXPECT_TRUE(tns.count(st)) << st;
        st = zamsEncodeTNS_AAC_32s_I(x.data(), numFilt.data(), length.data(), order.data(), coefRes.data(), coef.data(),
                                     direction.data(), f.maxSfb, static_cast<int32_t>(f.gen() % 3),
                                     static_cast<uint32_t>(f.sri), f.winLen);
        EXPECT_TRUE(tns.count(st)) << st;
    }
}

}  // namespace
