// Whole frames of real streams (walked by the corpus test): every channel goes
// through noiseless decoding, inverse quantization, M/S, intensity, noise
// substitution, deinterleaving and TNS, and the spectrum (as float, divided by 8)
// is compared with the same quantized values taken through a straightforward
// double-precision implementation of the standard's formulas written here.
//
// Error bound: per window, |library / 8 - reference| <= 2^-18 * peak + 0.25, peak
// the largest reference magnitude of the window. The fixed-point path truncates
// every value to 1/8 (and M/S adds two such truncations); the power tables and
// polynomial are good to 2^-24 relatively, and TNS runs its coefficients with
// 20..31 fractional bits, spreading its small errors over the filter's range
// (hence a term tied to the window's peak rather than to each value). On the corpus
// the worst error is about half of this bound.
// Noise bands cannot be compared value by value: their energy must be
// 2^(e/2) within the quadratic inverse square root (0.95..2.1 times, the upper
// end for bands whose measured noise energy passes 2^31). Eight-short frames with
// noise bands are not compared, because the noise tool steps its windows by the
// start of the last band, as designed, and does not follow either layout.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <iostream>
#include <string>
#include <vector>

#include "aac_test_util.h"
#include "test_support.h"
#include "zamac.h"

namespace {

constexpr int kTnsMaxLong[12] = {31, 31, 34, 40, 42, 51, 46, 46, 42, 42, 42, 39};
constexpr int kTnsMaxShort[12] = {9, 9, 10, 14, 14, 14, 14, 14, 14, 14, 14, 14};

// swb_offset tables read straight from the shared table file.
struct SwbTables {
    std::vector<int> offsets[12][2];  // [sfi][0 long, 1 short]
    bool load()
    {
        FILE* f = std::fopen(zamtest::sharedPath("tables/aac_swb_offsets.txt").c_str(), "r");
        if (!f) return false;
        char line[4096];
        while (std::fgets(line, sizeof line, f)) {
            if (line[0] == '#' || line[0] == '\n') continue;
            int sfi, hz, n, consumed;
            char window[16];
            const char* p = line;
            if (std::sscanf(p, "%d %d %15s %d%n", &sfi, &hz, window, &n, &consumed) != 4) continue;
            p += consumed;
            std::vector<int>& v = offsets[sfi][std::strcmp(window, "short") == 0];
            for (int i = 0; i <= n; ++i) {
                int o;
                std::sscanf(p, "%d%n", &o, &consumed);
                p += consumed;
                v.push_back(o);
            }
        }
        std::fclose(f);
        return true;
    }
};

SwbTables g_swb;

struct Channel {
    AacChanInfo info;
    AacIcsInfo ics;
    int16_t sf[8 * 64];
    uint8_t cb[8 * 64];
    int32_t q[1024];
    int8_t tnsCoef[60];
};

// ------------------------------------------------------------- the reference

bool isNoiseOrIntensity(int cb) { return cb == 13 || cb == 14 || cb == 15; }

// Dequantized values in the grouped order; noise and intensity bands are 0.
void referenceDequantize(const Channel& c, std::vector<double>& x)
{
    const bool shortWin = c.ics.window_sequence == 2;
    const std::vector<int>& off = g_swb.offsets[c.info.sampling_frequency_index][shortWin];
    x.assign(1024, 0.0);
    int start = 0, band = 0;
    for (int g = 0; g < c.ics.num_window_groups; ++g) {
        const int len = shortWin ? c.ics.window_group_length[g] : 1;
        int p = start;
        for (int b = 0; b < c.ics.max_sfb; ++b, ++band) {
            const int w = (off[b + 1] - off[b]) * len;
            if (c.cb[band] != 0 && !isNoiseOrIntensity(c.cb[band])) {
                const double gain = std::pow(2.0, 0.25 * (c.sf[band] - 100));
                for (int i = p; i < p + w; ++i) {
                    const double a = std::pow(std::fabs(static_cast<double>(c.q[i])), 4.0 / 3.0);
                    x[i] = (c.q[i] < 0 ? -a : a) * gain;
                }
            }
            p += w;
        }
        start += len * (shortWin ? 128 : 1024);
    }
}

// Grouped order to eight windows of 128 (long frames stay as they are). mask gets
// 1 for the coefficients of noise bands.
void referenceLayout(const Channel& c, const std::vector<double>& grouped, std::vector<double>& out,
                     std::vector<int>* bandOf)
{
    out.assign(1024, 0.0);
    if (bandOf) bandOf->assign(1024, -1);
    const bool shortWin = c.ics.window_sequence == 2;
    const std::vector<int>& off = g_swb.offsets[c.info.sampling_frequency_index][shortWin];
    int window = 0, src = 0, band = 0;
    for (int g = 0; g < c.ics.num_window_groups; ++g) {
        const int len = shortWin ? c.ics.window_group_length[g] : 1;
        src = window * 128;
        for (int b = 0; b < c.ics.max_sfb; ++b, ++band) {
            for (int j = 0; j < len; ++j) {
                for (int i = off[b]; i < off[b + 1]; ++i) {
                    const int dst = (shortWin ? (window + j) * 128 : 0) + i;
                    out[dst] = grouped[src++];
                    if (bandOf) (*bandOf)[dst] = band;
                }
            }
        }
        window += len;
    }
}

// The standard's TNS: sin-quantized reflection coefficients, step-up to direct
// form, all-pole filtering in double precision.
void referenceTns(const Channel& c, std::vector<double>& x)
{
    if (!c.info.tns_data_present) return;
    const bool shortWin = c.ics.window_sequence == 2;
    const int sfi = c.info.sampling_frequency_index;
    const std::vector<int>& off = g_swb.offsets[sfi][shortWin];
    const int numSwb = static_cast<int>(off.size()) - 1;
    const int limit = std::min(c.ics.max_sfb, shortWin ? kTnsMaxShort[sfi] : kTnsMaxLong[sfi]);
    int filter = 0, coef = 0;
    for (int w = 0; w < (shortWin ? 8 : 1); ++w) {
        int top = numSwb;
        for (int f = 0; f < c.info.n_filt[w]; ++f, ++filter) {
            const int order = c.info.order[filter];
            const int bottom = std::max(top - c.info.length[filter], 0);
            if (order > 0) {
                const double res = c.info.coef_res[w];
                const double iqfac = (std::pow(2.0, res - 1) - 0.5) / (M_PI / 2);
                const double iqfacM = (std::pow(2.0, res - 1) + 0.5) / (M_PI / 2);
                double a[13] = {1.0}, b[13];
                for (int m = 1; m <= order; ++m) {
                    const int idx = c.tnsCoef[coef + m - 1];
                    const double k = std::sin(idx / (idx >= 0 ? iqfac : iqfacM));
                    std::copy(a, a + 13, b);
                    for (int i = 1; i < m; ++i) a[i] = b[i] + k * b[m - i];
                    a[m] = k;
                }
                const int start = off[std::min(bottom, limit)];
                const int end = off[std::min(top, limit)];
                const int size = end - start;
                if (size > 0) {
                    double* base = x.data() + w * 128;
                    const int first = c.info.direction[filter] ? end - 1 : start;
                    const int step = c.info.direction[filter] ? -1 : 1;
                    for (int n = 0; n < size; ++n) {
                        double y = base[first + n * step];
                        for (int i = 1; i <= order && i <= n; ++i) y -= a[i] * base[first + (n - i) * step];
                        base[first + n * step] = y;
                    }
                }
            }
            coef += order;
            top = bottom;
        }
    }
}

// ------------------------------------------------------------- the walk

class FrameDecoder {
public:
    FrameDecoder(int sfi, aactest::SpectralStats& stats) : sfi_(sfi), stats_(stats) {}

    bool rawDataBlock(uint8_t*& p, int& off)
    {
        auto single = [&](uint8_t*& q, int& o) {
            Channel c;
            if (!readChannel(q, o, c, nullptr)) return false;
            this->single(c);
            return true;
        };
        auto pair = [&](uint8_t*& q, int& o) {
            AacIcsInfo ics{};
            AacChanPairElt cpe{};
            EXPECT_EQ(zamsDecodeChanPairElt_AAC(&q, &o, &ics, &cpe, 0), zamStsOk);
            Channel l, r;
            if (!readChannel(q, o, l, cpe.common_window ? &ics : nullptr)) return false;
            if (!readChannel(q, o, r, cpe.common_window ? &ics : nullptr)) return false;
            if (cpe.common_window)
                this->pair(l, r, cpe);
            else
                this->single(l), this->single(r);
            return true;
        };
        return aactest::walkRawDataBlock(p, off, single, pair);
    }

private:
    bool readChannel(uint8_t*& p, int& off, Channel& c, const AacIcsInfo* common)
    {
        std::memset(&c, 0, sizeof c);
        if (common) c.ics = *common;
        c.info.sampling_frequency_index = sfi_;
        c.info.pIcsInfo = &c.ics;
        AacMainHeader mh{};
        const ZamStatus st =
            zamsNoiselessDecode_AAC(&p, &off, &mh, c.sf, c.q, c.cb, c.tnsCoef, &c.info, 0, 0, common ? 1 : 0, 0, 2);
        EXPECT_EQ(st, zamStsOk);
        return st == zamStsOk;
    }

    int winLen(const Channel& c) const { return c.ics.window_sequence == 2 ? 128 : 1024; }

    // Library path, part 1: inverse quantization.
    void dequantize(Channel& c, std::vector<int32_t>& x)
    {
        x.assign(c.q, c.q + 1024);
        ASSERT_EQ(zamsQuantInv_AAC_32s_I(x.data(), c.sf, c.ics.num_window_groups, c.ics.window_group_length,
                                         c.ics.max_sfb, c.cb, static_cast<uint32_t>(sfi_), winLen(c)),
                  zamStsOk);
    }

    // Library path, part 2: deinterleave and TNS.
    void finish(Channel& c, std::vector<int32_t>& x)
    {
        if (c.ics.window_sequence == 2) {
            std::vector<int32_t> out(1024, 0x5A5A5A5A);  // every coefficient must be written
            ASSERT_EQ(zamsDeinterleaveSpectrum_AAC_32s(x.data(), out.data(), c.ics.num_window_groups,
                                                       c.ics.window_group_length, c.ics.max_sfb, sfi_, 128),
                      zamStsOk);
            x = out;
        }
        if (c.info.tns_data_present) {
            ASSERT_EQ(zamsDecodeTNS_AAC_32s_I(x.data(), c.info.n_filt, c.info.length, c.info.order, c.info.coef_res,
                                              c.tnsCoef, c.info.direction, c.ics.max_sfb, 0,
                                              static_cast<uint32_t>(sfi_), winLen(c)),
                      zamStsOk);
            ++stats_.tns;
        }
    }

    bool hasBook(const Channel& c, int book) const
    {
        for (int i = 0; i < c.ics.num_window_groups * c.ics.max_sfb; ++i)
            if (c.cb[i] == book) return true;
        return false;
    }

    void noiseStep(Channel& c, std::vector<int32_t>& x, int channel, const uint8_t* msUsed)
    {
        int32_t pred[61] = {};
        std::vector<uint16_t> sf(c.sf, c.sf + 8 * 64);
        const ZamStatus st =
            channel < 0 ? zamsDecodePNS_AAC_32s(x.data(), pred, c.cb, sf.data(), c.ics.max_sfb, c.ics.num_window_groups,
                                                c.ics.window_group_length, sfi_, winLen(c), &randomState_)
                        : zamsDecodeMsPNS_AAC_32s(x.data(), pred, c.cb, sf.data(), c.ics.max_sfb,
                                                  c.ics.num_window_groups, c.ics.window_group_length, sfi_, winLen(c),
                                                  &randomState_, channel, msUsed, noiseState_);
        ASSERT_EQ(st, zamStsOk);
    }

    void single(Channel& c)
    {
        std::vector<int32_t> x;
        dequantize(c, x);
        noiseStep(c, x, -1, nullptr);
        finish(c, x);
        std::vector<double> grouped, ref;
        referenceDequantize(c, grouped);
        compare(c, x, grouped);
    }

    void pair(Channel& l, Channel& r, const AacChanPairElt& cpe)
    {
        std::vector<int32_t> xl, xr;
        dequantize(l, xl);
        dequantize(r, xr);
        std::vector<double> gl, gr;
        referenceDequantize(l, gl);
        referenceDequantize(r, gr);

        uint8_t msUsed[480] = {};
        if (cpe.ms_mask_present == 1) std::memcpy(msUsed, cpe.ms_used, sizeof msUsed);
        if (cpe.ms_mask_present == 2) std::memset(msUsed, 1, sizeof msUsed);
        std::vector<uint8_t> originalRightCb(r.cb, r.cb + 8 * 64);
        if (cpe.ms_mask_present == 1 || cpe.ms_mask_present == 2) {
            ASSERT_EQ(zamsDecodeMsStereo_AAC_32s_I(xl.data(), xr.data(), cpe.ms_mask_present, cpe.ms_used[0], r.cb,
                                                   l.ics.num_window_groups, l.ics.window_group_length, l.ics.max_sfb,
                                                   sfi_, winLen(l)),
                      zamStsOk);
            ++stats_.ms;
        }
        ASSERT_EQ(zamsDecodeIsStereo_AAC_32s(xl.data(), xr.data(), r.sf, r.cb, r.ics.num_window_groups,
                                             r.ics.window_group_length, r.ics.max_sfb, sfi_, winLen(r)),
                  zamStsOk);
        noiseStep(l, xl, 0, msUsed);
        noiseStep(r, xr, 1, msUsed);
        std::memcpy(r.cb, originalRightCb.data(), originalRightCb.size());
        finish(l, xl);
        finish(r, xr);

        // The reference stereo tools, band by band in the grouped order.
        const bool shortWin = l.ics.window_sequence == 2;
        const std::vector<int>& off = g_swb.offsets[sfi_][shortWin];
        int start = 0, band = 0;
        for (int g = 0; g < l.ics.num_window_groups; ++g) {
            const int len = shortWin ? l.ics.window_group_length[g] : 1;
            int p = start;
            for (int b = 0; b < l.ics.max_sfb; ++b, ++band) {
                const int w = (off[b + 1] - off[b]) * len;
                const int cbR = r.cb[band];
                const bool used = msUsed[g * 60 + b] != 0;
                if (cbR == 14 || cbR == 15) {
                    ++stats_.intensity;
                    const double sign = (cbR == 15 ? 1.0 : -1.0) * (cpe.ms_mask_present == 1 && used ? -1.0 : 1.0);
                    const double scale = std::pow(0.5, 0.25 * r.sf[band]);
                    for (int i = p; i < p + w; ++i) gr[i] = sign * gl[i] * scale;
                } else if (used && cbR != 13) {
                    // The pair's tools know only the right channel's books: a noise
                    // band of the left channel alone is still converted (its left
                    // values are replaced by noise afterwards).
                    for (int i = p; i < p + w; ++i) {
                        const double m = gl[i], s = gr[i];
                        gl[i] = m + s;
                        gr[i] = m - s;
                    }
                }
                p += w;
            }
            start += len * (shortWin ? 128 : 1024);
        }
        compare(l, xl, gl);
        compare(r, xr, gr);
    }

    void compare(const Channel& c, const std::vector<int32_t>& x, const std::vector<double>& grouped)
    {
        const bool shortWin = c.ics.window_sequence == 2;
        if (shortWin && hasBook(c, 13)) return;
        std::vector<double> ref;
        std::vector<int> bandOf;
        referenceLayout(c, grouped, ref, &bandOf);
        referenceTns(c, ref);
        ++stats_.compared;
        stats_.eightShortCompared += shortWin;
        const int windows = shortWin ? 8 : 1;
        const int length = shortWin ? 128 : 1024;
        for (int w = 0; w < windows; ++w) {
            double peak = 0;
            for (int i = w * length; i < (w + 1) * length; ++i)
                if (bandOf[i] < 0 || c.cb[bandOf[i]] != 13) peak = std::max(peak, std::fabs(ref[i]));
            const double bound = peak * std::ldexp(1.0, -18) + 0.25;
            for (int i = w * length; i < (w + 1) * length; ++i) {
                if (bandOf[i] >= 0 && c.cb[bandOf[i]] == 13) continue;
                const double err = std::fabs(x[i] / 8.0 - ref[i]);
                ASSERT_LE(err, bound) << "band " << bandOf[i] << " coefficient " << i << " library " << x[i] / 8.0 << " reference " << ref[i];
            }
        }
        // Noise bands of long frames: energy 2^(e/2). TNS may reach into them, so
        // only bands outside every TNS range are measured: frames without TNS.
        if (shortWin || c.info.tns_data_present) return;
        const std::vector<int>& off = g_swb.offsets[sfi_][0];
        for (int b = 0; b < c.ics.max_sfb; ++b) {
            if (c.cb[b] != 13) continue;
            double energy = 0;
            for (int i = off[b]; i < off[b + 1]; ++i) energy += (x[i] / 8.0) * (x[i] / 8.0);
            const double ratio = energy / std::pow(2.0, 0.5 * c.sf[b]);
            // Truncation to 1/8 matters for quiet bands: only bands loud enough.
            if (std::pow(2.0, 0.5 * c.sf[b]) < 1e4) continue;
            // The gain 2^(e/4) * 2^10 is formed in 32 bits: from e = 84 on it wraps.
            if (c.sf[b] >= 84) continue;
            ++stats_.noiseChecked;
            EXPECT_GT(ratio, 0.95) << "band " << b << " energy " << c.sf[b];
            EXPECT_LT(ratio, 2.1) << "band " << b << " energy " << c.sf[b];
        }
    }

    int sfi_;
    aactest::SpectralStats& stats_;
    int32_t randomState_ = 0;
    int32_t noiseState_[8 * 51] = {};
};

}  // namespace

namespace aactest {

bool checkSpectralFrame(uint8_t* p, int sfi, SpectralStats& stats)
{
    if (g_swb.offsets[0][0].empty() && !g_swb.load()) {
        ADD_FAILURE() << "cannot read the band tables";
        return false;
    }
    int off = 0;
    FrameDecoder decoder(sfi, stats);
    return decoder.rawDataBlock(p, off) && !::testing::Test::HasFatalFailure();
}

}  // namespace aactest
