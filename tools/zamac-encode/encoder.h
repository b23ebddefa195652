/* What the front end (main.c) needs from a codec: settings from the command line,
 * then PCM in and a finished stream out. mp3_encoder.c implements it for Layer III;
 * another codec fills the same settings and offers the same four calls. */
#ifndef ZAMAC_ENCODE_ENCODER_H
#define ZAMAC_ENCODE_ENCODER_H

#include <stddef.h>
#include <stdint.h>

typedef enum { CHANNELS_AUTO = 0, CHANNELS_STEREO, CHANNELS_JOINT, CHANNELS_MONO } ChannelMode;

typedef struct {
    int sampleRate;      /* of the input, Hz */
    int inputChannels;   /* 1 or 2 */
    ChannelMode mode;    /* stereo input: joint (default), plain stereo, or a mono downmix */
    int bitrate;         /* kb/s, constant bit rate; 0 with vbrQuality >= 0 */
    int vbrQuality;      /* -1: CBR; 0 (best) .. 9 (smallest) */
    int lowpassHz;       /* 0: chosen from the rate */
    int writeTag;        /* a Xing/Info frame with the LAME extension (delay and padding) */
} EncoderSettings;

/* Byte buffer that grows. */
typedef struct {
    uint8_t* data;
    size_t size, capacity;
} ByteBuffer;

/* The rate options of both encoders (options.c): 0, or -1 after an error message. */
int option_kbps(const char* arg, int* kbps);
int option_quality(const char* arg, int* quality);
int option_lowpass_hz(const char* arg, int* hz);

int bytes_reserve(ByteBuffer* b, size_t extra);
int bytes_append(ByteBuffer* b, const void* data, size_t n);

#endif
