/* zamac-decode --info: the stream described like `mpg123 -t -v` or ffprobe: format,
 * channel mode, bit rate (the average for VBR), duration, frame count, encoder delay
 * and padding, and the title/artist/album/year of ID3v1 and ID3v2 tags. */
#ifndef ZAMAC_DECODE_STREAM_INFO_H
#define ZAMAC_DECODE_STREAM_INFO_H

#include <stdio.h>

#include "detect.h"

/* What decoding found. */
typedef struct {
    InputKind kind;
    long frames;              /* coded frames decoded */
    long long samples;        /* sample frames output (after gapless trimming) */
    int sampleRate, channels;
    int trimmed;              /* a LAME tag's delay and padding were removed */
    long skip;                /* with trimmed: frames dropped at the start */
    long long keep;
} StreamSummary;

void print_stream_info(FILE* out, const char* name, const uint8_t* data, size_t size, const InputFormat* format,
                       const StreamSummary* summary);

#endif
