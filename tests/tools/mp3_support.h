// Running zamac-decode on MP3 input from the tests, and comparing PCM.
#pragma once

#include <sys/wait.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "test_support.h"

namespace mp3test {

// The build's zamac-decode, or the one named by ZAMAC_DECODE.
inline std::string toolPath()
{
    if (const char* env = std::getenv("ZAMAC_DECODE")) return env;
    return std::string(ZAMAC_BINARY_DIR) + "/tools/zamac-decode/zamac-decode";
}

inline bool toolBuilt()
{
    std::ifstream f(toolPath());
    return f.good();
}

inline std::vector<uint8_t> readBytes(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), {});
}

inline void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream f(path, std::ios::binary);
    f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<int16_t> readPcm(const std::string& path)
{
    const auto bytes = readBytes(path);
    std::vector<int16_t> pcm(bytes.size() / 2);
    for (size_t i = 0; i < pcm.size(); ++i)
        pcm[i] = static_cast<int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    return pcm;
}

// A scratch file name unique to this process.
inline std::string scratch(const std::string& name)
{
    return std::string(ZAMAC_BINARY_DIR) + "/mp3test_" + std::to_string(::getpid()) + "_" + name;
}

struct RunResult {
    int exitCode = -1;   // -1 when the process did not exit normally (a signal)
    std::vector<int16_t> pcm;
};

// zamac-decode [options] input > raw PCM (16-bit interleaved, no header).
inline RunResult decodeRaw(const std::string& input, const std::string& options = "")
{
    const std::string out = scratch("out.raw");
    const std::string cmd = "'" + toolPath() + "' " + options + " '" + input + "' > '" + out + "' 2>/dev/null";
    const int status = std::system(cmd.c_str());
    RunResult r;
    if (status != -1 && WIFEXITED(status)) r.exitCode = WEXITSTATUS(status);
    r.pcm = readPcm(out);
    std::remove(out.c_str());
    return r;
}

struct Comparison {
    double psnr;
    int maxDiff;
};

// PSNR = 10 log10(32767^2 / MSE) over the reference's length (missing output
// samples count as zeros).
inline Comparison compare(const std::vector<int16_t>& out, const std::vector<int16_t>& ref, size_t outOffset = 0,
                          size_t refOffset = 0, size_t count = SIZE_MAX)
{
    if (count == SIZE_MAX) count = ref.size() - refOffset;
    double se = 0;
    int maxDiff = 0;
    for (size_t i = 0; i < count; ++i) {
        const int o = outOffset + i < out.size() ? out[outOffset + i] : 0;
        const int d = o - ref[refOffset + i];
        se += double(d) * d;
        maxDiff = std::max(maxDiff, std::abs(d));
    }
    const double mse = count ? se / double(count) : 0;
    return {mse == 0 ? 200.0 : 10 * std::log10(32767.0 * 32767.0 / mse), maxDiff};
}

}  // namespace mp3test
