// Channel pair, data stream, fill, main-header and extension-header readers on
// hand-built bit strings.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "aac_test_util.h"
#include "test_support.h"
#include "zamac.h"

using aactest::BitWriter;
using aactest::fillCanary;

namespace {

constexpr uint32_t kCanaryWord = 0xA5A5A5A5u;
using Ints = std::vector<int>;

struct Cursor {
    std::vector<uint8_t> data;
    uint8_t* p;
    int off;
    Cursor(const BitWriter& w, int startOffset = 0) : data(w.bytes()), p(data.data()), off(startOffset) {}
    long bits(int startOffset = 0) const { return (p - data.data()) * 8 + off - startOffset; }
};

}  // namespace

TEST(AacChanPair, CommonWindowZeroReadsOneBit)
{
    BitWriter w;
    w.put(0, 1);
    w.put(0xFFFF, 16);
    for (int form = 0; form < 2; ++form) {
        Cursor c(w);
        AacIcsInfo ics;
        AacChanPairElt cpe;
        AacMainHeader mh;
        fillCanary(ics), fillCanary(cpe), fillCanary(mh);
        const ZamStatus st = form == 0 ? zamsDecodeChanPairElt_AAC(&c.p, &c.off, &ics, &cpe, 41)
                                       : zamsDecodeChanPairElt_MP4_AAC(&c.p, &c.off, &ics, &cpe, &mh, 41, 2);
        EXPECT_EQ(st, zamStsOk);
        EXPECT_EQ(c.bits(), 1);
        EXPECT_EQ(cpe.common_window, 0);
        EXPECT_EQ(static_cast<uint32_t>(cpe.ms_mask_present), kCanaryWord);
        EXPECT_TRUE(zamtest::untouched(&ics, 1));
        EXPECT_TRUE(zamtest::untouched(&mh, 1));
    }
}

TEST(AacChanPair, LongWithPredictionAndMsMask)
{
    BitWriter w;
    w.put(0, 3);  // start at bit offset 3
    w.put(1, 1);  // common_window
    w.put(1, 1), w.put(1, 2), w.put(1, 1);  // reserved, long start, KBD
    w.put(5, 6);                            // max_sfb
    w.put(1, 1), w.put(1, 1), w.put(17, 5);  // predictor data, reset, group 17
    for (int f : {1, 0, 1, 1, 0}) w.put(static_cast<uint32_t>(f), 1);
    w.put(1, 2);  // ms_mask_present
    for (int f : {0, 1, 1, 0, 1}) w.put(static_cast<uint32_t>(f), 1);
    Cursor s(w, 3);
    AacIcsInfo ics;
    AacChanPairElt cpe;
    fillCanary(ics), fillCanary(cpe);
    ASSERT_EQ(zamsDecodeChanPairElt_AAC(&s.p, &s.off, &ics, &cpe, 10), zamStsOk);
    EXPECT_EQ(s.bits(), static_cast<long>(w.bits()));
    EXPECT_EQ((Ints{ics.ics_reserved_bit, ics.window_sequence, ics.window_shape, ics.max_sfb,
                    ics.predictor_data_present, ics.predictor_reset, ics.predictor_reset_group_number}),
              (Ints{1, 1, 1, 5, 1, 1, 17}));
    const uint8_t flags[10] = {1, 0, 1, 1, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(ics.prediction_used, flags, 10), 0);
    EXPECT_TRUE(zamtest::untouched(ics.prediction_used + 10, 31));
    EXPECT_EQ((Ints{ics.num_window_groups, ics.window_group_length[0]}), (Ints{1, 1}));
    EXPECT_EQ(static_cast<uint32_t>(ics.scale_factor_grouping), kCanaryWord);
    EXPECT_EQ(cpe.ms_mask_present, 1);
    const uint8_t ms[5] = {0, 1, 1, 0, 1};
    EXPECT_EQ(std::memcmp(cpe.ms_used[0], ms, 5), 0);
    EXPECT_TRUE(zamtest::untouched(cpe.ms_used[0] + 5, 55));
    EXPECT_TRUE(zamtest::untouched(cpe.ms_used[1], 60 * 7));
}

// Groups of 3 and 5 windows (1101111): mask 1 reads one flag per band of each
// group; mask 2 reads none and leaves the flags untouched.
TEST(AacChanPair, ShortMsMaskPerGroup)
{
    for (int mask : {1, 2}) {
        BitWriter w;
        w.put(1, 1);
        aactest::writeShortIcs(w, 2, 0x6F);
        w.put(static_cast<uint32_t>(mask), 2);
        if (mask == 1) w.put(0b10, 2), w.put(0b01, 2);  // groups 0 and 1
        Cursor c(w);
        AacIcsInfo ics;
        AacChanPairElt cpe;
        fillCanary(ics), fillCanary(cpe);
        ASSERT_EQ(zamsDecodeChanPairElt_AAC(&c.p, &c.off, &ics, &cpe, 0), zamStsOk);
        EXPECT_EQ(c.bits(), static_cast<long>(w.bits()));
        EXPECT_EQ(ics.scale_factor_grouping, 0x6F);
        EXPECT_EQ(ics.num_window_groups, 2);
        EXPECT_EQ(cpe.ms_mask_present, mask);
        if (mask == 1) {
            EXPECT_EQ((std::vector<int>{cpe.ms_used[0][0], cpe.ms_used[0][1], cpe.ms_used[1][0], cpe.ms_used[1][1]}),
                      (std::vector<int>{1, 0, 0, 1}));
            EXPECT_EQ(cpe.ms_used[0][2], zamtest::kCanary);
        }
        EXPECT_TRUE(zamtest::untouched(cpe.ms_used[mask == 1 ? 2 : 0], mask == 1 ? 360 : 480));
    }
}

TEST(AacChanPair, Checks)
{
    BitWriter w;
    w.put(1, 1);
    aactest::writeLongIcs(w, 52);
    AacIcsInfo ics;
    AacChanPairElt cpe;
    AacMainHeader mh;
    {
        Cursor c(w);
        EXPECT_EQ(zamsDecodeChanPairElt_AAC(&c.p, &c.off, &ics, &cpe, 41), zamStsAacMaxSfbErr);
        EXPECT_EQ(c.bits(), 11);
    }
    {
        Cursor c(w);
        EXPECT_EQ(zamsDecodeChanPairElt_MP4_AAC(&c.p, &c.off, &ics, &cpe, &mh, 51, 2), zamStsAacMaxSfbErr);
    }
    // Argument checks: pointers, offset, prediction bands; nothing written.
    Cursor c(w);
    uint8_t* nullByte = nullptr;
    fillCanary(ics), fillCanary(cpe), fillCanary(mh);
    EXPECT_EQ(zamsDecodeChanPairElt_AAC(nullptr, &c.off, &ics, &cpe, 0), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeChanPairElt_AAC(&c.p, nullptr, &ics, &cpe, 0), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeChanPairElt_AAC(&nullByte, &c.off, &ics, &cpe, 0), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeChanPairElt_AAC(&c.p, &c.off, nullptr, &cpe, 0), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeChanPairElt_AAC(&c.p, &c.off, &ics, nullptr, 0), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeChanPairElt_MP4_AAC(&c.p, &c.off, &ics, &cpe, nullptr, 0, 2), zamStsNullPtr);
    c.off = 8;
    EXPECT_EQ(zamsDecodeChanPairElt_AAC(&c.p, &c.off, &ics, &cpe, 42), zamStsAacBitOffsetErr);
    EXPECT_EQ(zamsDecodeChanPairElt_MP4_AAC(&c.p, &c.off, &ics, &cpe, &mh, 52, 2), zamStsAacBitOffsetErr);
    c.off = 0;
    EXPECT_EQ(zamsDecodeChanPairElt_AAC(&c.p, &c.off, &ics, &cpe, 42), zamStsAacPredSfbErr);
    EXPECT_EQ(zamsDecodeChanPairElt_AAC(&c.p, &c.off, &ics, &cpe, -1), zamStsAacPredSfbErr);
    EXPECT_EQ(zamsDecodeChanPairElt_MP4_AAC(&c.p, &c.off, &ics, &cpe, &mh, 52, 2), zamStsAacMaxSfbErr);
    EXPECT_TRUE(zamtest::untouched(&ics, 1));
    EXPECT_TRUE(zamtest::untouched(&cpe, 1));
    EXPECT_TRUE(zamtest::untouched(&mh, 1));
    EXPECT_EQ(c.bits(), 0);

    // Main profile: more than 41 prediction bands fail after predictor_reset.
    BitWriter m;
    m.put(1, 1);
    m.put(0, 1), m.put(0, 2), m.put(0, 1), m.put(10, 6), m.put(1, 1), m.put(0, 1);
    Cursor c2(m);
    EXPECT_EQ(zamsDecodeChanPairElt_MP4_AAC(&c2.p, &c2.off, &ics, &cpe, &mh, 42, 1), zamStsAacPredSfbErr);
    EXPECT_EQ(c2.bits(), static_cast<long>(m.bits()));
}

TEST(AacChanPair, Mp4LongTermPredictionBothChannels)
{
    BitWriter w;
    w.put(1, 1);
    w.put(0, 1), w.put(3, 2), w.put(0, 1);  // long stop
    w.put(49, 6);
    w.put(1, 1);  // predictor_data_present: LTP for object type 4
    w.put(1, 1), w.put(1234, 11), w.put(5, 3);  // channel 0
    std::vector<int> used;
    for (int b = 0; b < 40; ++b) {
        used.push_back((b * 7) % 3 == 0);
        w.put(static_cast<uint32_t>(used.back()), 1);
    }
    w.put(0, 1);  // channel 1: no LTP
    w.put(0, 2);  // ms_mask_present
    Cursor c(w);
    AacIcsInfo ics;
    AacChanPairElt cpe;
    AacMainHeader mh;
    fillCanary(ics), fillCanary(cpe), fillCanary(mh);
    ASSERT_EQ(zamsDecodeChanPairElt_MP4_AAC(&c.p, &c.off, &ics, &cpe, &mh, 51, 4), zamStsOk);
    EXPECT_EQ(c.bits(), static_cast<long>(w.bits()));
    EXPECT_EQ((Ints{mh.max_sfb, mh.window_sequence}), (Ints{49, 3}));
    const AacLtpData& l = mh.ltp[0];
    EXPECT_EQ((Ints{l.ltp_data_present, l.ltp_lag, l.ltp_coef, l.ltp_long_used[0]}), (Ints{1, 1234, 17496, 1}));
    for (int b = 0; b < 40; ++b) EXPECT_EQ(l.ltp_long_used[b + 1], used[b]) << b;
    EXPECT_TRUE(zamtest::untouched(l.ltp_spare, 20));
    EXPECT_EQ(mh.ltp[1].ltp_data_present, 0);
    EXPECT_EQ(static_cast<uint32_t>(mh.ltp[1].ltp_lag), kCanaryWord);
    EXPECT_EQ(static_cast<uint32_t>(ics.predictor_reset), 0u);
    EXPECT_TRUE(zamtest::untouched(ics.prediction_used, 41));
}

TEST(AacDataStream, CountsEscapesAndAlignment)
{
    for (int startOffset : {0, 2, 5}) {
        BitWriter w;
        w.put(0, startOffset);
        w.put(9, 4), w.put(1, 1), w.put(255, 8), w.put(255, 8);
        w.alignZero();
        std::vector<uint8_t> payload(510);
        for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(i * 13 + 1);
        for (uint8_t b : payload) w.put(b, 8);
        Cursor c(w, startOffset);
        int32_t tag = -1, cnt = -1;
        std::vector<uint8_t> buf(600, zamtest::kCanary);
        ASSERT_EQ(zamsDecodeDatStrElt_AAC(&c.p, &c.off, &tag, &cnt, buf.data()), zamStsOk);
        EXPECT_EQ(tag, 9);
        EXPECT_EQ(cnt, 510);
        EXPECT_TRUE(std::equal(payload.begin(), payload.end(), buf.begin()));
        EXPECT_EQ(buf[510], zamtest::kCanary);
        EXPECT_EQ(c.bits(startOffset), static_cast<long>(w.bits()) - startOffset);
    }
    // Not aligned: the bytes follow the count directly.
    BitWriter w;
    w.put(0, 1);
    w.put(3, 4), w.put(0, 1), w.put(3, 8), w.put(0xAB, 8), w.put(0xCD, 8), w.put(0xEF, 8);
    Cursor c(w, 1);
    int32_t tag, cnt;
    uint8_t buf[510];
    ASSERT_EQ(zamsDecodeDatStrElt_AAC(&c.p, &c.off, &tag, &cnt, buf), zamStsOk);
    EXPECT_EQ(cnt, 3);
    EXPECT_EQ(buf[0], 0xAB);
    EXPECT_EQ(buf[2], 0xEF);
    EXPECT_EQ(c.bits(1), static_cast<long>(w.bits()) - 1);
}

TEST(AacFill, CountsAndEscapes)
{
    struct Case {
        int count, esc, bytes;
    };
    for (const Case& k : {Case{5, -1, 5}, Case{15, 0, 14}, Case{15, 255, 269}, Case{0, -1, 0}}) {
        BitWriter w;
        w.put(0, 3);
        w.put(static_cast<uint32_t>(k.count), 4);
        if (k.esc >= 0) w.put(static_cast<uint32_t>(k.esc), 8);
        for (int i = 0; i < k.bytes; ++i) w.put(static_cast<uint32_t>(i ^ 0x5A), 8);
        Cursor c(w, 3);
        int32_t cnt = -1;
        std::vector<uint8_t> buf(300, zamtest::kCanary);
        ASSERT_EQ(zamsDecodeFillElt_AAC(&c.p, &c.off, &cnt, buf.data()), zamStsOk);
        EXPECT_EQ(cnt, k.bytes);
        for (int i = 0; i < k.bytes; ++i) ASSERT_EQ(buf[static_cast<size_t>(i)], static_cast<uint8_t>(i ^ 0x5A));
        EXPECT_EQ(buf[static_cast<size_t>(k.bytes)], zamtest::kCanary);
        EXPECT_EQ(c.bits(3), static_cast<long>(w.bits()) - 3);
    }
}

namespace {

struct MainHeaderBuffers {
    AacMainHeader h;
    uint8_t msUsed[480];
    MainHeaderBuffers()
    {
        fillCanary(h);
        std::memset(msUsed, zamtest::kCanary, sizeof msUsed);
        h.pMsUsed = msUsed;
    }
};

}  // namespace

TEST(AacMainHeader, MsMaskModes)
{
    for (int mode = 0; mode < 4; ++mode) {
        BitWriter w;
        w.put(0, 2), w.put(1, 1), w.put(10, 6);
        w.put(static_cast<uint32_t>(mode), 2);
        if (mode == 1) {
            for (int b = 0; b < 10; ++b) w.put(b % 3 == 0, 1);
        }
        w.put(0, 2), w.put(0, 2);  // no TNS, no LTP, both channels
        for (int flag = 0; flag < 2; ++flag) {
            Cursor c(w);
            MainHeaderBuffers m;
            ASSERT_EQ(zamsDecodeMainHeader_AAC(&c.p, &c.off, &m.h, 2, flag),
                      flag ? zamStsAacNotSupported : zamStsOk);
            EXPECT_EQ(c.bits(), static_cast<long>(w.bits()));
            EXPECT_EQ((Ints{m.h.max_sfb, m.h.window_shape, m.h.num_window_groups, m.h.window_group_length[0],
                            m.h.window_group_length[7], m.h.ms_mask_present}),
                      (Ints{10, 1, 1, 1, 0, mode}));
            for (int b = 0; b < 10; ++b) {
                const int expected = mode == 1 ? (b % 3 == 0) : mode == 2 ? 1 : 0;
                EXPECT_EQ(m.msUsed[b], expected) << mode << " " << b;
            }
            EXPECT_TRUE(zamtest::untouched(m.msUsed + 10, 470));
            EXPECT_EQ(m.h.tns[1].tns_data_present, 0);
            EXPECT_EQ(m.h.ltp[1].ltp_spare[0], 0);  // the records are cleared
        }
    }
}

TEST(AacMainHeader, ShortGroupsTnsOrderStopAndShortLags)
{
    BitWriter w;
    w.put(2, 2), w.put(0, 1), w.put(3, 4), w.put(0x55, 7);  // four groups of two windows
    // channel 0: TNS with a short window filter, then an LTP block
    w.put(1, 1);
    w.put(1, 1), w.put(1, 1), w.put(7, 4), w.put(1, 3), w.put(0, 1), w.put(0, 1), w.put(0xF, 4);  // window 0: -1
    for (int win = 1; win < 8; ++win) w.put(0, 1);
    w.put(1, 1);                  // ltp_data_present
    w.put(100, 11), w.put(0, 3);  // lag, coef index 0
    const int used[8] = {0, 1, 0, 1, 1, 0, 1, 0};
    for (int win = 0; win < 8; ++win) {
        w.put(static_cast<uint32_t>(used[win]), 1);
        if (!used[win] || win == 1) continue;
        if (win == 3) w.put(1, 1), w.put(5, 5);  // 100 - 5 + 16 = 111
        if (win == 4) w.put(0, 1);               // same as window 3
        if (win == 6) w.put(1, 1), w.put(31, 5); // 111 - 31 + 16 = 96
    }
    Cursor c(w);
    MainHeaderBuffers m;
    ASSERT_EQ(zamsDecodeMainHeader_AAC(&c.p, &c.off, &m.h, 1, 0), zamStsOk);
    EXPECT_EQ(c.bits(), static_cast<long>(w.bits()));
    EXPECT_EQ(m.h.num_window_groups, 4);
    EXPECT_EQ(m.h.window_group_length[3], 2);
    EXPECT_EQ(static_cast<uint32_t>(m.h.ms_mask_present), kCanaryWord);  // one channel: no ms data
    const AacTnsData& t0 = m.h.tns[0];
    EXPECT_EQ((Ints{t0.tns_data_present, t0.n_filt[0], t0.coef_res[0], t0.coef[0]}), (Ints{1, 1, 4, -1}));
    const AacLtpData& l = m.h.ltp[0];
    EXPECT_EQ(l.ltp_coef, 9352);
    EXPECT_EQ(Ints(l.ltp_short_lag, l.ltp_short_lag + 8), (Ints{100, 100, 0, 111, 111, 0, 96, 0}));  // unused: 0
    EXPECT_EQ(Ints(l.ltp_short_used, l.ltp_short_used + 8), (Ints{0, 1, 0, 1, 1, 0, 1, 0}));
    EXPECT_EQ(l.ltp_short_lag_present[1], 0);
    EXPECT_EQ(static_cast<uint32_t>(m.h.tns[1].tns_data_present), kCanaryWord);

    // A long filter of order 13 ends that channel's TNS; ltp_data_present is the
    // next bit, and the header still succeeds.
    BitWriter t;
    t.put(0, 2), t.put(0, 1), t.put(20, 6);
    t.put(1, 1), t.put(2, 2), t.put(0, 1), t.put(33, 6), t.put(13, 5);
    t.put(1, 1), t.put(7, 11), t.put(7, 3);
    for (int b = 0; b < 20; ++b) t.put(1, 1);
    Cursor c2(t);
    MainHeaderBuffers m2;
    ASSERT_EQ(zamsDecodeMainHeader_AAC(&c2.p, &c2.off, &m2.h, 1, 0), zamStsOk);
    EXPECT_EQ(c2.bits(), static_cast<long>(t.bits()));
    const AacLtpData& l2 = m2.h.ltp[0];
    EXPECT_EQ((Ints{m2.h.tns[0].order[0], l2.ltp_lag, l2.ltp_coef, l2.ltp_long_used[20], l2.ltp_long_used[21]}),
              (Ints{13, 7, 22438, 1, 0}));
}

// Argument checks of the stream-header and element readers: pointers, then the bit
// offset, counts and flags; the first failure wins, nothing is written and the
// cursor stays.
TEST(AacReaders, ArgumentChecksInOrderWriteNothing)
{
    std::vector<uint8_t> data(64, 0xFF);
    uint8_t* p = data.data();
    uint8_t* nullByte = nullptr;
    int off0 = 0, off8 = 8, offNeg = -1;
    int32_t a = -7, b = -7;
    uint8_t buf[4] = {1, 2, 3, 4};
    AacProgramConfig pce;
    AacAdifHeader adif;
    AacAdtsFrameHeader adts;
    fillCanary(pce), fillCanary(adif), fillCanary(adts);
    MainHeaderBuffers m, noMs;
    noMs.h.pMsUsed = nullptr;
    const std::pair<ZamStatus, ZamStatus> calls[] = {
        {zamsDecodeDatStrElt_AAC(nullptr, &off0, &a, &b, buf), zamStsNullPtr},
        {zamsDecodeDatStrElt_AAC(&nullByte, &off0, &a, &b, buf), zamStsNullPtr},
        {zamsDecodeDatStrElt_AAC(&p, nullptr, &a, &b, buf), zamStsNullPtr},
        {zamsDecodeDatStrElt_AAC(&p, &off0, nullptr, &b, buf), zamStsNullPtr},
        {zamsDecodeDatStrElt_AAC(&p, &off0, &a, nullptr, buf), zamStsNullPtr},
        {zamsDecodeDatStrElt_AAC(&p, &off0, &a, &b, nullptr), zamStsNullPtr},
        {zamsDecodeDatStrElt_AAC(&p, &off8, &a, &b, buf), zamStsAacBitOffsetErr},
        {zamsDecodeFillElt_AAC(nullptr, &off0, &a, buf), zamStsNullPtr},
        {zamsDecodeFillElt_AAC(&p, &off0, nullptr, buf), zamStsNullPtr},
        {zamsDecodeFillElt_AAC(&p, &off0, &a, nullptr), zamStsNullPtr},
        {zamsDecodeFillElt_AAC(&p, &off8, &a, buf), zamStsAacBitOffsetErr},
        {zamsDecodePrgCfgElt_AAC(nullptr, &off8, &pce), zamStsNullPtr},
        {zamsDecodePrgCfgElt_AAC(&p, nullptr, &pce), zamStsNullPtr},
        {zamsDecodePrgCfgElt_AAC(&p, &off8, nullptr), zamStsNullPtr},
        {zamsDecodePrgCfgElt_AAC(&nullByte, &off8, &pce), zamStsNullPtr},
        {zamsDecodePrgCfgElt_AAC(&p, &off8, &pce), zamStsAacBitOffsetErr},
        {zamsDecodePrgCfgElt_AAC(&p, &offNeg, &pce), zamStsAacBitOffsetErr},
        {zamsUnpackADIFHeader_AAC(nullptr, &adif, &pce, 0), zamStsNullPtr},
        {zamsUnpackADIFHeader_AAC(&p, nullptr, &pce, 1), zamStsNullPtr},
        {zamsUnpackADIFHeader_AAC(&p, &adif, nullptr, 1), zamStsNullPtr},
        {zamsUnpackADIFHeader_AAC(&nullByte, &adif, &pce, 0), zamStsNullPtr},
        {zamsUnpackADIFHeader_AAC(&p, &adif, &pce, 0), zamStsAacPceCountErr},
        {zamsUnpackADIFHeader_AAC(&p, &adif, &pce, 17), zamStsAacPceCountErr},
        {zamsUnpackADIFHeader_AAC(&p, &adif, &pce, -1), zamStsAacPceCountErr},
        {zamsUnpackADTSFrameHeader_AAC(nullptr, &adts), zamStsNullPtr},
        {zamsUnpackADTSFrameHeader_AAC(&p, nullptr), zamStsNullPtr},
        {zamsUnpackADTSFrameHeader_AAC(&nullByte, &adts), zamStsNullPtr},
        {zamsDecodeMainHeader_AAC(nullptr, &off0, &m.h, 1, 0), zamStsNullPtr},
        {zamsDecodeMainHeader_AAC(&nullByte, &off0, &m.h, 1, 0), zamStsNullPtr},
        {zamsDecodeMainHeader_AAC(&p, nullptr, &m.h, 1, 0), zamStsNullPtr},
        {zamsDecodeMainHeader_AAC(&p, &off0, nullptr, 1, 0), zamStsNullPtr},
        {zamsDecodeMainHeader_AAC(&p, &off8, &m.h, 3, 2), zamStsAacBitOffsetErr},
        {zamsDecodeMainHeader_AAC(&p, &off0, &m.h, 3, 2), zamStsAacChanNumErr},
        {zamsDecodeMainHeader_AAC(&p, &off0, &m.h, 0, 0), zamStsAacChanNumErr},
        {zamsDecodeMainHeader_AAC(&p, &off0, &m.h, 1, 2), zamStsAacFlagErr},
        {zamsDecodeMainHeader_AAC(&p, &off0, &m.h, 1, -1), zamStsAacFlagErr},
        {zamsDecodeMainHeader_AAC(&p, &off0, &noMs.h, 2, 0), zamStsNullPtr},  // the flags' array of a pair
    };
    for (size_t i = 0; i < std::size(calls); ++i) EXPECT_EQ(calls[i].first, calls[i].second) << "call " << i;
    EXPECT_EQ(a, -7);
    EXPECT_EQ(b, -7);
    EXPECT_EQ(buf[0], 1);
    EXPECT_TRUE(zamtest::untouched(&pce, 1));
    EXPECT_TRUE(zamtest::untouched(&adif, 1));
    EXPECT_TRUE(zamtest::untouched(&adts, 1));
    EXPECT_TRUE(zamtest::untouched(m.msUsed, 480));
    EXPECT_EQ(m.h.pMsUsed, m.msUsed);
    EXPECT_EQ(static_cast<uint32_t>(m.h.window_sequence), kCanaryWord);
    EXPECT_EQ(static_cast<uint32_t>(noMs.h.window_sequence), kCanaryWord);
    EXPECT_EQ(p, data.data());
    EXPECT_EQ(off0 + off8 + offNeg, 7);
}

namespace {

struct ExtBuffers {
    AacExtensionHeader h;
    uint8_t msUsed[480];
    ExtBuffers()
    {
        fillCanary(h);
        std::memset(msUsed, zamtest::kCanary, sizeof msUsed);
        h.pMsUsed = msUsed;
    }
};

}  // namespace

TEST(AacExtensionHeader, LongLayer)
{
    BitWriter w;
    w.put(6, 6);                             // max_sfb
    w.put(1, 2);                             // ms_mask_present
    w.put(0b101, 3);                         // bands 3, 4, 5
    w.put(0, 1), w.put(1, 1);                // TNS: channel 0 none, channel 1 present
    w.put(2, 2), w.put(0, 1), w.put(3, 6), w.put(0, 5);  // two filters, the first of order 0
    w.put(4, 6), w.put(1, 5), w.put(0, 1), w.put(1, 1), w.put(1, 2);  // order 1, 2-bit coef 1
    // diff_control_lr for bands 3..4 (maxSfbLimit 5) whose ms_used is 0: band 4
    w.put(1, 1);  // channel 0
    w.put(0, 1);  // channel 1
    Cursor c(w);
    ExtBuffers e;
    ASSERT_EQ(zamsDecodeExtensionHeader_AAC(&c.p, &c.off, &e.h, 1, 1, 1, 3, 5, 0), zamStsOk);
    EXPECT_EQ(c.bits(), static_cast<long>(w.bits()));
    EXPECT_EQ((Ints{e.h.max_sfb, e.h.ms_mask_present}), (Ints{6, 1}));
    EXPECT_TRUE(zamtest::untouched(e.msUsed, 3));
    EXPECT_EQ(Ints(e.msUsed + 3, e.msUsed + 6), (Ints{1, 0, 1}));
    EXPECT_TRUE(zamtest::untouched(e.msUsed + 6, 474));
    const AacTnsData& t1 = e.h.tns[1];
    EXPECT_EQ((Ints{e.h.tns[0].tns_data_present, t1.tns_data_present, t1.n_filt[0], t1.length[1], t1.order[1],
                    t1.direction[1], t1.coef[0]}),
              (Ints{0, 1, 2, 4, 1, 0, 1}));
    EXPECT_EQ(static_cast<uint32_t>(e.h.tns[1].direction[0]), kCanaryWord);  // order 0: no direction
    EXPECT_EQ((Ints{e.h.diff_control_lr[0][0], e.h.diff_control_lr[1][0]}), (Ints{1, 0}));
    EXPECT_EQ(static_cast<uint32_t>(e.h.diff_control_lr[0][1]), kCanaryWord);
}

TEST(AacExtensionHeader, ShortLayerFourGroupsAndWindowFlags)
{
    BitWriter w;
    w.put(2, 4);  // max_sfb
    w.put(1, 2);
    for (int g = 0; g < 4; ++g) w.put(static_cast<uint32_t>(g), 2);
    for (int ch = 0; ch < 2; ++ch) w.put(ch ? 0x0F : 0xA0, 8);
    Cursor c(w);
    ExtBuffers e;
    ASSERT_EQ(zamsDecodeExtensionHeader_AAC(&c.p, &c.off, &e.h, 0, 1, 1, 0, 51, 2), zamStsOk);
    EXPECT_EQ(c.bits(), static_cast<long>(w.bits()));
    EXPECT_EQ((Ints{e.msUsed[0 * 60 + 1], e.msUsed[1 * 60 + 1], e.msUsed[3 * 60 + 0]}), (Ints{0, 1, 1}));
    EXPECT_TRUE(zamtest::untouched(e.msUsed + 4 * 60, 120));
    const int w0[8] = {1, 0, 1, 0, 0, 0, 0, 0};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(e.h.diff_control_lr[0][i], w0[i]);
    EXPECT_EQ(e.h.diff_control_lr[1][7], 1);
    EXPECT_TRUE(zamtest::untouched(&e.h.tns, 1));
}

TEST(AacExtensionHeader, Checks)
{
    BitWriter w;
    w.put(61, 6);
    {
        Cursor c(w);
        ExtBuffers e;
        EXPECT_EQ(zamsDecodeExtensionHeader_AAC(&c.p, &c.off, &e.h, 1, 1, 1, 0, 51, 0), zamStsAacMaxSfbErr);
        EXPECT_EQ(e.h.max_sfb, 61);
        EXPECT_EQ(c.bits(), 6);
        EXPECT_TRUE(zamtest::untouched(e.msUsed, 480));
    }
    struct Case {
        int off, tns, ms, diff, last, limit, seq;
        ZamStatus expected;
    };
    const Case cases[] = {
        {8, 2, 2, 2, -1, 52, 4, zamStsAacBitOffsetErr}, {0, 2, 2, 2, -1, 52, 4, zamStsAacFlagErr},
        {0, 1, 2, 2, -1, 52, 4, zamStsAacMsFlagErr},    {0, 1, -1, 2, -1, 52, 4, zamStsAacMsFlagErr},
        {0, 1, 1, 2, -1, 52, 4, zamStsAacDiffFlagErr},  {0, 1, 1, 1, -1, 52, 4, zamStsAacMaxSfbErr},
        {0, 1, 1, 1, 52, 0, 4, zamStsAacMaxSfbErr},     {0, 1, 1, 1, 0, 52, 4, zamStsAacMaxSfbErr},
        {0, 1, 1, 1, 0, 51, 4, zamStsAacWinSeqErr},
    };
    for (const Case& k : cases) {
        Cursor c(w, 0);
        c.off = k.off;
        ExtBuffers e;
        EXPECT_EQ(zamsDecodeExtensionHeader_AAC(&c.p, &c.off, &e.h, k.tns, k.ms, k.diff, k.last, k.limit, k.seq),
                  k.expected);
        EXPECT_EQ(static_cast<uint32_t>(e.h.max_sfb), kCanaryWord);
        EXPECT_EQ(c.p, c.data.data());
    }
    Cursor c(w);
    ExtBuffers e;
    e.h.pMsUsed = nullptr;
    EXPECT_EQ(zamsDecodeExtensionHeader_AAC(&c.p, &c.off, &e.h, 0, 1, 0, 0, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeExtensionHeader_AAC(&c.p, &c.off, nullptr, 0, 0, 0, 0, 0, 0), zamStsNullPtr);
    EXPECT_EQ(zamsDecodeExtensionHeader_AAC(&c.p, nullptr, &e.h, 0, 0, 0, 0, 0, 0), zamStsNullPtr);
}
