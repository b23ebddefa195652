#include "aac_prediction.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "aac_swb_offsets.h"

/* PRED_SFB_MAX of ISO/IEC 13818-7 by sampling_frequency_index. */
static const int kPredSfbMax[12] = {33, 33, 38, 40, 40, 40, 41, 41, 37, 37, 37, 34};

/* ltp_coef in Q14 as AacLtpData carries it, by the 3-bit index. */
static const int32_t kLtpCoefQ14[8] = {9352, 11413, 13320, 14931, 16137, 17496, 19572, 22438};

int aac_prediction_init(AacPrediction* p, int objectType, int samplingIndex)
{
    memset(p, 0, sizeof *p);
    p->objectType = objectType;
    p->samplingIndex = samplingIndex;
    p->predSfbMax = kPredSfbMax[samplingIndex];
    for (int b = 0; b <= kAacNumSwbLong[samplingIndex]; ++b) p->bandOffsets[b] = kAacSwbOffsetLong[samplingIndex][b];
    for (int ch = 0; ch < AAC_MAX_CHANNELS; ++ch) {
        if (objectType == AAC_OBJECT_MAIN &&
            zamsFDPInitAlloc_32f(p->bandOffsets[p->predSfbMax], &p->fdp[ch]) != zamStsOk)
            return -1;
        if (objectType == AAC_OBJECT_LTP && !(p->history[ch] = (int32_t*)calloc(3072, sizeof(int32_t)))) return -1;
    }
    return 0;
}

void aac_prediction_free(AacPrediction* p)
{
    for (int ch = 0; ch < AAC_MAX_CHANNELS; ++ch) {
        if (p->fdp[ch]) zamsFDPFree_32f(p->fdp[ch]);
        free(p->history[ch]);
    }
    memset(p, 0, sizeof *p);
}

void aac_prediction_reset(AacPrediction* p)
{
    for (int ch = 0; ch < AAC_MAX_CHANNELS; ++ch) {
        if (p->fdp[ch]) zamsFDPReset_32f(p->fdp[ch]);
        if (p->history[ch]) memset(p->history[ch], 0, 3072 * sizeof(int32_t));
    }
}

ZamStatus aac_prediction_main(AacPrediction* p, int output, int32_t* spectrum, const AacIcsInfo* ics,
                              const uint8_t* codebooks)
{
    if (p->objectType != AAC_OBJECT_MAIN || output < 0) return zamStsOk;
    FdpState_32f* fdp = p->fdp[output];
    if (ics->window_sequence == 2) return zamsFDPReset_32f(fdp);

    /* The predictor sees the dequantized spectrum in the standard's scale. */
    const int lines = p->bandOffsets[p->predSfbMax];
    for (int k = 0; k < lines; ++k) p->lines[k] = (float)spectrum[k] * 0.125f;
    uint8_t used[64] = {0}, noise[64] = {0};
    for (int b = 0; b < p->predSfbMax; ++b) {
        const int coded = b < ics->max_sfb;
        noise[b] = coded && codebooks[b] == 13;
        used[b] = ics->predictor_data_present && coded && ics->prediction_used[b] && !noise[b];
    }
    ZamStatus status = zamsFDPInv_32f_I(p->lines, p->bandOffsets, used, p->predSfbMax, fdp);
    if (status == zamStsOk) status = zamsFDPResetSfb_32f(p->bandOffsets, noise, p->predSfbMax, fdp);
    if (status == zamStsOk && ics->predictor_data_present && ics->predictor_reset)
        status = zamsFDPResetGroup_32f(ics->predictor_reset_group_number - 1, 30, fdp);
    if (status != zamStsOk) return status;
    for (int b = 0; b < p->predSfbMax; ++b)
        if (used[b])
            for (int k = p->bandOffsets[b]; k < p->bandOffsets[b + 1]; ++k)
                spectrum[k] = (int32_t)lrintf(p->lines[k] * 8.0f);
    return zamStsOk;
}

ZamStatus aac_prediction_ltp(AacPrediction* p, int output, int32_t* spectrum, const AacIcsInfo* ics,
                             const AacLtpData* ltp, int previousShape, const AacChanInfo* tns,
                             const int8_t* tnsCoef)
{
    if (p->objectType != AAC_OBJECT_LTP || output < 0 || !ltp->ltp_data_present || ics->window_sequence == 2)
        return zamStsOk;
    int coef = 0;
    while (coef < 7 && kLtpCoefQ14[coef] != ltp->ltp_coef) ++coef;
    ZamStatus status = zamsLongTermPredict_AAC_32s(p->history[output], p->estimate, ltp->ltp_lag, coef);
    if (status == zamStsOk)
        status = zamsMDCTFwd_AAC_32s_I(p->estimate, ics->window_sequence, ics->window_shape, previousShape);
    if (status == zamStsOk && tns && tns->tns_data_present)
        status = zamsEncodeTNS_AAC_32s_I(p->estimate, tns->n_filt, tns->length, tns->order, tns->coef_res, tnsCoef,
                                         tns->direction, ics->max_sfb, 1, (uint32_t)p->samplingIndex, 1024);
    if (status == zamStsOk)
        status = zamsLongTermReconstruct_AAC_32s(p->estimate, spectrum, ltp, ics->window_sequence, ics->max_sfb,
                                                 (uint32_t)p->samplingIndex);
    return status;
}

void aac_prediction_update(AacPrediction* p, int output, const int32_t* time, const int32_t* overlap)
{
    if (p->objectType == AAC_OBJECT_LTP && output >= 0) zamsLtpUpdate_AAC_32s(time, overlap, p->history[output]);
}

void aac_prediction_update_float(AacPrediction* p, int output, const float* time, const float* overlap)
{
    if (p->objectType != AAC_OBJECT_LTP || output < 0) return;
    int32_t* fixedTime = p->estimate;  /* free between frames */
    int32_t* fixedOverlap = p->estimate + 1024;
    for (int n = 0; n < 1024; ++n) {
        fixedTime[n] = (int32_t)lrintf(time[n] * 256.0f);
        fixedOverlap[n] = (int32_t)lrintf(overlap[n] * 256.0f);
    }
    zamsLtpUpdate_AAC_32s(fixedTime, fixedOverlap, p->history[output]);
}
