// Internal layout of the VLC specs and the kernels shared by the VLC operations.
#pragma once

#include <cstdint>

#include "core/bitcursor.h"
#include "core/memory.h"
#include "zamac.h"

namespace zam::vlc {

constexpr uint32_t kDecodeTag = fourCharTag('`');
constexpr uint32_t kEncodeTag = fourCharTag('_');

// The decode spec's header. The named fields come first, in their documented
// order; `entries` (the element count of the table) is ours and lets the decoders
// refuse a link that leads out of the table instead of reading past it.
struct DecodeHeader {
    uint32_t tag;
    int32_t ownsMemory;
    int32_t peekWidth;
    int32_t reserved;
    void* table;
    int32_t elementBits;
    int32_t lenBits;
    int32_t numElements;   // tuple spec only
    int32_t numValueBits;  // tuple spec only
    int32_t entries;
};
static_assert(sizeof(DecodeHeader) <= 64, "the table starts 64 bytes after the header");

constexpr int kDecodeTableOffset = 64;
constexpr int kDecodeSizeExtra = 160;
constexpr int kDecodeTupleSizeExtra = 176;

// The encode spec's 64-byte header: the tag is its sixth 32-bit word. `codes` and
// `range` are ours (codes follow the 2^k lengths; range = largest - smallest value).
struct EncodeHeader {
    int32_t* lengths;
    int32_t valueOffset;
    int32_t indexBits;
    int32_t ownsMemory;
    uint32_t tag;
    int32_t* codes;
    uint32_t range;
};
static_assert(sizeof(EncodeHeader) <= 64, "the length array starts 64 bytes after the header");
constexpr int kEncodeHeaderBytes = 64;

inline const DecodeHeader* decodeHeader(const void* spec) { return alignUp<const DecodeHeader>(spec, kVlcAlign); }
inline const EncodeHeader* encodeHeader(const void* spec) { return alignUp<const EncodeHeader>(spec, kVlcAlign); }

// What a decode spec build needs to know, worked out from the code table and the
// level widths (GetSize and Init share it).
struct DecodeLayout {
    int levels = 0;           // widths actually used
    int widths[32] = {};      // the last one cut so that the sum is the longest length
    int peekWidth = 0;        // longest code length
    int lenBits = 0;
    int elementBits = 0;
    int64_t entries = 0;
};

// Checks steps shared by the plain and tuple builds and fills `layout`. For tuple
// specs (numElements > 0) the bits per element use the tuple rule. Returns the
// status; on zamStsBadArg for too many tuple bits, `layout.entries` is valid.
ZamStatus planDecodeSpec(const VlcEntry* table, int tableSize, const int* widths, int numWidths,
                         int numElements, int numValueBits, DecodeLayout& layout);
int64_t decodeSpecBytes(const DecodeLayout& layout, bool tuple);
ZamStatus buildDecodeSpec(const VlcEntry* table, int tableSize, const DecodeLayout& layout, int numElements,
                          int numValueBits, int32_t ownsMemory, void* memory);

// ---- counting kernels (AVX2 and scalar twins give identical sums) ----
struct EncodeView {
    const int32_t* lengths;
    const int32_t* codes;
    int32_t valueOffset;
    uint32_t range;
};
inline EncodeView encodeView(const EncodeHeader* h) { return {h->lengths, h->codes, h->valueOffset, h->range}; }

uint32_t countBitsScalar(const int16_t* src, int n, const EncodeView& spec);
uint32_t countBitsAvx2(const int16_t* src, int n, const EncodeView& spec);
uint32_t countEscBitsAacScalar(const int16_t* src, int pairs, const EncodeView& spec);
uint32_t countEscBitsAacAvx2(const int16_t* src, int pairs, const EncodeView& spec);
uint32_t countEscBitsMp3Scalar(const int16_t* src, int pairs, int linbits, const EncodeView& spec);
uint32_t countEscBitsMp3Avx2(const int16_t* src, int pairs, int linbits, const EncodeView& spec);

// Index of a value in the encode arrays. Values outside the table's range are the
// caller's error; they are clamped so that no read leaves the arrays.
inline uint32_t encodeIndex(const EncodeView& spec, int32_t value)
{
    const uint32_t index = static_cast<uint32_t>(value) + static_cast<uint32_t>(spec.valueOffset);
    return index > spec.range ? spec.range : index;
}

}  // namespace zam::vlc
