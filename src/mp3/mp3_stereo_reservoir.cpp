// Joint-stereo decision and M/S transform of a frame's lines, and the set-up of the
// caller's bit-reservoir record.
#include <cmath>
#include <cstdint>

#include "core/export.h"
#include "mp3/mp3_encoder.h"

namespace {

// M/S pays when the side signal is weak against the mid signal.
constexpr double kSideToMidLimit = 0.35;

constexpr int kBitrates[2][15] = {{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
                                  {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}};
constexpr int kRates[2][3] = {{22050, 24000, 16000}, {44100, 48000, 32000}};

}  // namespace

ZAM_API ZamStatus zamsJointStereoEncode_MP3_32s_I(int32_t* pSrcDstL, int32_t* pSrcDstR, Mp3FrameHeader* pFrameHeader,
                                                 const Mp3SideInfo* pSideInfo)
{
    if (!pSrcDstL || !pSrcDstR || !pFrameHeader || !pSideInfo) return zamStsNullPtr;
    Mp3FrameHeader& h = *pFrameHeader;
    if (static_cast<uint32_t>(h.ID) > 1 || h.mode != 1) return zamStsMp3FrameHeaderErr;
    const int granules = h.ID ? 2 : 1;
    for (int gr = 0; gr < granules; ++gr) {
        const Mp3SideInfo& l = pSideInfo[gr * 2];
        const Mp3SideInfo& r = pSideInfo[gr * 2 + 1];
        if (static_cast<uint32_t>(l.window_switching_flag) > 1 || static_cast<uint32_t>(r.window_switching_flag) > 1)
            return zamStsMp3SideInfoErr;
    }
    bool ms = true;
    double mid = 0, side = 0;
    for (int gr = 0; gr < granules; ++gr) {
        const Mp3SideInfo& l = pSideInfo[gr * 2];
        const Mp3SideInfo& r = pSideInfo[gr * 2 + 1];
        const int btL = l.window_switching_flag ? l.block_type : 0, btR = r.window_switching_flag ? r.block_type : 0;
        ms &= btL == btR;
        for (int i = 0; i < 576; ++i) {
            const double a = pSrcDstL[gr * 576 + i], b = pSrcDstR[gr * 576 + i];
            mid += (a + b) * (a + b);
            side += (a - b) * (a - b);
        }
    }
    ms &= side < kSideToMidLimit * mid;
    h.mode_extension = ms ? 2 : 0;
    if (!ms) return zamStsOk;
    constexpr double kInvSqrt2 = 0.70710678118654752440;
    for (int i = 0; i < granules * 576; ++i) {
        const double a = pSrcDstL[i], b = pSrcDstR[i];
        pSrcDstL[i] = static_cast<int32_t>(std::lrint((a + b) * kInvSqrt2));
        pSrcDstR[i] = static_cast<int32_t>(std::lrint((a - b) * kInvSqrt2));
    }
    return zamStsOk;
}

ZAM_API ZamStatus zamsBitReservoirInit_MP3(Mp3BitReservoir* pReservoir, int bitrate, int samplingRate, int channels)
{
    if (!pReservoir) return zamStsNullPtr;
    if (channels != 1 && channels != 2) return zamStsBadArg;
    int id = -1;
    for (int v = 0; v < 2; ++v)
        for (int r = 0; r < 3; ++r)
            if (kRates[v][r] == samplingRate) id = v;
    if (id < 0) return zamStsBadArg;
    bool legal = false;
    for (int i = 1; i < 15; ++i) legal |= kBitrates[id][i] == bitrate;
    if (!legal) return zamStsBadArg;
    Mp3BitReservoir& r = *pReservoir;
    r.bitrate = bitrate;
    r.samplingRate = samplingRate;
    r.channels = channels;
    r.granules = id ? 2 : 1;
    r.sideInfoBits = 32 + 8 * (id ? (channels == 1 ? 17 : 32) : (channels == 1 ? 9 : 17));
    r.maxBits = 8 * (id ? 511 : 255);
    r.frameRemainder = 0;
    r.bits = 0;
    const int64_t frameBits = static_cast<int64_t>(id ? 1152 : 576) * bitrate * 1000 / samplingRate;
    r.meanBits = static_cast<int32_t>((frameBits - r.sideInfoBits) / (r.granules * channels));
    r.frameBytes = 0;
    r.paddingBit = 0;
    r.mainDataBits = 0;
    return zamStsOk;
}
