/* Layer III scale-factor band boundaries of the six ISO sampling rates, rows
 * row = ID * 3 + sampling_frequency: MPEG-2 22.05, 24, 16 kHz, MPEG-1 44.1, 48, 32 kHz.
 * Long: 23 line boundaries (band 21 runs to 576); short: 14 boundaries of one window. */
#ifndef ZAMAC_ENCODE_MP3_BANDS_H
#define ZAMAC_ENCODE_MP3_BANDS_H

#include <stdint.h>

extern const int16_t mp3_band_long[6][23];
extern const int16_t mp3_band_short[6][14];

#endif
