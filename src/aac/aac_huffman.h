// Built-in Huffman codes of AAC: the scale-factor code and the spectral code
// books 1..11 of ISO/IEC 13818-7.
#pragma once

#include <cstdint>

namespace zam {

struct AacHuffCode {
    uint32_t code;  // right-aligned, first-transmitted bit most significant
    uint32_t length;
};

// Scale-factor code as a byte tree: from byte i a 0 bit moves to byte i + 1, a 1
// bit to byte i + (tree[i] >> 1); a byte with its low bit set is a leaf holding
// 2 * index + 1 (index 60 is a difference of 0).
extern const uint8_t kAacScaleFactorTree[241];
// The same code on its first 8 bits: (length << 8) | index for a code of at most
// 8 bits; for a longer one, length 0 and the tree byte the 8 bits lead to.
extern const uint16_t kAacScaleFactorLookup[256];
extern const AacHuffCode kAacScaleFactorCodes[121];

// Lookup entry of a spectral book:
//  - leaf (bits 0..4 non-zero): bits 0..4 code length, bits 5..7 number of
//    non-zero values (unsigned books: one sign bit each follows the code),
//    bits 8.. the values, 6-bit two's complement each, first value lowest;
//  - link (bits 0..4 zero): bits 5..8 sub-table width, bits 9.. sub-table start
//    in the same array; the sub-table is indexed by the bits after the primary ones.
struct AacSpectralBook {
    const AacHuffCode* codes;  // by index; index = sum (v_k + off) * mod^(dim-1-k)
    const uint32_t* lookup;
    int32_t numCodes;
    int32_t primaryBits;
    int32_t dimension;  // 4 (books 1..4) or 2
    int32_t isSigned;
    int32_t largestValue;  // 16 in book 11 announces an escape
    int32_t maxLength;
};

extern const AacSpectralBook kAacSpectralBooks[12];  // entry 0 unused

inline int32_t aacLeafValue(uint32_t entry, int k)
{
    return static_cast<int32_t>(entry << (18 - 6 * k)) >> 26;
}

}  // namespace zam
