/* The first frame of the stream: a Layer III frame without audio that carries the
 * Xing ("Xing" for VBR, "Info" for CBR) header with the frame and byte counts and a
 * seek table, followed by the LAME extension with the encoder delay and padding that
 * gapless decoders (mpg123, ffmpeg) trim. */
#ifndef ZAMAC_ENCODE_MP3_TAG_H
#define ZAMAC_ENCODE_MP3_TAG_H

#include <stddef.h>
#include <stdint.h>

#include "zamac.h"

typedef struct {
    Mp3FrameHeader header;   /* of the tag frame (a bit rate it fits in) */
    int frameBytes;
    int sideInfoBytes;
    int vbr;
    uint32_t frames;         /* audio frames after the tag frame */
    uint32_t bytes;          /* whole stream, tag frame included */
    uint8_t toc[100];
    int encoderDelay;        /* samples the decoder drops after its own 529 */
    int padding;             /* samples dropped at the end */
    int lowpassHz;
    int bitrate;             /* CBR rate, or the VBR minimum */
    uint16_t musicCrc;       /* CRC-16 of the audio frames */
} Mp3Tag;

/* Bytes a tag frame needs at least (header, side information, Xing and LAME fields). */
int mp3_tag_min_bytes(int sideInfoBytes);
/* Writes the whole tag frame (frameBytes bytes) into out. */
void mp3_tag_write(const Mp3Tag* tag, uint8_t* out);
/* CRC-16 as the LAME extension uses it (polynomial 0x8005, reflected, start 0). */
uint16_t mp3_tag_crc(uint16_t crc, const uint8_t* data, size_t n);

#endif
