/*
 * Spectral band replication (HE-AAC, ISO/IEC 14496-3, 4.6.18) and parametric stereo
 * (8.6.4) for zamac-decode: the data shared by the reader (sbr_bitstream.c), the
 * high-frequency generator (sbr_hfgen.c), the adjuster (sbr_hfadj.c), the element
 * driver (sbr_decoder.c) and parametric stereo (ps_decoder.c). The header fields and
 * frequency tables are shared with the encoder (tools/common/sbr_common.h).
 *
 * Time runs in QMF slots of 64 output samples: 32 per 1024-sample core frame; the
 * envelope borders of the bit stream count in pairs of slots (16 per frame).
 */
#ifndef ZAMAC_DECODE_SBR_H
#define ZAMAC_DECODE_SBR_H

#include <stdint.h>

#include "sbr_common.h"

enum {
    SBR_SLOTS = 32,         /* QMF slots per frame */
    SBR_HFGEN = 8,          /* t_HFGen: low-band slots kept from the previous frame */
    SBR_HFADJ = 2,          /* t_HFAdj */
    SBR_XSLOTS = SBR_SLOTS + SBR_HFGEN,  /* slots of the low band buffer */
    SBR_MAX_ENV = 5,
    SBR_MAX_NOISE = 2,
    PS_MAX_ENV = 5,
    PS_MAX_PAR = 34
};

/* One channel's grid and data of one frame, with the envelope and noise values
 * resolved to absolute quantised values (balance values doubled). */
typedef struct {
    int frameClass, numEnv, numNoise, pointer, ampRes;
    int lA;                              /* transient envelope, -1 none */
    uint8_t tEnv[SBR_MAX_ENV + 1];       /* borders in slot pairs */
    uint8_t tNoise[SBR_MAX_NOISE + 1];
    uint8_t freqRes[SBR_MAX_ENV];
    uint8_t invf[SBR_MAX_NQ];
    int16_t env[SBR_MAX_ENV][SBR_MAX_BANDS];
    int16_t noise[SBR_MAX_NOISE][SBR_MAX_NQ];
    uint8_t addHarmonic[SBR_MAX_BANDS];  /* by high-resolution band; all 0 without the flag */
} SbrFrame;

/* What the reader carries from frame to frame for one channel (time-differential
 * coding refers to it). */
typedef struct {
    int16_t env[SBR_MAX_BANDS];
    int16_t noise[SBR_MAX_NQ];
    int freqRes;
    int valid;
} SbrReadHistory;

/* ps_data() as read, with its values resolved to absolute indices. */
typedef struct {
    int headerSeen;
    int enableIid, enableIcc, enableExt, enableIpdOpd;
    int iidMode, iccMode, nrIidPar, nrIccPar, nrIpdOpdPar, iidQuant;
    int numEnv, numEnvOld;               /* numEnv after the closing envelope is added */
    int border[PS_MAX_ENV + 2];          /* border[0] = -1, border[numEnv] = 31 */
    int8_t iid[PS_MAX_ENV + 1][PS_MAX_PAR], icc[PS_MAX_ENV + 1][PS_MAX_PAR];
    int8_t ipd[PS_MAX_ENV + 1][PS_MAX_PAR], opd[PS_MAX_ENV + 1][PS_MAX_PAR];
    int is34, is34Old;
    int present;                         /* this frame carried ps_data() */
} PsData;

/* ---- sbr_bitstream.c */
/* A byte buffer read MSB first; reading past its end yields zeros and sets `overrun`. */
typedef struct {
    const uint8_t* data;
    int bits, pos, overrun;
} SbrBits;

unsigned sbr_bits_read(SbrBits* b, int n);

/* The state sbr_extension_data() needs besides the bit stream. */
typedef struct {
    int sbrRate;
    int headerSeen;
    SbrHeader header;
    SbrFreq freq;
    int coupling;
    SbrReadHistory history[2];
    PsData ps;
} SbrReader;

/* sbr_extension_data() of an element of `channels` (1: SCE, 2: CPE) channels from a
 * fill element's payload (the bits after the 4-bit extension type; crc: EXT_SBR_DATA_CRC).
 * On success fills frame[0..channels-1], updates the reader and returns 0; *reset is
 * set when the header changed the tables. Returns -1 for damaged or unusable data
 * (the reader is then unchanged, apart from PS state) and 1 when no header has been
 * seen yet. */
int sbr_read_extension(SbrReader* r, SbrBits* b, int channels, int crc, SbrFrame frame[2], int* reset);

/* ---- sbr_hfgen.c / sbr_hfadj.c: per-channel signal state */
typedef struct {
    /* low band, rows = slots 0..39 (slot 8 = the frame's first), 64 columns */
    float xRe[SBR_XSLOTS][64], xIm[SBR_XSLOTS][64];
    /* adjusted high band of this and the previous frame: rows = envelope slots 0..39 */
    float yRe[2][SBR_XSLOTS][64], yIm[2][SBR_XSLOTS][64];
    int yCur;
    int prevEnd;                /* previous frame's last border in slots (32..38) */
    int prevKx, prevM;
    int prevLAIsLast;           /* previous frame's transient was at its last border */
    int prevInvf[SBR_MAX_NQ];
    float bwPrev[SBR_MAX_NQ];
    float gainHist[4][SBR_MAX_BANDS], noiseHist[4][SBR_MAX_BANDS];
    int histValid, histM;
    uint8_t sinePrev[SBR_MAX_BANDS];  /* S_IndexMapped of the previous frame's last envelope */
    int indexNoise, indexSine;
    int lowPower;                     /* real-valued data; the gains get the aliasing reduction */
    float degreeAlias[64];            /* low power: aliasing degree of each high band */
} SbrChannel;

/* High-frequency generation into xHigh (same row layout as the low band): rows
 * 2*tEnv[0]+2 .. 2*tEnv[numEnv]+1, columns kx .. kx+m-1. lowPower: real data only.
 * fixedRows (--fixed, else NULL): the integer analysis rows of ch->xRe/xIm (32 (re, im)
 * pairs, or 32 values with lowPower), from which the integer predictor runs. */
void sbr_hf_generate(SbrChannel* ch, const SbrFreq* f, const SbrFrame* fr, float (*hRe)[64], float (*hIm)[64],
                     int lowPower, const int32_t (*fixedRows)[64]);
/* Envelope and noise floor values of an element's channels (4.6.18.3.5). */
void sbr_dequantize(const SbrFreq* f, const SbrFrame* fr, int channels, int coupled,
                    float env[2][SBR_MAX_ENV][SBR_MAX_BANDS], float noise[2][SBR_MAX_NOISE][SBR_MAX_NQ]);
/* Envelope adjustment of the generated high band into the channel's current y rows;
 * reset: the tables changed (the smoothing history restarts). */
void sbr_hf_adjust(SbrChannel* ch, const SbrFreq* f, const SbrHeader* h, const SbrFrame* fr,
                   const float (*env)[SBR_MAX_BANDS], const float (*noise)[SBR_MAX_NQ], const float (*hRe)[64],
                   const float (*hIm)[64], int reset);

/* ---- ps_decoder.c */
typedef struct PsState PsState;
PsState* ps_create(void);
void ps_free(PsState* ps);
/* Parametric stereo on one frame: left (in: the mono QMF matrix, 38 slots of which
 * slots 0..31 are output and 32..37 look ahead in the low bands) becomes the left and
 * right matrices. top: the number of used QMF bands. */
void ps_apply(PsState* ps, const PsData* data, float (*lRe)[64], float (*lIm)[64], float (*rRe)[64],
              float (*rIm)[64], int top);

#endif
