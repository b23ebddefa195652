// Layer III constant tables: the ISO Huffman codes in decode and encode form, the
// built-in long scale-factor-band table, and the scale-factor length tables.
#pragma once

#include <cstdint>

namespace zam::mp3 {

// One big-values Huffman table. Tables 16..23 and 24..31 share their code arrays
// and differ only in linbits. Tables 0, 4 and 14 carry no code (size 0).
struct PairTableInfo {
    uint16_t decodeOffset;  // first entry in kPairDecode
    uint16_t encodeOffset;  // first entry in kPairEncode
    uint8_t primaryBits;    // width of the first look-up level
    uint8_t linbits;
    uint8_t maxCodeLength;  // without sign bits
    uint8_t size;           // x and y run over 0..size-1
};

// Decode entries, 16 bits each, over the codes extended by their sign bits, so that
// one walk yields signed values:
//   leaf:    bit 15 clear; bit 14 escape (a pair holding 15 in a table with linbits:
//            x and y are magnitudes, linbits and signs follow); bits 10..13 bits used
//            at this level; bits 5..9 x and bits 0..4 y as 5-bit two's complement
//   pointer: bit 15 set; bits 12..14 sub-table width - 1, bits 0..11 sub-table start
//            relative to the table's first entry. The current level's whole width is
//            consumed before the sub-table is indexed.
constexpr uint16_t kDecodePointer = 0x8000;
constexpr uint16_t kSignedEscape = 0x4000;

extern const PairTableInfo kPairTables[32];
extern const uint16_t kPairDecode[];
// (code << 8) | length, indexed x * size + y.
extern const uint32_t kPairEncode[];
// Count-1 table A codes: (code << 8) | length, indexed by vwxy. Table B is the
// 4-bit complement of vwxy.
extern const uint16_t kQuadAEncode[16];
// Count-1 quadruples decoded with their sign bits at once, indexed by the next 10
// (table A) or 8 (table B) bits: the values v, w, x, y as signed bytes from the low
// byte up, and the number of bits they take.
extern const uint32_t kQuadASigned[1024];
extern const uint8_t kQuadASignedLength[1024];
extern const uint32_t kQuadBSigned[256];
extern const uint8_t kQuadBSignedLength[256];
// Long band boundaries, row = ID * 3 + sampling_frequency.
extern const int16_t kSfbLongBuiltIn[6][23];
// Bits (code and signs, no linbits) of the pair x * 16 + y in the tables of one size
// class, 16 bits per table from the low end: {1}, {2, 3}, {5, 6}, {7, 8, 9},
// {10, 11, 12}, {13, 15}, {16, 24} (the codes of 16..23 and 24..31).
extern const uint64_t kPairBitsPacked[7][256];
// Short band boundaries of one window, same rows.
extern const int16_t kSfbShortBuiltIn[6][14];

inline bool tableHasCode(uint32_t table) { return table < 32 && kPairTables[table].size != 0; }

// Scale-factor bit lengths of MPEG-1, indexed by scalefac_compress.
constexpr uint8_t kSlen1[16] = {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4};
constexpr uint8_t kSlen2[16] = {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3};

// MPEG-2 partition sizes (values per partition), [row][block class][partition];
// block class 0 long, 1 short, 2 mixed.
constexpr uint8_t kNrOfSfbBlock[6][3][4] = {
    {{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}},
    {{6, 5, 7, 3}, {9, 9, 12, 6}, {6, 9, 12, 6}},
    {{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}},
    {{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}},
    {{6, 6, 6, 3}, {12, 9, 9, 6}, {6, 12, 9, 6}},
    {{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}},
};

// MPEG-2 scale-factor lengths, partition row and preflag derived from the 9-bit
// scalefac_compress; the intensity forms apply to the right channel of intensity stereo.
struct Lsf {
    int slen[4];
    int row;
    int preflag;
};

constexpr Lsf lsfLengths(uint32_t sfc, bool intensityRight)
{
    if (!intensityRight) {
        if (sfc < 400) {
            return {{int((sfc >> 4) / 5), int((sfc >> 4) % 5), int((sfc & 15) >> 2), int(sfc & 3)}, 0, 0};
        }
        if (sfc < 500) {
            const uint32_t v = sfc - 400;
            return {{int((v >> 2) / 5), int((v >> 2) % 5), int(v & 3), 0}, 1, 0};
        }
        const uint32_t v = sfc - 500;
        return {{int(v / 3), int(v % 3), 0, 0}, 2, 1};
    }
    const uint32_t isc = sfc >> 1;
    if (isc < 180) return {{int(isc / 36), int((isc % 36) / 6), int((isc % 36) % 6), 0}, 3, 0};
    if (isc < 244) {
        const uint32_t v = isc - 180;
        return {{int(v >> 4), int((v & 15) >> 2), int(v & 3), 0}, 4, 0};
    }
    const uint32_t v = isc - 244;
    return {{int(v / 3), int(v % 3), 0, 0}, 5, 0};
}

}  // namespace zam::mp3
