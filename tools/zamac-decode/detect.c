#include "detect.h"

#include <stdio.h>
#include <string.h>

#include "tool_latm.h"
#include "tool_reader.h"
#include "tool_tags.h"

/* How far the search for the first run of frames goes past the start of the audio. */
#define SEARCH_BYTES ((size_t)4 << 20)
/* Frames in a row that decide the format (fewer when the file ends exactly after them). */
#define RUN_FRAMES 3

size_t mpeg_frame_length(const uint8_t* p, size_t left, MpegHeader* h)
{
    static const int kKbps[2][3][15] = {
        {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
         {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
         {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}},
        {{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
         {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
         {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}}};
    static const int kRateHz[3] = {44100, 48000, 32000};
    MpegHeader local;
    if (!h) h = &local;
    if (left < 4 || p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return 0;
    const int version = (p[1] >> 3) & 3; /* 0: 2.5, 1: reserved, 2: MPEG-2, 3: MPEG-1 */
    const int layerBits = (p[1] >> 1) & 3;
    const int bitrateIndex = p[2] >> 4, rateIndex = (p[2] >> 2) & 3;
    if (version == 1 || layerBits == 0 || bitrateIndex == 15 || rateIndex == 3 || (p[3] & 3) == 2) return 0;
    const int lsf = version != 3;
    h->version = version == 0 ? 0 : version;
    h->layer = 4 - layerBits;
    h->sampleRate = kRateHz[rateIndex] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
    h->mode = p[3] >> 6;
    h->protection = !(p[1] & 1);
    h->kbps = kKbps[lsf][h->layer - 1][bitrateIndex];
    h->freeFormat = bitrateIndex == 0;
    h->samples = h->layer == 1 ? 384 : (h->layer == 3 && lsf) ? 576 : 1152;
    h->sideInfoBytes = h->layer != 3 ? 0 : !lsf ? (h->mode == 3 ? 17 : 32) : (h->mode == 3 ? 9 : 17);
    if (h->freeFormat) return 0;
    const int padding = (p[2] >> 1) & 1;
    if (h->layer == 1) return (size_t)((12000 * h->kbps / h->sampleRate + padding) * 4);
    return (size_t)((h->layer == 3 && lsf ? 72000 : 144000) * h->kbps / h->sampleRate + padding);
}

size_t adts_frame_length(const uint8_t* p, size_t left, AdtsHeader* h)
{
    AdtsHeader local;
    if (!h) h = &local;
    if (left < 7 || p[0] != 0xFF || (p[1] & 0xF6) != 0xF0) return 0;
    h->id = (p[1] >> 3) & 1;
    h->profile = p[2] >> 6;
    h->samplingIndex = (p[2] >> 2) & 0xF;
    h->channelConfiguration = ((p[2] & 1) << 2) | (p[3] >> 6);
    h->blocks = (p[6] & 3) + 1;
    const size_t length = ((size_t)(p[3] & 3) << 11) | ((size_t)p[4] << 3) | (p[5] >> 5);
    const size_t headerBytes = (p[1] & 1) ? 7 : 9;
    if (h->samplingIndex > 12 || length <= headerBytes) return 0;
    return length;
}

/* Frames in a row from pos on (at most RUN_FRAMES) with the fixed fields of the
 * first; *exact is set when the last of them ends exactly at end. */
static int mpeg_run(const uint8_t* data, size_t pos, size_t end, int* exact)
{
    MpegHeader first, next = {0};
    int count = 0;
    *exact = 0;
    size_t length = mpeg_frame_length(data + pos, end - pos, &first);
    while (length != 0 && count < RUN_FRAMES) {
        if (length > end - pos) return count;
        ++count;
        pos += length;
        if (pos == end) {
            *exact = 1;
            return count;
        }
        length = mpeg_frame_length(data + pos, end - pos, &next);
        if (next.version != first.version || next.layer != first.layer || next.sampleRate != first.sampleRate)
            length = 0;
    }
    return count;
}

static int adts_run(const uint8_t* data, size_t pos, size_t end, int* exact, size_t* firstLength)
{
    AdtsHeader first, next = {0};
    int count = 0;
    *exact = 0;
    size_t length = adts_frame_length(data + pos, end - pos, &first);
    *firstLength = length;
    while (length != 0 && count < RUN_FRAMES) {
        if (length > end - pos) return count;
        ++count;
        pos += length;
        if (pos == end) {
            *exact = 1;
            return count;
        }
        length = adts_frame_length(data + pos, end - pos, &next);
        if (next.id != first.id || next.profile != first.profile || next.samplingIndex != first.samplingIndex ||
            next.channelConfiguration != first.channelConfiguration)
            length = 0;
    }
    return count;
}

static int loas_run(const uint8_t* data, size_t end, int* exact)
{
    size_t pos = 0, length;
    int count = 0;
    *exact = 0;
    while (count < RUN_FRAMES && (length = loas_frame_length(data + pos, end - pos)) != 0) {
        if (length > end - pos) return count;
        ++count;
        pos += length;
        if (pos == end) {
            *exact = 1;
            return count;
        }
    }
    return count;
}

/* A free-format Layer III stream: a header, and the same header's fixed bytes again
 * within a frame's reach. */
static int free_format_at(const uint8_t* data, size_t pos, size_t end)
{
    MpegHeader h;
    if (mpeg_frame_length(data + pos, end - pos, &h) != 0 || h.layer != 3 || !h.freeFormat ||
        end - pos < 8)
        return 0;
    for (size_t q = pos + 4; q + 4 <= end && q < pos + 4096; ++q)
        if (data[q] == 0xFF && data[q + 1] == data[pos + 1] && (data[q + 2] & 0xFC) == (data[pos + 2] & 0xFC))
            return 1;
    return 0;
}

static void describe(InputFormat* f, const char* text) { snprintf(f->why, sizeof f->why, "%s", text); }

/* Bytes looked at from a candidate header on: three frames of the longest kind (ADTS
 * frames reach 8191 bytes) and a free-format frame's reach, so that a frame which ends
 * exactly at the end of what is looked at always ends at the end of the file. */
#define LOOK_BYTES ((size_t)32 << 10)

void detect_format_reader(ToolReader* r, InputFormat* f)
{
    memset(f, 0, sizeof *f);
    size_t left;
    const uint8_t* data = reader_at(r, 0, 16, &left);
    if (!data || left == 0) {
        describe(f, data ? "the file is empty" : "the input could not be read");
        return;
    }
    if (left >= 12 && memcmp(data + 4, "ftyp", 4) == 0) {
        f->kind = INPUT_MP4;
        f->audioEnd = r->size;
        return;
    }
    if (left >= 12 && memcmp(data, "RIFF", 4) == 0 && memcmp(data + 8, "WAVE", 4) == 0) {
        describe(f, "this is a WAVE file (uncompressed audio), not an MP3, AAC or MP4 audio file");
        return;
    }
    if (left >= 4 && memcmp(data, "ADIF", 4) == 0) {
        if (left < 16) {
            describe(f, "the file starts with \"ADIF\" but ends before the end of the ADIF header");
            return;
        }
        f->kind = INPUT_ADIF;
        f->audioEnd = r->size;
        return;
    }
    uint64_t start = 0;
    size_t tag;
    while ((data = reader_at(r, start, 10, &left)) != NULL && (tag = tag_id3v2_size(data, left)) != 0 &&
           (r->size == TOOL_READER_UNKNOWN || tag <= r->size - start))
        start += tag;
    const uint64_t end = reader_audio_end(r, start);
    const uint64_t savedLimit = r->limit;
    r->limit = end;
    uint64_t loneAdts = UINT64_MAX, loneMpeg = UINT64_MAX, loneAdtsEnd = 0, i;
    size_t loneAdtsLength = 0;
    int loneAdtsTruncated = 0;
    for (i = start; i < start + SEARCH_BYTES; ++i) {
        data = reader_at(r, i, LOOK_BYTES, &left);
        if (!data || left == 0) break;
        int exact;
        if (data[0] == 0x56) {
            const int loas = loas_run(data, left, &exact);
            if (loas >= RUN_FRAMES || (loas >= 1 && exact)) {
                f->kind = INPUT_LOAS;
                f->audioStart = i;
                f->audioEnd = end;
                r->limit = savedLimit;
                return;
            }
            continue;
        }
        if (data[0] != 0xFF) continue;
        size_t length;
        const int adts = adts_run(data, 0, left, &exact, &length);
        if (adts >= RUN_FRAMES || (adts >= 1 && exact)) {
            f->kind = INPUT_ADTS;
            f->audioStart = i;
            f->audioEnd = end;
            r->limit = savedLimit;
            return;
        }
        if (length && loneAdts == UINT64_MAX) {
            loneAdts = i;
            loneAdtsLength = length;
            loneAdtsTruncated = length > left && left < LOOK_BYTES;
            loneAdtsEnd = i + left;
        }
        const int mpeg = mpeg_run(data, 0, left, &exact);
        if (mpeg >= RUN_FRAMES || (mpeg >= 1 && exact) || free_format_at(data, 0, left)) {
            MpegHeader h;
            mpeg_frame_length(data, left, &h);
            f->kind = h.layer == 3 ? INPUT_MP3 : INPUT_MPEG12;
            f->layer = h.layer;
            f->audioStart = i;
            f->audioEnd = end;
            r->limit = savedLimit;
            return;
        }
        if (mpeg_frame_length(data, left, NULL) && loneMpeg == UINT64_MAX) loneMpeg = i;
    }
    r->limit = savedLimit;
    if (loneAdts != UINT64_MAX && loneAdtsTruncated)
        snprintf(f->why, sizeof f->why,
                 "an ADTS header at byte %llu announces a %zu-byte AAC frame, but the file ends after %llu bytes; "
                 "no complete AAC frame found",
                 (unsigned long long)loneAdts, loneAdtsLength, (unsigned long long)loneAdtsEnd);
    else if (loneAdts != UINT64_MAX || loneMpeg != UINT64_MAX)
        snprintf(f->why, sizeof f->why,
                 "not an MP3, AAC or MP4 audio file (a lone frame header at byte %llu, but no run of %d "
                 "consistent MPEG audio or ADTS frames)",
                 (unsigned long long)(loneAdts < loneMpeg ? loneAdts : loneMpeg), RUN_FRAMES);
    else
        snprintf(f->why, sizeof f->why,
                 "not an MP3, AAC or MP4 audio file (no MPEG audio, ADTS or LOAS frame header in the first %llu bytes%s)",
                 (unsigned long long)(i - start), start ? " after the ID3v2 tag" : "");
}

void detect_format(const uint8_t* data, size_t size, InputFormat* f)
{
    ToolReader r;
    memset(f, 0, sizeof *f);
    if (reader_open_memory(&r, data, size) != 0) {
        describe(f, "out of memory");
        return;
    }
    detect_format_reader(&r, f);
    reader_close(&r);
}
