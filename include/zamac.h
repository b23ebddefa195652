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

/* ---- VQ: end ---- */

#ifdef __cplusplus
}
#endif

#endif /* ZAMAC_H */
