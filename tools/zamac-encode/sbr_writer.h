/*
 * The SBR payload writer of zamac-encode --he: sbr_extension_data() (ISO/IEC 14496-3,
 * 4.4.2.8) from a frame's grid and quantised values. The writer chooses for each
 * envelope and noise floor the cheaper of delta coding in frequency and in time, and
 * keeps the decoder's view of the previous values (time deltas refer to them).
 */
#ifndef ZAMAC_ENCODE_SBR_WRITER_H
#define ZAMAC_ENCODE_SBR_WRITER_H

#include <stdint.h>

#include "sbr_common.h"

enum { SBR_ENC_MAX_ENV = 5, SBR_ENC_MAX_NOISE = 2 };

/* One channel's frame. The grid fields are those of sbr_grid() (bord0/bord1 are
 * bs_var_bord_0/1, rel0/rel1 the relative borders in slot pairs 2..8); tEnv, tNoise
 * and lA follow from them (sbr_grid_borders). Envelope and noise values are absolute
 * and in the decoder's stored form: a coupled pair's second channel holds balance
 * values doubled (even numbers). */
typedef struct {
    int frameClass, numEnv, bord0, bord1, numRel0, numRel1, pointer;
    int rel0[3], rel1[3];
    int ampRes;                          /* in force: 0 for FIXFIX with one envelope */
    int numNoise, lA;
    uint8_t tEnv[SBR_ENC_MAX_ENV + 1], tNoise[SBR_ENC_MAX_NOISE + 1];
    uint8_t freqRes[SBR_ENC_MAX_ENV];
    uint8_t invf[SBR_MAX_NQ];
    int16_t env[SBR_ENC_MAX_ENV][SBR_MAX_BANDS];
    int16_t noise[SBR_ENC_MAX_NOISE][SBR_MAX_NQ];
    int addHarmonicFlag;
    uint8_t addHarmonic[SBR_MAX_BANDS];
} SbrEncChannel;

/* The last envelope and noise floor the decoder holds for a channel. */
typedef struct {
    int16_t env[SBR_MAX_BANDS];
    int16_t noise[SBR_MAX_NQ];
    int freqRes;
} SbrWriteHistory;

/* Bits written MSB first; writing past the end sets `overflow` and drops the bits. */
typedef struct {
    uint8_t* data;
    int bytes, pos, overflow;
} SbrBitWriter;

void sbr_put_bits(SbrBitWriter* w, unsigned value, int n);

/* Fills numNoise, tEnv, tNoise, lA and ampRes (from the header's headerAmpRes) from
 * the grid fields, as the decoder derives them. Returns -1 for a grid the syntax
 * cannot carry. */
int sbr_grid_borders(SbrEncChannel* ch, int headerAmpRes);

/* sbr_extension_data() of an element of `channels` channels: the header when h is not
 * NULL, then the element with the channels' data (coupling: the grid and the
 * inverse filtering of ch[0] are written once; ch[1] must carry the same grid). allowTime: time deltas may refer to `history` (not after a
 * reset or a change of coupling). Updates history. Returns the bits written, or -1
 * when a value cannot be coded or the bits do not fit (history then unchanged). */
int sbr_write_extension(SbrBitWriter* w, const SbrHeader* h, const SbrFreq* f, int channels, int coupling,
                        const SbrEncChannel ch[2], SbrWriteHistory history[2], int allowTime);

#endif
