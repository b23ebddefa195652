// Decode specs: multi-level lookup tables built from a caller's code table.
#include <bit>
#include <climits>
#include <cstdint>

#include "core/export.h"
#include "vlc/vlc_internal.h"

namespace zam::vlc {
namespace {

// The smallest b with 2^b > x (x >= 0).
int bitsAbove(uint64_t x) { return 64 - std::countl_zero(x); }

// The code word left-aligned in 32 bits: its first bit at bit 31.
uint32_t leftAligned(const VlcEntry& e)
{
    const uint64_t masked = static_cast<uint32_t>(e.code) & (0xFFFFFFFFull >> (32 - e.length));
    return static_cast<uint32_t>(masked << (32 - e.length));
}

uint32_t prefixBits(uint32_t aligned, int bits) { return static_cast<uint32_t>(uint64_t{aligned} >> (32 - bits)); }

// Sub-tables at a level whose first bit is `boundary` bits into the code: one per
// distinct boundary-bit prefix of the codes longer than that. This is what the
// build creates (a later code with the same prefix follows the link the first one
// made), and it needs no memory, so GetSize can run it.
int64_t countSubTables(const VlcEntry* table, int n, int boundary)
{
    int64_t count = 0;
    for (int i = 0; i < n; ++i) {
        if (table[i].length <= boundary) continue;
        const uint32_t prefix = prefixBits(leftAligned(table[i]), boundary);
        bool seen = false;
        for (int j = 0; j < i && !seen; ++j)
            seen = table[j].length > boundary && prefixBits(leftAligned(table[j]), boundary) == prefix;
        if (!seen) ++count;
    }
    return count;
}

template <typename Elem>
ZamStatus fillTable(const VlcEntry* input, int n, const DecodeLayout& layout, Elem* table)
{
    constexpr Elem kEmpty = static_cast<Elem>(~Elem{1});
    const int64_t entries = layout.entries;
    for (int64_t i = 0; i < entries; ++i) table[i] = kEmpty;
    table[0] = static_cast<Elem>(layout.widths[0]);
    int64_t nextFree = (int64_t{1} << layout.widths[0]) + 1;

    for (int e = 0; e < n; ++e) {
        const int length = input[e].length;
        const uint32_t code = leftAligned(input[e]);
        const uint32_t leaf = static_cast<uint32_t>(input[e].value) << (layout.lenBits + 1);
        int64_t start = 0;  // header element of the table at the current level
        int consumed = 0;
        for (int level = 0;; ++level) {
            const int w = layout.widths[level];
            if (consumed + w < length) {
                const uint32_t index = static_cast<uint32_t>((uint64_t{code} << consumed) & 0xFFFFFFFFull) >> (32 - w);
                Elem& slot = table[start + 1 + index];
                if (slot == kEmpty) {
                    const int nextWidth = layout.widths[level + 1];
                    const int64_t size = (int64_t{1} << nextWidth) + 1;
                    if (nextFree + size > entries) return zamStsVlcTable;  // cannot happen: counted above
                    table[nextFree] = static_cast<Elem>(nextWidth);
                    slot = static_cast<Elem>(nextFree << 1);
                    start = nextFree;
                    nextFree += size;
                } else if ((slot & 1) != 0 || (slot >> 1) >= entries) {
                    return zamStsVlcTable;
                } else {
                    start = slot >> 1;
                }
                consumed += w;
                continue;
            }
            // The code ends at this level: its last length - consumed bits pick a
            // run of 2^(consumed + w - length) slots.
            const int resolved = length - consumed;
            const uint32_t tail = static_cast<uint32_t>((uint64_t{code} << consumed) & 0xFFFFFFFFull) >> (32 - resolved);
            const int spread = w - resolved;
            const Elem value = static_cast<Elem>(leaf | (static_cast<uint32_t>(resolved) << 1) | 1u);
            Elem* run = table + start + 1 + (int64_t{tail} << spread);
            for (int64_t k = 0; k < (int64_t{1} << spread); ++k) run[k] = value;
            break;
        }
    }
    return zamStsOk;
}

}  // namespace

ZamStatus planDecodeSpec(const VlcEntry* table, int n, const int* widths, int numWidths, int numElements,
                         int numValueBits, DecodeLayout& layout)
{
    if (n < 1) return zamStsVlcTable;
    int maxLength = 0;
    uint64_t maxMagnitude = 0;
    for (int i = 0; i < n; ++i) {
        const int length = table[i].length;
        if (static_cast<uint32_t>(length - 1) > 31u) return zamStsVlcTable;
        if (length > maxLength) maxLength = length;
        const int64_t v = table[i].value;
        const uint64_t magnitude = static_cast<uint64_t>(v < 0 ? -v : v);
        if (magnitude > maxMagnitude) maxMagnitude = magnitude;
    }

    int sum = 0;
    int levels = 0;
    int widest = 0;
    for (int k = 0; k < numWidths && sum < maxLength; ++k) {
        int w = widths[k];
        if (w < 1) return zamStsVlcTable;
        if (w > maxLength - sum) w = maxLength - sum;
        layout.widths[levels++] = w;
        sum += w;
        if (w > widest) widest = w;
    }
    if (sum < maxLength) return zamStsVlcTable;
    layout.levels = levels;
    layout.peekWidth = maxLength;

    int64_t entries = (int64_t{1} << layout.widths[0]) + 1;
    int boundary = layout.widths[0];
    for (int level = 1; level < levels; ++level) {
        entries += countSubTables(table, n, boundary) * ((int64_t{1} << layout.widths[level]) + 1);
        boundary += layout.widths[level];
    }
    layout.entries = entries;
    layout.lenBits = bitsAbove(static_cast<uint64_t>(widest));

    // Smallest indexBits with 2^indexBits - 1 >= entries + 1.
    const int indexBits = bitsAbove(static_cast<uint64_t>(entries + 1));
    int64_t needed;
    if (numElements > 0) {
        needed = int64_t{numElements} * numValueBits + layout.lenBits + 1;
    } else {
        const int valueBits = maxMagnitude <= 1 ? 0 : bitsAbove(maxMagnitude - 1);
        needed = valueBits + layout.lenBits + 2;
    }
    if (indexBits + 1 > needed) needed = indexBits + 1;
    if (numElements > 0 && needed > 32) return zamStsBadArg;
    layout.elementBits = needed <= 8 ? 8 : needed <= 16 ? 16 : 32;
    if (decodeSpecBytes(layout, numElements > 0) > INT_MAX) return zamStsVlcTable;
    return zamStsOk;
}

int64_t decodeSpecBytes(const DecodeLayout& layout, bool tuple)
{
    return layout.entries * (layout.elementBits / 8) + (tuple ? kDecodeTupleSizeExtra : kDecodeSizeExtra);
}

ZamStatus buildDecodeSpec(const VlcEntry* input, int n, const DecodeLayout& layout, int numElements,
                          int numValueBits, int32_t ownsMemory, void* memory)
{
    auto* h = alignUp<DecodeHeader>(memory, kVlcAlign);
    auto* table = reinterpret_cast<uint8_t*>(h) + kDecodeTableOffset;
    h->tag = kDecodeTag;
    h->ownsMemory = ownsMemory;
    h->peekWidth = layout.peekWidth;
    h->reserved = 0;
    h->table = table;
    h->elementBits = layout.elementBits;
    h->lenBits = layout.lenBits;
    h->numElements = numElements;
    h->numValueBits = numValueBits;
    h->entries = static_cast<int32_t>(layout.entries);
    switch (layout.elementBits) {
    case 8: return fillTable(input, n, layout, reinterpret_cast<uint8_t*>(table));
    case 16: return fillTable(input, n, layout, reinterpret_cast<uint16_t*>(table));
    default: return fillTable(input, n, layout, reinterpret_cast<uint32_t*>(table));
    }
}

}  // namespace zam::vlc

using namespace zam::vlc;

namespace {

ZamStatus getSize(const VlcEntry* table, int n, const int* widths, int numWidths, int numElements,
                  int numValueBits, bool tuple, int* pSize)
{
    if (!table || !widths || !pSize) return zamStsNullPtr;
    if (tuple && (numElements < 1 || numValueBits < 1)) return zamStsBadArg;
    DecodeLayout layout;
    const ZamStatus status = planDecodeSpec(table, n, widths, numWidths, tuple ? numElements : 0, numValueBits, layout);
    if (status == zamStsBadArg) *pSize = static_cast<int>(layout.entries);  // kept: the entry count, not bytes
    if (status != zamStsOk) return status;
    *pSize = static_cast<int>(decodeSpecBytes(layout, tuple));
    return zamStsOk;
}

ZamStatus init(const VlcEntry* table, int n, const int* widths, int numWidths, int numElements, int numValueBits,
               bool tuple, void* memory)
{
    if (!table || !widths || !memory) return zamStsNullPtr;
    if (tuple && (numElements < 1 || numValueBits < 1)) return zamStsBadArg;
    DecodeLayout layout;
    const ZamStatus status = planDecodeSpec(table, n, widths, numWidths, tuple ? numElements : 0, numValueBits, layout);
    if (status != zamStsOk) return status;
    return buildDecodeSpec(table, n, layout, tuple ? numElements : 0, tuple ? numValueBits : 0, zam::kCallerMemory,
                           memory);
}

ZamStatus initAlloc(const VlcEntry* table, int n, const int* widths, int numWidths, int numElements,
                    int numValueBits, bool tuple, VlcDecodeSpec** ppSpec)
{
    if (!table || !widths || !ppSpec) return zamStsNullPtr;
    if (tuple && (numElements < 1 || numValueBits < 1)) return zamStsBadArg;
    DecodeLayout layout;
    ZamStatus status = planDecodeSpec(table, n, widths, numWidths, tuple ? numElements : 0, numValueBits, layout);
    if (status != zamStsOk) return status;
    void* memory = zam::allocBytes(static_cast<int32_t>(decodeSpecBytes(layout, tuple)));
    if (!memory) return zamStsMemAlloc;
    status = buildDecodeSpec(table, n, layout, tuple ? numElements : 0, tuple ? numValueBits : 0,
                             zam::kOwnedByLibrary, memory);
    if (status != zamStsOk) {
        zam::release(memory);
        return status;
    }
    *ppSpec = static_cast<VlcDecodeSpec*>(memory);
    return zamStsOk;
}

}  // namespace

ZAM_API ZamStatus zamsVLCDecodeGetSize_32s(const VlcEntry* pInputTable, int inputTableSize,
                                           const int* pSubTablesSizes, int numSubTables, int* pSize)
{
    return getSize(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, 0, 0, false, pSize);
}

ZAM_API ZamStatus zamsVLCDecodeInit_32s(const VlcEntry* pInputTable, int inputTableSize, const int* pSubTablesSizes,
                                        int numSubTables, VlcDecodeSpec* pVLCSpec)
{
    return init(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, 0, 0, false, pVLCSpec);
}

ZAM_API ZamStatus zamsVLCDecodeInitAlloc_32s(const VlcEntry* pInputTable, int inputTableSize,
                                             const int* pSubTablesSizes, int numSubTables, VlcDecodeSpec** ppVLCSpec)
{
    return initAlloc(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, 0, 0, false, ppVLCSpec);
}

ZAM_API ZamStatus zamsVLCDecodeUTupleGetSize_32s(const VlcEntry* pInputTable, int inputTableSize,
                                                 const int* pSubTablesSizes, int numSubTables, int numElements,
                                                 int numValueBits, int* pSize)
{
    return getSize(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, numElements, numValueBits, true,
                   pSize);
}

ZAM_API ZamStatus zamsVLCDecodeUTupleInit_32s(const VlcEntry* pInputTable, int inputTableSize,
                                              const int* pSubTablesSizes, int numSubTables, int numElements,
                                              int numValueBits, VlcDecodeUTupleSpec* pVLCSpec)
{
    return init(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, numElements, numValueBits, true,
                pVLCSpec);
}

ZAM_API ZamStatus zamsVLCDecodeUTupleInitAlloc_32s(const VlcEntry* pInputTable, int inputTableSize,
                                                   const int* pSubTablesSizes, int numSubTables, int numElements,
                                                   int numValueBits, VlcDecodeUTupleSpec** ppVLCSpec)
{
    return initAlloc(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, numElements, numValueBits, true,
                     ppVLCSpec);
}

ZAM_API void zamsVLCDecodeFree_32s(VlcDecodeSpec* pVLCSpec)
{
    if (!pVLCSpec) return;
    auto* h = zam::alignUp<DecodeHeader>(pVLCSpec, zam::kVlcAlign);
    h->tag = 0;
    if (h->ownsMemory == zam::kOwnedByLibrary) zam::release(pVLCSpec);
}

ZAM_ALIAS(void, zamsVLCDecodeUTupleFree_32s, zamsVLCDecodeFree_32s, (VlcDecodeUTupleSpec * pVLCSpec));
