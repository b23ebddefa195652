/*
 * The AAC synthesis filter bank of zamac-decode: inverse MDCT (the library's
 * zamsMDCTInv_32f at 2048 and 256 points), the decoder's own sine and
 * Kaiser-Bessel-derived windows, the four window sequences and overlap-add.
 */
#ifndef ZAMAC_DECODE_AAC_FILTERBANK_H
#define ZAMAC_DECODE_AAC_FILTERBANK_H

#include <stdint.h>

#include "zamac.h"

enum {
    AAC_ONLY_LONG_SEQUENCE = 0,
    AAC_LONG_START_SEQUENCE = 1,
    AAC_EIGHT_SHORT_SEQUENCE = 2,
    AAC_LONG_STOP_SEQUENCE = 3
};

enum { AAC_WINDOW_SINE = 0, AAC_WINDOW_KBD = 1 };

/* Shared by all channels: windows, transform objects and their work buffer. */
typedef struct {
    /* Rising halves of the windows; the falling half is the rising half reversed. */
    float longWindow[2][1024];   /* [shape][n]: 2048-point sine / KBD (alpha 4) */
    float shortWindow[2][128];   /* [shape][n]: 256-point sine / KBD (alpha 6) */
    MdctInvSpec_32f* imdctLong;  /* 2048 outputs from 1024 coefficients */
    MdctInvSpec_32f* imdctShort; /* 256 outputs from 128 coefficients */
    uint8_t* work;               /* work buffer for either transform */
    float* coefficients;         /* 1024 floats: the spectrum converted from fixed point */
    float* transformed;          /* 2048 floats: one inverse transform's output */
    float* frame;                /* 2048 floats: the windowed eight-short frame */
} AacFilterBank;

/* What a channel carries from one frame to the next. */
typedef struct {
    float overlap[1024];  /* second half of the previous windowed output */
    int previousShape;    /* window_shape of the previous frame: shapes this frame's left half */
} AacChannelHistory;

/* Returns 0 on success, or the failing library status. */
int aac_filterbank_init(AacFilterBank* bank);
void aac_filterbank_free(AacFilterBank* bank);
void aac_history_reset(AacChannelHistory* history);

/* Turns one frame's spectrum (1024 coefficients with 3 fractional bits; eight
 * consecutive windows of 128 for an eight-short sequence) into 1024 output samples
 * and updates the channel's history. Returns 0 or the failing library status. */
int aac_filterbank_run(AacFilterBank* bank, const int32_t* spectrum, int windowSequence, int windowShape,
                       AacChannelHistory* history, float* output);

#endif
