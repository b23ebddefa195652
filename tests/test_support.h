// Helpers shared by the test programs.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace zamtest {

// A byte buffer filled with a recognisable pattern, to show that a failed call
// wrote nothing.
constexpr uint8_t kCanary = 0xA5;

template <typename T>
std::vector<T> canaryVector(size_t n)
{
    std::vector<T> v(n);
    std::memset(v.data(), kCanary, n * sizeof(T));
    return v;
}

template <typename T>
bool untouched(const T* p, size_t n)
{
    const auto* b = reinterpret_cast<const uint8_t*>(p);
    return std::all_of(b, b + n * sizeof(T), [](uint8_t x) { return x == kCanary; });
}

template <typename T>
bool untouched(const std::vector<T>& v)
{
    return untouched(v.data(), v.size());
}

// Memory with a chosen misalignment from 64 bytes, for alignment-warning tests.
template <typename T>
class OffsetBuffer {
public:
    OffsetBuffer(size_t n, size_t byteOffset) : raw_(n * sizeof(T) + 128), offset_(byteOffset)
    {
        std::memset(raw_.data(), kCanary, raw_.size());
    }
    T* data()
    {
        auto a = reinterpret_cast<uintptr_t>(raw_.data());
        a = (a + 63) & ~uintptr_t{63};
        return reinterpret_cast<T*>(a + offset_);
    }

private:
    std::vector<uint8_t> raw_;
    size_t offset_;
};

inline std::mt19937& rng()
{
    static std::mt19937 gen(12345);
    return gen;
}

inline std::string sharedPath(const std::string& rel) { return std::string(ZAMAC_SHARED_DIR) + "/" + rel; }
inline std::string sourcePath(const std::string& rel) { return std::string(ZAMAC_SOURCE_DIR) + "/" + rel; }

}  // namespace zamtest
