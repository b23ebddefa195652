/* Layer III encoder: PCM in, a complete MP3 stream (with its Xing/Info frame) out. */
#ifndef ZAMAC_ENCODE_MP3_ENCODER_H
#define ZAMAC_ENCODE_MP3_ENCODER_H

#include <stddef.h>
#include <stdint.h>

#include "encoder.h"

typedef struct Mp3Encoder Mp3Encoder;

/* Checks the settings (rate, channels, bit rate) and sets up; NULL with a reason. */
Mp3Encoder* mp3_encoder_open(const EncoderSettings* settings, const char** why);
/* Takes interleaved frames of the input's channels; encodes whole frames as they fill. */
int mp3_encoder_push(Mp3Encoder* e, const int16_t* pcm, long frames);
/* Encodes the rest (flushing the delay with silence) and writes the tag frame. */
int mp3_encoder_finish(Mp3Encoder* e);
/* The stream so far (complete after finish). */
const ByteBuffer* mp3_encoder_stream(const Mp3Encoder* e);
/* MP3 frames written so far, and the number the input will take (0 if unknown). */
long mp3_encoder_frames(const Mp3Encoder* e);
long mp3_encoder_frames_for(const Mp3Encoder* e, long long inputFrames);
/* "44.1 kHz j-stereo MPEG-1 Layer III 128 kbps" or "... VBR(q=4)". */
void mp3_encoder_describe(const Mp3Encoder* e, char* text, size_t size);
void mp3_encoder_close(Mp3Encoder* e);

#endif
