// Decoding: cursor behaviour, escapes, tuples and the argument checks.
#include <sys/mman.h>
#include <unistd.h>

#include <functional>

#include "vlc_test_util.h"

using namespace vlctest;

namespace {

// Pair values as the escape decoders read them.
int pairValue(int x, int y) { return x * 256 + y + 128; }

// A small pair code: (0,0) "0", (16,1) "100", (-16,-16) "101", (15,-3) "110",
// (-15, 15) "1110", (3, 16) "1111".
std::vector<VlcEntry> smallPairCode()
{
    return {{pairValue(0, 0), 0b0, 1},      {pairValue(16, 1), 0b100, 3},   {pairValue(-16, -16), 0b101, 3},
            {pairValue(15, -3), 0b110, 3},  {pairValue(-15, 15), 0b1110, 4}, {pairValue(3, 16), 0b1111, 4}};
}

// Values 0..7 under a code of lengths 1..7 (unary, last one all ones).
std::vector<VlcEntry> unarySeven()
{
    std::vector<VlcEntry> t;
    for (int len = 1; len <= 7; ++len) t.push_back({len - 1, static_cast<int32_t>(((1u << len) - 1u) & ~1u), len});
    t.push_back({7, 0x7F, 7});
    return t;
}

}  // namespace

// Every start byte of a word and every offset: values and the final cursor.
TEST(VlcDecode, CursorAtEveryStartPosition)
{
    const auto table = unarySeven();
    DecodeSpec s(table, {3, 2, 2});
    ASSERT_EQ(s.status, zamStsOk);
    std::vector<int> values;
    for (int i = 0; i < 40; ++i) values.push_back((i * 5 + i / 3) % 8);
    for (size_t start = 0; start < 32; ++start) {
        BitSink bits(64, start, 0x5A);
        size_t total = 0;
        for (int v : values) {
            bits.put(table[v].code, table[v].length);
            total += table[v].length;
        }
        uint8_t* p = bits.base + start / 8;
        int offset = static_cast<int>(start % 8);
        std::vector<int16_t> out(values.size());
        ASSERT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out.data(), static_cast<int>(out.size()), s.spec()), zamStsOk);
        EXPECT_EQ(std::vector<int>(out.begin(), out.end()), values) << "start bit " << start;
        EXPECT_EQ(p, bits.base + (start + total) / 8);
        EXPECT_EQ(offset, static_cast<int>((start + total) % 8));
        // One at a time gives the same.
        p = bits.base + start / 8;
        offset = static_cast<int>(start % 8);
        for (int v : values) {
            int16_t one = -1;
            ASSERT_EQ(zamsVLCDecodeOne_1u16s(&p, &offset, &one, s.spec()), zamStsOk);
            EXPECT_EQ(one, v);
        }
        EXPECT_EQ(p, bits.base + (start + total) / 8);
    }
}

TEST(VlcDecode, CodesAcrossWordBoundaries)
{
    // 32-bit codes at every position: each one spans two words except at position 0.
    const std::vector<VlcEntry> table = {{1, 0, 1}, {-7, static_cast<int32_t>(0x80000001u), 32},
                                         {9, static_cast<int32_t>(0xFFFFFFFFu), 32}};
    DecodeSpec s(table, {8, 8, 8, 8});
    ASSERT_EQ(s.status, zamStsOk);
    EXPECT_EQ(s.peekWidth(), 32);
    for (size_t start = 0; start < 32; ++start) {
        BitSink bits(32, start);
        bits.put(0x80000001u, 32);
        bits.put(0, 1);
        bits.put(0xFFFFFFFFu, 32);
        uint8_t* p = bits.base + start / 8;
        int offset = static_cast<int>(start % 8);
        int16_t out[3];
        ASSERT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out, 3, s.spec()), zamStsOk);
        EXPECT_EQ(out[0], -7);
        EXPECT_EQ(out[1], 1);
        EXPECT_EQ(out[2], 9);
        EXPECT_EQ(p, bits.base + (start + 65) / 8);
        EXPECT_EQ(offset, static_cast<int>((start + 65) % 8));
    }
}

TEST(VlcDecode, ZeroCodesLeaveTheCursor)
{
    DecodeSpec s(unarySeven(), {7});
    DecodeSpec t(unarySeven(), {7}, 1, 3);
    BitSink bits(16);
    for (int start = 0; start < 8; ++start) {
        uint8_t* p = bits.base + 3;
        int offset = start;
        auto out = zamtest::canaryVector<int16_t>(4);
        EXPECT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out.data(), 0, s.spec()), zamStsOk);
        EXPECT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out.data(), -3, s.spec()), zamStsOk);
        EXPECT_EQ(zamsVLCDecodeEscBlock_AAC_1u16s(&p, &offset, out.data(), 1, s.spec()), zamStsOk);
        EXPECT_EQ(zamsVLCDecodeEscBlock_MP3_1u16s(&p, &offset, 3, out.data(), 0, s.spec()), zamStsOk);
        EXPECT_EQ(zamsVLCDecodeUTupleBlock_1u16s(&p, &offset, out.data(), 0, t.spec()), zamStsOk);
        EXPECT_EQ(zamsVLCDecodeUTupleEscBlock_AAC_1u16s(&p, &offset, out.data(), 1, t.spec()), zamStsOk);
        EXPECT_EQ(zamsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, &offset, 0, out.data(), -1, t.spec()), zamStsOk);
        EXPECT_EQ(p, bits.base + 3);
        EXPECT_EQ(offset, start);
        EXPECT_TRUE(zamtest::untouched(out));
    }
}

TEST(VlcDecode, AacEscapes)
{
    DecodeSpec s(smallPairCode(), {2, 2});
    ASSERT_EQ(s.status, zamStsOk);
    EXPECT_EQ(s.elementBits(), 32);  // (16, 1) is 4225: 13 value bits + 2 + 2
    BitSink bits(32);
    bits.put(0b100, 3);                  // (16, 1)
    bits.put(0b00000, 5);                // escape 16: a zero, then 0000
    bits.put(0b101, 3);                  // (-16, -16)
    bits.put(0b111111110, 9);            // x: eight ones, a zero,
    bits.put(0xFFF, 12);                 //    12 bits: -(4096 + 4095)
    bits.put(0b10, 2);                   // y: one 1, a zero,
    bits.put(0b10101, 5);                //    5 bits: -(32 + 21)
    bits.put(0b1111, 4);                 // (3, 16)
    bits.put(0b0, 1);
    bits.put(0b0111, 4);                 // 16 + 7
    bits.put(0b0, 1);                    // (0, 0)
    const size_t total = bits.bit;
    uint8_t* p = bits.base;
    int offset = 0;
    auto out = zamtest::canaryVector<int16_t>(9);
    ASSERT_EQ(zamsVLCDecodeEscBlock_AAC_1u16s(&p, &offset, out.data(), 9, s.spec()), zamStsOk);  // odd: 4 pairs
    EXPECT_EQ(std::vector<int16_t>(out.begin(), out.begin() + 8),
              (std::vector<int16_t>{16, 1, -8191, -53, 3, 23, 0, 0}));
    EXPECT_TRUE(zamtest::untouched(&out[8], 1));
    EXPECT_EQ(p, bits.base + total / 8);
    EXPECT_EQ(offset, static_cast<int>(total % 8));
}

TEST(VlcDecode, AacEscapeWithNineOnesFails)
{
    DecodeSpec s(smallPairCode(), {4});
    BitSink bits(32);
    bits.put(0b0, 1);            // (0, 0)
    bits.put(0b100, 3);          // (16, 1)
    bits.put(0b111111111, 9);    // nine ones
    bits.put(0, 20);
    uint8_t* p = bits.base;
    int offset = 0;
    auto out = zamtest::canaryVector<int16_t>(4);
    EXPECT_EQ(zamsVLCDecodeEscBlock_AAC_1u16s(&p, &offset, out.data(), 4, s.spec()), zamStsVlcArg);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[1], 0);
    EXPECT_TRUE(zamtest::untouched(&out[2], 2));
    EXPECT_EQ(p, bits.base);
    EXPECT_EQ(offset, 0);
}

TEST(VlcDecode, Mp3LinbitsEscape)
{
    DecodeSpec s(smallPairCode(), {3, 1});
    BitSink bits(32);
    bits.put(0b110, 3);     // (15, -3)
    bits.put(0b101, 3);     // linbits 2: f = 101 -> -(15 + 2); y keeps the table's -3
    bits.put(0b1110, 4);    // (-15, 15)
    bits.put(0b000, 3);     // x: +15
    bits.put(0b111, 3);     // y: -(15 + 3)
    bits.put(0b100, 3);     // (16, 1): not escapes here
    const size_t total = bits.bit;
    uint8_t* p = bits.base;
    int offset = 0;
    int16_t out[6];
    ASSERT_EQ(zamsVLCDecodeEscBlock_MP3_1u16s(&p, &offset, 2, out, 6, s.spec()), zamStsOk);
    EXPECT_EQ(std::vector<int16_t>(out, out + 6), (std::vector<int16_t>{-17, -3, 15, -18, 16, 1}));
    EXPECT_EQ(p, bits.base + total / 8);
    EXPECT_EQ(offset, static_cast<int>(total % 8));
    // linbits 0: just a sign bit after a 15.
    BitSink zero(16);
    zero.put(0b1110, 4);
    zero.put(0b1, 1);
    zero.put(0b0, 1);
    p = zero.base;
    offset = 0;
    ASSERT_EQ(zamsVLCDecodeEscBlock_MP3_1u16s(&p, &offset, 0, out, 2, s.spec()), zamStsOk);
    EXPECT_EQ(out[0], -15);
    EXPECT_EQ(out[1], 15);
    EXPECT_EQ(offset, 6);
}

TEST(VlcDecode, TuplesWithSignBits)
{
    // Quads of 1-bit magnitudes: value 0bwxyz, four-bit codes equal to the value.
    std::vector<VlcEntry> table;
    for (int v = 0; v < 16; ++v) table.push_back({v, v, 4});
    DecodeSpec s(table, {2, 2}, 4, 1);
    ASSERT_EQ(s.status, zamStsOk);
    BitSink bits(16);
    bits.put(0b1011, 4);
    bits.put(0b011, 3);     // w +, y -, z -
    bits.put(0b0000, 4);
    bits.put(0b0100, 4);
    bits.put(0b1, 1);       // x -
    const size_t total = bits.bit;
    uint8_t* p = bits.base;
    int offset = 0;
    auto out = zamtest::canaryVector<int16_t>(15);
    ASSERT_EQ(zamsVLCDecodeUTupleBlock_1u16s(&p, &offset, out.data(), 15, s.spec()), zamStsOk);  // 3 whole codes
    EXPECT_EQ(std::vector<int16_t>(out.begin(), out.begin() + 12),
              (std::vector<int16_t>{1, 0, -1, -1, 0, 0, 0, 0, 0, -1, 0, 0}));
    EXPECT_TRUE(zamtest::untouched(&out[12], 3));
    EXPECT_EQ(p, bits.base + total / 8);
    EXPECT_EQ(offset, static_cast<int>(total % 8));
    p = bits.base;
    offset = 0;
    ASSERT_EQ(zamsVLCDecodeUTupleOne_1u16s(&p, &offset, out.data(), s.spec()), zamStsOk);
    EXPECT_EQ(std::vector<int16_t>(out.begin(), out.begin() + 4), (std::vector<int16_t>{1, 0, -1, -1}));
    EXPECT_EQ(offset, 7);
}

TEST(VlcDecode, TupleEscapes)
{
    // Pairs of 5-bit magnitudes; codes: (16, 3) "0", (0, 16) "10", (15, 15) "11".
    const std::vector<VlcEntry> table = {{(16 << 5) | 3, 0b0, 1}, {16, 0b10, 2}, {(15 << 5) | 15, 0b11, 2}};
    DecodeSpec s(table, {2}, 2, 5);
    ASSERT_EQ(s.status, zamStsOk);
    BitSink aac(16);
    aac.put(0b0, 1);
    aac.put(0b1, 1);        // x -
    aac.put(0b0, 1);        // y +
    aac.put(0b0, 1);
    aac.put(0b0011, 4);     // x escape: -(16 + 3)
    aac.put(0b10, 2);
    aac.put(0b1, 1);        // y -
    aac.put(0b0, 1);
    aac.put(0b0000, 4);     // y escape: -16
    uint8_t* p = aac.base;
    int offset = 0;
    int16_t out[4];
    ASSERT_EQ(zamsVLCDecodeUTupleEscBlock_AAC_1u16s(&p, &offset, out, 4, s.spec()), zamStsOk);
    EXPECT_EQ(std::vector<int16_t>(out, out + 4), (std::vector<int16_t>{-19, 3, 0, -16}));
    EXPECT_EQ(offset, static_cast<int>(aac.bit % 8));

    BitSink mp3(16);
    mp3.put(0b11, 2);       // (15, 15)
    mp3.put(0b011, 3);      // x: linbits 2 "01", sign 1 -> -16
    mp3.put(0b100, 3);      // y: "10", sign 0 -> 17
    mp3.put(0b0, 1);        // (16, 3): 16 is no escape here
    mp3.put(0b0, 1);        // x +
    mp3.put(0b1, 1);        // y -
    p = mp3.base;
    offset = 0;
    ASSERT_EQ(zamsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, &offset, 2, out, 5, s.spec()), zamStsOk);
    EXPECT_EQ(std::vector<int16_t>(out, out + 4), (std::vector<int16_t>{-16, 17, 16, -3}));
    EXPECT_EQ(offset, static_cast<int>(mp3.bit % 8));
}

TEST(VlcDecode, BitsThatAreNoCodeStop)
{
    // "11" is no code: the empty slot stops the block, earlier values stay.
    const std::vector<VlcEntry> table = {{5, 0b0, 1}, {6, 0b10, 2}};
    for (const auto& widths : {std::vector<int>{2}, std::vector<int>{1, 1}}) {
        DecodeSpec s(table, widths);
        ASSERT_EQ(s.status, zamStsOk);
        BitSink bits(8);
        bits.put(0b01011, 5);
        uint8_t* p = bits.base;
        int offset = 0;
        auto out = zamtest::canaryVector<int16_t>(4);
        EXPECT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out.data(), 4, s.spec()), zamStsVlcArg);
        EXPECT_EQ(out[0], 5);
        EXPECT_EQ(out[1], 6);
        EXPECT_TRUE(zamtest::untouched(&out[2], 2));
        EXPECT_EQ(p, bits.base);
    }
}

// Argument checks: first failure wins, and nothing is written or moved.
TEST(VlcDecode, CheckOrder)
{
    DecodeSpec good(smallPairCode(), {4});
    DecodeSpec cleared(smallPairCode(), {4});
    zamsVLCDecodeFree_32s(cleared.spec());
    BitSink bits(16);
    uint8_t* const start = bits.base + 1;
    using Call = std::function<ZamStatus(uint8_t**, int*, int16_t*, int, const VlcDecodeSpec*)>;
    struct Op {
        const char* name;
        Call call;
        bool escape;
    };
    const std::vector<Op> ops = {
        {"One", [](uint8_t** pp, int* o, int16_t* d, int, const VlcDecodeSpec* s) { return zamsVLCDecodeOne_1u16s(pp, o, d, s); }, false},
        {"Block", [](uint8_t** pp, int* o, int16_t* d, int n, const VlcDecodeSpec* s) { return zamsVLCDecodeBlock_1u16s(pp, o, d, n, s); }, false},
        {"EscAAC", [](uint8_t** pp, int* o, int16_t* d, int n, const VlcDecodeSpec* s) { return zamsVLCDecodeEscBlock_AAC_1u16s(pp, o, d, n, s); }, true},
        {"EscMP3", [](uint8_t** pp, int* o, int16_t* d, int n, const VlcDecodeSpec* s) { return zamsVLCDecodeEscBlock_MP3_1u16s(pp, o, 2, d, n, s); }, true},
        {"TupleOne", [](uint8_t** pp, int* o, int16_t* d, int, const VlcDecodeSpec* s) { return zamsVLCDecodeUTupleOne_1u16s(pp, o, d, s); }, false},
        {"TupleBlock", [](uint8_t** pp, int* o, int16_t* d, int n, const VlcDecodeSpec* s) { return zamsVLCDecodeUTupleBlock_1u16s(pp, o, d, n, s); }, false},
        {"TupleEscAAC", [](uint8_t** pp, int* o, int16_t* d, int n, const VlcDecodeSpec* s) { return zamsVLCDecodeUTupleEscBlock_AAC_1u16s(pp, o, d, n, s); }, true},
        {"TupleEscMP3", [](uint8_t** pp, int* o, int16_t* d, int n, const VlcDecodeSpec* s) { return zamsVLCDecodeUTupleEscBlock_MP3_1u16s(pp, o, 2, d, n, s); }, true},
    };
    for (const auto& op : ops) {
        SCOPED_TRACE(op.name);
        const ZamStatus badOffset = op.escape ? zamStsBitOffset : zamStsVlcArg;
        const ZamStatus badTag = op.escape ? zamStsContextMismatch : zamStsVlcArg;
        auto out = zamtest::canaryVector<int16_t>(8);
        uint8_t* p = start;
        uint8_t* nullStream = nullptr;
        int offset = 0;
        EXPECT_EQ(op.call(nullptr, &offset, out.data(), 8, good.spec()), zamStsNullPtr);
        EXPECT_EQ(op.call(&nullStream, &offset, out.data(), 8, good.spec()), zamStsNullPtr);
        offset = 9;
        EXPECT_EQ(op.call(&p, nullptr, out.data(), 8, cleared.spec()), zamStsNullPtr);
        EXPECT_EQ(op.call(&p, &offset, nullptr, 8, cleared.spec()), zamStsNullPtr);
        EXPECT_EQ(op.call(&p, &offset, out.data(), 8, nullptr), zamStsNullPtr);
        EXPECT_EQ(op.call(&p, &offset, out.data(), 8, cleared.spec()), badOffset);
        offset = 8;
        EXPECT_EQ(op.call(&p, &offset, out.data(), 8, good.spec()), badOffset);
        offset = -1;
        EXPECT_EQ(op.call(&p, &offset, out.data(), 8, good.spec()), badOffset);
        offset = 7;
        EXPECT_EQ(op.call(&p, &offset, out.data(), 8, cleared.spec()), badTag);
        EXPECT_EQ(p, start);
        EXPECT_EQ(offset, 7);
        EXPECT_TRUE(zamtest::untouched(out));
    }
    // linbits outside 0..31 comes after the tag.
    auto out = zamtest::canaryVector<int16_t>(8);
    uint8_t* p = start;
    int offset = 0;
    EXPECT_EQ(zamsVLCDecodeEscBlock_MP3_1u16s(&p, &offset, -1, out.data(), 8, cleared.spec()), zamStsContextMismatch);
    EXPECT_EQ(zamsVLCDecodeEscBlock_MP3_1u16s(&p, &offset, 32, out.data(), 8, good.spec()), zamStsBadArg);
    EXPECT_EQ(zamsVLCDecodeUTupleEscBlock_MP3_1u16s(&p, &offset, -1, out.data(), 8, good.spec()), zamStsBadArg);
    EXPECT_TRUE(zamtest::untouched(out));
}

// Decoders read no further than the aligned word after the one holding the last
// bit they consume: a stream ending in the second-last word of a page before an
// unreadable page decodes at every end position.
TEST(VlcDecode, ReadsStopOneWordAfterTheLastBit)
{
    const long pageSize = sysconf(_SC_PAGESIZE);
    auto* pages = static_cast<uint8_t*>(mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(pages + pageSize, pageSize, PROT_NONE), 0);
    uint8_t* const base = pages + pageSize - 64;  // 64 bytes before the guard page
    const auto table = unarySeven();
    DecodeSpec plain(table, {7});
    DecodeSpec tuple(table, {4, 3}, 1, 3);
    DecodeSpec pairs(smallPairCode(), {4});
    const std::vector<int> values = {7, 0, 3, 6, 1, 7, 7, 2};
    for (int end = 449; end <= 480; ++end) {  // last bit inside bytes 56..59 of `base`
        // Plain and tuple codes.
        int total = 0;
        for (int v : values) total += table[v].length;
        std::memset(base, 0, 64);
        size_t bit = static_cast<size_t>(end - total);
        auto put = [&](uint32_t code, int n) {
            for (int k = n - 1; k >= 0; --k, ++bit)
                if ((code >> k) & 1u) base[bit >> 3] |= static_cast<uint8_t>(0x80u >> (bit & 7));
        };
        const size_t start = bit;
        for (int v : values) put(table[v].code, table[v].length);
        int16_t out[8];
        uint8_t* p = base + start / 8;
        int offset = static_cast<int>(start % 8);
        ASSERT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out, 8, plain.spec()), zamStsOk);
        EXPECT_EQ(std::vector<int>(out, out + 8), values);
        EXPECT_EQ((p - base) * 8 + offset, end);
        p = base + start / 8;
        offset = static_cast<int>(start % 8);
        for (int i = 0; i < 8; ++i) ASSERT_EQ(zamsVLCDecodeOne_1u16s(&p, &offset, out + i, plain.spec()), zamStsOk);
        EXPECT_EQ((p - base) * 8 + offset, end);
        // The tuple decoders on codes without zero elements read a sign bit each.
        std::memset(base, 0, 64);
        bit = static_cast<size_t>(end - total - 7);
        const size_t tupleStart = bit;
        for (int v : values) {
            put(table[v].code, table[v].length);
            if (v != 0) put(1, 1);
        }
        p = base + tupleStart / 8;
        offset = static_cast<int>(tupleStart % 8);
        ASSERT_EQ(zamsVLCDecodeUTupleBlock_1u16s(&p, &offset, out, 8, tuple.spec()), zamStsOk);
        EXPECT_EQ(out[0], -7);
        EXPECT_EQ((p - base) * 8 + offset, end);
        // An AAC escape as the last thing in the stream.
        std::memset(base, 0, 64);
        bit = static_cast<size_t>(end - 3 - 21);
        const size_t escapeStart = bit;
        put(0b100, 3);
        put(0b111111110, 9);
        put(0xABC, 12);
        p = base + escapeStart / 8;
        offset = static_cast<int>(escapeStart % 8);
        ASSERT_EQ(zamsVLCDecodeEscBlock_AAC_1u16s(&p, &offset, out, 2, pairs.spec()), zamStsOk);
        EXPECT_EQ(out[0], 4096 + 0xABC);
        EXPECT_EQ(out[1], 1);
        EXPECT_EQ((p - base) * 8 + offset, end);
    }
    munmap(pages, 2 * pageSize);
}
