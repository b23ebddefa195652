// PS hybrid analysis: a double-precision evaluation of the filter formulas, the
// band order against the centre frequencies of the shared table, and the checks.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "test_support.h"
#include "zamac.h"

namespace {

using cd = std::complex<double>;
constexpr double kPi = 3.141592653589793238462643383279502884;

// Blocks of ps_tables.txt by name.
std::map<std::string, std::vector<std::vector<double>>> psTables()
{
    std::map<std::string, std::vector<std::vector<double>>> t;
    FILE* f = std::fopen(zamtest::sharedPath("tables/ps_tables.txt").c_str(), "r");
    char line[512];
    std::string name;
    while (f && std::fgets(line, sizeof line, f)) {
        char word[64];
        if (std::sscanf(line, "# table %63s", word) == 1) {
            name = word;
        } else if (line[0] != '#' && !name.empty()) {
            std::vector<double> row;
            for (char* p = line; *p;) {
                char* end;
                double v = std::strtod(p, &end);
                if (end == p) break;
                row.push_back(v);
                p = end;
            }
            if (!row.empty()) t[name].push_back(row);
        }
    }
    if (f) std::fclose(f);
    return t;
}

struct Config {
    int config, qmfBands, hybridBands;
};
const Config kConfigs[] = {{20, 3, 10}, {34, 5, 32}};

struct Input {
    Input(int qmfBands, int slots) : data(qmfBands, std::vector<float>(2 * (slots + 12)))
    {
        for (auto& r : data) ptr.push_back(r.data());
    }
    std::vector<std::vector<float>> data;
    std::vector<const float*> ptr;
};

std::vector<std::vector<float>> run(const Config& c, const Input& in, int slots)
{
    std::vector<std::vector<float>> out(slots, std::vector<float>(2 * c.hybridBands));
    std::vector<float*> rows;
    for (auto& r : out) rows.push_back(r.data());
    EXPECT_EQ(zamsAnalysisFilter_PS_32fc_D2(in.ptr.data(), rows.data(), slots, c.config), zamStsOk);
    return out;
}

// The filters written out from their definition, in double precision.
TEST(PsHybrid, MatchesDoublePrecisionFormulas)
{
    auto t = psTables();
    for (const Config& c : kConfigs) {
        const int slots = 38;
        Input in(c.qmfBands, slots);
        std::normal_distribution<float> d(0.0f, 1000.0f);
        for (auto& r : in.data)
            for (auto& v : r) v = d(zamtest::rng());
        auto out = run(c, in, slots);
        // (Q, prototype, hybrid band of each q) per QMF band.
        struct Split {
            int q;
            const char* proto;
            std::vector<int> band;
        };
        const std::vector<Split> splits =
            c.config == 20 ? std::vector<Split>{{8, "hybrid_proto_20_q8", {2, 3, 4, 5, 5, 4, 0, 1}},
                                                {2, "hybrid_proto_20_q2", {7, 6}},
                                                {2, "hybrid_proto_20_q2", {8, 9}}}
                           : std::vector<Split>{{12, "hybrid_proto_34_q12", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
                                                {8, "hybrid_proto_34_q8", {12, 13, 14, 15, 16, 17, 18, 19}},
                                                {4, "hybrid_proto_34_q4", {20, 21, 22, 23}},
                                                {4, "hybrid_proto_34_q4", {24, 25, 26, 27}},
                                                {4, "hybrid_proto_34_q4", {28, 29, 30, 31}}};
        double err = 0, sig = 0;
        for (int n = 0; n < slots; ++n) {
            std::vector<cd> want(c.hybridBands);
            for (int b = 0; b < c.qmfBands; ++b) {
                const auto& g = t[splits[b].proto];
                const int q = splits[b].q;
                for (int k = 0; k < q; ++k)
                    for (int m = 0; m < 13; ++m) {
                        const cd filt = q == 2 ? cd(g[m][1] * std::cos(kPi * k * (m - 6)), 0)
                                               : g[m][1] * std::exp(cd(0, 2 * kPi * (k + 0.5) * (m - 6) / q));
                        const float* x = in.data[b].data() + 2 * (n + 12 - m);
                        want[splits[b].band[k]] += filt * cd(x[0], x[1]);
                    }
            }
            for (int h = 0; h < c.hybridBands; ++h) {
                const cd got(out[n][2 * h], out[n][2 * h + 1]);
                err += std::norm(got - want[h]);
                sig += std::norm(want[h]);
            }
        }
        const double rel = std::sqrt(err / sig);
        std::printf("configuration %d: relative RMS error %.1e\n", c.config, rel);
        EXPECT_LE(rel, 1e-6);
    }
}

// A tone at a hybrid band's centre frequency (table hybrid_bands_*) lands in that
// band: the QMF band b signal at frequency f (in QMF bands) turns at
// pi (f - b) - pi (b mod 2) radians per slot.
TEST(PsHybrid, BandOrderFollowsTheCentreFrequencies)
{
    auto t = psTables();
    for (const Config& c : kConfigs) {
        const auto& bands = t[c.config == 20 ? "hybrid_bands_20" : "hybrid_bands_34"];
        ASSERT_EQ(static_cast<int>(bands.size()), c.hybridBands);
        const double scale = c.config == 20 ? 8.0 : 24.0;
        for (const auto& row : bands) {
            const int k = static_cast<int>(row[0]), b = static_cast<int>(row[1]);
            const double w = kPi * (row[2] / scale - b) - kPi * (b & 1);
            const int slots = 16;
            Input in(c.qmfBands, slots);
            for (int n = 0; n < slots + 12; ++n) {
                in.data[b][2 * n] = static_cast<float>(std::cos(w * n));
                in.data[b][2 * n + 1] = static_cast<float>(std::sin(w * n));
            }
            auto out = run(c, in, slots);
            int best = -1;
            double bestEnergy = -1;
            for (int h = 0; h < c.hybridBands; ++h) {
                double e = 0;
                for (int n = 0; n < slots; ++n) e += out[n][2 * h] * out[n][2 * h] + out[n][2 * h + 1] * out[n][2 * h + 1];
                if (e > bestEnergy) bestEnergy = e, best = h;
            }
            EXPECT_EQ(best, k) << "configuration " << c.config << ", QMF band " << b;
        }
    }
}

TEST(PsHybrid, ChecksInOrderAndWriteNothingOnFailure)
{
    Input in(5, 64);
    auto buf = zamtest::canaryVector<float>(65 * 64);
    std::vector<float*> rows;
    for (int n = 0; n < 65; ++n) rows.push_back(buf.data() + 64 * n);
    EXPECT_EQ(zamsAnalysisFilter_PS_32fc_D2(nullptr, rows.data(), 4, 20), zamStsNullPtr);
    EXPECT_EQ(zamsAnalysisFilter_PS_32fc_D2(in.ptr.data(), nullptr, 4, 20), zamStsNullPtr);
    EXPECT_EQ(zamsAnalysisFilter_PS_32fc_D2(in.ptr.data(), rows.data(), 0, 7), zamStsSize);
    EXPECT_EQ(zamsAnalysisFilter_PS_32fc_D2(in.ptr.data(), rows.data(), 65, 20), zamStsSize);
    EXPECT_EQ(zamsAnalysisFilter_PS_32fc_D2(in.ptr.data(), rows.data(), 4, 10), zamStsBadArg);
    in.ptr[4] = nullptr;  // the fifth row is read only in configuration 34
    EXPECT_EQ(zamsAnalysisFilter_PS_32fc_D2(in.ptr.data(), rows.data(), 4, 34), zamStsNullPtr);
    rows[3] = nullptr;
    EXPECT_EQ(zamsAnalysisFilter_PS_32fc_D2(in.ptr.data(), rows.data(), 4, 20), zamStsNullPtr);
    EXPECT_TRUE(zamtest::untouched(buf));
    EXPECT_EQ(zamsAnalysisFilter_PS_32fc_D2(in.ptr.data(), rows.data(), 3, 20), zamStsOk);
}

}  // namespace
