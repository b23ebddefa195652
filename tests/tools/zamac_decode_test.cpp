// Black-box tests of the zamac-decode tool: real streams from Debian's ffmpeg AAC
// encoder decoded by zamac-decode, ffmpeg and faad; ADIF; damaged input.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

const std::string kTool = ZAMAC_BINARY_DIR "/tools/zamac-decode/zamac-decode";
const std::string kSamples = ZAMAC_SOURCE_DIR "/samples/";

struct RunResult {
    int exitCode = -1;  // -1: killed by a signal
    std::string out, err;
};

std::string slurp(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

void spit(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

class TempDir {
public:
    TempDir()
    {
        char pattern[] = "/tmp/zamac-decode-test-XXXXXX";
        path_ = mkdtemp(pattern);
    }
    ~TempDir() { std::system(("rm -rf '" + path_ + "'").c_str()); }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

RunResult run(const std::string& command, const TempDir& dir)
{
    RunResult r;
    const std::string out = dir / "stdout", err = dir / "stderr";
    const int status = std::system((command + " >'" + out + "' 2>'" + err + "'").c_str());
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = slurp(out);
    r.err = slurp(err);
    return r;
}

bool have(const char* program)
{
    return std::system((std::string("command -v ") + program + " >/dev/null 2>&1").c_str()) == 0;
}

struct Wav {
    int channels = 0, rate = 0;
    uint32_t mask = 0;
    std::vector<int16_t> samples;
    size_t frames() const { return channels ? samples.size() / channels : 0; }
};

uint32_t le(const std::string& s, size_t at, int bytes)
{
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = v << 8 | static_cast<uint8_t>(s[at + i]);
    return v;
}

Wav readWav(const std::string& path)
{
    Wav w;
    const std::string s = slurp(path);
    if (s.size() < 12 || s.compare(0, 4, "RIFF") != 0 || s.compare(8, 4, "WAVE") != 0) return w;
    for (size_t at = 12; at + 8 <= s.size();) {
        const std::string id = s.substr(at, 4);
        size_t size = le(s, at + 4, 4);
        if (id == "fmt ") {
            w.channels = static_cast<int>(le(s, at + 10, 2));
            w.rate = static_cast<int>(le(s, at + 12, 4));
            if (le(s, at + 8, 2) == 0xFFFE) w.mask = le(s, at + 28, 4);
        } else if (id == "data") {
            size = std::min(size, s.size() - at - 8);
            w.samples.resize(size / 2);
            std::memcpy(w.samples.data(), s.data() + at + 8, w.samples.size() * 2);
            break;
        }
        at += 8 + size + (size & 1);
    }
    return w;
}

struct Comparison {
    int offset = 0;  // test sample n matches reference sample n + offset
    double psnr = 0;
    int maxDiff = 0;
};

double psnrOf(double squaredError, size_t count)
{
    return squaredError == 0 ? 999.0 : 10 * std::log10(32767.0 * 32767.0 * count / squaredError);
}

// Aligns by whole frames (faad drops the first one), then measures over all frames
// but the first and last, or only over the frames `use` accepts (1-based test frames).
template <typename FrameFilter>
Comparison compare(const Wav& ref, const Wav& test, FrameFilter use)
{
    Comparison best;
    double bestError = -1;
    const int ch = ref.channels;
    const long mid = static_cast<long>(std::min(ref.frames(), test.frames()) / 2);
    for (int k = -3; k <= 3; ++k) {
        double e = 0;
        for (long i = mid; i < mid + 4096; ++i) {
            const long j = i - k * 1024;
            if (j < 0 || j >= static_cast<long>(test.frames()) || i >= static_cast<long>(ref.frames())) continue;
            for (int c = 0; c < ch; ++c) e += std::pow(ref.samples[i * ch + c] - test.samples[j * ch + c], 2.0);
        }
        if (bestError < 0 || e < bestError) {
            bestError = e;
            best.offset = k * 1024;
        }
    }
    const long frames = std::min<long>(ref.frames(), static_cast<long>(test.frames()) + best.offset) / 1024;
    double error = 0;
    size_t count = 0;
    for (long f = std::max(1L, long(best.offset / 1024 + 1)); f < frames - 1; ++f) {
        if (!use(f - best.offset / 1024 + 1)) continue;
        for (long i = f * 1024; i < (f + 1) * 1024; ++i)
            for (int c = 0; c < ch; ++c) {
                const int d = ref.samples[i * ch + c] - test.samples[(i - best.offset) * ch + c];
                error += double(d) * d;
                best.maxDiff = std::max(best.maxDiff, std::abs(d));
                ++count;
            }
    }
    best.psnr = psnrOf(error, count);
    return best;
}

Comparison compare(const Wav& ref, const Wav& test)
{
    return compare(ref, test, [](long) { return true; });
}

// Synthetic music: decaying notes, a bass line and noise bursts that force short windows.
// With `gated`, the noise bursts come in odd seconds only, so that the encoder's noise
// substitution leaves the even seconds alone.
std::string musicExpression(int channels, bool gated = false)
{
    std::string all;
    for (int c = 0; c < channels; ++c) {
        std::ostringstream e;
        e << (0.3 - 0.03 * c) << "*sin(2*PI*t*440*pow(2,(3*floor(mod(4*t,5))+2*floor(mod(t,3)))/12))"
          << "*exp(-6*mod(t,0.25))+0.25*sin(2*PI*t*110*pow(2,floor(mod(t/2,4))*5/12))"
          << "+0.25*(random(" << c << ")-0.5)*exp(-60*mod(t+0.125,0.25))" << (gated ? "*gt(mod(t,2),1)" : "") << "+0.05*sin(2*PI*t*" << 300 + 97 * c << ")";
        all += (c ? "|" : "") + e.str();
    }
    return all;
}

bool encode(const std::string& path, int rate, int channels, const std::string& bitrate, const std::string& options,
            double seconds, const TempDir& dir, bool gated = false)
{
    const char* layout = channels == 1 ? "mono" : channels == 2 ? "stereo" : "5.1";
    std::ostringstream cmd;
    cmd << "ffmpeg -nostdin -v error -y -f lavfi -i \"aevalsrc=exprs='" << musicExpression(channels, gated) << "':s=" << rate
        << ":d=" << seconds << ":c=" << layout << "\" -c:a aac -b:a " << bitrate << " " << options << " -f adts '"
        << path << "'";
    return run(cmd.str(), dir).exitCode == 0;
}

// ------------------------------------------------------------------ samples

TEST(ZamacDecode, DecodesTheSamplesToWave)
{
    TempDir dir;
    struct {
        const char* name;
        int rate, channels;
    } samples[] = {{"music-44k-stereo.aac", 44100, 2}, {"music-22k-mono.aac", 22050, 1},
                   {"music-44k-stereo.mp3", 44100, 2}};
    for (const auto& s : samples) {
        const RunResult r = run(kTool + " -o '" + (dir / "out.wav") + "' '" + kSamples + s.name + "'", dir);
        ASSERT_EQ(r.exitCode, 0) << r.err;
        const Wav w = readWav(dir / "out.wav");
        EXPECT_EQ(w.rate, s.rate);
        EXPECT_EQ(w.channels, s.channels);
        EXPECT_NEAR(double(w.frames()) / s.rate, 8.0, 0.2) << s.name;
        EXPECT_NE(r.err.find("0 concealed"), std::string::npos) << r.err;
    }
}

// Frame data of an MP3 stream may happen to hold two ADTS-looking headers in a row;
// the format is decided by the first run of headers, which is MP3's.
TEST(ZamacDecode, AdtsLookalikesInsideMp3DataDoNotChangeTheFormat)
{
    TempDir dir;
    std::string mp3 = slurp(kSamples + "music-44k-stereo.mp3");
    ASSERT_GT(mp3.size(), 30000u);
    // Two 7-byte ADTS headers (sync, layer 0, frame length 7), back to back.
    const unsigned char adts[7] = {0xFF, 0xF1, 0x50, 0x80, 0x00, 0xFF, 0xFC};
    for (int copy = 0; copy < 2; ++copy)
        for (int i = 0; i < 7; ++i) mp3[20000 + copy * 7 + i] = static_cast<char>(adts[i]);
    spit(dir / "lookalike.mp3", mp3);
    const RunResult r = run(kTool + " --bench '" + (dir / "lookalike.mp3") + "'", dir);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find(": MP3,"), std::string::npos) << r.err;
}

TEST(ZamacDecode, RawOutputAndInfoAgreeWithTheWaveFile)
{
    TempDir dir;
    const std::string input = kSamples + "music-22k-mono.aac";
    ASSERT_EQ(run(kTool + " -o '" + (dir / "out.wav") + "' '" + input + "'", dir).exitCode, 0);
    const RunResult raw = run(kTool + " '" + input + "'", dir);
    ASSERT_EQ(raw.exitCode, 0);
    const Wav w = readWav(dir / "out.wav");
    ASSERT_EQ(raw.out.size(), w.samples.size() * 2);
    EXPECT_EQ(std::memcmp(raw.out.data(), w.samples.data(), raw.out.size()), 0);

    const RunResult info = run(kTool + " --info --frames '" + input + "'", dir);
    ASSERT_EQ(info.exitCode, 0);
    EXPECT_NE(info.out.find("22050 Hz"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("frame 1 ("), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("SCE0[start"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("short"), std::string::npos) << "the sample should contain eight-short frames";
    EXPECT_NE(info.out.find("  frames     174\n"), std::string::npos) << info.out;

    const RunResult bench = run(kTool + " --bench '" + input + "'", dir);
    ASSERT_EQ(bench.exitCode, 0);
    EXPECT_NE(bench.out.find("seconds of audio per CPU second"), std::string::npos);
}

// ------------------------------------------------------------------ conformance

struct StreamCase {
    const char* name;
    int rate, channels;
    const char* bitrate;
    const char* options;
};

class Conformance : public ::testing::TestWithParam<StreamCase> {};

TEST_P(Conformance, MatchesFfmpegAndFaadWithinOneLsb)
{
    if (!have("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
    const StreamCase& s = GetParam();
    TempDir dir;
    const std::string aac = dir / "in.aac";
    ASSERT_TRUE(encode(aac, s.rate, s.channels, s.bitrate, s.options, 1.2, dir));
    const RunResult r = run(kTool + " -o '" + (dir / "zamac.wav") + "' '" + aac + "'", dir);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    ASSERT_EQ(run("ffmpeg -nostdin -v error -y -i '" + aac + "' '" + (dir / "ffmpeg.wav") + "'", dir).exitCode, 0);
    const Wav zamac = readWav(dir / "zamac.wav"), ffmpeg = readWav(dir / "ffmpeg.wav");
    ASSERT_EQ(zamac.channels, ffmpeg.channels);
    ASSERT_EQ(zamac.rate, ffmpeg.rate);
    if (s.channels == 6) EXPECT_EQ(zamac.mask, 0x3Fu);  // FL FR FC LFE BL BR

    const Comparison vsFfmpeg = compare(ffmpeg, zamac);
    EXPECT_EQ(vsFfmpeg.offset, 0);
    EXPECT_GE(vsFfmpeg.psnr, 96.0);
    EXPECT_LE(vsFfmpeg.maxDiff, 1);

    // faad takes LC streams at 24 kHz and below for implicit SBR: compare above only.
    if (s.rate > 24000 && have("faad")) {
        ASSERT_EQ(run("faad -q -o '" + (dir / "faad.wav") + "' '" + aac + "'", dir).exitCode, 0);
        const Comparison vsFaad = compare(readWav(dir / "faad.wav"), zamac);
        EXPECT_GE(vsFaad.psnr, 96.0);
        EXPECT_LE(vsFaad.maxDiff, 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Streams, Conformance,
    ::testing::Values(StreamCase{"stereo44k", 44100, 2, "128k", "-aac_pns 0"},
                      StreamCase{"stereo44kIntensityLowRate", 44100, 2, "48k", "-aac_pns 0"},
                      StreamCase{"mono22k", 22050, 1, "48k", "-aac_pns 0"},
                      StreamCase{"mono8k", 8000, 1, "24k", "-aac_pns 0"},
                      StreamCase{"stereo96kNoTns", 96000, 2, "192k", "-aac_pns 0 -aac_tns 0"},
                      StreamCase{"stereo48kProgramConfig", 48000, 2, "128k", "-aac_pns 0 -aac_pce 1"},
                      StreamCase{"surround48k", 48000, 6, "320k", "-aac_pns 0"},
                      // Main with intensity stereo: faad differs from ffmpeg and zamac-decode
                      // (see scripts/aac_prediction_conformance.py), so the faad case goes without.
                      StreamCase{"mainStereo48kNoIntensity", 48000, 2, "160k",
                                 "-aac_pns 0 -aac_is 0 -profile:a aac_main -aac_pred 1"},
                      StreamCase{"mainMono22k", 22050, 1, "48k", "-aac_pns 0 -profile:a aac_main -aac_pred 1"},
                      StreamCase{"ltpStereo44k", 44100, 2, "128k", "-aac_pns 0 -strict -2 -profile:a aac_ltp -aac_ltp 1"}),
    [](const ::testing::TestParamInfo<StreamCase>& i) { return std::string(i.param.name); });

// --fixed (integer synthesis filter bank) against the float path on the same stream.
TEST(ZamacDecode, FixedFilterBankMatchesTheFloatPath)
{
    if (!have("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
    for (const char* options : {"-aac_pns 0", "-aac_pns 0 -strict -2 -profile:a aac_ltp -aac_ltp 1"}) {
        TempDir dir;
        const std::string aac = dir / "in.aac";
        ASSERT_TRUE(encode(aac, 44100, 2, "128k", options, 2.0, dir));
        ASSERT_EQ(run(kTool + " -o '" + (dir / "float.wav") + "' '" + aac + "'", dir).exitCode, 0);
        ASSERT_EQ(run(kTool + " --fixed -o '" + (dir / "fixed.wav") + "' '" + aac + "'", dir).exitCode, 0);
        const Comparison c = compare(readWav(dir / "float.wav"), readWav(dir / "fixed.wav"));
        EXPECT_EQ(c.offset, 0);
        EXPECT_GE(c.psnr, 110.0) << options;
        EXPECT_LE(c.maxDiff, 1) << options;
    }
}

// With noise substitution the noise itself differs between decoders: frames without
// noise bands must match, the others must carry the same energy.
TEST(ZamacDecode, NoiseSubstitutionMatchesFfmpegInEnergy)
{
    if (!have("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
    TempDir dir;
    const std::string aac = dir / "in.aac";
    ASSERT_TRUE(encode(aac, 44100, 2, "96k", "", 4.0, dir, true));
    ASSERT_EQ(run(kTool + " -o '" + (dir / "zamac.wav") + "' '" + aac + "'", dir).exitCode, 0);
    ASSERT_EQ(run("ffmpeg -nostdin -v error -y -i '" + aac + "' '" + (dir / "ffmpeg.wav") + "'", dir).exitCode, 0);
    const RunResult info = run(kTool + " --info --frames '" + aac + "'", dir);
    std::vector<bool> noisy(4096, false);
    std::istringstream lines(info.out);
    int noisyFrames = 0;
    for (std::string line; std::getline(lines, line);) {
        long frame = 0;
        if (std::sscanf(line.c_str(), "frame %ld:", &frame) == 1 && line.find(" pns") != std::string::npos &&
            frame < 4095) {
            noisy[frame] = true;
            ++noisyFrames;
        }
    }
    ASSERT_GT(noisyFrames, 0) << "the encoder made no noise bands";
    const Wav zamac = readWav(dir / "zamac.wav"), ffmpeg = readWav(dir / "ffmpeg.wav");
    // An output frame carries the noise of its own coded frame and of the one before.
    auto touched = [&](long f) { return f < 4095 && (noisy[f] || (f > 0 && noisy[f - 1])); };
    int cleanFrames = 0;
    const Comparison clean = compare(ffmpeg, zamac, [&](long f) { return !touched(f) && ++cleanFrames; });
    EXPECT_GE(cleanFrames, 20);
    EXPECT_GE(clean.psnr, 96.0);
    EXPECT_LE(clean.maxDiff, 1);
    const int ch = zamac.channels;
    for (long f = 1; f + 1 < long(std::min(zamac.frames(), ffmpeg.frames()) / 1024); ++f) {
        if (!touched(f + 1)) continue;
        for (int c = 0; c < ch; ++c) {
            double ez = 0, ef = 0;
            for (long i = f * 1024; i < (f + 1) * 1024; ++i) {
                ez += std::pow(zamac.samples[i * ch + c], 2.0);
                ef += std::pow(ffmpeg.samples[i * ch + c], 2.0);
            }
            if (ef < 1e6 && ez < 1e6) continue;  // near silence
            EXPECT_NEAR(10 * std::log10(ez / ef), 0.0, 0.5) << "frame " << f + 1 << " channel " << c;
        }
    }
}

// ------------------------------------------------------------------ ADIF

class BitWriter {
public:
    void put(uint32_t value, int bits)
    {
        for (int i = bits - 1; i >= 0; --i) {
            if (used_ % 8 == 0) bytes_.push_back('\0');
            if ((value >> i) & 1) bytes_.back() = static_cast<char>(bytes_.back() | (0x80 >> (used_ % 8)));
            ++used_;
        }
    }
    void align() { used_ = (used_ + 7) / 8 * 8; }
    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
    size_t used_ = 0;
};

// The raw data blocks of an ADTS stream (without CRC) behind an ADIF header with one
// program configuration: one CPE with tag 0 in front.
std::string adtsToAdif(const std::string& adts)
{
    BitWriter w;
    w.put('A', 8), w.put('D', 8), w.put('I', 8), w.put('F', 8);
    w.put(0, 1);        // copyright_id_present
    w.put(0, 1), w.put(0, 1);  // original_copy, home
    w.put(1, 1);        // bitstream_type: variable rate
    w.put(128000, 23);  // bitrate
    w.put(0, 4);        // one program configuration element
    const int samplingIndex = (static_cast<uint8_t>(adts[2]) >> 2) & 0xF;
    w.put(0, 4), w.put(1, 2), w.put(samplingIndex, 4);  // tag, object type LC, rate
    w.put(1, 4), w.put(0, 4), w.put(0, 4), w.put(0, 2), w.put(0, 3), w.put(0, 4);  // one front element
    w.put(0, 1), w.put(0, 1), w.put(0, 1);  // no mixdowns
    w.put(1, 1), w.put(0, 4);               // front element 0: a CPE with tag 0
    w.align();
    w.put(0, 8);  // no comment
    std::string out = w.bytes();
    for (size_t at = 0; at + 7 <= adts.size();) {
        const size_t length = (static_cast<uint8_t>(adts[at + 3]) & 3u) << 11 |
                              static_cast<uint8_t>(adts[at + 4]) << 3 | static_cast<uint8_t>(adts[at + 5]) >> 5;
        out += adts.substr(at + 7, length - 7);
        at += length;
    }
    return out;
}

TEST(ZamacDecode, AdifGivesTheSamePcmAsAdts)
{
    TempDir dir;
    const std::string adts = slurp(kSamples + "music-44k-stereo.aac");
    ASSERT_EQ(static_cast<uint8_t>(adts[1]) & 1, 1) << "the sample is expected without CRC";
    spit(dir / "in.adif", adtsToAdif(adts));
    const RunResult a = run(kTool + " -o '" + (dir / "adts.wav") + "' '" + kSamples + "music-44k-stereo.aac'", dir);
    const RunResult b = run(kTool + " -o '" + (dir / "adif.wav") + "' '" + (dir / "in.adif") + "'", dir);
    ASSERT_EQ(a.exitCode, 0);
    ASSERT_EQ(b.exitCode, 0) << b.err;
    const Wav x = readWav(dir / "adts.wav"), y = readWav(dir / "adif.wav");
    EXPECT_EQ(y.channels, 2);
    EXPECT_EQ(y.rate, 44100);
    EXPECT_EQ(x.samples, y.samples);
}

// Every frame of a mono stream gets a coupling channel element in front of its SCE:
// one coupled CPE target with both channels (so one common gain element, code "0"),
// and an empty long-window channel stream. Coupling is skipped, so the PCM must not change.
std::string withCouplingElements(const std::string& adts)
{
    std::string out;
    for (size_t at = 0; at + 7 <= adts.size();) {
        const size_t length = (static_cast<uint8_t>(adts[at + 3]) & 3u) << 11 |
                              static_cast<uint8_t>(adts[at + 4]) << 3 | static_cast<uint8_t>(adts[at + 5]) >> 5;
        BitWriter w;
        w.put(2, 3), w.put(0, 4);           // ID_CCE, element_instance_tag
        w.put(1, 1), w.put(0, 3);           // ind_sw_cce_flag, num_coupled_elements 0 (one target)
        w.put(1, 1), w.put(0, 4);           // cc_target_is_cpe, cc_target_tag_select
        w.put(1, 1), w.put(1, 1);           // cc_l, cc_r: a second gain element list
        w.put(0, 1), w.put(0, 1), w.put(0, 2);  // cc_domain, gain_element_sign, gain_element_scale
        w.put(100, 8);                      // global_gain
        w.put(0, 1), w.put(0, 2), w.put(0, 1), w.put(0, 6), w.put(0, 1);  // ics_info: long, max_sfb 0
        w.put(0, 1), w.put(0, 1), w.put(0, 1);  // no pulse, TNS or gain control data
        w.put(0, 1);                        // common gain element: scale-factor code "0"
        for (size_t i = 7; i < length; ++i) w.put(static_cast<uint8_t>(adts[at + i]), 8);
        std::string frame = adts.substr(at, 7) + w.bytes();
        const size_t newLength = frame.size();
        frame[3] = static_cast<char>((frame[3] & 0xFC) | (newLength >> 11));
        frame[4] = static_cast<char>(newLength >> 3);
        frame[5] = static_cast<char>((frame[5] & 0x1F) | ((newLength & 7) << 5));
        out += frame;
        at += length;
    }
    return out;
}

TEST(ZamacDecode, CouplingChannelElementsAreSkipped)
{
    TempDir dir;
    const std::string sample = kSamples + "music-22k-mono.aac";
    spit(dir / "cce.aac", withCouplingElements(slurp(sample)));
    const RunResult a = run(kTool + " -o '" + (dir / "plain.wav") + "' '" + sample + "'", dir);
    const RunResult b = run(kTool + " -o '" + (dir / "cce.wav") + "' '" + (dir / "cce.aac") + "'", dir);
    ASSERT_EQ(a.exitCode, 0);
    ASSERT_EQ(b.exitCode, 0) << b.err;
    EXPECT_NE(b.err.find("coupling channel elements; they are skipped"), std::string::npos) << b.err;
    EXPECT_NE(b.err.find("(0 concealed)"), std::string::npos) << b.err;
    EXPECT_EQ(readWav(dir / "plain.wav").samples, readWav(dir / "cce.wav").samples);
}

// ------------------------------------------------------------------ damaged input

struct Damage {
    const char* name;
    std::string (*apply)(const std::string&);
    bool decodes;  // something must still come out
};

std::string truncateMidFrame(const std::string& s) { return s.substr(0, s.size() * 3 / 5 + 13); }

std::string flipBits(const std::string& s)
{
    std::string t = s;
    std::mt19937 rng(7);
    for (int i = 0; i < 200; ++i) {
        const size_t at = 100 + rng() % (t.size() - 100);
        t[at] = static_cast<char>(t[at] ^ (1 << (rng() % 8)));
    }
    return t;
}

std::string garbageBetweenFrames(const std::string& s)
{
    std::mt19937 rng(11);
    std::string junk(777, '\0');
    for (char& c : junk) c = static_cast<char>(rng());
    // splice garbage in at a frame boundary and in the middle of a later frame
    size_t at = 0;
    for (int n = 0; n < 40; ++n)
        at += (static_cast<uint8_t>(s[at + 3]) & 3u) << 11 | static_cast<uint8_t>(s[at + 4]) << 3 |
              static_cast<uint8_t>(s[at + 5]) >> 5;
    return s.substr(0, at) + junk + s.substr(at, s.size() / 2 - at) + junk + "\xFF\xF1" + s.substr(s.size() / 2);
}

std::string onlyGarbage(const std::string& s)
{
    std::mt19937 rng(3);
    std::string t(s.size() / 4, '\0');
    for (char& c : t) c = static_cast<char>(rng() | 0x01);
    return t;
}

std::string ssrProfile(const std::string& s)
{
    std::string t = s;
    for (size_t at = 0; at + 7 <= t.size();) {  // every header: profile 2 (SSR, not supported)
        t[at + 2] = static_cast<char>((t[at + 2] & 0x3F) | 0x80);
        at += (static_cast<uint8_t>(t[at + 3]) & 3u) << 11 | static_cast<uint8_t>(t[at + 4]) << 3 |
              static_cast<uint8_t>(t[at + 5]) >> 5;
    }
    return t;
}

std::string empty(const std::string&) { return ""; }

class Robustness : public ::testing::TestWithParam<Damage> {};

TEST_P(Robustness, ReportsAndGoesOn)
{
    TempDir dir;
    const Damage& d = GetParam();
    spit(dir / "in.aac", d.apply(slurp(kSamples + "music-22k-mono.aac")));
    const RunResult r = run(kTool + " -o '" + (dir / "out.wav") + "' '" + (dir / "in.aac") + "'", dir);
    ASSERT_NE(r.exitCode, -1) << "killed by a signal: " << r.err;
    EXPECT_EQ(r.err.find("runtime error"), std::string::npos) << r.err;  // sanitizer builds
    EXPECT_EQ(r.err.find("AddressSanitizer"), std::string::npos) << r.err;
    if (d.decodes) {
        EXPECT_EQ(r.exitCode, 0) << r.err;
        EXPECT_GT(readWav(dir / "out.wav").frames(), 100u * 1024);
    } else {
        EXPECT_EQ(r.exitCode, 1) << r.err;
        EXPECT_FALSE(r.err.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Damages, Robustness,
                         ::testing::Values(Damage{"truncated", truncateMidFrame, true},
                                           Damage{"flippedBits", flipBits, true},
                                           Damage{"garbageBetweenFrames", garbageBetweenFrames, true},
                                           Damage{"onlyGarbage", onlyGarbage, false},
                                           Damage{"ssrProfile", ssrProfile, false},
                                           Damage{"empty", empty, false}),
                         [](const ::testing::TestParamInfo<Damage>& i) { return std::string(i.param.name); });

TEST(ZamacDecode, ConcealedFramesAreReportedByNumber)
{
    TempDir dir;
    spit(dir / "in.aac", flipBits(slurp(kSamples + "music-22k-mono.aac")));
    const RunResult r = run(kTool + " -v --bench '" + (dir / "in.aac") + "'", dir);
    ASSERT_EQ(r.exitCode, 0);
    EXPECT_NE(r.err.find("zamac-decode: frame "), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find(" 0 concealed"), std::string::npos) << r.err;
}

}  // namespace
