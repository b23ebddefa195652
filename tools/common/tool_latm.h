/* LOAS/LATM (ISO/IEC 14496-3, 1.7): an AudioSyncStream (sync word 0x2B7 and a 13-bit
 * length per frame) of AudioMuxElement(1), as `ffmpeg -f latm` writes it. The
 * StreamMuxConfig (audioMuxVersion 0 or 1, one program of one layer, frameLengthType 0)
 * carries the AudioSpecificConfig; every element then holds numSubFrames + 1 payloads,
 * each one raw data block, bit-aligned to nothing: they are copied out byte-aligned.
 * Every length is checked against the frame: a damaged frame gives a message. */
#ifndef ZAMAC_TOOL_LATM_H
#define ZAMAC_TOOL_LATM_H

#include <stddef.h>
#include <stdint.h>

#include "tool_mp4.h"

#ifdef __cplusplus
extern "C" {
#endif

#define LATM_MAX_PAYLOADS 64

typedef struct {
    int configured;      /* a StreamMuxConfig has been read */
    Mp4Track config;     /* its AudioSpecificConfig: object types, rate, channels */
    int audioMuxVersion;
    int numSubFrames;
    int otherDataPresent;
    uint32_t otherDataBits;
} LatmState;

/* Length of the LOAS frame at p (3-byte header included), 0 when p holds no sync word
 * or fewer than 3 bytes. */
size_t loas_frame_length(const uint8_t* p, size_t left);

/* Reads the AudioMuxElement of a LOAS frame (p: the size bytes after its 3-byte header)
 * and copies its payloads one after the other into out (outSize bytes), their lengths
 * into lengths[LATM_MAX_PAYLOADS]. Returns the number of payloads, or -1 with the reason
 * in *why. */
int latm_read_element(LatmState* s, const uint8_t* p, size_t size, uint8_t* out, size_t outSize,
                      uint32_t* lengths, const char** why);

#ifdef __cplusplus
}
#endif

#endif
