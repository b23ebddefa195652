/*
 * zamac-decode: the contract between the command-line front end (main.c) and the
 * format decoders (aac_*.c, mp3_*.c).
 *
 * A decoder reads its input through a window (tool_reader.h) as it decodes, so that
 * memory use does not grow with the input's length; the window has zero bytes behind
 * the input's end, so that the library's bit readers, which load whole 32-bit words,
 * may read a few bytes past the last byte of a frame. It tells the sink the PCM format
 * once, before the first samples, then hands it interleaved 16-bit PCM frame by frame.
 */
#ifndef ZAMAC_DECODE_DECODER_H
#define ZAMAC_DECODE_DECODER_H

#include <stddef.h>
#include <stdint.h>

#include "tool_reader.h"

#define DECODER_INPUT_PADDING 64

typedef struct {
    int info;     /* print the stream format and one line per frame on stdout */
    int bench;    /* decode only; the sink discards the samples */
    int verbose;  /* report every concealed frame on stderr (the first few are always reported) */
    int quiet;    /* no per-frame reports on stderr (fuzzing, --quiet) */
    int gapless;  /* announce the encoder delay and padding a stream declares (sink->trim) */
    int fixed;    /* integer stages: MP3 entirely, AAC from the dequantizer through the filter bank */
    int sbrMode;  /* HE-AAC: 0 high quality, 1 low power (--sbr-lp), 2 core rate (--downsample) */
} DecodeOptions;

/* Where decoded PCM goes. format() is called once before the first write(); a
 * non-zero return from either callback stops decoding. channelMask uses the WAVE
 * speaker bits (0x1 front left, 0x2 front right, 0x4 front centre, 0x8 LFE,
 * 0x10 back left, 0x20 back right, 0x40 front left of centre, 0x80 front right of
 * centre, 0x100 back centre, 0x200 side left, 0x400 side right); 0 means the
 * channel positions are unknown. Channels are interleaved in ascending order of
 * their mask bits. */
typedef struct {
    void* ctx;
    int (*format)(void* ctx, int sampleRate, int channels, uint32_t channelMask);
    int (*write)(void* ctx, const int16_t* interleaved, int frames);
    /* Optional (NULL: not used). A decoder with a float path hands its samples here
     * instead of to write(): planar, in 16-bit units (full scale 32768), not clipped. */
    int (*writeFloat)(void* ctx, const float* const* planar, int channels, int frames);
    /* Optional. Called before the first write when the stream declares its encoder
     * delay and padding: the first skip frames written are not audio, and only keep
     * frames after them are (keep < 0: all). The decoder then writes at least
     * skip + keep frames, flushing its filter banks when needed. */
    void (*trim)(void* ctx, long skip, long long keep);
} PcmSink;

typedef struct {
    long framesDecoded;    /* coded frames turned into PCM, concealed ones included */
    long framesConcealed;  /* frames that were corrupt or truncated and replaced */
    double audioSeconds;   /* duration of the PCM handed to the sink */
    unsigned long long inputBytes; /* MP3: bytes of the decoded frames */
} DecodeStats;

/* Both return 0 when at least one frame was decoded, non-zero otherwise (after
 * printing the reason on stderr).
 *
 * mp3_decode_reader looks for frames from offset `from` on (ID3v2 tags are skipped;
 * trailing ID3v1/APE tags are cut off when the input is a file). Before decoding it
 * scans the frame headers for the channel count and the frame count: on a file, all of
 * them (the input is read twice); on a pipe, those in the window, and without a frame
 * count in the Xing/Info header the end padding is then kept.
 *
 * aac_decode_reader decodes ADTS frames from offset `from` on (up to the reader's
 * limit), or ADIF when the input starts with "ADIF".
 *
 * The forms on memory (data followed by at least DECODER_INPUT_PADDING zero bytes) are
 * for the fuzz targets. */
int aac_decode_reader(ToolReader* r, uint64_t from, const DecodeOptions* options, PcmSink* sink,
                      DecodeStats* stats);
int mp3_decode_reader(ToolReader* r, uint64_t from, const DecodeOptions* options, PcmSink* sink,
                      DecodeStats* stats);
int aac_decode(const uint8_t* data, size_t size, const DecodeOptions* options, PcmSink* sink,
               DecodeStats* stats);
int mp3_decode(const uint8_t* data, size_t size, const DecodeOptions* options, PcmSink* sink,
               DecodeStats* stats);

#endif
