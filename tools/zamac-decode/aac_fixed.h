/*
 * The integer synthesis filter bank of zamac-decode --fixed: zamsMDCTInv_AAC_32s_I
 * with a caller-held overlap per channel; the time signal (8 fractional bits) stays
 * available for long-term prediction, and is rounded to 16-bit PCM.
 */
#ifndef ZAMAC_DECODE_AAC_FIXED_H
#define ZAMAC_DECODE_AAC_FIXED_H

#include <stdint.h>

#include "aac_layout.h"
#include "zamac.h"

typedef struct {
    int32_t overlap[AAC_MAX_CHANNELS][1024];  /* 8 fractional bits */
    int32_t time[AAC_MAX_CHANNELS][1024];     /* the last frame's output, 8 fractional bits */
    int16_t pcm[AAC_MAX_CHANNELS][1024];
    int16_t sbrPcm[AAC_MAX_CHANNELS][2048];   /* HE-AAC: the SBR output */
} AacFixedBank;

/* One channel's frame: spectrum (3 fractional bits) -> time[ch] and pcm[ch]. */
ZamStatus aac_fixed_run(AacFixedBank* bank, int ch, const int32_t* spectrum, int windowSequence, int windowShape,
                        int previousShape);

#endif
