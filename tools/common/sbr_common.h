/*
 * Spectral band replication (ISO/IEC 14496-3, 4.6.18) data both zamac-decode and
 * zamac-encode --he need: the sbr_header() fields and the frequency band tables they
 * lead to (sbr_freq.c), and the time borders of a grid (sbr_grid.c), derived the one
 * way the decoder derives them.
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

/* The fields of an sbr_grid() that place its borders (bord0/bord1: bs_var_bord_0/1;
 * rel0/rel1: the relative borders in time slots, 2..8; unused ones ignored). */
typedef struct {
    int frameClass, numEnv, bord0, bord1, numRel0, numRel1, pointer;
    int rel0[3], rel1[3];
} SbrGridFields;

/* sbr_grid.c: the envelope borders tEnv[0..numEnv] (time slots of 2 QMF slots), the
 * noise floor borders tNoise[0..*numNoise] and the transient envelope *lA (-1: none)
 * of a grid. Returns -1 when the borders do not increase, the pointer exceeds
 * numEnv + 1 or the middle noise border falls outside the frame's envelopes. */
int sbr_grid_times(const SbrGridFields* g, uint8_t* tEnv, uint8_t* tNoise, int* numNoise, int* lA);

/* Index of the band of `table` (n bands) that contains frequency band `start`. */
int sbr_band_containing(const uint8_t* table, int n, int start);

#endif
