// Encode specs, code writing, escapes and counting.
#include "vlc/vlc_internal.h"
#include "vlc_test_util.h"

using namespace vlctest;

namespace {

constexpr uint32_t kEncodeTagValue = 0x434D4100u + '_';

// Values -2..2: 0 "0", 1 "100", -1 "101", 2 "110", -2 "111".
std::vector<VlcEntry> smallCode() { return {{0, 0b0, 1}, {1, 0b100, 3}, {-1, 0b101, 3}, {2, 0b110, 3}, {-2, 0b111, 3}}; }

int32_t word32(const uint8_t* p, int byteOffset)
{
    int32_t v;
    std::memcpy(&v, p + byteOffset, 4);
    return v;
}

uint32_t bigEndianWord(const uint8_t* p)
{
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

}  // namespace

TEST(VlcEncodeSpec, SizeAndLayout)
{
    const auto table = smallCode();
    int size = 0;
    ASSERT_EQ(zamsVLCEncodeGetSize_32s(table.data(), 5, &size), zamStsOk);
    EXPECT_EQ(size, (4 + 8) * 4 + 132);
    for (size_t misalign : {0u, 5u, 63u}) {
        EncodeSpec s(table, misalign);
        ASSERT_EQ(s.status, zamStsOk);
        const uint8_t* h = s.mem + ((64 - (reinterpret_cast<uintptr_t>(s.mem) & 63)) & 63);
        const uint8_t* lengths;
        std::memcpy(&lengths, h, sizeof lengths);
        EXPECT_EQ(lengths, h + 64);
        EXPECT_EQ(word32(h, 8), 2);   // value offset
        EXPECT_EQ(word32(h, 12), 3);  // k
        EXPECT_EQ(word32(h, 16), 0);  // Init
        EXPECT_EQ(static_cast<uint32_t>(word32(h, 20)), kEncodeTagValue);
        const int expectedLengths[5] = {3, 3, 1, 3, 3};  // values -2..2
        const int expectedCodes[5] = {0b111, 0b101, 0b0, 0b100, 0b110};
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(word32(lengths, 4 * i), expectedLengths[i]);
            EXPECT_EQ(word32(lengths, 32 + 4 * i), expectedCodes[i]);
        }
        // Nothing else is written: lengths 5..7 keep the memory's bytes.
        EXPECT_TRUE(zamtest::untouched(lengths + 20, 12));
        EXPECT_TRUE(zamtest::untouched(h + 64 + 52, s.mem + s.size - (h + 64 + 52)));
    }
}

TEST(VlcEncodeSpec, CodesAreMaskedToTheirLength)
{
    const std::vector<VlcEntry> table = {{0, 0x7F, 2}, {1, -1, 32}, {3, 0x12345, 16}};
    EncodeSpec s(table);
    ASSERT_EQ(s.status, zamStsOk);
    const uint8_t* h = s.mem;
    const uint8_t* lengths;
    std::memcpy(&lengths, h, sizeof lengths);
    EXPECT_EQ(word32(h, 12), 3);  // range 3, range + 1 = 4 has 3 bits
    EXPECT_EQ(word32(lengths, 32 + 0), 3);
    EXPECT_EQ(word32(lengths, 32 + 4), 0);  // a 32-bit code is stored as 0
    EXPECT_EQ(word32(lengths, 32 + 12), 0x2345);
}

TEST(VlcEncodeSpec, ChecksInitAllocAndFree)
{
    const auto table = smallCode();
    int size = -1;
    uint8_t mem[256];
    std::memset(mem, zamtest::kCanary, sizeof mem);
    auto* spec = reinterpret_cast<VlcEncodeSpec*>(mem);
    VlcEncodeSpec* allocated = nullptr;
    EXPECT_EQ(zamsVLCEncodeGetSize_32s(nullptr, 5, &size), zamStsNullPtr);
    EXPECT_EQ(zamsVLCEncodeGetSize_32s(table.data(), 0, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsVLCEncodeGetSize_32s(table.data(), 0, &size), zamStsVlcArg);
    EXPECT_EQ(zamsVLCEncodeInit_32s(nullptr, 5, spec), zamStsNullPtr);
    EXPECT_EQ(zamsVLCEncodeInit_32s(table.data(), -2, spec), zamStsVlcArg);
    EXPECT_EQ(zamsVLCEncodeInitAlloc_32s(table.data(), 5, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsVLCEncodeInitAlloc_32s(table.data(), 0, &allocated), zamStsVlcArg);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(allocated, nullptr);
    EXPECT_TRUE(zamtest::untouched(mem, sizeof mem));
    // A range too wide for an int size.
    const std::vector<VlcEntry> wide = {{INT32_MIN, 0, 1}, {INT32_MAX, 1, 1}};
    EXPECT_EQ(zamsVLCEncodeGetSize_32s(wide.data(), 2, &size), zamStsVlcArg);

    ASSERT_EQ(zamsVLCEncodeInitAlloc_32s(table.data(), 5, &allocated), zamStsOk);
    ASSERT_NE(allocated, nullptr);
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

TEST(VlcEncode, OneCodeFillsTheRestOfTheWordWithOnes)
{
    EncodeSpec s(smallCode());
    BitSink bits(16, 0, 0x00);
    uint8_t* p = bits.base;
    int offset = 0;
    ASSERT_EQ(zamsVLCEncodeOne_16s1u(2, &p, &offset, s.spec()), zamStsOk);  // "110"
    EXPECT_EQ(bigEndianWord(bits.base), 0xDFFFFFFFu);
    EXPECT_EQ(p, bits.base);
    EXPECT_EQ(offset, 3);
    EXPECT_EQ(bits.base[4], 0);
}

TEST(VlcEncode, OneDoesNotCheckTheOffset)
{
    EncodeSpec s(smallCode());
    BitSink bits(16, 0, 0x00);
    uint8_t* p = bits.base;
    int offset = 9;
    ASSERT_EQ(zamsVLCEncodeOne_16s1u(-1, &p, &offset, s.spec()), zamStsOk);  // "101" from bit 9
    EXPECT_EQ(bits.get(9, 3), 0b101u);
    EXPECT_EQ(bits.get(0, 9), 0u);
    EXPECT_EQ(p, bits.base + 1);
    EXPECT_EQ(offset, 4);
    // The block writer rejects the same offset.
    const int16_t v = 1;
    offset = 9;
    p = bits.base;
    EXPECT_EQ(zamsVLCEncodeBlock_16s1u(&v, 1, &p, &offset, s.spec()), zamStsVlcArg);
    EXPECT_EQ(p, bits.base);
    EXPECT_EQ(offset, 9);
}

TEST(VlcEncode, CodeRunningIntoTheNextWord)
{
    // A 12-bit code at bit 26: 6 bits in the first word, 6 at the top of the next,
    // whose other 26 bits are its previous bytes read little-endian.
    const std::vector<VlcEntry> table = {{0, 0xABC, 12}};
    EncodeSpec s(table);
    BitSink bits(16, 0, 0x00);
    const uint8_t before[4] = {0x11, 0x22, 0x33, 0x44};
    std::memcpy(bits.base + 4, before, 4);
    bits.base[0] = 0xFF;
    uint8_t* p = bits.base + 3;
    int offset = 2;
    ASSERT_EQ(zamsVLCEncodeOne_16s1u(0, &p, &offset, s.spec()), zamStsOk);
    EXPECT_EQ(bigEndianWord(bits.base), 0xFF000000u | (0xABCu >> 6));
    EXPECT_EQ(bigEndianWord(bits.base + 4), ((0xABCu & 63) << 26) | (0x44332211u & 0x03FFFFFFu));
    EXPECT_EQ(p, bits.base + 4);
    EXPECT_EQ(offset, 6);
}

// The block writer leaves memory exactly as a run of single writes does.
TEST(VlcEncode, BlockMatchesSingleWrites)
{
    std::vector<VlcEntry> table;
    for (int v = -40; v <= 40; ++v) {
        const int length = 1 + ((v + 40) * 7) % 32;
        table.push_back({v, static_cast<int32_t>(0x9E3779B9u * static_cast<uint32_t>(v + 77)), length});
    }
    EncodeSpec s(table);
    std::uniform_int_distribution<int> value(-40, 40);
    for (int trial = 0; trial < 64; ++trial) {
        const int n = 1 + trial * 3;
        std::vector<int16_t> src(n);
        for (auto& v : src) v = static_cast<int16_t>(value(zamtest::rng()));
        const size_t start = static_cast<size_t>(trial % 32);
        BitSink a(512, 0, 0x3C), b(512, 0, 0x3C);
        uint8_t* pa = a.base + start / 8;
        uint8_t* pb = b.base + start / 8;
        int oa = static_cast<int>(start % 8), ob = oa;
        ASSERT_EQ(zamsVLCEncodeBlock_16s1u(src.data(), n, &pa, &oa, s.spec()), zamStsOk);
        for (int16_t v : src) ASSERT_EQ(zamsVLCEncodeOne_16s1u(v, &pb, &ob, s.spec()), zamStsOk);
        EXPECT_EQ(pa - a.base, pb - b.base);
        EXPECT_EQ(oa, ob);
        EXPECT_EQ(std::memcmp(a.base - 64, b.base - 64, 512 + 128), 0) << "trial " << trial;
    }
}

TEST(VlcEncode, AacEscapeWords)
{
    // Key table: every (x', y') with x', y' in -16..16; codes are 6 bits of the key.
    std::vector<VlcEntry> table;
    for (int x = -16; x <= 16; ++x)
        for (int y = -16; y <= 16; ++y) table.push_back({x * 64 + y, (x * 64 + y) & 63, 6});
    EncodeSpec s(table);
    const int16_t src[] = {16, 0, 8191, -20};
    BitSink bits(32);
    uint8_t* p = bits.base;
    int offset = 0;
    ASSERT_EQ(zamsVLCEncodeEscBlock_AAC_16s1u(src, 5, &p, &offset, s.spec()), zamStsOk);
    BitSink expect(32);
    expect.put((16 * 64) & 63, 6);
    expect.put(0b00000, 5);            // 16: a zero and four zero bits
    expect.put((16 * 64 - 16) & 63, 6);
    expect.put(0b111111110, 9);        // 8191: eight ones, a zero,
    expect.put(0xFFF, 12);             //       twelve bits
    expect.put(0b0, 1);                // 20: a zero,
    expect.put(0b0100, 4);             //     four bits
    ASSERT_EQ(expect.bit, 43u);
    EXPECT_EQ(p, bits.base + 5);
    EXPECT_EQ(offset, 3);
    for (size_t at = 0; at < 43; at += 11) {
        const int n = static_cast<int>(std::min<size_t>(11, 43 - at));
        EXPECT_EQ(bits.get(at, n), expect.get(at, n)) << "bit " << at;
    }
    int count = 0;
    ASSERT_EQ(zamsVLCCountEscBits_AAC_16s32s(src, 5, &count, s.spec()), zamStsOk);
    EXPECT_EQ(count, 43);
}

TEST(VlcEncode, Mp3SignBitsMoveBehindTheLinbits)
{
    // Key table with sign bits: code = 4 bits of |x|, 4 bits of |y|, then the signs.
    std::vector<VlcEntry> table;
    for (int x = -15; x <= 15; ++x)
        for (int y = -15; y <= 15; ++y) {
            uint32_t code = (static_cast<uint32_t>(std::abs(x)) << 4) | static_cast<uint32_t>(std::abs(y));
            int length = 8;
            for (int v : {x, y})
                if (v != 0) {
                    code = (code << 1) | (v < 0 ? 1u : 0u);
                    ++length;
                }
            table.push_back({x * 32 + y, static_cast<int32_t>(code), length});
        }
    EncodeSpec s(table);
    struct Case {
        int16_t x, y;
        std::vector<std::pair<uint32_t, int>> pieces;
    };
    const std::vector<Case> cases = {
        {17, -3, {{0xF3, 8}, {0b10, 2}, {0, 1}, {1, 1}}},              // the code of (15, -3) without its signs
        {-15, 0, {{0xF0, 8}, {0b00, 2}, {1, 1}}},
        {-16, 18, {{0xFF, 8}, {0b01, 2}, {1, 1}, {0b11, 2}, {0, 1}}},
        {-2, 19, {{0x2F, 8}, {1, 1}, {0b00, 2}, {0, 1}}},             // x's sign stays in the code
        {0, -15, {{0x0F, 8}, {0b00, 2}, {1, 1}}},
        {3, -4, {{0x34, 8}, {0, 1}, {1, 1}}},
    };
    for (const auto& c : cases) {
        const int16_t src[2] = {c.x, c.y};
        BitSink bits(16);
        BitSink expect(16);
        for (const auto& [v, n] : c.pieces) expect.put(v, n);
        uint8_t* p = bits.base;
        int offset = 0;
        ASSERT_EQ(zamsVLCEncodeEscBlock_MP3_16s1u(src, 2, 2, &p, &offset, s.spec()), zamStsOk);
        const int n = static_cast<int>(expect.bit);
        EXPECT_EQ(bits.get(0, n), expect.get(0, n)) << c.x << "," << c.y;
        EXPECT_EQ(static_cast<int>((p - bits.base) * 8 + offset), n);
        int count = 0;
        ASSERT_EQ(zamsVLCCountEscBits_MP3_16s32s(src, 2, 2, &count, s.spec()), zamStsOk);
        EXPECT_EQ(count, n);
    }
}

TEST(VlcEncode, CheckOrder)
{
    EncodeSpec good(smallCode());
    EncodeSpec cleared(smallCode());
    zamsVLCEncodeFree_32s(cleared.spec());
    const int16_t src[4] = {0, 1, 2, -2};
    BitSink bits(16, 0, zamtest::kCanary);
    uint8_t* const start = bits.base + 2;
    uint8_t* p = start;
    uint8_t* nullStream = nullptr;
    int offset = 3;
    int count = -1;
    auto unchanged = [&] {
        EXPECT_EQ(p, start);
        EXPECT_TRUE(zamtest::untouched(bits.raw));
    };
    // One: pointers, then tag; no offset check.
    EXPECT_EQ(zamsVLCEncodeOne_16s1u(0, nullptr, &offset, good.spec()), zamStsNullPtr);
    EXPECT_EQ(zamsVLCEncodeOne_16s1u(0, &nullStream, &offset, good.spec()), zamStsNullPtr);
    EXPECT_EQ(zamsVLCEncodeOne_16s1u(0, &p, nullptr, cleared.spec()), zamStsNullPtr);
    EXPECT_EQ(zamsVLCEncodeOne_16s1u(0, &p, &offset, nullptr), zamStsNullPtr);
    EXPECT_EQ(zamsVLCEncodeOne_16s1u(0, &p, &offset, cleared.spec()), zamStsVlcArg);
    // Block: pointers, srcLen, offset, tag - all zamStsVlcArg after the pointers.
    EXPECT_EQ(zamsVLCEncodeBlock_16s1u(nullptr, 0, &p, &offset, cleared.spec()), zamStsNullPtr);
    EXPECT_EQ(zamsVLCEncodeBlock_16s1u(src, 0, &p, &offset, good.spec()), zamStsVlcArg);
    offset = 8;
    EXPECT_EQ(zamsVLCEncodeBlock_16s1u(src, 4, &p, &offset, good.spec()), zamStsVlcArg);
    offset = 3;
    EXPECT_EQ(zamsVLCEncodeBlock_16s1u(src, 4, &p, &offset, cleared.spec()), zamStsVlcArg);
    // Escape blocks: pointers, offset (zamStsBitOffset), tag (zamStsContextMismatch), linbits.
    for (int which = 0; which < 2; ++which) {
        auto call = [&](const int16_t* s, uint8_t** pp, int* o, const VlcEncodeSpec* spec, int linbits = 2) {
            return which == 0 ? zamsVLCEncodeEscBlock_AAC_16s1u(s, 4, pp, o, spec)
                              : zamsVLCEncodeEscBlock_MP3_16s1u(s, 4, linbits, pp, o, spec);
        };
        offset = 9;
        EXPECT_EQ(call(nullptr, &p, &offset, cleared.spec()), zamStsNullPtr);
        EXPECT_EQ(call(src, &nullStream, &offset, cleared.spec()), zamStsNullPtr);
        EXPECT_EQ(call(src, &p, &offset, cleared.spec()), zamStsBitOffset);
        offset = -1;
        EXPECT_EQ(call(src, &p, &offset, good.spec()), zamStsBitOffset);
        offset = 3;
        EXPECT_EQ(call(src, &p, &offset, cleared.spec(), 99), zamStsContextMismatch);
        if (which == 1) EXPECT_EQ(call(src, &p, &offset, good.spec(), 32), zamStsBadArg);
    }
    unchanged();
    // Counts.
    EXPECT_EQ(zamsVLCCountBits_16s32s(nullptr, 0, &count, cleared.spec()), zamStsNullPtr);
    EXPECT_EQ(zamsVLCCountBits_16s32s(src, 4, nullptr, good.spec()), zamStsNullPtr);
    EXPECT_EQ(zamsVLCCountBits_16s32s(src, 0, &count, cleared.spec()), zamStsVlcArg);
    EXPECT_EQ(zamsVLCCountBits_16s32s(src, 4, &count, cleared.spec()), zamStsVlcArg);
    EXPECT_EQ(zamsVLCCountEscBits_AAC_16s32s(src, 4, nullptr, cleared.spec()), zamStsNullPtr);
    EXPECT_EQ(zamsVLCCountEscBits_AAC_16s32s(src, 4, &count, cleared.spec()), zamStsContextMismatch);
    EXPECT_EQ(zamsVLCCountEscBits_MP3_16s32s(nullptr, 4, 2, &count, good.spec()), zamStsNullPtr);
    EXPECT_EQ(zamsVLCCountEscBits_MP3_16s32s(src, 4, -1, &count, cleared.spec()), zamStsContextMismatch);
    EXPECT_EQ(zamsVLCCountEscBits_MP3_16s32s(src, 4, -1, &count, good.spec()), zamStsBadArg);
    EXPECT_EQ(count, -1);
    // The escape counts take srcLen as the escape blocks do: fewer than 2 values count 0.
    EXPECT_EQ(zamsVLCCountEscBits_AAC_16s32s(src, 1, &count, good.spec()), zamStsOk);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(zamsVLCCountBits_16s32s(src, 4, &count, good.spec()), zamStsOk);
    EXPECT_EQ(count, 3 + 3 + 1 + 3);
}

// The AVX2 counting kernels and their scalar twins agree on random input,
// including values beyond the escape thresholds and ragged tails.
TEST(VlcCount, Avx2MatchesScalar)
{
    std::vector<VlcEntry> table;
    for (int key = -1100; key <= 1100; ++key) table.push_back({key, key & 0xFF, 1 + ((key + 1100) * 13) % 19});
    EncodeSpec s(table);
    const auto* h = zam::vlc::encodeHeader(s.spec());
    const zam::vlc::EncodeView view = zam::vlc::encodeView(h);
    std::uniform_int_distribution<int> small(-20, 20), any(-32768, 32767), coin(0, 9);
    for (int n : {0, 1, 7, 8, 15, 16, 17, 63, 64, 1001}) {
        std::vector<int16_t> src(2 * n + 2);
        for (auto& v : src) v = static_cast<int16_t>(coin(zamtest::rng()) == 0 ? any(zamtest::rng()) : small(zamtest::rng()));
        std::vector<int16_t> plain(src.size());
        for (size_t i = 0; i < src.size(); ++i) plain[i] = static_cast<int16_t>(src[i] % 1000);
        EXPECT_EQ(zam::vlc::countBitsAvx2(plain.data(), 2 * n + 1, view),
                  zam::vlc::countBitsScalar(plain.data(), 2 * n + 1, view));
        EXPECT_EQ(zam::vlc::countEscBitsAacAvx2(src.data(), n, view), zam::vlc::countEscBitsAacScalar(src.data(), n, view));
        for (int linbits : {0, 3, 13})
            EXPECT_EQ(zam::vlc::countEscBitsMp3Avx2(src.data(), n, linbits, view),
                      zam::vlc::countEscBitsMp3Scalar(src.data(), n, linbits, view));
    }
}
