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

/* The name of a status as text ("zamStsOk", "zamStsNullPtr", ...), or "unknown
 * status" for a value that is none of the above. Header-only: an inline function,
 * not an exported symbol. */
static inline const char* zamStatusName(ZamStatus status)
{
    switch (status) {
    case zamStsMisalignedData: return "zamStsMisalignedData";
    case zamStsOk: return "zamStsOk";
    case zamStsBadData: return "zamStsBadData";
    case zamStsBadArg: return "zamStsBadArg";
    case zamStsSize: return "zamStsSize";
    case zamStsNullPtr: return "zamStsNullPtr";
    case zamStsMemAlloc: return "zamStsMemAlloc";
    case zamStsStep: return "zamStsStep";
    case zamStsFftOrder: return "zamStsFftOrder";
    case zamStsFftFlag: return "zamStsFftFlag";
    case zamStsContextMismatch: return "zamStsContextMismatch";
    case zamStsFirLength: return "zamStsFirLength";
    case zamStsNumChannels: return "zamStsNumChannels";
    case zamStsVlcArg: return "zamStsVlcArg";
    case zamStsVlcTable: return "zamStsVlcTable";
    case zamStsBitOffset: return "zamStsBitOffset";
    case zamStsAacObjTypeErr: return "zamStsAacObjTypeErr";
    case zamStsAacLayerFlagErr: return "zamStsAacLayerFlagErr";
    case zamStsAacDiffFlagErr: return "zamStsAacDiffFlagErr";
    case zamStsAacMsFlagErr: return "zamStsAacMsFlagErr";
    case zamStsAacFlagErr: return "zamStsAacFlagErr";
    case zamStsAacChanNumErr: return "zamStsAacChanNumErr";
    case zamStsAacMsMaskErr: return "zamStsAacMsMaskErr";
    case zamStsAacCommonWinErr: return "zamStsAacCommonWinErr";
    case zamStsAacWinSeqErr: return "zamStsAacWinSeqErr";
    case zamStsAacNumWinGrpErr: return "zamStsAacNumWinGrpErr";
    case zamStsAacWinLenErr: return "zamStsAacWinLenErr";
    case zamStsAacSmplRateIdxErr: return "zamStsAacSmplRateIdxErr";
    case zamStsAacBitOffsetErr: return "zamStsAacBitOffsetErr";
    case zamStsAacProfileErr: return "zamStsAacProfileErr";
    case zamStsAacTnsDirErr: return "zamStsAacTnsDirErr";
    case zamStsAacTnsCoefErr: return "zamStsAacTnsCoefErr";
    case zamStsAacTnsCoefResErr: return "zamStsAacTnsCoefResErr";
    case zamStsAacTnsOrderErr: return "zamStsAacTnsOrderErr";
    case zamStsAacTnsLenErr: return "zamStsAacTnsLenErr";
    case zamStsAacTnsNumFiltErr: return "zamStsAacTnsNumFiltErr";
    case zamStsAacSectDataErr: return "zamStsAacSectDataErr";
    case zamStsAacGainCtrlErr: return "zamStsAacGainCtrlErr";
    case zamStsAacPulseErr: return "zamStsAacPulseErr";
    case zamStsAacPredSfbErr: return "zamStsAacPredSfbErr";
    case zamStsAacMaxSfbErr: return "zamStsAacMaxSfbErr";
    case zamStsAacQuantValErr: return "zamStsAacQuantValErr";
    case zamStsAacSfValueErr: return "zamStsAacSfValueErr";
    case zamStsAacSpectCbErr: return "zamStsAacSpectCbErr";
    case zamStsAacSfCbErr: return "zamStsAacSfCbErr";
    case zamStsAacPceCountErr: return "zamStsAacPceCountErr";
    case zamStsMp3SideInfoErr: return "zamStsMp3SideInfoErr";
    case zamStsMp3FrameHeaderErr: return "zamStsMp3FrameHeaderErr";
    case zamStsAacNotSupported: return "zamStsAacNotSupported";
    default: return "unknown status";
    }
}

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

/* An opaque state or descriptor object. Every family has its own named
 * opaque type below; all of them are laid out as such an object. */
typedef struct SpecObject SpecObject;

/* ======================================================================
 * Sample and vector utilities
 * ====================================================================== */

/* pDst[i*channels + c] = ppSrc[c][i]. Checks: pDst or ppSrc null -> zamStsNullPtr;
 * channels < 1 -> zamStsNumChannels; len < 1 -> zamStsSize; a null channel pointer
 * -> zamStsNullPtr. Returns zamStsMisalignedData when pDst or a channel pointer is
 * not 16-byte aligned (the result is the same). */
ZamStatus zamsInterleave_16s(const int16_t** ppSrc, int channels, int len, int16_t* pDst);
ZamStatus zamsInterleave_32f(const float** ppSrc, int channels, int len, float* pDst);

/* ppDst[c][i] = pSrc[i*channels + c]. Checks and warning as for interleaving. */
ZamStatus zamsDeinterleave_16s(const int16_t* pSrc, int channels, int len, int16_t** ppDst);
ZamStatus zamsDeinterleave_32f(const float* pSrc, int channels, int len, float** ppDst);

/* pDst[i*channels + c] = ppSrc[c][i] clamped to -32768..32767 and rounded to the
 * nearest integer, ties to even, whatever rounding mode the caller has set (the
 * caller's mode is restored). Checks, in this order: pDst null -> zamStsNullPtr;
 * channels < 1 or len < 1 -> zamStsBadArg; ppSrc null or a null channel pointer ->
 * zamStsNullPtr. No misalignment warning. A NaN input gives -32768. */
ZamStatus zamsJoin_32f16s_D2L(const float** ppSrc, int channels, int len, int16_t* pDst);

/* pDst[i] = pSrcMant[i] * 2^-(15 + pSrcExp[i]). Checks: a null pointer ->
 * zamStsNullPtr; len < 1 -> zamStsSize. Exponents that leave the normal float
 * range give meaningless values (not checked). Returns zamStsMisalignedData when
 * any of the three pointers is not 16-byte aligned. */
ZamStatus zamsMakeFloat_16s32f(const int16_t* pSrcMant, const int16_t* pSrcExp, int len, float* pDst);

/* Multiplies every sample of band b, pSrcDst[pBandOffset[b] .. pBandOffset[b+1]-1],
 * by pScale[b], for b = 0..numBands-1 (offsets used as given). Checks: a null
 * pointer -> zamStsNullPtr; numBands < 1 -> zamStsSize. */
ZamStatus zamsScale_32f_I(float* pSrcDst, const float* pScale, const int* pBandOffset, int numBands);

/* ---- utilities: further kernels ---- */

/* ---- utilities: power-law, scale-factor and spreading kernels ----
 * The power laws of MP3 and AAC quantization (|x|^(3/4) before rounding to an
 * integer, |x|^(4/3) when requantizing), the quarter-step scale-factor multipliers
 * and the spreading function of the psychoacoustic model. All are element-wise over
 * len values, stateless, and may run in place when source and destination have the
 * same element size. Rounding to integers is to nearest with ties to even, whatever
 * rounding mode the caller has set; integer results saturate to their type.
 * Checks, in order: pSrc or pDst null -> zamStsNullPtr; len < 1 -> zamStsSize; then
 * the ranges named below. Nothing is written on a failed check. */

/* pDst[i] = sign(x) * |x|^(3/4), x = pSrc[i], computed as sqrt(|x|) * sqrt(sqrt(|x|))
 * in float: at most 2 ulp from the correctly rounded value (measured over every
 * 97th finite non-negative bit pattern, denormals included); +-0 keeps its sign, +-inf
 * gives +-inf, NaN gives NaN. Returns zamStsMisalignedData when pSrc or pDst is not
 * 16-byte aligned (same results). */
ZamStatus zamsPow34_32f(const float* pSrc, float* pDst, int len);

/* pDst[i] = sign(x) * |x|^(3/4) rounded to an integer and saturated to
 * -32768..32767, computed in double (the correctly rounded integer for every input
 * tested; magnitudes from 2^20 up saturate; NaN saturates by its sign bit).
 * Returns zamStsMisalignedData when pSrc or pDst is not 16-byte aligned. */
ZamStatus zamsPow34_32f16s(const float* pSrc, int16_t* pDst, int len);

/* pDst[i] = sign(x) * |x|^(3/4) * 2^-scaleFactor, x = pSrc[i], rounded and saturated
 * to 16 bits (scaleFactor may be negative: a left scale). Computed in double: the
 * correctly rounded result for all 65,536 inputs at every scaleFactor from -16 to 16
 * (ties, as 16^(3/4) * 2^-4 = 0.5, go to even). */
ZamStatus zamsPow34_16s_Sfs(const int16_t* pSrc, int16_t* pDst, int len, int scaleFactor);

/* The requantization kernel: pDst[i] = sign(x) * |x|^(4/3) * 2^(gain/4) *
 * 2^-scaleFactor, x = pSrc[i], rounded to an integer and saturated to 32 bits. gain
 * counts quarter steps of 1.5 dB (MP3: global_gain - 210 - the band's scale-factor
 * shift; AAC: scale factor - 100), scaleFactor sets the fixed-point format (e.g.
 * -13 for 13 fractional bits). Any int values are accepted. Computed in double:
 * the correctly rounded result for all 65,536 inputs at every gain -64..64 and
 * scaleFactor -16..16 tested. */
ZamStatus zamsPow43Scale_16s32s_Sf(const int16_t* pSrc, int32_t* pDst, int len, int gain, int scaleFactor);

/* Scale-factor multipliers: pDst[i] = 2^((pSrc[i] - offset) / 4), the float nearest
 * to the exact value (exact powers of two for multiples of 4; +inf above 2^127.75,
 * denormals below 2^-126, 0 below 2^-149). Pass offset 100 for AAC scale factors,
 * 210 for MP3 global_gain. Checks after the common ones: offset outside
 * -65536..65536 -> zamStsBadArg. */
ZamStatus zamsCalcSF_16s32f(const int16_t* pSrc, float* pDst, int len, int offset);

/* The spreading function of psychoacoustic model 2 (ISO/IEC 11172-3, Annex D) on
 * Bark distances: pSrc[i] is dz = z(maskee) - z(masker) in Q10 (1/1024 Bark, so
 * -32..32 Bark). With t = 3 dz below the masker (dz < 0) and t = 1.5 dz above it,
 * x = 8((t - 0.5)^2 - 2(t - 0.5)) for 0.5 <= t <= 2.5 and 0 elsewhere, and
 * y = 15.811389 + 7.5(t + 0.474) - 17.5 sqrt(1 + (t + 0.474)^2), the spreading
 * value is s = 10^((x + y)/10) (1.0 at dz = 0), and 0 where y <= -60 dB.
 * pDst[i] = s in Q15 times 2^-scaleFactor, rounded and saturated to 0..32767 (so
 * scaleFactor 0 gives 32767 for s = 1). Computed in float: within 1 of the value
 * rounded from the double formula for all 65,536 inputs and scaleFactor -8..8. */
ZamStatus zamsSpread_16s_Sfs(const int16_t* pSrc, int16_t* pDst, int len, int scaleFactor);

/* ---- power-law kernels: end ---- */

/* ======================================================================
 * Variable-length coding
 * ====================================================================== */

/* Prefix (Huffman) codes supplied by the caller: decode specs built from a list of
 * code words, decoding of single values, tuples and the AAC and MP3 escape
 * conventions, encoding and bit counting.
 *
 * Stream access. These operations address the stream as big-endian 32-bit words
 * at 4-byte-aligned addresses: the word in use is the one holding the cursor byte
 * (rounded down to a multiple of 4), the bit position in it is 8 * (pointer mod 4)
 * + offset. Decoders therefore may read up to 3 bytes before the cursor byte and
 * up to the end of the aligned word after the one that holds the last bit they
 * consume; encoders read and write the aligned words they touch. After a write,
 * the bits of the final word after the cursor are ones (or, when the last single
 * write ran into a new word, that word's previous bytes read little-endian); the
 * next code overwrites them.
 *
 * Status asymmetry kept on purpose: the non-escape operations report a bit offset
 * above 7 and a wrong spec tag both as zamStsVlcArg; the escape operations (names
 * with _AAC or _MP3) report them as zamStsBitOffset and zamStsContextMismatch. */

/* One code word of a caller's code table. */
typedef struct VlcEntry {
    int32_t value;   /* decoded value; for tuple codes the packed tuple, element 0 in the top field */
    int32_t code;    /* the code word's bits, right-aligned; only the low `length` bits count */
    int32_t length;  /* 1..32 */
} VlcEntry;

/* Decode specs (tag "`AMC"); the plain and the tuple spec are one kind of object.
 * Layout, at the first 64-byte boundary of the memory: tag, ownership flag (1 from
 * InitAlloc, 0 from Init), peek width (the longest code length), 64-bit table
 * pointer (header start + 64), element width (8, 16 or 32), lenBits; the tuple spec
 * adds the element count and the bits per element. The table is an array of
 * elements: the root table at element 0, each (sub-)table a header element holding
 * its width w followed by its 2^w slots. Slot bit 0 = 1: a leaf, bits 1..lenBits
 * hold the code bits resolved at that level, the bits above hold the value (signed
 * for plain specs). Bit 0 = 0: a link, bits 1 and up hold the element index of the
 * next level's table header. 0xFE / 0xFFFE / 0xFFFFFFFE: empty. Sub-tables are laid
 * out in the order the build first needs them. */
typedef struct VlcDecodeSpec VlcDecodeSpec;
typedef struct VlcDecodeSpec VlcDecodeUTupleSpec;

/* Encode spec (tag "_AMC", stored as the sixth 32-bit word): a 64-byte header
 * (64-bit lengths pointer, value offset = minus the smallest value, index bits k,
 * ownership flag, tag) followed by 2^k 32-bit code lengths and one 32-bit code per
 * value of the table's range, both indexed by value + offset. */
typedef struct VlcEncodeSpec VlcEncodeSpec;

/* ---- decode specs ----
 *
 * pSubTablesSizes holds numSubTables level widths: the root table is indexed by
 * the first pSubTablesSizes[0] bits of a code, each later level by the next
 * pSubTablesSizes[k] bits. The widths are used until their running sum first
 * reaches the longest code length; that width is cut so that the sum equals it,
 * and later widths are ignored ({4, 4, 4} for a longest code of 9 is used as
 * {4, 4, 1}). One level as wide as the longest code gives one table read per code.
 *
 * Sizes: lenBits = smallest b with 2^b > the largest width used; valueBits =
 * smallest b >= 0 with 2^b >= the largest |value|; entries = sum over all tables of
 * 2^width + 1; indexBits = smallest b with 2^b - 1 >= entries + 1. Bits per element:
 * plain max(valueBits + lenBits + 2, indexBits + 1), tuple max(numElements *
 * numValueBits + lenBits + 1, indexBits + 1); the element width is the narrowest of
 * 8, 16, 32 that holds them. A plain value of magnitude exactly 2^valueBits needs one
 * bit more than that rule gives and decodes correctly only when the element width
 * leaves room for it (so -4..4 works: valueBits 2, 8-bit elements hold +4).
 * Plain values wider than the element allows are stored truncated.
 *
 * Spec size: entries * (element width / 8) + 160 bytes, + 176 for the tuple spec.
 *
 * Build: every table element is first set to the empty marker; the entries are
 * then entered in the caller's order. A code whose path (at a level above the one
 * where it ends) meets a leaf is a collision: zamStsVlcTable. At the level where it
 * ends, a code takes its run of slots whatever they held, so a shorter code entered
 * after a longer one it prefixes overwrites it without an error.
 *
 * Checks, in order, for GetSize, Init and InitAlloc:
 *  1. pInputTable, pSubTablesSizes or the output (pSize, pVLCSpec, ppVLCSpec) null:
 *     zamStsNullPtr.
 *  2. tuple only: numElements or numValueBits below 1: zamStsBadArg.
 *  3. inputTableSize below 1, or any entry's length outside 1..32: zamStsVlcTable.
 *  4. a width below 1 before the longest code is reached, or widths summing to less
 *     than it: zamStsVlcTable.
 *  5. tuple only: bits per element above 32: zamStsBadArg (the tuple GetSize still
 *     writes the entry count to *pSize first).
 *  6. a spec larger than 2^31 - 1 bytes: zamStsVlcTable.
 *  7. Init and InitAlloc: a collision: zamStsVlcTable, the memory partly written
 *     (tag set). InitAlloc: allocation failure: zamStsMemAlloc.
 * Init builds in the caller's memory at any address (the object goes to its first
 * 64-byte boundary; the decoders accept the raw pointer). InitAlloc stores the
 * start of its zamMalloc block in *ppVLCSpec (nothing is stored on failure). */
ZamStatus zamsVLCDecodeGetSize_32s(const VlcEntry* pInputTable, int inputTableSize, const int* pSubTablesSizes,
                                   int numSubTables, int* pSize);
ZamStatus zamsVLCDecodeInit_32s(const VlcEntry* pInputTable, int inputTableSize, const int* pSubTablesSizes,
                                int numSubTables, VlcDecodeSpec* pVLCSpec);
ZamStatus zamsVLCDecodeInitAlloc_32s(const VlcEntry* pInputTable, int inputTableSize, const int* pSubTablesSizes,
                                     int numSubTables, VlcDecodeSpec** ppVLCSpec);
/* Tuple codes: each value packs numElements unsigned magnitudes of numValueBits
 * bits, element 0 in the most significant field. */
ZamStatus zamsVLCDecodeUTupleGetSize_32s(const VlcEntry* pInputTable, int inputTableSize,
                                         const int* pSubTablesSizes, int numSubTables, int numElements,
                                         int numValueBits, int* pSize);
ZamStatus zamsVLCDecodeUTupleInit_32s(const VlcEntry* pInputTable, int inputTableSize, const int* pSubTablesSizes,
                                      int numSubTables, int numElements, int numValueBits,
                                      VlcDecodeUTupleSpec* pVLCSpec);
ZamStatus zamsVLCDecodeUTupleInitAlloc_32s(const VlcEntry* pInputTable, int inputTableSize,
                                           const int* pSubTablesSizes, int numSubTables, int numElements,
                                           int numValueBits, VlcDecodeUTupleSpec** ppVLCSpec);
/* Release: one function under two names. Ignores null, clears the tag without
 * checking it, and passes the pointer to zamFree only when InitAlloc made it. */
void zamsVLCDecodeFree_32s(VlcDecodeSpec* pVLCSpec);
void zamsVLCDecodeUTupleFree_32s(VlcDecodeUTupleSpec* pVLCSpec);

/* ---- decoding ----
 *
 * Each code is resolved with one table read per level and the cursor moves on by
 * its length; values are stored truncated to 16 bits. The decoders do not test
 * for the empty marker as such, but a bit pattern that is no code of the table
 * (it reaches an empty slot) stops the operation with zamStsVlcArg: values decoded
 * before it stay written, the cursor is not updated.
 *
 * Checks of One, Block, UTupleOne, UTupleBlock, in order: a null pointer
 * (ppBitStream, *ppBitStream, pBitOffset, pData, pVLCSpec) -> zamStsNullPtr; offset
 * outside 0..7 or wrong tag -> zamStsVlcArg. dstLen of 0 or less decodes nothing and
 * leaves the cursor as it was.
 *
 * Checks of the escape blocks, in order: a null pointer -> zamStsNullPtr; offset
 * outside 0..7 -> zamStsBitOffset; wrong tag -> zamStsContextMismatch; MP3 only:
 * linbits outside 0..31 -> zamStsBadArg.
 *
 * Pair values (escape blocks): a code's value is x * 256 + (y + 128); x = value >> 8
 * (arithmetic), y = (value & 255) - 128, written x first. Only the even part of
 * dstLen is used: an odd last value is not decoded.
 * AAC escape: an x or y of +16 or -16 is followed by n ones (n <= 8), a zero and
 * N = n + 4 bits b; the magnitude is 2^N + b (up to 8191) with the table value's
 * sign. More than 8 ones: zamStsVlcArg, values already written stay (within a pair,
 * x is written before y's escape is read), the cursor is not updated.
 * MP3 escape: an x or y of +15 or -15 is followed by linbits + 1 bits f: magnitude
 * 15 + (f >> 1), negative when f & 1; the table's sign is ignored. Other values keep
 * the table's sign, so their sign bits must be folded into the table's codes; for a
 * pair whose x is escaped, a non-escaped y's sign therefore comes with the code,
 * ahead of x's linbits (zamsVLCEncodeEscBlock_MP3_16s1u writes it after them: use
 * zamsVLCDecodeUTupleEscBlock_MP3_1u16s to read that order).
 *
 * Tuple decoders: the elements come out element 0 first; every non-zero element is
 * followed by one sign bit (1 = negative). UTupleBlock decodes dstLen / numElements
 * whole codes (a remainder is not decoded or written, as the pair blocks drop an odd
 * last value). The tuple escape blocks take a code as a pair: x is the field above
 * the lowest, y the lowest (elements 0 and 1 of a 2-element spec), two values per
 * code, even part of dstLen. AAC: both sign bits first (x's, y's), then the escapes
 * of x and y, keeping their signs. MP3: x's linbits and sign, then y's; a non-escaped
 * non-zero element reads its sign bit in its turn. */
ZamStatus zamsVLCDecodeOne_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData,
                                 const VlcDecodeSpec* pVLCSpec);
ZamStatus zamsVLCDecodeBlock_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData, int dstLen,
                                   const VlcDecodeSpec* pVLCSpec);
ZamStatus zamsVLCDecodeEscBlock_AAC_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData, int dstLen,
                                          const VlcDecodeSpec* pVLCSpec);
ZamStatus zamsVLCDecodeEscBlock_MP3_1u16s(uint8_t** ppBitStream, int* pBitOffset, int linbits, int16_t* pData,
                                          int dstLen, const VlcDecodeSpec* pVLCSpec);
ZamStatus zamsVLCDecodeUTupleOne_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData,
                                       const VlcDecodeUTupleSpec* pVLCSpec);
ZamStatus zamsVLCDecodeUTupleBlock_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData, int dstLen,
                                         const VlcDecodeUTupleSpec* pVLCSpec);
ZamStatus zamsVLCDecodeUTupleEscBlock_AAC_1u16s(uint8_t** ppBitStream, int* pBitOffset, int16_t* pData,
                                                int dstLen, const VlcDecodeUTupleSpec* pVLCSpec);
/* The tuple form of the MP3 escape block decoder: pairs with linbits escapes, as above. */
ZamStatus zamsVLCDecodeUTupleEscBlock_MP3_1u16s(uint8_t** ppBitStream, int* pBitOffset, int linbits,
                                                int16_t* pData, int dstLen, const VlcDecodeUTupleSpec* pVLCSpec);

/* ---- encode spec ----
 *
 * A direct lookup by value. GetSize: (range + 2^k) * 4 + 132 bytes, range = largest -
 * smallest value, k = the number of significant bits of range + 1 (4 gives 3).
 * Checks: pInputTable or the output null -> zamStsNullPtr; inputTableSize below 1, or
 * a spec larger than 2^31 - 1 bytes -> zamStsVlcArg. Init stores length and code
 * (masked to its low length bits, the shift count taken modulo 32, so a 32-bit code
 * is stored as 0) for each entry and writes nothing else: values without an entry
 * keep whatever the memory held and must not be encoded. InitAlloc does not test its
 * allocation: when zamMalloc fails it stores null in *ppVLCSpec and still returns
 * zamStsOk. Free ignores null, clears the tag without checking it, and releases the
 * memory only when InitAlloc made it. */
ZamStatus zamsVLCEncodeGetSize_32s(const VlcEntry* pInputTable, int inputTableSize, int* pSize);
ZamStatus zamsVLCEncodeInit_32s(const VlcEntry* pInputTable, int inputTableSize, VlcEncodeSpec* pVLCSpec);
ZamStatus zamsVLCEncodeInitAlloc_32s(const VlcEntry* pInputTable, int inputTableSize, VlcEncodeSpec** ppVLCSpec);
void zamsVLCEncodeFree_32s(VlcEncodeSpec* pVLCSpec);

/* ---- encoding and counting ----
 *
 * Values must lie in the table's range and have an entry (not detected).
 * EncodeOne: null ppBitStream, *ppBitStream, pBitOffset or spec -> zamStsNullPtr;
 * wrong tag -> zamStsVlcArg. The offset is not checked: the code goes to bit
 * *pBitOffset counted from *ppBitStream (an offset of 9 writes from bit 1 of the
 * next byte), and the cursor comes back normalised.
 * EncodeBlock: null pointer -> zamStsNullPtr; srcLen below 1 -> zamStsVlcArg; offset
 * outside 0..7 or wrong tag -> zamStsVlcArg.
 * CountBits: null -> zamStsNullPtr; srcLen below 1 -> zamStsVlcArg; wrong tag ->
 * zamStsVlcArg; *pCountBits = the sum of the code lengths.
 *
 * Escape encoders take values in pairs (the even part of srcLen; fewer than 2 values
 * write nothing) and look a pair up under one key whose code carries the sign bits
 * (one trailing bit per non-zero element, 1 = negative, x's first):
 *  - AAC: key = x' * 64 + y', magnitudes of 16 or more replaced by 16 (sign kept);
 *    after the code, each of x, y with magnitude m >= 16 gets the escape word:
 *    N = floor(log2 m), N - 4 ones, a zero, the N low bits of m (2N - 3 bits; m above
 *    8191 is not checked, the decoder accepts at most 8191).
 *  - MP3: key = x' * 32 + y', magnitudes of 15 or more replaced by 15. If x is
 *    escaped, the code goes without its sign bits, then |x| - 15 in linbits bits, x's
 *    sign, then y's linbits field if y is escaped and y's sign if y is non-zero. If
 *    only y is escaped, the code keeps x's sign and loses y's, then y's linbits field
 *    and sign follow.
 * Checks, in order: a null pointer -> zamStsNullPtr; offset outside 0..7 ->
 * zamStsBitOffset; wrong tag -> zamStsContextMismatch; MP3: linbits outside 0..31 ->
 * zamStsBadArg.
 * The escape counts report exactly the bits their escape encoder writes for the same
 * input: key code lengths plus escape words (AAC) or plus linbits per escaped
 * element (MP3: an escaped element's sign bit is already part of the key's code).
 * Checks, in order: a null pointer -> zamStsNullPtr; wrong tag ->
 * zamStsContextMismatch; MP3: linbits outside 0..31 -> zamStsBadArg. Like the escape
 * encoders they do not check srcLen: fewer than 2 values count 0 bits. */
ZamStatus zamsVLCEncodeOne_16s1u(int16_t src, uint8_t** ppBitStream, int* pBitOffset,
                                 const VlcEncodeSpec* pVLCSpec);
ZamStatus zamsVLCEncodeBlock_16s1u(const int16_t* pSrc, int srcLen, uint8_t** ppBitStream, int* pBitOffset,
                                   const VlcEncodeSpec* pVLCSpec);
ZamStatus zamsVLCEncodeEscBlock_AAC_16s1u(const int16_t* pSrc, int srcLen, uint8_t** ppBitStream,
                                          int* pBitOffset, const VlcEncodeSpec* pVLCSpec);
ZamStatus zamsVLCEncodeEscBlock_MP3_16s1u(const int16_t* pSrc, int srcLen, int linbits, uint8_t** ppBitStream,
                                          int* pBitOffset, const VlcEncodeSpec* pVLCSpec);
ZamStatus zamsVLCCountBits_16s32s(const int16_t* pSrc, int srcLen, int* pCountBits,
                                  const VlcEncodeSpec* pVLCSpec);
ZamStatus zamsVLCCountEscBits_AAC_16s32s(const int16_t* pSrc, int srcLen, int* pCountBits,
                                         const VlcEncodeSpec* pVLCSpec);
ZamStatus zamsVLCCountEscBits_MP3_16s32s(const int16_t* pSrc, int srcLen, int linbits, int* pCountBits,
                                         const VlcEncodeSpec* pVLCSpec);

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
 * i.e. a magnitude above 8191; the cursor stands after the ninth one).
 * Everything written before stays written.
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
 * pIcsInfo (commonWin 1) outside 0..63 fails with zamStsAacMaxSfbErr. Checks: a pointer null ->
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
 * AAC integer filter bank
 * ====================================================================== */

/* The AAC filter bank of one channel and frame in fixed point: the synthesis
 * bank of the decoder (inverse MDCT, windowing, overlap-add) and the analysis
 * bank (windowing, forward MDCT) that long-term prediction and encoders use.
 * Stateless: the caller keeps the overlap buffer and the previous shape.
 *
 * Definitions (ISO/IEC 13818-7, 15.3; ISO/IEC 14496-3, 4.6.11), N = 2048 for the
 * long sequences and 256 for each of the eight short windows, n0 = N/4 + 1/2:
 *   synthesis: y[n] = (2/N) * sum_{k<N/2} X[k] * cos(2*pi/N * (n + n0) * (k + 1/2))
 *   analysis:  X[k] = 2 * sum_{n<N} z[n] * cos(2*pi/N * (n + n0) * (k + 1/2))
 * windowed by the sequence and shapes as the standard says: long windows rise
 * with prevWindowShape and fall with windowShape; LONG_START has 448 ones, a
 * short fall (windowShape) and 448 zeros on the right; LONG_STOP mirrors it on
 * the left (short rise with prevWindowShape); EIGHT_SHORT places eight
 * 256-point windows at 448 + 128*w of the 2048-sample frame, the first rising
 * with prevWindowShape and all others with windowShape. Shapes: 0 sine, 1
 * Kaiser-Bessel derived (alpha 4 long, 6 short).
 *
 * Formats (signed 32-bit words):
 *   spectrum  3 fractional bits, the format of zamsQuantInv_AAC_32s_I (1024
 *             coefficients; EIGHT_SHORT: eight windows of 128 in window order,
 *             as zamsDeinterleaveSpectrum_AAC_32s writes them);
 *   time      PCM with 8 fractional bits: 16-bit full scale is +-2^23 (so the
 *             32-bit word holds 256 times full scale);
 *   overlap   1024 time values (the windowed second half of the previous frame),
 *             caller-held per channel, all zero before the first frame.
 * So a spectrum decoded from a 16-bit signal returns that signal times 256.
 *
 * Arithmetic: no floating point. Each transform normalises its block by its
 * largest value (inverse: coefficients to [2^29, 2^30); forward: windowed
 * samples to [2^28, 2^29)), takes Q30 twiddles and windows with 64-bit
 * products rounded half up, runs a 32-bit complex FFT of N/4 points that halves
 * only the levels that could overflow (the count of halvings is folded into the
 * last shift), and ends with one rounding shift (half up) and saturation.
 * No input can overflow an intermediate value. All 32-bit inputs are valid.
 *
 * Accuracy (measured): against a double-precision evaluation of the same
 * definitions (windows included), the synthesis output differs by at most
 * 0.01 LSB of 16-bit PCM (RMS 0.0016 LSB) on random spectra up to 2^26 in all
 * four sequences, three frames in a row; on real AAC streams (LC at 8 to
 * 96 kHz, 1 to 8 channels, Main and LTP) the 16-bit output differs from the
 * float decoder path (zamsMDCTInv_32f with float windows, rounded to 16 bits)
 * by at most 1 LSB at a PSNR of 117 to 118 dB. Analysis: within 2^-23 of the
 * block's largest coefficient on full-scale input. Analysis followed by
 * synthesis with overlap-add returns the time signal within 2 units (of
 * 1/256 LSB) through every window-sequence change.
 * Speed: the FFT levels run on AVX2 (64-bit lane products), with a scalar twin
 * that gives identical results; one long-window synthesis takes about 11 us
 * (zamac-decode --fixed: 0.10 s CPU for 60 s of 44.1 kHz stereo against 0.04 s
 * with the float bank, on a shared machine). */

/* Synthesis: pSrc 1024 coefficients -> pDst 1024 samples, and pOverlap updated
 * with this frame's second half. _32s16s writes 16-bit PCM (time value
 * rounded half up to whole LSBs and saturated); _32s_I writes the time values
 * (8 fractional bits, saturated to 32 bits) over the spectrum. The overlap
 * values are saturated to 32 bits. windowSequence 0 ONLY_LONG, 1 LONG_START,
 * 2 EIGHT_SHORT, 3 LONG_STOP; windowShape and prevWindowShape 0 sine, 1 KBD.
 * Checks in order: a null pointer -> zamStsNullPtr; windowSequence above 3
 * (unsigned) -> zamStsAacWinSeqErr; a shape above 1 (unsigned) ->
 * zamStsBadArg. A failed check writes nothing. */
ZamStatus zamsMDCTInv_AAC_32s16s(const int32_t* pSrc, int16_t* pDst, int windowSequence, int windowShape,
                                 int prevWindowShape, int32_t* pOverlap);
ZamStatus zamsMDCTInv_AAC_32s_I(int32_t* pSrcDst, int windowSequence, int windowShape, int prevWindowShape,
                                int32_t* pOverlap);

/* Analysis: pSrc 2048 time samples (8 fractional bits; EIGHT_SHORT reads
 * samples 448..1599 only) -> pDst 1024 coefficients (3 fractional bits, rounded
 * half up, saturated; EIGHT_SHORT: eight windows of 128). The _I form reads
 * 2048 values of pSrcDst and writes the coefficients over its first 1024 (the
 * rest is left as it was). Checks as for the synthesis (no pOverlap). */
ZamStatus zamsMDCTFwd_AAC_32s(const int32_t* pSrc, int32_t* pDst, int windowSequence, int windowShape,
                              int prevWindowShape);
ZamStatus zamsMDCTFwd_AAC_32s_I(int32_t* pSrcDst, int windowSequence, int windowShape, int prevWindowShape);

/* ---- AAC integer filter bank: end ---- */

/* ======================================================================
 * AAC prediction
 * ====================================================================== */

/* ---- frequency-domain prediction (AAC Main) ----
 *
 * The backward-adaptive predictor of ISO/IEC 13818-7 (prediction tool): one
 * second-order lattice LMS predictor per spectral line of the long window, with
 * per line the state r0, r1, COR0, COR1, VAR0, VAR1 (reset: r = COR = 0,
 * VAR = 1). In 32-bit float arithmetic, in this order, with alpha = 0.90625 and
 * a = 0.953125:
 *   k1 = VAR0 > 1 ? COR0 * E(a / VAR0) : 0;   k2 = VAR1 > 1 ? COR1 * E(a / VAR1) : 0
 *   p  = R(k1 * r0 + k2 * r1)                  (the prediction)
 *   x' = x + p (Inv) where the line's band has prediction_used set, else x' = x
 *   e0 = x';  e1 = e0 - k1 * r0
 *   COR1 = T(alpha * COR1 + r1 * e1);  VAR1 = T(alpha * VAR1 + 0.5 * (r1*r1 + e1*e1))
 *   COR0 = T(alpha * COR0 + r0 * e0);  VAR0 = T(alpha * VAR0 + 0.5 * (r0*r0 + e0*e0))
 *   r1 = T(a * (r0 - k1 * e0));  r0 = T(a * e0)
 * T, R and E cut a float to a 16-bit mantissa (sign, exponent, 7 bits): T
 * truncates, R rounds half away from zero, E rounds half to even. Every
 * predictor is updated on every call, used or not, so the decoder must call
 * the prediction for every long-window frame of the channel (with all flags 0
 * when predictor_data_present is 0) and reset all predictors on an eight-short
 * frame. The results are bit-exact on any platform.
 * The encoder (Fwd) writes the residual d = x - p in used bands and updates
 * with the value the decoder reconstructs, d + p; so Inv(Fwd(x)) reproduces
 * the encoder's reconstruction bit for bit, which is x itself whenever x - p is
 * exact in float (measured: 40 frames of spectra on the 1/8 grid of the
 * fixed-point format came back bit for bit).
 *
 * Scale: the predictor is scale-dependent only through its VAR > 1 test; it
 * must see the dequantized spectrum of ISO/IEC 13818-7 in its own scale, which
 * is the library's fixed-point spectrum (3 fractional bits,
 * zamsQuantInv_AAC_32s_I) divided by 8. A decoder converts its 1024 values to
 * float as spec / 8.0f, runs zamsFDPInv_32f_I after M/S and before intensity
 * stereo (ISO/IEC 13818-7 decoding order), and converts back as
 * round(x * 8). The number of predicted lines is the long-window offset of
 * the sampling rate's pred_sfb_max band (PRED_SFB_MAX: 33 at 96 and 88.2 kHz,
 * 38 at 64 kHz, 40 at 48 to 32 kHz, 41 at 24 and 22.05 kHz, 37 at 16 to
 * 11.025 kHz, 34 at 8 kHz). Predictor reset group g (1..30) is
 * zamsFDPResetGroup_32f(g - 1, 30, ...); noise-substituted bands are reset
 * with zamsFDPResetSfb_32f.
 *
 * State object: tag 59 in its first word, placed at the first 16-byte boundary
 * of its memory (every function takes the raw or the aligned pointer),
 * ownership flag 1 when made by InitAlloc. */
typedef struct FdpState_32f FdpState_32f;   /* tag 59 */

/* Bytes for a state of len predicted lines: 16 + 6 * 4 * (len rounded up to a
 * multiple of 4) + 15. Checks: pSize null -> zamStsNullPtr; len outside
 * 1..1024 -> zamStsSize. */
ZamStatus zamsFDPGetSize_32f(int len, int* pSize);
/* Places the state in pMem (GetSize bytes, any alignment), all predictors
 * reset, and returns its aligned address. Checks: ppState or pMem null ->
 * zamStsNullPtr; len -> zamStsSize. Init may be repeated to reset. */
ZamStatus zamsFDPInit_32f(int len, FdpState_32f** ppState, uint8_t* pMem);
/* As Init in memory from zamMalloc; *ppState receives the start of the
 * allocation. Checks: ppState null -> zamStsNullPtr; len -> zamStsSize;
 * allocation failure -> zamStsMemAlloc. */
ZamStatus zamsFDPInitAlloc_32f(int len, FdpState_32f** ppState);
/* Clears the tag and releases InitAlloc memory. Null -> zamStsNullPtr; tag not
 * 59 (a second Free) -> zamStsContextMismatch. */
ZamStatus zamsFDPFree_32f(FdpState_32f* pState);
/* Resets every predictor. Null -> zamStsNullPtr; tag -> zamStsContextMismatch. */
ZamStatus zamsFDPReset_32f(FdpState_32f* pState);
/* Resets the predictors of the bands b < sfbCount whose pResetFlag[b] is not 0
 * (lines pSfbOffset[b] .. pSfbOffset[b+1]-1 below len). Checks in order: a
 * null pointer -> zamStsNullPtr; tag -> zamStsContextMismatch; sfbCount
 * outside 0..64 -> zamStsSize; pSfbOffset[0] negative, offsets decreasing or
 * above 1024 -> zamStsBadArg. */
ZamStatus zamsFDPResetSfb_32f(const int32_t* pSfbOffset, const uint8_t* pResetFlag, int sfbCount,
                              FdpState_32f* pState);
/* Resets predictors start, start + step, start + 2*step ... below len. Checks
 * in order: pState null -> zamStsNullPtr; start negative -> zamStsSize; step
 * below 1 -> zamStsStep; tag -> zamStsContextMismatch. A start at or beyond
 * len resets nothing. */
ZamStatus zamsFDPResetGroup_32f(int start, int step, FdpState_32f* pState);
/* Encoder: pSrc 1024 lines -> pDst residual (lines from len on are copied);
 * decoder: adds the prediction in place to the first len lines (later lines
 * are left alone). pPredUsed: one flag byte per band (prediction_used of
 * AacIcsInfo), sfbCount bands with pSfbOffset[0..sfbCount]; lines outside
 * every band are predicted but not used. Both update every predictor. Checks
 * in order: a null pointer -> zamStsNullPtr; tag -> zamStsContextMismatch;
 * sfbCount and offsets as for ResetSfb. A failed check writes nothing. */
ZamStatus zamsFDPFwd_32f(const float* pSrc, float* pDst, const int32_t* pSfbOffset, const uint8_t* pPredUsed,
                         int sfbCount, FdpState_32f* pState);
ZamStatus zamsFDPInv_32f_I(float* pSrcDst, const int32_t* pSfbOffset, const uint8_t* pPredUsed, int sfbCount,
                           FdpState_32f* pState);

/* ---- long-term prediction (AAC LTP, MPEG-4 object type 4) ----
 *
 * ISO/IEC 14496-3, 4.6.6. Fixed point throughout, in the formats of the AAC
 * integer filter bank: time values are PCM with 8 fractional bits (the output
 * of zamsMDCTInv_AAC_32s_I), spectra have 3 fractional bits.
 *
 * The history of a channel is 3072 time values: [0, 1024) the output of the
 * frame before last, [1024, 2048) the output of the last frame, [2048, 3072)
 * the windowed second half of the last frame's synthesis (its overlap buffer
 * before the next overlap-add); all zero at the start. A frame is predicted
 * by zamsLongTermPredict_AAC_32s, transformed by zamsMDCTFwd_AAC_32s_I with
 * the frame's window sequence and shapes (then, if the channel has TNS, the
 * encoder-direction TNS filter zamsEncodeTNS_AAC_32s_I of the frame's TNS
 * data), added by zamsLongTermReconstruct_AAC_32s to the dequantized spectrum
 * (after the stereo and noise tools, before TNS), and after the synthesis
 * zamsLtpUpdate_AAC_32s stores the new output and overlap. */

/* The predicted time signal of the current frame's 2048-sample window:
 *   pDst[i] = round(pHistory[i + 2048 - lag] * c / 2^14), i < 1024 + lag (and < 2048),
 *   pDst[i] = 0 for the others,
 * c the Q14 coefficient of coefIndex from the table of ltp_coef
 * {9352, 11413, 13320, 14931, 16137, 17496, 19572, 22438} (0.570829 ...
 * 1.369533; AacLtpData.ltp_coef holds these values), rounded half up and
 * saturated to 32 bits. Checks in order: a null pointer -> zamStsNullPtr; lag
 * outside 0..2047 or coefIndex outside 0..7 -> zamStsBadArg. */
ZamStatus zamsLongTermPredict_AAC_32s(const int32_t* pHistory, int32_t* pDst, int lag, int coefIndex);

/* pSrcDstSpec[k] += pSrcEstSpec[k] (saturating) in the bands that pLtpData
 * flags, when ltp_data_present is set:
 *  - long sequences (windowSequence 0, 1, 3): band b below min(maxSfb, 40)
 *    whose ltp_long_used[b + 1] is set, over the long band offsets of the
 *    sampling rate;
 *  - EIGHT_SHORT (2; both spectra in window order, 8 x 128): every short band
 *    below maxSfb of each window w whose ltp_short_used[w] is set.
 * Checks in order: a null pointer -> zamStsNullPtr; windowSequence above 3 ->
 * zamStsAacWinSeqErr; maxSfb outside 0..51 -> zamStsAacMaxSfbErr;
 * samplingRateIndex above 11 -> zamStsAacSmplRateIdxErr; maxSfb above the band
 * count of the rate and window -> zamStsAacMaxSfbErr. */
ZamStatus zamsLongTermReconstruct_AAC_32s(const int32_t* pSrcEstSpec, int32_t* pSrcDstSpec,
                                          const AacLtpData* pLtpData, int windowSequence, int maxSfb,
                                          uint32_t samplingRateIndex);

/* History update after a frame's synthesis: [0, 1024) <- [1024, 2048),
 * [1024, 2048) <- pOutput (1024 time values), [2048, 3072) <- pOverlap (the
 * overlap buffer the synthesis just wrote). Checks: a null pointer ->
 * zamStsNullPtr. */
ZamStatus zamsLtpUpdate_AAC_32s(const int32_t* pOutput, const int32_t* pOverlap, int32_t* pHistory);

/* ---- AAC prediction: end ---- */

/* ======================================================================
 * Transforms: MDCT, FIR block filter
 * ====================================================================== */

/* Opaque spec objects of the transform families. */
typedef struct MdctFwdSpec_32f MdctFwdSpec_32f;   /* tag 55 */
typedef struct MdctInvSpec_32f MdctInvSpec_32f;   /* tag 56 */

/* ---- float MDCT ----
 *
 * Definitions, with phi(n,k) = (2*pi/N) * (n + 1/2 + N/4) * (k + 1/2):
 *   forward: X[k] = 2 * sum_{n=0}^{N-1} x[n] * cos(phi(n,k)),     k = 0..N/2-1
 *   inverse: y[n] = (2/N) * sum_{k=0}^{N/2-1} X[k] * cos(phi(n,k)),  n = 0..N-1
 * The factor 2 forward and 2/N inverse are part of the contract. With them, a
 * window w satisfying w[n]^2 + w[n+N/2]^2 = 1 applied before the forward and
 * after the inverse transform, with 50 % overlap-add, returns the input itself
 * (gain 1).
 *
 * Lengths: 12 and 36 (fixed kernels, no FFT), and powers of two from 32 to 2^28
 * (an internal complex FFT of N/4 points). Other lengths give zamStsSize.
 *
 * The spec object is placed at the first 64-byte boundary inside the caller's
 * memory; every function accepts either the raw memory pointer or the aligned
 * one. A spec is read-only during transforms: several threads may share it if
 * each passes its own work buffer (or none).
 */

/* Sizes for a spec of length len: *pSpecSize bytes of spec memory (any
 * alignment), *pInitBufSize bytes of init buffer (0 when none is needed), and
 * *pWorkBufSize bytes of work buffer, an upper bound of what GetBufSize later
 * reports. Checks: any null pointer -> zamStsNullPtr; len not 12, 36 or a power
 * of two in 32..2^28 -> zamStsSize. Forward and inverse report the same sizes. */
ZamStatus zamsMDCTFwdGetSize_32f(int len, int* pSpecSize, int* pInitBufSize, int* pWorkBufSize);
ZamStatus zamsMDCTInvGetSize_32f(int len, int* pSpecSize, int* pInitBufSize, int* pWorkBufSize);

/* Builds a spec in caller memory pMemSpec (GetSize bytes) and returns its aligned
 * address through *ppMDCTSpec. Checks in order: len (zamStsSize as in GetSize),
 * then a null ppMDCTSpec or pMemSpec -> zamStsNullPtr, and for a power-of-two
 * len also a null pMemInit -> zamStsNullPtr, even when the init size is 0 (pass
 * any valid address then). For 12 and 36 pMemInit may be null. The init buffer
 * is needed only during the call. Init may be repeated on the same memory. */
ZamStatus zamsMDCTFwdInit_32f(MdctFwdSpec_32f** ppMDCTSpec, int len, uint8_t* pMemSpec, uint8_t* pMemInit);
ZamStatus zamsMDCTInvInit_32f(MdctInvSpec_32f** ppMDCTSpec, int len, uint8_t* pMemSpec, uint8_t* pMemInit);

/* As Init, in memory from zamMalloc (the record, the twiddle table and the
 * internal FFT are three allocations). Checks: len -> zamStsSize, then a null
 * ppMDCTSpec -> zamStsNullPtr; an allocation failure -> zamStsMemAlloc, after
 * releasing whatever this call had allocated (*ppMDCTSpec is then untouched). */
ZamStatus zamsMDCTFwdInitAlloc_32f(MdctFwdSpec_32f** ppMDCTSpec, int len);
ZamStatus zamsMDCTInvInitAlloc_32f(MdctInvSpec_32f** ppMDCTSpec, int len);

/* Invalidates a spec (its tag becomes 0) and, for one made by InitAlloc,
 * releases its memory. Null -> zamStsNullPtr; a spec of another kind (or one
 * already freed) -> zamStsContextMismatch. */
ZamStatus zamsMDCTFwdFree_32f(MdctFwdSpec_32f* pMDCTSpec);
ZamStatus zamsMDCTInvFree_32f(MdctInvSpec_32f* pMDCTSpec);

/* Bytes of work buffer one transform needs: 4*len + 64 + the internal FFT's
 * scratch. Null spec or pSize -> zamStsNullPtr; wrong tag ->
 * zamStsContextMismatch. */
ZamStatus zamsMDCTFwdGetBufSize_32f(const MdctFwdSpec_32f* pMDCTSpec, int* pSize);
ZamStatus zamsMDCTInvGetBufSize_32f(const MdctInvSpec_32f* pMDCTSpec, int* pSize);

/* Forward: pSrc N floats -> pDst N/2 coefficients. Inverse: pSrc N/2
 * coefficients -> pDst N floats. The _I forms work in place on one array (of N
 * floats for both directions). pBuffer: a work buffer of GetBufSize bytes at any
 * alignment, or null, in which case power-of-two lengths allocate one for the
 * call (zamStsMemAlloc if that fails) and release it before returning; lengths
 * 12 and 36 never use or allocate a buffer. Checks in order: null spec ->
 * zamStsNullPtr; wrong tag (for instance an inverse spec given to a forward
 * call) -> zamStsContextMismatch; null pSrc or pDst -> zamStsNullPtr. */
ZamStatus zamsMDCTFwd_32f(const float* pSrc, float* pDst, const MdctFwdSpec_32f* pMDCTSpec, uint8_t* pBuffer);
ZamStatus zamsMDCTInv_32f(const float* pSrc, float* pDst, const MdctInvSpec_32f* pMDCTSpec, uint8_t* pBuffer);
ZamStatus zamsMDCTFwd_32f_I(float* pSrcDst, const MdctFwdSpec_32f* pMDCTSpec, uint8_t* pBuffer);
ZamStatus zamsMDCTInv_32f_I(float* pSrcDst, const MdctInvSpec_32f* pMDCTSpec, uint8_t* pBuffer);

/* ---- 16-bit forward MDCT ----
 *
 * pDst[k] = saturate(round(X[k] * 2^-scaleFactor)), X the float forward
 * definition above (factor 2), for power-of-two N from 32 to 2^28 (12 and 36
 * are not offered). Rounding is half up (an arithmetic right shift after adding
 * half), saturation to -32768..32767; a negative scaleFactor scales up. The
 * input block is normalised by its largest magnitude (s, below), folded and
 * twiddled with Q15 twiddles into 32-bit values, transformed by an internal
 * fixed-point FFT of N/4 points on 32-bit data with Q30 twiddles (round to
 * nearest; it halves only the levels that could overflow), post-twiddled in
 * 64 bits and scaled back by a shift of scaleFactor - log2(N/4) + s + 10 bits,
 * to which the fractional bits carried inside are added, with one final
 * rounding. Measured worst error against the exact definition rounded and
 * saturated the same way, for full-scale noise, a full-scale tone, a
 * full-scale square wave and noise of +-3, at the scale factor that makes the
 * block's largest output fit, one below (saturating) and up to four above:
 *   N      32  64  128  256  512  1024  2048  4096
 *   LSB     2   2    2    2    2     2     2     1
 * (30 random blocks per length; the Q15 twiddles and the final rounding are
 * the only sources of error left, so smaller scale factors, which put more
 * output LSBs under the same error, show proportionally larger figures).
 * An all-zero input gives N/2 zeros for any scaleFactor.
 * Spec placement, sizes and checks follow the float family; the 16-bit Init
 * also accepts a null pMemInit (its init size is 0). */
typedef struct MdctFwdSpec_16s MdctFwdSpec_16s;   /* tag 57 */

/* Checks: null pointer -> zamStsNullPtr; len not a power of two in 32..2^28 ->
 * zamStsSize. Work size = max(4*len, FFT work) + len + 64; spec size = the
 * 16-bit FFT's spec size + len + 232. */
ZamStatus zamsMDCTFwdGetSize_16s(int len, int* pSpecSize, int* pInitBufSize, int* pWorkBufSize);
/* Checks: len -> zamStsSize, then null ppMDCTSpec or pMemSpec -> zamStsNullPtr. */
ZamStatus zamsMDCTFwdInit_16s(MdctFwdSpec_16s** ppMDCTSpec, int len, uint8_t* pMemSpec, uint8_t* pMemInit);
/* Three allocations (record, twiddles, FFT); failure -> zamStsMemAlloc with
 * nothing left allocated. */
ZamStatus zamsMDCTFwdInitAlloc_16s(MdctFwdSpec_16s** ppMDCTSpec, int len);
/* Null -> zamStsNullPtr; tag not 57 -> zamStsContextMismatch; clears the tag. */
ZamStatus zamsMDCTFwdFree_16s(MdctFwdSpec_16s* pMDCTSpec);
ZamStatus zamsMDCTFwdGetBufSize_16s(const MdctFwdSpec_16s* pMDCTSpec, int* pSize);
/* pSrc N samples -> pDst N/2 coefficients. Checks: null spec -> zamStsNullPtr;
 * tag not 57 -> zamStsContextMismatch; null pSrc or pDst -> zamStsNullPtr.
 * pBuffer as for the float transforms (null: allocated for the call). */
ZamStatus zamsMDCTFwd_16s_Sfs(const int16_t* pSrc, int16_t* pDst, const MdctFwdSpec_16s* pMDCTSpec, int scaleFactor,
                              uint8_t* pBuffer);

/* ---- block FIR filter ----
 *
 * Filters across blocks rather than samples: each call takes one block of len
 * floats and returns, element by element,
 *   pDst[i] = sum_{j=0}^{numTaps-1} pTaps[j] * (block passed j calls ago)[i],
 * where the current block counts as passed 0 calls ago and blocks before the
 * first call are zero. The state keeps the last numTaps blocks in a ring of
 * rows; the taps are passed with every call. The sum runs from the newest block
 * (pTaps[0], a plain product) through the oldest block (pTaps[numTaps-1]) back to
 * the second newest (pTaps[1]), each term added with a fused multiply-add.
 *
 * State record (made only by InitAlloc), fields in order: pointer to the ring
 * (numTaps rows of stride floats, a separate allocation), numTaps, len, stride
 * (len rounded up to a multiple of 4) and position (the newest row) as signed
 * 16-bit values, then the tag 58 as the last field. The counts are kept in 16
 * bits: a numTaps or len above 32767 is accepted by InitAlloc but reads back
 * negative, so every filtering call on that state returns zamStsFirLength. The
 * stride is rounded in 16 bits (unsigned) for the ring's allocation, so a len
 * of 65533..65535 rounds to 0 and InitAlloc fails with zamStsMemAlloc. */
typedef struct FirBlockState_32f FirBlockState_32f;   /* tag 58 */

/* Allocates a state with a zeroed ring. Checks: null ppState -> zamStsNullPtr;
 * numTaps < 1 or len < 1 -> zamStsFirLength; an allocation failure ->
 * zamStsMemAlloc (nothing is left allocated). */
ZamStatus zamsFIRBlockInitAlloc_32f(FirBlockState_32f** ppState, int numTaps, int len);

/* Filters one block (pSrc and pDst may be the same array). Checks in order: any
 * null pointer -> zamStsNullPtr; tag not 58 -> zamStsContextMismatch; stored len
 * or numTaps below 1, or stored position outside 0..numTaps-1 ->
 * zamStsFirLength (the state is left unchanged). Returns zamStsMisalignedData
 * (+2, a warning: the output is complete) when pSrc, pDst or pTaps is not a
 * multiple of 16 bytes, zamStsOk otherwise. */
ZamStatus zamsFIRBlockOne_32f(const float* pSrc, float* pDst, FirBlockState_32f* pState, const float* pTaps);

/* Releases the ring and the state. Null -> zamStsNullPtr; tag not 58 ->
 * zamStsContextMismatch. The tag is not cleared. */
ZamStatus zamsFIRBlockFree_32f(FirBlockState_32f* pState);

/* ---- transforms: end ---- */

/* ======================================================================
 * MP3 float polyphase filter banks
 * ====================================================================== */

/* The ISO 11172-3 polyphase banks in 32-bit float: 32 subbands, a 512-tap window,
 * one granule (576 samples, 18 time slots) per call. Each bank keeps only its
 * 512-float delay line, so one object serves one channel.
 *
 * State objects (tag "hAMC" for analysis, "gAMC" for synthesis): a 16-byte aligned
 * header (tag, ring position initialised to 15, ownership flag, delay-line pointer)
 * followed by the zero-filled 512-float delay line. Init in caller memory of the
 * GetSize size at any address (the header goes to the next 16-byte boundary; the
 * returned pointer is that aligned address; the operations accept either pointer).
 * InitAlloc takes the memory from zamMalloc and returns the start of the allocation.
 * Init again on the same memory resets the bank. Free: null -> zamStsNullPtr, wrong
 * tag -> zamStsContextMismatch; releases the memory only for InitAlloc objects and
 * leaves the tag in place. */
typedef struct PqmfAnalysisState_MP3 PqmfAnalysisState_MP3;
typedef struct PqmfSynthesisState_MP3 PqmfSynthesisState_MP3;

/* Bytes for either bank's state object: always 2107. Null -> zamStsNullPtr.
 * zamsSynthesisFilterGetSize_PQMF_MP3_32f is the same function under a second name. */
ZamStatus zamsAnalysisFilterGetSize_PQMF_MP3_32f(int* pSize);
ZamStatus zamsSynthesisFilterGetSize_PQMF_MP3_32f(int* pSize);

/* Null ppState or pMem -> zamStsNullPtr; InitAlloc: null ppState -> zamStsNullPtr,
 * allocation failure -> zamStsMemAlloc. */
ZamStatus zamsAnalysisFilterInit_PQMF_MP3_32f(PqmfAnalysisState_MP3** ppState, uint8_t* pMem);
ZamStatus zamsAnalysisFilterInitAlloc_PQMF_MP3_32f(PqmfAnalysisState_MP3** ppState);
ZamStatus zamsAnalysisFilterFree_PQMF_MP3_32f(PqmfAnalysisState_MP3* pState);
ZamStatus zamsSynthesisFilterInit_PQMF_MP3_32f(PqmfSynthesisState_MP3** ppState, uint8_t* pMem);
ZamStatus zamsSynthesisFilterInitAlloc_PQMF_MP3_32f(PqmfSynthesisState_MP3** ppState);
ZamStatus zamsSynthesisFilterFree_PQMF_MP3_32f(PqmfSynthesisState_MP3* pState);

/* Analysis of one granule: reads the 576 PCM samples pSrc[i * mode] (mode = channel
 * count, 1 or 2: pass interleaved stereo from the channel's first sample) and writes
 * 576 subband samples subband-major, pDst[sb * 18 + t] (subband sb 0..31, time slot
 * t 0..17). Window C[i] (the synthesis window / 32) and the matrix
 * cos((2k + 1)(i - 16) pi / 64), no frequency inversion. The input scale is kept:
 * a full-scale 1.0 input gives subband samples of about that size.
 * Checks in order: a null pointer -> zamStsNullPtr; wrong tag ->
 * zamStsContextMismatch; mode not 1 or 2 -> zamStsBadArg. Nothing is written or
 * changed on a failed check. */
ZamStatus zamsAnalysisFilter_PQMF_MP3_32f(const float* pSrc, float* pDst, PqmfAnalysisState_MP3* pState,
                                          int mode);

/* Synthesis of one granule: reads 576 subband samples pSrc[sb * 18 + t] (after the
 * caller's frequency inversion, i.e. the odd time slots of the odd subbands already
 * negated) and writes 576 PCM samples pDst[i * mode]. Window D[i] and the matrix
 * cos((16 + i)(2k + 1) pi / 64); unscaled (subband samples on the scale of the
 * analysis output give PCM on the scale of the analysis input). Analysis followed by
 * synthesis returns the input delayed by 481 samples, to about 84 dB SNR on white
 * noise (83 to 89 dB on tones): the limit of the standard window itself, not of
 * the arithmetic. Same checks as the analysis. */
ZamStatus zamsSynthesisFilter_PQMF_MP3_32f(const float* pSrc, float* pDst, PqmfSynthesisState_MP3* pState,
                                           int mode);

/* The 4/3 power law of MP3 requantization (a utility kernel, declared here beside
 * the MP3 banks): pDst[i] = sign(x) * |x|^(4/3) for x = pSrc[i], correctly rounded
 * to float for every int16 value (0 gives +0). Checks in order: pSrc or pDst null ->
 * zamStsNullPtr; len negative -> zamStsBadArg; len 0 -> zamStsSize. */
ZamStatus zamsPow43_16s32f(const int16_t* pSrc, float* pDst, int len);

/* ---- PQMF: end ---- */

/* ======================================================================
 * MP3 fixed-point decoding
 * ====================================================================== */

/* Layer III decoding from Huffman-decoded values to 16-bit PCM in integers only:
 * requantization with the stereo tools, the hybrid filter bank, the polyphase
 * synthesis. The caller keeps all state (the overlap of each channel, the V buffer
 * and its position of each channel) in plain arrays; there are no state objects.
 *
 * Formats at the stage boundaries:
 *  - requantized spectrum and subband samples: int32 Q24, value = standard's
 *    value * 2^24 (the standard's scale: PCM full scale is 1.0). Q24 leaves 7 bits
 *    of headroom (|value| < 128); a PCM step of 1/32768 is 512 units.
 *  - polyphase vector (inside the V buffer): int32 Q24.
 *  - PCM: int16, value = round(32768 * standard's PCM), saturated to -32768..32767.
 * Every product is formed in 64 bits and rounded once (half up, i.e. floor(x + 1/2));
 * results that do not fit 32 bits are saturated, except inside the polyphase cosine
 * transform (an even/odd split with factors up to 10.2), whose 32-bit sums wrap
 * (never overflow as C arithmetic) when subband samples far beyond full scale meet in
 * the worst phase; no wrap occurs on the ISO compliance streams (peak subband sample
 * 0.41, l3-si_huff 7.8) or on lame's streams.
 *
 * The whole chain (zamac-decode --fixed) reaches 108.2 to 117.9 dB PSNR with a
 * largest difference of 1 on all 18 ISO/IEC 11172-4 and 13818-4 Layer III
 * compliance streams (the float path: 109.8 to 138.6 dB), and 110 to 112 dB against
 * mpg123 on lame's streams from 8 to 48 kHz.
 *
 * Alignment: zamsMDCTInv_MP3_32s, zamsMDCTInvWindow_MP3_32s and
 * zamsSynthPQMF_MP3_32s16s track it: after a successful run they return
 * zamStsMisalignedData (2) if one of their array pointers is not a multiple of 16
 * bytes (the results are the same). The requantization does not track it. */

/* Scale-factor arrays of the two channels, one after the other: channel ch's
 * array (as zamsUnpackScaleFactors_MP3_1u8s fills it) starts at element
 * ch * ZAM_MP3_SCALEFAC_STRIDE. */
#define ZAM_MP3_SCALEFAC_STRIDE 40
/* int32 elements of the V buffer of zamsSynthPQMF_MP3_32s16s (one per channel). */
#define ZAM_MP3_SYNTH_V_SIZE 512

/* Requantization of one granule, both channels, in place (ISO/IEC 11172-3,
 * 2.4.3.4.7 to 2.4.3.4.9; ISO/IEC 13818-3, 2.4.3.2):
 *   xr = sign(is) * |is|^(4/3) * 2^((global_gain - 210) / 4)
 *        * 2^(-(scalefac_scale + 1) / 2 * (scalefac + preflag * pretab))   (long bands)
 *        * 2^(-2 * subblock_gain[w]) * 2^(-(scalefac_scale + 1) / 2 * scalefac)  (short)
 * then, in joint stereo (mode 1) with two channels, the tools of mode_extension:
 * M/S ((L +- R) / sqrt 2) and intensity stereo above the last non-zero band of the
 * right channel (per window for short blocks): MPEG-1 (ID 1) with
 * k_l = tan(p pi/12) / (1 + tan(p pi/12)), k_r = 1 / (1 + tan(p pi/12)) and position 7
 * illegal; MPEG-2 (ID 0) with i0 = 2^(-1/4) (scalefac_compress even) or 2^(-1/2)
 * (odd) raised to (p + 1) / 2 for the left channel (odd p) or p / 2 for the right
 * (even p), and the negated markers of zamsUnpackScaleFactors_MP3_1u8s as illegal
 * positions. An illegal position gets M/S when M/S is on, else nothing. The top band
 * (long 21, short 12) takes the position of the band below it (MPEG-2: position 0
 * when that band lies below the intensity region). When the two channels' block
 * types differ, only M/S is applied. Last, short-block granules are reordered from
 * band/window order to the subband order of the inverse MDCT,
 * xr[18 * sb + 3 * f + w] (mixed blocks: from line 36 on).
 * Mixed blocks: long bands 0..7 (MPEG-1) or 0..5 (MPEG-2) and short bands 3..12.
 *
 * pSrcDstIsXr: 576 values of channel 0, then (two channels) 576 of channel 1: the
 *   Huffman decoder's output in, Q24 spectral values out. Lines at and above a
 *   channel's bound are taken as zero and written as zero.
 * pSrcDstNonZeroBound: 1 or 2 int32, in: the Huffman decoders' non-zero bounds; out:
 *   one past the last non-zero line of each channel after all of the above.
 * pSrcScaleFactor: the scale-factor arrays (ZAM_MP3_SCALEFAC_STRIDE apart).
 * pSideInfo: the granule's records, channel 0 first (&sideInfo[gr * nch]).
 * pFrameHeader: nch is 1 when mode is 3, else 2; the band tables are the standard's
 *   for ID and sampling_frequency (for MPEG-2.5, use the Sfb form).
 * Rounding: one rounding per value; a non-zero quantized value never becomes 0 (its
 * magnitude is at least 1 unit); magnitudes above 2^31 - 1 saturate.
 * Checks, in order: a null pointer -> zamStsNullPtr; a bound outside 0..576 ->
 * zamStsBadArg; (Sfb form) a long boundary outside 0..576 or a short one outside
 * 0..192, decreasing boundaries, or tables not running from 0 to 576 (long) and 0
 * to 192 (short) -> zamStsBadArg; (built-in form) sampling_frequency above 2 ->
 * zamStsMp3FrameHeaderErr; ID above 1, layer not 1, mode or mode_extension above 3 ->
 * zamStsMp3FrameHeaderErr; in a record of the granule window_switching_flag,
 * mixed_block_flag, scalefac_scale or preflag above 1, block_type above 3,
 * window switching with block_type 0, global_gain above 255 or a subblock_gain above
 * 7 -> zamStsMp3SideInfoErr; a quantized magnitude above 8206 below the bound ->
 * zamStsBadData. Every check, the last included, comes before anything is written.
 * Accuracy (measured on every granule of the 18 ISO compliance streams, against the
 * same stage in single-precision float): at most 1.2 units beyond the float's own
 * rounding (2^-22 of the value), stereo tools included. */
ZamStatus zamsReQuantize_MP3_32s_I(int32_t* pSrcDstIsXr, int32_t* pSrcDstNonZeroBound,
                                   const int8_t* pSrcScaleFactor, const Mp3SideInfo* pSideInfo,
                                   const Mp3FrameHeader* pFrameHeader);
/* The same with the caller's band boundaries: pSfbTableLong 23 long boundaries
 * (lines 0..576), pSfbTableShort 14 short boundaries of one window (0..192), both
 * for the stream's rate (for example the MPEG-2.5 8 kHz table). */
ZamStatus zamsReQuantizeSfb_MP3_32s_I(int32_t* pSrcDstIsXr, int32_t* pSrcDstNonZeroBound,
                                      const int8_t* pSrcScaleFactor, const Mp3SideInfo* pSideInfo,
                                      const Mp3FrameHeader* pFrameHeader, const int16_t* pSfbTableLong,
                                      const int16_t* pSfbTableShort);

/* Hybrid synthesis of one granule of one channel (ISO/IEC 11172-3, 2.4.3.4.10):
 * alias reduction (all 31 subband boundaries of long blocks, only the first of
 * mixed blocks, none of short blocks; cs_i = 1 / sqrt(1 + c_i^2), ca_i = c_i cs_i in
 * Q31), the inverse MDCT x[i] = sum_k X[k] cos(pi/72 (2i + 19)(2k + 1)) (i = 0..35)
 * with the window of the block type (window_switching_flag 0: block type 0), or for
 * block type 2 three 12-point ones, x_w[i] = sum_k X[3k + w] cos(pi/24 (2i + 7)(2k + 1))
 * windowed and added at 6 + 6w + i of the 36-point block; mixed blocks use the
 * normal window on subbands 0 and 1. Then overlap-add: pDstY[18 sb + i] = x[i] +
 * overlap[18 sb + i], overlap[18 sb + i] = x[18 + i]; then frequency inversion (odd
 * slots i of odd subbands negated).
 * pSrcXr: 576 Q24 values as zamsReQuantize_MP3_32s_I leaves them (not modified).
 * pDstY: 576 Q24 subband samples, pDstY[18 * sb + t] (subband sb, time slot t), the
 *   input of zamsSynthPQMF_MP3_32s16s. pSrcDstOverlap: the channel's 576 Q24
 *   overlap values (zeros at the start of a stream).
 * nonZeroBound: one past the last non-zero line of pSrcXr (576 when unknown): the
 *   subbands above it (and above the reach of the alias butterflies) are not
 *   transformed, their output is the overlap alone. Lines at and above it must be 0.
 * Coefficients Q31, windows Q30, each product in 64 bits, each of the four steps
 * (alias butterfly, transform, window, overlap sum) rounded once and saturated;
 * transform inputs are first clamped to +-(2^27 - 1) (8.0; the ISO streams peak at
 * 4.9), which keeps the 64-bit sums exact.
 * Checks, in order: a null pointer -> zamStsNullPtr; nonZeroBound outside 0..576 ->
 * zamStsBadArg; window_switching_flag or mixed_block_flag above 1, block_type above
 * 3, window switching with block_type 0 -> zamStsMp3SideInfoErr. Nothing is written
 * on a failed check.
 * Accuracy (every granule of the ISO compliance streams, same input, against the
 * float hybrid bank): at most 5.5 units (1/90 of a PCM step) beyond the float's own
 * rounding. */
ZamStatus zamsMDCTInv_MP3_32s(const int32_t* pSrcXr, int32_t* pDstY, int32_t nonZeroBound,
                              const Mp3SideInfo* pSideInfo, int32_t* pSrcDstOverlap);

/* The windowed inverse MDCT alone, for callers that keep their own overlap (and for
 * an encoder's analysis by synthesis): for each subband sb < numSubbands,
 * pDst[36 * sb + i] (i = 0..35) = the 36 windowed samples of pSrcXr[18 sb .. 18 sb + 17],
 * exactly as zamsMDCTInv_MP3_32s forms them before the overlap-add: block types
 * 0, 1, 3 the 36-point transform times their window; block type 2 the three
 * windowed 12-point transforms at offsets 6, 12, 18 (zeros at 0..5 and 30..35);
 * mixedBlock 1 puts subbands 0 and 1 on the normal window. No alias reduction, no
 * frequency inversion. Q24 in and out, inputs clamped as above.
 * Checks, in order: a null pointer -> zamStsNullPtr; numSubbands outside 1..32 ->
 * zamStsSize; blockType above 3 or mixedBlock above 1 -> zamStsBadArg. */
ZamStatus zamsMDCTInvWindow_MP3_32s(const int32_t* pSrcXr, int32_t* pDst, int32_t numSubbands, int32_t blockType,
                                    int32_t mixedBlock);

/* Polyphase synthesis of one granule of one channel (ISO/IEC 11172-3, 2.4.3.2 with
 * the window D[i] of Table B.3): 18 time slots of 32 subband samples
 * pSrcY[18 * sb + t] (Q24, after frequency inversion) to 576 PCM samples
 * pDstPcm[i * mode]: mode 1 writes consecutive samples, mode 2 every other sample
 * (one channel of interleaved stereo; pass the address of the channel's first
 * sample). PCM = round(32768 * sum_i D[i] V[i]) saturated to 16 bits, with the
 * standard's V = N S computed as a 32-point cosine transform in Q24 (even/odd split,
 * factors Q27) and the window as the integers 65536 D[i], summed in 64 bits.
 * pVBuffer: ZAM_MP3_SYNTH_V_SIZE int32 of the channel's history, pVPosition: its
 * newest slot (0..15), advanced by 18 modulo 16. Start a stream with a zero-filled
 * buffer and position 0. A V buffer not aligned to 32 bytes costs a copy.
 * Checks, in order: a null pointer -> zamStsNullPtr; mode not 1 or 2, *pVPosition
 * outside 0..15 -> zamStsBadArg. Nothing is written on a failed check.
 * Accuracy (every granule of the ISO compliance streams, same input, against the
 * float polyphase bank rounded to 16 bits): 99.65% to 99.88% of the samples equal,
 * the others 1 apart. */
ZamStatus zamsSynthPQMF_MP3_32s16s(const int32_t* pSrcY, int16_t* pDstPcm, int32_t mode, int32_t* pVBuffer,
                                   int32_t* pVPosition);

/* ---- MP3 fixed-point decoding: end ---- */

/* ======================================================================
 * MP3 encoding
 * ====================================================================== */

/* The stages of a Layer III encoder, one granule and channel per call, in the order
 * an encoder runs them:
 *   zamsAnalysisPQMF_MP3_16s32s    PCM -> 576 subband samples
 *   zamsPsychoacousticModelTwo_MP3_16s  PCM -> SMRs, perceptual entropy, block type
 *   zamsMDCTFwd_MP3_32s            subband samples -> 576 spectral lines
 *   zamsJointStereoEncode_MP3_32s_I     L/R lines -> M/S lines (joint stereo frames)
 *   zamsQuantize_MP3_32s_I         lines -> quantized lines, scale factors, side info
 * then zamsPackFrameHeader_MP3, zamsPackSideInfo_MP3, and per granule and channel
 * zamsPackScaleFactors_MP3_8s1u and zamsHuffmanEncode_MP3_32s1u, with the main data
 * placed by the bit reservoir (Mp3BitReservoir). Every stage keeps its history in
 * plain caller arrays or records; none allocates.
 *
 * Fixed-point scale. PCM is int16. Subband samples and spectral lines are int32 with
 * 8 fraction bits on the int16 scale: a value v stands for v / 256 / 32768 of full
 * scale, which is the scale of the ISO decoder (requantized lines xr = v * 2^-23,
 * and a decoder's IMDCT and synthesis bank turn those lines back into PCM of the
 * same scale). A full-scale sine gives subband samples up to about 2^23 and lines
 * up to about 2^25. */

/* Polyphase analysis of one granule (ISO/IEC 11172-3, 2.4.3.4.10.1 with the window
 * C[i] of Table C.1 and the matrix cos((2k + 1)(i - 16) pi / 64)): reads the 576 PCM
 * samples pSrc[i * mode] (mode 1 mono, 2 interleaved stereo from the channel's first
 * sample) and writes 576 subband samples subband-major, pDst[sb * 18 + t] (subband
 * sb 0..31, time slot t 0..17), without frequency inversion (zamsMDCTFwd_MP3_32s
 * does it). pHistory is the channel's caller-held history: its 480 most recent input
 * samples, oldest first; zero it before the first granule; each call reads and
 * updates it. Computed in float (the float bank's kernel), rounded to the int32
 * format above: within 1.4e-7 of full scale of a double-precision evaluation
 * (measured on tones with noise), and analysis followed by
 * zamsSynthesisFilter_PQMF_MP3_32f (lines / 256) returns the input delayed by 481
 * samples at about 86 dB SNR, the limit of the standard window.
 * Checks in order: pSrc, pDst or pHistory null -> zamStsNullPtr; mode not 1 or 2
 * -> zamStsBadArg. Nothing is written on a failed check. */
ZamStatus zamsAnalysisPQMF_MP3_16s32s(const int16_t* pSrc, int32_t* pDst, int mode, int16_t* pHistory);

/* Forward hybrid MDCT of one granule and channel (ISO/IEC 11172-3, 2.4.3.4.10.2):
 * pSrc holds the granule's 576 subband samples as the analysis writes them, and
 * pOverlap the previous granule's (caller-held, zero before the first granule; on
 * return it holds a copy of pSrc). Per subband, the odd time slots of odd subbands
 * are negated (frequency inversion), the 36 samples (previous 18, current 18) are
 * windowed by the block type of pSideInfo (block_type when window_switching_flag is
 * 1, else normal: sine window; start; stop; or short: three 12-sample sine windows
 * starting at samples 6, 12 and 18) and transformed with
 *   X[k] = 4/n * sum_i z[i] cos(pi / 2n * (2i + 1 + n / 2)(2k + 1)),  n = 36 or 12,
 * the exact inverse of the ISO decoder's IMDCT and overlap-add. Long, start and stop
 * blocks then get the encoder's alias-reduction butterflies (the inverse of the
 * decoder's), and pDst[sb * 18 + k] are the 576 lines in frequency order. Short
 * blocks are written in stream order, as zamsHuffmanEncode_MP3_32s1u and
 * zamsQuantize_MP3_32s_I take them: scale-factor band by band (the short band table
 * of ID and sampling_frequency of pFrameHeader), within a band window 0, 1, 2, each
 * window's lines in frequency order. Mixed blocks are not produced.
 * Accuracy: float arithmetic, within 8e-8 of full scale of the double formula;
 * forward then inverse (the decoder's butterflies, IMDCT and overlap-add in double)
 * returns the previous granule's subband samples at about 115 dB SNR (the rounding
 * of the lines to 8 fraction bits) through any legal sequence of block types.
 * Checks in order: any pointer null -> zamStsNullPtr; window_switching_flag above 1,
 * block_type above 3, window switching with block_type 0, or mixed_block_flag not 0
 * -> zamStsMp3SideInfoErr; ID above 1 or sampling_frequency above 2 (unsigned) ->
 * zamStsMp3FrameHeaderErr. Nothing is written on a failed check. pDst must not
 * overlap pSrc or pOverlap. */
ZamStatus zamsMDCTFwd_MP3_32s(const int32_t* pSrc, int32_t* pDst, const Mp3SideInfo* pSideInfo,
                              const Mp3FrameHeader* pFrameHeader, int32_t* pOverlap);

/* Psychoacoustic model 2 (ISO/IEC 11172-3, Annex D, with the Layer III choices):
 * per granule and channel a Hann-windowed 1024-point FFT and three 256-point FFTs,
 * the unpredictability of each line from the two previous long spectra (lines
 * above 206 of 512 take 0.4), energies and unpredictabilities summed in partitions
 * of about a third of a Bark, spread between partitions with the spreading function
 * of zamsSpread_16s_Sfs, tonality tb = -0.299 - 0.43 ln(cb) clipped to 0..1, a
 * required SNR of tb * 35 + (1 - tb) * 6 dB (at least 24.5 - 0.74 z dB, z the
 * partition's Bark value, and at least 6 dB), pre-echo control (threshold at most
 * 2 and 16 times those of the two previous granules) and the threshold in quiet
 * (a full-scale sine taken as 96 dB SPL). Short blocks use the three short spectra
 * with a fixed 12 dB SNR.
 *
 * Input: pSrc[i * mode], i = 0..1023 (mode 1 mono, 2 interleaved stereo from the
 * channel's first sample): the 1024 samples centred on the granule's MDCT block.
 * With zamsAnalysisPQMF_MP3_16s32s and zamsMDCTFwd_MP3_32s, the block of the
 * granule whose subband samples come from input samples 576g .. 576g + 575 is
 * centred on input sample 576g - 224, so pass the samples from 576g - 736 (zeros
 * before the start of the signal). The short FFTs take samples 192..447, 384..639
 * and 576..831 of the 1024.
 *
 * Output, one granule late: each call analyses the granule it is given and returns
 * in *pDstInfo the results of the granule given to the previous call, whose block
 * type can only now be decided (a start block needs to know that the next granule
 * is short). The first call returns a normal block with all values 0. block_type
 * follows the attack decision (perceptual entropy above 1800, or the energy above
 * bin 8 of a short spectrum rising tenfold from the short spectrum before it) with
 * the transitions normal -> start -> short ... short -> stop -> normal. smrLong and
 * smrShort are signal-to-mask ratios in dB, Q8 (1/256 dB), -100 dB for a band
 * without energy; the bands are the long and short scale-factor bands of ID and
 * sampling_frequency (band 21 long and 12 short: the lines above the last band
 * with a scale factor); smrShort is [3 * band + window]. pe is the perceptual
 * entropy in bits, sum over partitions of lines * ln(energy / threshold).
 *
 * pState: the channel's caller-held state, an opaque record of
 * sizeof(Mp3PsychoacousticState) bytes at any address. Zero it before the first
 * granule; it then holds the previous spectra, thresholds and block decision, and
 * the tables of the sampling rate (built on the first call, and again when the rate
 * changes). It may be moved or copied between calls.
 * Checks in order: a null pointer -> zamStsNullPtr; mode not 1 or 2 -> zamStsBadArg;
 * ID above 1 or sampling_frequency above 2 -> zamStsMp3FrameHeaderErr. Nothing is
 * written on a failed check. */
typedef struct Mp3PsychoacousticInfo {
    int32_t block_type;    /* 0 normal, 1 start, 2 short, 3 stop */
    int32_t pe;            /* perceptual entropy, bits */
    int32_t smrLong[22];   /* dB, Q8, per long band */
    int32_t smrShort[39];  /* dB, Q8, [3 * band + window] */
} Mp3PsychoacousticInfo;

typedef struct Mp3PsychoacousticState {
    int64_t opaque[24576];
} Mp3PsychoacousticState;

/* Psychoacoustic model 2 for one granule, as described above: fills *pDstInfo and
 * moves the caller-held state *pState on by one granule. */
ZamStatus zamsPsychoacousticModelTwo_MP3_16s(const int16_t* pSrc, Mp3PsychoacousticInfo* pDstInfo, int mode,
                                             const Mp3FrameHeader* pFrameHeader, Mp3PsychoacousticState* pState);

/* M/S stereo decision and transform of one frame (ISO/IEC 11172-3, 2.4.3.4.9.2):
 * pSrcDstL and pSrcDstR hold the left and right lines of the frame's granules one
 * after the other (576 per granule: 2 granules for MPEG-1, 1 for MPEG-2), as
 * zamsMDCTFwd_MP3_32s writes them; pSideInfo the frame's side information records
 * (granule-major, two channels), of which only window_switching_flag and
 * block_type are read. M/S is chosen when every granule has the same block type in
 * both channels and the side energy sum (L - R)^2 is below 0.35 times the mid
 * energy sum (L + R)^2; then M = (L + R) / sqrt(2) and S = (L - R) / sqrt(2) replace
 * the lines (rounded), and mode_extension of *pFrameHeader is set to 2, else to 0
 * (the lines unchanged). Intensity stereo is not used.
 * Checks in order: a null pointer -> zamStsNullPtr; ID above 1 (unsigned) or mode
 * not 1 (joint stereo) -> zamStsMp3FrameHeaderErr; a window_switching_flag above 1
 * -> zamStsMp3SideInfoErr. Nothing is written on a failed check. */
ZamStatus zamsJointStereoEncode_MP3_32s_I(int32_t* pSrcDstL, int32_t* pSrcDstR, Mp3FrameHeader* pFrameHeader,
                                          const Mp3SideInfo* pSideInfo);

/* Quantization of one granule and channel (ISO/IEC 11172-3, Annex C loops), in
 * place: pSrcDst holds the 576 lines of zamsMDCTFwd_MP3_32s (after the joint-stereo
 * transform) and receives the quantized values ix (sign of the line, |ix| <= 8206),
 * ready for zamsHuffmanEncode_MP3_32s1u. The decoder rebuilds
 *   |line| = |ix|^(4/3) * 2^((global_gain - 118 - shift) / 4)
 * where shift = (1 + scalefac_scale) * 2 * (scalefac + preflag * pretab) (long) or
 * (1 + scalefac_scale) * 2 * scalefac (short).
 * pXmin: the allowed noise per band, 10 log10 of the sum of squared errors over the
 * band's lines in the lines' own units, dB Q8 (a band's energy in dB minus its SMR
 * from the model): 22 long bands, or 39 short band-windows [3 * band + window], in
 * the band layout of zamsPsychoacousticModelTwo_MP3_16s. bitBudget (0..4095): the
 * most bits the granule may take, scale factors and Huffman data together.
 *
 * Inner loop: the smallest global_gain whose Huffman bits fit the budget left by the
 * scale factors (a binary search; after an amplification a walk up from the last
 * gain). Outer loop (at most 10 passes): the bands whose noise exceeds pXmin get
 * their scale factor raised by one; scalefac_scale is set (and the factors halved,
 * rounded up) when a factor outgrows its length; the loop ends when no band is over,
 * every band with a scale factor is amplified, a factor outgrows even the larger
 * step, or the scale factors no longer fit. The pass with the least total excess
 * noise (sum over bands of dB above the allowed) is kept. When that pass is within
 * the allowed noise in every band, global_gain is then raised (binary search) to
 * the coarsest step that stays within, so that a granule takes no more bits than
 * its allowed noise needs (the rest stays in the reservoir; with bitBudget 4095
 * this is a quality-driven VBR quantizer). Then preflag is set (MPEG-1
 * long blocks) when every band 11..20 carries its pre-emphasis, scalefac_compress is
 * the cheapest that holds the factors, and the region split of long blocks is the
 * cheapest of all legal region0_count / region1_count pairs.
 * Huffman tables: per region the cheapest of the tables that carry its largest
 * value; count-1 table A or B, the cheaper. MPEG-2 (ID 0): all regions take one
 * table, so that zamsHuffmanEncode_MP3_32s1u (which serves MPEG-1 band tables) writes
 * the same bits when called with a copy of the header whose ID is 1.
 *
 * Fields of *pSideInfo: read: window_switching_flag, block_type, mixed_block_flag
 * (must be 0). Written: part2_3_length, big_values, global_gain, scalefac_compress,
 * table_select[0..2] (table_select[2] is 0 for window-switching granules, whose
 * region 2 is empty), subblock_gain[0..2] (0), region0_count and region1_count (for
 * window-switching granules the implied 7/13, or 8/12 for short blocks), preflag
 * (0 for MPEG-2), scalefac_scale, count1table_select.
 * pDstScaleFactor: 39 values in the layout of zamsPackScaleFactors_MP3_8s1u (long:
 * bands 0..20, short: [3 * band + window]; the rest 0), for granule 1 packed with
 * all scfsi values 0 (no reuse). *pDstCount1Len: lines of count-1 quadruples after
 * 2 * big_values; *pDstHufSize: Huffman bits. The promise: packing the scale
 * factors writes exactly part2_3_length - *pDstHufSize bits, and
 * zamsHuffmanEncode_MP3_32s1u with count1Len = *pDstCount1Len and hufSize =
 * *pDstHufSize writes exactly *pDstHufSize bits (no stuffing); part2_3_length <=
 * bitBudget.
 * Checks in order: a null pointer -> zamStsNullPtr; bitBudget outside 0..4095 ->
 * zamStsBadArg; window_switching_flag above 1, block_type above 3, window switching
 * with block_type 0, or mixed_block_flag not 0 -> zamStsMp3SideInfoErr; ID above 1
 * or sampling_frequency above 2 -> zamStsMp3FrameHeaderErr. Nothing is written on a
 * failed check. */
ZamStatus zamsQuantize_MP3_32s_I(int32_t* pSrcDst, const int32_t* pXmin, int8_t* pDstScaleFactor,
                                 Mp3SideInfo* pSideInfo, int32_t* pDstCount1Len, int32_t* pDstHufSize,
                                 int bitBudget, const Mp3FrameHeader* pFrameHeader);

/* The bit reservoir (ISO/IEC 11172-3, 2.4.3.4.11): Layer III frames have a fixed
 * size, but a granule may take more or fewer bits than its share; the main data of
 * a frame may start main_data_begin bytes before the frame's side information ends
 * (at most 511 bytes in MPEG-1, 255 in MPEG-2), in space that earlier frames left.
 * The caller owns this record; zamsBitReservoirInit_MP3 sets it up, and the encoder
 * works on it with these operations, in this order per frame:
 *  1. Frame start: frameRemainder += F mod samplingRate, where F = 144000 * bitrate
 *     (MPEG-1) or 72000 * bitrate (MPEG-2); paddingBit = 1 if frameRemainder >=
 *     samplingRate (then frameRemainder -= samplingRate), else 0; frameBytes =
 *     F / samplingRate + paddingBit; mainDataBits = 8 * frameBytes - sideInfoBits;
 *     main_data_begin of the frame = bits / 8.
 *  2. Granule budgets: the frame may spend at most bits + mainDataBits over its
 *     granules and channels; meanBits is the even share of one granule and channel
 *     (of an unpadded frame). A granule may take more than its share from the
 *     reservoir (e.g. by its perceptual entropy), never more than 4095.
 *  3. Frame end, with U the sum of part2_3_length over the frame:
 *     bits = bits + mainDataBits - U, then rounded down to whole bytes (the bits
 *     between the last granule and the next byte are ancillary data), then at most
 *     maxBits (the bytes above are ancillary data too, written as zeros so that the
 *     frame keeps its size). bits is never negative when step 2 was followed.
 * Invariant: 0 <= main_data_begin <= maxBits / 8, and the main data of every frame
 * ends inside the frame. */
typedef struct Mp3BitReservoir {
    int32_t bitrate;         /* kb/s */
    int32_t samplingRate;    /* Hz */
    int32_t channels;        /* 1 or 2 */
    int32_t granules;        /* per frame: 2 (MPEG-1) or 1 (MPEG-2) */
    int32_t sideInfoBits;    /* frame header and side information (no CRC) */
    int32_t maxBits;         /* 8 * 511 (MPEG-1) or 8 * 255 (MPEG-2) */
    int32_t frameRemainder;  /* padding accumulator, in 1/samplingRate bytes */
    int32_t bits;            /* reservoir content: 8 * main_data_begin of the next frame */
    int32_t meanBits;        /* main-data bits per granule and channel, unpadded frame */
    int32_t frameBytes;      /* current frame: bytes, padding included */
    int32_t paddingBit;      /* current frame */
    int32_t mainDataBits;    /* current frame: bits after the side information */
} Mp3BitReservoir;

/* Sets up *pReservoir for a constant bitrate (kb/s, a legal Layer III value for the
 * version: MPEG-1 32..320, MPEG-2 8..160), samplingRate (44100, 48000, 32000:
 * MPEG-1; 22050, 24000, 16000: MPEG-2) and channels (1 or 2): the fields as
 * described above, with frameRemainder, bits and the current-frame fields 0.
 * Checks in order: null -> zamStsNullPtr; channels not 1 or 2, samplingRate not one
 * of the six, or bitrate not legal for its version -> zamStsBadArg. */
ZamStatus zamsBitReservoirInit_MP3(Mp3BitReservoir* pReservoir, int bitrate, int samplingRate, int channels);

/* ---- MP3 encoding: end ---- */

/* ======================================================================
 * DTS synthesis
 * ====================================================================== */

/* The 32-band QMF synthesis (sub-band interpolation) of the DTS Coherent Acoustics
 * core, ETSI TS 102 114, for one channel, in 32-bit float: each time slot turns 32
 * sub-band samples into 32 PCM samples.
 *
 * Definition, per time slot t with sub-band samples x[0..31] (sub-band 0 lowest):
 *   H_t[m] = 0.25 * sum_{n=0}^{31} x[n] * cos((2n + 1)(2m + 1) pi / 128),  m = 0..31
 *   (the standard's cosine modulation: its sums A and B over neighbouring pairs
 *   and the factors 0.25 / (2 cos((2k + 1) pi / 128)) and
 *   -0.25 / (2 sin((2k + 1) pi / 128)), which together are this quarter DCT-IV);
 *   out_t[i] = sum_{p=0}^{7} c[64p + i]      * (H_{t-2p}[i]   - H_{t-2p}[31 - i])
 *                          - c[64p + 32 + i] * (H_{t-2p-1}[i] + H_{t-2p-1}[31 - i]),
 *   i = 0..31, c the 512-tap window, H of slots before the first (or before Init)
 *   zero. No output scaling is applied: out is on the scale the standard's
 *   interpolation produces, before the decoder's own output scale.
 * Windows (Annex D of the standard, as printed): filterType 1 is the perfect-
 * reconstruction window, filterType 0 the non-perfect one; pass the stream's
 * filter-type flag (FILTS). The window may change from one call to the next; the
 * history is shared, as in the standard.
 * The cosine modulation is a 32-point DCT-IV on a 16-point complex FFT.
 * Accuracy (random sub-band samples in -1..1, against a double-precision
 * evaluation of the standard's interpolation): largest error below 2e-7 of the largest
 * output for either window. A matching analysis bank (the time-reversed
 * synthesis filters, scaled by 1024) followed by this synthesis with the perfect
 * window returns the input delayed by 480 samples (15 slots) at 81 dB SNR on
 * white noise; the limit is the window's own gain, 64 * sum c^2 = 1.0000854
 * (with that gain removed, 138 dB: the float arithmetic). The non-perfect window
 * gives 81 dB as well (gain 1.0000683; 84.5 dB without it, the aliasing of that
 * window).
 * As in the standard, the half of each output that comes from odd-aged slots is
 * formed one slot ahead with the window of that slot, so on the first slot after
 * a change of filterType that half still uses the previous window (the state
 * remembers it; a new object starts with the perfect one).
 *
 * State object (tag "kAMC"): a 16-byte aligned header (tag, ownership flag, ring
 * position), the history of the last 16 slots (2 KB) and the internal FFT. Init
 * in caller memory of the GetSize size at any address (the returned pointer is
 * the aligned header; the operations accept either pointer); Init again on the
 * same memory clears the history. InitAlloc takes the memory from zamMalloc and
 * returns the start of the allocation. One object serves one channel; it may be
 * used by one thread at a time. */
typedef struct DtsSynthesisState DtsSynthesisState;

/* Bytes for a state object (the same for every object). Null pSize ->
 * zamStsNullPtr. */
ZamStatus zamsSynthesisFilterGetSize_DTS_32f(int* pSize);

/* Null ppState or pMem -> zamStsNullPtr; otherwise the object is built with a
 * zero history and *ppState is its aligned address. */
ZamStatus zamsSynthesisFilterInit_DTS_32f(DtsSynthesisState** ppState, uint8_t* pMem);

/* Null ppState -> zamStsNullPtr; allocation failure -> zamStsMemAlloc (nothing
 * written). */
ZamStatus zamsSynthesisFilterInitAlloc_DTS_32f(DtsSynthesisState** ppState);

/* Null -> zamStsNullPtr; wrong tag -> zamStsContextMismatch. Releases the memory
 * only for an InitAlloc object; the tag stays. */
ZamStatus zamsSynthesisFilterFree_DTS_32f(DtsSynthesisState* pState);

/* numSlots time slots: pSrc[32t + n] is sub-band n of slot t, pDst[32t + i] PCM
 * sample i of slot t (t = 0..numSlots-1; pSrc and pDst may be the same array).
 * A DTS subframe of s sub-subframes is numSlots = 8s. Checks in order: pSrc, pDst
 * or pState null -> zamStsNullPtr; wrong tag -> zamStsContextMismatch; numSlots
 * < 1 -> zamStsSize; filterType not 0 or 1 -> zamStsBadArg. A failed check writes
 * nothing and leaves the history. */
ZamStatus zamsSynthesisFilter_DTS_32f(const float* pSrc, float* pDst, int numSlots, int filterType,
                                      DtsSynthesisState* pState);

/* ---- DTS synthesis: end ---- */

/* ======================================================================
 * SBR predictor coefficients
 * ====================================================================== */

/* Second-order linear predictor of each low-band QMF subband for the high-frequency
 * generator of SBR (ISO/IEC 14496-3), by the covariance method. Data are given as
 * an array of row pointers: row n holds QMF time slot n for every subband. For a
 * block of `len` slots, rows 0 .. len+1 are read (len + 2 rows). Nothing is
 * allocated and nothing but the coefficient arrays is written.
 *
 * For subband k, with x[n] = row n, column k, and L = len, the sums are taken in
 * single precision with fused multiply-adds in ascending n:
 *   A  = sum x[n+1]*conj(x[n])      n = 0..L-1   (lag one, earlier pair)
 *   B  = sum x[n+2]*conj(x[n+1])                 (lag one, later pair)
 *   Q  = sum x[n+2]*conj(x[n])                   (lag two)
 *   P0 = sum |x[n]|^2,  P1 = sum |x[n+1]|^2
 *   det    = P0*P1 - r*|A|^2,  r = 1 - 2^-20 (float bit pattern 0x3F7FFFF0)
 *   alpha1 = (B*A - P1*Q) / det
 *   alpha0 = -(B + alpha1*conj(A)) / P1
 * (conj is the identity for real data). For complex data each product
 * re*re, im*im, re*im, im*re has its own running sum; they are combined at the end.
 * The predictor of the newest sample is x[n+2] ~ -alpha0*x[n+1] - alpha1*x[n].
 *
 * Subbands are handled in groups (four real, or two complex subbands side by side
 * in vector registers) while a full group remains, and the remaining
 * numBands mod 4 (real) or numBands mod 2 (complex) one at a time. Both ways form
 * the same sums and the same quotients, but guard and limit them differently:
 *   group:   alpha1 = 0 when det == 0; alpha0 = 0 when P1 == 0; the pair is kept
 *            when both |alpha0|^2 <= 16 and |alpha1|^2 <= 16 (a square of exactly
 *            16 survives), and otherwise set to 0 (a NaN square clears the pair);
 *   single:  alpha1 = 0 unless det*det > 0 (in single precision, so a |det| below
 *            about 1e-19 counts as zero) and, for complex data, also P1 > 0;
 *            alpha0 = 0 unless P1 > 0; the pair is set to 0 when |alpha0|^2 >= 16
 *            or |alpha1|^2 >= 16 (a square of exactly 16 is cleared).
 *
 * Checks, in order: any pointer argument null -> zamStsNullPtr; len < 1 ->
 * zamStsOk, nothing written; numBands < 1 -> zamStsOk, nothing written. The row
 * pointers inside the arrays are not checked. */

/* Real QMF samples (low-power mode). pSrc: len+2 row pointers of at least numBands
 * floats; pAlpha0, pAlpha1: numBands floats each. */
ZamStatus zamsPredictCoef_SBR_R_32f_D2L(const float* const* pSrc, float* pAlpha0, float* pAlpha1,
                                        int numBands, int len);

/* Complex QMF samples, interleaved: row n holds numBands (re, im) float pairs, and
 * pAlpha0, pAlpha1 receive numBands (re, im) pairs each. */
ZamStatus zamsPredictCoef_SBR_C_32fc_D2L(const float* const* pSrc, float* pAlpha0, float* pAlpha1,
                                         int numBands, int len);

/* Complex QMF samples with real and imaginary parts in separate rows and separate
 * outputs (numBands floats each). The same steps, grouping and results as the
 * interleaved form: both forms give bit-identical coefficients for the same data. */
ZamStatus zamsPredictCoef_SBR_C_32f_D2L(const float* const* pSrcRe, const float* const* pSrcIm,
                                        float* pAlpha0Re, float* pAlpha0Im, float* pAlpha1Re,
                                        float* pAlpha1Im, int numBands, int len);

/* ---- SBR: end ---- */

/* ======================================================================
 * SBR float QMF banks
 * ====================================================================== */

/* The QMF banks of spectral band replication (ISO/IEC 14496-3, SBR filter banks)
 * in 32-bit float: a 32-band complex (high-quality) or real (low-power) analysis
 * at the core rate, a 64-band synthesis at twice the core rate, and a 32-band
 * down-sampling synthesis at the core rate. One object is one channel: it holds
 * the bank's history, so consecutive calls continue the signal. All banks use the
 * 640-tap window c[0..639] of the standard (14 decimals).
 *
 * Data layout ("_D2L"): an array of row pointers, row = QMF time slot, column =
 * subband (the layout zamsPredictCoef_SBR_* read). Complex rows are either two
 * arrays of rows (real parts, imaginary parts: "_32f") or rows of (re, im) pairs
 * ("_32fc"). The PCM side is one contiguous array, 32 (analysis, down-sampling
 * synthesis) or 64 (synthesis) samples per slot, on any scale (PCM scale such as
 * +-32768 in, the same scale out).
 *
 * Analysis, per slot l (32 new samples s[32l .. 32l+31]): the 320-sample history x
 * is shifted by 32 and the new samples are inserted newest first
 * (x[31 - j] = s[32l + j]); then
 *   u(n) = sum_{j=0}^{4} x(n + 64j) c(2(n + 64j)),                  n = 0..63
 *   complex: W[l][k] = 2 sum_{n=0}^{63} u(n) exp(i pi (k + 0.5)(2n - 0.5) / 64)
 *   real:    X[l][k] = 2 sum_{n=0}^{63} u(n) cos(pi (k + 0.5)(2n - 96) / 64)
 * for k = 0..31. The real bank is the standard's low-power analysis: the real part
 * of the same exponential taken with the phase (2n - 96) (the phase (2n - 0.5) of
 * the complex bank would leave the aliasing of a real bank uncancelled: about
 * 4 dB SNR after a round trip).
 *
 * Synthesis (M = 64 bands) and down-sampling synthesis (M = 32), per slot l: v
 * (20M values) is shifted by 2M and its first 2M values are
 *   complex, M = 64: v(n) = (1/64) sum_{k<64} Re(X[l][k] exp(i pi (k+0.5)(2n - 255) / 128))
 *   complex, M = 32: v(n) = (1/64) sum_{k<32} Re(X[l][k] exp(i pi (k+0.5)(2n - 127.5) / 64))
 *   real,    M = 64: v(n) = (1/32) sum_{k<64} X[l][k] cos(pi (k+0.5)(2n - 64) / 128)
 *   real,    M = 32: v(n) = (1/32) sum_{k<32} X[l][k] cos(pi (k+0.5)(2n - 32) / 64)
 * for n = 0..2M-1; then with w = 64/M (1 or 2)
 *   out[Ml + k] = sum_{j=0}^{4} ( v(4Mj + k) c(w(2Mj + k)) + v(4Mj + 3M + k) c(w(2Mj + M + k)) ),
 * k = 0..M-1 (the standard's g and w vectors, folded). The complex down-sampling
 * bank uses the phase (2n - 127.5), i.e. exp(i pi (k + 0.5)(4n - 255) / 128), which
 * is the full-rate modulation taken at every second sample and the one that
 * cancels the aliasing of the analysis above (the phase (2n - 127) would leave a
 * round trip at about 6.5 dB SNR). The scales make every round trip of gain 1.
 *
 * Round trips (analysis then synthesis of the same kind, all 32 bands, white
 * noise of +-20000, measured): the output is the input delayed by 289 samples
 * (down-sampling synthesis) or, at twice the rate, by 578 output samples (the even
 * output samples are the input), at 59.4 dB SNR for all four pairs (complex and
 * real, full and down-sampling). This is the limit of the window itself (a
 * double-precision evaluation gives 60.0 dB), not of the arithmetic.
 * Accuracy: each bank against a double-precision evaluation of the formulas
 * above on random data, relative RMS error 1.1e-7 (analysis) to 1.3e-7
 * (synthesis).
 *
 * Computation: the window sums run on 256-bit vectors; the modulation is a
 * pre-twiddle, one internal complex FFT per slot and a post-twiddle (analysis: 32
 * points, the odd-frequency DFT of the 64 real values u; synthesis: M points,
 * which carry the DCT-IV of the real parts and the DST-IV of the imaginary parts
 * of the pre-twiddled input at once). Nothing is allocated after InitAlloc.
 * Time per slot (bench/sbr_qmf_bench.cpp, one frame of 32 slots, on a shared
 * machine): analysis about 100 ns, 64-band synthesis about 210 ns, down-sampling
 * synthesis about 115 ns; a straightforward implementation of the formulas
 * (shift registers, plain loops, one full-size fftwf transform per slot) takes
 * 4 to 6 times as long.
 *
 * State objects: the header (tag, ownership flag, kind, position) at the first
 * 16-byte boundary of the memory, the internal FFT spec at a 64-byte boundary
 * behind it, then the zeroed history (analysis: 800 floats; synthesis: v, 1280 or
 * 640 floats). GetSize reports 3535 bytes for the analysis objects, 5455 for the
 * synthesis objects and 2895 for the down-sampling ones (any address will do).
 * Init places and resets an object in caller memory (returning the aligned
 * address; the filters accept the raw or the aligned pointer); Init again on the
 * same memory resets the bank. InitAlloc takes the memory from zamMalloc and
 * returns the start of the allocation. Free: null -> zamStsNullPtr; a tag other
 * than the kind's -> zamStsContextMismatch; releases only InitAlloc memory and
 * leaves the tag in place (a second Free of a caller-memory object returns
 * zamStsOk again). Init: null ppSpec or pMem -> zamStsNullPtr. InitAlloc: null
 * ppSpec -> zamStsNullPtr; allocation failure -> zamStsMemAlloc. */
typedef struct SbrAnalysisSpec_RToC_32f     SbrAnalysisSpec_RToC_32f;      /* tag "WAMC" */
typedef struct SbrAnalysisSpec_RToC_32f32fc SbrAnalysisSpec_RToC_32f32fc;  /* tag "VAMC" */
typedef struct SbrAnalysisSpec_RToR_32f     SbrAnalysisSpec_RToR_32f;      /* tag "XAMC" */
typedef struct SbrSynthesisSpec_CToR_32f     SbrSynthesisSpec_CToR_32f;     /* tag "ZAMC" */
typedef struct SbrSynthesisSpec_CToR_32fc32f SbrSynthesisSpec_CToR_32fc32f; /* tag "YAMC" */
typedef struct SbrSynthesisSpec_RToR_32f     SbrSynthesisSpec_RToR_32f;     /* tag "[AMC" */
typedef struct SbrSynthesisDownSpec_CToR_32f     SbrSynthesisDownSpec_CToR_32f;     /* tag "]AMC" */
typedef struct SbrSynthesisDownSpec_CToR_32fc32f SbrSynthesisDownSpec_CToR_32fc32f; /* tag "\AMC" */
typedef struct SbrSynthesisDownSpec_RToR_32f     SbrSynthesisDownSpec_RToR_32f;     /* tag "^AMC" */

/* Sizes in bytes. Null pSize -> zamStsNullPtr. Each "_32f"/"_32f32fc" (or
 * "_32fc32f") pair is one function under two names (one address); the real
 * kinds report the same numbers through their own functions. */
ZamStatus zamsAnalysisFilterGetSize_SBR_RToC_32f(int* pSize);
ZamStatus zamsAnalysisFilterGetSize_SBR_RToC_32f32fc(int* pSize);
ZamStatus zamsAnalysisFilterGetSize_SBR_RToR_32f(int* pSize);
ZamStatus zamsSynthesisFilterGetSize_SBR_CToR_32f(int* pSize);
ZamStatus zamsSynthesisFilterGetSize_SBR_CToR_32fc32f(int* pSize);
ZamStatus zamsSynthesisFilterGetSize_SBR_RToR_32f(int* pSize);
ZamStatus zamsSynthesisDownFilterGetSize_SBR_CToR_32f(int* pSize);
ZamStatus zamsSynthesisDownFilterGetSize_SBR_CToR_32fc32f(int* pSize);
ZamStatus zamsSynthesisDownFilterGetSize_SBR_RToR_32f(int* pSize);

/* Init (caller memory), InitAlloc (zamMalloc) and Free of each kind, as above. */
ZamStatus zamsAnalysisFilterInit_SBR_RToC_32f(SbrAnalysisSpec_RToC_32f** ppSpec, uint8_t* pMem);
ZamStatus zamsAnalysisFilterInit_SBR_RToC_32f32fc(SbrAnalysisSpec_RToC_32f32fc** ppSpec, uint8_t* pMem);
ZamStatus zamsAnalysisFilterInit_SBR_RToR_32f(SbrAnalysisSpec_RToR_32f** ppSpec, uint8_t* pMem);
ZamStatus zamsAnalysisFilterInitAlloc_SBR_RToC_32f(SbrAnalysisSpec_RToC_32f** ppSpec);
ZamStatus zamsAnalysisFilterInitAlloc_SBR_RToC_32f32fc(SbrAnalysisSpec_RToC_32f32fc** ppSpec);
ZamStatus zamsAnalysisFilterInitAlloc_SBR_RToR_32f(SbrAnalysisSpec_RToR_32f** ppSpec);
ZamStatus zamsAnalysisFilterFree_SBR_RToC_32f(SbrAnalysisSpec_RToC_32f* pSpec);
ZamStatus zamsAnalysisFilterFree_SBR_RToC_32f32fc(SbrAnalysisSpec_RToC_32f32fc* pSpec);
ZamStatus zamsAnalysisFilterFree_SBR_RToR_32f(SbrAnalysisSpec_RToR_32f* pSpec);

/* The 64-band synthesis objects: Init places the object in pMem (GetSize bytes, any
 * address) and clears its 1280-value v buffer; InitAlloc takes the memory from zamMalloc;
 * Free releases InitAlloc memory and leaves the tag. */
ZamStatus zamsSynthesisFilterInit_SBR_CToR_32f(SbrSynthesisSpec_CToR_32f** ppSpec, uint8_t* pMem);
ZamStatus zamsSynthesisFilterInit_SBR_CToR_32fc32f(SbrSynthesisSpec_CToR_32fc32f** ppSpec, uint8_t* pMem);
ZamStatus zamsSynthesisFilterInit_SBR_RToR_32f(SbrSynthesisSpec_RToR_32f** ppSpec, uint8_t* pMem);
ZamStatus zamsSynthesisFilterInitAlloc_SBR_CToR_32f(SbrSynthesisSpec_CToR_32f** ppSpec);
ZamStatus zamsSynthesisFilterInitAlloc_SBR_CToR_32fc32f(SbrSynthesisSpec_CToR_32fc32f** ppSpec);
ZamStatus zamsSynthesisFilterInitAlloc_SBR_RToR_32f(SbrSynthesisSpec_RToR_32f** ppSpec);
ZamStatus zamsSynthesisFilterFree_SBR_CToR_32f(SbrSynthesisSpec_CToR_32f* pSpec);
ZamStatus zamsSynthesisFilterFree_SBR_CToR_32fc32f(SbrSynthesisSpec_CToR_32fc32f* pSpec);
ZamStatus zamsSynthesisFilterFree_SBR_RToR_32f(SbrSynthesisSpec_RToR_32f* pSpec);

/* The down-sampling synthesis objects (640-value v buffer), with the same rules. */
ZamStatus zamsSynthesisDownFilterInit_SBR_CToR_32f(SbrSynthesisDownSpec_CToR_32f** ppSpec, uint8_t* pMem);
ZamStatus zamsSynthesisDownFilterInit_SBR_CToR_32fc32f(SbrSynthesisDownSpec_CToR_32fc32f** ppSpec, uint8_t* pMem);
ZamStatus zamsSynthesisDownFilterInit_SBR_RToR_32f(SbrSynthesisDownSpec_RToR_32f** ppSpec, uint8_t* pMem);
ZamStatus zamsSynthesisDownFilterInitAlloc_SBR_CToR_32f(SbrSynthesisDownSpec_CToR_32f** ppSpec);
ZamStatus zamsSynthesisDownFilterInitAlloc_SBR_CToR_32fc32f(SbrSynthesisDownSpec_CToR_32fc32f** ppSpec);
ZamStatus zamsSynthesisDownFilterInitAlloc_SBR_RToR_32f(SbrSynthesisDownSpec_RToR_32f** ppSpec);
ZamStatus zamsSynthesisDownFilterFree_SBR_CToR_32f(SbrSynthesisDownSpec_CToR_32f* pSpec);
ZamStatus zamsSynthesisDownFilterFree_SBR_CToR_32fc32f(SbrSynthesisDownSpec_CToR_32fc32f* pSpec);
ZamStatus zamsSynthesisDownFilterFree_SBR_RToR_32f(SbrSynthesisDownSpec_RToR_32f* pSpec);

/* Analysis of numSlots slots: reads pSrc[0 .. 32*numSlots-1] and writes rows 0 ..
 * numSlots-1, columns 0..31, with the columns numBands..31 set to 0 (a caller
 * computes only what its high-frequency generator needs). Split form: ppDstRe
 * and ppDstIm rows of 32 floats; interleaved form: rows of 32 (re, im) pairs (64
 * floats); real form: rows of 32 floats. The history advances by numSlots slots.
 * Checks in order: pSrc, the row arrays or pSpec null -> zamStsNullPtr; wrong tag
 * -> zamStsContextMismatch; numSlots outside 1..64 or numBands outside 1..32 ->
 * zamStsSize; a null row pointer among the numSlots used -> zamStsNullPtr. On a
 * failed check nothing is written and the history does not move. */
ZamStatus zamsAnalysisFilter_SBR_RToC_32f_D2L(const float* pSrc, float* const* ppDstRe, float* const* ppDstIm,
                                              int numSlots, int numBands, SbrAnalysisSpec_RToC_32f* pSpec);
ZamStatus zamsAnalysisFilter_SBR_RToC_32f32fc_D2L(const float* pSrc, float* const* ppDst, int numSlots,
                                                  int numBands, SbrAnalysisSpec_RToC_32f32fc* pSpec);
ZamStatus zamsAnalysisFilter_SBR_RToR_32f_D2L(const float* pSrc, float* const* ppDst, int numSlots, int numBands,
                                              SbrAnalysisSpec_RToR_32f* pSpec);

/* Synthesis of numSlots slots at twice the core rate: reads columns 0..63 of rows
 * 0 .. numSlots-1 (split: ppSrcRe/ppSrcIm rows of 64 floats; interleaved: rows of
 * 64 (re, im) pairs; real: rows of 64 floats) and writes pDst[0 .. 64*numSlots-1].
 * Checks in order: a null row array, pDst or pSpec -> zamStsNullPtr; wrong tag ->
 * zamStsContextMismatch; numSlots outside 1..64 -> zamStsSize; a null row pointer
 * among those used -> zamStsNullPtr. Nothing is written and the state does not
 * move on a failed check. */
ZamStatus zamsSynthesisFilter_SBR_CToR_32f_D2L(const float* const* ppSrcRe, const float* const* ppSrcIm,
                                               float* pDst, int numSlots, SbrSynthesisSpec_CToR_32f* pSpec);
ZamStatus zamsSynthesisFilter_SBR_CToR_32fc32f_D2L(const float* const* ppSrc, float* pDst, int numSlots,
                                                   SbrSynthesisSpec_CToR_32fc32f* pSpec);
ZamStatus zamsSynthesisFilter_SBR_RToR_32f_D2L(const float* const* ppSrc, float* pDst, int numSlots,
                                               SbrSynthesisSpec_RToR_32f* pSpec);

/* Down-sampling synthesis at the core rate: reads columns 0..31 of each row (rows
 * of the same widths as the 64-band synthesis may be passed; columns 32..63 are
 * ignored) and writes pDst[0 .. 32*numSlots-1]. Same checks as the synthesis. */
ZamStatus zamsSynthesisDownFilter_SBR_CToR_32f_D2L(const float* const* ppSrcRe, const float* const* ppSrcIm,
                                                   float* pDst, int numSlots, SbrSynthesisDownSpec_CToR_32f* pSpec);
ZamStatus zamsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(const float* const* ppSrc, float* pDst, int numSlots,
                                                       SbrSynthesisDownSpec_CToR_32fc32f* pSpec);
ZamStatus zamsSynthesisDownFilter_SBR_RToR_32f_D2L(const float* const* ppSrc, float* pDst, int numSlots,
                                                   SbrSynthesisDownSpec_RToR_32f* pSpec);

/* ---- SBR float QMF banks: end ---- */

/* ======================================================================
 * Parametric stereo
 * ====================================================================== */

/* The hybrid analysis of parametric stereo (ISO/IEC 14496-3, parametric stereo):
 * the lowest QMF subbands of the complex SBR analysis are split further by 13-tap
 * filters for a finer frequency resolution. For a split of one QMF band x into Q
 * bands with the standard's prototype g (13 taps, from the standard's tables):
 *   y_q(n) = sum_{m=0}^{12} G_q(m) x(n - m),
 *   G_q(m) = g(m) exp(i 2 pi (q + 0.5)(m - 6) / Q)     for Q = 4, 8, 12,
 *   G_q(m) = g(m) cos(pi q (m - 6))                    for Q = 2,   q = 0..Q-1.
 * Configuration 20 (10 hybrid bands): QMF band 0 is split with Q = 8 and gives
 * the hybrid bands [y6, y7, y0, y1, y2 + y5, y3 + y4]; QMF band 1 (Q = 2, its
 * spectrum is mirrored) gives [y1, y0]; QMF band 2 (Q = 2) [y0, y1].
 * Configuration 34 (32 hybrid bands): QMF bands 0..4 are split with Q = 12, 8, 4,
 * 4, 4 and give their outputs in q order: hybrid bands 0..11, 12..19, 20..23,
 * 24..27, 28..31. This is the hybrid band order of the standard (centre
 * frequencies -3/8, -1/8, 1/8, 3/8, 5/8, 7/8, 10/8, 14/8, 18/8, 22/8 QMF bands in
 * configuration 20). The filters are not normalised further (the standard's
 * gains; a QMF band's power is shared among its hybrid bands).
 *
 * The function holds no state: the caller keeps the history. ppSrc has 3
 * (configuration 20) or 5 (configuration 34) rows; row b holds the complex QMF
 * samples of band b as (re, im) pairs for the slots -12 .. numSlots-1, that is
 * 2*(numSlots + 12) floats, the 12 history slots first. ppDst has numSlots rows
 * of 10 or 32 (re, im) pairs (20 or 64 floats), written completely. Output slot
 * n is computed from input slots n-12 .. n, so relative to the current input
 * slot the hybrid bands are delayed by the filters' 6 slots, as in the standard.
 * The modulation runs as a pre-twiddle, the internal FFT of Q points (12 as
 * 3 x 4) and a post-twiddle. Accuracy against a double-precision evaluation of
 * the formulas on random data: relative RMS error 7e-8 (both configurations).
 *
 * Checks in order: ppSrc or ppDst null -> zamStsNullPtr; numSlots outside 1..64
 * -> zamStsSize; config not 20 or 34 -> zamStsBadArg; a null row pointer among
 * the rows used -> zamStsNullPtr. Nothing is written on a failed check. */
ZamStatus zamsAnalysisFilter_PS_32fc_D2(const float* const* ppSrc, float* const* ppDst, int numSlots, int config);

/* ---- Parametric stereo: end ---- */

/* ======================================================================
 * SBR fixed-point banks and predictor
 * ====================================================================== */

/* The SBR QMF banks of the float family above in 32-bit fixed point, for decoders
 * without a fast FPU. They compute the same transforms (same phases, same window)
 * by the same algorithm with integer arithmetic: window coefficients in Q31,
 * twiddles in Q30, every output a 64-bit sum of products rounded once (half up)
 * and saturated to 32 bits, and a 32-bit FFT whose levels halve where the format
 * needs it. Scales:
 *   analysis:  out = W / 64 (complex) or X / 64 (real), W and X the float bank's
 *              outputs for the same integer input taken as numbers; input any
 *              integer scale, |x| <= 2^30 cannot overflow (|W/64| <= 1.7 max|x|).
 *   synthesis: the input is on the analysis output's scale (the float input / 64)
 *              and the output on the analysis input's scale, so integer analysis
 *              then integer synthesis returns the input (delays as for the float
 *              banks). No overflow for |X| <= 2^24 (complex) or 2^23 (real)
 *              in every band at once; larger values saturate.
 * Rounding: the integer steps add an RMS error of about 0.75 LSB of the output
 * to the analysis and 4 to 11 LSB of the output to the synthesis, whatever the
 * scale; with 16-bit PCM as input, pass it scaled by 2^8 or more (|x| up to 2^23
 * or 2^30), so that this stays far below one LSB of the PCM. Measured against
 * the float banks on random data and tones: analysis with |x| up to 2^23 0.75 LSB
 * (relative 1.3e-6), with |x| up to 2^30 8 to 11 LSB (relative 1.1e-7, the float
 * bank's own error); synthesis with |X| up to 2^24 (HQ) or 2^23 (LP) 6 to 11 LSB
 * (relative 1.4e-7 to 1.6e-7). Integer analysis then integer synthesis: 59.5 dB
 * SNR at the float banks' delays (578 output samples full rate, 289 down-sampled),
 * like the float banks. These banks run the plain (unvectorised) integer steps:
 * about 0.8 to 0.9 us per slot for the analysis and the down-sampling synthesis
 * and 2 us for the 64-band synthesis (shared machine), 8 to 13 times the float
 * banks' time.
 *
 * Data: analysis rows of 32 (re, im) int32 pairs ("32sc", high quality) or 32
 * int32 values (low power), columns numBands..31 written as 0; synthesis rows of
 * 64 pairs or values, down-sampling synthesis columns 0..31 of such rows. PCM:
 * 32 (analysis, down-sampling) or 64 (synthesis) int32 values per slot.
 * Objects: tags "aAMC" (analysis HQ), "bAMC" (analysis LP), "cAMC" (synthesis
 * HQ), "dAMC" (synthesis LP), "eAMC" (down-sampling HQ), "fAMC" (down-sampling
 * LP); the down-sampling filters also accept a full-rate synthesis object of the
 * same quality ("c", resp. "d"), which then runs as a down-sampling bank (use one
 * object for one of the two). GetSize: 3279 bytes (analysis), 5199 (synthesis),
 * 2639 (down-sampling); the HQ and LP GetSize of each pair are one function.
 * Init, InitAlloc and Free follow the float banks (Free leaves the tag). Filter
 * checks in order: a null pointer argument -> zamStsNullPtr; wrong tag ->
 * zamStsContextMismatch; numSlots outside 1..64 or numBands outside 1..32 ->
 * zamStsSize; a null row among those used -> zamStsNullPtr; nothing is written
 * and the state does not move on a failed check. */
typedef struct SbrAnalysisSpecHQ_32s32sc SbrAnalysisSpecHQ_32s32sc;           /* tag "aAMC" */
typedef struct SbrAnalysisSpecLP_32s SbrAnalysisSpecLP_32s;                   /* tag "bAMC" */
typedef struct SbrSynthesisSpecHQ_32sc32s SbrSynthesisSpecHQ_32sc32s;         /* tag "cAMC" */
typedef struct SbrSynthesisSpecLP_32s SbrSynthesisSpecLP_32s;                 /* tag "dAMC" */
typedef struct SbrSynthesisDownSpecHQ_32sc32s SbrSynthesisDownSpecHQ_32sc32s; /* tag "eAMC" */
typedef struct SbrSynthesisDownSpecLP_32s SbrSynthesisDownSpecLP_32s;         /* tag "fAMC" */

/* Integer analysis: the two GetSize names are one function; objects, formats and
 * checks as described above. */
ZamStatus zamsAnalysisFilterGetSize_SBRHQ_32s32sc(int* pSize);
ZamStatus zamsAnalysisFilterGetSize_SBRLP_32s(int* pSize);
ZamStatus zamsAnalysisFilterInit_SBRHQ_32s32sc(SbrAnalysisSpecHQ_32s32sc** ppSpec, uint8_t* pMem);
ZamStatus zamsAnalysisFilterInit_SBRLP_32s(SbrAnalysisSpecLP_32s** ppSpec, uint8_t* pMem);
ZamStatus zamsAnalysisFilterInitAlloc_SBRHQ_32s32sc(SbrAnalysisSpecHQ_32s32sc** ppSpec);
ZamStatus zamsAnalysisFilterInitAlloc_SBRLP_32s(SbrAnalysisSpecLP_32s** ppSpec);
ZamStatus zamsAnalysisFilterFree_SBRHQ_32s32sc(SbrAnalysisSpecHQ_32s32sc* pSpec);
ZamStatus zamsAnalysisFilterFree_SBRLP_32s(SbrAnalysisSpecLP_32s* pSpec);
ZamStatus zamsAnalysisFilter_SBRHQ_32s32sc(const int32_t* pSrc, int32_t* const* ppDst, int numSlots, int numBands,
                                           SbrAnalysisSpecHQ_32s32sc* pSpec);
ZamStatus zamsAnalysisFilter_SBRLP_32s(const int32_t* pSrc, int32_t* const* ppDst, int numSlots, int numBands,
                                       SbrAnalysisSpecLP_32s* pSpec);

/* Integer 64-band synthesis: the two GetSize names are one function; objects, checks
 * and scales as described above for the integer banks. */
ZamStatus zamsSynthesisFilterGetSize_SBRHQ_32sc32s(int* pSize);
ZamStatus zamsSynthesisFilterGetSize_SBRLP_32s(int* pSize);
ZamStatus zamsSynthesisFilterInit_SBRHQ_32sc32s(SbrSynthesisSpecHQ_32sc32s** ppSpec, uint8_t* pMem);
ZamStatus zamsSynthesisFilterInit_SBRLP_32s(SbrSynthesisSpecLP_32s** ppSpec, uint8_t* pMem);
ZamStatus zamsSynthesisFilterInitAlloc_SBRHQ_32sc32s(SbrSynthesisSpecHQ_32sc32s** ppSpec);
ZamStatus zamsSynthesisFilterInitAlloc_SBRLP_32s(SbrSynthesisSpecLP_32s** ppSpec);
ZamStatus zamsSynthesisFilterFree_SBRHQ_32sc32s(SbrSynthesisSpecHQ_32sc32s* pSpec);
ZamStatus zamsSynthesisFilterFree_SBRLP_32s(SbrSynthesisSpecLP_32s* pSpec);
ZamStatus zamsSynthesisFilter_SBRHQ_32sc32s(const int32_t* const* ppSrc, int32_t* pDst, int numSlots,
                                            SbrSynthesisSpecHQ_32sc32s* pSpec);
ZamStatus zamsSynthesisFilter_SBRLP_32s(const int32_t* const* ppSrc, int32_t* pDst, int numSlots,
                                        SbrSynthesisSpecLP_32s* pSpec);

/* Integer down-sampling synthesis (32 outputs per slot at the core rate): the two
 * GetSize names are one function; objects, checks and scales as above. */
ZamStatus zamsSynthesisDownFilterGetSize_SBRHQ_32sc32s(int* pSize);
ZamStatus zamsSynthesisDownFilterGetSize_SBRLP_32s(int* pSize);
ZamStatus zamsSynthesisDownFilterInit_SBRHQ_32sc32s(SbrSynthesisDownSpecHQ_32sc32s** ppSpec, uint8_t* pMem);
ZamStatus zamsSynthesisDownFilterInit_SBRLP_32s(SbrSynthesisDownSpecLP_32s** ppSpec, uint8_t* pMem);
ZamStatus zamsSynthesisDownFilterInitAlloc_SBRHQ_32sc32s(SbrSynthesisDownSpecHQ_32sc32s** ppSpec);
ZamStatus zamsSynthesisDownFilterInitAlloc_SBRLP_32s(SbrSynthesisDownSpecLP_32s** ppSpec);
ZamStatus zamsSynthesisDownFilterFree_SBRHQ_32sc32s(SbrSynthesisDownSpecHQ_32sc32s* pSpec);
ZamStatus zamsSynthesisDownFilterFree_SBRLP_32s(SbrSynthesisDownSpecLP_32s* pSpec);
/* pSpec may also be a full-rate synthesis object of the same quality (tag "c" or "d"). */
ZamStatus zamsSynthesisDownFilter_SBRHQ_32sc32s(const int32_t* const* ppSrc, int32_t* pDst, int numSlots,
                                                SbrSynthesisDownSpecHQ_32sc32s* pSpec);
ZamStatus zamsSynthesisDownFilter_SBRLP_32s(const int32_t* const* ppSrc, int32_t* pDst, int numSlots,
                                            SbrSynthesisDownSpecLP_32s* pSpec);

/* Predictor coefficients of one subband in fixed point: the covariance method,
 * relaxation and stability limit of zamsPredictCoef_SBR_* (see "SBR predictor
 * coefficients") for the single subband `band`, from rows 0..len+1 of the integer
 * analysis output (HQ: rows of (re, im) int32 pairs; LP: rows of int32 values).
 * With x[n] = row n, column band, and the sums A, B, Q, P0, P1 of that section:
 *   det = P0 P1 - (1 - 2^-20) |A|^2,  alpha1 = (B A - P1 Q) / det,
 *   alpha0 = -(B + alpha1 conj(A)) / P1,
 * written to pAlpha0 and pAlpha1 in Q29 (value * 2^29, rounded to nearest): two
 * int32 (re, im) each for HQ, one for LP. Rules of the one-at-a-time path: alpha1
 * is 0 unless det > 0 (and, HQ, P1 > 0); alpha0 is 0 unless P1 > 0; both are 0
 * when |alpha0|^2 >= 16 or |alpha1|^2 >= 16 (so every value written is below 4 in
 * magnitude and fits Q29). Overflow guard: the subband's samples are shifted right
 * by a common amount so that each sum of products fits 62 bits, then the five
 * sums are shifted right together to at most 40 bits; the quotients are formed
 * exactly in 128-bit integers and rounded once. Common shifts do not change the
 * coefficients, so any int32 input is accepted. Measured against the float
 * predictor on the same integer analysis output: largest difference 2e-5 (HQ)
 * and 1e-6 (LP), the rounding of the float predictor's single-precision sums.
 * Checks in order: ppSrc, pAlpha0 or pAlpha1 null -> zamStsNullPtr; len < 1 ->
 * zamStsOk, nothing written; band outside 0..63 -> zamStsBadArg; a null row among
 * rows 0..len+1 -> zamStsNullPtr. */
ZamStatus zamsPredictOneCoef_SBRHQ_32sc_D2L(const int32_t* const* ppSrc, int32_t* pAlpha0, int32_t* pAlpha1,
                                            int band, int len);
ZamStatus zamsPredictOneCoef_SBRLP_32s_D2L(const int32_t* const* ppSrc, int32_t* pAlpha0, int32_t* pAlpha1,
                                           int band, int len);

/* ---- SBR fixed-point banks and predictor: end ---- */

/* ======================================================================
 * SBR encoder tools
 * ====================================================================== */

/* Tools of an SBR encoder (ISO/IEC 14496-3, 4.6.18; the encoder side is not
 * normative): the 64-band complex QMF analysis of the full-rate input, a
 * transient detector on its energies, and a tonality-to-noise estimator.
 *
 * Encoder analysis bank. Per slot l (64 new samples s[64l .. 64l+63]) the
 * 640-sample history x is shifted by 64 and the new samples inserted newest first
 * (x[63 - j] = s[64l + j]); then, with the decoder banks' window c[0..639],
 *   u(n) = sum_{j=0}^{4} x(n + 128j) c(n + 128j),                       n = 0..127
 *   X[l][k] = sum_{n=0}^{127} u(n) exp(i pi (k + 0.5)(2n - 1) / 128),  k = 0..63
 * unscaled. The phase (2n - 1) is the one whose aliasing the decoder's 64-band
 * synthesis (phase (2n - 255)) cancels; the form with (2n - 0.5) leaves a round
 * trip at about 7 dB SNR. Output rows: 64 (re, im) pairs (128 floats) per slot.
 * Fed to zamsSynthesisFilter_SBR_CToR_32fc32f_D2L (whose 1/64 makes the pair of
 * gain 1) the output is the input delayed by 577 samples, at 59.5 dB SNR on white
 * noise (the limit of the window, as for the decoder banks); measured gain
 * 0.99995. Accuracy against a double-precision evaluation of the formulas above:
 * relative RMS error 1.2e-7 on white noise.
 * Computation: one 64-point internal FFT per slot between a pre- and a
 * post-twiddle. Nothing is allocated after InitAlloc.
 *
 * State object (tag "jAMC"): header at the first 16-byte boundary of the memory,
 * the internal FFT spec, then the zeroed history. GetSize writes the object size
 * and the init-buffer size (the scratch Init needs; 0 in this build, and pInitBuf
 * may then be null). Init places and resets an object in caller memory and
 * returns the aligned address (the filter accepts the raw or the aligned
 * pointer); InitAlloc takes the memory from zamMalloc and returns the start of
 * the allocation; Free releases only InitAlloc memory and leaves the tag.
 * Checks: GetSize: a null pointer -> zamStsNullPtr. Init: null ppSpec or pMem, or
 * null pInitBuf when the init-buffer size is not 0 -> zamStsNullPtr. InitAlloc:
 * null ppSpec -> zamStsNullPtr; allocation failure -> zamStsMemAlloc. Free: null
 * -> zamStsNullPtr; wrong tag -> zamStsContextMismatch. */
typedef struct SbrEncAnalysisSpec_32f SbrEncAnalysisSpec_32f; /* tag "jAMC" */

/* GetSize, Init, InitAlloc and Free of the encoder analysis object, as described above. */
ZamStatus zamsAnalysisFilterEncGetSize_SBR_32f(int* pSpecSize, int* pInitBufSize);
ZamStatus zamsAnalysisFilterEncInit_SBR_32f(SbrEncAnalysisSpec_32f** ppSpec, uint8_t* pMem, uint8_t* pInitBuf);
ZamStatus zamsAnalysisFilterEncInitAlloc_SBR_32f(SbrEncAnalysisSpec_32f** ppSpec);
ZamStatus zamsAnalysisFilterEncFree_SBR_32f(SbrEncAnalysisSpec_32f* pSpec);

/* Analysis of numSlots slots: reads pSrc[0 .. 64*numSlots-1], writes rows 0 ..
 * numSlots-1 of ppDst (128 floats each); the history advances by numSlots slots.
 * Checks in order: pSrc, ppDst or pSpec null -> zamStsNullPtr; wrong tag ->
 * zamStsContextMismatch; numSlots outside 1..64 -> zamStsSize; a null row pointer
 * among the numSlots used -> zamStsNullPtr. On a failed check nothing is written
 * and the history does not move. */
ZamStatus zamsAnalysisFilterEnc_SBR_32f32fc(const float* pSrc, float* const* ppDst, int numSlots,
                                            SbrEncAnalysisSpec_32f* pSpec);

/* Transient detection on one frame of encoder analysis rows (64 (re, im) pairs
 * per slot, as zamsAnalysisFilterEnc_SBR_32f32fc writes them). With e[l][k] the
 * energy |X[l][k]|^2 and E(l) = sum_{k=startBand}^{startBand+numBands-1} e[l][k],
 * each slot is compared with the mean R(l) of E over the (up to) 4 slots before
 * it, taken from this frame or from the previous frame's last slots held in the
 * caller's record. A slot is a candidate when 10 log10((E(l) + eps) / (R(l) +
 * eps)) > thresholdDb (eps = 1e-9 times the frame's mean E); *pPos is the
 * candidate with the largest E(l) - R(l) (slot 0 .. numSlots-1), or -1 when there
 * is none. A slot with no earlier slot (the first slot of the first frame) is not
 * a candidate. Measured on clicks in quiet noise: an impulse at input sample t is
 * reported 0 to 2 slots before the analysis slot holding sample t + 320 (the
 * window's centre); one close to a frame border may be reported in both frames.
 * A threshold of 6 to 10 dB suits music. *pFrameClass is the frame class
 * (bs_frame_class of ISO/IEC 14496-3) that
 * follows from the transient and the previous frame's class: FIXFIX (no transient,
 * previous frame ending fixed), FIXVAR (transient, previous ending fixed), VARFIX
 * (no transient, previous frame ending variable: FIXVAR or VARVAR), VARVAR. The
 * caller places the frame borders from the position (e.g. slot / 2 for the time
 * slots of 2 QMF slots of a 1024-sample core frame).
 * The record: zero it before the first frame (FIXFIX, nothing held); the function
 * updates it with this frame's class and last 4 slots' energies (bands outside
 * startBand..startBand+numBands-1 are stored as 0), so call it once per frame with
 * one record per channel and the same band range.
 * Checks in order: ppSrc, pPos, pFrameClass or pState null -> zamStsNullPtr;
 * numSlots outside 1..64, startBand < 0, numBands < 1 or startBand + numBands >
 * 64 -> zamStsSize; thresholdDb not above 0 (or NaN) -> zamStsBadArg; a null row
 * among the numSlots used -> zamStsNullPtr. Nothing is written (record included)
 * on a failed check. */
#define ZAM_SBR_FIXFIX 0
#define ZAM_SBR_FIXVAR 1
#define ZAM_SBR_VARFIX 2
#define ZAM_SBR_VARVAR 3
typedef struct SbrTransientState {
    float prevEnergy[4][64]; /* band energies of the previous frame's last 4 slots, oldest first */
    int32_t prevFrameClass;  /* ZAM_SBR_FIXFIX .. ZAM_SBR_VARVAR of the previous frame */
    int32_t numHistory;      /* slots of prevEnergy that are valid (0..4) */
} SbrTransientState;

/* Transient detection of one frame, as described above; *pState carries the
 * statistics from one frame to the next. */
ZamStatus zamsDetectTransient_SBR_32f(const float* const* ppSrc, int* pPos, int* pFrameClass, int numSlots,
                                      int startBand, int numBands, float thresholdDb, SbrTransientState* pState);

/* Tonality-to-noise ratio per band over numSlots rows of encoder analysis (64
 * (re, im) pairs per slot): the prediction gain of the best complex
 * second-order linear predictor of each band's slot sequence x(n),
 *   pDst[i] = 10 log10( sum_n |x(n)|^2 / min_{a1,a2} sum_n |x(n) + a1 x(n-1) + a2 x(n-2)|^2 ),
 * n = 2 .. numSlots-1, band k = startBand + i (covariance method, solved in double;
 * first order when the 2x2 system is singular). In dB: a few dB for noise, large for
 * tones (capped at 120 dB), 0 for a silent band. Measured over 32 slots: a
 * steady tone at a band centre 98.9 dB; white noise 3.1 dB on average over the
 * 64 bands (at most 5.5 dB), not 0: a complex QMF band signal is sampled at twice
 * its bandwidth, so consecutive slots of noise are correlated and a predictor
 * gains about 3 dB on them (0.3 dB of it is the estimation bias of two complex
 * coefficients on 30 values). Compare tonal and noisy bands against that level.
 * Checks in order: ppSrc or pDst null -> zamStsNullPtr; numSlots outside 3..64,
 * startBand < 0, numBands < 1 or startBand + numBands > 64 -> zamStsSize; a null
 * row among the numSlots used -> zamStsNullPtr. Nothing is written on failure. */
ZamStatus zamsEstimateTNR_SBR_32f(const float* const* ppSrc, float* pDst, int numSlots, int startBand,
                                  int numBands);

/* ---- SBR encoder tools: end ---- */

/* ======================================================================
 * Vector quantization
 * ====================================================================== */

/* Interleaved multi-stage vector quantization: a frame's coefficients are split
 * into nDiv sub-vectors of lengths pLengths[0..nDiv-1], taken one after another
 * from the source (and from the weights); each sub-vector is coded as a sum of one
 * signed code vector per stage.
 *
 * VqCodeBook: a code book of `height` code vectors of `length` floats each. Its
 * record stays at the very start of the memory given to Init (it is not moved to
 * an aligned address). The memory holds, in this order: the record; at the first
 * 64-byte boundary at or after 88 bytes from the start, a table of height row
 * pointers (height*8 bytes rounded up to 64); the rows, each a private copy of
 * one code vector starting on a 64-byte boundary, rows (length*4 rounded up to 64)
 * bytes apart (the padding after each code vector is zeroed); then four scratch
 * arrays of height 32-bit entries, each (height*4 rounded up to 64) bytes long:
 * distances, chosen signs, sorted candidate distances, sorted candidate indices.
 * The searches overwrite the scratch arrays, so one code book must not be searched
 * by two threads at once; reconstruction only reads code books. */
typedef struct VqCodeBook VqCodeBook;

/* The first pointer of each pair belongs to code book A, the second to code book B. */
typedef struct CandidateLists {
    const int* pA;
    const int* pB;
} CandidateLists;

typedef struct IndexPair {
    int* pA;
    int* pB;
} IndexPair;

typedef struct CodeBookPair {
    const VqCodeBook* pA;
    const VqCodeBook* pB;
} CodeBookPair;

/* *pSize = (length*16 + 352)*height + 1888 bytes: enough for the layout above at
 * any address. Checks: pSize null -> zamStsNullPtr; length < 1 or height < 1 ->
 * zamStsSize; a size beyond the int range -> zamStsSize (nothing written). */
ZamStatus zamsVQCodeBookGetSize_32f(int length, int height, int* pSize);

/* Builds a code book in pMem (at least GetSize bytes, any alignment) from pInput:
 * height*length floats, code vector k at elements k*length .. k*length+length-1.
 * Writes height, length, validity marker 1 and ownership flag 0, lays out and
 * fills the rows, and sets *ppCodeBook = (VqCodeBook*)pMem.
 * Checks: pInput, ppCodeBook or pMem null -> zamStsNullPtr; length < 1 or
 * height < 1 -> zamStsSize. A failed check writes nothing. */
ZamStatus zamsVQCodeBookInit_32f(const float* pInput, VqCodeBook** ppCodeBook, int length, int height,
                                 uint8_t* pMem);

/* As Init, in memory from zamMalloc; the object owns it (flag 1) and
 * *ppCodeBook is the start of the allocation. Checks: pInput or ppCodeBook null
 * -> zamStsNullPtr (before anything is allocated); then GetSize's status;
 * allocation failure -> zamStsMemAlloc. */
ZamStatus zamsVQCodeBookInitAlloc_32f(const float* pInput, VqCodeBook** ppCodeBook, int length, int height);

/* pCodeBook null -> zamStsNullPtr. Otherwise clears the validity marker, releases
 * the memory through zamFree when the object owns it, and returns zamStsOk. No tag
 * is checked; the object must not be used afterwards. */
ZamStatus zamsVQCodeBookFree_32f(VqCodeBook* pCodeBook);

/* Preliminary search: for each sub-vector i, the nCand code vectors of pCodeBook
 * nearest in weighted distance, written in ascending distance to
 * pIndices[i*nCand ..] with their sign flags (0: as is, 1: negated) in
 * pSigns[i*nCand ..].
 * With L = pLengths[i], x and w the sub-vector's source and weights, and c the
 * first L elements of code vector k:
 *   d- = sum w[j]*(c[j]-x[j])^2, d+ = sum w[j]*(c[j]+x[j])^2  (single precision);
 *   pSignMode[i] == 1: distance d+ with sign 1 when d- > d+ (strictly), else d-
 *   with sign 0; any other mode: distance d-, sign 0; L < 1: distance 0, sign 0
 *   (a length below 1 consumes no source or weight elements).
 * The sums run in vector lanes (16 elements per step, 8 with both signs) with
 * scalar elements before pSrc's first 32-byte boundary and after the last full
 * step; the lane totals are added at the end, so the last bits may differ from a
 * sequential sum.
 * When height <= nCand, candidate j is simply code vector j (j < nCand) with its
 * sign, whatever the distances (entries j >= height get index j and flag 0).
 * Otherwise the nCand smallest distances are kept: a distance must be strictly
 * below the current last kept one (initially 1.0e38, float bits 0x7E967699) to
 * enter, and enters before any kept equal distance, so among equal distances a
 * later code vector is listed first; with nCand == 1 the first code vector of
 * smallest distance is kept. Positions never filled (distances at or above
 * 1.0e38, or NaN) hold index 0 with code vector 0's flag. nCand < 1 writes no
 * candidates.
 * Checks: any pointer null -> zamStsNullPtr; nDiv < 1 -> zamStsOk, nothing
 * written. Nothing else is checked (the results for indices, lengths or nCand
 * outside the code book are undefined). */
ZamStatus zamsVQPreliminarySelect_32f(const float* pSrc, const float* pWeights, int nDiv, const int* pLengths,
                                      int* pIndices, int* pSigns, int nCand, const int* pSignMode,
                                      VqCodeBook* pCodeBook);

/* Main search: for each sub-vector i, the pair of candidates (j of book A, k of
 * book B, as written by the preliminary search, nCand per sub-vector) whose
 * scaled sum is nearest in weighted distance:
 *   sa = 1 - 2*signs.pA[i*nCand+j], a = row indices.pA[i*nCand+j] of book A
 *   (sb and b likewise from the B lists),
 *   y[m] = fma(sb, b[m], sa*a[m]) / divisor,  d = sum w[m]*(x[m]-y[m])^2.
 * The first pair of smallest d in the order j, then k, wins (strictly below the
 * best so far, starting at 1.0e38). outIndices receive its two code-vector
 * indices and outSigns its two sign flags (0 or 1, as in the lists).
 * Elements before pSrc's first 32-byte boundary divide by the divisor; all others
 * multiply by its reciprocal estimate refined by one Newton step,
 * r = (r0 + r0) - divisor*(r0*r0), in eight- and four-wide steps and a scalar
 * rest, so a choice between two distances within float rounding of each other
 * may differ from an exact computation. When no pair gives a distance below
 * 1.0e38 (for example divisor 0), the pair j = 0, k = 0 is written; nCand < 1
 * writes index 0 and flag 0. The divisor is normally the number of stages.
 * Checks: pSrc, pWeights, pLengths, or either pointer of indices, signs,
 * outIndices, outSigns or codeBooks null -> zamStsNullPtr; nDiv < 1 -> zamStsOk,
 * nothing written. */
ZamStatus zamsVQMainSelect_32f(const float* pSrc, const float* pWeights, const int* pLengths, int nDiv, int nCand,
                               CandidateLists indices, CandidateLists signs, IndexPair outIndices,
                               IndexPair outSigns, CodeBookPair codeBooks, int divisor);

/* Multi-stage reconstruction of the sum of pLengths[0..nDiv-1] coefficients:
 *   stage 0: out = (float)ppSigns[0][i] * r0[j], r0 = row ppIndices[0][i] of
 *            ppCodeBooks[0];
 *   stages s = 1 .. nStages-1: out = fma(rs[j], (float)ppSigns[s][i], out);
 *   then every output is multiplied by the float 1.0f/nStages (skipped when that
 *   is exactly 1).
 * The signs are multipliers (normally +1 or -1), not the 0/1 flags that the
 * searches write: multiplier = 1 - 2*flag. Stage 0 is always taken, so nStages
 * below 1 gives meaningless values. A length below 1 produces no outputs.
 * Checks: ppIndices, ppSigns, pLengths, pDst or ppCodeBooks null ->
 * zamStsNullPtr; nothing else is checked. */
ZamStatus zamsVQReconstruction_32f(const int** ppIndices, const int** ppSigns, const int* pLengths, int nDiv,
                                   int nStages, float* pDst, const VqCodeBook** ppCodeBooks);

/* ---- VQ index selection ----
 *
 * The last stage of the encoder: from the candidate lists of the two preliminary
 * searches (book A is stage 0, book B stage 1) and the pair the main search chose,
 * the values to transmit and the arguments of zamsVQReconstruction_32f. The whole
 * encoder for a frame x with weights w, sub-vector lengths pLengths:
 *   zamsVQPreliminarySelect_32f(x, w, nDiv, pLengths, candA, flagA, nCand, modes, bookA);
 *   zamsVQPreliminarySelect_32f(x, w, nDiv, pLengths, candB, flagB, nCand, modes, bookB);
 *   zamsVQMainSelect_32f(x, w, pLengths, nDiv, nCand, {candA, candB}, {flagA, flagB},
 *                        {pickA, pickB}, {pickFlagA, pickFlagB}, {bookA, bookB}, 2);
 *   zamsVQIndexSelect_32f({candA, candB}, {flagA, flagB}, {pickA, pickB},
 *                         ppIndices, ppSigns, ppCodes, nDiv, nCand, {bookA, bookB});
 *   zamsVQReconstruction_32f(ppIndices, ppSigns, pLengths, nDiv, 2, y, books);
 * and y is the decoder's reconstruction (the encoder's local copy). The result is
 * the best pair among the candidates; with nCand = height and sign mode 0 it is the
 * best pair of the two books.
 *
 * For each sub-vector i and stage s (s = 0: book A, lists .pA; s = 1: book B, .pB),
 * with k = chosen[s][i], the code-vector index the main search wrote:
 *   the candidate position j is the first position in the nCand candidates of
 *   sub-vector i (indices[s][i*nCand ..]) that holds k, as the main search keeps
 *   the first pair in candidate order; its flag f = signs[s][i*nCand + j];
 *   ppIndices[s][i] = k;
 *   ppSigns[s][i]   = 1 - 2*f (the multiplier reconstruction takes: +1 or -1);
 *   ppCodes[s][i]   = k + f*height_s (the transmitted code: for a book of 2^b code
 *                     vectors, b+1 bits with the sign flag as the top bit).
 * ppIndices, ppSigns and ppCodes are arrays of two row pointers (stage 0, stage 1),
 * each row nDiv ints; ppCodes may be null when no codes are wanted.
 * Checks in order: any pointer of indices, signs, chosen or codeBooks, ppIndices or
 * ppSigns or a row of them (or of ppCodes when it is not null) null ->
 * zamStsNullPtr; nDiv < 1 -> zamStsOk, nothing written; nCand < 1 -> zamStsSize;
 * a chosen index outside 0..height-1 of its book, not among the sub-vector's
 * candidates, or whose flag is not 0 or 1 -> zamStsBadData. All sub-vectors are
 * checked before anything is written, so a failed call writes nothing. */
ZamStatus zamsVQIndexSelect_32f(CandidateLists indices, CandidateLists signs, CandidateLists chosen, int** ppIndices,
                                int** ppSigns, int** ppCodes, int nDiv, int nCand, CodeBookPair codeBooks);

/* ---- VQ: end ---- */

#ifdef __cplusplus
}
#endif

#endif /* ZAMAC_H */
