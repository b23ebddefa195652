// Spectral Huffman decoding of AAC code books 1..11: a two-level table lookup on
// one 32-bit big-endian load per code word, and a bit-by-bit twin for reference.
#include <bit>

#include "aac/aac_bitstream.h"
#include "aac/aac_huffman.h"

namespace zam {

namespace {

constexpr int kEscapeValue = 16;
constexpr int kMaxEscapePrefix = 8;  // 2^(8+4) + 2^12 - 1 = 8191

// Bit position relative to a base pointer; a load at the byte of the position
// holds at least 25 valid bits after the shift.
struct BitPos {
    const uint8_t* base;
    uint32_t pos;

    uint32_t window() const { return loadBE32(base + (pos >> 3)) << (pos & 7); }
};

// escape_sequence(): N ones, a zero, then an (N + 4)-bit word; the value is
// 2^(N+4) + word.
inline bool readEscape(BitPos& bp, int32_t& value)
{
    const uint32_t w = bp.window();
    const int ones = std::countl_one(w);
    if (ones > kMaxEscapePrefix) return false;
    const int wordBits = ones + 4;
    const uint32_t word = (w << (ones + 1)) >> (32 - wordBits);
    bp.pos += static_cast<uint32_t>(ones + 1 + wordBits);
    const int32_t magnitude = (1 << wordBits) + static_cast<int32_t>(word);
    value = value < 0 ? -magnitude : magnitude;
    return true;
}

inline uint32_t lookup(const AacSpectralBook& book, uint32_t w)
{
    const int primary = book.primaryBits;
    uint32_t e = book.lookup[w >> (32 - primary)];
    if ((e & 31u) == 0) {
        const int subBits = static_cast<int>((e >> 5) & 15u);
        e = book.lookup[(e >> 9) + ((w << primary) >> (32 - subBits))];
    }
    return e;
}

template <int Dim, bool Signed, bool Escape>
ZamStatus decodeBook(BitPos& bp, const AacSpectralBook& book, int32_t* dst, int count)
{
    for (int i = 0; i < count; i += Dim) {
        const uint32_t w = bp.window();
        const uint32_t e = lookup(book, w);
        int len = static_cast<int>(e & 31u);
        int32_t v[Dim];
        for (int k = 0; k < Dim; ++k) v[k] = aacLeafValue(e, k);
        if constexpr (!Signed) {
            // Sign bits follow the code word, one per non-zero value, in order.
            uint32_t signs = w << len;
            for (int k = 0; k < Dim; ++k) {
                if (v[k] != 0) {
                    if (signs & 0x80000000u) v[k] = -v[k];
                    signs <<= 1;
                }
            }
            len += static_cast<int>((e >> 5) & 7u);
        }
        bp.pos += static_cast<uint32_t>(len);
        if constexpr (Escape) {
            for (int k = 0; k < Dim; ++k) {
                if ((v[k] == kEscapeValue || v[k] == -kEscapeValue) && !readEscape(bp, v[k])) {
                    return zamStsAacQuantValErr;
                }
            }
        }
        for (int k = 0; k < Dim; ++k) dst[i + k] = v[k];
    }
    return zamStsOk;
}

}  // namespace

ZamStatus aacDecodeSpectralValues(AacCursor& c, int book, int32_t* dst, int count)
{
    const AacSpectralBook& b = kAacSpectralBooks[book];
    BitPos bp{c.ptr, static_cast<uint32_t>(c.offset)};
    ZamStatus st;
    switch (book) {
    case 1:
    case 2: st = decodeBook<4, true, false>(bp, b, dst, count); break;
    case 3:
    case 4: st = decodeBook<4, false, false>(bp, b, dst, count); break;
    case 5:
    case 6: st = decodeBook<2, true, false>(bp, b, dst, count); break;
    case 11: st = decodeBook<2, false, true>(bp, b, dst, count); break;
    default: st = decodeBook<2, false, false>(bp, b, dst, count); break;
    }
    c.ptr = bp.base + (bp.pos >> 3);
    c.offset = static_cast<int>(bp.pos & 7);
    return st;
}

ZamStatus aacDecodeSpectralValuesRef(AacCursor& c, int book, int32_t* dst, int count)
{
    const AacSpectralBook& b = kAacSpectralBooks[book];
    const int mod = b.isSigned ? 2 * b.largestValue + 1 : b.largestValue + 1;
    const int off = b.isSigned ? b.largestValue : 0;
    for (int i = 0; i < count; i += b.dimension) {
        // Grow the code one bit at a time until it matches a code word.
        uint32_t code = 0;
        int index = -1;
        for (int len = 1; len <= b.maxLength && index < 0; ++len) {
            code = (code << 1) | c.readBit();
            for (int j = 0; j < b.numCodes; ++j) {
                if (b.codes[j].length == static_cast<uint32_t>(len) && b.codes[j].code == code) {
                    index = j;
                    break;
                }
            }
        }
        int32_t v[4];
        for (int k = b.dimension - 1; k >= 0; --k) {
            v[k] = index % mod - off;
            index /= mod;
        }
        if (!b.isSigned) {
            for (int k = 0; k < b.dimension; ++k) {
                if (v[k] != 0 && c.readBit()) v[k] = -v[k];
            }
        }
        if (book == kAacEscHcb) {
            for (int k = 0; k < 2; ++k) {
                if (v[k] != kEscapeValue && v[k] != -kEscapeValue) continue;
                int ones = 0;
                while (c.readBit()) {
                    if (++ones > kMaxEscapePrefix) return zamStsAacQuantValErr;
                }
                const int32_t magnitude = (1 << (ones + 4)) + static_cast<int32_t>(c.read(ones + 4));
                v[k] = v[k] < 0 ? -magnitude : magnitude;
            }
        }
        for (int k = 0; k < b.dimension; ++k) dst[i + k] = v[k];
    }
    return zamStsOk;
}

}  // namespace zam
