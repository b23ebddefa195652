// Layer III frame header and side information: byte-aligned parsing and packing.
#include <cstdint>

#include "core/bitcursor.h"
#include "core/export.h"

namespace zam::mp3 {
namespace {

inline int channelCount(const Mp3FrameHeader* h) { return h->mode == 3 ? 1 : 2; }

ZamStatus checkHeaderForSideInfo(const Mp3FrameHeader* h)
{
    if (h->ID != 0 && h->ID != 1) return zamStsMp3FrameHeaderErr;
    if (h->layer != 1) return zamStsMp3FrameHeaderErr;
    if (static_cast<uint32_t>(h->mode) > 3) return zamStsMp3FrameHeaderErr;
    return zamStsOk;
}

// A reader over the side information. The byte pointer it hands back is where
// reading stopped (a byte holding unread bits counts as not passed).
struct FieldReader {
    const uint8_t* ptr;
    int offset = 0;
    int32_t read(int n) { return static_cast<int32_t>(readField(ptr, offset, n)); }
};

struct FieldWriter {
    uint8_t* ptr;
    int offset = 0;
    void write(int32_t value, int n) { writeField(ptr, offset, static_cast<uint32_t>(value), n); }
};

}  // namespace
}  // namespace zam::mp3

using namespace zam::mp3;

ZAM_API ZamStatus zamsUnpackFrameHeader_MP3(const uint8_t** ppBitStream, Mp3FrameHeader* pFrameHeader)
{
    if (!ppBitStream || !pFrameHeader || !*ppBitStream) return zamStsNullPtr;
    const uint8_t* p = *ppBitStream;
    // The sync bits (byte 0 and the top of byte 1) are not looked at.
    const uint32_t b1 = p[1], b2 = p[2], b3 = p[3];
    pFrameHeader->ID = (b1 >> 3) & 1;
    pFrameHeader->layer = (b1 >> 1) & 3;
    pFrameHeader->protection_bit = b1 & 1;
    pFrameHeader->bitrate_index = b2 >> 4;
    pFrameHeader->sampling_frequency = (b2 >> 2) & 3;
    pFrameHeader->padding_bit = (b2 >> 1) & 1;
    pFrameHeader->private_bit = b2 & 1;
    pFrameHeader->mode = b3 >> 6;
    pFrameHeader->mode_extension = (b3 >> 4) & 3;
    pFrameHeader->copyright = (b3 >> 3) & 1;
    pFrameHeader->original_copy = (b3 >> 2) & 1;
    pFrameHeader->emphasis = b3 & 3;
    if (pFrameHeader->protection_bit == 0) {
        pFrameHeader->crc_check = static_cast<int32_t>((uint32_t{p[4]} << 8) | p[5]);
        *ppBitStream = p + 6;
    } else {
        *ppBitStream = p + 4;
    }
    return zamStsOk;
}

ZAM_API ZamStatus zamsPackFrameHeader_MP3(const Mp3FrameHeader* pSrcFrameHeader, uint8_t** ppBitStream)
{
    if (!pSrcFrameHeader || !ppBitStream || !*ppBitStream) return zamStsNullPtr;
    const Mp3FrameHeader* h = pSrcFrameHeader;
    FieldWriter w{*ppBitStream};
    w.write(0xFFF, 12);
    w.write(h->ID, 1);
    w.write(h->layer, 2);
    w.write(h->protection_bit, 1);
    w.write(h->bitrate_index, 4);
    w.write(h->sampling_frequency, 2);
    w.write(h->padding_bit, 1);
    w.write(h->private_bit, 1);
    w.write(h->mode, 2);
    w.write(h->mode_extension, 2);
    w.write(h->copyright, 1);
    w.write(h->original_copy, 1);
    w.write(h->emphasis, 2);
    // The CRC word follows only for a protected frame (protection_bit 0); its
    // masked value decides, as in the stream.
    if ((h->protection_bit & 1) == 0) {
        w.write(h->crc_check >> 8, 8);
        w.write(h->crc_check, 8);
    }
    *ppBitStream = w.ptr;
    return zamStsOk;
}

ZAM_API ZamStatus zamsUnpackSideInfo_MP3(const uint8_t** ppBitStream, Mp3SideInfo* pDstSideInfo,
                                         int32_t* pDstMainDataBegin, int32_t* pDstPrivateBits,
                                         int32_t* pDstScfsi, const Mp3FrameHeader* pFrameHeader)
{
    if (!ppBitStream || !pDstSideInfo || !pDstMainDataBegin || !pDstPrivateBits || !pDstScfsi || !pFrameHeader)
        return zamStsNullPtr;
    if (!*ppBitStream) return zamStsNullPtr;
    if (const ZamStatus s = checkHeaderForSideInfo(pFrameHeader); s != zamStsOk) return s;

    const bool mpeg1 = pFrameHeader->ID == 1;
    const int nch = channelCount(pFrameHeader);
    const int granules = mpeg1 ? 2 : 1;
    FieldReader r{*ppBitStream};

    if (mpeg1) {
        *pDstMainDataBegin = r.read(9);
        *pDstPrivateBits = r.read(nch == 1 ? 5 : 3);
        for (int ch = 0; ch < nch; ++ch)
            for (int band = 0; band < 4; ++band) pDstScfsi[ch * 4 + band] = r.read(1);
    } else {
        *pDstMainDataBegin = r.read(8);
        *pDstPrivateBits = r.read(nch == 1 ? 1 : 2);
    }

    for (int gr = 0; gr < granules; ++gr) {
        for (int ch = 0; ch < nch; ++ch) {
            Mp3SideInfo& si = pDstSideInfo[gr * nch + ch];
            si.part2_3_length = r.read(12);
            si.big_values = r.read(9);
            si.global_gain = r.read(8);
            si.scalefac_compress = r.read(mpeg1 ? 4 : 9);
            si.window_switching_flag = r.read(1);
            if (si.window_switching_flag) {
                si.block_type = r.read(2);
                si.mixed_block_flag = r.read(1);
                si.table_select[0] = r.read(5);
                si.table_select[1] = r.read(5);
                si.subblock_gain[0] = r.read(3);
                si.subblock_gain[1] = r.read(3);
                si.subblock_gain[2] = r.read(3);
                if (si.block_type == 0) {
                    // Reserved combination: the frame cannot be decoded.
                    *ppBitStream = r.ptr;
                    return zamStsMp3SideInfoErr;
                }
                if (si.block_type == 2 && si.mixed_block_flag == 0) {
                    si.region0_count = 8;
                    si.region1_count = 12;
                } else {
                    si.region0_count = 7;
                    si.region1_count = 13;
                }
            } else {
                si.block_type = 0;
                si.mixed_block_flag = 0;
                si.table_select[0] = r.read(5);
                si.table_select[1] = r.read(5);
                si.table_select[2] = r.read(5);
                si.region0_count = r.read(4);
                si.region1_count = r.read(3);
            }
            if (mpeg1) si.preflag = r.read(1);
            si.scalefac_scale = r.read(1);
            si.count1table_select = r.read(1);
        }
    }
    *ppBitStream = r.ptr;
    return zamStsOk;
}

ZAM_API ZamStatus zamsPackSideInfo_MP3(const Mp3SideInfo* pSrcSideInfo, uint8_t** ppBitStream,
                                       int32_t mainDataBegin, int32_t privateBits, const int32_t* pSrcScfsi,
                                       const Mp3FrameHeader* pFrameHeader)
{
    if (!pSrcSideInfo || !ppBitStream || !*ppBitStream || !pSrcScfsi || !pFrameHeader) return zamStsNullPtr;
    if (const ZamStatus s = checkHeaderForSideInfo(pFrameHeader); s != zamStsOk) return s;

    const bool mpeg1 = pFrameHeader->ID == 1;
    const int nch = channelCount(pFrameHeader);
    const int granules = mpeg1 ? 2 : 1;
    FieldWriter w{*ppBitStream};

    if (mpeg1) {
        w.write(mainDataBegin, 9);
        w.write(privateBits, nch == 1 ? 5 : 3);
        for (int ch = 0; ch < nch; ++ch)
            for (int band = 0; band < 4; ++band) w.write(pSrcScfsi[ch * 4 + band], 1);
    } else {
        w.write(mainDataBegin, 8);
        w.write(privateBits, nch == 1 ? 1 : 2);
    }

    for (int gr = 0; gr < granules; ++gr) {
        for (int ch = 0; ch < nch; ++ch) {
            const Mp3SideInfo& si = pSrcSideInfo[gr * nch + ch];
            w.write(si.part2_3_length, 12);
            w.write(si.big_values, 9);
            w.write(si.global_gain, 8);
            w.write(si.scalefac_compress, mpeg1 ? 4 : 9);
            // Branches follow the values as written, masked to their field widths.
            w.write(si.window_switching_flag, 1);
            if (si.window_switching_flag & 1) {
                if ((si.block_type & 3) == 0) {
                    // Not an error on this side: the writer stops here and reports success.
                    *ppBitStream = w.ptr;
                    return zamStsOk;
                }
                w.write(si.block_type, 2);
                w.write(si.mixed_block_flag, 1);
                w.write(si.table_select[0], 5);
                w.write(si.table_select[1], 5);
                w.write(si.subblock_gain[0], 3);
                w.write(si.subblock_gain[1], 3);
                w.write(si.subblock_gain[2], 3);
            } else {
                w.write(si.table_select[0], 5);
                w.write(si.table_select[1], 5);
                w.write(si.table_select[2], 5);
                w.write(si.region0_count, 4);
                w.write(si.region1_count, 3);
            }
            if (mpeg1) w.write(si.preflag, 1);
            w.write(si.scalefac_scale, 1);
            w.write(si.count1table_select, 1);
        }
    }
    *ppBitStream = w.ptr;
    return zamStsOk;
}
