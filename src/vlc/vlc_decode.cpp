// Decoding of variable-length codes through a decode spec: single values, pairs
// with the AAC and MP3 escapes, and unsigned tuples with sign bits.
#include <bit>
#include <cstdint>
#include <type_traits>

#include "core/export.h"
#include "vlc/vlc_internal.h"

namespace zam::vlc {
namespace {

// Two big-endian stream words in one register. `pos` counts the bits of the
// upper word already used (0..63). Reads of up to 32 bits are safe after
// refill(), which moves on one word once the upper one is used up; words are
// loaded only when a read may need them.
struct Window {
    const uint8_t* word;
    uint64_t bits;
    uint32_t pos;

    Window(const uint8_t* ptr, int offset)
        : word(alignedWord(ptr)), pos(static_cast<uint32_t>(bitInWord(ptr, offset)))
    {
        bits = (uint64_t{loadBE32(word)} << 32) | loadBE32(word + 4);
    }
    void refill()
    {
        if (pos >= 32) {
            word += 4;
            bits = (bits << 32) | loadBE32(word + 4);
            pos -= 32;
        }
    }
    uint32_t peek(int n) const { return static_cast<uint32_t>((bits << pos) >> (64 - n)); }
    uint32_t read(int n)
    {
        const uint32_t v = peek(n);
        pos += static_cast<uint32_t>(n);
        return v;
    }
    void storeCursor(uint8_t** ppBitStream, int* pOffset) const
    {
        *ppBitStream = const_cast<uint8_t*>(word) + (pos >> 3);
        *pOffset = static_cast<int>(pos & 7);
    }
};

// The lookup table of a spec, typed by its element width.
template <typename Elem>
struct Lookup {
    using Unsigned = std::make_unsigned_t<Elem>;
    const Elem* table;
    uint32_t entries;
    int rootWidth;
    uint32_t lenMask;
    int valueShift;

    explicit Lookup(const DecodeHeader* h)
        : table(static_cast<const Elem*>(h->table)),
          entries(static_cast<uint32_t>(h->entries)),
          rootWidth(table[0]),
          lenMask((1u << h->lenBits) - 1u),
          valueShift(h->lenBits + 1)
    {
    }

    // Resolves the code at the start of `ahead` (the stream's next bits from bit
    // 63 down), one table read per level. Returns its length, or 0 when the bits
    // lead to an empty slot (no code).
    uint32_t resolve(uint64_t ahead, Elem& slot) const
    {
        Elem s = table[1 + (ahead >> (64 - rootWidth))];
        uint32_t used = 0;
        if ((s & 1) == 0) [[unlikely]] {
            int width = rootWidth;
            do {
                const uint32_t link = static_cast<Unsigned>(s) >> 1;
                if (link >= entries) return 0;
                used += static_cast<uint32_t>(width);
                width = table[link];
                s = table[link + 1 + ((ahead << used) >> (64 - width))];
            } while ((s & 1) == 0);
        }
        slot = s;
        return used + (static_cast<uint32_t>(s >> 1) & lenMask);
    }
    // The same at a window's position, moving past the code.
    bool decode(Window& w, Elem& slot) const
    {
        const uint32_t length = resolve(w.bits << w.pos, slot);
        w.pos += length;
        return length != 0;
    }
    int32_t signedValue(Elem slot) const { return static_cast<int32_t>(slot) >> valueShift; }
    uint32_t unsignedValue(Elem slot) const { return static_cast<uint32_t>(static_cast<Unsigned>(slot)) >> valueShift; }
};

// AAC escape word after a value of +-16: n ones (n <= 8), a zero, N = n + 4 bits.
inline bool readAacEscape(Window& w, int32_t& value)
{
    w.refill();
    const uint32_t nine = w.peek(9);
    const int ones = std::countl_zero(~(nine << 23));
    const int n = ones + 4;
    if (n > 12) return false;
    const uint32_t escape = w.read(2 * n - 3);
    const int32_t magnitude = (1 << n) + static_cast<int32_t>(escape & ((1u << n) - 1u));
    value = value < 0 ? -magnitude : magnitude;
    return true;
}

// MP3 linbits field and sign after a magnitude of 15.
inline int32_t readMp3Escape(Window& w, int linbits)
{
    w.refill();
    const uint32_t f = w.read(linbits + 1);
    // Unsigned arithmetic: with 31 linbits the magnitude may pass 2^31 (the value
    // is stored truncated to 16 bits anyway).
    const uint32_t magnitude = 15u + (f >> 1);
    return static_cast<int32_t>((f & 1) ? 0u - magnitude : magnitude);
}

inline int32_t pairX(int32_t v) { return v >> 8; }
inline int32_t pairY(int32_t v) { return (v & 255) - 128; }

template <typename Elem>
ZamStatus decodeValues(Window& w, const DecodeHeader* h, int16_t* dst, int count)
{
    const Lookup<Elem> lookup(h);
    // The next bits are kept pre-shifted, so that the chain from one code to the
    // next is a shift, the table read and the length; the window is rebuilt only
    // when its upper word is used up.
    uint64_t ahead = w.bits << w.pos;
    for (int i = 0; i < count; ++i) {
        if (w.pos >= 32) {
            w.refill();
            ahead = w.bits << w.pos;
        }
        Elem slot;
        const uint32_t length = lookup.resolve(ahead, slot);
        if (length == 0) return zamStsVlcArg;
        ahead <<= length;
        w.pos += length;
        dst[i] = static_cast<int16_t>(lookup.signedValue(slot));
    }
    return zamStsOk;
}

template <typename Elem>
ZamStatus decodeAacPairs(Window& w, const DecodeHeader* h, int16_t* dst, int pairs)
{
    const Lookup<Elem> lookup(h);
    for (int i = 0; i < pairs; ++i) {
        w.refill();
        Elem slot;
        if (!lookup.decode(w, slot)) return zamStsVlcArg;
        const int32_t v = lookup.signedValue(slot);
        int32_t x = pairX(v);
        int32_t y = pairY(v);
        if ((x == 16 || x == -16) && !readAacEscape(w, x)) return zamStsVlcArg;
        dst[2 * i] = static_cast<int16_t>(x);
        if ((y == 16 || y == -16) && !readAacEscape(w, y)) return zamStsVlcArg;
        dst[2 * i + 1] = static_cast<int16_t>(y);
    }
    return zamStsOk;
}

template <typename Elem>
ZamStatus decodeMp3Pairs(Window& w, const DecodeHeader* h, int linbits, int16_t* dst, int pairs)
{
    const Lookup<Elem> lookup(h);
    for (int i = 0; i < pairs; ++i) {
        w.refill();
        Elem slot;
        if (!lookup.decode(w, slot)) return zamStsVlcArg;
        const int32_t v = lookup.signedValue(slot);
        int32_t x = pairX(v);
        int32_t y = pairY(v);
        if (x == 15 || x == -15) x = readMp3Escape(w, linbits);
        if (y == 15 || y == -15) y = readMp3Escape(w, linbits);
        dst[2 * i] = static_cast<int16_t>(x);
        dst[2 * i + 1] = static_cast<int16_t>(y);
    }
    return zamStsOk;
}

inline int32_t withSign(Window& w, uint32_t magnitude)
{
    if (magnitude == 0) return 0;
    return w.read(1) ? -static_cast<int32_t>(magnitude) : static_cast<int32_t>(magnitude);
}

template <typename Elem>
ZamStatus decodeTuples(Window& w, const DecodeHeader* h, int16_t* dst, int codes)
{
    const Lookup<Elem> lookup(h);
    const int elements = h->numElements;
    const int fieldBits = h->numValueBits;
    const uint32_t mask = (1u << fieldBits) - 1u;
    for (int i = 0; i < codes; ++i) {
        w.refill();
        Elem slot;
        if (!lookup.decode(w, slot)) return zamStsVlcArg;
        const uint32_t v = lookup.unsignedValue(slot);
        // At most 30 sign bits follow the code: one refill keeps them in the window.
        w.refill();
        for (int e = 0; e < elements; ++e) {
            const uint32_t magnitude = (v >> ((elements - 1 - e) * fieldBits)) & mask;
            dst[e] = static_cast<int16_t>(withSign(w, magnitude));
        }
        dst += elements;
    }
    return zamStsOk;
}

template <typename Elem>
ZamStatus decodeAacTuplePairs(Window& w, const DecodeHeader* h, int16_t* dst, int pairs)
{
    const Lookup<Elem> lookup(h);
    const int fieldBits = h->numValueBits;
    const uint32_t mask = (1u << fieldBits) - 1u;
    for (int i = 0; i < pairs; ++i) {
        w.refill();
        Elem slot;
        if (!lookup.decode(w, slot)) return zamStsVlcArg;
        const uint32_t v = lookup.unsignedValue(slot);
        w.refill();
        int32_t x = withSign(w, (v >> fieldBits) & mask);
        int32_t y = withSign(w, v & mask);
        if ((x == 16 || x == -16) && !readAacEscape(w, x)) return zamStsVlcArg;
        dst[2 * i] = static_cast<int16_t>(x);
        if ((y == 16 || y == -16) && !readAacEscape(w, y)) return zamStsVlcArg;
        dst[2 * i + 1] = static_cast<int16_t>(y);
    }
    return zamStsOk;
}

inline int32_t mp3TupleElement(Window& w, uint32_t magnitude, int linbits)
{
    if (magnitude == 15) return readMp3Escape(w, linbits);
    w.refill();
    return withSign(w, magnitude);
}

template <typename Elem>
ZamStatus decodeMp3TuplePairs(Window& w, const DecodeHeader* h, int linbits, int16_t* dst, int pairs)
{
    const Lookup<Elem> lookup(h);
    const int fieldBits = h->numValueBits;
    const uint32_t mask = (1u << fieldBits) - 1u;
    for (int i = 0; i < pairs; ++i) {
        w.refill();
        Elem slot;
        if (!lookup.decode(w, slot)) return zamStsVlcArg;
        const uint32_t v = lookup.unsignedValue(slot);
        dst[2 * i] = static_cast<int16_t>(mp3TupleElement(w, (v >> fieldBits) & mask, linbits));
        dst[2 * i + 1] = static_cast<int16_t>(mp3TupleElement(w, v & mask, linbits));
    }
    return zamStsOk;
}

// Runs `work` with the element type of the decode spec's table.
template <typename Work>
ZamStatus byElementWidth(const DecodeHeader* h, Work&& work)
{
    switch (h->elementBits) {
    case 8: return work(int8_t{});
    case 16: return work(int16_t{});
    default: return work(int32_t{});
    }
}

// The decode spec's peek width of bits at the cursor, from bit 63 down.
inline uint64_t peekAhead(const uint8_t* p, int offset, int width)
{
    return uint64_t{vlcPeek(p, offset, width)} << (64 - width);
}

enum class Kind { Plain, Escape };

// Argument checks shared by the decoders. Returns null and sets `status` when a
// check fails.
const DecodeHeader* checkArgs(uint8_t** ppBitStream, const int* pBitOffset, const int16_t* pData,
                              const VlcDecodeSpec* spec, Kind kind, ZamStatus& status)
{
    if (!ppBitStream || !*ppBitStream || !pBitOffset || !pData || !spec) {
        status = zamStsNullPtr;
        return nullptr;
    }
    if (static_cast<uint32_t>(*pBitOffset) > 7u) {
        status = kind == Kind::Plain ? zamStsVlcArg : zamStsBitOffset;
        return nullptr;
    }
    const DecodeHeader* h = decodeHeader(spec);
    if (h->tag != kDecodeTag) {
        status = kind == Kind::Plain ? zamStsVlcArg : zamStsContextMismatch;
        return nullptr;
    }
    return h;
}

inline bool linbitsInRange(int linbits) { return static_cast<uint32_t>(linbits) <= 31u; }

// Decodes through `work` and moves the cursor on success.
template <typename Work>
ZamStatus run(uint8_t** ppBitStream, int* pBitOffset, const DecodeHeader* h, Work&& work)
{
    Window w(*ppBitStream, *pBitOffset);
    const ZamStatus status = byElementWidth(h, [&](auto elem) { return work(w, elem); });
    if (status == zamStsOk) w.storeCursor(ppBitStream, pBitOffset);
    return status;
}

// Reads the one code at the cursor: its table slot, with the cursor moved past it.
// Bits that are no code give false and leave the cursor where it was.
template <typename Elem>
bool readOneCode(const Lookup<Elem>& lookup, const DecodeHeader* h, uint8_t*& p, int& offset, Elem& slot)
{
    const uint32_t length = lookup.resolve(peekAhead(p, offset, h->peekWidth), slot);
    if (length == 0) return false;
    zam::advanceBits(p, offset, static_cast<int>(length));
    return true;
}

}  // namespace
}  // namespace zam::vlc

using namespace zam::vlc;

ZAM_API ZamStatus zamsVLCDecodeOne_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData,
                                         const VlcDecodeSpec* pVLCSpec)
{
    ZamStatus status = zamStsOk;
    const DecodeHeader* h = checkArgs(ppBitStream, pBitOffset, pData, pVLCSpec, Kind::Plain, status);
    if (!h) return status;
    return byElementWidth(h, [&](auto elem) {
        using Elem = decltype(elem);
        const Lookup<Elem> lookup(h);
        uint8_t* p = *ppBitStream;
        int offset = *pBitOffset;
        Elem slot;
        if (!readOneCode(lookup, h, p, offset, slot)) return zamStsVlcArg;
        *pData = static_cast<int16_t>(lookup.signedValue(slot));
        *ppBitStream = p;
        *pBitOffset = offset;
        return zamStsOk;
    });
}

ZAM_API ZamStatus zamsVLCDecodeBlock_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData, int dstLen,
                                           const VlcDecodeSpec* pVLCSpec)
{
    ZamStatus status = zamStsOk;
    const DecodeHeader* h = checkArgs(ppBitStream, pBitOffset, pData, pVLCSpec, Kind::Plain, status);
    if (!h) return status;
    if (dstLen <= 0) return zamStsOk;
    return run(ppBitStream, pBitOffset, h, [&](Window& w, auto elem) {
        return decodeValues<decltype(elem)>(w, h, pData, dstLen);
    });
}

ZAM_API ZamStatus zamsVLCDecodeEscBlock_AAC_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData, int dstLen,
                                                  const VlcDecodeSpec* pVLCSpec)
{
    ZamStatus status = zamStsOk;
    const DecodeHeader* h = checkArgs(ppBitStream, pBitOffset, pData, pVLCSpec, Kind::Escape, status);
    if (!h) return status;
    if (dstLen < 2) return zamStsOk;
    return run(ppBitStream, pBitOffset, h, [&](Window& w, auto elem) {
        return decodeAacPairs<decltype(elem)>(w, h, pData, dstLen / 2);
    });
}

ZAM_API ZamStatus zamsVLCDecodeEscBlock_MP3_1u16s(uint8_t** ppBitStream, int* pBitOffset, int linbits,
                                                  int16_t* pData, int dstLen, const VlcDecodeSpec* pVLCSpec)
{
    ZamStatus status = zamStsOk;
    const DecodeHeader* h = checkArgs(ppBitStream, pBitOffset, pData, pVLCSpec, Kind::Escape, status);
    if (!h) return status;
    if (!linbitsInRange(linbits)) return zamStsBadArg;
    if (dstLen < 2) return zamStsOk;
    return run(ppBitStream, pBitOffset, h, [&](Window& w, auto elem) {
        return decodeMp3Pairs<decltype(elem)>(w, h, linbits, pData, dstLen / 2);
    });
}

ZAM_API ZamStatus zamsVLCDecodeUTupleOne_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData,
                                               const VlcDecodeUTupleSpec* pVLCSpec)
{
    ZamStatus status = zamStsOk;
    const DecodeHeader* h = checkArgs(ppBitStream, pBitOffset, pData, pVLCSpec, Kind::Plain, status);
    if (!h) return status;
    return byElementWidth(h, [&](auto elem) {
        using Elem = decltype(elem);
        const Lookup<Elem> lookup(h);
        uint8_t* p = *ppBitStream;
        int offset = *pBitOffset;
        Elem slot;
        if (!readOneCode(lookup, h, p, offset, slot)) return zamStsVlcArg;
        const uint32_t v = lookup.unsignedValue(slot);
        const int elements = h->numElements;
        const int fieldBits = h->numValueBits;
        const uint32_t mask = (1u << fieldBits) - 1u;
        for (int e = 0; e < elements; ++e) {
            const int32_t magnitude = static_cast<int32_t>((v >> ((elements - 1 - e) * fieldBits)) & mask);
            int32_t value = magnitude;
            if (magnitude != 0) {
                if (zam::vlcPeek(p, offset, 1)) value = -magnitude;
                zam::advanceBits(p, offset, 1);
            }
            pData[e] = static_cast<int16_t>(value);
        }
        *ppBitStream = p;
        *pBitOffset = offset;
        return zamStsOk;
    });
}

ZAM_API ZamStatus zamsVLCDecodeUTupleBlock_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData, int dstLen,
                                                 const VlcDecodeUTupleSpec* pVLCSpec)
{
    ZamStatus status = zamStsOk;
    const DecodeHeader* h = checkArgs(ppBitStream, pBitOffset, pData, pVLCSpec, Kind::Plain, status);
    if (!h) return status;
    const int codes = h->numElements > 0 && dstLen > 0 ? dstLen / h->numElements : 0;
    if (codes == 0) return zamStsOk;
    return run(ppBitStream, pBitOffset, h, [&](Window& w, auto elem) {
        return decodeTuples<decltype(elem)>(w, h, pData, codes);
    });
}

ZAM_API ZamStatus zamsVLCDecodeUTupleEscBlock_AAC_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData,
                                                        int dstLen, const VlcDecodeUTupleSpec* pVLCSpec)
{
    ZamStatus status = zamStsOk;
    const DecodeHeader* h = checkArgs(ppBitStream, pBitOffset, pData, pVLCSpec, Kind::Escape, status);
    if (!h) return status;
    if (dstLen < 2) return zamStsOk;
    return run(ppBitStream, pBitOffset, h, [&](Window& w, auto elem) {
        return decodeAacTuplePairs<decltype(elem)>(w, h, pData, dstLen / 2);
    });
}

ZAM_API ZamStatus zamsVLCDecodeUTupleEscBlock_MP3_1u16s(uint8_t** ppBitStream, int* pBitOffset, int linbits,
                                                        int16_t* pData, int dstLen,
                                                        const VlcDecodeUTupleSpec* pVLCSpec)
{
    ZamStatus status = zamStsOk;
    const DecodeHeader* h = checkArgs(ppBitStream, pBitOffset, pData, pVLCSpec, Kind::Escape, status);
    if (!h) return status;
    if (!linbitsInRange(linbits)) return zamStsBadArg;
    if (dstLen < 2) return zamStsOk;
    return run(ppBitStream, pBitOffset, h, [&](Window& w, auto elem) {
        return decodeMp3TuplePairs<decltype(elem)>(w, h, linbits, pData, dstLen / 2);
    });
}
