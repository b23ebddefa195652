/*
 * zamac-decode, MP3: framing. Finds the frames (sync search with header checks
 * and resync, free-format frame sizes measured from the next sync), skips ID3v2,
 * ID3v1 and APE tags and a leading Xing/Info/VBRI frame, keeps the bit reservoir,
 * and hands each frame to the Layer III decoder (mp3_layer3.c).
 *
 * Choices:
 *  - The output channel count is the largest of the stream (a pre-scan of the
 *    headers finds it); a mono frame in a stereo stream is copied to both channels.
 *  - Frames at the start of the stream whose reservoir data is missing (the
 *    stream was cut) are dropped; such a frame later in the stream is concealed:
 *    it decodes as silence while the overlap and the synthesis banks run on.
 *  - A truncated last frame is dropped.
 *  - The CRC word is carried by the header parser and not checked.
 *  - The encoder delay and padding of a LAME tag (in a Xing/"Info" frame), or the
 *    delay of a VBRI frame (which declares no padding: the end is kept), are told to
 *    the sink with the decoder delay of 529 samples added to the delay; to give the
 *    sink the padding's last samples, the synthesis is flushed by one more frame.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "decoder.h"
#include "mp3_internal.h"
#include "tool_reader.h"
#include "tool_tags.h"

static const int kBitrates[2][3][15] = {
    {/* MPEG-1 */
     {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
     {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}},
    {/* MPEG-2 and 2.5 */
     {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}}};
static const int kSampleRates[3][3] = {{44100, 48000, 32000}, {22050, 24000, 16000}, {11025, 12000, 8000}};

#define MAX_FRAME_BYTES 4096
#define RESERVOIR_BYTES 511
#define MP3_DECODER_DELAY 529  /* samples: the hybrid filter bank's and the synthesis' delay */

/* Parses and validates a 4-byte header. Returns 1 for a plausible header. */
static int parse_header(const uint8_t* p, Mp3Header* h)
{
    if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return 0;
    const int versionBits = (p[1] >> 3) & 3;
    const int layerBits = (p[1] >> 1) & 3;
    if (versionBits == 1 || layerBits == 0) return 0;
    h->version = versionBits == 3 ? MP3_MPEG1 : (versionBits == 2 ? MP3_MPEG2 : MP3_MPEG25);
    h->layer = 4 - layerBits;
    h->protection = !(p[1] & 1);
    h->bitrateIndex = p[2] >> 4;
    h->srIndex = (p[2] >> 2) & 3;
    h->padding = (p[2] >> 1) & 1;
    h->mode = p[3] >> 6;
    if (h->bitrateIndex == 15 || h->srIndex == 3 || (p[3] & 3) == 2) return 0;
    h->channels = h->mode == 3 ? 1 : 2;
    h->sampleRate = kSampleRates[h->version][h->srIndex];
    const int lsf = h->version != MP3_MPEG1;
    const int kbps = kBitrates[lsf][h->layer - 1][h->bitrateIndex];
    if (h->layer == 1) {
        h->samples = 384;
        h->frameBytes = kbps ? (12000 * kbps / h->sampleRate + h->padding) * 4 : 0;
    } else {
        h->samples = (h->layer == 3 && lsf) ? 576 : 1152;
        const int perKbps = (h->layer == 3 && lsf) ? 72000 : 144000;
        h->frameBytes = kbps ? perKbps * kbps / h->sampleRate + h->padding : 0;
    }
    h->sideInfoBytes = h->version == MP3_MPEG1 ? (h->channels == 1 ? 17 : 32) : (h->channels == 1 ? 9 : 17);
    return 1;
}

/* Frames of one stream share version, layer and sampling rate (the channel mode may change). */
static int same_stream(const Mp3Header* a, const Mp3Header* b)
{
    return a->version == b->version && a->layer == b->layer && a->srIndex == b->srIndex &&
           (a->bitrateIndex == 0) == (b->bitrateIndex == 0);
}

static size_t id3v2_size(const uint8_t* p, size_t left)
{
    if (left < 10 || memcmp(p, "ID3", 3) != 0 || p[3] == 0xFF || p[4] == 0xFF) return 0;
    if ((p[6] | p[7] | p[8] | p[9]) & 0x80) return 0;
    size_t size = 10 + ((size_t)p[6] << 21 | (size_t)p[7] << 14 | (size_t)p[8] << 7 | (size_t)p[9]);
    if (p[5] & 0x10) size += 10;  /* footer */
    return size;
}

typedef struct {
    ToolReader* r;
    uint64_t pos;
    int locked;
    Mp3Header stream;   /* the header the stream locked onto */
    int freeBytes;      /* free-format frame size without padding, 0 until measured */
    long skippedBytes;
    uint64_t stop;      /* no frame is looked for where its bytes would reach past this */
    const uint8_t* frame; /* the frame next_frame() found, valid until the next read */
} Framer;

/* Bytes looked at from a candidate header: a frame and the next header. */
#define FRAME_LOOK (MAX_FRAME_BYTES + 16)

/* Free-format frame length (without padding) measured from the next header of the
 * stream; p holds left bytes from the frame on. */
static int measure_free_format(const uint8_t* p, size_t left, const Mp3Header* h)
{
    for (size_t q = 4 + (size_t)h->sideInfoBytes; q + 4 <= left && q < MAX_FRAME_BYTES; ++q) {
        Mp3Header n;
        if (p[q] == 0xFF && parse_header(p + q, &n) && same_stream(h, &n)) return (int)q - h->padding;
    }
    return 0;
}

static int frame_length(Framer* f, const uint8_t* p, size_t left, Mp3Header* h)
{
    if (h->bitrateIndex != 0) return h->frameBytes;
    if (f->freeBytes == 0) f->freeBytes = measure_free_format(p, left, h);
    return f->freeBytes ? f->freeBytes + h->padding : 0;
}

/* Finds the next frame. Returns 1 with *h, *length and f->frame set and f->pos at it. */
static int next_frame(Framer* f, Mp3Header* h, int* length)
{
    for (;;) {
        size_t left;
        if (f->pos + FRAME_LOOK > f->stop) return 0;
        const uint8_t* p = reader_at(f->r, f->pos, FRAME_LOOK, &left);
        if (!p || left < 4) return 0;
        const size_t tag = id3v2_size(p, left);
        if (tag) {
            f->pos += tag;
            continue;
        }
        if (p[0] != 0xFF || !parse_header(p, h) || (f->locked && !same_stream(&f->stream, h))) {
            /* on to the next byte that may start a header or a tag */
            size_t k = left > 4 ? left - 3 : 1;
            const uint8_t* ff = left > 4 ? (const uint8_t*)memchr(p + 1, 0xFF, k - 1) : NULL;
            const uint8_t* id3 = left > 4 ? (const uint8_t*)memchr(p + 1, 'I', ff ? (size_t)(ff - p) - 1 : k - 1) : NULL;
            if (id3 || ff) k = (size_t)((id3 ? id3 : ff) - p);
            f->pos += k;
            f->skippedBytes += (long)k;
            continue;
        }
        const int len = frame_length(f, p, left, h);
        if (len < 4 + h->sideInfoBytes + (h->protection ? 2 : 0) || len > MAX_FRAME_BYTES) {
            ++f->pos;
            ++f->skippedBytes;
            continue;
        }
        /* left is below FRAME_LOOK only at the end of the audio */
        if ((size_t)len > left) return 0;  /* truncated last frame */
        if (!f->locked) {
            /* Before locking on, the next frame must confirm this one (or the data end). */
            Mp3Header n;
            const int confirmed = (size_t)len == left || ((size_t)len + 4 <= left && p[len] == 0xFF &&
                                                          parse_header(p + len, &n) && same_stream(h, &n));
            if (!confirmed) {
                if (h->bitrateIndex == 0) f->freeBytes = 0;
                ++f->pos;
                ++f->skippedBytes;
                continue;
            }
            f->locked = 1;
            f->stream = *h;
        }
        f->frame = p;
        *length = len;
        return 1;
    }
}

static void framer_init(Framer* f, ToolReader* r, uint64_t from)
{
    memset(f, 0, sizeof *f);
    f->r = r;
    f->pos = from;
    f->stop = UINT64_MAX;
}

int mp3_decode(const uint8_t* data, size_t size, const DecodeOptions* options, PcmSink* sink, DecodeStats* stats)
{
    ToolReader r;
    if (reader_open_memory(&r, data, size) != 0) return 1;
    const int result = mp3_decode_reader(&r, 0, options, sink, stats);
    reader_close(&r);
    return result;
}

int mp3_decode_reader(ToolReader* r, uint64_t from, const DecodeOptions* options, PcmSink* sink,
                      DecodeStats* stats)
{
    Framer framer;
    Mp3Header h;
    int length = 0;

    /* Pre-scan: stream type and the largest channel count; on a pipe, of the frames in
     * the window only (the input cannot be read twice). */
    r->limit = TOOL_READER_UNKNOWN;
    r->limit = reader_audio_end(r, 0);
    framer_init(&framer, r, from);
    if (!r->seekable && r->size == TOOL_READER_UNKNOWN) framer.stop = r->start + r->filled;
    int outChannels = 0, frames = 0;
    Mp3Header first;
    while (next_frame(&framer, &h, &length)) {
        if (frames == 0) first = h;
        if (h.channels > outChannels) outChannels = h.channels;
        ++frames;
        framer.pos += (size_t)length;
    }
    const int partial = framer.stop != UINT64_MAX && framer.pos + FRAME_LOOK > framer.stop;
    if (frames == 0) {
        fprintf(stderr, "zamac-decode: no MPEG audio frames found\n");
        r->limit = TOOL_READER_UNKNOWN;
        return 1;
    }
    if (first.layer != 3) {
        fprintf(stderr, "zamac-decode: this is an MPEG audio Layer %s stream; only Layer III (MP3) is decoded\n",
                first.layer == 1 ? "I" : "II");
        r->limit = TOOL_READER_UNKNOWN;
        return 1;
    }
    if (options->info)
        printf("MPEG-%s Layer III, %d Hz, %d channel%s, %s%d frames\n",
               first.version == MP3_MPEG1 ? "1" : (first.version == MP3_MPEG2 ? "2" : "2.5"), first.sampleRate,
               outChannels, outChannels == 1 ? "" : "s", partial ? "at least " : "", frames);

    Mp3Layer3* l3 = options->fixed ? NULL : mp3_layer3_create();
    Mp3Layer3Fixed* l3Fixed = options->fixed ? mp3_layer3_fixed_create() : NULL;
    uint8_t* reservoir = (uint8_t*)calloc(1, RESERVOIR_BYTES + MAX_FRAME_BYTES + MP3_MAIN_PADDING);
    int16_t* pcm = (int16_t*)malloc(sizeof(int16_t) * 1152 * 2);
    if ((!l3 && !l3Fixed) || !reservoir || !pcm) {
        fprintf(stderr, "zamac-decode: out of memory\n");
        mp3_layer3_destroy(l3);
        mp3_layer3_fixed_destroy(l3Fixed);
        free(reservoir);
        free(pcm);
        r->limit = TOOL_READER_UNKNOWN;
        return 1;
    }

    framer_init(&framer, r, from);
    int formatSent = 0, started = 0, stop = 0, reported = 0, flush = 0;
    Mp3StreamInfo streamInfo;
    size_t reservoirBytes = 0;
    long frameIndex = 0;
    while (!stop && next_frame(&framer, &h, &length)) {
        const uint8_t* p = framer.frame;
        const uint64_t framePos = framer.pos;
        framer.pos += (size_t)length;
        if (h.layer != 3) continue;
        if (frameIndex++ == 0 &&
            tag_read_mp3_info(p, (size_t)length, h.sideInfoBytes, h.protection, &streamInfo)) {
            if (options->gapless && sink->trim && streamInfo.encoderDelay >= 0) {
                /* VBRI declares the delay only: the end padding is then kept */
                const int padding = streamInfo.encoderPadding > 0 ? streamInfo.encoderPadding : 0;
                /* Without a frame count, a pipe's length is not known in advance: the
                 * padding at the end is then kept. */
                const long audioFrames = streamInfo.frames > 0 ? streamInfo.frames : partial ? -1 : frames - 1;
                sink->trim(sink->ctx, streamInfo.encoderDelay + MP3_DECODER_DELAY,
                           audioFrames < 0 ? -1
                                           : (long long)audioFrames * h.samples - streamInfo.encoderDelay -
                                                 padding);
                flush = 1;
            }
            continue;
        }

        Mp3FrameHeader fh;
        Mp3SideInfo si[4];
        int32_t scfsi[8] = {0};
        int32_t mainDataBegin = 0, privateBits = 0;
        const uint8_t* cursor = p;
        int concealed = 0;
        memset(si, 0, sizeof si);
        if (zamsUnpackFrameHeader_MP3(&cursor, &fh) != zamStsOk ||
            zamsUnpackSideInfo_MP3(&cursor, si, &mainDataBegin, &privateBits, scfsi, &fh) != zamStsOk)
            concealed = 1;
        const size_t mainStart = 4 + (h.protection ? 2u : 0u) + (size_t)h.sideInfoBytes;
        const size_t mainBytes = mainStart <= (size_t)length ? (size_t)length - mainStart : 0;

        if (!concealed && (size_t)mainDataBegin > reservoirBytes) concealed = 2;  /* reservoir missing */
        const uint8_t* mainData = reservoir + reservoirBytes - (concealed ? 0 : (size_t)mainDataBegin);
        memcpy(reservoir + reservoirBytes, p + mainStart, mainBytes);
        const long mainBits = (long)((concealed ? 0 : (size_t)mainDataBegin) + mainBytes) * 8;
        memset(reservoir + reservoirBytes + mainBytes, 0, 8);

        if (concealed == 2 && !started) {
            /* The stream starts after a cut: nothing to conceal yet. */
        } else {
            if (!formatSent) {
                formatSent = 1;
                if (sink->format(sink->ctx, h.sampleRate, outChannels, outChannels == 1 ? 0x4u : 0x3u) != 0) break;
            }
            started = 1;
            int bad = 0;
            if (concealed) {
                if (l3Fixed) mp3_layer3_fixed_conceal_frame(l3Fixed, &h, outChannels, pcm);
                else mp3_layer3_conceal_frame(l3, &h, outChannels, pcm);
                bad = 1;
            } else if (l3Fixed) {
                bad = mp3_layer3_fixed_decode_frame(l3Fixed, &h, &fh, si, scfsi, mainData, mainBits, outChannels, pcm);
            } else {
                bad = mp3_layer3_decode_frame(l3, &h, &fh, si, scfsi, mainData, mainBits, outChannels, pcm);
            }
            if (bad) {
                ++stats->framesConcealed;
                if (!options->quiet && (options->verbose || reported < 3))
                    fprintf(stderr, "zamac-decode: frame %ld at byte %llu: %s\n", frameIndex - 1,
                            (unsigned long long)framePos,
                            concealed == 2 ? "bit reservoir data missing, concealed"
                                           : (concealed ? "bad side information, concealed"
                                                        : "corrupt main data, concealed"));
                ++reported;
            }
            ++stats->framesDecoded;
            stats->inputBytes += (unsigned long long)length;
            stats->audioSeconds += (double)h.samples / h.sampleRate;
            if (options->info)
                printf("frame %ld: %d Hz %s, %d bytes, main_data_begin %d%s\n", frameIndex - 1, h.sampleRate,
                       h.channels == 1 ? "mono" : "stereo", length, mainDataBegin, bad ? " (concealed)" : "");
            if (sink->write(sink->ctx, pcm, h.samples) != 0) stop = 1;
        }

        /* Keep the last bytes of main data for the next frames' reservoir. */
        reservoirBytes += mainBytes;
        if (reservoirBytes > RESERVOIR_BYTES) {
            memmove(reservoir, reservoir + reservoirBytes - RESERVOIR_BYTES, RESERVOIR_BYTES);
            reservoirBytes = RESERVOIR_BYTES;
        }
    }
    if (flush && formatSent && !stop) {
        /* the last samples out of the banks */
        if (l3Fixed) mp3_layer3_fixed_conceal_frame(l3Fixed, &first, outChannels, pcm);
        else mp3_layer3_conceal_frame(l3, &first, outChannels, pcm);
        sink->write(sink->ctx, pcm, first.samples);
    }
    if (framer.skippedBytes > 0 && options->verbose)
        fprintf(stderr, "zamac-decode: %ld bytes skipped while looking for frames\n", framer.skippedBytes);

    mp3_layer3_destroy(l3);
    mp3_layer3_fixed_destroy(l3Fixed);
    free(reservoir);
    free(pcm);
    r->limit = TOOL_READER_UNKNOWN;
    if (stats->framesDecoded == 0) {
        fprintf(stderr, "zamac-decode: no MP3 frame could be decoded\n");
        return 1;
    }
    return 0;
}
