/*
 * zamac-decode, MP3: what the framing (mp3_decoder.c) and the Layer III granule
 * decoder (mp3_layer3.c) share.
 */
#ifndef ZAMAC_DECODE_MP3_INTERNAL_H
#define ZAMAC_DECODE_MP3_INTERNAL_H

#include <stddef.h>
#include <stdint.h>

#include "zamac.h"

enum { MP3_MPEG1 = 0, MP3_MPEG2 = 1, MP3_MPEG25 = 2 };

/* A frame header as the framing sees it (all layers, so that Layer I/II streams
 * can be named). */
typedef struct {
    int version;      /* MP3_MPEG1, MP3_MPEG2 or MP3_MPEG25 (from the sync bits) */
    int layer;        /* 1, 2 or 3 */
    int protection;   /* 1 when a CRC word follows the header */
    int bitrateIndex; /* 0 = free format */
    int srIndex;      /* sampling_frequency */
    int padding;
    int mode;         /* 3 = single channel */
    int channels;
    int sampleRate;
    int frameBytes;   /* 0 for free format until the framing measures it */
    int samples;      /* PCM samples per channel in the frame */
    int sideInfoBytes;
} Mp3Header;

/* Scale-factor band boundaries, row = version * 3 + sampling_frequency. */
extern const int16_t mp3_sfb_long[9][23];
extern const int16_t mp3_sfb_short[9][14];

/* Everything that lives from one granule to the next, per stream. */
typedef struct Mp3Layer3 Mp3Layer3;

Mp3Layer3* mp3_layer3_create(void);
void mp3_layer3_destroy(Mp3Layer3* l3);

/* Decodes one frame's granules from its main data. `main` addresses the first
 * main-data byte of the frame (main_data_begin bytes back into the reservoir),
 * `mainBits` the bits from there to the end of the frame; the buffer stays
 * readable for at least MP3_MAIN_PADDING bytes past that. Writes
 * header->samples x outChannels interleaved samples to pcm. Returns the number of
 * granule/channel blocks that were corrupt and decoded as silence. */
#define MP3_MAIN_PADDING 4096
int mp3_layer3_decode_frame(Mp3Layer3* l3, const Mp3Header* header, const Mp3FrameHeader* fh,
                            Mp3SideInfo* si, int32_t* scfsi, const uint8_t* main, long mainBits,
                            int outChannels, int16_t* pcm);

/* A frame whose main data is missing: the spectrum is taken as silent, the
 * overlap and the synthesis banks run on so that the timing stays. */
void mp3_layer3_conceal_frame(Mp3Layer3* l3, const Mp3Header* header, int outChannels, int16_t* pcm);

/* The same in integers only (mp3_layer3_fixed.c, zamac-decode --fixed). */
typedef struct Mp3Layer3Fixed Mp3Layer3Fixed;

Mp3Layer3Fixed* mp3_layer3_fixed_create(void);
void mp3_layer3_fixed_destroy(Mp3Layer3Fixed* l3);
int mp3_layer3_fixed_decode_frame(Mp3Layer3Fixed* l3, const Mp3Header* header, const Mp3FrameHeader* fh,
                                  Mp3SideInfo* si, int32_t* scfsi, const uint8_t* main, long mainBits,
                                  int outChannels, int16_t* pcm);
void mp3_layer3_fixed_conceal_frame(Mp3Layer3Fixed* l3, const Mp3Header* header, int outChannels, int16_t* pcm);

#endif
