// Encode specs (direct lookup by value), code writing with the AAC and MP3
// escapes, and bit counting.
#include <bit>
#include <climits>
#include <cstdint>

#include "core/export.h"
#include "vlc/vlc_internal.h"

namespace zam::vlc {
namespace {

struct EncodePlan {
    int32_t smallest;
    uint32_t range;
    int indexBits;
    int64_t bytes;
};

// GetSize's part of the build: range, k and the size.
ZamStatus planEncodeSpec(const VlcEntry* table, int n, EncodePlan& plan)
{
    if (n < 1) return zamStsVlcArg;
    int32_t smallest = table[0].value;
    int32_t largest = table[0].value;
    for (int i = 1; i < n; ++i) {
        if (table[i].value < smallest) smallest = table[i].value;
        if (table[i].value > largest) largest = table[i].value;
    }
    const int64_t range = int64_t{largest} - smallest;
    plan.smallest = smallest;
    plan.range = static_cast<uint32_t>(range);
    plan.indexBits = 64 - std::countl_zero(static_cast<uint64_t>(range + 1));
    plan.bytes = (range + (int64_t{1} << plan.indexBits)) * 4 + 132;
    if (plan.bytes > INT_MAX) return zamStsVlcArg;
    return zamStsOk;
}

void buildEncodeSpec(const VlcEntry* table, int n, const EncodePlan& plan, int32_t ownsMemory, void* memory)
{
    auto* h = alignUp<EncodeHeader>(memory, kVlcAlign);
    auto* lengths = reinterpret_cast<int32_t*>(reinterpret_cast<uint8_t*>(h) + kEncodeHeaderBytes);
    int32_t* codes = lengths + (int64_t{1} << plan.indexBits);
    h->lengths = lengths;
    h->valueOffset = static_cast<int32_t>(0u - static_cast<uint32_t>(plan.smallest));
    h->indexBits = plan.indexBits;
    h->ownsMemory = ownsMemory;
    h->tag = kEncodeTag;
    h->codes = codes;
    h->range = plan.range;
    for (int i = 0; i < n; ++i) {
        const uint32_t index = static_cast<uint32_t>(table[i].value) - static_cast<uint32_t>(plan.smallest);
        const int length = table[i].length;
        lengths[index] = length;
        // The mask's shift count is taken modulo 32: a 32-bit code is stored as 0.
        codes[index] = static_cast<int32_t>(static_cast<uint32_t>(table[i].code) & ((1u << (length & 31)) - 1u));
    }
}

// Block writer: keeps the current word in a register and stores whole big-endian
// words, leaving memory exactly as one vlcWriteCode per piece would.
struct WordWriter {
    uint8_t* word;
    uint64_t acc;       // the current word's bits from bit 63 down
    uint32_t pos;       // bits used in the current word, 0..31
    bool lastCrossed;   // the last piece ran from the previous word into this one

    WordWriter(uint8_t* ptr, int offset)
        : word(alignedWord(ptr)), pos(static_cast<uint32_t>(bitInWord(ptr, offset))), lastCrossed(false)
    {
        const uint32_t keep = pos == 0 ? 0u : ~(0xFFFFFFFFu >> pos);
        acc = uint64_t{loadBE32(word) & keep} << 32;
    }
    // One piece of 0..32 bits; the length is trusted to be in range.
    void put(uint32_t code, uint32_t len)
    {
        if (len == 0) return;
        const uint64_t bits = uint64_t{code} & (0xFFFFFFFFull >> (32 - len));
        acc |= bits << (64 - pos - len);
        pos += len;
        lastCrossed = false;
        if (pos >= 32) {
            storeBE32(word, static_cast<uint32_t>(acc >> 32));
            word += 4;
            acc <<= 32;
            pos -= 32;
            lastCrossed = pos != 0;
        }
    }
    // Stores the partial last word as the word-oriented rule leaves it and returns
    // the cursor.
    void finish(uint8_t** ppBitStream, int* pOffset)
    {
        if (pos != 0) {
            const uint32_t top = static_cast<uint32_t>(acc >> 32);
            const uint32_t below = 0xFFFFFFFFu >> pos;
            storeBE32(word, top | (lastCrossed ? (loadLE32(word) & below) : below));
        }
        *ppBitStream = word + (pos >> 3);
        *pOffset = static_cast<int>(pos & 7);
    }
};

// Code lengths outside 0..32 come only from values without an entry; they are
// clamped so that the writer stays within its word arithmetic.
inline uint32_t safeLength(int32_t length) { return static_cast<uint32_t>(length) > 32u ? 0u : static_cast<uint32_t>(length); }

inline int32_t clampMagnitude(int32_t v, int32_t limit) { return v > limit ? limit : v < -limit ? -limit : v; }
inline uint32_t magnitudeOf(int32_t v) { return static_cast<uint32_t>(v < 0 ? -v : v); }

// The AAC escape word of a magnitude m >= 16: N - 4 ones, a zero (m's leading bit
// cleared) and m's N low bits, N = floor(log2 m); 2N - 3 bits in all.
inline void aacEscapeWord(uint32_t m, uint32_t& word, uint32_t& length)
{
    const int n = 31 - std::countl_zero(m);
    word = (((1u << (n - 4)) - 1u) << (n + 1)) | (m & ((1u << n) - 1u));
    length = static_cast<uint32_t>(2 * n - 3);
}

void writeValues(const int16_t* src, int n, const EncodeView& spec, WordWriter& out)
{
    int i = 0;
    for (; i + 16 <= n; i += 16)
        for (int k = 0; k < 16; ++k) {
            const uint32_t index = encodeIndex(spec, src[i + k]);
            out.put(static_cast<uint32_t>(spec.codes[index]), safeLength(spec.lengths[index]));
        }
    for (; i < n; ++i) {
        const uint32_t index = encodeIndex(spec, src[i]);
        out.put(static_cast<uint32_t>(spec.codes[index]), safeLength(spec.lengths[index]));
    }
}

void writeAacPairs(const int16_t* src, int pairs, const EncodeView& spec, WordWriter& out)
{
    for (int i = 0; i < pairs; ++i) {
        const int32_t x = src[2 * i];
        const int32_t y = src[2 * i + 1];
        const uint32_t index = encodeIndex(spec, clampMagnitude(x, 16) * 64 + clampMagnitude(y, 16));
        out.put(static_cast<uint32_t>(spec.codes[index]), safeLength(spec.lengths[index]));
        uint32_t word, length;
        if (magnitudeOf(x) >= 16) {
            aacEscapeWord(magnitudeOf(x), word, length);
            out.put(word, length);
        }
        if (magnitudeOf(y) >= 16) {
            aacEscapeWord(magnitudeOf(y), word, length);
            out.put(word, length);
        }
    }
}

void writeMp3Pairs(const int16_t* src, int pairs, int linbits, const EncodeView& spec, WordWriter& out)
{
    const uint32_t fieldBits = static_cast<uint32_t>(linbits);
    for (int i = 0; i < pairs; ++i) {
        const int32_t x = src[2 * i];
        const int32_t y = src[2 * i + 1];
        const uint32_t mx = magnitudeOf(x), my = magnitudeOf(y);
        const uint32_t index = encodeIndex(spec, clampMagnitude(x, 15) * 32 + clampMagnitude(y, 15));
        const uint32_t code = static_cast<uint32_t>(spec.codes[index]);
        const uint32_t length = safeLength(spec.lengths[index]);
        if (mx >= 15) {
            // All sign bits move behind the linbits fields.
            const uint32_t signBits = 1u + (y != 0 ? 1u : 0u);
            const uint32_t kept = length > signBits ? length - signBits : 0u;
            out.put(static_cast<uint32_t>(uint64_t{code} >> signBits), kept);
            out.put(mx - 15, fieldBits);
            out.put(x < 0 ? 1u : 0u, 1);
            if (my >= 15) out.put(my - 15, fieldBits);
            if (y != 0) out.put(y < 0 ? 1u : 0u, 1);
        } else if (my >= 15) {
            // y's sign bit (the last one) moves behind y's linbits; x's stays.
            out.put(code >> 1, length > 0 ? length - 1 : 0u);
            out.put(my - 15, fieldBits);
            out.put(y < 0 ? 1u : 0u, 1);
        } else {
            out.put(code, length);
        }
    }
}

// Argument checks of the escape encoders and counts.
const EncodeHeader* checkEscapeSpec(const VlcEncodeSpec* spec, ZamStatus& status)
{
    const EncodeHeader* h = encodeHeader(spec);
    if (h->tag != kEncodeTag) {
        status = zamStsContextMismatch;
        return nullptr;
    }
    return h;
}

inline bool linbitsInRange(int linbits) { return static_cast<uint32_t>(linbits) <= 31u; }

}  // namespace

// ---- counting kernels: scalar ----

uint32_t countBitsScalar(const int16_t* src, int n, const EncodeView& spec)
{
    uint32_t total = 0;
    for (int i = 0; i < n; ++i) total += static_cast<uint32_t>(spec.lengths[encodeIndex(spec, src[i])]);
    return total;
}

namespace {
inline uint32_t aacEscapeBits(uint32_t m) { return m >= 16 ? static_cast<uint32_t>(2 * (31 - std::countl_zero(m)) - 3) : 0u; }
}  // namespace

uint32_t countEscBitsAacScalar(const int16_t* src, int pairs, const EncodeView& spec)
{
    uint32_t total = 0;
    for (int i = 0; i < pairs; ++i) {
        const int32_t x = src[2 * i], y = src[2 * i + 1];
        const uint32_t index = encodeIndex(spec, clampMagnitude(x, 16) * 64 + clampMagnitude(y, 16));
        total += static_cast<uint32_t>(spec.lengths[index]) + aacEscapeBits(magnitudeOf(x)) + aacEscapeBits(magnitudeOf(y));
    }
    return total;
}

uint32_t countEscBitsMp3Scalar(const int16_t* src, int pairs, int linbits, const EncodeView& spec)
{
    uint32_t total = 0;
    for (int i = 0; i < pairs; ++i) {
        const int32_t x = src[2 * i], y = src[2 * i + 1];
        const uint32_t index = encodeIndex(spec, clampMagnitude(x, 15) * 32 + clampMagnitude(y, 15));
        total += static_cast<uint32_t>(spec.lengths[index]);
        if (magnitudeOf(x) >= 15) total += static_cast<uint32_t>(linbits);
        if (magnitudeOf(y) >= 15) total += static_cast<uint32_t>(linbits);
    }
    return total;
}

}  // namespace zam::vlc

using namespace zam::vlc;

ZAM_API ZamStatus zamsVLCEncodeGetSize_32s(const VlcEntry* pInputTable, int inputTableSize, int* pSize)
{
    if (!pInputTable || !pSize) return zamStsNullPtr;
    EncodePlan plan;
    const ZamStatus status = planEncodeSpec(pInputTable, inputTableSize, plan);
    if (status != zamStsOk) return status;
    *pSize = static_cast<int>(plan.bytes);
    return zamStsOk;
}

ZAM_API ZamStatus zamsVLCEncodeInit_32s(const VlcEntry* pInputTable, int inputTableSize, VlcEncodeSpec* pVLCSpec)
{
    if (!pInputTable || !pVLCSpec) return zamStsNullPtr;
    EncodePlan plan;
    const ZamStatus status = planEncodeSpec(pInputTable, inputTableSize, plan);
    if (status != zamStsOk) return status;
    buildEncodeSpec(pInputTable, inputTableSize, plan, zam::kCallerMemory, pVLCSpec);
    return zamStsOk;
}

ZAM_API ZamStatus zamsVLCEncodeInitAlloc_32s(const VlcEntry* pInputTable, int inputTableSize,
                                             VlcEncodeSpec** ppVLCSpec)
{
    if (!pInputTable || !ppVLCSpec) return zamStsNullPtr;
    EncodePlan plan;
    const ZamStatus status = planEncodeSpec(pInputTable, inputTableSize, plan);
    if (status != zamStsOk) return status;
    void* memory = zam::allocBytes(static_cast<int32_t>(plan.bytes));
    *ppVLCSpec = static_cast<VlcEncodeSpec*>(memory);
    // The allocation result is not reported; a failed one leaves null behind.
    if (memory) buildEncodeSpec(pInputTable, inputTableSize, plan, zam::kOwnedByLibrary, memory);
    return zamStsOk;
}

ZAM_API void zamsVLCEncodeFree_32s(VlcEncodeSpec* pVLCSpec)
{
    if (!pVLCSpec) return;
    auto* h = zam::alignUp<EncodeHeader>(pVLCSpec, zam::kVlcAlign);
    h->tag = 0;
    if (h->ownsMemory == zam::kOwnedByLibrary) zam::release(pVLCSpec);
}

ZAM_API ZamStatus zamsVLCEncodeOne_16s1u(int16_t src, uint8_t** ppBitStream, int* pBitOffset,
                                         const VlcEncodeSpec* pVLCSpec)
{
    if (!ppBitStream || !*ppBitStream || !pBitOffset || !pVLCSpec) return zamStsNullPtr;
    const EncodeHeader* h = encodeHeader(pVLCSpec);
    if (h->tag != kEncodeTag) return zamStsVlcArg;
    // The offset is not checked: it counts bits from the pointer's byte.
    uint8_t* ptr = *ppBitStream + (*pBitOffset >> 3);
    int offset = *pBitOffset & 7;
    const EncodeView spec = encodeView(h);
    const uint32_t index = encodeIndex(spec, src);
    zam::vlcWriteCode(ptr, offset, static_cast<uint32_t>(spec.codes[index]), static_cast<int>(safeLength(spec.lengths[index])));
    *ppBitStream = ptr;
    *pBitOffset = offset;
    return zamStsOk;
}

ZAM_API ZamStatus zamsVLCEncodeBlock_16s1u(const int16_t* pSrc, int srcLen, uint8_t** ppBitStream, int* pBitOffset,
                                           const VlcEncodeSpec* pVLCSpec)
{
    if (!pSrc || !ppBitStream || !*ppBitStream || !pBitOffset || !pVLCSpec) return zamStsNullPtr;
    if (srcLen < 1) return zamStsVlcArg;
    if (static_cast<uint32_t>(*pBitOffset) > 7u) return zamStsVlcArg;
    const EncodeHeader* h = encodeHeader(pVLCSpec);
    if (h->tag != kEncodeTag) return zamStsVlcArg;
    WordWriter out(*ppBitStream, *pBitOffset);
    writeValues(pSrc, srcLen, encodeView(h), out);
    out.finish(ppBitStream, pBitOffset);
    return zamStsOk;
}

ZAM_API ZamStatus zamsVLCEncodeEscBlock_AAC_16s1u(const int16_t* pSrc, int srcLen, uint8_t** ppBitStream,
                                                  int* pBitOffset, const VlcEncodeSpec* pVLCSpec)
{
    if (!pSrc || !ppBitStream || !*ppBitStream || !pBitOffset || !pVLCSpec) return zamStsNullPtr;
    if (static_cast<uint32_t>(*pBitOffset) > 7u) return zamStsBitOffset;
    ZamStatus status = zamStsOk;
    const EncodeHeader* h = checkEscapeSpec(pVLCSpec, status);
    if (!h) return status;
    if (srcLen < 2) return zamStsOk;
    WordWriter out(*ppBitStream, *pBitOffset);
    writeAacPairs(pSrc, srcLen / 2, encodeView(h), out);
    out.finish(ppBitStream, pBitOffset);
    return zamStsOk;
}

ZAM_API ZamStatus zamsVLCEncodeEscBlock_MP3_16s1u(const int16_t* pSrc, int srcLen, int linbits, uint8_t** ppBitStream,
                                                  int* pBitOffset, const VlcEncodeSpec* pVLCSpec)
{
    if (!pSrc || !ppBitStream || !*ppBitStream || !pBitOffset || !pVLCSpec) return zamStsNullPtr;
    if (static_cast<uint32_t>(*pBitOffset) > 7u) return zamStsBitOffset;
    ZamStatus status = zamStsOk;
    const EncodeHeader* h = checkEscapeSpec(pVLCSpec, status);
    if (!h) return status;
    if (!linbitsInRange(linbits)) return zamStsBadArg;
    if (srcLen < 2) return zamStsOk;
    WordWriter out(*ppBitStream, *pBitOffset);
    writeMp3Pairs(pSrc, srcLen / 2, linbits, encodeView(h), out);
    out.finish(ppBitStream, pBitOffset);
    return zamStsOk;
}

ZAM_API ZamStatus zamsVLCCountBits_16s32s(const int16_t* pSrc, int srcLen, int* pCountBits,
                                          const VlcEncodeSpec* pVLCSpec)
{
    if (!pSrc || !pCountBits || !pVLCSpec) return zamStsNullPtr;
    if (srcLen < 1) return zamStsVlcArg;
    const EncodeHeader* h = encodeHeader(pVLCSpec);
    if (h->tag != kEncodeTag) return zamStsVlcArg;
    *pCountBits = static_cast<int>(countBitsAvx2(pSrc, srcLen, encodeView(h)));
    return zamStsOk;
}

ZAM_API ZamStatus zamsVLCCountEscBits_AAC_16s32s(const int16_t* pSrc, int srcLen, int* pCountBits,
                                                 const VlcEncodeSpec* pVLCSpec)
{
    if (!pSrc || !pCountBits || !pVLCSpec) return zamStsNullPtr;
    ZamStatus status = zamStsOk;
    const EncodeHeader* h = checkEscapeSpec(pVLCSpec, status);
    if (!h) return status;
    *pCountBits = srcLen < 2 ? 0 : static_cast<int>(countEscBitsAacAvx2(pSrc, srcLen / 2, encodeView(h)));
    return zamStsOk;
}

ZAM_API ZamStatus zamsVLCCountEscBits_MP3_16s32s(const int16_t* pSrc, int srcLen, int linbits, int* pCountBits,
                                                 const VlcEncodeSpec* pVLCSpec)
{
    if (!pSrc || !pCountBits || !pVLCSpec) return zamStsNullPtr;
    ZamStatus status = zamStsOk;
    const EncodeHeader* h = checkEscapeSpec(pVLCSpec, status);
    if (!h) return status;
    if (!linbitsInRange(linbits)) return zamStsBadArg;
    *pCountBits = srcLen < 2 ? 0 : static_cast<int>(countEscBitsMp3Avx2(pSrc, srcLen / 2, linbits, encodeView(h)));
    return zamStsOk;
}
