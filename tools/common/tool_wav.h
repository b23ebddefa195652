/* WAVE files for the tools: a writer for 16-bit, 24-bit and 32-bit float PCM (the
 * header is written first with open sizes and patched at the end when the output can
 * seek) and a reader that hands any PCM or float WAVE file over as 16-bit samples.
 * Everything is little-endian, as is every target of this library. */
#ifndef ZAMAC_TOOL_WAV_H
#define ZAMAC_TOOL_WAV_H

#ifdef __cplusplus
extern "C" {
#endif

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef enum { WAV_S16 = 0, WAV_S24 = 1, WAV_F32 = 2 } WavSampleFormat;

/* Bytes per sample of a format (2, 3 or 4). */
int wav_sample_bytes(WavSampleFormat format);

/* "s16", "s24", "f32" -> format; -1 for anything else. */
int wav_parse_format(const char* text);

/* Builds the header for dataBytes bytes of samples into h (at most 68 bytes) and returns
 * its length. WAVE_FORMAT_EXTENSIBLE is used for more than two channels, for a mask
 * that is not the plain mono/stereo one, and for 24-bit samples; float uses format 3.
 * dataBytes 0xFFFFFFFF means "unknown" (streamed output). */
size_t wav_header(uint8_t* h, int sampleRate, int channels, uint32_t channelMask, WavSampleFormat format,
                  uint32_t dataBytes);

/* Converts interleaved samples to the output format's bytes (little-endian). s16 from
 * float rounds to nearest and clips; f32 is not clipped. Returns the byte count. */
size_t wav_pack_s16(const int16_t* in, size_t count, WavSampleFormat format, uint8_t* out);
size_t wav_pack_f32(const float* in, size_t count, float scale, WavSampleFormat format, uint8_t* out);

/* Reader: after wav_read_open the file is at the first sample. */
typedef struct {
    FILE* file;
    int sampleRate, channels;
    uint32_t channelMask;    /* 0 when the file gives none */
    int bitsPerSample;       /* 8, 16, 24, 32 */
    int isFloat;             /* 32-bit IEEE float samples */
    uint64_t frames;         /* sample frames in the data chunk; UINT64_MAX when unknown */
    uint64_t framesLeft;
} WavReader;

/* Reads the header. Returns 0, or -1 with a message ("not a WAVE file", ...) in *why. */
int wav_read_open(WavReader* r, FILE* file, const char** why);

/* Reads up to maxFrames interleaved frames as 16-bit samples (other widths are
 * rounded; float is scaled by 32768, rounded and clipped). Returns the frames read,
 * 0 at the end, -1 on a read error. */
long wav_read_s16(WavReader* r, int16_t* interleaved, long maxFrames);

#ifdef __cplusplus
}
#endif

#endif
