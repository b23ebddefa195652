/*
 * The SBR encoder of zamac-encode --he (spectral band replication, ISO/IEC 14496-3,
 * 4.6.18 describes the decoder; the encoder writes its bit stream): per 2048-sample
 * full-rate frame, the QMF analysis of the input, the time/frequency grid, the
 * envelope and noise-floor estimation and the coded sbr_extension_data() that goes
 * into a fill element (extension type EXT_SBR_DATA) after the core's SCE or CPE.
 *
 * Time alignment: the envelopes of frame n describe pcm of call n as the decoder's
 * own QMF analysis of the decoded core frame n sees it; both banks have the same
 * geometry (64 full-rate samples per slot, 640-sample window), so their delays
 * cancel. Feed call n the full-rate input that the decoded core frame n stands
 * for, delayed further by sbr_encoder_delay() samples.
 */
#ifndef ZAMAC_ENCODE_SBR_ENCODER_H
#define ZAMAC_ENCODE_SBR_ENCODER_H

#include <stdint.h>

typedef struct SbrEncoder SbrEncoder;

/* inRate: full (output) sample rate, 32000..48000 (also 22050 and 24000); channels 1
 * or 2; bitRate: the stream's total bit rate in b/s (chooses the start and stop
 * frequency, the amplitude resolution and the noise bands). Returns NULL for an
 * unsupported combination. */
SbrEncoder* sbr_encoder_open(int inRate, int channels, int bitRate);
void sbr_encoder_close(SbrEncoder* e);

/* One frame: 2048 new full-rate samples per channel, pcm[ch][0..2047], float at
 * 16-bit scale (+-32768). Writes sbr_extension_data() (bs_header_flag, sbr_header()
 * when flagged, then sbr_single_channel_element() / sbr_channel_pair_element()),
 * i.e. exactly the bits that follow the 4-bit extension_type in a fill element's
 * extension_payload, MSB first from buf[0], into buf (bufBytes long). Returns the
 * number of bits written (the caller pads to whole bytes), or -1. */
int sbr_encoder_frame(SbrEncoder* e, const float* const* pcm, uint8_t* buf, int bufBytes);

/* Full-rate samples by which the SBR analysis lags its input (the QMF analysis delay
 * beyond the decoder's, plus any look-ahead the grid uses); the caller uses it to
 * align the core's input with the envelopes. */
int sbr_encoder_delay(const SbrEncoder* e);

/* The crossover frequency in Hz (the lowest replicated band's lower edge): the core
 * codes the band below it. */
int sbr_encoder_crossover_hz(const SbrEncoder* e);

#endif
