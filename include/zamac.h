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
