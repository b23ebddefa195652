// Layer III Huffman decoding and encoding of spectral values: the big-values zone
// (pairs in up to three regions, values above 14 extended by linbits), the count-1
// zone (quadruples of -1..1, table A or B) and the zero zone.
#include "mp3/mp3_huffman.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/bitcursor.h"
#include "core/export.h"
#include "mp3/mp3_tables.h"

namespace zam::mp3 {
namespace {

constexpr int kLines = 576;
// A count-1 quadruple may start only below this line.
constexpr int kCount1Stop = 574;

inline uint64_t loadBE64(const uint8_t* p)
{
    uint64_t v;
    std::memcpy(&v, p, 8);
    return __builtin_bswap64(v);
}

// A bit accumulator refilled from whole bytes. It reads only bytes up to three
// after the one that holds the last bit of the budget (the promise every reader
// of the library keeps); bits beyond that are fed as zeros, which can only matter
// to data that overruns the budget anyway.
class BitReader {
public:
    BitReader(const uint8_t* start, int offset, int32_t budgetBits)
        : base_(start), offset_(offset),
          limit_(static_cast<int64_t>((offset + static_cast<int64_t>(budgetBits) - 1) >> 3) + 4)
    {
        ensure(8);
        consume(offset);
    }

    inline void ensure(int bits)
    {
        if (count_ < bits) refill(bits);
    }
    inline uint32_t peek(int bits) const { return static_cast<uint32_t>(acc_ >> (64 - bits)); }
    inline uint32_t topBit() const { return static_cast<uint32_t>(acc_ >> 63); }
    inline void consume(int bits)
    {
        acc_ <<= bits;
        count_ -= bits;
    }
    // Bits consumed since the cursor the reader started at.
    inline int64_t consumed() const { return pos_ * 8 - count_ - offset_; }

private:
    void refill(int bits)
    {
        if (limit_ - pos_ >= 8) {
            // Whole bytes from one 8-byte load; the partial byte below is taken
            // again, with the same bits, by the next refill.
            acc_ |= loadBE64(base_ + pos_) >> count_;
            const int bytes = (63 - count_) >> 3;
            pos_ += bytes;
            count_ += bytes << 3;
            return;
        }
        while (count_ < bits) {
            const uint64_t byte = pos_ < limit_ ? base_[pos_] : 0;
            acc_ |= byte << (56 - count_);
            ++pos_;
            count_ += 8;
        }
    }

    const uint8_t* base_;
    int offset_;
    int64_t limit_;
    int64_t pos_ = 0;
    uint64_t acc_ = 0;
    int count_ = 0;
};

// Applies the sign bit that follows a non-zero magnitude (1 = negative). Written
// without branches: zero and non-zero values alternate unpredictably.
inline int32_t withSign(BitReader& br, int32_t magnitude)
{
    const int nonZero = magnitude != 0;
    const int32_t negative = static_cast<int32_t>(br.topBit()) & nonZero;
    br.consume(nonZero);
    return (magnitude ^ -negative) + negative;
}

// Walks the sign-extended table of a pair code; returns the leaf.
inline uint32_t decodeSignedPair(BitReader& br, const uint16_t* table, int primaryBits)
{
    uint32_t e = table[br.peek(primaryBits)];
    int width = primaryBits;
    while (e & kDecodePointer) {
        br.consume(width);
        width = static_cast<int>((e >> 12) & 7) + 1;
        e = table[(e & 0xFFF) + br.peek(width)];
    }
    br.consume(static_cast<int>((e >> 10) & 15));
    return e;
}

inline int32_t signedX(uint32_t e) { return static_cast<int32_t>(e << 22) >> 27; }
inline int32_t signedY(uint32_t e) { return static_cast<int32_t>(e << 27) >> 27; }

void decodePairs(BitReader& br, int32_t* dst, int from, int to, uint32_t tableNumber)
{
    const PairTableInfo& info = kPairTables[tableNumber];
    const uint16_t* table = kPairDecode + info.decodeOffset;
    const int primary = info.primaryBits;
    const int maxLength = info.maxCodeLength + 2;
    const int linbits = info.linbits;
    for (int i = from; i < to; i += 2) {
        br.ensure(maxLength);
        const uint32_t e = decodeSignedPair(br, table, primary);
        if (!(e & kSignedEscape)) {
            dst[i] = signedX(e);
            dst[i + 1] = signedY(e);
            continue;
        }
        // A 15 with linbits: x linbits, x sign, y linbits, y sign.
        int32_t x = static_cast<int32_t>((e >> 5) & 31);
        int32_t y = static_cast<int32_t>(e & 31);
        br.ensure(linbits + 1);
        if (x == 15) {
            x += static_cast<int32_t>(br.peek(linbits));
            br.consume(linbits);
        }
        x = withSign(br, x);
        br.ensure(linbits + 1);
        if (y == 15) {
            y += static_cast<int32_t>(br.peek(linbits));
            br.consume(linbits);
        }
        y = withSign(br, y);
        dst[i] = x;
        dst[i + 1] = y;
    }
}

int nonZeroBound(const int32_t* dst, int index)
{
    while (index > 1 && dst[index - 1] == 0) --index;
    if (index == 1 && dst[0] == 0) return 0;
    return index;
}

void setCursor(const uint8_t** pp, int32_t* pOffset, int64_t bitsFromStart)
{
    const int64_t s = *pOffset + bitsFromStart;
    *pp += s >> 3;
    *pOffset = static_cast<int32_t>(s & 7);
}

// Long band boundary `index` of a caller's 23-entry row, clamped to its range.
inline int32_t longBoundary(const int16_t* row, int index) { return row[std::clamp(index, 0, 22)]; }

ZamStatus checkRegionCounts(const Mp3SideInfo* si)
{
    if (si->region0_count < 0 || si->region1_count < 0 ||
        static_cast<int64_t>(si->region0_count) + si->region1_count >= 21)
        return zamStsMp3SideInfoErr;
    return zamStsOk;
}

// Regions of a granule without window switching: long band boundaries.
RegionPlan normalPlan(const Mp3SideInfo* si, const int16_t* longRow)
{
    return {{longBoundary(longRow, si->region0_count + 1),
             longBoundary(longRow, si->region0_count + si->region1_count + 2), kLines},
            3};
}

}  // namespace

ZamStatus decodeSpectrum(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs, int32_t* pDstNonZeroBound,
                         const Mp3SideInfo* si, int32_t hufSize, const RegionPlan& plan, HuffmanDecodeTrace* trace)
{
    const int bv2 = 2 * si->big_values;
    if (hufSize == 0) {
        for (int r = 0; r < plan.regionCount; ++r)
            if (static_cast<uint32_t>(si->table_select[r]) > 31) return zamStsMp3SideInfoErr;
        std::fill(pDstIs, pDstIs + kLines, 0);
        *pDstNonZeroBound = 0;
        if (trace) *trace = {0, 0, 0};
        return zamStsOk;
    }

    BitReader br(*ppBitStream, *pOffset, hufSize);
    int i = 0;
    for (int r = 0; r < plan.regionCount; ++r) {
        const uint32_t table = static_cast<uint32_t>(si->table_select[r]);
        if (table > 31) {
            setCursor(ppBitStream, pOffset, br.consumed());
            return zamStsMp3SideInfoErr;
        }
        const int end = r == plan.regionCount - 1 ? bv2 : std::min(plan.end[r], bv2);
        if (i >= end) continue;
        if (tableHasCode(table)) {
            decodePairs(br, pDstIs, i, end, table);
        } else {
            std::fill(pDstIs + i, pDstIs + end + ((end - i) & 1), 0);
        }
        i += (end - i + 1) & ~1;
    }
    const int64_t bigValueBits = br.consumed();
    if (bigValueBits > hufSize) {
        setCursor(ppBitStream, pOffset, bigValueBits);
        if (trace) *trace = {static_cast<int32_t>(bigValueBits), 0, static_cast<int32_t>(hufSize - bigValueBits)};
        return zamStsBadData;
    }

    const int count1Start = i;
    const bool tableB = si->count1table_select != 0;
    const uint32_t* quadValues = tableB ? kQuadBSigned : kQuadASigned;
    const uint8_t* quadLengths = tableB ? kQuadBSignedLength : kQuadASignedLength;
    const int quadBits = tableB ? 8 : 10;
    while (i < kCount1Stop && br.consumed() < hufSize) {
        br.ensure(quadBits);
        const uint32_t index = br.peek(quadBits);
        const uint32_t packed = quadValues[index];
        br.consume(quadLengths[index]);
        pDstIs[i] = static_cast<int8_t>(packed);
        pDstIs[i + 1] = static_cast<int8_t>(packed >> 8);
        pDstIs[i + 2] = static_cast<int8_t>(packed >> 16);
        pDstIs[i + 3] = static_cast<int8_t>(packed >> 24);
        i += 4;
    }
    const int64_t leftover = hufSize - br.consumed();
    if (leftover < 0) i -= 4;  // the quadruple that ran over the budget is dropped
    // Stuffing is skipped and an overrun taken back: the cursor ends on the budget.
    setCursor(ppBitStream, pOffset, hufSize);

    std::fill(pDstIs + i, pDstIs + kLines, 0);
    *pDstNonZeroBound = nonZeroBound(pDstIs, i);
    if (trace)
        *trace = {static_cast<int32_t>(bigValueBits), i - count1Start, static_cast<int32_t>(leftover)};
    return zamStsOk;
}

namespace {

// Checks shared by HuffmanDecode and HuffmanDecodeSfb, in their order.
ZamStatus checkSfbDecodeArgs(int32_t offset, const Mp3SideInfo* si, const Mp3FrameHeader* h, int32_t hufSize)
{
    if (static_cast<uint32_t>(offset) > 7 || hufSize < 0 || hufSize > si->part2_3_length) return zamStsBadArg;
    if (static_cast<uint32_t>(si->big_values) > kLines / 2) return zamStsMp3SideInfoErr;
    if (static_cast<uint32_t>(si->block_type) > 3) return zamStsMp3SideInfoErr;
    if (static_cast<uint32_t>(si->window_switching_flag) > 1 || static_cast<uint32_t>(si->count1table_select) > 1)
        return zamStsMp3SideInfoErr;
    if (static_cast<uint32_t>(h->ID) > 1 || h->layer != 1) return zamStsMp3FrameHeaderErr;
    if (static_cast<uint32_t>(h->sampling_frequency) > 2) return zamStsMp3FrameHeaderErr;
    return zamStsOk;
}

ZamStatus decodeWithLongTable(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                              int32_t* pDstNonZeroBound, const Mp3SideInfo* si, const Mp3FrameHeader* h,
                              int32_t hufSize, const int16_t* longTable, HuffmanDecodeTrace* trace)
{
    if (const ZamStatus s = checkSfbDecodeArgs(*pOffset, si, h, hufSize); s != zamStsOk) return s;
    RegionPlan plan;
    if (si->window_switching_flag) {
        if (si->block_type == 0) return zamStsMp3SideInfoErr;
        if (const ZamStatus s = checkRegionCounts(si); s != zamStsOk) return s;
        const int region0 = (h->ID == 1 || si->block_type == 2) ? 36 : 54;
        plan = {{region0, kLines, kLines}, 2};
    } else {
        if (const ZamStatus s = checkRegionCounts(si); s != zamStsOk) return s;
        plan = normalPlan(si, longTable + (h->ID * 3 + h->sampling_frequency) * 23);
    }
    return decodeSpectrum(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, si, hufSize, plan, trace);
}

// Region 0 of a window-switching granule from the caller's band tables.
int32_t mbpRegion0(const Mp3SideInfo* si, const int16_t* longRow, const int16_t* shortRow, const int16_t* mbpRow)
{
    if (si->block_type != 2) return longBoundary(longRow, 8);
    if (si->mixed_block_flag == 0) return 3 * shortRow[3];
    int32_t end = longBoundary(longRow, mbpRow[0]);
    int k = 0;
    while (k < 14 && 3 * shortRow[k] <= end) ++k;
    k = std::max(k, 1);
    // The first short band above the switch point counts twice, each later one
    // three times (once per window).
    for (int j = 0; j < mbpRow[1]; ++j) {
        const int band = k - 1 + (j + 1) / 3;
        if (band + 1 > 13) break;
        end += shortRow[band + 1] - shortRow[band];
    }
    return end;
}

}  // namespace

ZamStatus huffmanDecodeTraced(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                              int32_t* pDstNonZeroBound, const Mp3SideInfo* si, const Mp3FrameHeader* h,
                              int32_t hufSize, const int16_t* pSfbTableLong, HuffmanDecodeTrace* trace)
{
    return decodeWithLongTable(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, si, h, hufSize,
                               pSfbTableLong ? pSfbTableLong : &kSfbLongBuiltIn[0][0], trace);
}

}  // namespace zam::mp3

using namespace zam::mp3;

ZAM_API ZamStatus zamsHuffmanDecodeSfb_MP3_1u32s(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                                                 int32_t* pDstNonZeroBound, const Mp3SideInfo* pSideInfo,
                                                 const Mp3FrameHeader* pFrameHeader, int32_t hufSize,
                                                 const int16_t* pSfbTableLong)
{
    if (!ppBitStream || !pOffset || !pDstIs || !pDstNonZeroBound || !pSideInfo || !pFrameHeader || !pSfbTableLong)
        return zamStsNullPtr;
    if (!*ppBitStream) return zamStsNullPtr;
    return decodeWithLongTable(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, pSideInfo, pFrameHeader, hufSize,
                               pSfbTableLong, nullptr);
}

ZAM_API ZamStatus zamsHuffmanDecode_MP3_1u32s(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                                              int32_t* pDstNonZeroBound, const Mp3SideInfo* pSideInfo,
                                              const Mp3FrameHeader* pFrameHeader, int32_t hufSize)
{
    if (!ppBitStream || !pOffset || !pDstIs || !pDstNonZeroBound || !pSideInfo || !pFrameHeader)
        return zamStsNullPtr;
    if (!*ppBitStream) return zamStsNullPtr;
    return decodeWithLongTable(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, pSideInfo, pFrameHeader, hufSize,
                               &kSfbLongBuiltIn[0][0], nullptr);
}

namespace zam::mp3 {

ZamStatus huffmanDecodeMbpTraced(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                                 int32_t* pDstNonZeroBound, const Mp3SideInfo* si, const Mp3FrameHeader* h,
                                 int32_t hufSize, const int16_t* pSfbTableLong, const int16_t* pSfbTableShort,
                                 const int16_t* pMbpTable, HuffmanDecodeTrace* trace)
{
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsBadArg;
    if (static_cast<uint32_t>(h->ID) > 1) return zamStsMp3FrameHeaderErr;
    if (static_cast<uint32_t>(si->big_values) > kLines / 2) return zamStsMp3SideInfoErr;
    if (static_cast<uint32_t>(si->block_type) > 3) return zamStsMp3SideInfoErr;
    if (static_cast<uint32_t>(si->window_switching_flag) > 1) return zamStsMp3SideInfoErr;
    if (si->window_switching_flag && si->block_type == 0) return zamStsMp3SideInfoErr;
    if (h->layer != 1) return zamStsMp3FrameHeaderErr;
    if (static_cast<uint32_t>(h->sampling_frequency) > 2) return zamStsMp3FrameHeaderErr;
    if (static_cast<uint32_t>(si->count1table_select) > 1 || hufSize < 0 || hufSize > si->part2_3_length)
        return zamStsMp3SideInfoErr;
    if (const ZamStatus s = checkRegionCounts(si); s != zamStsOk) return s;

    const int row = h->ID * 3 + h->sampling_frequency;
    const int16_t* longRow = pSfbTableLong + row * 23;
    RegionPlan plan;
    if (si->window_switching_flag) {
        plan = {{mbpRegion0(si, longRow, pSfbTableShort + row * 14, pMbpTable + row * 2), kLines, kLines}, 2};
    } else {
        plan = normalPlan(si, longRow);
    }
    return decodeSpectrum(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, si, hufSize, plan, trace);
}

}  // namespace zam::mp3

ZAM_API ZamStatus zamsHuffmanDecodeSfbMbp_MP3_1u32s(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                                                    int32_t* pDstNonZeroBound, const Mp3SideInfo* pSideInfo,
                                                    const Mp3FrameHeader* pFrameHeader, int32_t hufSize,
                                                    const int16_t* pSfbTableLong, const int16_t* pSfbTableShort,
                                                    const int16_t* pMbpTable)
{
    if (!ppBitStream || !pOffset || !pDstIs || !pDstNonZeroBound || !pSideInfo || !pFrameHeader || !pSfbTableLong ||
        !pSfbTableShort || !pMbpTable)
        return zamStsNullPtr;
    if (!*ppBitStream) return zamStsNullPtr;
    return huffmanDecodeMbpTraced(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, pSideInfo, pFrameHeader, hufSize,
                                  pSfbTableLong, pSfbTableShort, pMbpTable, nullptr);
}

// ---------------------------------------------------------------------------
// Encoding

namespace zam::mp3 {
namespace {

// A bit accumulator writing whole bytes with the field writer's rules: a byte
// begun at offset 0 is overwritten, the byte the cursor starts in is ORed, and the
// last partial byte is written with zeros after the last bit.
class BitWriter {
public:
    BitWriter(uint8_t* start, int offset) : p_(start), count_(offset)
    {
        if (offset != 0) acc_ = static_cast<uint64_t>(*start) << 56;
    }
    // Appends the low `bits` (0..32) of value.
    inline void put(uint32_t value, int bits)
    {
        if (bits == 0) return;
        const uint64_t v = value & (0xFFFFFFFFu >> (32 - bits));
        acc_ |= v << (64 - count_ - bits);
        count_ += bits;
        written_ += bits;
        if (count_ >= 32) {
            storeBE32(p_, static_cast<uint32_t>(acc_ >> 32));
            p_ += 4;
            acc_ <<= 32;
            count_ -= 32;
        }
    }
    // Writes out the pending bits and returns the cursor.
    void finish(uint8_t** pp, int32_t* pOffset)
    {
        while (count_ >= 8) {
            *p_++ = static_cast<uint8_t>(acc_ >> 56);
            acc_ <<= 8;
            count_ -= 8;
        }
        if (count_ > 0) *p_ = static_cast<uint8_t>(acc_ >> 56);
        *pp = p_;
        *pOffset = count_;
    }
    int64_t written() const { return written_; }

private:
    uint8_t* p_;
    uint64_t acc_ = 0;
    int count_;
    int64_t written_ = 0;
};

inline uint32_t signBit(int32_t v) { return v < 0 ? 1u : 0u; }
inline uint32_t magnitude(int32_t v) { return v < 0 ? 0u - static_cast<uint32_t>(v) : static_cast<uint32_t>(v); }

void encodePairs(BitWriter& bw, const int32_t* src, int from, int to, uint32_t tableNumber)
{
    const PairTableInfo& info = kPairTables[tableNumber];
    const uint32_t* codes = kPairEncode + info.encodeOffset;
    const uint32_t size = info.size;
    const int linbits = info.linbits;
    const uint32_t maxExtension = (1u << linbits) - 1;
    for (int i = from; i < to; i += 2) {
        uint32_t x = magnitude(src[i]);
        uint32_t y = magnitude(src[i + 1]);
        if (linbits == 0) {
            // Magnitudes the table cannot carry are clipped to its largest value.
            x = std::min(x, size - 1);
            y = std::min(y, size - 1);
            const uint32_t c = codes[x * size + y];
            bw.put(c >> 8, static_cast<int>(c & 31));
            if (x) bw.put(signBit(src[i]), 1);
            if (y) bw.put(signBit(src[i + 1]), 1);
            continue;
        }
        const uint32_t xi = std::min(x, 15u);
        const uint32_t yi = std::min(y, 15u);
        const uint32_t c = codes[xi * 16 + yi];
        bw.put(c >> 8, static_cast<int>(c & 31));
        if (xi == 15) bw.put(std::min(x - 15, maxExtension), linbits);
        if (x) bw.put(signBit(src[i]), 1);
        if (yi == 15) bw.put(std::min(y - 15, maxExtension), linbits);
        if (y) bw.put(signBit(src[i + 1]), 1);
    }
}

void encodeQuads(BitWriter& bw, const int32_t* src, int from, int to, bool tableB)
{
    for (int i = from; i < to; i += 4) {
        const uint32_t v = (src[i] != 0 ? 8u : 0u) | (src[i + 1] != 0 ? 4u : 0u) | (src[i + 2] != 0 ? 2u : 0u) |
                           (src[i + 3] != 0 ? 1u : 0u);
        if (tableB) {
            bw.put(~v & 15, 4);
        } else {
            const uint32_t c = kQuadAEncode[v];
            bw.put(c >> 8, static_cast<int>(c & 15));
        }
        for (int k = 0; k < 4; ++k)
            if (src[i + k] != 0) bw.put(signBit(src[i + k]), 1);
    }
}

}  // namespace
}  // namespace zam::mp3

ZAM_API ZamStatus zamsHuffmanEncode_MP3_32s1u(const int32_t* pSrcIx, uint8_t** ppBitStream, int32_t* pOffset,
                                              const Mp3FrameHeader* pFrameHeader, const Mp3SideInfo* pSideInfo,
                                              int32_t count1Len, int32_t hufSize)
{
    if (!pSrcIx || !ppBitStream || !*ppBitStream || !pOffset || !pFrameHeader || !pSideInfo) return zamStsNullPtr;
    const Mp3SideInfo* si = pSideInfo;
    const Mp3FrameHeader* h = pFrameHeader;
    if (static_cast<uint32_t>(*pOffset) > 7) return zamStsBadArg;
    if (static_cast<uint32_t>(si->big_values) > 288) return zamStsMp3SideInfoErr;
    if (checkRegionCounts(si) != zamStsOk || static_cast<uint32_t>(si->count1table_select) > 1)
        return zamStsMp3SideInfoErr;
    if (h->ID != 1 || h->layer != 1) return zamStsMp3FrameHeaderErr;
    if (static_cast<uint32_t>(h->sampling_frequency) > 2) return zamStsMp3FrameHeaderErr;

    const int bv2 = 2 * si->big_values;
    int32_t ends[3];
    if (si->window_switching_flag && si->block_type != 0) {
        ends[0] = std::min(36, bv2);
        ends[1] = bv2;
        ends[2] = bv2;
    } else {
        const int16_t* row = kSfbLongBuiltIn[3 + h->sampling_frequency];
        ends[0] = std::min<int32_t>(row[si->region0_count + 1], bv2);
        ends[1] = std::min<int32_t>(row[si->region0_count + si->region1_count + 2], bv2);
        ends[2] = bv2;
    }

    BitWriter bw(*ppBitStream, *pOffset);
    int i = 0;
    for (int r = 0; r < 3; ++r) {
        if (si->table_select[r] < 0) {
            bw.finish(ppBitStream, pOffset);
            return zamStsMp3SideInfoErr;
        }
        const int end = ends[r];
        if (i >= end) continue;
        const uint32_t table = static_cast<uint32_t>(si->table_select[r]);
        if (tableHasCode(table)) encodePairs(bw, pSrcIx, i, end, table);
        i += (end - i + 1) & ~1;
    }

    // Count-1 quadruples start at the end of the big values and stay inside the
    // granule (the last may start at line 572).
    const int count1End = std::min<int64_t>(static_cast<int64_t>(i) + std::max(count1Len, 0), kCount1Stop);
    int quadEnd = i;
    while (quadEnd < count1End) quadEnd += 4;
    encodeQuads(bw, pSrcIx, i, quadEnd, si->count1table_select != 0);

    int64_t stuffing = static_cast<int64_t>(hufSize) - bw.written();
    while (stuffing > 0) {
        const int bits = static_cast<int>(std::min<int64_t>(stuffing, 32));
        bw.put(0xFFFFFFFFu, bits);
        stuffing -= bits;
    }
    bw.finish(ppBitStream, pOffset);
    return zamStsOk;
}
