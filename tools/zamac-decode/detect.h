/*
 * zamac-decode: what the input is. The format is decided by a run of consistent frame
 * headers (three in a row, or every frame of a shorter file), by the ADIF magic, or by
 * a container's signature; anything else is named for what it is ("a WAVE file") or
 * reported as not an MP3, AAC or MP4 audio file, with what was found on the way.
 */
#ifndef ZAMAC_DECODE_DETECT_H
#define ZAMAC_DECODE_DETECT_H

#include <stddef.h>
#include <stdint.h>

#include "tool_reader.h"

typedef enum {
    INPUT_UNKNOWN = 0,
    INPUT_MP3,       /* MPEG-1/2/2.5 Layer III */
    INPUT_MPEG12,    /* MPEG audio Layer I or II (not decoded) */
    INPUT_ADTS,
    INPUT_ADIF,
    INPUT_MP4,       /* ISO base media file (.m4a, .mp4) */
    INPUT_LOAS,      /* LATM in the LOAS sync layer */
} InputKind;

typedef struct {
    InputKind kind;
    uint64_t audioStart;  /* first frame (after an ID3v2 tag and junk) */
    uint64_t audioEnd;    /* end before trailing tags (TOOL_READER_UNKNOWN on a pipe) */
    int layer;            /* INPUT_MPEG12: 1 or 2 */
    char why[200];        /* INPUT_UNKNOWN: what was looked for and not found */
} InputFormat;

/* Looks at the input from its start (the reader may be a pipe: afterwards the window
 * holds the bytes at audioStart when the search did not go further than the window). */
void detect_format_reader(ToolReader* r, InputFormat* format);
/* The same on bytes in memory. */
void detect_format(const uint8_t* data, size_t size, InputFormat* format);

/* Length of an MPEG audio frame whose header is at p (left bytes readable), 0 when p
 * holds no valid header; free-format frames give 0 too. Sets version (3 MPEG-1, 2
 * MPEG-2, 0 MPEG-2.5), layer (1..3), rate, mode (0 stereo, 1 joint, 2 dual, 3 mono),
 * kbps and samples per frame when the pointers are not NULL. */
typedef struct {
    int version, layer, sampleRate, mode, kbps, samples, protection, sideInfoBytes, freeFormat;
} MpegHeader;
size_t mpeg_frame_length(const uint8_t* p, size_t left, MpegHeader* h);

/* Length of an ADTS frame whose header is at p, 0 when none. */
typedef struct {
    int id, profile, samplingIndex, channelConfiguration, blocks;
} AdtsHeader;
size_t adts_frame_length(const uint8_t* p, size_t left, AdtsHeader* h);

#endif
