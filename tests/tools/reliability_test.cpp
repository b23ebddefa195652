// zamac-decode on the inputs that once broke it (../shared/vectors/regressions: every
// file there is a case), on a full disk, on inputs that are not MP3 or AAC, and on a
// huge sparse file; plus the command-line conventions. A sanitizer build makes any
// memory fault or undefined behaviour show up in stderr. Memory use is bounded whatever
// the input's length.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "test_support.h"

namespace {

const std::string kTool = ZAMAC_BINARY_DIR "/tools/zamac-decode/zamac-decode";
const std::string kRegressions = ZAMAC_SHARED_DIR "/vectors/regressions/";

struct ToolRun {
    int exitCode = -1;  // -1: killed by a signal; 124: timed out
    std::string out, err;
};

std::string slurp(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

std::string scratch(const std::string& name)
{
    return std::string(ZAMAC_BINARY_DIR) + "/reltest_" + std::to_string(::getpid()) + "_" + name;
}

// Runs `zamac-decode args` (a shell fragment) with a time limit of 30 s.
ToolRun tool(const std::string& args, const std::string& redirect = "")
{
    const std::string out = scratch("stdout"), err = scratch("stderr");
    const std::string cmd = "timeout 30 '" + kTool + "' " + args + " " +
                            (redirect.empty() ? ">'" + out + "'" : redirect) + " 2>'" + err + "'";
    const int status = std::system(cmd.c_str());
    ToolRun r;
    if (WIFEXITED(status)) r.exitCode = WEXITSTATUS(status);
    r.out = slurp(out);
    r.err = slurp(err);
    std::remove(out.c_str());
    std::remove(err.c_str());
    return r;
}

bool clean(const ToolRun& r)
{
    return r.err.find("runtime error") == std::string::npos && r.err.find("Sanitizer") == std::string::npos;
}

std::vector<std::string> regressionFiles()
{
    std::vector<std::string> names;
    if (DIR* dir = opendir(kRegressions.c_str())) {
        while (dirent* e = readdir(dir))
            if (e->d_name[0] != '.' && std::string(e->d_name) != "README.md") names.push_back(e->d_name);
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

class Regression : public ::testing::TestWithParam<std::string> {};

TEST_P(Regression, ExitsCleanlyInBoundedTime)
{
    const std::string wav = scratch("out.wav");
    const ToolRun r = tool("-o '" + wav + "' '" + kRegressions + GetParam() + "'");
    EXPECT_TRUE(r.exitCode == 0 || r.exitCode == 1) << "exit " << r.exitCode << ": " << r.err;
    EXPECT_TRUE(clean(r)) << r.err;
    EXPECT_FALSE(r.err.empty());  // the summary line or the reason
    // a failed run leaves no output file behind
    EXPECT_EQ(std::ifstream(wav).good(), r.exitCode == 0) << r.err;
    std::remove(wav.c_str());
}

INSTANTIATE_TEST_SUITE_P(SharedVectors, Regression, ::testing::ValuesIn(regressionFiles()),
                         [](const ::testing::TestParamInfo<std::string>& i) {
                             std::string n = i.param;
                             for (char& c : n)
                                 if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                             return n;
                         });

TEST(Reliability, AFullDiskIsAnError)
{
    const std::string in = "'" + kRegressions + "two-frames-8k.aac'";
    for (const auto& [args, redirect] : std::vector<std::pair<std::string, std::string>>{
             {"-o /dev/full " + in, ""}, {in, ">/dev/full"}, {"-o - " + in, ">/dev/full"}}) {
        const ToolRun r = tool(args, redirect);
        EXPECT_EQ(r.exitCode, 1) << args;
        EXPECT_NE(r.err.find("No space left on device"), std::string::npos) << r.err;
    }
}

// Exit status and peak resident memory (KiB) of a shell command: the largest of the
// shell, its children and zamac-decode.
std::pair<int, long> peakKiB(const std::string& command)
{
    const pid_t pid = fork();
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, usage.ru_maxrss};
}

#if defined(__SANITIZE_ADDRESS__)
// AddressSanitizer's shadow memory, allocator and quarantine take 20 to 100 MB depending
// on its options; still far below a 2 GiB input, and the growth check below holds.
constexpr long kMemoryBoundKiB = 256 << 10;
#else
constexpr long kMemoryBoundKiB = 6 << 10;
#endif

// The input is read through a window as it is decoded: a 2 GiB file is looked at, not
// read into memory.
TEST(Reliability, HugeInputsAreNotReadIntoMemory)
{
    const std::string big = scratch("big.mp3");
    std::ofstream(big).close();
    ASSERT_EQ(truncate(big.c_str(), 2LL << 30), 0);
    const ToolRun r = tool("--bench '" + big + "'");
    const auto [status, kib] = peakKiB("'" + kTool + "' --bench '" + big + "' 2>/dev/null");
    std::remove(big.c_str());
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("not an MP3, AAC or MP4 audio file"), std::string::npos) << r.err;
    EXPECT_EQ(status, 1);
    EXPECT_LT(kib, kMemoryBoundKiB);
}

// Memory stays the same for a minute and an hour of MP3 (16 kHz mono, 32 kbit/s), from
// a file and from a pipe (within 512 KiB: the peak varies by some 300 KiB from run to
// run at any length).
TEST(Reliability, MemoryDoesNotGrowWithTheInput)
{
    const std::string wav = scratch("clip.wav"), clip = scratch("clip.mp3");
    ASSERT_EQ(std::system(("sox -n -r 16000 -c 1 '" + wav + "' synth 10 sine 300-3000 gain -3 && lame --quiet -t "
                           "-b 32 '" + wav + "' '" + clip + "'").c_str()), 0);
    const std::string tenSeconds = slurp(clip);
    std::remove(wav.c_str());
    std::remove(clip.c_str());
    long peak[2][2];
    for (int hour = 0; hour < 2; ++hour) {
        const std::string path = scratch(hour ? "hour.mp3" : "minute.mp3");
        {
            std::ofstream out(path, std::ios::binary);
            for (int i = 0; i < (hour ? 360 : 6); ++i) out << tenSeconds;
        }
        for (int pipe = 0; pipe < 2; ++pipe) {
            const std::string command = pipe ? "cat '" + path + "' | '" + kTool + "' -q - >/dev/null"
                                             : "'" + kTool + "' -q '" + path + "' >/dev/null";
            const auto [status, kib] = peakKiB(command);
            EXPECT_EQ(status, 0) << command;
            EXPECT_LT(kib, kMemoryBoundKiB) << command;
            peak[hour][pipe] = kib;
        }
        std::remove(path.c_str());
    }
    for (int pipe = 0; pipe < 2; ++pipe) EXPECT_NEAR(peak[1][pipe], peak[0][pipe], 512) << "pipe " << pipe;
}

// What was looked for and not found, for inputs that are not (whole) MP3 or AAC.
TEST(Reliability, MessagesSayWhatIsMissing)
{
    const std::string aac = slurp(ZAMAC_SOURCE_DIR "/samples/music-44k-stereo.aac");
    std::string junk(70000, '\0');
    for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<char>((i * 7919) % 251);
    const struct {
        std::string bytes, expected;
        int exitCode;
    } cases[] = {
        {aac.substr(0, 7), "no complete AAC frame found", 1},
        {aac.substr(0, 300), "no complete AAC frame found", 1},
        {"ADIF", "ends before the end of the ADIF header", 1},
        {std::string(5000, 'x'), "not an MP3, AAC or MP4 audio file", 1},
        {std::string("RIFF\x24\0\0\0WAVEfmt ", 16) + std::string(40, '\0'), "this is a WAVE file", 1},
        {junk + aac, ": AAC, 44100 Hz", 0},
    };
    const std::string in = scratch("in.bin");
    for (const auto& c : cases) {
        std::ofstream(in, std::ios::binary) << c.bytes;
        const ToolRun r = tool("--bench '" + in + "'");
        EXPECT_EQ(r.exitCode, c.exitCode) << c.expected << ": " << r.err;
        EXPECT_NE(r.err.find(c.expected), std::string::npos) << r.err;
    }
    std::remove(in.c_str());
}

TEST(CommandLine, FollowsTheUsualConventions)
{
    ToolRun r = tool("--help");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("Usage: zamac-decode"), std::string::npos);
    r = tool("--version");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("zamac-decode (zamac) "), std::string::npos);
    r = tool("--frobnicate x.mp3");
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("unknown option '--frobnicate'"), std::string::npos) << r.err;
    r = tool("-f s8 x.mp3");
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("'s8'"), std::string::npos) << r.err;
}

}  // namespace
