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

/* ---- MP3: end ---- */

/* ======================================================================
 * AAC bit stream
 * ====================================================================== */

/*
 * Records of the AAC stream headers, syntax elements and noiseless decoding.
 * Every numeric field holds its bit-stream field right-aligned in 32 bits; the
 * names are the syntax element names of ISO/IEC 13818-7 and 14496-3. The caller
 * allocates every record; the readers keep no state.
 */

/* adif_header(). adif_buffer_fullness[i] belongs to program configuration i and is
 * written only when bitstream_type is 0; copyright_id only when
 * copyright_id_present is 1. num_program_config_elements is stored as coded + 1. */
typedef struct AacAdifHeader {
    uint32_t adif_id;                      /* 32 bits as read, "ADIF" = 0x41444946 */
    int32_t copyright_id_present;
    int32_t original_copy;
    int32_t home;
    int32_t bitstream_type;                /* 0 constant rate, 1 variable rate */
    int32_t bitrate;
    int32_t num_program_config_elements;   /* 1..16 */
    int32_t adif_buffer_fullness[16];
    uint8_t copyright_id[9];
} AacAdifHeader;

/* adts_fixed_header() + adts_variable_header(). adts_header_spare is never written
 * by the reader; crc_check only when protection_absent is 0.
 * number_of_raw_data_blocks_in_frame is stored as coded + 1 (1..4). */
typedef struct AacAdtsFrameHeader {
    int32_t ID;
    int32_t layer;
    int32_t protection_absent;
    int32_t profile;
    int32_t sampling_frequency_index;
    int32_t private_bit;
    int32_t channel_configuration;
    int32_t original_copy;
    int32_t home;
    int32_t adts_header_spare;
    int32_t copyright_identification_bit;
    int32_t copyright_identification_start;
    int32_t aac_frame_length;              /* bytes, header included */
    int32_t adts_buffer_fullness;
    int32_t number_of_raw_data_blocks_in_frame;
    int32_t crc_check;
} AacAdtsFrameHeader;

/* program_config_element(). The arrays are as large as the count fields allow;
 * entries beyond the decoded counts are left untouched. The comment is not
 * NUL-terminated. */
typedef struct AacProgramConfig {
    int32_t element_instance_tag;
    int32_t object_type;
    int32_t sampling_frequency_index;
    int32_t num_front_channel_elements;
    int32_t num_side_channel_elements;
    int32_t num_back_channel_elements;
    int32_t num_lfe_channel_elements;
    int32_t num_assoc_data_elements;
    int32_t num_valid_cc_elements;
    int32_t mono_mixdown_present;
    int32_t mono_mixdown_element_number;   /* 0 when not present */
    int32_t stereo_mixdown_present;
    int32_t stereo_mixdown_element_number; /* 0 when not present */
    int32_t matrix_mixdown_idx_present;
    int32_t matrix_mixdown_idx;            /* 0 when not present */
    int32_t pseudo_surround_enable;        /* 0 when not present */
    int32_t front_element_is_cpe[16];
    int32_t front_element_tag_select[16];
    int32_t side_element_is_cpe[16];
    int32_t side_element_tag_select[16];
    int32_t back_element_is_cpe[16];
    int32_t back_element_tag_select[16];
    int32_t lfe_element_tag_select[4];
    int32_t assoc_data_element_tag_select[8];
    int32_t cc_element_is_ind_sw[16];
    int32_t valid_cc_element_tag_select[16];
    int32_t comment_field_bytes;           /* 0..255 */
    uint8_t comment_field_data[256];
} AacProgramConfig;

/* ics_info(), MPEG-2 layout. window_sequence: 0 long, 1 long start, 2 eight short,
 * 3 long stop. predictor_reset_group_number is written only when predictor_reset
 * is 1. num_window_groups / window_group_length follow from
 * scale_factor_grouping (eight short) or are 1 / {1} (long). */
typedef struct AacIcsInfo {
    int32_t ics_reserved_bit;
    int32_t window_sequence;
    int32_t window_shape;
    int32_t max_sfb;
    int32_t scale_factor_grouping;
    int32_t predictor_data_present;
    int32_t predictor_reset;
    int32_t predictor_reset_group_number;
    uint8_t prediction_used[41];
    int32_t num_window_groups;             /* 1..8 */
    int32_t window_group_length[8];
} AacIcsInfo;

/* What the channel-pair readers write. ms_used[g][b] is the flag of window group
 * g, band b (group-major, byte g * 60 + b). */
typedef struct AacChanPairElt {
    int32_t common_window;
    int32_t ms_mask_present;
    uint8_t ms_used[8][60];
} AacChanPairElt;

/* tns_data() of one channel, 64 32-bit words. n_filt and coef_res are per window
 * (coef_res stored as the coefficient width, 3 or 4); length, order and direction
 * are packed filter by filter over all windows (the k-th filter of the frame is
 * entry k); coef holds the coefficients of all filters back to back, each
 * sign-extended from its coded width. direction[8..15] is never written. */
typedef struct AacTnsData {
    int32_t tns_data_present;
    int32_t n_filt[8];
    int32_t coef_res[8];
    int32_t length[8];
    int32_t order[8];
    int32_t direction[16];
    int8_t coef[60];
} AacTnsData;

/* ltp_data() of one channel, 88 32-bit words. ltp_coef is the Q14 value of the
 * coded index (9352, 11413, 13320, 14931, 16137, 17496, 19572, 22438);
 * ltp_long_used[0] repeats ltp_data_present and entries 1..min(max_sfb, 40) are the
 * flags read. ltp_short_lag[w] is the lag in effect for short window w. The spare
 * words are never written. */
typedef struct AacLtpData {
    int32_t ltp_data_present;
    int32_t ltp_lag;
    int32_t ltp_coef;
    int32_t ltp_long_used[41];
    int32_t ltp_spare[20];
    int32_t ltp_short_used[8];
    int32_t ltp_short_lag_present[8];
    int32_t ltp_short_lag[8];
} AacLtpData;

/* Header of the main layer of a layered stream; also the carrier of the MPEG-4
 * LTP data of a channel pair or of one channel. pMsUsed points to the caller's
 * 8 x 60 byte ms_used array (layout as in AacChanPairElt). */
typedef struct AacMainHeader {
    int32_t window_sequence;
    int32_t window_shape;
    int32_t max_sfb;
    int32_t scale_factor_grouping;
    int32_t num_window_groups;
    int32_t window_group_length[8];
    int32_t ms_mask_present;
    uint8_t* pMsUsed;
    AacTnsData tns[2];
    AacLtpData ltp[2];
} AacMainHeader;

/* Header of an extension layer of a layered stream. diff_control_lr[ch] holds the
 * flags read for channel ch, packed (not indexed by band). */
typedef struct AacExtensionHeader {
    int32_t ms_mask_present;
    int32_t max_sfb;
    uint8_t* pMsUsed;
    AacTnsData tns[2];
    int32_t diff_control_lr[2][51];
} AacExtensionHeader;

/* Per-channel record of the noiseless decoders. Inputs: sampling_frequency_index
 * (0..11), num_pred_sfb, pIcsInfo. The words marked "caller's" are never touched
 * by the decoders. sect_cb / sect_end list the sections of all window groups back
 * to back (sect_end exclusive, counted within the group); num_sec[g] is the
 * section count of group g. The TNS fields are as in AacTnsData; the
 * coefficients go to the caller's separate array. */
typedef struct AacChanInfo {
    int32_t caller_word0;                  /* caller's */
    int32_t caller_word1;                  /* caller's */
    int32_t sampling_frequency_index;
    int32_t num_pred_sfb;
    int32_t caller_word2;                  /* caller's */
    int32_t frame_length;                  /* 1024 long, 128 eight short */
    int32_t num_window;                    /* 1 or 8 */
    int32_t num_swb;
    int32_t global_gain;
    int32_t pulse_data_present;
    int32_t tns_data_present;
    int32_t gain_control_data_present;
    AacIcsInfo* pIcsInfo;
    void* pCallerData;                     /* caller's */
    uint8_t sect_cb[120];
    uint8_t sect_end[120];
    int32_t num_sec[8];
    int32_t n_filt[8];
    int32_t coef_res[8];
    int32_t length[8];
    int32_t order[8];
    int32_t direction[8];
} AacChanInfo;

/*
 * Stream headers. They parse only: no sync word, CRC, reserved value or index is
 * checked, and there is no check against the end of the input. Every field read
 * loads four bytes at the cursor, so the input must be readable up to three
 * bytes past the last bit consumed.
 */

/* adif_header() with its program_config_elements, starting on a byte boundary at
 * *ppBitStream (the reader keeps its own bit offset, starting at 0). adif_id is
 * read as two 16-bit halves. For each program configuration i, the 20-bit
 * adif_buffer_fullness[i] comes first when bitstream_type is 0; element i is then
 * decoded into pPrgCfgElt[i] as by zamsDecodePrgCfgElt_AAC. On success
 * *ppBitStream stands on the byte boundary after the last comment byte.
 * Checks: ppBitStream, pAdifHeader, pPrgCfgElt or *ppBitStream null ->
 * zamStsNullPtr; prgCfgEltMax outside 1..16 -> zamStsAacPceCountErr (nothing
 * read); num_program_config_elements above prgCfgEltMax ->
 * zamStsAacPceCountErr, the header fields read so far written and *ppBitStream
 * advanced to the byte holding the next unread bit. */
ZamStatus zamsUnpackADIFHeader_AAC(uint8_t** ppBitStream, AacAdifHeader* pAdifHeader,
                                   AacProgramConfig* pPrgCfgElt, int32_t prgCfgEltMax);

/* adts_fixed_header() and adts_variable_header(). *ppBitStream points at the
 * first byte of the 12-bit sync word (skipped, not checked); on return it points
 * 7 bytes further, or 9 when protection_absent is 0 (crc_check read).
 * adts_header_spare is never written. Checks: ppBitStream, pAdtsFrameHeader or
 * *ppBitStream null -> zamStsNullPtr. */
ZamStatus zamsUnpackADTSFrameHeader_AAC(uint8_t** ppBitStream, AacAdtsFrameHeader* pAdtsFrameHeader);

/* program_config_element(), the cursor standing at element_instance_tag (the
 * element_id is the caller's). Before comment_field_bytes the cursor moves to
 * the next byte boundary of the buffer (not of the stream). The mixdown element
 * numbers, matrix_mixdown_idx and pseudo_surround_enable are set to 0 when not
 * present. Checks: ppBitStream, pOffset, pPrgCfgElt or *ppBitStream null ->
 * zamStsNullPtr; *pOffset above 7 (unsigned) -> zamStsAacBitOffsetErr. */
ZamStatus zamsDecodePrgCfgElt_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacProgramConfig* pPrgCfgElt);

/*
 * Syntax elements. The caller reads id_syn_ele and, for channel elements,
 * element_instance_tag; each reader starts at the next field and leaves the
 * cursor after what it parsed. On a data error the fields already written stay
 * written and the cursor stands where the failing read left it.
 */

/* channel_pair_element() side information, MPEG-2 form: common_window; when it
 * is 1, ics_info() (prediction flags for min(max_sfb, predSfbMax) bands, the rest
 * up to predSfbMax cleared; window groups from scale_factor_grouping, bits 6 down
 * to 0, a 1 bit adding a window to the current group), then ms_mask_present and,
 * only when it is 1, ms_used[g][b] for every group and band below max_sfb.
 * With common_window 0 only that bit is read. Checks: a pointer null ->
 * zamStsNullPtr; *pOffset above 7 -> zamStsAacBitOffsetErr; predSfbMax above 41
 * (unsigned) -> zamStsAacPredSfbErr; max_sfb read above 51 ->
 * zamStsAacMaxSfbErr. */
ZamStatus zamsDecodeChanPairElt_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacIcsInfo* pIcsInfo,
                                    AacChanPairElt* pChanPairElt, int32_t predSfbMax);

/* As zamsDecodeChanPairElt_AAC with ics_info() in its MPEG-4 form: both
 * ltp_data_present flags of pMainHeader are cleared; in a long sequence with
 * predictor_data_present, audioObjectType 1 (main) reads the prediction flags,
 * any other copies max_sfb and window_sequence into pMainHeader and reads
 * ltp_data() of channel 0 and then of channel 1 into pMainHeader->ltp[]. Checks:
 * a pointer null -> zamStsNullPtr; offset -> zamStsAacBitOffsetErr; predSfbMax
 * above 51 (unsigned) -> zamStsAacMaxSfbErr; then max_sfb above 51 ->
 * zamStsAacMaxSfbErr; main profile with predSfbMax above 41 ->
 * zamStsAacPredSfbErr. */
ZamStatus zamsDecodeChanPairElt_MP4_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacIcsInfo* pIcsInfo,
                                        AacChanPairElt* pChanPairElt, AacMainHeader* pMainHeader,
                                        int32_t predSfbMax, int32_t audioObjectType);

/* data_stream_element() after id_syn_ele: element_instance_tag to *pDataTag,
 * data_byte_align_flag, count (255 adds esc_count), the byte alignment when the
 * flag is set, then count bytes to pDataBuf (room for 510) and count to
 * *pDataCnt. Checks: a pointer null -> zamStsNullPtr; offset ->
 * zamStsAacBitOffsetErr. */
ZamStatus zamsDecodeDatStrElt_AAC(uint8_t** ppBitStream, int32_t* pOffset, int32_t* pDataTag,
                                  int32_t* pDataCnt, uint8_t* pDataBuf);

/* fill_element() after id_syn_ele: count (4 bits; 15 means 15 + esc_count - 1),
 * then count bytes, unaligned and uninterpreted, to pFillBuf (room for 269);
 * count to *pFillCnt. Checks: a pointer null -> zamStsNullPtr; offset ->
 * zamStsAacBitOffsetErr. */
ZamStatus zamsDecodeFillElt_AAC(uint8_t** ppBitStream, int32_t* pOffset, int32_t* pFillCnt, uint8_t* pFillBuf);

/* Main-layer header of a layered stream: window_sequence, window_shape, max_sfb
 * (not range-checked) and grouping; for 2 channels ms_mask_present and the
 * ms_used flags in *pMsUsed (1: read, 2: all set, 0/3: all cleared, for every
 * group and band below max_sfb); then per channel its AacTnsData cleared,
 * tns_data_present and tns_data(), its AacLtpData cleared, ltp_data_present and
 * ltp_data(). An out-of-range TNS order ends that channel's filter list and
 * reading goes on from there. flag 1 parses the same and then returns
 * zamStsAacNotSupported. Checks: ppBitStream, pOffset, pMainHeader,
 * *ppBitStream or (channels 2) pMainHeader->pMsUsed null -> zamStsNullPtr;
 * offset -> zamStsAacBitOffsetErr; channels not 1 or 2 -> zamStsAacChanNumErr;
 * flag above 1 (unsigned) -> zamStsAacFlagErr. */
ZamStatus zamsDecodeMainHeader_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacMainHeader* pMainHeader,
                                   int32_t channels, int32_t flag);

/* Extension-layer header: max_sfb (6 bits, or 4 for eight short); with msFlag,
 * ms_mask_present and, when 1, the ms_used bits of bands lastMaxSfb..max_sfb-1
 * for one group (long) or four groups (eight short) into *pMsUsed; with tnsFlag,
 * tns_data_present and tns_data() of both channels (the records are not cleared
 * first); with diffFlag and msFlag, diff_control_lr of both channels (long: one
 * packed bit per band from lastMaxSfb to min(maxSfbLimit, max_sfb) - 1 whose
 * group-0 ms_used flag is 0; eight short with lastMaxSfb 0: 8 bits). Checks:
 * ppBitStream, pOffset, pExtHeader, *ppBitStream or (msFlag 1)
 * pExtHeader->pMsUsed null -> zamStsNullPtr; offset -> zamStsAacBitOffsetErr;
 * tnsFlag above 1 -> zamStsAacFlagErr; msFlag above 1 -> zamStsAacMsFlagErr;
 * diffFlag above 1 -> zamStsAacDiffFlagErr (the flags compared unsigned);
 * lastMaxSfb outside 0..51 or maxSfbLimit above 51 -> zamStsAacMaxSfbErr;
 * windowSequence above 3 (unsigned) -> zamStsAacWinSeqErr; a long max_sfb above
 * 60 -> zamStsAacMaxSfbErr. */
ZamStatus zamsDecodeExtensionHeader_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacExtensionHeader* pExtHeader,
                                        int32_t tnsFlag, int32_t msFlag, int32_t diffFlag, int32_t lastMaxSfb,
                                        int32_t maxSfbLimit, int32_t windowSequence);

/*
 * Noiseless decoding of one individual_channel_stream() from global_gain on.
 * Outputs, group after group with max_sfb entries per group: pScaleFactor (one
 * 16-bit value per band: the scale factor, the intensity position for books
 * 14/15, the noise energy for book 13, 0 for book 0; a negative running value is
 * kept as is), pSfbCb (the band's code book). pSpectrum: 1024 quantized values,
 * in each window group band by band with the group's windows one after the other
 * inside a band; zero outside the coded sections. pTnsCoef: the TNS coefficients
 * (up to 60), the other TNS fields going to pChanInfo. The scale factors are read
 * through a 32-bit bit cache that looks up to three bytes ahead.
 *
 * Stream statuses, in the order met: the ics_info() statuses;
 * zamStsAacMaxSfbErr (LC: max_sfb above the band count); zamStsAacNumWinGrpErr
 * (window groups taken from a caller's record that do not fit the frame: group
 * count outside 1..8, an empty group, or more windows than the sequence has);
 * zamStsAacSectDataErr (sections of a group not ending exactly at max_sfb, or
 * more than 120 sections); zamStsAacSfCbErr; zamStsAacSfValueErr (above 255);
 * zamStsAacPulseErr (eight-short pulses, pulse_start_sfb above 51 or not below
 * the band count, a pulse position of 1024 or more); zamStsAacTnsOrderErr;
 * zamStsAacGainCtrlErr (gain control is not supported); zamStsBadData (a
 * section end above the band count); zamStsAacSpectCbErr (book 12 in the
 * spectrum); zamStsAacQuantValErr (a book-11 escape prefix of more than 8 ones,
 * i.e. a magnitude above 8191). Everything written before stays written.
 */

/* Low-complexity form. commonWin 1: the ICS information is already in
 * pChanInfo->pIcsInfo (channel pair with a common window); 0: it is read here
 * (MPEG-2 form, no prediction). Checks: a pointer null (pChanInfo->pIcsInfo and
 * *ppBitStream included) -> zamStsNullPtr; *pOffset above 7 ->
 * zamStsAacBitOffsetErr; commonWin above 1 -> zamStsAacCommonWinErr;
 * sampling_frequency_index outside 0..11 -> zamStsAacSmplRateIdxErr;
 * num_pred_sfb not 0 -> zamStsAacPredSfbErr; then the stream statuses. Code
 * books 12 and 13 fail in the scale factors. */
ZamStatus zamsNoiselessDecoder_LC_AAC(uint8_t** ppBitStream, int32_t* pOffset, int32_t commonWin,
                                      AacChanInfo* pChanInfo, int16_t* pScaleFactor, int32_t* pSpectrum,
                                      uint8_t* pSfbCb, int8_t* pTnsCoef);

/* General form: object types up to 16, ics_info() in its MPEG-4 form (with
 * pChanInfo->num_pred_sfb and audioObjectType; the LTP data of this one channel
 * go to pMainHeader->ltp[0]), noise bands (book 13: the first noise band reads a
 * 9-bit value, global_gain + value - 346; later ones a difference; noise and
 * scale factors share one running value). scaleFlag 1 (an extension layer):
 * windowSequence, maxSfb and pMainHeader's window groups are used, no ICS, pulse,
 * TNS or gain-control data are read. No check of max_sfb against the band count
 * (a section ending above it fails with zamStsBadData); a max_sfb taken from
 * pIcsInfo (commonWin 1) outside 0..51 fails with zamStsAacMaxSfbErr. Checks: a pointer null ->
 * zamStsNullPtr; offset -> zamStsAacBitOffsetErr; commonWin above 1 ->
 * zamStsAacCommonWinErr; windowSequence above 3 -> zamStsAacWinSeqErr;
 * scaleFlag above 1 -> zamStsAacLayerFlagErr; audioObjectType above 16 ->
 * zamStsAacObjTypeErr; maxSfb above 51 -> zamStsAacMaxSfbErr;
 * sampling_frequency_index above 11 -> zamStsAacSmplRateIdxErr (all unsigned);
 * then the stream statuses. */
ZamStatus zamsNoiselessDecode_AAC(uint8_t** ppBitStream, int32_t* pOffset, AacMainHeader* pMainHeader,
                                  int16_t* pScaleFactor, int32_t* pSpectrum, uint8_t* pSfbCb, int8_t* pTnsCoef,
                                  AacChanInfo* pChanInfo, int32_t windowSequence, int32_t maxSfb,
                                  int32_t commonWin, int32_t scaleFlag, int32_t audioObjectType);

/* ---- AAC bit stream: end ---- */

/* ======================================================================
 * AAC spectral tools
 * ====================================================================== */

/*
 * Spectral tools of an AAC decoder (and TNS of an encoder), run per frame in this
 * order: zamsQuantInv_AAC_32s_I, zamsDecodeMsStereo_AAC_32s_I,
 * zamsDecodeIsStereo_AAC_32s, zamsDecodePNS_AAC_32s / zamsDecodeMsPNS_AAC_32s,
 * zamsDeinterleaveSpectrum_AAC_32s (eight-short frames), zamsDecodeTNS_AAC_32s_I.
 *
 * Shared conventions:
 *  - A spectrum is 1024 int32_t coefficients in fixed point with 3 fractional bits
 *    (the value times 8). Before deinterleaving, an eight-short frame is in the
 *    bit stream's grouped, band-interleaved order: group after group, each group
 *    occupying window_group_length * 128 values, band after band, each band
 *    holding its group's windows one after the other.
 *  - Per-band arrays (code books as bytes, scale factors as 16-bit values) hold
 *    maxSfb entries per window group, group after group. ms_used is 8 rows of 60
 *    bytes (the flag of group g, band b is byte g * 60 + b).
 *  - Band boundaries are the swb_offset tables of ISO/IEC 13818-7 for
 *    samplingRateIndex 0..11 (96000 .. 8000 Hz), long (winLen 1024) or short
 *    (winLen 128).
 *  - Code book 13 marks a noise band, 14 an out-of-phase and 15 an in-phase
 *    intensity band.
 *  - Window groups: a long frame (winLen 1024) is one group of one window whatever
 *    pWinGrpLen holds. For eight-short frames the group lengths are trusted to add
 *    up to at most 8; a group running past the eighth window is cut there, so no
 *    tool ever leaves the 1024-value frame.
 *  - Argument checks come first, in the order listed per function; a failed check
 *    writes nothing. A data error found during the work (a magnitude above 8191,
 *    bad TNS filter data) stops it and leaves what was already written.
 *  - No function tracks alignment: none returns zamStsMisalignedData.
 */

/* Inverse quantization in place: each value q of a band whose code book is not 0,
 * 13, 14 or 15 becomes sign(q) * |q|^(4/3) * 2^((sf - 100)/4) * 8, truncated, with
 * sf the band's scale factor; other bands and the values past maxSfb are left
 * as they are. The fixed-point form: with e = sf - 100, s = ceil(e/4):
 *  - |q| 1..3 and 4..15 come from a table with 28 and 25 fractional bits shifted
 *    right by 25 - s and 22 - s; when that shift is negative no shift is made (for
 *    sf above 200 (1..3) or 188 (4..15) the result is the table entry itself, which
 *    repeats with a period of 4 scale factors and lies below the exact value),
 *    above 31 the result is 0;
 *  - |q| 16..8191 use a power table (16..128) or a polynomial (129..8191) and are
 *    then shifted by (s - base): a right shift above 31 gives 0, a left shift above
 *    31 gives 2147483647 (with the sign of q), a left shift of 1..31 wraps in 32
 *    bits (no saturation). Wherever the exact value fits in 31 bits and the
 *    small-range clamp is not hit, the result is within 1 of it (|q| < 16) or
 *    within 2^L + value * 2^-24 (L the left shift, 0 for a right shift).
 * pScaleFactor: one signed 16-bit value per band. samplingRateIndex is unsigned.
 * Checks: a pointer null (zamStsNullPtr); winLen not 128 or 1024
 * (zamStsAacWinLenErr); winLen 1024 with numWinGrp not 1, or winLen 128 with
 * numWinGrp outside 1..8 (zamStsAacNumWinGrpErr); maxSfb outside 0..51
 * (zamStsAacMaxSfbErr); samplingRateIndex above 11 (zamStsAacSmplRateIdxErr); maxSfb
 * above the band count of the rate and window (zamStsAacMaxSfbErr). Then a
 * magnitude above 8191 (including INT32_MIN) stops the work with
 * zamStsAacQuantValErr: earlier bands and the earlier values of that band are
 * converted, the rest is untouched. */
ZamStatus zamsQuantInv_AAC_32s_I(int32_t* pSrcDst, const int16_t* pScaleFactor, int32_t numWinGrp,
                                 const int32_t* pWinGrpLen, int32_t maxSfb, const uint8_t* pSfbCb,
                                 uint32_t samplingRateIndex, int32_t winLen);

/* Reorders an eight-short frame from the grouped, band-interleaved order into eight
 * windows of 128 coefficients: band b of window j of a group goes to
 * j * 128 + swb_offset[b] of the group's first window; in every window of the
 * group the coefficients from swb_offset[maxSfb] to 127 are set to 0. Source values
 * beyond the bands below maxSfb are not read; windows past the sum of the group
 * lengths are not written. pSrc and pDst must not overlap.
 * Checks: a pointer null (zamStsNullPtr); winLen not 128 (zamStsAacWinLenErr);
 * numWinGrp outside 1..8 (zamStsAacNumWinGrpErr); maxSfb outside 0..51
 * (zamStsAacMaxSfbErr); samplingRateIndex outside 0..11 (zamStsAacSmplRateIdxErr);
 * maxSfb above the short-window band count of the rate (zamStsAacMaxSfbErr). */
ZamStatus zamsDeinterleaveSpectrum_AAC_32s(const int32_t* pSrc, int32_t* pDst, int32_t numWinGrp,
                                           const int32_t* pWinGrpLen, int32_t maxSfb, int32_t samplingRateIndex,
                                           int32_t winLen);

/* Mid/side to left/right in place, band by band (code books in pSfbCb are the right
 * channel's, maxSfb per group):
 *  - an intensity band (book 14 or 15) with msMaskPresent 1 and its ms_used flag
 *    set has its book swapped (14 <-> 15) in pSfbCb, which is how the intensity
 *    tool learns the M/S sign; its coefficients do not change. With msMaskPresent
 *    2 intensity books are not swapped;
 *  - any other band except noise bands (book 13), when msMaskPresent is 2 or its
 *    ms_used flag is non-zero: l' = l + r, r' = l - r, wrapping in 32 bits.
 * Checks: a pointer null (zamStsNullPtr); winLen (zamStsAacWinLenErr); group count
 * as for zamsQuantInv_AAC_32s_I (zamStsAacNumWinGrpErr); maxSfb outside 0..51
 * (zamStsAacMaxSfbErr); samplingRateIndex outside 0..11 (zamStsAacSmplRateIdxErr);
 * msMaskPresent not 1 or 2 (zamStsAacMsMaskErr); maxSfb above the band count
 * (zamStsAacMaxSfbErr). */
ZamStatus zamsDecodeMsStereo_AAC_32s_I(int32_t* pSrcDstL, int32_t* pSrcDstR, int32_t msMaskPresent,
                                       const uint8_t* pMsUsed, uint8_t* pSfbCb, int32_t numWinGrp,
                                       const int32_t* pWinGrpLen, int32_t maxSfb, int32_t samplingRateIndex,
                                       int32_t winLen);

/* Intensity stereo: for each band with code book 14 or 15 (pSfbCb, the right
 * channel's), each right coefficient becomes sign * l * 0.5^(p/4), p the band's
 * intensity position from pScaleFactor (signed), sign +1 for book 15 and -1 for 14
 * (the negation is applied to the scaled value, wrapping). Fixed-point form:
 *  - p -3..7: (4l, wrapping) * T[p] >> 32, T = 0.5^(p/4)/2 in Q31;
 *  - p >= 8: (l * T[p mod 4]) >> 32, then >> ((p >> 2) - 2) (a shift above 31
 *    acts as 31: the result is 0 or -1);
 *  - p < -3: with t = 128 - p, l is shifted left (wrapping) by ((t >> 2) + 2) taken
 *    modulo 32, as the 32-bit shift does, then * U[3 - (t mod 4)] >> 32, U = 2^(j/4)/2
 *    in Q31; this gives 2^(-p/4) for p down to -119, below which the count wraps.
 * Other bands of pDstR are not written; pSrcL is not changed.
 * Checks: a pointer null (zamStsNullPtr), then winLen, group count, maxSfb range,
 * samplingRateIndex and band count as for zamsDecodeMsStereo_AAC_32s_I. */
ZamStatus zamsDecodeIsStereo_AAC_32s(const int32_t* pSrcL, int32_t* pDstR, const int16_t* pScaleFactor,
                                     const uint8_t* pSfbCb, int32_t numWinGrp, const int32_t* pWinGrpLen,
                                     int32_t maxSfb, int32_t samplingRateIndex, int32_t winLen);

/* Perceptual noise substitution for one channel. For each group g, each window of
 * the group, each band b below maxSfb whose code book (group g's row of pSfbCb) is
 * 13: if numWinGrp is 1, pPredUsed[b + 1] is cleared; the band (one window wide, at
 * the window position plus swb_offset[b]) is filled with noise from the generator
 * *pRandomState (S = S * 1664525 + 1013904223 per coefficient), normalised to unit
 * energy and scaled by 2^(e/4) * 8, e the band's unsigned 16-bit noise energy.
 * The generator state enters the product with the amplitude as an unsigned value,
 * and the normalisation's quadratic inverse square root holds for measured
 * energies below 2^31 (within 1 %); above that, where no normalisation is needed,
 * the band comes out louder (up to twice the energy). The normalisation steps run
 * in 64 bits and only the result is cut to 32.
 * The walk steps the window position by swb_offset[maxSfb - 1] and the scale-factor
 * position by maxSfb after every window (code books by maxSfb per group), kept
 * exactly as designed: pScaleFactor must hold maxSfb entries per window (8 * maxSfb
 * for eight-short frames). A long frame is one window. *pRandomState is updated.
 * Choices: a band whose noise energy sums to 0 cannot be normalised and is written
 * as zeros (the generator still advances); bands at or above the rate's band count
 * are empty (maxSfb is not compared with the band count). The gain 2^(e/4) is
 * formed in 32 bits and wraps for e >= 84 (the shift of its 1 is taken modulo 32).
 * pPredUsed must hold maxSfb + 1 entries (laid out as ltp_long_used).
 * Checks: a pointer null (zamStsNullPtr); maxSfb outside 0..51
 * (zamStsAacMaxSfbErr); numWinGrp outside 1..8 (zamStsAacNumWinGrpErr);
 * samplingRateIndex outside 0..11 (zamStsAacSmplRateIdxErr); winLen not 128 or 1024
 * (zamStsAacWinLenErr). */
ZamStatus zamsDecodePNS_AAC_32s(int32_t* pSrcDst, int32_t* pPredUsed, const uint8_t* pSfbCb,
                                const uint16_t* pScaleFactor, int32_t maxSfb, int32_t numWinGrp,
                                const int32_t* pWinGrpLen, int32_t samplingRateIndex, int32_t winLen,
                                int32_t* pRandomState);

/* Noise substitution for a channel of a pair: as zamsDecodePNS_AAC_32s, with the
 * noise of each noise band taken
 *  - channel 0: from *pRandomState, after storing the generator state in
 *    pNoiseState[g * maxSfb + b];
 *  - channel 1 with pMsUsed[g * 60 + b] equal to 1: from a copy of
 *    pNoiseState[g * maxSfb + b] (*pRandomState does not advance), so both
 *    channels get the same noise;
 *  - otherwise from *pRandomState.
 * pMsUsed and pNoiseState are not among the checked pointers: a null pMsUsed or
 * pNoiseState means no band is shared (and channel 0 stores nothing). pNoiseState
 * holds maxSfb entries per group.
 * Checks: as zamsDecodePNS_AAC_32s. */
ZamStatus zamsDecodeMsPNS_AAC_32s(int32_t* pSrcDst, int32_t* pPredUsed, const uint8_t* pSfbCb,
                                  const uint16_t* pScaleFactor, int32_t maxSfb, int32_t numWinGrp,
                                  const int32_t* pWinGrpLen, int32_t samplingRateIndex, int32_t winLen,
                                  int32_t* pRandomState, int32_t channel, const uint8_t* pMsUsed,
                                  int32_t* pNoiseState);

/* Temporal noise shaping of one channel in place (pSrcDst: 1024 coefficients, eight
 * windows of 128 one after the other for winLen 128). pTnsNumFilt and
 * pTnsFiltCoefRes (3 or 4) have one entry per window; pTnsRegionLen, pTnsFiltOrder
 * and pTnsDirection one per filter, packed over the windows; pTnsFiltCoef the
 * coefficient indices of all filters back to back (as in AacTnsData). Per window,
 * the first filter's top band is the rate's band count N; each filter covers
 * [max(top - length, 0), top) clipped to T = min(maxSfb, TNS band limit), runs
 * upwards (direction 0) or downwards from the highest coefficient (direction 1),
 * and the next filter's top is its bottom. Coefficients are stepped up in 64-bit
 * integers and scaled to at most 2^26 with a shift s <= 31; the all-pole filter
 * computes y = ((x << s) - sum a_i * y[n-i]) >> s, its state cleared per filter.
 * The coefficients of a filter are consumed even when its range is empty. profile
 * is not used.
 * Checks: a pointer null (zamStsNullPtr); winLen not 128 or 1024
 * (zamStsAacWinLenErr); samplingRateIndex above 11 (zamStsAacSmplRateIdxErr);
 * maxSfb outside 0..51 or above N (zamStsAacMaxSfbErr). Then per window and filter,
 * with the spectrum filtered up to that point: n_filt negative or above 3 (long) /
 * 1 (short) (zamStsAacTnsNumFiltErr); length negative or above N
 * (zamStsAacTnsLenErr); order negative or above 12 (long) / 7 (short)
 * (zamStsAacTnsOrderErr); for a filter of order 1 or more: coef_res not 3 or 4
 * (zamStsAacTnsCoefResErr), a coefficient index outside -8..7
 * (zamStsAacTnsCoefErr), direction not 0 or 1 (zamStsAacTnsDirErr). */
ZamStatus zamsDecodeTNS_AAC_32s_I(int32_t* pSrcDst, const int32_t* pTnsNumFilt, const int32_t* pTnsRegionLen,
                                  const int32_t* pTnsFiltOrder, const int32_t* pTnsFiltCoefRes,
                                  const int8_t* pTnsFiltCoef, const int32_t* pTnsDirection, int32_t maxSfb,
                                  int32_t profile, uint32_t samplingRateIndex, int32_t winLen);

/* The encoder's TNS: the same walk, data and coefficients as
 * zamsDecodeTNS_AAC_32s_I, with the all-zero filter
 * y = ((x << s) + sum a_i * x[n-i]) >> s over the inputs, its state cleared per
 * filter. Decoding after encoding with the same data gives the input back within
 * the fixed-point truncation (an error driven by at most 2 units per coefficient
 * through the all-pole filter).
 * Checks: as zamsDecodeTNS_AAC_32s_I, with profile other than 1
 * (zamStsAacProfileErr) checked after winLen. */
ZamStatus zamsEncodeTNS_AAC_32s_I(int32_t* pSrcDst, const int32_t* pTnsNumFilt, const int32_t* pTnsRegionLen,
                                  const int32_t* pTnsFiltOrder, const int32_t* pTnsFiltCoefRes,
                                  const int8_t* pTnsFiltCoef, const int32_t* pTnsDirection, int32_t maxSfb,
                                  int32_t profile, uint32_t samplingRateIndex, int32_t winLen);

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
