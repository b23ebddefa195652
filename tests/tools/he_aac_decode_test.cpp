// zamac-decode on HE-AAC: the shared SBR and SBR+PS streams against their reference
// decodes (high quality), the low-power and down-sampling paths, and damaged input.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

const std::string kTool = ZAMAC_BINARY_DIR "/tools/zamac-decode/zamac-decode";
const std::string kVectors = ZAMAC_SHARED_DIR "/vectors/aac-he/";

std::string slurp(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

struct Wav {
    int channels = 0, rate = 0;
    std::vector<int16_t> s;
    long frames() const { return channels ? long(s.size()) / channels : 0; }
};

Wav readWav(const std::string& path)
{
    Wav w;
    const std::string d = slurp(path);
    auto le = [&](size_t at, int n) {
        uint32_t v = 0;
        for (int i = n - 1; i >= 0; --i) v = v << 8 | uint8_t(d[at + i]);
        return v;
    };
    for (size_t at = 12; d.size() >= 12 && at + 8 <= d.size();) {
        const size_t size = std::min<size_t>(le(at + 4, 4), d.size() - at - 8);
        if (d.compare(at, 4, "fmt ") == 0) w.channels = int(le(at + 10, 2)), w.rate = int(le(at + 12, 4));
        if (d.compare(at, 4, "data") == 0) {
            w.s.resize(size / 2);
            std::memcpy(w.s.data(), d.data() + at + 8, w.s.size() * 2);
            break;
        }
        at += 8 + size + (size & 1);
    }
    return w;
}

// Scratch files of this process (several test programs may run at once).
const std::string kScratch = "/tmp/zamac-he-" + std::to_string(getpid()) + "-";
const std::string kStderr = kScratch + "stderr.txt";

// Runs the tool; returns its exit status, or -1 when a signal ended it, or -2 when a
// sanitizer reported a finding (the sanitizer build).
int decode(const std::string& input, const std::string& output, const std::string& options = "")
{
    const int status =
        std::system((kTool + " " + options + " -o '" + output + "' '" + input + "' 2>" + kStderr).c_str());
    const std::string err = slurp(kStderr);
    if (err.find("Sanitizer") != std::string::npos || err.find("runtime error") != std::string::npos) return -2;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// PSNR (full scale 32767) of channel c of `test` against channel c of `ref`, sample by sample.
double psnr(const Wav& ref, const Wav& test, int c)
{
    double e = 0;
    const long n = std::min(ref.frames(), test.frames());
    for (long i = 0; i < n; ++i) {
        const double d = ref.s[i * ref.channels + c] - test.s[i * test.channels + c];
        e += d * d;
    }
    return e == 0 ? 999.0 : 10 * std::log10(32767.0 * 32767.0 * double(n) / e);
}

enum Kind { kMono, kStereo, kPs };  // SBR on a mono core, on a stereo core; SBR + PS

struct Stream {
    const char* name;
    Kind kind;
};

class HeAac : public ::testing::TestWithParam<Stream> {
protected:
    std::string out(const char* tag) const { return kScratch + GetParam().name + tag + ".wav"; }
};

// High quality: the reference's rate and length (every frame, the first included),
// two channels (different for PS, identical for a mono core), >= 85 dB.
TEST_P(HeAac, MatchesTheReference)
{
    const Stream& p = GetParam();
    const Wav ref = readWav(kVectors + p.name + ".ref.wav");
    ASSERT_GT(ref.frames(), 0);
    ASSERT_EQ(decode(kVectors + p.name + ".aac", out("hq")), 0);
    const Wav hq = readWav(out("hq"));
    EXPECT_EQ(hq.rate, ref.rate);
    EXPECT_EQ(hq.frames(), ref.frames());
    ASSERT_EQ(hq.channels, 2);
    long same = 0;
    for (long i = 0; i < hq.frames(); ++i) same += hq.s[2 * i] == hq.s[2 * i + 1];
    if (p.kind == kMono) EXPECT_EQ(same, hq.frames());
    else EXPECT_LT(same, hq.frames() * 9 / 10);
    for (int c = 0; c < ref.channels; ++c) EXPECT_GE(psnr(ref, hq, c), 85.0) << "channel " << c;
}

// Low power (real banks, no PS) and down-sampling synthesis (the core rate): the
// figures against the high-quality output are reported; the bounds catch a broken path.
TEST_P(HeAac, LowPowerAndDownsampling)
{
    const Stream& p = GetParam();
    ASSERT_EQ(decode(kVectors + std::string(p.name) + ".aac", out("hq")), 0);
    ASSERT_EQ(decode(kVectors + std::string(p.name) + ".aac", out("lp"), "--sbr-lp"), 0);
    ASSERT_EQ(decode(kVectors + std::string(p.name) + ".aac", out("ds"), "--downsample"), 0);
    const Wav hq = readWav(out("hq")), lp = readWav(out("lp")), ds = readWav(out("ds"));
    EXPECT_EQ(lp.rate, hq.rate);
    EXPECT_EQ(lp.frames(), hq.frames());
    EXPECT_EQ(ds.rate * 2, hq.rate);
    EXPECT_EQ(ds.frames() * 2, hq.frames());
    const double lowPower = psnr(hq, lp, 0);
    RecordProperty("lp_vs_hq_db", std::to_string(lowPower));
    EXPECT_GT(lowPower, p.kind == kPs ? 10.0 : 17.0);
    // The down-sampled output against every second sample of the full-rate output
    // after a 2-tap average: a crude low-pass, enough to tell a working path.
    Wav half = hq;
    half.s.resize(ds.s.size());
    for (long i = 0; i < ds.frames(); ++i)
        for (int c = 0; c < 2; ++c)
            half.s[2 * i + c] = int16_t((hq.s[4 * i + c] + hq.s[4 * i + 2 + c]) / 2);
    EXPECT_GT(psnr(half, ds, 0), 15.0);
}

// --fixed (integer core, QMF banks and predictor): within 3 dB of the float path's
// PSNR against the reference in each mode (--downsample: against the float path).
TEST_P(HeAac, FixedPointWithinThreeDecibels)
{
    const Stream& p = GetParam();
    const std::string src = kVectors + p.name + ".aac";
    const Wav ref = readWav(kVectors + p.name + ".ref.wav");
    for (const std::string mode : {"", "--sbr-lp ", "--downsample "}) {
        ASSERT_EQ(decode(src, out("fl"), mode), 0) << mode;
        ASSERT_EQ(decode(src, out("fx"), mode + "--fixed"), 0) << mode;
        const Wav fl = readWav(out("fl")), fx = readWav(out("fx"));
        ASSERT_EQ(fx.frames(), fl.frames()) << mode;
        for (int c = 0; c < ref.channels; ++c) {
            if (mode == "--downsample ") EXPECT_GE(psnr(fl, fx, c), 95.0) << mode << c;
            else EXPECT_GE(psnr(ref, fx, c), psnr(ref, fl, c) - 3.0) << mode << "channel " << c;
        }
    }
}

const Stream kStreams[] = {
    {"sbr_16k_mono_speech", kMono},     {"ps_22k_pluck", kPs},          {"sbr_24k_mono_sweep_vbr", kMono},
    {"sbr_32k_stereo_bursts", kStereo}, {"sbr_44k_mono_hits", kMono},   {"ps_48k_onset_vbr", kPs},
    {"sbr_32k_mono_quiet", kMono},      {"sbr_44k_stereo_loud_vbr", kStereo}, {"ps_24k_wide", kPs},
    {"sbr_48k_mono_voicemusic", kMono},
};
// Removes the scratch files once the suite is done.
struct ScratchCleanup : ::testing::Environment {
    void TearDown() override { std::system(("rm -f " + kScratch + "*").c_str()); }
};
[[maybe_unused]] const auto* const kCleanup = ::testing::AddGlobalTestEnvironment(new ScratchCleanup);

INSTANTIATE_TEST_SUITE_P(Shared, HeAac, ::testing::ValuesIn(kStreams),
                         [](const ::testing::TestParamInfo<Stream>& i) { return std::string(i.param.name); });

// Truncated streams and streams with flipped bits decode without a crash (run under the
// sanitizer build for memory errors); damaged SBR data falls back to the core.
TEST(HeAacRobustness, TruncationsAndBitFlips)
{
    std::mt19937 rng(14);
    for (const char* name : {"ps_24k_wide", "sbr_32k_stereo_bursts", "sbr_44k_mono_hits"}) {
        const std::string data = slurp(kVectors + name + ".aac");
        ASSERT_FALSE(data.empty());
        for (int trial = 0; trial < 12; ++trial) {
            std::string damaged = data;
            if (trial < 4) {
                damaged.resize(data.size() * (trial + 1) / 5 + trial * 37);
            } else {
                const int flips = trial < 8 ? 4 : 60;
                for (int i = 0; i < flips; ++i) damaged[rng() % damaged.size()] ^= char(1 << (rng() % 8));
            }
            const std::string path = kScratch + "damaged-" + name + ".aac";
            std::ofstream(path, std::ios::binary) << damaged;
            const int status = decode(path, kScratch + "damaged.wav", std::string(trial % 3 == 1 ? "--sbr-lp" : trial % 3 == 2 ? "--downsample" : "") +
                                                    (trial & 1 ? " --fixed" : ""));
            EXPECT_GE(status, 0) << name << " trial " << trial;
            std::remove(path.c_str());
        }
    }
}

}  // namespace
