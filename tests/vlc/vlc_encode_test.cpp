// Code writing, counting, check order, and the AVX2 counting kernels. (The escape
// words' layout is pinned by the decoders' hand-worked streams and reaches the
// encoders through the round trips.)
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
