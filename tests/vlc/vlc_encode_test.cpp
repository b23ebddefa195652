// Code writing, escapes, counting, check order, and the AVX2 counting kernels.
#include "vlc/vlc_internal.h"
#include "vlc_test_util.h"

using namespace vlctest;

namespace {

// Values -2..2: 0 "0", 1 "100", -1 "101", 2 "110", -2 "111".
std::vector<VlcEntry> smallCode() { return {{0, 0b0, 1}, {1, 0b100, 3}, {-1, 0b101, 3}, {2, 0b110, 3}, {-2, 0b111, 3}}; }

uint32_t bigEndianWord(const uint8_t* p)
{
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

}  // namespace

TEST(VlcEncode, OneWritesWholeWords)
{
    EncodeSpec s(smallCode());
    BitSink bits(16);
    uint8_t* p = bits.base;
    int offset = 0;
    ASSERT_EQ(zamsVLCEncodeOne_16s1u(2, &p, &offset, s.spec()), zamStsOk);  // "110", the rest of the word ones
    EXPECT_EQ(bigEndianWord(bits.base), 0xDFFFFFFFu);
    EXPECT_EQ(bits.position(p, offset), 3);
    EXPECT_EQ(bits.base[4], 0);
    // No offset check: "101" from bit 9.
    BitSink nine(16);
    p = nine.base;
    offset = 9;
    ASSERT_EQ(zamsVLCEncodeOne_16s1u(-1, &p, &offset, s.spec()), zamStsOk);
    EXPECT_EQ(nine.get(0, 12), 0b101u);
    EXPECT_EQ(nine.position(p, offset), 12);
    EXPECT_EQ(p, nine.base + 1);
    // A 12-bit code at bit 26: 6 bits in the first word, 6 at the top of the next, whose other
    // 26 bits are its previous bytes read little-endian.
    EncodeSpec t({{0, 0xABC, 12}});
    BitSink across(16);
    const uint8_t before[4] = {0x11, 0x22, 0x33, 0x44};
    std::memcpy(across.base + 4, before, 4);
    across.base[0] = 0xFF;
    p = across.base + 3;
    offset = 2;
    ASSERT_EQ(zamsVLCEncodeOne_16s1u(0, &p, &offset, t.spec()), zamStsOk);
    EXPECT_EQ(bigEndianWord(across.base), 0xFF000000u | (0xABCu >> 6));
    EXPECT_EQ(bigEndianWord(across.base + 4), ((0xABCu & 63) << 26) | (0x44332211u & 0x03FFFFFFu));
    EXPECT_EQ(across.position(p, offset), 38);
}

// The block writer leaves memory exactly as a run of single writes does.
TEST(VlcEncode, BlockMatchesSingleWrites)
{
    std::vector<VlcEntry> table;
    for (int v = -40; v <= 40; ++v)
        table.push_back({v, static_cast<int32_t>(0x9E3779B9u * static_cast<uint32_t>(v + 77)), 1 + ((v + 40) * 7) % 32});
    EncodeSpec s(table);
    std::uniform_int_distribution<int> value(-40, 40);
    for (int trial = 0; trial < 64; ++trial) {
        std::vector<int16_t> src(1 + trial * 3);
        for (auto& v : src) v = static_cast<int16_t>(value(zamtest::rng()));
        BitSink a(512, 0, 0x3C), b(512, 0, 0x3C);
        uint8_t *pa, *pb;
        int oa, ob;
        a.cursor(trial % 32, pa, oa);
        b.cursor(trial % 32, pb, ob);
        ASSERT_EQ(zamsVLCEncodeBlock_16s1u(src.data(), static_cast<int>(src.size()), &pa, &oa, s.spec()), zamStsOk);
        for (int16_t v : src) ASSERT_EQ(zamsVLCEncodeOne_16s1u(v, &pb, &ob, s.spec()), zamStsOk);
        EXPECT_EQ(a.position(pa, oa), b.position(pb, ob));
        EXPECT_EQ(std::memcmp(a.base - 64, b.base - 64, 512 + 128), 0) << "trial " << trial;
    }
}

TEST(VlcEncode, AacEscapeWords)
{
    // Key table: every (x', y') in -16..16; codes are 6 bits of the key.
    std::vector<VlcEntry> table;
    for (int x = -16; x <= 16; ++x)
        for (int y = -16; y <= 16; ++y) table.push_back({x * 64 + y, (x * 64 + y) & 63, 6});
    EncodeSpec s(table);
    const int16_t src[] = {16, 0, 8191, -20};
    BitSink bits(32), expect(32);
    uint8_t* p = bits.base;
    int offset = 0;
    ASSERT_EQ(zamsVLCEncodeEscBlock_AAC_16s1u(src, 5, &p, &offset, s.spec()), zamStsOk);  // odd: 2 pairs
    expect.put((16 * 64) & 63, 6);
    expect.put("0 0000");               // 16: a zero and four zero bits
    expect.put((16 * 64 - 16) & 63, 6);
    expect.put("111111110 111111111111  0 0100");  // 8191: eight ones, a zero, twelve bits; 20
    ASSERT_EQ(expect.bit, 43u);
    EXPECT_EQ(bits.position(p, offset), 43);
    for (size_t at = 0; at < 43; at += 11)
        EXPECT_EQ(bits.get(at, static_cast<int>(std::min<size_t>(11, 43 - at))),
                  expect.get(at, static_cast<int>(std::min<size_t>(11, 43 - at))));
    int count = 0;
    ASSERT_EQ(zamsVLCCountEscBits_AAC_16s32s(src, 5, &count, s.spec()), zamStsOk);
    EXPECT_EQ(count, 43);
}

TEST(VlcEncode, Mp3SignBitsMoveBehindTheLinbits)
{
    // Key table with sign bits: code = 4 bits of |x|, 4 bits of |y|, then the signs.
    std::vector<VlcEntry> table;
    for (int x = -15; x <= 15; ++x)
        for (int y = -15; y <= 15; ++y)
            table.push_back(withSignBits(x * 32 + y, {0, 8, static_cast<uint32_t>(std::abs(x) << 4 | std::abs(y))}, {x, y}));
    EncodeSpec s(table);
    const struct {
        int16_t x, y;
        const char* bits;  // linbits 2
    } cases[] = {
        {17, -3, "1111 0011  10 0  1"},  // the code of (15, -3) without its signs, x's linbits and sign, y's sign
        {-15, 0, "1111 0000  00 1"},
        {-16, 18, "1111 1111  01 1  11 0"},
        {-2, 19, "0010 1111 1  00 0"},  // x's sign stays in the code
        {0, -15, "0000 1111  00 1"},
        {3, -4, "0011 0100 0 1"},
    };
    for (const auto& c : cases) {
        const int16_t src[2] = {c.x, c.y};
        BitSink bits(16), expect(16);
        expect.put(c.bits);
        uint8_t* p = bits.base;
        int offset = 0, count = 0;
        ASSERT_EQ(zamsVLCEncodeEscBlock_MP3_16s1u(src, 2, 2, &p, &offset, s.spec()), zamStsOk);
        const int n = static_cast<int>(expect.bit);
        EXPECT_EQ(bits.get(0, n), expect.get(0, n)) << c.x << "," << c.y;
        EXPECT_EQ(bits.position(p, offset), n);
        ASSERT_EQ(zamsVLCCountEscBits_MP3_16s32s(src, 2, 2, &count, s.spec()), zamStsOk);
        EXPECT_EQ(count, n);
    }
}

// Argument checks: first failure wins; nothing is written, the cursor stays.
TEST(VlcEncode, CheckOrder)
{
    EncodeSpec good(smallCode()), cleared(smallCode());
    zamsVLCEncodeFree_32s(cleared.spec());
    const VlcEncodeSpec *g = good.spec(), *x = cleared.spec();
    const int16_t src[4] = {0, 1, 2, -2};
    BitSink bits(16, 0, zamtest::kCanary);
    uint8_t* const start = bits.base + 2;
    uint8_t* p = start;
    uint8_t* none = nullptr;
    int o3 = 3, o8 = 8, o9 = 9, oNeg = -1, count = -1;
    const std::vector<std::pair<ZamStatus, ZamStatus>> calls = {
        // One: pointers, then the tag; no offset check.
        {zamsVLCEncodeOne_16s1u(0, nullptr, &o3, g), zamStsNullPtr},
        {zamsVLCEncodeOne_16s1u(0, &none, &o3, g), zamStsNullPtr},
        {zamsVLCEncodeOne_16s1u(0, &p, nullptr, x), zamStsNullPtr},
        {zamsVLCEncodeOne_16s1u(0, &p, &o3, nullptr), zamStsNullPtr},
        {zamsVLCEncodeOne_16s1u(0, &p, &o3, x), zamStsVlcArg},
        // Block: pointers, srcLen, offset, tag - all zamStsVlcArg after the pointers.
        {zamsVLCEncodeBlock_16s1u(nullptr, 0, &p, &o3, x), zamStsNullPtr},
        {zamsVLCEncodeBlock_16s1u(src, 0, &p, &o3, g), zamStsVlcArg},
        {zamsVLCEncodeBlock_16s1u(src, 4, &p, &o8, g), zamStsVlcArg},
        {zamsVLCEncodeBlock_16s1u(src, 4, &p, &o9, g), zamStsVlcArg},
        {zamsVLCEncodeBlock_16s1u(src, 4, &p, &o3, x), zamStsVlcArg},
        // Escape blocks: pointers, offset (zamStsBitOffset), tag (zamStsContextMismatch), linbits.
        {zamsVLCEncodeEscBlock_AAC_16s1u(nullptr, 4, &p, &o9, x), zamStsNullPtr},
        {zamsVLCEncodeEscBlock_AAC_16s1u(src, 4, &none, &o9, x), zamStsNullPtr},
        {zamsVLCEncodeEscBlock_AAC_16s1u(src, 4, &p, &o9, x), zamStsBitOffset},
        {zamsVLCEncodeEscBlock_AAC_16s1u(src, 4, &p, &oNeg, g), zamStsBitOffset},
        {zamsVLCEncodeEscBlock_AAC_16s1u(src, 4, &p, &o3, x), zamStsContextMismatch},
        {zamsVLCEncodeEscBlock_MP3_16s1u(nullptr, 4, 2, &p, &o9, x), zamStsNullPtr},
        {zamsVLCEncodeEscBlock_MP3_16s1u(src, 4, 2, &none, &o9, x), zamStsNullPtr},
        {zamsVLCEncodeEscBlock_MP3_16s1u(src, 4, 99, &p, &o9, x), zamStsBitOffset},
        {zamsVLCEncodeEscBlock_MP3_16s1u(src, 4, 2, &p, &oNeg, g), zamStsBitOffset},
        {zamsVLCEncodeEscBlock_MP3_16s1u(src, 4, 99, &p, &o3, x), zamStsContextMismatch},
        {zamsVLCEncodeEscBlock_MP3_16s1u(src, 4, 32, &p, &o3, g), zamStsBadArg},
        // Counts.
        {zamsVLCCountBits_16s32s(nullptr, 0, &count, x), zamStsNullPtr},
        {zamsVLCCountBits_16s32s(src, 4, nullptr, g), zamStsNullPtr},
        {zamsVLCCountBits_16s32s(src, 0, &count, x), zamStsVlcArg},
        {zamsVLCCountBits_16s32s(src, 4, &count, x), zamStsVlcArg},
        {zamsVLCCountEscBits_AAC_16s32s(src, 4, nullptr, x), zamStsNullPtr},
        {zamsVLCCountEscBits_AAC_16s32s(src, 4, &count, x), zamStsContextMismatch},
        {zamsVLCCountEscBits_MP3_16s32s(nullptr, 4, 2, &count, g), zamStsNullPtr},
        {zamsVLCCountEscBits_MP3_16s32s(src, 4, -1, &count, x), zamStsContextMismatch},
        {zamsVLCCountEscBits_MP3_16s32s(src, 4, -1, &count, g), zamStsBadArg},
    };
    for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].first, calls[i].second) << "call " << i;
    EXPECT_EQ(p, start);
    EXPECT_EQ(o3, 3);
    EXPECT_TRUE(zamtest::untouched(bits.raw));
    EXPECT_EQ(count, -1);
    // The escape counts take srcLen as the escape blocks do: fewer than 2 values count 0.
    EXPECT_EQ(zamsVLCCountEscBits_AAC_16s32s(src, 1, &count, g), zamStsOk);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(zamsVLCCountBits_16s32s(src, 4, &count, g), zamStsOk);
    EXPECT_EQ(count, 1 + 3 + 3 + 3);
}

// The AVX2 counting kernels and their scalar twins agree on random input,
// including values beyond the escape thresholds and ragged tails.
TEST(VlcCount, Avx2MatchesScalar)
{
    std::vector<VlcEntry> table;
    for (int key = -1100; key <= 1100; ++key) table.push_back({key, key & 0xFF, 1 + ((key + 1100) * 13) % 19});
    EncodeSpec s(table);
    const zam::vlc::EncodeView view = zam::vlc::encodeView(zam::vlc::encodeHeader(s.spec()));
    std::uniform_int_distribution<int> small(-20, 20), any(-32768, 32767), coin(0, 9);
    for (int n : {0, 1, 7, 8, 15, 16, 17, 63, 64, 1001}) {
        std::vector<int16_t> src(2 * n + 2), plain(2 * n + 2);
        for (size_t i = 0; i < src.size(); ++i) {
            src[i] = static_cast<int16_t>(coin(zamtest::rng()) == 0 ? any(zamtest::rng()) : small(zamtest::rng()));
            plain[i] = static_cast<int16_t>(src[i] % 1000);
        }
        EXPECT_EQ(zam::vlc::countBitsAvx2(plain.data(), 2 * n + 1, view),
                  zam::vlc::countBitsScalar(plain.data(), 2 * n + 1, view));
        EXPECT_EQ(zam::vlc::countEscBitsAacAvx2(src.data(), n, view), zam::vlc::countEscBitsAacScalar(src.data(), n, view));
        for (int linbits : {0, 3, 13})
            EXPECT_EQ(zam::vlc::countEscBitsMp3Avx2(src.data(), n, linbits, view),
                      zam::vlc::countEscBitsMp3Scalar(src.data(), n, linbits, view));
    }
}
