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
 * synthesis returns the input delayed by 481 samples. Same checks as the analysis. */
ZamStatus zamsSynthesisFilter_PQMF_MP3_32f(const float* pSrc, float* pDst, PqmfSynthesisState_MP3* pState,
                                           int mode);

/* The 4/3 power law of MP3 requantization (a utility kernel, declared here beside
 * the MP3 banks): pDst[i] = sign(x) * |x|^(4/3) for x = pSrc[i], correctly rounded
 * to float for every int16 value (0 gives +0). Checks in order: pSrc or pDst null ->
 * zamStsNullPtr; len negative -> zamStsBadArg; len 0 -> zamStsSize. */
ZamStatus zamsPow43_16s32f(const int16_t* pSrc, float* pDst, int len);

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
