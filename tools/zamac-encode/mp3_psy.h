/* The encoder's use of the library's psychoacoustic model: the allowed noise per
 * band from the model's signal-to-mask ratios and the lines' band energies, the
 * shared thresholds of M/S channels, the block type both channels take, and the
 * low-pass of the rate. */
#ifndef ZAMAC_ENCODE_MP3_PSY_H
#define ZAMAC_ENCODE_MP3_PSY_H

#include <stdint.h>

#include "zamac.h"

/* Band energies of 576 lines in dB of the lines' squared units: 22 long bands or
 * 39 short band-windows [3 * band + window] (stream order). */
void psy_band_energy(const int32_t* lines, int blockType, int row, float* energyDb);

/* Allowed noise per band (dB Q8, the quantizer's pXmin): energy - SMR + offsetDb. */
void psy_allowed_noise(const Mp3PsychoacousticInfo* info, const float* energyDb, int blockType, float offsetDb,
                       int32_t* xmin);

/* M/S channels share the lower of the two channels' allowed noise. */
void psy_shared_noise(int32_t* xminA, int32_t* xminB, int bands);

/* One block type for all channels from their decisions, keeping the transitions
 * legal: any short makes short; after a start or short block, stop unless a
 * channel starts again. `previous` is the type given to the granule before. */
int psy_common_block_type(const int* types, int channels, int previous);

/* Clears the lines at and above cutLine (a long-block line index). */
void psy_lowpass(int32_t* lines, int blockType, int row, int cutLine);

/* The low-pass of a rate, Hz: from the bit rate per channel pair (CBR) or the
 * quality (VBR), as common MP3 encoders choose it. */
int psy_default_lowpass(int bitrate, int channels, int vbrQuality, int sampleRate);

#endif
