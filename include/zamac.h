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
