/* Minimal WAVE writer for 16-bit PCM, used by the front end's file sink. */
#ifndef ZAMAC_DECODE_WAV_H
#define ZAMAC_DECODE_WAV_H

#include <stdint.h>
#include <stdio.h>

/* Writes a 16-bit PCM WAVE header for dataBytes bytes of samples. The
 * WAVE_FORMAT_EXTENSIBLE form (with the channel mask) is used for more than two
 * channels or when the mask is not the plain mono/stereo one. Returns 0 on success. */
int wav_write_header(FILE* f, int sampleRate, int channels, uint32_t channelMask, uint32_t dataBytes);

#endif
