// The bit-stream cursor: a byte pointer and a bit offset 0..7 counted from the
// most significant bit. Fields go most significant bit first. The primitives keep
// no bit buffer between calls: all state is in the cursor, and none of them knows
// where the buffer ends (the calling operation guards the range).
#pragma once

#include <cstdint>
#include <cstring>

namespace zam {

inline uint32_t loadBE32(const uint8_t* p)
{
    uint32_t v;
    std::memcpy(&v, p, 4);
    return __builtin_bswap32(v);
}

inline void storeBE32(uint8_t* p, uint32_t v)
{
    v = __builtin_bswap32(v);
    std::memcpy(p, &v, 4);
}

inline uint32_t loadLE32(const uint8_t* p)
{
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

// Moves a cursor on by `bits` (non-negative).
template <typename Byte>
inline void advanceBits(Byte*& ptr, int& offset, int bits)
{
    int s = offset + bits;
    ptr += s >> 3;
    offset = s & 7;
}

// Reads an n-bit field (1..25), unsigned and right-aligned. One big-endian 32-bit
// load serves the whole field, so three bytes after the byte holding the field's
// last bit must be readable, and offset + n must not exceed 32.
template <typename Byte>
inline uint32_t readField(Byte*& ptr, int& offset, int n)
{
    const uint32_t word = loadBE32(reinterpret_cast<const uint8_t*>(ptr));
    const int s = offset + n;
    const uint32_t value = (word & (0xFFFFFFFFu >> offset)) >> (32 - s);
    ptr += s >> 3;
    offset = s & 7;
    return value;
}

// Reads an n-bit field and sign-extends it from bit n-1.
template <typename Byte>
inline int32_t readSignedField(Byte*& ptr, int& offset, int n)
{
    const uint32_t raw = readField(ptr, offset, n);
    return static_cast<int32_t>(raw << (32 - n)) >> (32 - n);
}

// Moves to the next byte boundary unless the cursor is already on one.
template <typename Byte>
inline void alignToByte(Byte*& ptr, int& offset)
{
    if (offset != 0) {
        ++ptr;
        offset = 0;
    }
}

// Writes the n low bits of `value` (n 0..31; 32 writes zeros, the mask being formed
// with the shift count taken modulo 32). Every byte the writer starts is
// overwritten, so the output buffer need not be cleared; when it starts at a
// non-zero offset, the bits of that byte after the offset must already be 0.
inline void writeField(uint8_t*& ptr, int& offset, uint32_t value, int n)
{
    if (n == 0) return;
    const uint32_t mask = ~(0xFFFFFFFFu << (n & 31));
    value &= mask;
    if (offset + n < 8) {
        const uint8_t placed = static_cast<uint8_t>(value << (8 - offset - n));
        if (offset == 0) *ptr = placed;
        else *ptr |= placed;
        offset += n;
        return;
    }
    // Leading 8 - offset bits go into the current byte.
    int remaining = n - (8 - offset);
    const uint8_t lead = static_cast<uint8_t>(static_cast<uint64_t>(value) >> remaining);
    if (offset == 0) *ptr = lead;
    else *ptr = static_cast<uint8_t>(*ptr | (lead & (0xFFu >> offset)));
    ++ptr;
    while (remaining >= 8) {
        remaining -= 8;
        *ptr++ = static_cast<uint8_t>(value >> remaining);
    }
    // A field that ends on a byte boundary leaves the next byte alone: its value
    // would be unchanged anyway, and not touching it means a field may end exactly
    // at the end of the caller's buffer.
    if (remaining > 0) *ptr = static_cast<uint8_t>(value << (8 - remaining));
    offset = remaining;
}

// ---------------------------------------------------------------------------
// Word-oriented access of the VLC operations: the stream is addressed as
// big-endian 32-bit words at 4-byte-aligned addresses. The word in use is the one
// containing the cursor byte; the bit position inside it is 8 * (ptr mod 4) + offset.

inline const uint8_t* alignedWord(const uint8_t* ptr)
{
    return reinterpret_cast<const uint8_t*>(reinterpret_cast<uintptr_t>(ptr) & ~uintptr_t{3});
}
inline uint8_t* alignedWord(uint8_t* ptr)
{
    return reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(ptr) & ~uintptr_t{3});
}
inline int bitInWord(const uint8_t* ptr, int offset)
{
    return static_cast<int>((reinterpret_cast<uintptr_t>(ptr) & 3) * 8) + offset;
}

// Peeks `width` bits (1..32) at the cursor without moving it. When the peek runs
// past the current aligned word it is completed from the next one; otherwise the
// next word is not touched.
inline uint32_t vlcPeek(const uint8_t* ptr, int offset, int width)
{
    const uint8_t* word = alignedWord(ptr);
    const int pos = bitInWord(ptr, offset);
    const uint64_t hi = loadBE32(word);
    if (pos + width <= 32) {
        return static_cast<uint32_t>(((hi << (32 + pos)) & 0xFFFFFFFF00000000ull) >> (64 - width));
    }
    const uint64_t both = (hi << 32) | loadBE32(word + 4);
    return static_cast<uint32_t>((both << pos) >> (64 - width));
}

// Writes one code of `len` bits (1..32) at the cursor and advances it.
//  - Ends inside the word: kept bits, the code, then ones to the end of the word.
//  - Ends on the word's end: kept bits and the code; the cursor moves to the next word.
//  - Runs s bits into the next word: that word gets the code's last s bits at its
//    top, and below them its previous four bytes read little-endian, masked to
//    their low 32 - s bits. Only bits after the cursor change either way, and the
//    next code overwrites them.
inline void vlcWriteCode(uint8_t*& ptr, int& offset, uint32_t code, int len)
{
    uint8_t* word = alignedWord(ptr);
    const int pos = bitInWord(ptr, offset);
    const uint64_t codeBits = len >= 32 ? code : (code & ((1u << len) - 1u));
    const uint32_t keepMask = pos == 0 ? 0u : ~(0xFFFFFFFFu >> pos);
    const uint32_t kept = loadBE32(word) & keepMask;
    const int end = pos + len;
    if (end < 32) {
        const int tail = 32 - end;
        storeBE32(word, kept | static_cast<uint32_t>(codeBits << tail) | ((1u << tail) - 1u));
        ptr = word + (end >> 3);
        offset = end & 7;
    } else if (end == 32) {
        storeBE32(word, kept | static_cast<uint32_t>(codeBits));
        ptr = word + 4;
        offset = 0;
    } else {
        const int s = end - 32;
        storeBE32(word, kept | static_cast<uint32_t>(codeBits >> s));
        uint8_t* next = word + 4;
        const uint32_t lowMask = 0xFFFFFFFFu >> s;
        const uint32_t previous = loadLE32(next) & lowMask;
        const uint32_t top = static_cast<uint32_t>(codeBits << (32 - s));
        storeBE32(next, top | previous);
        ptr = next + (s >> 3);
        offset = s & 7;
    }
}

}  // namespace zam
