// Shared by the AAC fuzz targets: runs a reader twice, first on the input padded
// with zeros, then on an exact heap copy that ends three bytes after the byte
// holding the last bit the first run consumed, so that any read past the
// documented slack is an address-sanitizer finding.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace aacfuzz {

constexpr size_t kReadSlack = 3;

// Reader: long(uint8_t* buffer) returning the bits consumed from the buffer start
// (the position of the cursor after the call), or -1 to skip the second run.
template <typename Reader>
void runWithExactSlack(const uint8_t* data, size_t size, size_t maxConsumed, Reader&& reader)
{
    const size_t padded = size + maxConsumed + kReadSlack;
    uint8_t* big = static_cast<uint8_t*>(std::calloc(padded, 1));
    std::memcpy(big, data, size);
    const long bits = reader(big);
    if (bits > 0) {
        const size_t lastByte = static_cast<size_t>(bits - 1) / 8;
        if (lastByte + 1 + kReadSlack > padded - kReadSlack) std::abort();  // ran past its bound
        const size_t exactSize = lastByte + 1 + kReadSlack;
        uint8_t* exact = static_cast<uint8_t*>(std::malloc(exactSize));
        std::memcpy(exact, big, exactSize);
        if (reader(exact) != bits) std::abort();  // the unread tail must not matter
        std::free(exact);
    }
    std::free(big);
}

inline long bitsFrom(const uint8_t* base, const uint8_t* p, int offset)
{
    return static_cast<long>(p - base) * 8 + offset;
}

}  // namespace aacfuzz
