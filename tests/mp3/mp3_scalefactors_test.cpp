// Scale factors: hand-built streams for the array layouts, scfsi reuse, the MPEG-2
// length cases and intensity markers, check order, and pack/unpack round trips.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
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
                const int32_t* scfsi, int gr, int ch, const int8_t* initial = nullptr)
{
    Unpacked u;
    if (initial) std::memcpy(u.sf, initial, sizeof u.sf);
    else std::memset(u.sf, kCanary, sizeof u.sf);
    const uint8_t* p = stream.data();
    int32_t off = offset;
    u.status = zamsUnpackScaleFactors_MP3_1u8s(&p, &off, u.sf, &si, scfsi, &h, gr, ch);
    u.bits = (p - stream.data()) * 8 + off - offset;
    return u;
}

const int32_t kNoScfsi[4] = {0, 0, 0, 0};

TEST(Mp3ScaleFactors, Mpeg1CompressZeroReadsNothing)
{
    std::vector<uint8_t> stream(8, 0xFF);
    Mp3SideInfo si = granule(0);
    const Unpacked u = unpack(stream, 3, si, header(1), kNoScfsi, 0, 0);
    ASSERT_EQ(u.status, zamStsOk);
    EXPECT_EQ(u.bits, 0);
    for (int i = 0; i <= 21; ++i) EXPECT_EQ(u.sf[i], 0) << i;
    EXPECT_EQ(static_cast<uint8_t>(u.sf[22]), kCanary);
}

TEST(Mp3ScaleFactors, Mpeg1LongBandGroupsWithLengths)
{
    // sfc 11: slen1 3 (bands 0..10), slen2 1 (bands 11..20). Values 0..7 cycling,
    // and alternating 0/1.
    mp3test::Bits b(5);
    for (int band = 0; band < 11; ++band) b.put(band % 8, 3);
    for (int band = 11; band < 21; ++band) b.put(band & 1, 1);
    Mp3SideInfo si = granule(11);
    const Unpacked u = unpack(b.bytes(), 5, si, header(1), kNoScfsi, 0, 0);
    ASSERT_EQ(u.status, zamStsOk);
    EXPECT_EQ(u.bits, 11 * 3 + 10);
    for (int band = 0; band < 11; ++band) EXPECT_EQ(u.sf[band], band % 8);
    for (int band = 11; band < 21; ++band) EXPECT_EQ(u.sf[band], band & 1);
    EXPECT_EQ(u.sf[21], 0);
}

TEST(Mp3ScaleFactors, Mpeg1ScfsiReuseKeepsTheCallersValues)
{
    int8_t previous[48];
    for (int i = 0; i < 48; ++i) previous[i] = static_cast<int8_t>(100 + i);
    std::vector<uint8_t> empty(8, 0xFF);
    Mp3SideInfo si = granule(15);  // slen 4 / 3
    const int32_t all[4] = {1, 1, 1, 1};
    const Unpacked u = unpack(empty, 2, si, header(1), all, 1, 0, previous);
    ASSERT_EQ(u.status, zamStsOk);
    EXPECT_EQ(u.bits, 0);
    for (int i = 0; i < 48; ++i) EXPECT_EQ(u.sf[i], i == 21 ? 0 : previous[i]) << i;

    // Groups 1 and 3 reused, 0 and 2 read: 6 x 4 + 5 x 3 bits.
    mp3test::Bits b;
    for (int band = 0; band < 6; ++band) b.put(band + 1, 4);
    for (int band = 11; band < 16; ++band) b.put(band - 10, 3);
    const int32_t some[4] = {0, 1, 0, 1};
    const Unpacked v = unpack(b.bytes(), 0, si, header(1), some, 1, 0, previous);
    ASSERT_EQ(v.status, zamStsOk);
    EXPECT_EQ(v.bits, 39);
    for (int band = 0; band < 6; ++band) EXPECT_EQ(v.sf[band], band + 1);
    for (int band = 6; band < 11; ++band) EXPECT_EQ(v.sf[band], previous[band]);
    for (int band = 11; band < 16; ++band) EXPECT_EQ(v.sf[band], band - 10);
    for (int band = 16; band < 21; ++band) EXPECT_EQ(v.sf[band], previous[band]);

    // Granule 0 ignores scfsi.
    mp3test::Bits c;
    for (int band = 0; band < 21; ++band) c.put(band < 11 ? 9 : 5, band < 11 ? 4 : 3);
    const Unpacked w = unpack(c.bytes(), 0, si, header(1), all, 0, 0, previous);
    EXPECT_EQ(w.bits, 11 * 4 + 10 * 3);
    EXPECT_EQ(w.sf[7], 9);
    EXPECT_EQ(w.sf[20], 5);
}

TEST(Mp3ScaleFactors, Mpeg1ShortBlocksIgnoreScfsi)
{
    // slen1 4, slen2 3: 18 x 4 + 18 x 3 = 126 bits, band-major, window-minor.
    mp3test::Bits b(1);
    for (int i = 0; i < 18; ++i) b.put(i % 16, 4);
    for (int i = 18; i < 36; ++i) b.put(i % 8, 3);
    Mp3SideInfo si = granule(15, 2, 0);
    const int32_t all[4] = {1, 1, 1, 1};
    const Unpacked u = unpack(b.bytes(), 1, si, header(1), all, 1, 0);
    ASSERT_EQ(u.status, zamStsOk);
    EXPECT_EQ(u.bits, 126);
    for (int i = 0; i < 18; ++i) EXPECT_EQ(u.sf[i], i % 16);
    for (int i = 18; i < 36; ++i) EXPECT_EQ(u.sf[i], i % 8);
    EXPECT_EQ(u.sf[36], 0);
    EXPECT_EQ(u.sf[37], 0);
    EXPECT_EQ(u.sf[38], 0);
    EXPECT_EQ(static_cast<uint8_t>(u.sf[39]), kCanary);
}

TEST(Mp3ScaleFactors, Mpeg1MixedLayout)
{
    // slen1 2, slen2 3 (sfc 10): 8 long + 9 short values of 2 bits, 18 of 3 bits.
    mp3test::Bits b;
    for (int i = 0; i < 17; ++i) b.put(i % 4, 2);
    for (int i = 0; i < 18; ++i) b.put(7 - i % 8, 3);
    Mp3SideInfo si = granule(10, 2, 1);
    const Unpacked u = unpack(b.bytes(), 0, si, header(1), kNoScfsi, 0, 1);
    ASSERT_EQ(u.status, zamStsOk);
    EXPECT_EQ(u.bits, 17 * 2 + 18 * 3);
    for (int i = 0; i < 17; ++i) EXPECT_EQ(u.sf[i], i % 4);
    for (int i = 0; i < 18; ++i) EXPECT_EQ(u.sf[17 + i], 7 - i % 8);
    EXPECT_EQ(u.sf[35], 0);
    EXPECT_EQ(u.sf[37], 0);
    EXPECT_EQ(static_cast<uint8_t>(u.sf[38]), kCanary);
}

TEST(Mp3ScaleFactors, Mpeg2LongWithPreflagReadsNothing)
{
    std::vector<uint8_t> stream(8, 0xFF);
    Mp3SideInfo si = granule(500);
    si.preflag = 0;
    const Unpacked u = unpack(stream, 0, si, header(0), kNoScfsi, 0, 0);
    ASSERT_EQ(u.status, zamStsOk);
    EXPECT_EQ(u.bits, 0);
    EXPECT_EQ(si.preflag, 1);
    for (int i = 0; i < 24; ++i) EXPECT_EQ(u.sf[i], 0) << i;
    EXPECT_EQ(static_cast<uint8_t>(u.sf[24]), kCanary);
}

TEST(Mp3ScaleFactors, Mpeg2NormalLengthsAndPartitions)
{
    // sfc 0x155 = 341 < 400: slen (341 >> 4) / 5 = 4, 21 % 5 = 1, (341 & 15) >> 2 = 1,
    // 341 & 3 = 1; long partitions 6, 5, 5, 5.
    mp3test::Bits b(6);
    for (int i = 0; i < 6; ++i) b.put(15 - i, 4);
    for (int i = 0; i < 15; ++i) b.put(i & 1, 1);
    Mp3SideInfo si = granule(341);
    si.preflag = 1;
    const Unpacked u = unpack(b.bytes(), 6, si, header(0, 3), kNoScfsi, 0, 0);  // intensity on, channel 0
    ASSERT_EQ(u.status, zamStsOk);
    EXPECT_EQ(u.bits, 6 * 4 + 15);
    EXPECT_EQ(si.preflag, 0);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(u.sf[i], 15 - i);  // no negation on channel 0
    for (int i = 0; i < 15; ++i) EXPECT_EQ(u.sf[6 + i], i & 1);
    EXPECT_EQ(u.sf[21] | u.sf[22] | u.sf[23], 0);

    // sfc 450: 400 <= sfc < 500: v = 50, slen (50 >> 2) / 5 = 2, 12 % 5 = 2, 50 & 3 = 2, 0;
    // short blocks, partitions 9, 9, 12, 6 (6 values of length 0).
    mp3test::Bits c;
    for (int i = 0; i < 30; ++i) c.put(i % 4, 2);
    Mp3SideInfo sh = granule(450, 2, 0);
    const Unpacked v = unpack(c.bytes(), 0, sh, header(0), kNoScfsi, 0, 0);
    EXPECT_EQ(v.bits, 60);
    for (int i = 0; i < 30; ++i) EXPECT_EQ(v.sf[i], i % 4);
    for (int i = 30; i < 39; ++i) EXPECT_EQ(v.sf[i], 0);
    EXPECT_EQ(static_cast<uint8_t>(v.sf[39]), kCanary);
}

TEST(Mp3ScaleFactors, Mpeg2IntensityRightChannelMarkers)
{
    // isc = 121: slen 121 / 36 = 3, (121 % 36) / 6 = 2, 13 % 6 = 1; row 3, long
    // partitions 7, 7, 7. Markers 7, 3 and 1 come back negated.
    mp3test::Bits b;
    const int p0[7] = {7, 0, 6, 7, 1, 2, 7};
    const int p1[7] = {3, 2, 1, 0, 3, 3, 1};
    const int p2[7] = {1, 0, 1, 0, 0, 1, 1};
    for (int v : p0) b.put(v, 3);
    for (int v : p1) b.put(v, 2);
    for (int v : p2) b.put(v, 1);
    Mp3SideInfo si = granule(2 * 121 + 1);
    si.preflag = 1;
    const Unpacked u = unpack(b.bytes(), 0, si, header(0, 1), kNoScfsi, 0, 1);
    ASSERT_EQ(u.status, zamStsOk);
    EXPECT_EQ(u.bits, 7 * 6);
    EXPECT_EQ(si.preflag, 0);
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(u.sf[i], p0[i] == 7 ? -7 : p0[i]);
        EXPECT_EQ(u.sf[7 + i], p1[i] == 3 ? -3 : p1[i]);
        EXPECT_EQ(u.sf[14 + i], p2[i] == 1 ? -1 : p2[i]);
    }
    EXPECT_EQ(u.sf[21] | u.sf[22] | u.sf[23], 0);

    // sfc 1 (isc 0): every length 0, nothing read, nothing negated.
    Mp3SideInfo z = granule(1);
    const Unpacked w = unpack(b.bytes(), 0, z, header(0, 1), kNoScfsi, 0, 1);
    EXPECT_EQ(w.bits, 0);
    for (int i = 0; i < 24; ++i) EXPECT_EQ(w.sf[i], 0);
}

TEST(Mp3ScaleFactors, Mpeg2MixedFlagReducedAndWrittenBack)
{
    // sfc 505: slen 1, 2, 0, 0, row 2, preflag; mixed flag 3 -> 1, mixed partitions 15, 18.
    mp3test::Bits b;
    for (int i = 0; i < 15; ++i) b.put(1, 1);
    for (int i = 0; i < 18; ++i) b.put(2, 2);
    Mp3SideInfo si = granule(505, 2, 3);
    const Unpacked u = unpack(b.bytes(), 0, si, header(0), kNoScfsi, 0, 0);
    ASSERT_EQ(u.status, zamStsOk);
    EXPECT_EQ(si.mixed_block_flag, 1);
    EXPECT_EQ(si.preflag, 1);
    EXPECT_EQ(u.bits, 15 + 36);
    EXPECT_EQ(u.sf[14], 1);
    EXPECT_EQ(u.sf[32], 2);
    EXPECT_EQ(u.sf[33] | u.sf[34] | u.sf[35], 0);
}

TEST(Mp3ScaleFactors, UnpackCheckOrderAndNothingWritten)
{
    std::vector<uint8_t> stream(16, 0x55);
    const Mp3FrameHeader h1 = header(1);
    const Mp3FrameHeader h2bad = header(0, 4);
    int8_t sf[48];
    std::memset(sf, kCanary, sizeof sf);
    const uint8_t* p = stream.data();
    const uint8_t* none = nullptr;
    int32_t off = 0;
    Mp3SideInfo si = granule(16);  // out of range for MPEG-1
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(nullptr, &off, sf, &si, kNoScfsi, &h1, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, nullptr, sf, &si, kNoScfsi, &h1, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, nullptr, &si, kNoScfsi, &h1, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, nullptr, kNoScfsi, &h1, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, nullptr, &h1, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, kNoScfsi, nullptr, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&none, &off, sf, &si, kNoScfsi, &h1, 0, 0), zamStsNullPtr);
    // Bad arguments come before the side-information check.
    off = 8;
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, kNoScfsi, &h1, 0, 0), zamStsBadArg);
    off = -1;
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, kNoScfsi, &h1, 0, 0), zamStsBadArg);
    off = 0;
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, kNoScfsi, &h1, 2, 0), zamStsBadArg);
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, kNoScfsi, &h1, 0, -1), zamStsBadArg);
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, kNoScfsi, &h1, 0, 0), zamStsMp3SideInfoErr);
    si.scalefac_compress = -1;
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, kNoScfsi, &h1, 0, 0), zamStsMp3SideInfoErr);
    // MPEG-2: the compress range before the mode extension; 16 is fine there.
    si.scalefac_compress = 512;
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, kNoScfsi, &h2bad, 0, 0), zamStsMp3SideInfoErr);
    si.scalefac_compress = 16;
    EXPECT_EQ(zamsUnpackScaleFactors_MP3_1u8s(&p, &off, sf, &si, kNoScfsi, &h2bad, 0, 0), zamStsMp3FrameHeaderErr);
    EXPECT_TRUE(zamtest::untouched(sf, sizeof sf));
    EXPECT_EQ(p, stream.data());
    EXPECT_EQ(off, 0);
    EXPECT_EQ(si.preflag, 0);
}

TEST(Mp3ScaleFactors, PackChecksAndAcceptsWhatUnpackRefuses)
{
    int8_t sf[48] = {};
    for (int i = 0; i < 21; ++i) sf[i] = 1;
    std::vector<uint8_t> out(16, kCanary);
    uint8_t* w = out.data();
    uint8_t* none = nullptr;
    int32_t off = 0;
    const Mp3FrameHeader h1 = header(1);
    Mp3SideInfo si = granule(5);  // slen 1 / 1
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(nullptr, &w, &off, &h1, &si, kNoScfsi, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, nullptr, &off, &h1, &si, kNoScfsi, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &none, &off, &h1, &si, kNoScfsi, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &w, nullptr, &h1, &si, kNoScfsi, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, nullptr, &si, kNoScfsi, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h1, nullptr, kNoScfsi, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h1, &si, nullptr, 0, 0), zamStsNullPtr);
    Mp3SideInfo bad = granule(16);
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h1, &bad, kNoScfsi, 0, 0), zamStsMp3SideInfoErr);
    const Mp3FrameHeader h2bad = header(0, -1);
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h2bad, &si, kNoScfsi, 0, 0), zamStsMp3FrameHeaderErr);
    EXPECT_TRUE(zamtest::untouched(out));
    // Granule 2 counts as granule 1 (scfsi all set: nothing written); channel 5 is
    // not looked at; offset 8 is the next byte.
    const int32_t all[4] = {1, 1, 1, 1};
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h1, &si, all, 2, 5), zamStsOk);
    EXPECT_EQ(w, out.data());
    EXPECT_EQ(off, 0);
    off = 8;
    EXPECT_EQ(zamsPackScaleFactors_MP3_8s1u(sf, &w, &off, &h1, &si, kNoScfsi, 0, 0), zamStsOk);
    EXPECT_EQ(out[0], kCanary);
    EXPECT_EQ(out[1], 0xFF);
    EXPECT_EQ(out[2], 0xFF);
    EXPECT_EQ(out[3], 0xF8);  // 21 one-bits from byte 1 on
    EXPECT_EQ(w, out.data() + 3);
    EXPECT_EQ(off, 5);
}

// Random pack -> unpack round trips over every block kind, granule and scfsi
// pattern (MPEG-1) and every compress value, channel and intensity setting (MPEG-2).
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
        const int gr = mpeg1 ? static_cast<int>(gen() % 2) : 0;
        const int ch = static_cast<int>(gen() % 2);
        int32_t scfsi[4];
        for (int& v : scfsi) v = static_cast<int>(gen() % 2);
        int8_t values[48];
        for (int i = 0; i < 48; ++i) values[i] = static_cast<int8_t>(gen() % 32);

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
