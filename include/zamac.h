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
 * input block is normalised by its largest magnitude, folded and twiddled in
 * Q15, transformed by an internal 16-bit fixed-point FFT of N/4 points that
 * halves every level, and scaled back by a shift of
 * scaleFactor - log2(N/4) + s + 10 bits, s being the normalisation exponent
 * (the FFT halves only the levels that could overflow and the bits it keeps
 * are accounted for in that shift). The result carries the rounding noise of a
 * 16-bit FFT: relative to the largest output of the block, about 2^-11 for tonal
 * and full-scale blocks and 2^-10 for noise-like ones at N = 2048 (so a few to
 * a few tens of LSBs when the outputs use the full 16-bit range). An all-zero
 * input gives N/2 zeros for any scaleFactor.
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
