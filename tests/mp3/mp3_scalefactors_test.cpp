// Scale factors: hand-built streams for the array layouts, scfsi reuse, the MPEG-2
// length cases and intensity markers, check order, and pack/unpack round trips.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <random>
#include <vector>

#include "mp3_bits.h"
#include "test_support.h"
#include "zamac.h"

namespace {

using zamtest::kCanary;

Mp3FrameHeader header(int id, int modeExtension = 0)
{
    Mp3FrameHeader h{};
    h.ID = id;
    h.layer = 1;
    h.mode = 1;
    h.mode_extension = modeExtension;
    return h;
}

Mp3SideInfo granule(int sfc, int blockType = 0, int mixed = 0)
{
    Mp3SideInfo si{};
    si.scalefac_compress = sfc;
    si.window_switching_flag = blockType != 0;
    si.block_type = blockType;
    si.mixed_block_flag = mixed;
    return si;
}

struct Unpacked {
    ZamStatus status;
    int64_t bits;  // cursor movement
    int8_t sf[48];
};

Unpacked unpack(const std::vector<uint8_t>& stream, int offset, Mp3SideInfo& si, const Mp3FrameHeader& h,
                const int32_t* scfsi, int gr, int ch, const int8_t* initial)
{
    Unpacked u;
    std::memcpy(u.sf, initial, sizeof u.sf);
    const uint8_t* p = stream.data();
    int32_t off = offset;
    u.status = zamsUnpackScaleFactors_MP3_1u8s(&p, &off, u.sf, &si, scfsi, &h, gr, ch);
    u.bits = (p - stream.data()) * 8 + off - offset;
    return u;
}

const int32_t kNoScfsi[4] = {0, 0, 0, 0};

// A hand-worked granule: groups of values read in stream order (first array index, count,
// bit length); [zeroFrom, zeroTo) are cleared, every other entry keeps the caller's value.
struct Group {
    int first, count, length;
};
struct SfCase {
    const char* name;
    int id, modeExtension, sfc, blockType, mixed, scfsiMask, gr, ch;
    std::vector<Group> groups;
    int zeroFrom, zeroTo;
    bool markers;  // the largest value of each length comes back negated (intensity positions)
    int preflagIn, preflagOut, mixedOut;
};

const SfCase kCases[] = {
    {"Mpeg1CompressZeroReadsNothing", 1, 0, 0, 0, 0, 0, 0, 0, {}, 0, 22, false, 0, 0, 0},
    {"Mpeg1LongSlen3And1", 1, 0, 11, 0, 0, 0, 0, 0, {{0, 11, 3}, {11, 10, 1}}, 21, 22, false, 0, 0, 0},
    {"Mpeg1ScfsiReusesEverything", 1, 0, 15, 0, 0, 15, 1, 0, {}, 21, 22, false, 0, 0, 0},
    {"Mpeg1ScfsiReusesGroups1And3", 1, 0, 15, 0, 0, 0b0101, 1, 0, {{0, 6, 4}, {11, 5, 3}}, 21, 22, false, 0, 0, 0},
    {"Mpeg1Granule0IgnoresScfsi", 1, 0, 15, 0, 0, 15, 0, 0, {{0, 11, 4}, {11, 10, 3}}, 21, 22, false, 0, 0, 0},
    {"Mpeg1ShortIgnoresScfsi", 1, 0, 15, 2, 0, 15, 1, 0, {{0, 18, 4}, {18, 18, 3}}, 36, 39, false, 0, 0, 0},
    {"Mpeg1Mixed", 1, 0, 10, 2, 1, 0, 0, 1, {{0, 17, 2}, {17, 18, 3}}, 35, 38, false, 0, 0, 1},
    {"Mpeg2LongPreflagReadsNothing", 0, 0, 500, 0, 0, 0, 0, 0, {}, 0, 24, false, 0, 1, 0},
    // 341 < 400: slen (341 >> 4) / 5 = 4, 21 % 5 = 1, (341 & 15) >> 2 = 1, 341 & 3 = 1;
    // partitions 6, 5, 5, 5. Intensity on, but channel 0: no markers.
    {"Mpeg2Normal", 0, 3, 341, 0, 0, 0, 0, 0, {{0, 6, 4}, {6, 15, 1}}, 21, 24, false, 1, 0, 0},
    // 400 <= 450 < 500: v = 50, slen (50 >> 2) / 5 = 2, 12 % 5 = 2, 50 & 3 = 2, 0; short
    // partitions 9, 9, 12, 6.
    {"Mpeg2ShortPartitions", 0, 0, 450, 2, 0, 0, 0, 0, {{0, 30, 2}}, 30, 39, false, 0, 0, 0},
    // isc 121: slen 121 / 36 = 3, (121 % 36) / 6 = 2, 13 % 6 = 1; partitions 7, 7, 7.
    {"Mpeg2IntensityMarkers", 0, 1, 243, 0, 0, 0, 0, 1, {{0, 7, 3}, {7, 7, 2}, {14, 7, 1}}, 21, 24, true, 1, 0, 0},
    {"Mpeg2IntensityLengthsZero", 0, 1, 1, 0, 0, 0, 0, 1, {}, 0, 24, true, 0, 0, 0},
    // 505: slen 1, 2, 0, 0 with preflag; mixed flag 3 is reduced to 1: partitions 15, 18.
    {"Mpeg2MixedFlagReduced", 0, 0, 505, 2, 3, 0, 0, 0, {{0, 15, 1}, {15, 18, 2}}, 33, 36, false, 0, 1, 1},
};

class Mp3ScaleFactorsHand : public ::testing::TestWithParam<SfCase> {};

TEST_P(Mp3ScaleFactorsHand, ValuesBitsAndSideInfo)
{
    const SfCase& c = GetParam();
    for (const int offset : {0, 5}) {
        int8_t initial[48], expected[48];
        for (int i = 0; i < 48; ++i) expected[i] = initial[i] = static_cast<int8_t>(100 + i);
        mp3test::Bits b(offset);
        int k = 0, bits = 0;
        for (const Group& g : c.groups)
            for (int j = 0; j < g.count; ++j, ++k) {
                const int max = (1 << g.length) - 1, v = (k * 7 + 3) & max;
                b.put(static_cast<uint32_t>(v), g.length);
                bits += g.length;
                expected[g.first + j] = static_cast<int8_t>(c.markers && v == max ? -v : v);
            }
        b.put(0xFFFFFFFFu, 32);  // anything read beyond the granule shows
        for (int i = c.zeroFrom; i < c.zeroTo; ++i) expected[i] = 0;
        const int32_t scfsi[4] = {c.scfsiMask >> 3 & 1, c.scfsiMask >> 2 & 1, c.scfsiMask >> 1 & 1, c.scfsiMask & 1};
        Mp3SideInfo si = granule(c.sfc, c.blockType, c.mixed);
        si.preflag = c.preflagIn;
        const Unpacked u = unpack(b.bytes(), offset, si, header(c.id, c.modeExtension), scfsi, c.gr, c.ch, initial);
        ASSERT_EQ(u.status, zamStsOk);
        EXPECT_EQ(u.bits, bits);
        for (int i = 0; i < 48; ++i) EXPECT_EQ(u.sf[i], expected[i]) << "entry " << i;
        if (c.id == 0) EXPECT_EQ(si.preflag, c.preflagOut);
        EXPECT_EQ(si.mixed_block_flag, c.mixedOut);
    }
}

INSTANTIATE_TEST_SUITE_P(Mp3, Mp3ScaleFactorsHand, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Mp3ScaleFactors, UnpackCheckOrderAndNothingWritten)
{
    std::vector<uint8_t> stream(16, 0x55);
    const Mp3FrameHeader h1 = header(1), h2bad = header(0, 4);
    auto sf = zamtest::canaryVector<int8_t>(48);
    const uint8_t *p = stream.data(), *none = nullptr;
    int32_t o0 = 0, o8 = 8, oNeg = -1;
    Mp3SideInfo si = granule(16), neg = granule(-1), big2 = granule(512), ok2 = granule(16);  // 16: bad for MPEG-1 only
    int8_t* d = sf.data();
    const std::pair<ZamStatus, ZamStatus> calls[] = {
        {zamsUnpackScaleFactors_MP3_1u8s(nullptr, &o0, d, &si, kNoScfsi, &h1, 0, 0), zamStsNullPtr},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, nullptr, d, &si, kNoScfsi, &h1, 0, 0), zamStsNullPtr},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o0, nullptr, &si, kNoScfsi, &h1, 0, 0), zamStsNullPtr},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o0, d, nullptr, kNoScfsi, &h1, 0, 0), zamStsNullPtr},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o0, d, &si, nullptr, &h1, 0, 0), zamStsNullPtr},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o0, d, &si, kNoScfsi, nullptr, 0, 0), zamStsNullPtr},
        {zamsUnpackScaleFactors_MP3_1u8s(&none, &o0, d, &si, kNoScfsi, &h1, 0, 0), zamStsNullPtr},
        // Bad arguments before the side information.
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o8, d, &si, kNoScfsi, &h1, 0, 0), zamStsBadArg},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &oNeg, d, &si, kNoScfsi, &h1, 0, 0), zamStsBadArg},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o0, d, &si, kNoScfsi, &h1, 2, 0), zamStsBadArg},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o0, d, &si, kNoScfsi, &h1, 0, -1), zamStsBadArg},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o0, d, &si, kNoScfsi, &h1, 0, 0), zamStsMp3SideInfoErr},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o0, d, &neg, kNoScfsi, &h1, 0, 0), zamStsMp3SideInfoErr},
        // MPEG-2: the compress range before the mode extension.
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o0, d, &big2, kNoScfsi, &h2bad, 0, 0), zamStsMp3SideInfoErr},
        {zamsUnpackScaleFactors_MP3_1u8s(&p, &o0, d, &ok2, kNoScfsi, &h2bad, 0, 0), zamStsMp3FrameHeaderErr},
    };
    for (size_t i = 0; i < std::size(calls); ++i) EXPECT_EQ(calls[i].first, calls[i].second) << "call " << i;
    EXPECT_TRUE(zamtest::untouched(sf));
    EXPECT_EQ(p, stream.data());
    EXPECT_EQ(o0, 0);
    EXPECT_EQ(ok2.preflag, 0);
}

TEST(Mp3ScaleFactors, PackChecksAndAcceptsWhatUnpackRefuses)
{
    int8_t sf[48] = {};
    for (int i = 0; i < 21; ++i) sf[i] = 1;
    auto out = zamtest::canaryVector<uint8_t>(16);
    uint8_t *w = out.data(), *none = nullptr;
    int32_t off = 0;
    const Mp3FrameHeader h1 = header(1), h2bad = header(0, -1);
    Mp3SideInfo si = granule(5), bad = granule(16);  // slen 1 / 1; out of range
    const std::pair<ZamStatus, ZamStatus> calls[] = {
        {zamsPackScaleFactors_MP3_8s1u(nullptr, &w, &off, &h1, &si, kNoScfsi, 0, 0), zamStsNullPtr},
        {zamsPackScaleFactors_MP3_8s1u(sf, nullptr, &off, &h1, &si, kNoScfsi, 0, 0), zamStsNullPtr},
        {zamsPackScaleFactors_MP3_8s1u(sf, &none, &off, &h1, &si, kNoScfsi, 0, 0), zamStsNullPtr},
        {zamsPackScaleFactors_MP3_8s1u(sf, &w, nullptr, &h1, &si, kNoScfsi, 0, 0), zamStsNullPtr},
        {zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, nullptr, &si, kNoScfsi, 0, 0), zamStsNullPtr},
        {zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h1, nullptr, kNoScfsi, 0, 0), zamStsNullPtr},
        {zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h1, &si, nullptr, 0, 0), zamStsNullPtr},
        {zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h1, &bad, kNoScfsi, 0, 0), zamStsMp3SideInfoErr},
        {zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h2bad, &si, kNoScfsi, 0, 0), zamStsMp3FrameHeaderErr},
    };
    for (size_t i = 0; i < std::size(calls); ++i) EXPECT_EQ(calls[i].first, calls[i].second) << "call " << i;
    EXPECT_TRUE(zamtest::untouched(out));
    // Granule 2 counts as granule 1 (scfsi all set: nothing written); channel 5 is not looked
    // at; offset 8 is the next byte.
    const int32_t all[4] = {1, 1, 1, 1};
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h1, &si, all, 2, 5), zamStsOk);
    EXPECT_EQ(w, out.data());
    EXPECT_EQ(off, 0);
    off = 8;
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h1, &si, kNoScfsi, 0, 0), zamStsOk);
    EXPECT_EQ(std::vector<int>(out.begin(), out.begin() + 4), (std::vector<int>{kCanary, 0xFF, 0xFF, 0xF8}));
    EXPECT_EQ(w, out.data() + 3);
    EXPECT_EQ(off, 5);
}

// Random pack -> unpack round trips over every block kind, granule and scfsi pattern
// (MPEG-1) and every compress value, channel and intensity setting (MPEG-2).
TEST(Mp3ScaleFactors, PackUnpackRoundTrip)
{
    std::mt19937 gen(5);
    for (int iter = 0; iter < 4000; ++iter) {
        const bool mpeg1 = iter % 2 == 0;
        const int kind = static_cast<int>(gen() % 3);  // long, short, mixed
        Mp3SideInfo si = granule(static_cast<int>(gen() % (mpeg1 ? 16 : 512)), kind == 0 ? (gen() % 2 ? 1 : 3) : 2,
                                 kind == 2);
        if (kind == 0 && gen() % 2) si = granule(si.scalefac_compress);
        const Mp3FrameHeader h = header(mpeg1 ? 1 : 0, static_cast<int>(gen() % 4));
        const int gr = mpeg1 ? static_cast<int>(gen() % 2) : 0, ch = static_cast<int>(gen() % 2);
        int32_t scfsi[4];
        for (int& v : scfsi) v = static_cast<int>(gen() % 2);
        int8_t values[48];
        for (auto& v : values) v = static_cast<int8_t>(gen() % 32);
        // Mask each value to its coded length by a first unpack of random bits.
        std::vector<uint8_t> random(64);
        for (auto& b : random) b = static_cast<uint8_t>(gen());
        Mp3SideInfo si1 = si;
        const int offset = static_cast<int>(gen() % 8);
        const Unpacked first = unpack(random, offset, si1, h, scfsi, gr, ch, values);
        ASSERT_EQ(first.status, zamStsOk);
        int8_t coded[48];
        for (int i = 0; i < 48; ++i) coded[i] = static_cast<int8_t>(first.sf[i] < 0 ? -first.sf[i] : first.sf[i]);
        std::vector<uint8_t> out(64, 0);
        uint8_t* w = out.data();
        int32_t off = offset;
        Mp3SideInfo si2 = si;
        si2.preflag = 7;
        ASSERT_EQ(zamsPackScaleFactors_MP3_8s1u(coded, &w, &off, &h, &si2, scfsi, gr, ch), zamStsOk);
        EXPECT_EQ((w - out.data()) * 8 + off - offset, first.bits);
        if (!mpeg1) EXPECT_EQ(si2.preflag, si1.preflag);
        Mp3SideInfo si3 = si;
        const Unpacked second = unpack(out, offset, si3, h, scfsi, gr, ch, values);
        ASSERT_EQ(second.status, zamStsOk);
        EXPECT_EQ(second.bits, first.bits);
        EXPECT_EQ(std::memcmp(second.sf, first.sf, sizeof first.sf), 0) << "iteration " << iter;
    }
}

}  // namespace
