// Decode-spec building: layouts worked out by hand, sizes, and table errors.
#include <cstddef>
#include <set>

#include "vlc/vlc_internal.h"
#include "vlc_test_util.h"

using namespace vlctest;

namespace {

constexpr uint32_t kDecodeTagValue = 0x434D4100u + '`';

std::vector<VlcEntry> fourTwoBitCodes() { return {{0, 0b00, 2}, {1, 0b01, 2}, {2, 0b10, 2}, {3, 0b11, 2}}; }

// 1 -> "0", 2 -> "10", ..., 9 -> "111111110", 10 -> "111111111".
std::vector<VlcEntry> unaryCodes()
{
    std::vector<VlcEntry> t;
    for (int len = 1; len <= 9; ++len) t.push_back({len, static_cast<int32_t>(((1u << len) - 1u) & ~1u), len});
    t.push_back({10, 0x1FF, 9});
    return t;
}

// Elements a build of `table` with `widths` needs, counted on a set of prefixes.
int64_t expectedEntries(const std::vector<VlcEntry>& table, const std::vector<int>& used)
{
    int64_t entries = (int64_t{1} << used[0]) + 1;
    int boundary = used[0];
    for (size_t level = 1; level < used.size(); ++level) {
        std::set<uint32_t> prefixes;
        for (const auto& e : table)
            if (e.length > boundary)
                prefixes.insert((static_cast<uint32_t>(e.code) & (0xFFFFFFFFull >> (32 - e.length))) >>
                                (e.length - boundary));
        entries += static_cast<int64_t>(prefixes.size()) * ((int64_t{1} << used[level]) + 1);
        boundary += used[level];
    }
    return entries;
}

}  // namespace

TEST(VlcRecords, EntryLayout)
{
    EXPECT_EQ(sizeof(VlcEntry), 12u);
    EXPECT_EQ(offsetof(VlcEntry, value), 0u);
    EXPECT_EQ(offsetof(VlcEntry, code), 4u);
    EXPECT_EQ(offsetof(VlcEntry, length), 8u);
}

TEST(VlcRecords, FreeIsOneFunctionUnderTwoNames)
{
    EXPECT_EQ(reinterpret_cast<void*>(&zamsVLCDecodeFree_32s), reinterpret_cast<void*>(&zamsVLCDecodeUTupleFree_32s));
}

TEST(VlcDecodeSpec, FourTwoBitCodesGiveFourLeavesOfEightBits)
{
    const auto table = fourTwoBitCodes();
    for (size_t misalign : {0u, 1u, 17u, 63u}) {
        DecodeSpec s(table, {2}, misalign);
        ASSERT_EQ(s.status, zamStsOk);
        EXPECT_EQ(s.size, 5 + 160);
        EXPECT_EQ(s.field(0), static_cast<int32_t>(kDecodeTagValue));
        EXPECT_EQ(s.field(4), 0);  // made by Init
        EXPECT_EQ(s.peekWidth(), 2);
        EXPECT_EQ(s.table(), s.header() + 64);
        EXPECT_EQ(s.elementBits(), 8);
        EXPECT_EQ(s.lenBits(), 2);
        EXPECT_EQ(s.element(0), 2u);
        for (int v = 0; v < 4; ++v) EXPECT_EQ(s.element(1 + v), static_cast<uint32_t>((v << 3) | (2 << 1) | 1));
    }
}

TEST(VlcDecodeSpec, MinusFourToFourFitsEightBitElements)
{
    // valueBits 2 (largest magnitude 4), lenBits 3: 7 bits, so +4 only fits
    // because the 8-bit element has room above the computed field.
    const std::vector<VlcEntry> table = {{0, 0b00, 2},    {1, 0b010, 3},   {-1, 0b011, 3},
                                         {2, 0b1000, 4},  {-2, 0b1001, 4}, {3, 0b1010, 4},
                                         {-3, 0b1011, 4}, {4, 0b1100, 4},  {-4, 0b1101, 4}};
    DecodeSpec s(table, {4});
    ASSERT_EQ(s.status, zamStsOk);
    EXPECT_EQ(s.elementBits(), 8);
    EXPECT_EQ(s.lenBits(), 3);
    EXPECT_EQ(s.size, 17 + 160);
    EXPECT_EQ(s.element(1 + 0b1100), static_cast<uint32_t>((4 << 4) | (4 << 1) | 1));
    EXPECT_EQ(s.element(1 + 0b1110), 0xFEu);  // "1110" and "1111" are no code
    BitSink bits(16);
    for (int v : {4, -4, 0, 3, -1}) {
        for (const auto& e : table)
            if (e.value == v) bits.put(e.code, e.length);
    }
    uint8_t* p = bits.base;
    int offset = 0;
    int16_t out[5];
    ASSERT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out, 5, s.spec()), zamStsOk);
    EXPECT_EQ(std::vector<int16_t>(out, out + 5), (std::vector<int16_t>{4, -4, 0, 3, -1}));
}

TEST(VlcDecodeSpec, WidthsPastTheLongestCodeAreCut)
{
    const auto table = unaryCodes();
    // {4, 4, 4} for a longest code of 9: the third width reaches 9 and is cut to 1.
    DecodeSpec s(table, {4, 4, 4});
    ASSERT_EQ(s.status, zamStsOk);
    // valueBits 4 (largest value 10), lenBits 3: 9 bits, so 16-bit elements. A
    // 17-element root, a 17-element table behind "1111", a 3-element one behind
    // "11111111".
    EXPECT_EQ(s.lenBits(), 3);
    EXPECT_EQ(s.peekWidth(), 9);
    EXPECT_EQ(s.elementBits(), 16);
    EXPECT_EQ(s.size, (17 + 17 + 3) * 2 + 160);
    EXPECT_EQ(s.element(0), 4u);
    EXPECT_EQ(s.element(1 + 0b1111), 17u << 1);
    EXPECT_EQ(s.element(17), 4u);
    EXPECT_EQ(s.element(18 + 0b1111), 34u << 1);
    EXPECT_EQ(s.element(34), 1u);
    // "0": eight root slots, one bit resolved.
    for (int i = 0; i < 8; ++i) EXPECT_EQ(s.element(1 + i), (1u << 4) | (1u << 1) | 1u);
    // "11110": eight slots of the second level, one bit resolved there.
    for (int i = 0; i < 8; ++i) EXPECT_EQ(s.element(18 + i), (5u << 4) | (1u << 1) | 1u);
    EXPECT_EQ(s.element(35), (9u << 4) | (1u << 1) | 1u);
    EXPECT_EQ(s.element(36), (10u << 4) | (1u << 1) | 1u);
    // The same spec with the widths written out is identical.
    DecodeSpec exact(table, {4, 4, 1});
    ASSERT_EQ(exact.size, s.size);
    for (int i = 0; i < 37; ++i) EXPECT_EQ(exact.element(i), s.element(i));
    // {4, 5}: one 33-element table behind "1111".
    DecodeSpec twoLevels(table, {4, 5});
    EXPECT_EQ(twoLevels.size, (17 + 33) * 2 + 160);
    EXPECT_EQ(twoLevels.element(17), 5u);
    EXPECT_EQ(twoLevels.element(18 + 31), (10u << 4) | (5u << 1) | 1u);
}

TEST(VlcDecodeSpec, SubTablesInFirstNeedOrder)
{
    // Codes entered so that "11" needs its sub-table before "10".
    const std::vector<VlcEntry> table = {{1, 0b0, 1}, {2, 0b110, 3}, {3, 0b111, 3}, {4, 0b100, 3}, {5, 0b101, 3}};
    DecodeSpec s(table, {2, 1});
    ASSERT_EQ(s.status, zamStsOk);
    EXPECT_EQ(s.size, 5 + 3 + 3 + 160);
    EXPECT_EQ(s.element(1 + 0b11), 5u << 1);
    EXPECT_EQ(s.element(1 + 0b10), 8u << 1);
    EXPECT_EQ(s.element(5), 1u);
    EXPECT_EQ(s.element(8), 1u);
}

struct WidthCase {
    std::vector<int> widths;
    ZamStatus status;
};
class VlcDecodeSpecWidths : public ::testing::TestWithParam<WidthCase> {};

TEST_P(VlcDecodeSpecWidths, StatusOfWidths)
{
    const auto table = unaryCodes();  // longest code 9
    int size = -1;
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(table.data(), 10, GetParam().widths.data(),
                                       static_cast<int>(GetParam().widths.size()), &size),
              GetParam().status);
    if (GetParam().status != zamStsOk) EXPECT_EQ(size, -1);
}

INSTANTIATE_TEST_SUITE_P(All, VlcDecodeSpecWidths,
                         ::testing::Values(WidthCase{{9}, zamStsOk}, WidthCase{{4, 4, 4}, zamStsOk},
                                           WidthCase{{9, 0, -3}, zamStsOk}, WidthCase{{20}, zamStsOk},
                                           WidthCase{{4, 0, 5}, zamStsVlcTable}, WidthCase{{0}, zamStsVlcTable},
                                           WidthCase{{-1, 9}, zamStsVlcTable}, WidthCase{{4, 4}, zamStsVlcTable},
                                           WidthCase{{3, 3}, zamStsVlcTable}));

TEST(VlcDecodeSpec, PrefixCollisionWhenTheShorterCodeComesFirst)
{
    const std::vector<int> widths = {1, 1};
    const std::vector<VlcEntry> shortFirst = {{1, 0b1, 1}, {2, 0b10, 2}};
    DecodeSpec a(shortFirst, widths);
    EXPECT_EQ(a.status, zamStsVlcTable);
    EXPECT_EQ(a.field(0), static_cast<int32_t>(kDecodeTagValue));  // failed part-way: tag already set
    // Entered the other way round, the shorter code takes its slot over.
    const std::vector<VlcEntry> longFirst = {{2, 0b10, 2}, {1, 0b1, 1}};
    EXPECT_EQ(DecodeSpec(longFirst, widths).status, zamStsOk);
}

TEST(VlcDecodeSpec, TableErrors)
{
    const std::vector<int> widths = {8};
    const std::vector<int> w32 = {32};
    int size = -1;
    std::vector<VlcEntry> t = {{1, 0, 1}};
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(t.data(), 0, widths.data(), 1, &size), zamStsVlcTable);
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(t.data(), -1, widths.data(), 1, &size), zamStsVlcTable);
    t = {{1, 0, 0}};
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(t.data(), 1, widths.data(), 1, &size), zamStsVlcTable);
    t = {{1, 0, 33}};
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(t.data(), 1, w32.data(), 1, &size), zamStsVlcTable);
    t = {{1, 0, 3}, {2, 1, -1}};
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(t.data(), 2, widths.data(), 1, &size), zamStsVlcTable);
    const auto unary = unaryCodes();
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(unary.data(), 10, widths.data(), 0, &size), zamStsVlcTable);
    // A 32-bit root would need 2^32 elements: too large for an int size.
    t = {{1, 0, 32}};
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(t.data(), 1, w32.data(), 1, &size), zamStsVlcTable);
    EXPECT_EQ(size, -1);
    // The same code in levels of 8 bits is fine.
    const std::vector<int> w8x4 = {8, 8, 8, 8};
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(t.data(), 1, w8x4.data(), 4, &size), zamStsOk);
    EXPECT_EQ(size, (257 * 4) * 16 / 8 + 160);
}

TEST(VlcDecodeSpec, NullPointersComeFirst)
{
    const auto table = fourTwoBitCodes();
    const int widths[] = {2};
    const int zero[] = {0};
    int size = -1;
    uint8_t mem[512];
    VlcDecodeSpec* spec = reinterpret_cast<VlcDecodeSpec*>(mem);
    VlcDecodeSpec* allocated = nullptr;
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(nullptr, 4, widths, 1, &size), zamStsNullPtr);
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(table.data(), 4, nullptr, 1, &size), zamStsNullPtr);
    EXPECT_EQ(zamsVLCDecodeGetSize_32s(table.data(), 0, zero, 1, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsVLCDecodeInit_32s(table.data(), 0, zero, 1, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsVLCDecodeInitAlloc_32s(table.data(), 4, widths, 1, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsVLCDecodeUTupleGetSize_32s(nullptr, 4, widths, 1, 0, 0, &size), zamStsNullPtr);
    EXPECT_EQ(zamsVLCDecodeUTupleInit_32s(table.data(), 4, widths, 1, 2, 1, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsVLCDecodeUTupleInitAlloc_32s(table.data(), 4, nullptr, 1, 2, 1, &allocated), zamStsNullPtr);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(allocated, nullptr);
    std::memset(mem, zamtest::kCanary, sizeof mem);
    EXPECT_EQ(zamsVLCDecodeInit_32s(table.data(), 0, widths, 1, spec), zamStsVlcTable);
    EXPECT_TRUE(zamtest::untouched(mem, sizeof mem));
}

TEST(VlcDecodeSpec, TupleChecks)
{
    const auto table = fourTwoBitCodes();
    const int widths[] = {2};
    const int zero[] = {0};
    int size = -1;
    // Element count or bits 0: zamStsBadArg ahead of the table errors.
    EXPECT_EQ(zamsVLCDecodeUTupleGetSize_32s(table.data(), 0, zero, 1, 0, 2, &size), zamStsBadArg);
    EXPECT_EQ(zamsVLCDecodeUTupleGetSize_32s(table.data(), 0, zero, 1, 2, 0, &size), zamStsBadArg);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(zamsVLCDecodeUTupleGetSize_32s(table.data(), 0, zero, 1, 2, 1, &size), zamStsVlcTable);
    // 2 x 1 bits: 2 + lenBits 2 + 1 = 5 bits, 8-bit elements, 5 entries.
    EXPECT_EQ(zamsVLCDecodeUTupleGetSize_32s(table.data(), 4, widths, 1, 2, 1, &size), zamStsOk);
    EXPECT_EQ(size, 5 + 176);
    // 4 x 8 bits + 3 > 32: zamStsBadArg, and the entry count is written (kept quirk).
    EXPECT_EQ(zamsVLCDecodeUTupleGetSize_32s(table.data(), 4, widths, 1, 4, 8, &size), zamStsBadArg);
    EXPECT_EQ(size, 5);
    // 29 bits + lenBits 2 + 1 = 32: allowed.
    EXPECT_EQ(zamsVLCDecodeUTupleGetSize_32s(table.data(), 4, widths, 1, 1, 29, &size), zamStsOk);
    EXPECT_EQ(size, 5 * 4 + 176);
    DecodeSpec tuple(table, {2}, 2, 1);
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
    ASSERT_NE(spec, nullptr);
    int32_t owner;
    std::memcpy(&owner, reinterpret_cast<uint8_t*>(spec) + 4, 4);
    EXPECT_EQ(owner, 1);
    // Decodes like an Init spec.
    BitSink bits(8);
    bits.put(0b1110, 4);
    bits.put(0b111111111, 9);
    uint8_t* p = bits.base;
    int offset = 0;
    int16_t out[2];
    ASSERT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out, 2, spec), zamStsOk);
    EXPECT_EQ(out[0], 4);
    EXPECT_EQ(out[1], 10);
    zamsVLCDecodeUTupleFree_32s(spec);  // either name releases it
    zamsVLCDecodeFree_32s(nullptr);

    // Free on caller memory clears the tag and releases nothing.
    DecodeSpec s(table, {9});
    ASSERT_EQ(s.status, zamStsOk);
    zamsVLCDecodeFree_32s(s.spec());
    EXPECT_EQ(s.field(0), 0);
    EXPECT_EQ(zamsVLCDecodeBlock_1u16s(&p, &offset, out, 1, s.spec()), zamStsVlcArg);
    // A failed InitAlloc stores nothing.
    const std::vector<VlcEntry> collide = {{1, 0b1, 1}, {2, 0b10, 2}};
    const int w11[] = {1, 1};
    spec = nullptr;
    EXPECT_EQ(zamsVLCDecodeInitAlloc_32s(collide.data(), 2, w11, 2, &spec), zamStsVlcTable);
    EXPECT_EQ(spec, nullptr);
}

// GetSize counts exactly the elements the build lays out, for the real code books
// under several level choices; the build writes nothing past them.
TEST(VlcDecodeSpec, SizesOfRealBooksMatchTheBuild)
{
    const std::vector<std::vector<int>> choices = {{32}, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
                                                   {4, 4, 4, 4, 4}, {6, 6, 6, 6}, {2, 8, 3, 9}};
    auto check = [&](const std::vector<VlcEntry>& table) {
        const int longest = std::max_element(table.begin(), table.end(), [](auto& a, auto& b) {
                                return a.length < b.length;
                            })->length;
        for (const auto& widths : choices) {
            std::vector<int> used;
            int sum = 0;
            for (int w : widths) {
                if (sum >= longest) break;
                used.push_back(std::min(w, longest - sum));
                sum += used.back();
            }
            DecodeSpec s(table, widths);
            ASSERT_EQ(s.status, zamStsOk);
            const int64_t entries = expectedEntries(table, used);
            const int bytes = s.elementBits() / 8;
            EXPECT_EQ(s.size, entries * bytes + 160);
            const uint8_t* end = s.table() + entries * bytes;
            EXPECT_TRUE(zamtest::untouched(end, s.mem + s.size - end));
        }
    };
    for (const auto& [number, book] : aacBooks()) {
        std::vector<VlcEntry> table;
        for (const auto& w : book.words) table.push_back({w.index, static_cast<int32_t>(w.code), w.length});
        check(table);
    }
    for (const auto& [number, t] : mp3Tables()) {
        std::vector<VlcEntry> table;
        for (const auto& w : t.words) table.push_back({w.index, static_cast<int32_t>(w.code), w.length});
        check(table);
    }
}
