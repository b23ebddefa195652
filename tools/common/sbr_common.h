/*
 * Spectral band replication (ISO/IEC 14496-3, 4.6.18) data both zamac-decode and
 * zamac-encode --he need: the sbr_header() fields and the frequency band tables they
 * lead to (sbr_freq.c), derived the one way the decoder derives them.
 */
#ifndef ZAMAC_TOOLS_SBR_COMMON_H
#define ZAMAC_TOOLS_SBR_COMMON_H

#include <stdint.h>

enum { SBR_MAX_BANDS = 64, SBR_MAX_NQ = 5, SBR_MAX_PATCHES = 5 };

enum { SBR_FIXFIX = 0, SBR_FIXVAR = 1, SBR_VARFIX = 2, SBR_VARVAR = 3 };

/* sbr_header() */
typedef struct {
    int ampRes, startFreq, stopFreq, xoverBand;
    int freqScale, alterScale, noiseBands;
    int limiterBands, limiterGains, interpolFreq, smoothingMode;
} SbrHeader;

/* The frequency band tables of a header (4.6.18.3.2, 4.6.18.6.3). */
typedef struct {
    int k0, k2, kx, m;                 /* first and last master band, crossover, width */
    int nMaster, n[2], nQ, nLim;       /* n[0] low, n[1] high resolution */
    int numPatches;
    uint8_t fMaster[SBR_MAX_BANDS + 1];
    uint8_t fTable[2][SBR_MAX_BANDS + 1];  /* [0] low, [1] high resolution */
    uint8_t fNoise[SBR_MAX_NQ + 1];
    uint8_t fLim[SBR_MAX_BANDS + 1];
    uint8_t patchBands[SBR_MAX_PATCHES], patchStart[SBR_MAX_PATCHES];
} SbrFreq;

/* Derives the tables of a header for an SBR (output) rate; -1 when they are invalid. */
int sbr_freq_tables(SbrFreq* f, const SbrHeader* h, int sbrRate);

#endif
