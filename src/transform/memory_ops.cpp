// Zero-fill, copy and float-array allocation shared by the transform families.
// Large clears bypass the caches once they exceed the largest cache; large copies
// stream their stores.
#include <immintrin.h>

#include <cstring>

#include "core/memory.h"
#include "transform/fft.h"
#include "zamcore.h"

namespace zam {

namespace {

constexpr int64_t kPlainFillLimit = 0x200000;  // 2 MiB
constexpr int64_t kStreamCopyFrom = 32768;

void plainZero(uint8_t* p, int64_t bytes)
{
    const __m256 z = _mm256_setzero_ps();
    int64_t i = 0;
    for (; i + 32 <= bytes; i += 32) _mm256_storeu_ps(reinterpret_cast<float*>(p + i), z);
    for (; i < bytes; ++i) p[i] = 0;
}

// Ordinary stores up to the first 64-byte boundary and for the tail, streaming
// stores for the whole lines between.
void streamingZero(uint8_t* p, int64_t bytes)
{
    uint8_t* aligned = alignUp(p, 64);
    int64_t head = aligned - p;
    plainZero(p, head);
    int64_t body = (bytes - head) & ~int64_t{63};
    const __m256i z = _mm256_setzero_si256();
    for (int64_t i = 0; i < body; i += 64) {
        _mm256_stream_si256(reinterpret_cast<__m256i*>(aligned + i), z);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(aligned + i + 32), z);
    }
    _mm_sfence();
    plainZero(aligned + body, bytes - head - body);
}

void zeroBytes(uint8_t* p, int64_t bytes)
{
    if (bytes > kPlainFillLimit) {
        int cache = 0;
        if (zamGetMaxCacheSizeB(&cache) == ZAMCORE_STS_OK && cache > 0 && bytes > cache) {
            streamingZero(p, bytes);
            return;
        }
    }
    plainZero(p, bytes);
}

void copyRange(const uint8_t* src, uint8_t* dst, int64_t bytes)
{
    const bool overlap = src < dst + bytes && dst < src + bytes;
    if (bytes < kStreamCopyFrom || overlap) {
        std::memmove(dst, src, static_cast<size_t>(bytes));
        return;
    }
    uint8_t* aligned = alignUp(dst, 32);
    int64_t head = aligned - dst;
    std::memcpy(dst, src, static_cast<size_t>(head));
    int64_t body = (bytes - head) & ~int64_t{31};
    for (int64_t i = 0; i < body; i += 32)
        _mm256_stream_si256(reinterpret_cast<__m256i*>(aligned + i),
                            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + head + i)));
    _mm_sfence();
    std::memcpy(aligned + body, src + head + body, static_cast<size_t>(bytes - head - body));
}

}  // namespace

ZamStatus zeroFillBytes(void* p, int byteCount)
{
    if (!p) return zamStsNullPtr;
    if (byteCount < 1) return zamStsSize;
    zeroBytes(static_cast<uint8_t*>(p), byteCount);
    return zamStsOk;
}

ZamStatus zeroFillFloats(float* p, int count)
{
    if (!p) return zamStsNullPtr;
    if (count < 1) return zamStsSize;
    zeroBytes(reinterpret_cast<uint8_t*>(p), int64_t{count} * 4);
    return zamStsOk;
}

ZamStatus copyBytes(const void* src, void* dst, int byteCount)
{
    if (!src || !dst) return zamStsNullPtr;
    if (byteCount < 1) return zamStsSize;
    copyRange(static_cast<const uint8_t*>(src), static_cast<uint8_t*>(dst), byteCount);
    return zamStsOk;
}

ZamStatus copyFloats(const float* src, float* dst, int count)
{
    if (!src || !dst) return zamStsNullPtr;
    if (count < 1) return zamStsSize;
    // Byte counts stay within a signed 32-bit range: pieces of 0x7FFFFFE0 bytes.
    constexpr int64_t kPiece = 0x7FFFFFE0;
    int64_t bytes = int64_t{count} * 4;
    auto* s = reinterpret_cast<const uint8_t*>(src);
    auto* d = reinterpret_cast<uint8_t*>(dst);
    if (count <= 0x1FFFFFFF) {
        copyRange(s, d, bytes);
        return zamStsOk;
    }
    for (int64_t off = 0; off < bytes; off += kPiece) copyRange(s + off, d + off, bytes - off < kPiece ? bytes - off : kPiece);
    return zamStsOk;
}

float* allocFloats(int count) { return static_cast<float*>(allocElements32(count)); }

}  // namespace zam
