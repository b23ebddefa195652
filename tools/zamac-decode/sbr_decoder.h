/*
 * HE-AAC for the AAC decoder: the SBR (and PS) payloads of a raw data block's fill
 * elements are attached to the element before them; after the core filter bank,
 * every output channel runs through the QMF banks (core alone where a frame has no
 * usable SBR data, upsampled by the same banks).
 */
#ifndef ZAMAC_DECODE_SBR_DECODER_H
#define ZAMAC_DECODE_SBR_DECODER_H

#include <stdint.h>

enum { SBR_MODE_HQ = 0, SBR_MODE_LP = 1, SBR_MODE_DOWNSAMPLE = 2 };

typedef struct AacSbr AacSbr;

/* fixed: the integer banks and predictor (aac_sbr_render_fixed). */
AacSbr* aac_sbr_create(int coreRate, int mode, int fixed);
void aac_sbr_free(AacSbr* s);

/* A raw data block starts; its elements follow with aac_sbr_element() in order. */
void aac_sbr_block_start(AacSbr* s);
/* An SCE (channels 1), CPE (2) or LFE (0) with its output channels (-1 none). */
void aac_sbr_element(AacSbr* s, int channels, const int outputs[2]);
/* A fill element's payload (count bytes, extension type in the first 4 bits). Returns
 * 1 when it is SBR data (kept for the element before it), 0 otherwise. */
int aac_sbr_payload(AacSbr* s, const uint8_t* payload, int count);
/* SBR data seen in the current block; PS data seen so far. */
int aac_sbr_block_has_sbr(const AacSbr* s);
int aac_sbr_has_ps(const AacSbr* s);

/* Switches SBR on (once, before the first rendered block): the output rate (twice the
 * core rate, or the core rate with SBR_MODE_DOWNSAMPLE); monoToStereo: a single
 * channel element feeds output channels 0 and 1 (parametric stereo). */
int aac_sbr_enable(AacSbr* s, int monoToStereo);
int aac_sbr_enabled(const AacSbr* s);

/* Runs the block's elements on pcm[c] (1024 core samples in, the output samples out;
 * room for 2048). Returns the output samples per channel; damaged SBR data in an
 * element makes that element core only for the block, counted in *damaged. */
int aac_sbr_render(AacSbr* s, float* const* pcm, int channels, int concealed, int* damaged);
/* The same for an object made with fixed: core[c] the core's 1024 samples as 32-bit
 * PCM with 8 fractional bits, out[c] room for 2048 16-bit samples. */
int aac_sbr_render_fixed(AacSbr* s, const int32_t* const* core, int16_t* const* out, int channels, int concealed,
                         int* damaged);

#endif
