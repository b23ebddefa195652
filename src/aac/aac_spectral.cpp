// Spectral Huffman decoding of AAC code books 1..11: two-level table look-ups on
// a 32-bit bit window, and a bit-by-bit twin for reference.
#include <bit>

#include "aac/aac_bitstream.h"
#include "aac/aac_huffman.h"

namespace zam {

namespace {

constexpr int kEscapeValue = 16;
constexpr int kMaxEscapePrefix = 8;  // 2^(8+4) + 2^12 - 1 = 8191

// Bits at a position relative to a base pointer, held in a 32-bit window: a
// reload takes the four bytes at the byte of the position (at least 25 valid
// bits), so nothing is read beyond three bytes past the position. Several short
// code words are taken from one load; only the table look-up stays on the
// dependency chain from one code word to the next.
struct BitWindow {
    const uint8_t* base;
    uint32_t pos;
    uint32_t bits = 0;  // next bits, first one most significant
    int valid = 0;

    void reload()
    {
        bits = loadBE32(base + (pos >> 3)) << (pos & 7);
        valid = 32 - static_cast<int>(pos & 7);
    }
    void ensure(int n)
    {
        if (valid < n) reload();
    }
    void skip(int n)  // n <= valid, n < 32
    {
        bits <<= n;
        valid -= n;
        pos += static_cast<uint32_t>(n);
    }
};

// escape_sequence(): N ones, a zero, then an (N + 4)-bit word; the value is
// 2^(N+4) + word.
inline bool readEscape(BitWindow& bw, int32_t& value)
{
    bw.ensure(2 * kMaxEscapePrefix + 5);
    const int ones = std::countl_one(bw.bits);
    if (ones > kMaxEscapePrefix) {
        bw.skip(kMaxEscapePrefix + 1);  // the ninth one ends the read
        return false;
    }
    const int wordBits = ones + 4;
    const uint32_t word = (bw.bits << (ones + 1)) >> (32 - wordBits);
    bw.skip(ones + 1 + wordBits);
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
ZamStatus decodeBook(BitWindow& bw, const AacSpectralBook& book, int32_t* dst, int count)
{
    // Longest code word plus its sign bits.
    const int need = book.maxLength + (Signed ? 0 : Dim);
    for (int i = 0; i < count; i += Dim) {
        bw.ensure(need);
        const uint32_t e = lookup(book, bw.bits);
        int len = static_cast<int>(e & 31u);
        int32_t v[Dim];
        for (int k = 0; k < Dim; ++k) v[k] = aacLeafValue(e, k);
        if constexpr (!Signed) {
            // Sign bits follow the code word, one per non-zero value, in order.
            // Branch-free: the sign bits are as good as random.
            uint32_t signs = bw.bits << len;
            for (int k = 0; k < Dim; ++k) {
                const uint32_t nonZero = v[k] != 0;
                const int32_t negate = -static_cast<int32_t>((signs >> 31) & nonZero);
                v[k] = (v[k] ^ negate) - negate;
                signs <<= nonZero;
            }
            len += static_cast<int>((e >> 5) & 7u);
        }
        bw.skip(len);
        if constexpr (Escape) {
            for (int k = 0; k < Dim; ++k) {
                if ((v[k] == kEscapeValue || v[k] == -kEscapeValue) && !readEscape(bw, v[k])) {
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
    BitWindow bp{c.ptr, static_cast<uint32_t>(c.offset)};
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
