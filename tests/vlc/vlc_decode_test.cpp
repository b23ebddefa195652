// Decoding: cursor behaviour, hand-worked escapes and tuples, check order, and reads
// bounded by a guard page.
#include <sys/mman.h>
#include <unistd.h>

#include "vlc_test_util.h"

using namespace vlctest;

namespace {

// Pair values as the escape decoders read them.
constexpr int pairValue(int x, int y) { return x * 256 + y + 128; }

// (0,0) "0", (16,1) "100", (-16,-16) "101", (15,-3) "110", (-15,15) "1110", (3,16) "1111".
std::vector<VlcEntry> smallPairCode()
{
    return {{pairValue(0, 0), 0b0, 1},     {pairValue(16, 1), 0b100, 3},    {pairValue(-16, -16), 0b101, 3},
            {pairValue(15, -3), 0b110, 3}, {pairValue(-15, 15), 0b1110, 4}, {pairValue(3, 16), 0b1111, 4}};
}

// Values 0..7 under a code of lengths 1..7 (unary, last one all ones).
std::vector<VlcEntry> unarySeven()
{
    std::vector<VlcEntry> t;
    for (int len = 1; len <= 7; ++len) t.push_back({len - 1, static_cast<int32_t>(((1u << len) - 1u) & ~1u), len});
    t.push_back({7, 0x7F, 7});
    return t;
}

// Quads of 1-bit magnitudes: value 0bwxyz, four-bit codes equal to the value.
std::vector<VlcEntry> quadCode()
{
    std::vector<VlcEntry> t;
    for (int v = 0; v < 16; ++v) t.push_back({v, v, 4});
    return t;
}

// Pairs of 5-bit magnitudes: (16, 3) "0", (0, 16) "10", (15, 15) "11".
std::vector<VlcEntry> fiveBitPairs() { return {{(16 << 5) | 3, 0b0, 1}, {16, 0b10, 2}, {(15 << 5) | 15, 0b11, 2}}; }

// Values -4..4; +4 needs the room above the value field of an 8-bit element.
std::vector<VlcEntry> minusFourToFour()
{
    return {{0, 0b00, 2},    {1, 0b010, 3},   {-1, 0b011, 3}, {2, 0b1000, 4}, {-2, 0b1001, 4},
            {3, 0b1010, 4}, {-3, 0b1011, 4}, {4, 0b1100, 4}, {-4, 0b1101, 4}};
}

enum class Op { One, Block, EscAac, EscMp3, Tuple, TupleEscAac, TupleEscMp3, TupleOne };

ZamStatus run(Op op, uint8_t** p, int* o, int16_t* d, int n, int linbits, const VlcDecodeSpec* s)
{
    switch (op) {
    case Op::One: return zamsVLCDecodeOne_1u16s(p, o, d, s);
    case Op::Block: return zamsVLCDecodeBlock_1u16s(p, o, d, n, s);
    case Op::EscAac: return zamsVLCDecodeEscBlock_AAC_1u16s(p, o, d, n, s);
    case Op::EscMp3: return zamsVLCDecodeEscBlock_MP3_1u16s(p, o, linbits, d, n, s);
    case Op::Tuple: return zamsVLCDecodeUTupleBlock_1u16s(p, o, d, n, s);
    case Op::TupleEscAac: return zamsVLCDecodeUTupleEscBlock_AAC_1u16s(p, o, d, n, s);
    case Op::TupleEscMp3: return zamsVLCDecodeUTupleEscBlock_MP3_1u16s(p, o, linbits, d, n, s);
    case Op::TupleOne: return zamsVLCDecodeUTupleOne_1u16s(p, o, d, s);
    }
    return zamStsBadArg;
}

// A hand-worked stream: the values written, the rest of the output untouched, and the
// cursor after the consumed bits (or not moved, on failure).
struct HandCase {
    const char* name;
    Op op;
    std::vector<VlcEntry> (*table)();
    std::vector<int> widths;
    int elements, valueBits;  // 0: a plain spec
    int linbits, n;
    const char* bits;         // consumed bits; a '|' ends them, what follows is further stream
    ZamStatus status;
    std::vector<int16_t> values;
};

const HandCase kHandCases[] = {
    {"MinusFourToFour", Op::Block, minusFourToFour, {4}, 0, 0, 0, 5, "1100 1101 00 1010 011", zamStsOk,
     {4, -4, 0, 3, -1}},
    {"AacEscapes", Op::EscAac, smallPairCode, {2, 2}, 0, 0, 0, 9,  // odd count: 4 pairs
     "100 0 0000  101 111111110 111111111111 10 10101  1111 0 0111  0", zamStsOk,
     {16, 1, -8191, -53, 3, 23, 0, 0}},  // 16+0; -(4096+4095), -(32+21); 16+7
    {"AacEscapeWithNineOnesFails", Op::EscAac, smallPairCode, {4}, 0, 0, 0, 4, "|0 100 111111111 0000000000",
     zamStsVlcArg, {0, 0}},
    {"Mp3Linbits", Op::EscMp3, smallPairCode, {3, 1}, 0, 0, 2, 6,  // y keeps the table's -3; 16 is no escape
     "110 101  1110 000 111  100", zamStsOk, {-17, -3, 15, -18, 16, 1}},
    {"Mp3LinbitsZero", Op::EscMp3, smallPairCode, {3, 1}, 0, 0, 0, 2, "1110 1 0", zamStsOk, {-15, 15}},
    {"TuplesWithSignBits", Op::Tuple, quadCode, {2, 2}, 4, 1, 0, 15,  // 3 whole codes
     "1011 011  0000  0100 1", zamStsOk, {1, 0, -1, -1, 0, 0, 0, 0, 0, -1, 0, 0}},
    {"TupleOne", Op::TupleOne, quadCode, {2, 2}, 4, 1, 0, 4, "1011 011| 0000", zamStsOk, {1, 0, -1, -1}},
    {"TupleEscAac", Op::TupleEscAac, fiveBitPairs, {2}, 2, 5, 0, 4,  // -(16+3), 3; 0, -16
     "0 1 0  0 0011  10 1  0 0000", zamStsOk, {-19, 3, 0, -16}},
    {"TupleEscMp3", Op::TupleEscMp3, fiveBitPairs, {2}, 2, 5, 2, 5,  // 15+1 signed, 15+2; 16 is no escape
     "11 01 1 10 0  0 0 1", zamStsOk, {-16, 17, 16, -3}},
    {"NoCodeStopsOneLevel", Op::Block, [] { return std::vector<VlcEntry>{{5, 0b0, 1}, {6, 0b10, 2}}; }, {2}, 0, 0,
     0, 4, "|0 10 11", zamStsVlcArg, {5, 6}},
    {"NoCodeStopsTwoLevels", Op::Block, [] { return std::vector<VlcEntry>{{5, 0b0, 1}, {6, 0b10, 2}}; }, {1, 1}, 0,
     0, 0, 4, "|0 10 11", zamStsVlcArg, {5, 6}},
};

class VlcDecodeHand : public ::testing::TestWithParam<HandCase> {};

TEST_P(VlcDecodeHand, ValuesAndCursor)
{
    const HandCase& c = GetParam();
    DecodeSpec s(c.table(), c.widths, 0, c.elements, c.valueBits);
    ASSERT_EQ(s.status, zamStsOk);
    for (size_t start : {0u, 5u}) {
        BitSink bits(32, start, 0x5A);
        size_t end = start;
        for (const char* b = c.bits; *b; ++b)
            if (*b == '|') end = bits.bit;
            else if (*b == '0' || *b == '1') bits.put(*b == '1', 1);
        if (!std::strchr(c.bits, '|')) end = bits.bit;
        if (c.status != zamStsOk) end = start;
        uint8_t* p;
        int offset;
        bits.cursor(start, p, offset);
        auto out = zamtest::canaryVector<int16_t>(c.n + 1);
        EXPECT_EQ(run(c.op, &p, &offset, out.data(), c.n, c.linbits, s.spec()), c.status);
        EXPECT_EQ(std::vector<int16_t>(out.begin(), out.begin() + c.values.size()), c.values);
        EXPECT_TRUE(zamtest::untouched(&out[c.values.size()], out.size() - c.values.size()));
        EXPECT_EQ(bits.position(p, offset), static_cast<int64_t>(end));
    }
}

INSTANTIATE_TEST_SUITE_P(All, VlcDecodeHand, ::testing::ValuesIn(kHandCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace

// 32-bit codes at every start bit: each spans two words except at bit 0. (The round trips
// decode every code book from random start bits.)
TEST(VlcDecode, LongCodesAcrossWords)
{
    const std::vector<VlcEntry> longCodes = {{1, 0, 1}, {-7, static_cast<int32_t>(0x80000001u), 32},
                                             {9, static_cast<int32_t>(0xFFFFFFFFu), 32}};
    DecodeSpec s(longCodes, {8, 8, 8, 8});
    ASSERT_EQ(s.status, zamStsOk);
    EXPECT_EQ(s.peekWidth(), 32);
    for (size_t start = 0; start < 32; ++start) {
        BitSink bits(32, start);
        bits.put(0x80000001u, 32);
        bits.put(0, 1);
        bits.put(0xFFFFFFFFu, 32);
        uint8_t* p;
        int offset;
        bits.cursor(start, p, offset);
        int16_t out[3];
        ASSERT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out, 3, s.spec()), zamStsOk);
        EXPECT_EQ(std::vector<int16_t>(out, out + 3), (std::vector<int16_t>{-7, 1, 9})) << "start bit " << start;
        EXPECT_EQ(bits.position(p, offset), static_cast<int64_t>(start + 65));
    }
}

TEST(VlcDecode, ZeroCodesLeaveTheCursor)
{
    DecodeSpec s(unarySeven(), {7});
    DecodeSpec t(unarySeven(), {7}, 0, 1, 3);
    BitSink bits(16);
    const struct {
        Op op;
        int n;
        bool tuple;
    } calls[] = {{Op::Block, 0, false},  {Op::Block, -3, false},      {Op::EscAac, 1, false}, {Op::EscMp3, 0, false},
                 {Op::Tuple, 0, true}, {Op::TupleEscAac, 1, true}, {Op::TupleEscMp3, -1, true}};
    for (int start = 0; start < 8; ++start) {
        uint8_t* p = bits.base + 3;
        int offset = start;
        auto out = zamtest::canaryVector<int16_t>(4);
        for (const auto& c : calls)
            EXPECT_EQ(run(c.op, &p, &offset, out.data(), c.n, 3, c.tuple ? t.spec() : s.spec()), zamStsOk);
        EXPECT_EQ(p, bits.base + 3);
        EXPECT_EQ(offset, start);
        EXPECT_TRUE(zamtest::untouched(out));
    }
}

// Argument checks: first failure wins, and nothing is written or moved.
TEST(VlcDecode, CheckOrder)
{
    DecodeSpec good(smallPairCode(), {4}), cleared(smallPairCode(), {4});
    zamsVLCDecodeFree_32s(cleared.spec());
    const VlcDecodeSpec *g = good.spec(), *x = cleared.spec();
    BitSink bits(16);
    uint8_t* const start = bits.base + 1;
    // Escape decoders report offsets and tags with their own statuses.
    for (Op op : {Op::One, Op::Block, Op::EscAac, Op::EscMp3, Op::Tuple, Op::TupleEscAac, Op::TupleEscMp3, Op::TupleOne}) {
        const bool escape = op == Op::EscAac || op == Op::EscMp3 || op == Op::TupleEscAac || op == Op::TupleEscMp3;
        const ZamStatus badOffset = escape ? zamStsBitOffset : zamStsVlcArg;
        const ZamStatus badTag = escape ? zamStsContextMismatch : zamStsVlcArg;
        auto out = zamtest::canaryVector<int16_t>(8);
        int16_t* d = out.data();
        uint8_t* p = start;
        uint8_t* none = nullptr;
        int o0 = 0, o7 = 7, o8 = 8, o9 = 9, oNeg = -1;
        const std::vector<std::pair<ZamStatus, ZamStatus>> calls = {
            {run(op, nullptr, &o0, d, 8, 2, g), zamStsNullPtr}, {run(op, &none, &o0, d, 8, 2, g), zamStsNullPtr},
            {run(op, &p, nullptr, d, 8, 2, x), zamStsNullPtr},  {run(op, &p, &o9, nullptr, 8, 2, x), zamStsNullPtr},
            {run(op, &p, &o9, d, 8, 2, nullptr), zamStsNullPtr}, {run(op, &p, &o9, d, 8, 2, x), badOffset},
            {run(op, &p, &o8, d, 8, 2, g), badOffset},           {run(op, &p, &oNeg, d, 8, 2, g), badOffset},
            {run(op, &p, &o7, d, 8, 2, x), badTag},
        };
        for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].first, calls[i].second) << int(op) << " " << i;
        // linbits outside 0..31 comes after the tag.
        if (op == Op::EscMp3 || op == Op::TupleEscMp3) {
            EXPECT_EQ(run(op, &p, &o0, d, 8, -1, x), zamStsContextMismatch);
            EXPECT_EQ(run(op, &p, &o0, d, 8, 32, g), zamStsBadArg);
            EXPECT_EQ(run(op, &p, &o0, d, 8, -1, g), zamStsBadArg);
        }
        EXPECT_EQ(p, start);
        EXPECT_EQ(o7, 7);
        EXPECT_TRUE(zamtest::untouched(out));
    }
}

// Decoders read no further than the aligned word after the one holding the last bit they
// consume: streams ending in the second-last word of a page before an unreadable page decode
// at every end position.
TEST(VlcDecode, ReadsStopOneWordAfterTheLastBit)
{
    const long pageSize = sysconf(_SC_PAGESIZE);
    auto* pages = static_cast<uint8_t*>(
        mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    ASSERT_EQ(mprotect(pages + pageSize, pageSize, PROT_NONE), 0);
    uint8_t* const base = pages + pageSize - 64;  // 64 bytes before the guard page
    const auto table = unarySeven();
    DecodeSpec plain(table, {7}), tuple(table, {4, 3}, 0, 1, 3), pairs(smallPairCode(), {4});
    const std::vector<int> values = {7, 0, 3, 6, 1, 7, 7, 2};
    int total = 0;
    for (int v : values) total += table[v].length;
    size_t bit = 0;
    auto put = [&](uint32_t code, int n) {
        for (int k = n - 1; k >= 0; --k, ++bit)
            if ((code >> k) & 1u) base[bit >> 3] |= static_cast<uint8_t>(0x80u >> (bit & 7));
    };
    auto decode = [&](size_t start, Op op, const VlcDecodeSpec* s, int16_t* out, int n) {
        uint8_t* p = base + start / 8;
        int offset = static_cast<int>(start % 8);
        for (int i = 0; i < (op == Op::One ? n : 1); ++i) EXPECT_EQ(run(op, &p, &offset, out + i, n, 0, s), zamStsOk);
        return (p - base) * 8 + offset;
    };
    for (int end = 449; end <= 480; ++end) {  // last bit inside bytes 56..59 of `base`
        int16_t out[8];
        std::memset(base, 0, 64);
        const size_t start = bit = static_cast<size_t>(end - total);
        for (int v : values) put(table[v].code, table[v].length);
        EXPECT_EQ(decode(start, Op::Block, plain.spec(), out, 8), end);
        EXPECT_EQ(std::vector<int>(out, out + 8), values);
        EXPECT_EQ(decode(start, Op::One, plain.spec(), out, 8), end);
        // The tuple decoder on codes without zero elements reads a sign bit each.
        std::memset(base, 0, 64);
        const size_t tupleStart = bit = static_cast<size_t>(end - total - 7);
        for (int v : values) put((table[v].code << (v != 0)) | (v != 0), table[v].length + (v != 0));
        EXPECT_EQ(decode(tupleStart, Op::Tuple, tuple.spec(), out, 8), end);
        EXPECT_EQ(out[0], -7);
        // An AAC escape as the last thing in the stream.
        std::memset(base, 0, 64);
        const size_t escapeStart = bit = static_cast<size_t>(end - 24);
        put(0b100111111110, 12);
        put(0xABC, 12);
        EXPECT_EQ(decode(escapeStart, Op::EscAac, pairs.spec(), out, 2), end);
        EXPECT_EQ(out[0], 4096 + 0xABC);
        EXPECT_EQ(out[1], 1);
    }
    munmap(pages, 2 * pageSize);
}
