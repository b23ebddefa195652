// Layer III scale factors (part 2 of a granule/channel's main data), MPEG-1 and
// MPEG-2 low sampling frequencies, between the bit stream and a flat int8 array.
#include <cstdint>

#include "core/bitcursor.h"
#include "core/export.h"
#include "mp3/mp3_tables.h"

namespace zam::mp3 {
namespace {

struct Reader {
    const uint8_t* ptr;
    int offset;
    // A length of 0 yields 0 without touching the stream.
    int8_t take(int bits) { return bits == 0 ? int8_t{0} : static_cast<int8_t>(readField(ptr, offset, bits)); }
};

struct Writer {
    uint8_t* ptr;
    int offset;
    void put(int32_t value, int bits)
    {
        if (bits == 0) return;
        if (offset < 0 || offset > 7) {
            // An offset outside 0..7 is taken as a bit distance from the byte pointer.
            ptr += offset >> 3;
            offset &= 7;
        }
        writeField(ptr, offset, static_cast<uint32_t>(value), bits);
    }
};

inline bool isMixed(const Mp3SideInfo* si) { return si->block_type == 2 && si->mixed_block_flag != 0; }
inline bool isShortOnly(const Mp3SideInfo* si) { return si->block_type == 2 && si->mixed_block_flag == 0; }

// The four scfsi groups of the 21 long bands: first band and band count.
constexpr int kGroupStart[5] = {0, 6, 11, 16, 21};

void unpackMpeg1(Reader& r, int8_t* sf, const Mp3SideInfo* si, const int32_t* scfsi, int granule)
{
    const int slen1 = kSlen1[si->scalefac_compress];
    const int slen2 = kSlen2[si->scalefac_compress];
    sf[21] = 0;
    if (isMixed(si)) {
        for (int i = 0; i < 17; ++i) sf[i] = r.take(slen1);  // long 0..7, short 3..5 x 3
        for (int i = 17; i < 35; ++i) sf[i] = r.take(slen2);
        sf[35] = sf[36] = sf[37] = 0;
        return;
    }
    if (si->block_type == 2) {
        for (int i = 0; i < 18; ++i) sf[i] = r.take(slen1);
        for (int i = 18; i < 36; ++i) sf[i] = r.take(slen2);
        sf[36] = sf[37] = sf[38] = 0;
        return;
    }
    for (int group = 0; group < 4; ++group) {
        // scfsi reuse: the caller's array already holds granule 0's values.
        if (granule != 0 && scfsi[group] != 0) continue;
        const int len = group < 2 ? slen1 : slen2;
        for (int band = kGroupStart[group]; band < kGroupStart[group + 1]; ++band) sf[band] = r.take(len);
    }
}

void unpackMpeg2(Reader& r, int8_t* sf, Mp3SideInfo* si, const Mp3FrameHeader* h, int channel)
{
    int blockClass = 0;
    if (si->block_type == 2) {
        si->mixed_block_flag &= 1;
        blockClass = 1 + si->mixed_block_flag;
    }
    const bool intensityRight = (h->mode_extension & 1) != 0 && channel == 1;
    const Lsf lsf = lsfLengths(static_cast<uint32_t>(si->scalefac_compress), intensityRight);
    si->preflag = lsf.preflag;
    int n = 0;
    for (int k = 0; k < 4; ++k) {
        const int count = kNrOfSfbBlock[lsf.row][blockClass][k];
        for (int i = 0; i < count; ++i) sf[n++] = r.take(lsf.slen[k]);
    }
    sf[n] = sf[n + 1] = sf[n + 2] = 0;
    if (!intensityRight) return;
    // The largest value of a partition's length marks an illegal intensity position.
    n = 0;
    for (int k = 0; k < 4; ++k) {
        const int count = kNrOfSfbBlock[lsf.row][blockClass][k];
        const int marker = (1 << lsf.slen[k]) - 1;
        for (int i = 0; i < count; ++i, ++n) {
            if (lsf.slen[k] > 0 && sf[n] == marker) sf[n] = static_cast<int8_t>(-marker);
        }
    }
}

void packMpeg1(Writer& w, const int8_t* sf, const Mp3SideInfo* si, const int32_t* scfsi, int granule)
{
    const int slen1 = kSlen1[si->scalefac_compress];
    const int slen2 = kSlen2[si->scalefac_compress];
    if (isShortOnly(si)) {
        for (int i = 0; i < 18; ++i) w.put(sf[i], slen1);
        for (int i = 18; i < 36; ++i) w.put(sf[i], slen2);
        return;
    }
    if (isMixed(si)) {
        for (int i = 0; i < 17; ++i) w.put(sf[i], slen1);
        for (int i = 17; i < 35; ++i) w.put(sf[i], slen2);
        return;
    }
    for (int group = 0; group < 4; ++group) {
        if (granule != 0 && scfsi[group] != 0) continue;
        const int len = group < 2 ? slen1 : slen2;
        for (int band = kGroupStart[group]; band < kGroupStart[group + 1]; ++band) w.put(sf[band], len);
    }
}

void packMpeg2(Writer& w, const int8_t* sf, Mp3SideInfo* si, const Mp3FrameHeader* h, int channel)
{
    int blockClass = 0;
    if (si->block_type == 2 && si->mixed_block_flag == 0) blockClass = 1;
    else if (si->mixed_block_flag == 1) blockClass = 2;
    const bool intensityRight = (h->mode_extension & 1) != 0 && channel == 1;
    const Lsf lsf = lsfLengths(static_cast<uint32_t>(si->scalefac_compress), intensityRight);
    si->preflag = lsf.preflag;
    int n = 0;
    for (int k = 0; k < 4; ++k) {
        const int count = kNrOfSfbBlock[lsf.row][blockClass][k];
        for (int i = 0; i < count; ++i) w.put(sf[n++], lsf.slen[k]);
    }
}

// The record checks both directions share: scalefac_compress within its 4 (MPEG-1)
// or 9 (MPEG-2) bits, and for MPEG-2 a mode_extension of 2 bits.
ZamStatus checkRecords(bool mpeg1, const Mp3SideInfo* si, const Mp3FrameHeader* fh)
{
    if (static_cast<uint32_t>(si->scalefac_compress) > (mpeg1 ? 15u : 511u)) return zamStsMp3SideInfoErr;
    if (!mpeg1 && static_cast<uint32_t>(fh->mode_extension) > 3) return zamStsMp3FrameHeaderErr;
    return zamStsOk;
}

}  // namespace
}  // namespace zam::mp3

using namespace zam::mp3;

ZAM_API ZamStatus zamsUnpackScaleFactors_MP3_1u8s(const uint8_t** ppBitStream, int32_t* pOffset,
                                                  int8_t* pDstScaleFactor, Mp3SideInfo* pSideInfo,
                                                  const int32_t* pScfsi, const Mp3FrameHeader* pFrameHeader,
                                                  int32_t granule, int32_t channel)
{
    if (!ppBitStream || !pOffset || !pDstScaleFactor || !pSideInfo || !pScfsi || !pFrameHeader)
        return zamStsNullPtr;
    if (!*ppBitStream) return zamStsNullPtr;
    if (static_cast<uint32_t>(*pOffset) > 7 || static_cast<uint32_t>(granule) > 1 ||
        static_cast<uint32_t>(channel) > 1)
        return zamStsBadArg;
    const bool mpeg1 = pFrameHeader->ID == 1;
    if (ZamStatus st = checkRecords(mpeg1, pSideInfo, pFrameHeader); st != zamStsOk) return st;

    Reader r{*ppBitStream, *pOffset};
    if (mpeg1) unpackMpeg1(r, pDstScaleFactor, pSideInfo, pScfsi, granule);
    else unpackMpeg2(r, pDstScaleFactor, pSideInfo, pFrameHeader, channel);
    *ppBitStream = r.ptr;
    *pOffset = r.offset;
    return zamStsOk;
}

ZAM_API ZamStatus zamsPackScaleFactors_MP3_8s1u(const int8_t* pSrcScaleFactor, uint8_t** ppBitStream,
                                                int32_t* pOffset, const Mp3FrameHeader* pFrameHeader,
                                                Mp3SideInfo* pSideInfo, const int32_t* pScfsi, int32_t granule,
                                                int32_t channel)
{
    if (!pSrcScaleFactor || !ppBitStream || !*ppBitStream || !pOffset || !pFrameHeader || !pSideInfo || !pScfsi)
        return zamStsNullPtr;
    const bool mpeg1 = pFrameHeader->ID == 1;
    if (ZamStatus st = checkRecords(mpeg1, pSideInfo, pFrameHeader); st != zamStsOk) return st;

    Writer w{*ppBitStream, *pOffset};
    if (mpeg1) packMpeg1(w, pSrcScaleFactor, pSideInfo, pScfsi, granule);
    else packMpeg2(w, pSrcScaleFactor, pSideInfo, pFrameHeader, channel);
    *ppBitStream = w.ptr;
    *pOffset = w.offset;
    return zamStsOk;
}
