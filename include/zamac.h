/*
 * zamac: audio-coding primitives.
 *
 * The bit-stream, entropy-coding and signal-processing stages from which an
 * application assembles MP3 (MPEG-1/2 Layer III) and AAC (MPEG-2/4, with spectral
 * band replication) encoders and decoders. The library holds no codec: the caller
 * owns the frame loop, the state and every buffer, and calls one function per stage.
 *
 * Conventions shared by every function:
 *  - Every function except zamacGetLibVersion returns a ZamStatus: 0 is success,
 *    negative values are errors, +2 (zamStsMisalignedData) is a warning.
 *  - Arguments are checked first, in one order: pointers (all at once), then the
 *    bit offset and the state object's tag, then counts and lengths, then value
 *    ranges. The first failed check returns at once and writes nothing. A data
 *    error met during the work stops it; output written up to then stays.
 *  - A bit stream is addressed by a cursor: a pointer to a byte pointer and a
 *    pointer to a bit offset 0..7 counted from the most significant bit. Bits go
 *    most significant first; on return the cursor stands after the last bit used.
 *    Readers load whole 32-bit words: keep at least 4 readable bytes of padding
 *    after the last byte of a stream (the library never reads a buffer length).
 *  - Stateful families come as GetSize / Init (in caller memory, any alignment:
 *    the object is placed at the next aligned address inside it) / InitAlloc (from
 *    zamMalloc; the pointer returned is the start of the allocation) / Free.
 *  - The library keeps no global mutable state, takes no locks, starts no threads
 *    and writes no messages. Calls on distinct objects may run concurrently.
 *  - Memory is taken only through zamcore's zamMalloc and released through zamFree.
 */
#ifndef ZAMAC_H
#define ZAMAC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* =========================================================== status codes */

typedef int32_t ZamStatus;

enum {
    zamStsMisalignedData = 2,  /* warning: done, but a data pointer was not 16-byte aligned */
    zamStsOk = 0,
    zamStsBadData = -2,
    zamStsBadArg = -5,
    zamStsSize = -6,
    zamStsNullPtr = -8,
    zamStsMemAlloc = -9,
    zamStsStep = -14,
    zamStsFftOrder = -15,
    zamStsFftFlag = -16,
    zamStsContextMismatch = -17,
    zamStsFirLength = -26,
    zamStsNumChannels = -53,
    zamStsVlcArg = -127,
    zamStsVlcTable = -129,
    zamStsBitOffset = -193,

    zamStsAacObjTypeErr = -136,
    zamStsAacLayerFlagErr = -137,
    zamStsAacDiffFlagErr = -138,
    zamStsAacMsFlagErr = -139,
    zamStsAacFlagErr = -140,
    zamStsAacChanNumErr = -141,
    zamStsAacMsMaskErr = -142,
    zamStsAacCommonWinErr = -143,
    zamStsAacWinSeqErr = -144,
    zamStsAacNumWinGrpErr = -145,
    zamStsAacWinLenErr = -146,
    zamStsAacSmplRateIdxErr = -147,
    zamStsAacBitOffsetErr = -149,
    zamStsAacProfileErr = -151,
    zamStsAacTnsDirErr = -152,
    zamStsAacTnsCoefErr = -153,
    zamStsAacTnsCoefResErr = -154,
    zamStsAacTnsOrderErr = -155,
    zamStsAacTnsLenErr = -156,
    zamStsAacTnsNumFiltErr = -157,
    zamStsAacSectDataErr = -158,
    zamStsAacGainCtrlErr = -159,
    zamStsAacPulseErr = -160,
    zamStsAacPredSfbErr = -161,
    zamStsAacMaxSfbErr = -162,
    zamStsAacQuantValErr = -163,
    zamStsAacSfValueErr = -164,
    zamStsAacSpectCbErr = -165,
    zamStsAacSfCbErr = -166,
    zamStsAacPceCountErr = -167,
    zamStsMp3SideInfoErr = -170,
    zamStsMp3FrameHeaderErr = -171,
    zamStsAacNotSupported = -9999
};

/* ================================================================ version */

typedef struct ZamLibVersion {
    int32_t majorVersion;
    int32_t minorVersion;
    int32_t updateNumber;
    int32_t buildNumber;
    char cpuCode[4];          /* NUL-padded */
    const char* libraryName;
    const char* versionText;
    const char* buildDate;
} ZamLibVersion;

/* The library's constant version record; the same pointer on every call. The
 * caller must neither modify nor free it. Cannot fail. */
const ZamLibVersion* zamacGetLibVersion(void);

/* ========================================================= shared types */

/* An opaque state or specification object. Every family has its own named
 * opaque type below; all of them are laid out as such an object. */
typedef struct SpecObject SpecObject;

/* ======================================================================
 * Sample and vector utilities
 * ====================================================================== */

/* ---- utilities: further kernels ---- */

/* ======================================================================
 * Variable-length coding
 * ====================================================================== */

/* ---- VLC: end ---- */

/* ======================================================================
 * MP3 Layer III bit stream
 * ====================================================================== */

/* The frame header of an MPEG-1/2 Layer III frame. Every field is a signed 32-bit
 * integer holding the coded value of the stream field of the same name; the bit
 * width in the stream is given after each field. */
typedef struct Mp3FrameHeader {
    int32_t ID;                 /* 1: 1 = MPEG-1, 0 = MPEG-2 low sampling frequencies */
    int32_t layer;              /* 2: coded layer; Layer III is 1 */
    int32_t protection_bit;     /* 1: 0 = a 16-bit CRC word follows the header */
    int32_t bitrate_index;      /* 4 */
    int32_t sampling_frequency; /* 2: sampling-rate index */
    int32_t padding_bit;        /* 1 */
    int32_t private_bit;        /* 1 */
    int32_t mode;               /* 2: 0 stereo, 1 joint stereo, 2 dual channel, 3 single channel */
    int32_t mode_extension;     /* 2: bit 1 M/S stereo, bit 0 intensity stereo */
    int32_t copyright;          /* 1 */
    int32_t original_copy;      /* 1 */
    int32_t emphasis;           /* 2 */
    int32_t crc_check;          /* 16: meaningful only when protection_bit is 0 */
} Mp3FrameHeader;

/* The side information of one granule of one channel. An array of these holds the
 * records granule-major: granule gr, channel ch is element gr * nch + ch, with nch
 * 1 when mode is 3 and 2 otherwise (MPEG-1: 2 granules, MPEG-2: 1 granule). */
typedef struct Mp3SideInfo {
    int32_t part2_3_length;        /* 12: bits of scale factors plus Huffman data */
    int32_t big_values;            /* 9: value pairs in the big-values region */
    int32_t global_gain;           /* 8 */
    int32_t scalefac_compress;     /* 4 (MPEG-1) or 9 (MPEG-2) */
    int32_t window_switching_flag; /* 1 */
    int32_t block_type;            /* 2: 0 normal, 1 start, 2 short, 3 stop */
    int32_t mixed_block_flag;      /* 1 */
    int32_t table_select[3];       /* 5 each: Huffman table of regions 0, 1, 2 */
    int32_t subblock_gain[3];      /* 3 each: gain offset per short window */
    int32_t region0_count;         /* 4: scale-factor bands in region 0, minus one */
    int32_t region1_count;         /* 3: scale-factor bands in region 1, minus one */
    int32_t preflag;               /* 1 (MPEG-1 only; derived in MPEG-2) */
    int32_t scalefac_scale;        /* 1 */
    int32_t count1table_select;    /* 1: 0 = count-1 table A, 1 = table B */
} Mp3SideInfo;


/* Readers take the stream as `const uint8_t**`, writers as `uint8_t**`; both are
 * advanced in place. Functions with a bit offset (int32_t*, 0..7 from the most
 * significant bit) move it too. */

/* ---------------------------------------------------------------- MP3 frame
 * Frame header and side information sit on byte boundaries and have whole numbers
 * of bytes, so these four take only a byte pointer (read or written in place, and
 * advanced). None of them looks for the sync word, checks the bit rate or the
 * sampling-frequency index, or computes the CRC. Readers load 32-bit words: up to
 * three bytes after the last byte of the header or side information are touched. */

/* Parses the 32-bit frame header (and its CRC word when protection_bit is 0).
 * The sync bits (byte 0 and the top four bits of byte 1) are skipped unread, so an
 * MPEG-2.5 header (last sync bit 0) reads as ID 0, like MPEG-2.
 * Checks: ppBitStream, pFrameHeader or *ppBitStream null -> zamStsNullPtr.
 * Advances *ppBitStream by 6 when protection_bit is 0 (crc_check read big-endian),
 * else by 4, leaving crc_check as the caller had it. */
ZamStatus zamsUnpackFrameHeader_MP3(const uint8_t** ppBitStream, Mp3FrameHeader* pFrameHeader);

/* Parses the side information that follows the header: main_data_begin, the
 * private bits, the scfsi bits (MPEG-1: element ch * 4 + band of pDstScfsi) and one
 * Mp3SideInfo per granule and channel, granule-major (MPEG-1: 2 granules, 17 or 32
 * bytes; MPEG-2: 1 granule, 9 or 17 bytes).
 * Checks, in order: any pointer or *ppBitStream null -> zamStsNullPtr (pDstScfsi
 * is required also for MPEG-2, where it is not written); header ID not 0 or 1,
 * layer not 1, or mode above 3 (unsigned) -> zamStsMp3FrameHeaderErr.
 * Beyond the coded fields: with window_switching_flag 1 the region counts are
 * implied (8 and 12 for short blocks that are not mixed, 7 and 13 otherwise) and
 * table_select[2] is left as it was; with window_switching_flag 0, block_type and
 * mixed_block_flag are set to 0 and subblock_gain is left as it was. MPEG-2 leaves
 * preflag and the scfsi array as they were.
 * A granule with window_switching_flag 1 and block_type 0 (reserved) returns
 * zamStsMp3SideInfoErr at once: earlier records keep their values, that record
 * keeps the fields read so far, and *ppBitStream stays where reading stopped. */
ZamStatus zamsUnpackSideInfo_MP3(const uint8_t** ppBitStream, Mp3SideInfo* pDstSideInfo,
                                 int32_t* pDstMainDataBegin, int32_t* pDstPrivateBits,
                                 int32_t* pDstScfsi, const Mp3FrameHeader* pFrameHeader);

/* Writes the frame header: the 12-bit sync word 0xFFF, fields ID..emphasis, and
 * crc_check (high byte first) when protection_bit is 0. Values are masked to their
 * field widths; nothing is validated.
 * Checks: pSrcFrameHeader, ppBitStream or *ppBitStream null -> zamStsNullPtr.
 * Advances *ppBitStream by 4 or 6. */
ZamStatus zamsPackFrameHeader_MP3(const Mp3FrameHeader* pSrcFrameHeader, uint8_t** ppBitStream);

/* Writes the side information in the layout zamsUnpackSideInfo_MP3 reads, values
 * masked to their widths (mainDataBegin and privateBits with the widths of the
 * version and channel count; scfsi from pSrcScfsi for MPEG-1). The implied region
 * counts, table_select[2] of a window-switching granule and subblock_gain of a
 * normal granule are not written. Branches follow the values as written (masked).
 * Checks, in order: pSrcSideInfo, ppBitStream, *ppBitStream, pSrcScfsi,
 * pFrameHeader null -> zamStsNullPtr; ID not 0 or 1, layer not 1, mode above 3
 * -> zamStsMp3FrameHeaderErr.
 * A granule with window_switching_flag 1 and block_type 0 is not an error here:
 * writing stops right after its window_switching_flag bit and zamStsOk is
 * returned, *ppBitStream left on the byte where writing stopped. */
ZamStatus zamsPackSideInfo_MP3(const Mp3SideInfo* pSrcSideInfo, uint8_t** ppBitStream, int32_t mainDataBegin,
                               int32_t privateBits, const int32_t* pSrcScfsi, const Mp3FrameHeader* pFrameHeader);

/* ---------------------------------------------------------- MP3 scale factors
 * Scale factors of one granule and channel (part 2 of its main data), between the
 * stream (cursor ppBitStream/pOffset, advanced) and a flat array of at least 39
 * int8 values. Layouts as the unpacker fills them:
 *  MPEG-1 long:  [0..20] bands 0..20, [21] = 0
 *  MPEG-1 short: [3 * sfb + w], sfb 0..11, window w 0..2; [36..38] = 0
 *  MPEG-1 mixed: [0..7] long bands 0..7; [8 + 3 * (sfb - 3) + w] short bands 3..11;
 *                [35..37] = 0
 *  MPEG-2:       the values in stream order, partition 0 first (21 long, 36 short,
 *                33 mixed), then three zeros.
 * MPEG-1 lengths come from the 4-bit scalefac_compress; MPEG-2 lengths, partitions
 * and preflag from the 9-bit one, with the intensity forms for channel 1 when bit 0
 * of mode_extension is set. Both directions set preflag of the record in MPEG-2. */

/* Unpacks the scale factors of granule `granule` and channel `channel`.
 * MPEG-1 long blocks of granule 1: a band group (0..5, 6..10, 11..15, 16..20) whose
 * scfsi value in pScfsi (that channel's four values) is non-zero is not read and
 * keeps the caller's values: pass the array that received granule 0's values.
 * MPEG-2 short blocks: mixed_block_flag is reduced to its lowest bit and written
 * back. MPEG-2 intensity right channel: a value equal to the largest value of its
 * length (illegal intensity position) is stored negated.
 * Checks, in order: any pointer or *ppBitStream null -> zamStsNullPtr; *pOffset,
 * granule above 1 or channel above 1 (unsigned) -> zamStsBadArg; MPEG-1:
 * scalefac_compress outside 0..15 -> zamStsMp3SideInfoErr; MPEG-2 (ID other than
 * 1): scalefac_compress above 511 -> zamStsMp3SideInfoErr, mode_extension above 3
 * -> zamStsMp3FrameHeaderErr. Nothing moves on failure. The bits used are not
 * compared with part2_3_length. */
ZamStatus zamsUnpackScaleFactors_MP3_1u8s(const uint8_t** ppBitStream, int32_t* pOffset, int8_t* pDstScaleFactor,
                                          Mp3SideInfo* pSideInfo, const int32_t* pScfsi,
                                          const Mp3FrameHeader* pFrameHeader, int32_t granule, int32_t channel);

/* Packs scale factors from the layout above; values are masked to their lengths
 * (pass the non-negative coded value of an intensity marker). MPEG-1 granule 1 long
 * blocks skip the groups whose scfsi value is non-zero. MPEG-2 block class: short
 * when block_type is 2 and mixed_block_flag 0, mixed when mixed_block_flag is
 * exactly 1, long otherwise.
 * Checks, in order: pSrcScaleFactor, ppBitStream, *ppBitStream, pOffset,
 * pFrameHeader, pSideInfo, pScfsi null -> zamStsNullPtr; then scalefac_compress and
 * mode_extension as for unpack. The bit offset, granule and channel are not
 * range-checked: an offset outside 0..7 is taken as a bit distance from the byte
 * pointer, and any non-zero granule counts as granule 1. */
ZamStatus zamsPackScaleFactors_MP3_8s1u(const int8_t* pSrcScaleFactor, uint8_t** ppBitStream, int32_t* pOffset,
                                        const Mp3FrameHeader* pFrameHeader, Mp3SideInfo* pSideInfo,
                                        const int32_t* pScfsi, int32_t granule, int32_t channel);

/* ---------------------------------------------------------- MP3 Huffman coding
 * The 576 quantized lines of one granule and channel: big-values pairs (2 *
 * big_values lines in up to three regions, each with its table_select; tables 0, 4
 * and 14 give zeros without reading), count-1 quadruples (table A or B by
 * count1table_select), and zeros. Band tables are rows of int16, row = ID * 3 +
 * sampling_frequency (MPEG-2 22.05, 24, 16 kHz; MPEG-1 44.1, 48, 32 kHz): long
 * 6 x 23 boundaries, short 6 x 14 boundaries of one window, mixed-block partition
 * 6 x 2 (long bands of a mixed block; short band-windows region 0 reaches beyond).
 *
 * Decoding: run after the scale factors, cursor on the first Huffman bit, with
 * hufSize = part2_3_length - scale-factor bits. Regions: normal granules end region
 * 0 at long boundary [region0_count + 1] and region 1 at [region0_count +
 * region1_count + 2], both clipped to 2 * big_values. Count-1 quadruples follow
 * while the line is below 574 and budget is left; a quadruple that runs over the
 * budget is dropped. The cursor then ends exactly hufSize bits after its start
 * (stuffing skipped, an overrun taken back). Lines after the last decoded one are
 * 0; *pDstNonZeroBound is one past the last non-zero line (0 if none). hufSize 0
 * reads nothing and gives 576 zeros after the side-information checks.
 * Bits are read through a byte-refilled accumulator that never touches more than
 * three bytes after the byte holding the budget's last bit; past them it reads
 * zeros, which can only change lines decoded from bits beyond the budget.
 * Table numbers are checked region by region as each is reached (an empty region
 * counts as reached): an error at region 1 or 2 leaves the earlier regions decoded
 * and the cursor after them. When the big-values zone uses more than hufSize bits,
 * zamStsBadData is returned with the cursor after that zone and the count-1 zone
 * not decoded. */

/* Decoding with the caller's long band table. Window-switching granules: region 0
 * is 36 lines (MPEG-1, or block_type 2) or 54 lines (MPEG-2 start and stop blocks),
 * region 1 runs to 2 * big_values, no region 2. (These fixed sizes fit the ISO
 * rates and MPEG-2.5 at 11.025 and 12 kHz; window-switching granules at 8 kHz need
 * zamsHuffmanDecodeSfbMbp_MP3_1u32s with the 8 kHz band tables.)
 * Checks, in order: ppBitStream, pOffset, pDstIs, pDstNonZeroBound, pSideInfo,
 * pFrameHeader, pSfbTableLong null, then *ppBitStream null -> zamStsNullPtr;
 * *pOffset above 7 (unsigned), hufSize negative or above part2_3_length ->
 * zamStsBadArg;
 * big_values above 288, block_type above 3, window_switching_flag or
 * count1table_select above 1 (all unsigned) -> zamStsMp3SideInfoErr; ID above 1 or
 * layer not 1, then sampling_frequency above 2 -> zamStsMp3FrameHeaderErr; window
 * switching with block_type 0, a negative region count or region0_count +
 * region1_count of 21 or more (window switching or not) -> zamStsMp3SideInfoErr;
 * table_select above 31 -> zamStsMp3SideInfoErr (as reached); big-values overrun
 * -> zamStsBadData. */
ZamStatus zamsHuffmanDecodeSfb_MP3_1u32s(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                                         int32_t* pDstNonZeroBound, const Mp3SideInfo* pSideInfo,
                                         const Mp3FrameHeader* pFrameHeader, int32_t hufSize,
                                         const int16_t* pSfbTableLong);

/* zamsHuffmanDecodeSfb_MP3_1u32s with the built-in ISO long band table. */
ZamStatus zamsHuffmanDecode_MP3_1u32s(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                                      int32_t* pDstNonZeroBound, const Mp3SideInfo* pSideInfo,
                                      const Mp3FrameHeader* pFrameHeader, int32_t hufSize);

/* Decoding with the caller's long, short and mixed-block partition tables; region
 * 0 of window-switching granules comes from them: block types 1 and 3 end it at
 * long boundary [8]; short blocks at 3 x short boundary [3]; mixed blocks at long
 * boundary [partition value 0] = L, plus, for j = 0 .. partition value 1 - 1, the
 * width of short band k - 1 + (j + 1) / 3, where k is the first short boundary with
 * 3 x boundary above L. Table indices outside their rows are clamped to the row.
 * Checks, in order (different from the other two decoders, budget included):
 * any pointer or *ppBitStream null -> zamStsNullPtr; *pOffset above 7 ->
 * zamStsBadArg; ID above 1 -> zamStsMp3FrameHeaderErr; big_values above 288,
 * block_type above 3, window_switching_flag above 1, window switching with
 * block_type 0 -> zamStsMp3SideInfoErr (without window switching block_type is
 * not looked at); layer not 1, sampling_frequency above 2 ->
 * zamStsMp3FrameHeaderErr; count1table_select above 1, hufSize negative or above
 * part2_3_length -> zamStsMp3SideInfoErr; region counts and table numbers as above;
 * big-values overrun -> zamStsBadData. */
ZamStatus zamsHuffmanDecodeSfbMbp_MP3_1u32s(const uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDstIs,
                                            int32_t* pDstNonZeroBound, const Mp3SideInfo* pSideInfo,
                                            const Mp3FrameHeader* pFrameHeader, int32_t hufSize,
                                            const int16_t* pSfbTableLong, const int16_t* pSfbTableShort,
                                            const int16_t* pMbpTable);

/* Encodes 576 quantized lines (MPEG-1 only) with the side information's regions
 * and tables: normal granules (and window-switching ones with block_type 0) use the
 * built-in long band table; window-switching granules use 36 lines for region 0,
 * region 1 to 2 * big_values and no region 2. Then count1Len lines from line
 * 2 * big_values as quadruples (rounded up to whole quadruples, none starting at
 * 574 or later; magnitudes above 1 count as 1) with table A or B. If hufSize is
 * larger than the bits written, the rest is filled with 1-bits. Magnitudes a table
 * cannot carry are clipped to its largest value (15 + 2^linbits - 1 with linbits);
 * table numbers without codes (0, 4, 14, above 31) write nothing. The output need
 * not be cleared; the byte the cursor starts in keeps its earlier bits.
 * Checks, in order: pSrcIx, ppBitStream, *ppBitStream, pOffset, pFrameHeader,
 * pSideInfo null -> zamStsNullPtr; *pOffset above 7 -> zamStsBadArg; big_values
 * above 288 -> zamStsMp3SideInfoErr; a negative region count, region0_count +
 * region1_count of 21 or more, or count1table_select above 1 ->
 * zamStsMp3SideInfoErr; ID or layer not 1, then sampling_frequency above 2 ->
 * zamStsMp3FrameHeaderErr; a negative table_select, checked as each of the three
 * regions is reached (also table_select[2] of window-switching granules) ->
 * zamStsMp3SideInfoErr, the earlier regions written. */
ZamStatus zamsHuffmanEncode_MP3_32s1u(const int32_t* pSrcIx, uint8_t** ppBitStream, int32_t* pOffset,
                                      const Mp3FrameHeader* pFrameHeader, const Mp3SideInfo* pSideInfo,
                                      int32_t count1Len, int32_t hufSize);

/* ---- MP3: end ---- */

/* ======================================================================
 * AAC bit stream
 * ====================================================================== */

/* ---- AAC bit stream: end ---- */

/* ======================================================================
 * AAC spectral tools
 * ====================================================================== */

/* ---- AAC spectral tools: end ---- */

/* ======================================================================
 * Transforms: MDCT, FIR block filter
 * ====================================================================== */

/* ---- transforms: end ---- */

/* ======================================================================
 * MP3 float polyphase filter banks
 * ====================================================================== */

/* ---- PQMF: end ---- */

/* ======================================================================
 * SBR predictor coefficients
 * ====================================================================== */

/* ---- SBR: end ---- */

/* ======================================================================
 * Vector quantization
 * ====================================================================== */

/* ---- VQ: end ---- */

#ifdef __cplusplus
}
#endif

#endif /* ZAMAC_H */
