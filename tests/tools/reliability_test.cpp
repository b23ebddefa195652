// zamac-decode on the inputs that once broke it (../shared/vectors/regressions: every
// file there is a case), on a full disk, on inputs that are not MP3 or AAC, and on a
// huge sparse file; plus the command-line conventions. A sanitizer build makes any
// memory fault or undefined behaviour show up in stderr.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
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

TEST(Reliability, HugeInputsAreRefusedBeforeReading)
{
    const std::string big = scratch("big.mp3");
    std::ofstream(big).close();
    ASSERT_EQ(truncate(big.c_str(), 2LL << 30), 0);
    const ToolRun r = tool("--bench '" + big + "'");
    std::remove(big.c_str());
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("inputs above 1024 MiB are refused"), std::string::npos) << r.err;
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
