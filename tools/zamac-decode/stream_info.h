/* zamac-decode --info: the stream described like `mpg123 -t -v` or ffprobe: format,
 * channel mode, bit rate (the average for VBR), duration, frame count, encoder delay
 * and padding, and the title/artist/album/year of ID3v1 and ID3v2 tags. */
#ifndef ZAMAC_DECODE_STREAM_INFO_H
#define ZAMAC_DECODE_STREAM_INFO_H

#include <stdio.h>

#include "detect.h"
#include "tool_mp4.h"
#include "tool_reader.h"
#include "tool_tags.h"

/* What decoding found. */
typedef struct {
    InputKind kind;
    long frames;              /* coded frames decoded */
    long long samples;        /* sample frames output (after gapless trimming) */
    int sampleRate, channels;
    int trimmed;              /* a LAME tag's delay and padding were removed */
    long skip;                /* with trimmed: frames dropped at the start */
    long long keep;
    const Mp4Track* mp4;      /* the container of an MP4 input, else NULL */
    unsigned long long inputBytes; /* MP3: bytes of the decoded frames */
} StreamSummary;

/* What is read before decoding: the first frame (and a Xing/Info/VBRI frame), the
 * frame headers' bit rates and modes (on a pipe, of the frames in the window only; the
 * average bit rate then comes from decoding), the ID3v2 tag at the start and the ID3v1
 * tag at the end (not on a pipe). */
typedef struct {
    int mp3;                  /* the MP3 fields are set */
    MpegHeader first;
    int infoFrame;
    Mp3StreamInfo info;
    unsigned long long bytes; /* of the audio frames */
    long frames;
    int vbr, modes;
    int scanned;              /* bytes counts every frame of the stream */
    int adts;
    AdtsHeader adtsHeader;
    int tags;
    TagText text;
} StreamProbe;

void probe_stream(ToolReader* r, const InputFormat* format, StreamProbe* probe);
void print_stream_info(FILE* out, const char* name, const StreamProbe* probe, const InputFormat* format,
                       const StreamSummary* summary);

#endif
