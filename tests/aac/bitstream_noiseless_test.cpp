// Noiseless decoding on hand-built channel streams: sections, scale factors,
// noise and intensity bands, pulses, TNS, escapes, grouped output order, and the
// argument checks of both decoders.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "aac/aac_bitstream.h"
#include "aac_test_util.h"
#include "test_support.h"
#include "zamac.h"

using aactest::BitWriter;
using aactest::ChannelOutputs;

namespace {

constexpr int kSfi44k = 4;

struct Result {
    ZamStatus status;
    long bitsUsed;
};

Result runLc(const BitWriter& w, ChannelOutputs& o, int commonWin = 0, int startOffset = 0)
{
    std::vector<uint8_t> data = w.bytes();
    uint8_t* p = data.data();
    int off = startOffset;
    const ZamStatus st = zamsNoiselessDecoder_LC_AAC(&p, &off, commonWin, &o.info, o.sf, o.spectrum, o.cb, o.tnsCoef);
    return {st, (p - data.data()) * 8 + off - startOffset};
}

Result runGeneral(const BitWriter& w, ChannelOutputs& o, int commonWin = 0, int scaleFlag = 0,
                  int windowSequence = 0, int maxSfb = 0, int aot = 2)
{
    std::vector<uint8_t> data = w.bytes();
    uint8_t* p = data.data();
    int off = 0;
    const ZamStatus st = zamsNoiselessDecode_AAC(&p, &off, &o.mainHeader, o.sf, o.spectrum, o.cb, o.tnsCoef, &o.info,
                                                 windowSequence, maxSfb, commonWin, scaleFlag, aot);
    return {st, (p - data.data()) * 8 + off};
}

void writeZeroQuads(BitWriter& w, int book, int values)
{
    const int32_t zero[4] = {0, 0, 0, 0};
    for (int i = 0; i < values; i += 4) w.spectralTuple(book, zero);
}

using Ints = std::vector<int>;

template <typename T>
Ints ints(const T* p, int n)
{
    return Ints(p, p + n);
}

bool allZero(const int32_t* v, int n)
{
    for (int i = 0; i < n; ++i) {
        if (v[i] != 0) return false;
    }
    return true;
}

}  // namespace

TEST(AacNoiseless, MaxSfbZeroInEveryGroupGivesZeroSpectrum)
{
    BitWriter w;
    w.put(90, 8);
    aactest::writeShortIcs(w, 0, 0x00);  // eight groups of one window
    aactest::writeNoTools(w);
    for (int form = 0; form < 2; ++form) {
        ChannelOutputs o(kSfi44k);
        const Result r = form == 0 ? runLc(w, o) : runGeneral(w, o);
        ASSERT_EQ(r.status, zamStsOk);
        EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
        EXPECT_EQ(o.ics.num_window_groups, 8);
        for (int g = 0; g < 8; ++g) EXPECT_EQ(o.info.num_sec[g], 0);
        EXPECT_TRUE(allZero(o.spectrum, 1024));
        EXPECT_EQ((Ints{o.info.num_window, o.info.frame_length, o.info.num_swb, o.info.global_gain}),
                  (Ints{8, 128, 14, 90}));
        EXPECT_TRUE(zamtest::untouched(o.sf, 8 * 64));  // no band, no scale factor
    }
}

TEST(AacNoiseless, SectionLengthEscapePieces)
{
    // A 31-band section needs a second piece of 0; 49 = 31 + 18.
    BitWriter w;
    w.put(100, 8);
    aactest::writeLongIcs(w, 49);
    aactest::writeSection(w, 0, 31, false);
    aactest::writeSection(w, 0, 18, false);
    aactest::writeNoTools(w);
    ChannelOutputs o(kSfi44k);
    const Result r = runLc(w, o);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.bitsUsed, 8 + 11 + 14 + 9 + 3);
    EXPECT_EQ(o.info.num_sec[0], 2);
    EXPECT_EQ(ints(o.info.sect_end, 2), (Ints{31, 49}));
    EXPECT_TRUE(allZero(o.spectrum, 1024));
}

TEST(AacNoiseless, ThreeLengthPiecesNeedACallerMaxSfbAbove61)
{
    // Only a caller-filled ICS record (common window, general form) can carry a
    // max_sfb above 51: with 63, the pieces 31 + 31 + 2 are all read and the
    // section then ends past max_sfb.
    BitWriter w;
    w.put(100, 8);
    w.put(0, 4);
    w.put(31, 5);
    w.put(31, 5);
    w.put(2, 5);
    ChannelOutputs o(kSfi44k);
    o.ics.window_sequence = 0;
    o.ics.max_sfb = 63;
    o.ics.num_window_groups = 1;
    o.ics.window_group_length[0] = 1;
    const Result r = runGeneral(w, o, 1);
    EXPECT_EQ(r.status, zamStsAacSectDataErr);
    EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
    o.ics.max_sfb = 64;
    EXPECT_EQ(runGeneral(w, o, 1).status, zamStsAacMaxSfbErr);
}

// The scale factors run from global_gain and have no lower bound.
TEST(AacNoiseless, ScaleFactorsRunFromGlobalGain)
{
    BitWriter w;
    w.put(5, 8);
    aactest::writeLongIcs(w, 4);
    aactest::writeSection(w, 1, 4, false);
    for (int d : {-10, 3, 0, 60}) w.scaleFactorDiff(d);
    aactest::writeNoTools(w);
    writeZeroQuads(w, 1, 16);
    for (int form = 0; form < 2; ++form) {
        ChannelOutputs o(kSfi44k);
        const Result r = form == 0 ? runLc(w, o) : runGeneral(w, o);
        ASSERT_EQ(r.status, zamStsOk);
        EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
        EXPECT_EQ(ints(o.sf, 4), (Ints{-5, -2, -2, 58}));
        EXPECT_EQ(ints(o.cb, 4), (Ints{1, 1, 1, 1}));
    }
}

TEST(AacNoiseless, IntensityPositionsRunFromZero)
{
    BitWriter w;
    w.put(120, 8);
    aactest::writeLongIcs(w, 4);
    aactest::writeSection(w, 15, 2, false);
    aactest::writeSection(w, 1, 1, false);
    aactest::writeSection(w, 14, 1, false);
    w.scaleFactorDiff(2);   // intensity 2
    w.scaleFactorDiff(-5);  // intensity -3
    w.scaleFactorDiff(1);   // scale factor 121
    w.scaleFactorDiff(4);   // intensity 1
    aactest::writeNoTools(w);
    writeZeroQuads(w, 1, 4);  // band 2 of 44.1 kHz: 4 lines
    ChannelOutputs o(kSfi44k);
    const Result r = runLc(w, o);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
    EXPECT_EQ(ints(o.sf, 4), (Ints{2, -3, 121, 1}));
    EXPECT_EQ(ints(o.cb, 4), (Ints{15, 15, 1, 14}));
}

TEST(AacNoiseless, NoiseEnergySharesTheRunningValue)
{
    BitWriter w;
    w.put(100, 8);
    aactest::writeLongIcs(w, 3);
    aactest::writeSection(w, 13, 2, false);
    aactest::writeSection(w, 1, 1, false);
    w.put(256, 9);          // first noise band: 100 + 256 - 346 = 10
    w.scaleFactorDiff(4);   // 14
    w.scaleFactorDiff(1);   // the scale factor continues from the noise value: 15
    aactest::writeNoTools(w);
    writeZeroQuads(w, 1, 4);
    ChannelOutputs o(kSfi44k);
    const Result r = runGeneral(w, o);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
    EXPECT_EQ(ints(o.sf, 3), (Ints{10, 14, 15}));
    EXPECT_TRUE(allZero(o.spectrum, 8));  // noise bands carry no values

    ChannelOutputs lc(kSfi44k);
    EXPECT_EQ(runLc(w, lc).status, zamStsAacSfCbErr);
}

namespace {

// Long frame at 44.1 kHz whose last band (48, lines 928..1023) carries book-1
// values, with pulses from band 48 at the given offsets.
BitWriter pulseFrame(const std::vector<int>& offsets, const std::vector<int>& amps, int startSfb = 48)
{
    BitWriter w;
    w.put(100, 8);
    aactest::writeLongIcs(w, 49);
    aactest::writeSection(w, 0, 48, false);
    aactest::writeSection(w, 1, 1, false);
    w.scaleFactorDiff(0);
    w.put(1, 1);  // pulse_data_present
    w.put(static_cast<uint32_t>(offsets.size() - 1), 2);
    w.put(static_cast<uint32_t>(startSfb), 6);
    for (size_t i = 0; i < offsets.size(); ++i) {
        w.put(static_cast<uint32_t>(offsets[i]), 5);
        w.put(static_cast<uint32_t>(amps[i]), 4);
    }
    w.put(0, 2);  // no TNS, no gain control
    for (int i = 928; i < 1024; i += 4) {
        // line 990 holds 1, line 1021 holds -1, line 1023 holds 1
        int32_t v[4] = {0, 0, 0, 0};
        for (int k = 0; k < 4; ++k) {
            if (i + k == 990 || i + k == 1023) v[k] = 1;
            if (i + k == 1021) v[k] = -1;
        }
        w.spectralTuple(1, v);
    }
    return w;
}

}  // namespace

TEST(AacNoiseless, PulsesUpToPosition1023)
{
    const BitWriter w = pulseFrame({31, 31, 31, 2}, {3, 4, 5, 6});  // 959, 990, 1021, 1023
    for (int form = 0; form < 2; ++form) {
        ChannelOutputs o(kSfi44k);
        const Result r = form == 0 ? runLc(w, o) : runGeneral(w, o);
        ASSERT_EQ(r.status, zamStsOk);
        EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
        EXPECT_EQ(o.info.pulse_data_present, 1);
        EXPECT_EQ(o.spectrum[959], -3);  // zero shrinks
        EXPECT_EQ(o.spectrum[990], 5);   // positive grows
        EXPECT_EQ(o.spectrum[1021], -6);
        EXPECT_EQ(o.spectrum[1023], 7);
        EXPECT_TRUE(allZero(o.spectrum, 928));
    }
}

TEST(AacNoiseless, TnsDataPackedOverWindows)
{
    {  // long: one filter, 4-bit coefficients
        BitWriter w;
        w.put(100, 8);
        aactest::writeLongIcs(w, 0);
        w.put(0, 1);   // pulse
        w.put(1, 1);   // tns_data_present
        w.put(1, 2);   // n_filt
        w.put(1, 1);   // coef_res -> 4 bits
        w.put(20, 6);  // length
        w.put(3, 5);   // order
        w.put(1, 1);   // direction
        w.put(0, 1);   // coef_compress
        for (int v : {7, -8, -1}) w.put(static_cast<uint32_t>(v) & 15u, 4);
        w.put(0, 1);  // gain control
        ChannelOutputs o(kSfi44k);
        const Result r = runLc(w, o);
        ASSERT_EQ(r.status, zamStsOk);
        EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
        const AacChanInfo& i = o.info;
        EXPECT_EQ((Ints{i.n_filt[0], i.coef_res[0], i.length[0], i.order[0], i.direction[0]}), (Ints{1, 4, 20, 3, 1}));
        EXPECT_EQ(ints(o.tnsCoef, 3), (Ints{7, -8, -1}));
        EXPECT_EQ(static_cast<uint8_t>(o.tnsCoef[3]), zamtest::kCanary);
    }
    {  // eight short: filters of windows 0 and 3 go to entries 0 and 1
        BitWriter w;
        w.put(100, 8);
        aactest::writeShortIcs(w, 0, 0x7F);
        w.put(0, 1);
        w.put(1, 1);
        for (int win = 0; win < 8; ++win) {
            if (win == 0) {
                w.put(1, 1), w.put(0, 1), w.put(5, 4), w.put(2, 3), w.put(0, 1), w.put(1, 1);  // 2-bit coefs
                w.put(1, 2), w.put(2, 2);                                                      // 1, -2
            } else if (win == 3) {
                w.put(1, 1), w.put(1, 1), w.put(9, 4), w.put(1, 3), w.put(1, 1), w.put(0, 1);  // 4-bit coef
                w.put(9, 4);                                                                   // -7
            } else {
                w.put(0, 1);
            }
        }
        w.put(0, 1);
        ChannelOutputs o(kSfi44k);
        const Result r = runLc(w, o);
        ASSERT_EQ(r.status, zamStsOk);
        EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
        EXPECT_EQ(ints(o.info.n_filt, 4), (Ints{1, 0, 0, 1}));
        EXPECT_EQ((Ints{o.info.coef_res[0], o.info.coef_res[3]}), (Ints{3, 4}));
        EXPECT_EQ(ints(o.info.length, 2), (Ints{5, 9}));
        EXPECT_EQ(ints(o.info.order, 2), (Ints{2, 1}));
        EXPECT_EQ(ints(o.info.direction, 2), (Ints{0, 1}));
        EXPECT_EQ(ints(o.tnsCoef, 3), (Ints{1, -2, -7}));
    }
}

TEST(AacNoiseless, GroupedBandInterleavedOrder)
{
    // Groups of 3 and 5 windows (1101111), max_sfb 2 at 44.1 kHz (bands of 4 lines).
    BitWriter w;
    w.put(100, 8);
    aactest::writeShortIcs(w, 2, 0x6F);
    aactest::writeSection(w, 5, 2, true);
    aactest::writeSection(w, 0, 1, true);
    aactest::writeSection(w, 7, 1, true);
    w.scaleFactorDiff(1);
    w.scaleFactorDiff(2);
    w.scaleFactorDiff(-1);
    aactest::writeNoTools(w);
    std::vector<int32_t> expected(1024, 0);
    for (int i = 0; i < 24; i += 2) {  // group 0: 2 bands x 3 windows x 4 lines
        const int32_t v[2] = {(i % 9) - 4, 4 - (i % 7)};
        w.spectralTuple(5, v);
        expected[i] = v[0], expected[i + 1] = v[1];
    }
    for (int i = 0; i < 20; i += 2) {  // group 1, band 1: 5 windows x 4 lines
        const int32_t v[2] = {i % 8, -(i % 5)};
        w.spectralTuple(7, v);
        expected[384 + 20 + i] = v[0], expected[384 + 20 + i + 1] = v[1];
    }
    for (int form = 0; form < 2; ++form) {
        ChannelOutputs o(kSfi44k);
        const Result r = form == 0 ? runLc(w, o) : runGeneral(w, o);
        ASSERT_EQ(r.status, zamStsOk);
        EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
        EXPECT_EQ(o.ics.num_window_groups, 2);
        EXPECT_EQ(o.ics.window_group_length[0], 3);
        EXPECT_EQ(o.ics.window_group_length[1], 5);
        EXPECT_EQ(ints(o.info.num_sec, 2), (Ints{1, 2}));
        EXPECT_EQ(ints(o.sf, 4), (Ints{101, 103, 0, 102}));
        EXPECT_EQ(ints(o.cb, 4), (Ints{5, 5, 0, 7}));
        EXPECT_EQ(std::vector<int32_t>(o.spectrum, o.spectrum + 1024), expected);
    }
}

TEST(AacNoiseless, LayerFormTakesGroupsFromTheMainHeader)
{
    BitWriter w;
    w.put(100, 8);  // no ICS, no tools
    aactest::writeSection(w, 1, 1, true);
    w.scaleFactorDiff(3);
    writeZeroQuads(w, 1, 4 * 8);  // one group of 8 windows, band 0
    ChannelOutputs o(kSfi44k);
    o.mainHeader.num_window_groups = 1;
    o.mainHeader.window_group_length[0] = 8;
    const Result r = runGeneral(w, o, 0, 1, 2, 1);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
    EXPECT_EQ(o.sf[0], 103);
    EXPECT_EQ(o.info.num_window, 8);
}

TEST(AacNoiseless, WindowGroupsFromCallerMustFit)
{
    BitWriter w;
    w.put(100, 8);
    ChannelOutputs o(kSfi44k);
    o.ics.window_sequence = 2;
    o.ics.max_sfb = 0;
    o.ics.num_window_groups = 2;
    o.ics.window_group_length[0] = 5;
    o.ics.window_group_length[1] = 4;  // nine windows
    EXPECT_EQ(runLc(w, o, 1).status, zamStsAacNumWinGrpErr);
}

TEST(AacNoiseless, EscapeValues)
{
    BitWriter w;
    w.put(100, 8);
    aactest::writeLongIcs(w, 1);
    aactest::writeSection(w, 11, 1, false);
    w.scaleFactorDiff(0);
    aactest::writeNoTools(w);
    const int32_t values[4] = {8191, -17, 16, 0};
    w.spectralTuple(11, values);
    w.spectralTuple(11, values + 2);
    ChannelOutputs o(kSfi44k);
    const Result r = runLc(w, o);
    ASSERT_EQ(r.status, zamStsOk);
    EXPECT_EQ(r.bitsUsed, static_cast<long>(w.bits()));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(o.spectrum[i], values[i]);
}

namespace {

// Streams that fail in the data: the status of each decoder and how many bits of
// the stream each leaves unread (-1: not pinned).
struct FailCase {
    const char* what;
    BitWriter (*build)();
    ZamStatus lc, general;
    int lcLeft, generalLeft;
    int sfi = kSfi44k;
};

BitWriter longStart(int globalGain, int maxSfb)
{
    BitWriter w;
    w.put(static_cast<uint32_t>(globalGain), 8);
    aactest::writeLongIcs(w, maxSfb);
    return w;
}

const FailCase kFailCases[] = {
    {"31 + 31 passes max_sfb 40: no third piece, the section ends past it",
     [] { BitWriter w = longStart(100, 40); w.put(0, 4), w.put(31, 5), w.put(31, 5), w.put(2, 5); return w; },
     zamStsAacSectDataErr, zamStsAacSectDataErr, 5, -1},
    {"sections 6 + 5 end past max_sfb 10",
     [] { BitWriter w = longStart(100, 10); aactest::writeSection(w, 0, 6, false), aactest::writeSection(w, 0, 5, false); return w; },
     zamStsAacSectDataErr, zamStsAacSectDataErr, -1, -1},
    {"scale factor 250 + 6 = 256",
     [] { BitWriter w = longStart(250, 1); aactest::writeSection(w, 1, 1, false), w.scaleFactorDiff(6); return w; },
     zamStsAacSfValueErr, zamStsAacSfValueErr, -1, -1},
    {"the first noise band (255 + 511 - 346 = 420) is kept, a later one at 420 fails",
     [] {
         BitWriter w = longStart(255, 2);
         aactest::writeSection(w, 13, 2, false), w.put(511, 9), w.scaleFactorDiff(0);
         return w;
     },
     zamStsAacSfCbErr, zamStsAacSfValueErr, -1, 0},
    {"reserved book 12 in a band: the scale factors reject it",
     [] { BitWriter w = longStart(100, 1); aactest::writeSection(w, 12, 1, false); return w; },
     zamStsAacSfCbErr, zamStsAacSfCbErr, -1, -1},
    {"reserved book 12 in an empty section: the spectral data reject it",
     [] {
         BitWriter w = longStart(100, 1);
         aactest::writeSection(w, 12, 0, false), aactest::writeSection(w, 0, 1, false), aactest::writeNoTools(w);
         return w;
     },
     zamStsAacSpectCbErr, zamStsAacSpectCbErr, -1, -1},
    {"gain control data", [] { BitWriter w = longStart(100, 0); w.put(1, 3); return w; },
     zamStsAacGainCtrlErr, zamStsAacGainCtrlErr, 0, -1},
    {"pulse at 1024", [] { return pulseFrame({31, 31, 31, 3}, {1, 1, 1, 1}); }, zamStsAacPulseErr,
     zamStsAacPulseErr, -1, -1},
    {"pulse start band 49, not below num_swb", [] { return pulseFrame({0}, {1}, 49); }, zamStsAacPulseErr,
     zamStsAacPulseErr, -1, -1},
    {"pulse start band 52, above 51", [] { return pulseFrame({0}, {1}, 52); }, zamStsAacPulseErr,
     zamStsAacPulseErr, -1, -1},
    {"pulse flag in an eight-short sequence",
     [] { BitWriter w; w.put(100, 8), aactest::writeShortIcs(w, 0, 0x7F), w.put(1, 1); return w; },
     zamStsAacPulseErr, zamStsAacPulseErr, 0, -1},
    {"long TNS order 13",
     [] {
         BitWriter w = longStart(100, 0);
         w.put(0, 1), w.put(1, 1), w.put(1, 2), w.put(0, 1), w.put(4, 6), w.put(13, 5);
         return w;
     },
     zamStsAacTnsOrderErr, zamStsAacTnsOrderErr, 0, -1},
    {"96 kHz has 12 short bands: max_sfb 13 passes the general form's checks",
     [] {
         BitWriter w;
         w.put(100, 8), aactest::writeShortIcs(w, 13, 0x7F), aactest::writeSection(w, 0, 13, true);
         aactest::writeNoTools(w);
         return w;
     },
     zamStsAacMaxSfbErr, zamStsBadData, -1, -1, 0},
    {"nine ones in an escape prefix: the cursor stands after the ninth",
     [] {
         BitWriter w = longStart(100, 1);
         aactest::writeSection(w, 11, 1, false), w.scaleFactorDiff(0), aactest::writeNoTools(w);
         const zam::AacHuffCode& c = zam::kAacSpectralBooks[11].codes[16 * 17];  // (16, 0)
         w.put(c.code, static_cast<int>(c.length)), w.put(0, 1), w.put(0x1FF, 9), w.put(0, 16);
         return w;
     },
     zamStsAacQuantValErr, zamStsAacQuantValErr, 16, -1},
};

}  // namespace

TEST(AacNoiseless, StreamsThatFail)
{
    for (const FailCase& k : kFailCases) {
        const BitWriter w = k.build();
        ChannelOutputs lc(k.sfi), general(k.sfi);
        const Result a = runLc(w, lc), b = runGeneral(w, general);
        EXPECT_EQ(a.status, k.lc) << k.what;
        EXPECT_EQ(b.status, k.general) << k.what;
        const long all = static_cast<long>(w.bits());
        if (k.lcLeft >= 0) EXPECT_EQ(a.bitsUsed, all - k.lcLeft) << k.what;
        if (k.generalLeft >= 0) EXPECT_EQ(b.bitsUsed, all - k.generalLeft) << k.what;
    }
}

// ---------------------------------------------------------------- arguments

TEST(AacNoiseless, LcArgumentChecksInOrder)
{
    BitWriter w;
    w.put(100, 8);
    aactest::writeLongIcs(w, 0);
    aactest::writeNoTools(w);
    std::vector<uint8_t> data = w.bytes();
    struct Case {
        int what;
        ZamStatus expected;
    };
    // 0..8 null pointers, then offset, commonWin, sampling index, prediction bands.
    for (int what = 0; what < 14; ++what) {
        ChannelOutputs o(kSfi44k);
        uint8_t* p = data.data();
        uint8_t* nullByte = nullptr;
        int off = 0;
        int commonWin = 0;
        uint8_t** pp = &p;
        int* pOff = &off;
        AacChanInfo* ci = &o.info;
        int16_t* sf = o.sf;
        int32_t* spec = o.spectrum;
        uint8_t* cb = o.cb;
        int8_t* tns = o.tnsCoef;
        ZamStatus expected = zamStsNullPtr;
        switch (what) {
        case 0: pp = nullptr; break;
        case 1: pOff = nullptr; break;
        case 2: ci = nullptr; break;
        case 3: sf = nullptr; break;
        case 4: spec = nullptr; break;
        case 5: cb = nullptr; break;
        case 6: tns = nullptr; break;
        case 7: pp = &nullByte; break;
        case 8: o.info.pIcsInfo = nullptr; break;
        case 9: off = 8, commonWin = 2, expected = zamStsAacBitOffsetErr; break;  // offset before commonWin
        case 10: off = -1, expected = zamStsAacBitOffsetErr; break;
        case 11: commonWin = 2, o.info.sampling_frequency_index = 12, expected = zamStsAacCommonWinErr; break;
        case 12: o.info.sampling_frequency_index = 12, o.info.num_pred_sfb = 1, expected = zamStsAacSmplRateIdxErr; break;
        case 13: o.info.num_pred_sfb = 1, expected = zamStsAacPredSfbErr; break;
        }
        AacChanInfo before = o.info;
        const int offBefore = off;
        EXPECT_EQ(zamsNoiselessDecoder_LC_AAC(pp, pOff, commonWin, ci, sf, spec, cb, tns), expected) << what;
        EXPECT_EQ(std::memcmp(&before, &o.info, sizeof before), 0) << what;
        EXPECT_TRUE(zamtest::untouched(o.sf, 8 * 64));
        EXPECT_TRUE(zamtest::untouched(o.spectrum, 1024));
        EXPECT_TRUE(zamtest::untouched(o.cb, 8 * 64));
        EXPECT_TRUE(zamtest::untouched(&o.ics, 1));
        EXPECT_EQ(p, data.data());
        EXPECT_EQ(off, offBefore);
    }
}

TEST(AacNoiseless, GeneralArgumentChecksInOrder)
{
    BitWriter w;
    w.put(100, 8);
    aactest::writeLongIcs(w, 0);
    aactest::writeNoTools(w);
    std::vector<uint8_t> data = w.bytes();
    struct Case {
        int off, commonWin, windowSequence, scaleFlag, aot, maxSfb, sfi;
        ZamStatus expected;
    };
    const Case cases[] = {
        {8, 2, 4, 2, 17, 52, 12, zamStsAacBitOffsetErr},
        {0, 2, 4, 2, 17, 52, 12, zamStsAacCommonWinErr},
        {0, 0, 4, 2, 17, 52, 12, zamStsAacWinSeqErr},
        {0, 0, -1, 0, 2, 0, 4, zamStsAacWinSeqErr},
        {0, 0, 3, 2, 17, 52, 12, zamStsAacLayerFlagErr},
        {0, 0, 3, 1, 17, 52, 12, zamStsAacObjTypeErr},
        {0, 0, 3, 1, 16, 52, 12, zamStsAacMaxSfbErr},
        {0, 0, 3, 1, 16, -1, 12, zamStsAacMaxSfbErr},
        {0, 0, 3, 1, 16, 51, 12, zamStsAacSmplRateIdxErr},
    };
    for (const Case& k : cases) {
        ChannelOutputs o(k.sfi);
        uint8_t* p = data.data();
        int off = k.off;
        const AacChanInfo before = o.info;
        EXPECT_EQ(zamsNoiselessDecode_AAC(&p, &off, &o.mainHeader, o.sf, o.spectrum, o.cb, o.tnsCoef, &o.info,
                                          k.windowSequence, k.maxSfb, k.commonWin, k.scaleFlag, k.aot),
                  k.expected);
        EXPECT_EQ(std::memcmp(&before, &o.info, sizeof before), 0);
        EXPECT_TRUE(zamtest::untouched(o.spectrum, 1024));
        EXPECT_TRUE(zamtest::untouched(&o.mainHeader, 1));
        EXPECT_EQ(p, data.data());
    }
    ChannelOutputs o(kSfi44k);
    uint8_t* p = data.data();
    int off = 0;
    o.info.pIcsInfo = nullptr;
    EXPECT_EQ(zamsNoiselessDecode_AAC(&p, &off, &o.mainHeader, o.sf, o.spectrum, o.cb, o.tnsCoef, &o.info, 0, 0, 0, 0,
                                      2),
              zamStsNullPtr);
    EXPECT_EQ(zamsNoiselessDecode_AAC(&p, &off, nullptr, o.sf, o.spectrum, o.cb, o.tnsCoef, &o.info, 0, 0, 0, 0, 2),
              zamStsNullPtr);
}
