// Spec building: layouts and sizes worked out by hand, table errors, check order,
// and the record layout.
#include <cstddef>
#include <set>

#include "vlc_test_util.h"

using namespace vlctest;

namespace {

constexpr int32_t kDecodeTag = 0x434D4100 + '`';
constexpr int32_t kEncodeTag = 0x434D4100 + '_';

std::vector<VlcEntry> fourTwoBitCodes() { return {{0, 0b00, 2}, {1, 0b01, 2}, {2, 0b10, 2}, {3, 0b11, 2}}; }

// 1 -> "0", 2 -> "10", ..., 9 -> "111111110", 10 -> "111111111".
std::vector<VlcEntry> unaryCodes()
{
    std::vector<VlcEntry> t;
    for (int len = 1; len <= 9; ++len) t.push_back({len, static_cast<int32_t>(((1u << len) - 1u) & ~1u), len});
    t.push_back({10, 0x1FF, 9});
    return t;
}

}  // namespace

TEST(VlcRecords, EntryLayoutAndFreeAlias)
{
    EXPECT_EQ(sizeof(VlcEntry), 12u);
    EXPECT_EQ(offsetof(VlcEntry, value), 0u);
    EXPECT_EQ(offsetof(VlcEntry, code), 4u);
    EXPECT_EQ(offsetof(VlcEntry, length), 8u);
    EXPECT_EQ(reinterpret_cast<void*>(&zamsVLCDecodeFree_32s), reinterpret_cast<void*>(&zamsVLCDecodeUTupleFree_32s));
}

// Layouts worked out by hand (-1: not pinned). Slot 0 of a table holds its width; a leaf is
// value << (lenBits + 1) | resolved bits << 1 | 1, a link the sub-table's index << 1, and a
// slot without a code all ones (beyond the element's value field).
struct LayoutCase {
    const char* name;
    std::vector<VlcEntry> table;
    std::vector<int> widths;
    int size, elementBits, lenBits, peekWidth;
    std::vector<std::pair<int, uint32_t>> elements;
};

std::vector<std::pair<int, uint32_t>> unaryElements()
{
    // {4, 4, 4} for a longest code of 9 is cut to {4, 4, 1}: a 17-element root, 17 elements
    // behind "1111", 3 behind "11111111"; "0" fills eight root slots, "11110" eight one level down.
    std::vector<std::pair<int, uint32_t>> e = {{0, 4},  {1 + 0b1111, 17 << 1},         {17, 4},
                                               {18 + 0b1111, 34 << 1}, {34, 1}, {35, (9 << 4) | 3}, {36, (10 << 4) | 3}};
    for (int i = 0; i < 8; ++i) e.insert(e.end(), {{1 + i, (1 << 4) | 3}, {18 + i, (5 << 4) | 3}});
    return e;
}

const LayoutCase kLayouts[] = {
    {"FourTwoBitCodes", fourTwoBitCodes(), {2}, 5 + 160, 8, 2, 2,
     {{0, 2}, {1, (0 << 3) | 5}, {2, (1 << 3) | 5}, {3, (2 << 3) | 5}, {4, (3 << 3) | 5}}},
    // Values -4..4: +4 fits only in the room above the computed field of an 8-bit element.
    {"MinusFourToFour",
     {{0, 0b00, 2}, {1, 0b010, 3}, {-1, 0b011, 3}, {2, 0b1000, 4}, {-2, 0b1001, 4}, {3, 0b1010, 4}, {-3, 0b1011, 4},
      {4, 0b1100, 4}, {-4, 0b1101, 4}},
     {4}, 17 + 160, 8, 3, 4, {{1 + 0b1100, (4 << 4) | (4 << 1) | 1}, {1 + 0b1110, 0xFE}, {1 + 0b1111, 0xFE}}},
    {"WidthsPastTheLongestCodeAreCut", unaryCodes(), {4, 4, 4}, (17 + 17 + 3) * 2 + 160, 16, 3, 9, unaryElements()},
    {"WidthsWrittenOut", unaryCodes(), {4, 4, 1}, (17 + 17 + 3) * 2 + 160, 16, 3, 9, unaryElements()},
    {"OneSubTableOf33", unaryCodes(), {4, 5}, (17 + 33) * 2 + 160, 16, -1, 9, {{17, 5}, {18 + 31, (10 << 4) | (5 << 1) | 1}}},
    // "11" needs its sub-table before "10".
    {"SubTablesInFirstNeedOrder", {{1, 0b0, 1}, {2, 0b110, 3}, {3, 0b111, 3}, {4, 0b100, 3}, {5, 0b101, 3}}, {2, 1},
     5 + 3 + 3 + 160, 8, -1, 3, {{1 + 0b11, 5 << 1}, {1 + 0b10, 8 << 1}, {5, 1}, {8, 1}}},
};

class VlcDecodeLayout : public ::testing::TestWithParam<LayoutCase> {};

TEST_P(VlcDecodeLayout, AtEveryAlignment)
{
    const LayoutCase& c = GetParam();
    for (size_t misalign : {0u, 1u, 17u, 63u}) {
        DecodeSpec s(c.table, c.widths, misalign);
        ASSERT_EQ(s.status, zamStsOk);
        EXPECT_EQ(s.size, c.size);  // elements + header and alignment slack
        EXPECT_EQ(s.field(0), kDecodeTag);
        EXPECT_EQ(s.field(4), 0);  // made by Init
        EXPECT_EQ(s.table(), s.header() + 64);
        EXPECT_EQ(s.peekWidth(), c.peekWidth);
        EXPECT_EQ(s.elementBits(), c.elementBits);
        if (c.lenBits >= 0) EXPECT_EQ(s.lenBits(), c.lenBits);
        for (const auto& [i, v] : c.elements) EXPECT_EQ(s.element(i), v) << "element " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(All, VlcDecodeLayout, ::testing::ValuesIn(kLayouts),
                         [](const auto& info) { return std::string(info.param.name); });

// Table errors and sizes of GetSize (size written only on success).
struct SizeCase {
    const char* name;
    std::vector<VlcEntry> table;
    std::vector<int> widths;
    ZamStatus status;
    int size;
    int entries = -1000;  // -1000: the table's own count
};

class VlcDecodeGetSize : public ::testing::TestWithParam<SizeCase> {};

TEST_P(VlcDecodeGetSize, StatusAndSize)
{
    const SizeCase& c = GetParam();
    int size = -1;
    const auto table = c.table.empty() ? unaryCodes() : c.table;  // unary: longest code 9
    const int n = c.entries == -1000 ? static_cast<int>(table.size()) : c.entries;
    const int nine = 9;  // no widths: a valid pointer, count 0
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(table.data(), n, c.widths.empty() ? &nine : c.widths.data(),
                                       static_cast<int>(c.widths.size()), &size),
              c.status);
    EXPECT_EQ(size, c.status == zamStsOk ? c.size : -1);
}

INSTANTIATE_TEST_SUITE_P(
    All, VlcDecodeGetSize,
    ::testing::Values(SizeCase{"unary9", {}, {9}, zamStsOk, 513 * 2 + 160},
                      SizeCase{"zeroAndNegativeWidthsAfterTheEnd", {}, {9, 0, -3}, zamStsOk, 513 * 2 + 160},
                      SizeCase{"widthPastTheEnd", {}, {20}, zamStsOk, 513 * 2 + 160},
                      SizeCase{"zeroWidthInside", {}, {4, 0, 5}, zamStsVlcTable, 0},
                      SizeCase{"zeroWidth", {}, {0}, zamStsVlcTable, 0},
                      SizeCase{"negativeWidth", {}, {-1, 9}, zamStsVlcTable, 0},
                      SizeCase{"widthsShort", {}, {4, 4}, zamStsVlcTable, 0},
                      SizeCase{"noWidths", {}, {}, zamStsVlcTable, 0},
                      SizeCase{"zeroEntries", {{1, 0, 1}}, {8}, zamStsVlcTable, 0, 0},
                      SizeCase{"negativeEntries", {{1, 0, 1}}, {8}, zamStsVlcTable, 0, -1},
                      SizeCase{"length0", {{1, 0, 0}}, {8}, zamStsVlcTable, 0},
                      SizeCase{"length33", {{1, 0, 33}}, {32}, zamStsVlcTable, 0},
                      SizeCase{"lengthNegative", {{1, 0, 3}, {2, 1, -1}}, {8}, zamStsVlcTable, 0},
                      SizeCase{"rootOf2To32", {{1, 0, 32}}, {32}, zamStsVlcTable, 0},
                      SizeCase{"32BitsInFourLevels", {{1, 0, 32}}, {8, 8, 8, 8}, zamStsOk, 257 * 4 * 2 + 160}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(VlcDecodeSpec, PrefixCollisionWhenTheShorterCodeComesFirst)
{
    DecodeSpec a({{1, 0b1, 1}, {2, 0b10, 2}}, {1, 1});
    EXPECT_EQ(a.status, zamStsVlcTable);
    EXPECT_EQ(a.field(0), kDecodeTag);  // failed part-way: the tag is already set
    EXPECT_EQ(DecodeSpec({{2, 0b10, 2}, {1, 0b1, 1}}, {1, 1}).status, zamStsOk);  // the short code takes over
    const std::vector<VlcEntry> collide = {{1, 0b1, 1}, {2, 0b10, 2}};
    const int w11[] = {1, 1};
    VlcDecodeSpec* spec = nullptr;
    EXPECT_EQ(zamsVLCDecodeInitAlloc_32s(collide.data(), 2, w11, 2, &spec), zamStsVlcTable);
    EXPECT_EQ(spec, nullptr);  // a failed InitAlloc stores nothing
}

TEST(VlcDecodeSpec, CheckOrderNullPointersFirst)
{
    const auto t = fourTwoBitCodes();
    const int w[] = {2}, zero[] = {0};
    int size = -1;
    auto mem = zamtest::canaryVector<uint8_t>(512);
    auto* spec = reinterpret_cast<VlcDecodeSpec*>(mem.data());
    VlcDecodeSpec* allocated = nullptr;
    const std::vector<std::pair<ZamStatus, ZamStatus>> calls = {
        {zamsVLCDecodeGetSize_32s(nullptr, 4, w, 1, &size), zamStsNullPtr},
        {zamsVLCDecodeGetSize_32s(t.data(), 4, nullptr, 1, &size), zamStsNullPtr},
        {zamsVLCDecodeGetSize_32s(t.data(), 0, zero, 1, nullptr), zamStsNullPtr},
        {zamsVLCDecodeInit_32s(t.data(), 0, zero, 1, nullptr), zamStsNullPtr},
        {zamsVLCDecodeInitAlloc_32s(t.data(), 4, w, 1, nullptr), zamStsNullPtr},
        {zamsVLCDecodeUTupleGetSize_32s(nullptr, 4, w, 1, 0, 0, &size), zamStsNullPtr},
        {zamsVLCDecodeUTupleInit_32s(t.data(), 4, w, 1, 2, 1, nullptr), zamStsNullPtr},
        {zamsVLCDecodeUTupleInitAlloc_32s(t.data(), 4, nullptr, 1, 2, 1, &allocated), zamStsNullPtr},
        {zamsVLCDecodeInit_32s(t.data(), 0, w, 1, spec), zamStsVlcTable},
        // Tuple element count or bits 0: zamStsBadArg ahead of the table errors.
        {zamsVLCDecodeUTupleGetSize_32s(t.data(), 0, zero, 1, 0, 2, &size), zamStsBadArg},
        {zamsVLCDecodeUTupleGetSize_32s(t.data(), 0, zero, 1, 2, 0, &size), zamStsBadArg},
        {zamsVLCDecodeUTupleGetSize_32s(t.data(), 0, zero, 1, 2, 1, &size), zamStsVlcTable},
    };
    for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].first, calls[i].second) << "call " << i;
    EXPECT_EQ(size, -1);
    EXPECT_EQ(allocated, nullptr);
    EXPECT_TRUE(zamtest::untouched(mem));
}

TEST(VlcDecodeSpec, TupleSizes)
{
    const auto t = fourTwoBitCodes();
    const int w[] = {2};
    int size = -1;
    // 2 x 1 bits: 2 + lenBits 2 + 1 = 5 bits: 8-bit elements, 5 of them.
    EXPECT_EQ(zamsVLCDecodeUTupleGetSize_32s(t.data(), 4, w, 1, 2, 1, &size), zamStsOk);
    EXPECT_EQ(size, 5 + 176);
    // 4 x 8 bits + 3 > 32: zamStsBadArg, and the entry count is written (kept quirk).
    EXPECT_EQ(zamsVLCDecodeUTupleGetSize_32s(t.data(), 4, w, 1, 4, 8, &size), zamStsBadArg);
    EXPECT_EQ(size, 5);
    // 29 + 2 + 1 = 32 bits: allowed.
    EXPECT_EQ(zamsVLCDecodeUTupleGetSize_32s(t.data(), 4, w, 1, 1, 29, &size), zamStsOk);
    EXPECT_EQ(size, 5 * 4 + 176);
    DecodeSpec tuple(t, {2}, 0, 2, 1);
    ASSERT_EQ(tuple.status, zamStsOk);
    EXPECT_EQ(tuple.field(32), 2);
    EXPECT_EQ(tuple.field(36), 1);
}

TEST(VlcDecodeSpec, InitAllocAndFree)
{
    const auto table = unaryCodes();
    const int widths[] = {3, 3, 3};
    VlcDecodeSpec* spec = nullptr;
    ASSERT_EQ(zamsVLCDecodeInitAlloc_32s(table.data(), 10, widths, 3, &spec), zamStsOk);
    int32_t owner;
    std::memcpy(&owner, reinterpret_cast<uint8_t*>(spec) + 4, 4);
    EXPECT_EQ(owner, 1);
    BitSink bits(8);
    bits.put("1110 111111111");
    uint8_t* p = bits.base;
    int offset = 0;
    int16_t out[2];
    ASSERT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out, 2, spec), zamStsOk);
    EXPECT_EQ(out[0], 4);
    EXPECT_EQ(out[1], 10);
    zamsVLCDecodeUTupleFree_32s(spec);  // either name releases it
    zamsVLCDecodeFree_32s(nullptr);
    DecodeSpec s(table, {9});  // Free on caller memory clears the tag, releases nothing
    zamsVLCDecodeFree_32s(s.spec());
    EXPECT_EQ(s.field(0), 0);
    EXPECT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out, 1, s.spec()), zamStsVlcArg);
}

// GetSize counts exactly the elements the build lays out (counted here on the set of
// code prefixes at each level boundary) for the real code books; nothing is written past them.
TEST(VlcDecodeSpec, SizesOfRealBooksMatchTheBuild)
{
    const std::vector<std::vector<int>> choices = {
        {32}, std::vector<int>(20, 1), {4, 4, 4, 4, 4}, {6, 6, 6, 6}, {2, 8, 3, 9}};
    for (const auto* group : {&aacBooks(), &mp3Tables()})
        for (const auto& [number, book] : *group) {
            std::vector<VlcEntry> table;
            int longest = 0;
            for (const auto& w : book.words) {
                table.push_back({w.index, static_cast<int32_t>(w.code), w.length});
                longest = std::max(longest, w.length);
            }
            for (const auto& widths : choices) {
                int64_t entries = 0;
                for (int boundary = 0, level = 0; boundary < longest; ++level) {
                    const int used = std::min(widths[level], longest - boundary);
                    std::set<uint32_t> prefixes;
                    for (const auto& e : table)
                        if (e.length > boundary)
                            prefixes.insert(boundary ? static_cast<uint32_t>(e.code) >> (e.length - boundary) : 0u);
                    entries += static_cast<int64_t>(prefixes.size()) * ((int64_t{1} << used) + 1);
                    boundary += used;
                }
                DecodeSpec s(table, widths);
                ASSERT_EQ(s.status, zamStsOk);
                const int bytes = s.elementBits() / 8;
                EXPECT_EQ(s.size, entries * bytes + 160) << number;
                const uint8_t* end = s.table() + entries * bytes;
                EXPECT_TRUE(zamtest::untouched(end, s.mem + s.size - end));
            }
        }
}

// ---- encode specs ----

namespace {
// Values -2..2: 0 "0", 1 "100", -1 "101", 2 "110", -2 "111".
std::vector<VlcEntry> smallCode() { return {{0, 0b0, 1}, {1, 0b100, 3}, {-1, 0b101, 3}, {2, 0b110, 3}, {-2, 0b111, 3}}; }
int32_t word32(const uint8_t* p, int byteOffset)
{
    int32_t v;
    std::memcpy(&v, p + byteOffset, 4);
    return v;
}
}  // namespace

TEST(VlcEncodeSpec, SizeAndLayout)
{
    for (size_t misalign : {0u, 5u, 63u}) {
        EncodeSpec s(smallCode(), misalign);
        ASSERT_EQ(s.status, zamStsOk);
        EXPECT_EQ(s.size, (4 + 8) * 4 + 132);  // lengths and codes of 2^3 slots
        const uint8_t* h = s.header();
        const uint8_t* lengths;
        std::memcpy(&lengths, h, sizeof lengths);
        EXPECT_EQ(lengths, h + 64);
        EXPECT_EQ(word32(h, 8), 2);   // value offset
        EXPECT_EQ(word32(h, 12), 3);  // k
        EXPECT_EQ(word32(h, 16), 0);  // Init
        EXPECT_EQ(word32(h, 20), kEncodeTag);
        const int expectedLengths[5] = {3, 3, 1, 3, 3}, expectedCodes[5] = {0b111, 0b101, 0b0, 0b100, 0b110};
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(word32(lengths, 4 * i), expectedLengths[i]);
            EXPECT_EQ(word32(lengths, 32 + 4 * i), expectedCodes[i]);
        }
        EXPECT_TRUE(zamtest::untouched(lengths + 20, 12));  // slots 5..7 keep the memory's bytes
        EXPECT_TRUE(zamtest::untouched(h + 64 + 52, s.mem + s.size - (h + 64 + 52)));
    }
    // Codes are masked to their length; the mask's shift is taken modulo 32, so a 32-bit code is 0.
    EncodeSpec m({{0, 0x7F, 2}, {1, -1, 32}, {3, 0x12345, 16}});
    const uint8_t* lengths;
    std::memcpy(&lengths, m.header(), sizeof lengths);
    EXPECT_EQ(word32(m.header(), 12), 3);  // range 3: range + 1 = 4 has 3 bits
    EXPECT_EQ(word32(lengths, 32 + 0), 3);
    EXPECT_EQ(word32(lengths, 32 + 4), 0);
    EXPECT_EQ(word32(lengths, 32 + 12), 0x2345);
}

TEST(VlcEncodeSpec, ChecksInitAllocAndFree)
{
    const auto table = smallCode();
    int size = -1;
    auto mem = zamtest::canaryVector<uint8_t>(256);
    auto* spec = reinterpret_cast<VlcEncodeSpec*>(mem.data());
    VlcEncodeSpec* allocated = nullptr;
    const std::vector<VlcEntry> wide = {{INT32_MIN, 0, 1}, {INT32_MAX, 1, 1}};  // range too wide for an int size
    const std::vector<std::pair<ZamStatus, ZamStatus>> calls = {
        {zamsVLCEncodeGetSize_32s(nullptr, 5, &size), zamStsNullPtr},
        {zamsVLCEncodeGetSize_32s(table.data(), 0, nullptr), zamStsNullPtr},
        {zamsVLCEncodeGetSize_32s(table.data(), 0, &size), zamStsVlcArg},
        {zamsVLCEncodeInit_32s(nullptr, 5, spec), zamStsNullPtr},
        {zamsVLCEncodeInit_32s(table.data(), -2, spec), zamStsVlcArg},
        {zamsVLCEncodeInitAlloc_32s(table.data(), 5, nullptr), zamStsNullPtr},
        {zamsVLCEncodeInitAlloc_32s(table.data(), 0, &allocated), zamStsVlcArg},
        {zamsVLCEncodeGetSize_32s(wide.data(), 2, &size), zamStsVlcArg},
    };
    for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].first, calls[i].second) << "call " << i;
    EXPECT_EQ(size, -1);
    EXPECT_EQ(allocated, nullptr);
    EXPECT_TRUE(zamtest::untouched(mem));

    ASSERT_EQ(zamsVLCEncodeInitAlloc_32s(table.data(), 5, &allocated), zamStsOk);
    EXPECT_EQ(word32(reinterpret_cast<uint8_t*>(allocated), 16), 1);
    int bits = 0;
    const int16_t values[] = {2, 0, -1};
    EXPECT_EQ(zamsVLCCountBits_16s32s(values, 3, &bits, allocated), zamStsOk);
    EXPECT_EQ(bits, 7);
    zamsVLCEncodeFree_32s(allocated);
    zamsVLCEncodeFree_32s(nullptr);
    EncodeSpec s(table);
    zamsVLCEncodeFree_32s(s.spec());  // caller memory: the tag goes, nothing is released
    EXPECT_EQ(word32(s.mem, 20), 0);
    EXPECT_EQ(zamsVLCCountBits_16s32s(values, 3, &bits, s.spec()), zamStsVlcArg);
}
