/*
 * The prediction tools of zamac-decode: frequency-domain prediction of AAC Main
 * (zamsFDPInv_32f_I and its resets) and long-term prediction of AAC LTP
 * (zamsLongTermPredict_AAC_32s, zamsMDCTFwd_AAC_32s_I, zamsEncodeTNS_AAC_32s_I,
 * zamsLongTermReconstruct_AAC_32s, zamsLtpUpdate_AAC_32s), with their state per
 * output channel.
 */
#ifndef ZAMAC_DECODE_AAC_PREDICTION_H
#define ZAMAC_DECODE_AAC_PREDICTION_H

#include <stdint.h>

#include "aac_layout.h"
#include "zamac.h"

enum { AAC_OBJECT_MAIN = 1, AAC_OBJECT_LC = 2, AAC_OBJECT_LTP = 4 };

typedef struct {
    int objectType;
    int samplingIndex;
    int predSfbMax;                          /* Main: PRED_SFB_MAX of the rate */
    int32_t bandOffsets[52];                 /* long-window band offsets of the rate */
    FdpState_32f* fdp[AAC_MAX_CHANNELS];     /* Main */
    int32_t* history[AAC_MAX_CHANNELS];      /* LTP: 3072 time values (8 fractional bits) */
    int32_t estimate[2048];                  /* LTP: predicted signal, then its spectrum */
    float lines[1024];                       /* Main: the spectrum as float */
} AacPrediction;

/* Returns 0, or -1 when out of memory. */
int aac_prediction_init(AacPrediction* p, int objectType, int samplingIndex);
void aac_prediction_free(AacPrediction* p);
/* Back to the start of a stream: all predictors reset, histories zero. */
void aac_prediction_reset(AacPrediction* p);

/* Main: predicts one channel's long-window spectrum in place (3 fractional bits),
 * after M/S and before intensity stereo; an eight-short frame resets all its
 * predictors. Noise-substituted bands (code book 13) are not predicted and their
 * predictors are reset. */
ZamStatus aac_prediction_main(AacPrediction* p, int output, int32_t* spectrum, const AacIcsInfo* ics,
                              const uint8_t* codebooks);

/* LTP: adds the long-term prediction to a channel's spectrum (after the stereo and
 * noise tools, before TNS). tns: the channel's TNS data (NULL when absent). */
ZamStatus aac_prediction_ltp(AacPrediction* p, int output, int32_t* spectrum, const AacIcsInfo* ics,
                             const AacLtpData* ltp, int previousShape, const AacChanInfo* tns,
                             const int8_t* tnsCoef);

/* LTP: after the synthesis, the new output and overlap (8 fractional bits). */
void aac_prediction_update(AacPrediction* p, int output, const int32_t* time, const int32_t* overlap);
/* The same from the float filter bank (PCM units). */
void aac_prediction_update_float(AacPrediction* p, int output, const float* time, const float* overlap);

#endif
