// Black-box tests of zamac-encode's AAC-LC output: round trips through zamac-decode,
// ffmpeg and faad at every sampling rate and channel configuration, the bit budget
// and ADTS buffer fullness of a long stream, window switching on transients, and
// signals at the edges (silence, a full-scale square wave, white noise).
// HE-AAC (--he): its 2:1 resampler (tools/common) measured on tones; streams at each
// input rate through the three decoders; the high band in step with the low band.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "test_support.h"
#include "tool_resample.h"

namespace {

const std::string kEncoder = ZAMAC_BINARY_DIR "/tools/zamac-encode/zamac-encode";
const std::string kDecoder = ZAMAC_BINARY_DIR "/tools/zamac-decode/zamac-decode";
const int kRates[12] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000};

std::string slurp(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

struct Dir {
    std::string path;
    Dir()
    {
        char pattern[] = "/tmp/zamac-aacenc-test-XXXXXX";
        path = mkdtemp(pattern);
    }
    ~Dir() { std::system(("rm -rf '" + path + "'").c_str()); }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
};

// Runs a command; returns its exit status and puts its stderr in *err.
int run(const std::string& command, const Dir& dir, std::string* err = nullptr)
{
    const int status = std::system((command + " >/dev/null 2>'" + dir / "err" + "'").c_str());
    if (err) *err = slurp(dir / "err");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Pcm {
    int rate = 0, channels = 0;
    std::vector<int16_t> s;
    long frames() const { return channels ? static_cast<long>(s.size()) / channels : 0; }
};

void writeWav(const std::string& path, const Pcm& p)
{
    const uint32_t data = static_cast<uint32_t>(p.s.size() * 2);
    auto u32 = [](uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; };
    auto u16 = [](uint32_t v) { return std::string{char(v), char(v >> 8)}; };
    std::string h = "RIFF" + u32(36 + data) + "WAVEfmt " + u32(16) + u16(1) + u16(p.channels) + u32(p.rate) +
                    u32(p.rate * p.channels * 2) + u16(p.channels * 2) + u16(16) + "data" + u32(data);
    std::ofstream f(path, std::ios::binary);
    f.write(h.data(), static_cast<std::streamsize>(h.size()));
    f.write(reinterpret_cast<const char*>(p.s.data()), data);
}

Pcm readWav(const std::string& path)
{
    Pcm p;
    const std::string s = slurp(path);
    auto le = [&](size_t at, int n) {
        uint32_t v = 0;
        for (int i = n - 1; i >= 0; --i) v = v << 8 | static_cast<uint8_t>(s[at + i]);
        return v;
    };
    for (size_t at = 12; at + 8 <= s.size();) {
        size_t size = le(at + 4, 4);
        if (s.compare(at, 4, "fmt ") == 0) {
            p.channels = static_cast<int>(le(at + 10, 2));
            p.rate = static_cast<int>(le(at + 12, 4));
        } else if (s.compare(at, 4, "data") == 0) {
            p.s.resize(std::min(size, s.size() - at - 8) / 2);
            std::memcpy(p.s.data(), s.data() + at + 8, p.s.size() * 2);
            break;
        }
        at += 8 + size + (size & 1);
    }
    return p;
}

// Chords of partials and a little noise, each channel at its own pitch.
Pcm music(int rate, int channels, double seconds)
{
    Pcm p{rate, channels, {}};
    std::mt19937 rng(7);
    std::normal_distribution<double> noise(0.0, 300.0);
    const long n = static_cast<long>(seconds * rate);
    for (long i = 0; i < n; ++i)
        for (int c = 0; c < channels; ++c) {
            double v = noise(rng);
            for (int k = 1; k <= 4; ++k) v += 4000.0 / k * std::sin(2 * M_PI * (220.0 + 55.0 * c) * k * i / rate);
            p.s.push_back(static_cast<int16_t>(v));
        }
    return p;
}

// PSNR of b against a, a's sample n against b's sample n + delay, over the middle.
double psnr(const Pcm& a, int ca, const Pcm& b, int cb, long delay)
{
    double e = 0;
    long count = 0;
    for (long i = 2048; i + delay < b.frames() && i < a.frames() - 2048; ++i, ++count)
        e += std::pow(a.s[i * a.channels + ca] - b.s[(i + delay) * b.channels + cb], 2.0);
    return e == 0 ? 999.0 : 10 * std::log10(32767.0 * 32767.0 * count / e);
}

// The best match of each channel of a among the channels of b (decoders order 5.1
// differently), at whole-frame delays; returns the worst channel's PSNR.
double agreement(const Pcm& a, const Pcm& b)
{
    double worst = 999;
    for (int ca = 0; ca < a.channels; ++ca) {
        double best = -999;
        for (int cb = 0; cb < b.channels; ++cb)
            for (long d = -2048; d <= 2048; d += 1024) best = std::max(best, psnr(a, ca, b, cb, d));
        worst = std::min(worst, best);
    }
    return worst;
}

// ffmpeg names every ADTS input's duration estimate: that note is not about the stream.
std::string warnings(std::string err)
{
    const std::string note = "Estimating duration from bitrate";
    std::string kept, line;
    for (size_t at = 0; at < err.size();) {
        const size_t end = std::min(err.find('\n', at), err.size());
        line = err.substr(at, end - at);
        if (!line.empty() && line.find(note) == std::string::npos) kept += line + "\n";
        at = end + 1;
    }
    return kept;
}

struct Decoded {
    Pcm ours, ffmpeg, faad;
};

Decoded encodeAndDecode(const Dir& dir, const Pcm& in, const std::string& options)
{
    writeWav(dir / "in.wav", in);
    Decoded d;
    std::string err;
    EXPECT_EQ(run(kEncoder + " " + options + " " + dir / "in.wav" + " " + dir / "out.aac", dir, &err), 0) << err;
    EXPECT_EQ(run(kDecoder + " -o " + dir / "z.wav " + dir / "out.aac", dir, &err), 0);
    EXPECT_NE(err.find("(0 concealed)"), std::string::npos) << err;
    EXPECT_EQ(run("ffmpeg -v warning -y -i " + dir / "out.aac" + " -c:a pcm_s16le " + dir / "f.wav", dir, &err), 0);
    EXPECT_EQ(warnings(err), "");
    EXPECT_EQ(run("faad -q -o " + dir / "a.wav " + dir / "out.aac", dir, &err), 0);
    EXPECT_EQ(warnings(err), "");
    d.ours = readWav(dir / "z.wav");
    d.ffmpeg = readWav(dir / "f.wav");
    d.faad = readWav(dir / "a.wav");
    return d;
}

// ------------------------------------------------------------ round trips

struct Layout {
    int rateIndex, channels;
};

class AacRoundTrip : public ::testing::TestWithParam<Layout> {};

TEST_P(AacRoundTrip, ThreeDecodersAgreeAndFollowTheInput)
{
    const Layout l = GetParam();
    const int rate = kRates[l.rateIndex];
    Dir dir;
    const Pcm in = music(rate, l.channels, 1.0);
    // noise substitution off: its noise is each decoder's own
    const Decoded d = encodeAndDecode(dir, in, "--no-pns -b " + std::to_string(std::min(64 * l.channels, 6 * rate / 1000)));
    ASSERT_EQ(d.ours.channels, l.channels);
    ASSERT_EQ(d.ours.rate, rate);
    EXPECT_GE(agreement(d.ours, d.ffmpeg), 96.0);
    // faad plays streams of 24 kHz and below at twice the rate (it assumes implicit SBR)
    if (d.faad.rate == rate)
        EXPECT_GE(agreement(d.ours, d.faad), 96.0);
    else
        EXPECT_EQ(d.faad.rate, 2 * rate);
    if (l.channels <= 2)
        for (int c = 0; c < l.channels; ++c) EXPECT_GT(psnr(in, c, d.ffmpeg, c, 1024), 20.0) << "channel " << c;
}

std::vector<Layout> layouts()
{
    std::vector<Layout> v;
    for (int i = 0; i < 12; ++i) v.push_back({i, 1 + (i & 1)});
    for (int c = 3; c <= 6; ++c) v.push_back({3, c});
    return v;
}

INSTANTIATE_TEST_SUITE_P(RatesAndChannels, AacRoundTrip, ::testing::ValuesIn(layouts()),
                         [](const auto& info) {
                             return std::to_string(kRates[info.param.rateIndex]) + "Hz_" +
                                    std::to_string(info.param.channels) + "ch";
                         });

// ------------------------------------------------------------ bit budget

// Walks an ADTS stream of `channels` channels at `coreRate`, replaying the bit reservoir of
// an average rate of `bps` (6144 bits per channel at most) against each header's
// adts_buffer_fullness; returns the stream's rate in kb/s.
double checkReservoir(const std::string& s, double bps, int coreRate, int channels)
{
    const double mean = bps * 1024 / coreRate, maxReservoir = 6144 * channels - mean;
    double reservoir = 0;
    long frames = 0;
    for (size_t at = 0; at + 7 <= s.size(); ++frames) {
        const uint8_t* h = reinterpret_cast<const uint8_t*>(s.data()) + at;
        EXPECT_EQ(h[0], 0xFF);
        if (h[0] != 0xFF) break;
        const int length = (h[3] & 3) << 11 | h[4] << 3 | h[5] >> 5;
        const int fullness = (h[5] & 31) << 6 | h[6] >> 2;
        EXPECT_LE(length * 8, 6144 * channels);
        reservoir = std::min(std::max(reservoir + mean - 8.0 * length, 0.0), maxReservoir);
        EXPECT_EQ(fullness, static_cast<int>(reservoir / (32 * channels))) << "frame " << frames;
        at += length;
    }
    return 8.0 * s.size() / (frames * 1024.0 / coreRate) / 1000;
}

TEST(AacEncoder, LongStreamHoldsItsRateAndReportsTheReservoir)
{
    Dir dir;
    Pcm in = music(44100, 2, 30.0);
    std::mt19937 rng(3);  // bursts of loud noise make the reservoir work
    for (long i = 0; i < in.frames(); ++i)
        if ((i / 44100) % 3 == 1)
            for (int c = 0; c < 2; ++c) in.s[i * 2 + c] = static_cast<int16_t>(int(rng() % 40001) - 20000);
    writeWav(dir / "in.wav", in);
    ASSERT_EQ(run(kEncoder + " -b 96 " + dir / "in.wav " + dir / "out.aac", dir), 0);
    EXPECT_NEAR(checkReservoir(slurp(dir / "out.aac"), 96000, 44100, 2), 96.0, 1.0);
    // HE-AAC: the SBR data's fill elements come out of the same budget, at the core's rate
    ASSERT_EQ(run(kEncoder + " --he -b 32 " + dir / "in.wav " + dir / "he.aac", dir), 0);
    EXPECT_NEAR(checkReservoir(slurp(dir / "he.aac"), 32000, 22050, 2), 32.0, 0.5);
}

// ------------------------------------------------------------ window switching

TEST(AacEncoder, TransientsGetShortWindowsAndSteadyTonesDoNot)
{
    Dir dir;
    Pcm in = music(44100, 1, 4.0);
    for (auto& v : in.s) v = static_cast<int16_t>(v / 8);
    writeWav(dir / "steady.wav", in);
    for (long click = 22050; click < in.frames(); click += 44100)
        for (long i = 0; i < 200; ++i) in.s[click + i] = static_cast<int16_t>(i & 8 ? 20000 : -20000);
    writeWav(dir / "clicks.wav", in);
    for (const char* name : {"steady", "clicks"}) {
        ASSERT_EQ(run(kEncoder + " -b 64 " + dir / name + ".wav " + dir / name + ".aac", dir), 0);
        ASSERT_EQ(std::system((kDecoder + " --info --frames " + dir / name + ".aac >" + dir / name + ".txt").c_str()), 0);
    }
    const std::string steady = slurp(dir / "steady.txt"), clicks = slurp(dir / "clicks.txt");
    EXPECT_EQ(steady.find("short"), std::string::npos);
    long shortFrames = 0;
    for (size_t at = clicks.find("short"); at != std::string::npos; at = clicks.find("short", at + 1)) ++shortFrames;
    EXPECT_GE(shortFrames, 4);  // one or two per click
    EXPECT_LE(shortFrames, 8);
    EXPECT_NE(clicks.find("start"), std::string::npos);
    EXPECT_NE(clicks.find("stop"), std::string::npos);
}

TEST(AacEncoder, IntegerAnalysisBankMatchesTheFloatOne)
{
    Dir dir;
    const Pcm in = music(48000, 2, 2.0);
    writeWav(dir / "in.wav", in);
    for (const char* bank : {"", "--fixed"})
        ASSERT_EQ(run(kEncoder + " " + bank + " -b 256 " + dir / "in.wav " + dir / (std::string("out") + bank + ".aac"), dir), 0);
    ASSERT_EQ(run("ffmpeg -v error -y -i " + dir / "out.aac " + dir / "a.wav", dir), 0);
    ASSERT_EQ(run("ffmpeg -v error -y -i " + dir / "out--fixed.aac " + dir / "b.wav", dir), 0);
    // the banks differ by rounding only, which may tip a few quantizer decisions: the
    // two streams follow the input equally well
    const Pcm a = readWav(dir / "a.wav"), b = readWav(dir / "b.wav");
    for (int c = 0; c < 2; ++c) EXPECT_NEAR(psnr(in, c, a, c, 1024), psnr(in, c, b, c, 1024), 0.3);
    EXPECT_GE(agreement(a, b), 40.0);
}

// ------------------------------------------------------------ edge signals

class AacEdgeSignal : public ::testing::TestWithParam<const char*> {};

TEST_P(AacEdgeSignal, EncodesCleanly)
{
    const std::string kind = GetParam();
    Pcm in{48000, 2, {}};
    std::mt19937 rng(5);
    for (long i = 0; i < 48000 * 2; ++i)
        for (int c = 0; c < 2; ++c) {
            int v = 0;
            if (kind == "square") v = (i / 50) % 2 ? 32767 : -32768;
            if (kind == "noise") v = int(rng() % 65536) - 32768;
            in.s.push_back(static_cast<int16_t>(v));
        }
    Dir dir;
    const Decoded d = encodeAndDecode(dir, in, "-b 128");
    ASSERT_EQ(d.ffmpeg.channels, 2);
    if (kind == "silence") {
        EXPECT_TRUE(std::all_of(d.ffmpeg.s.begin(), d.ffmpeg.s.end(), [](int16_t v) { return v == 0; }));
        EXPECT_GE(agreement(d.ours, d.faad), 96.0);
    } else if (kind == "square") {
        // the decoders saturate the overshoot of a full-scale input; what matters is
        // that the encoder neither wraps nor drops the signal
        EXPECT_GT(psnr(in, 0, d.ffmpeg, 0, 1024), 20.0);
    } else {
        // noise is coded as noise: its level must survive (less what lies above the 20 kHz bandwidth)
        auto rms = [](const Pcm& p) {
            double e = 0;
            for (long i = 4096; i < p.frames() - 4096; ++i) e += std::pow(p.s[i * p.channels], 2.0);
            return std::sqrt(e / (p.frames() - 8192));
        };
        EXPECT_NEAR(20 * std::log10(rms(d.ffmpeg) / rms(in)), -1.0, 1.5);
    }
}

INSTANTIATE_TEST_SUITE_P(Signals, AacEdgeSignal, ::testing::Values("silence", "square", "noise"));

// ------------------------------------------------------------ HE-AAC

// Halves a tone of frequency f (fraction of the input rate) fed in uneven chunks; returns
// the output's error against the tone at the even input instants (pass band) or the
// output's level (stop band), in dB relative to the tone.
double halvedToneDb(double f, bool passband)
{
    const int n = 40000;
    std::vector<float> x(n), y(n / 2 + 8);
    for (int i = 0; i < n; ++i) x[i] = static_cast<float>(10000.0 * std::sin(2 * M_PI * f * i + 0.3));
    ToolHalver h;
    tool_halve_init(&h);
    int made = 0;
    for (int at = 0, chunk = 1; at < n; at += chunk, chunk = chunk * 5 % 997 + 1) {
        chunk = std::min(chunk, n - at);
        made += tool_halve(&h, x.data() + at, chunk, y.data() + made);
    }
    made += tool_halve_flush(&h, y.data() + made);
    EXPECT_EQ(made, n / 2);
    double e = 0;
    for (int i = 1000; i < n / 2 - 1000; ++i) e += std::pow(y[i] - (passband ? x[2 * i] : 0.0f), 2.0);
    return 10 * std::log10(e / (n / 2 - 2000) / (10000.0 * 10000.0 / 2));
}

TEST(HeAacResampler, PassBandIsFlatAndInStepStopBandIsGone)
{
    for (double f = 0.01; f <= 0.20; f += 0.0237) EXPECT_LT(halvedToneDb(f, true), -90.0) << f;
    for (double f = 0.25; f < 0.5; f += 0.0311) EXPECT_LT(halvedToneDb(f, false), -100.0) << f;
}

// A 400 Hz tone from 0.5 s on and a burst of high-pass noise (the SBR range) over
// 1.0 .. 1.5 s.
Pcm toneAndBurst(int rate, int channels)
{
    Pcm p{rate, channels, {}};
    std::mt19937 rng(11);
    std::normal_distribution<double> noise(0.0, 300.0);
    double w[5] = {0};
    for (long i = 0; i < 5 * rate / 2; ++i) {
        for (int j = 4; j > 0; --j) w[j] = w[j - 1];
        w[0] = noise(rng);
        const double high = w[0] - 4 * w[1] + 6 * w[2] - 4 * w[3] + w[4];
        double v = i >= rate / 2 ? 6000 * std::sin(2 * M_PI * 400.0 * i / rate) : 0.0;
        if (i >= rate && i < 3 * rate / 2) v += high;
        for (int c = 0; c < channels; ++c) p.s.push_back(static_cast<int16_t>(c ? 0.7 * v : v));
    }
    return p;
}

// First and last sample (channel 0) where the block energy (blocks of 32) of the signal
// or of its fourth difference (the high band) reaches a quarter of its level at `steady`.
std::pair<long, long> edges(const Pcm& p, bool high, long steady)
{
    std::vector<double> e;
    for (long i = 4; i + 32 <= p.frames(); i += 32) {
        double sum = 0;
        for (long j = i; j < i + 32; ++j) {
            auto x = [&](long k) { return static_cast<double>(p.s[(j - k) * p.channels]); };
            const double v = high ? x(0) - 4 * x(1) + 6 * x(2) - 4 * x(3) + x(4) : x(0);
            sum += v * v;
        }
        e.push_back(sum);
    }
    std::vector<double> level(e.begin() + steady / 32, e.begin() + steady / 32 + 200);
    std::nth_element(level.begin(), level.begin() + 100, level.end());
    const double limit = level[100] / 4;
    long first = -1, last = -1;
    for (size_t b = 0; b < e.size(); ++b)
        if (e[b] > limit) {
            if (first < 0) first = 4 + 32 * static_cast<long>(b);
            last = 4 + 32 * static_cast<long>(b) + 31;
        }
    return {first, last};
}

struct HeCase {
    int rate, channels, kbps;
};

class HeAacStream : public ::testing::TestWithParam<HeCase> {};

TEST_P(HeAacStream, ThreeDecodersPlayItAtTheInputRateInStep)
{
    const HeCase c = GetParam();
    Dir dir;
    const Pcm in = toneAndBurst(c.rate, c.channels);
    // noise substitution off in the core: its noise is each decoder's own
    const Decoded d = encodeAndDecode(dir, in, "--no-pns --he -b " + std::to_string(c.kbps));
    const long delay = 2048 + 960, rate = c.rate;  // see below
    for (const Pcm* p : {&d.ours, &d.ffmpeg, &d.faad}) {
        EXPECT_EQ(p->rate, c.rate);
        // mono without explicit signalling may hide parametric stereo: decoders give two channels
        EXPECT_EQ(p->channels, 2);
        // the whole input comes out, with at most a frame more (faad drops the first frame)
        EXPECT_GE(p->frames(), in.frames() + delay - (p == &d.faad ? 2048 : 0));
        EXPECT_LT(p->frames(), in.frames() + delay + 2048);
    }
    EXPECT_GE(agreement(d.ours, d.ffmpeg), 85.0);
    // The output lags by 2048 samples of core delay and 960 of the decoder's QMF banks.
    // The high band (SBR) keeps time with the low band (core): the burst's edges are where
    // they are in the input within half an envelope of a four-envelope frame and a slot (256 + 64;
    // with an envelope border at the attack, within a slot), and its end may linger for
    // the rest of an SBR frame (2048 samples) when the grid puts no border there.
    for (const Pcm* p : {&d.ours, &d.ffmpeg}) {
        EXPECT_NEAR(edges(*p, false, rate).first, rate / 2 + delay, 32);
        const auto burst = edges(*p, true, 5 * rate / 4 + delay);
        EXPECT_NEAR(burst.first, rate + delay, 256 + 64);
        EXPECT_GE(burst.second, 3 * rate / 2 + delay - 256 - 64);
        EXPECT_LE(burst.second, 3 * rate / 2 + delay + 2048);
    }
}

INSTANTIATE_TEST_SUITE_P(RatesAndChannels, HeAacStream,
                         ::testing::Values(HeCase{48000, 2, 48}, HeCase{44100, 1, 32}, HeCase{32000, 2, 24},
                                           HeCase{48000, 1, 16}, HeCase{44100, 2, 64}),
                         [](const auto& info) {
                             return std::to_string(info.param.rate) + "Hz_" + std::to_string(info.param.channels) +
                                    "ch_" + std::to_string(info.param.kbps) + "k";
                         });

TEST(HeAacEncoder, RefusesWhatItCannotEncode)
{
    Dir dir;
    std::string err;
    writeWav(dir / "22k.wav", music(22050, 2, 0.2));
    writeWav(dir / "48k.wav", music(48000, 2, 0.2));
    writeWav(dir / "3ch.wav", music(48000, 3, 0.2));
    const std::string out = " " + dir / "o.aac";
    for (const std::string& args : {"--he " + dir / "22k.wav", "--he -b 80 " + dir / "48k.wav",
                                    "--he " + dir / "3ch.wav", "--he -V 2 " + dir / "48k.wav",
                                    "--he --lowpass 5 " + dir / "48k.wav"}) {
        EXPECT_EQ(run(kEncoder + " " + args + out, dir, &err), 2) << args;
        EXPECT_NE(err.find("--he"), std::string::npos) << err;
    }
}

}  // namespace
