// State objects: placement in caller memory, identification tags, ownership, and
// the three allocation primitives every family goes through.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zamcore.h"

namespace zam {

// A four-character tag: one family letter followed by "AMC" in memory order, read
// as a little-endian 32-bit integer.
constexpr uint32_t fourCharTag(char letter) { return 0x434D4100u + static_cast<uint8_t>(letter); }

// Small integer tags kept in a field of the record.
enum SmallTag : int32_t {
    kTagMdctFwd32f = 55,
    kTagMdctInv32f = 56,
    kTagMdctFwd16s = 57,
    kTagFirBlock = 58,
    kTagFdp = 59,
};

// Ownership flag values.
constexpr int32_t kCallerMemory = 0;
constexpr int32_t kOwnedByLibrary = 1;

// Header alignment inside caller memory, and the slack GetSize adds for it.
constexpr int kStateAlign = 16;
constexpr int kStateSlack = 15;
constexpr int kVlcAlign = 64;
constexpr int kVlcSlack = 64;

// Rounds a byte count up to a multiple of `align` (a power of two).
constexpr int64_t roundUp(int64_t bytes, int64_t align) { return (bytes + align - 1) & ~(align - 1); }
constexpr int roundUp16(int bytes) { return static_cast<int>(roundUp(bytes, 16)); }

// The first address at or after `p` that is a multiple of `align`. Every operation
// finds an object's header this way, so the caller's pointer need not be aligned.
template <typename T = uint8_t>
inline T* alignUp(const void* p, uintptr_t align)
{
    uintptr_t a = reinterpret_cast<uintptr_t>(p);
    return reinterpret_cast<T*>((a + align - 1) & ~(align - 1));
}

inline bool isAligned(const void* p, uintptr_t align) { return (reinterpret_cast<uintptr_t>(p) & (align - 1)) == 0; }

// Allocate bytes: null without calling the allocator when the count is below 1.
inline void* allocBytes(int32_t count) { return count < 1 ? nullptr : zamMalloc(count); }

// Allocate 32-bit elements: null when the count is below 1.
inline void* allocElements32(int32_t count)
{
    return count < 1 ? nullptr : zamMalloc(static_cast<int64_t>(count) * 4);
}

// Release.
inline void release(void* p) { zamFree(p); }

// Reads and writes a 32-bit tag or field at a byte address without aliasing trouble.
inline uint32_t loadU32(const void* p)
{
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}
inline void storeU32(void* p, uint32_t v) { std::memcpy(p, &v, 4); }

// The common header of the four-character-tag objects with 16-byte alignment:
// the tag first; families add their own fields after it.
struct TaggedHeader {
    uint32_t tag;
    int32_t ownsMemory;
};

// Finds the header of a 16-byte-aligned object and checks its tag. Returns null
// for a null pointer or a wrong tag; the caller maps that to its status.
template <typename Header>
inline Header* findHeader(const void* object, uint32_t tag, uintptr_t align = kStateAlign)
{
    if (!object) return nullptr;
    Header* h = alignUp<Header>(object, align);
    return loadU32(h) == tag ? h : nullptr;
}

}  // namespace zam
