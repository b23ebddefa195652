#include "stream_info.h"

#include <stdlib.h>
#include <string.h>

#include "tool_tags.h"

static const char* const kModes[4] = {"stereo", "joint stereo", "dual channel", "mono"};
static const char* const kProfiles[4] = {"Main", "LC", "SSR", "LTP"};
static const int kAacRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                  22050, 16000, 12000, 11025, 8000, 7350};

static void print_duration(FILE* out, long long samples, int rate)
{
    if (rate <= 0) return;
    const double seconds = (double)samples / rate;
    const long minutes = (long)(seconds / 60);
    fprintf(out, "  duration   %ld:%06.3f (%lld samples at %d Hz)\n", minutes, seconds - 60.0 * (double)minutes,
            samples, rate);
}

/* An ID3v2 tag at the start: its first 256 KiB at most (text frames come before
 * pictures in the files of every common tagger). */
#define ID3V2_READ_BYTES ((size_t)256 << 10)

static int read_id3v2(ToolReader* r, TagText* t)
{
    size_t left;
    const uint8_t* p = reader_at(r, 0, 10, &left);
    const size_t size = p ? tag_id3v2_size(p, left) : 0;
    if (size == 0) return 0;
    const size_t n = size < ID3V2_READ_BYTES ? size : ID3V2_READ_BYTES;
    uint8_t* copy = malloc(n);
    size_t got = 0;
    while (copy && got < n && (p = reader_at(r, got, n - got < 32768 ? n - got : 32768, &left)) != NULL && left > 0) {
        memcpy(copy + got, p, left);
        got += left;
    }
    int any = 0;
    if (copy && got >= 10) {
        if (got < size) { /* read the frames in the part we have */
            const size_t body = got - 10;
            copy[5] &= (uint8_t)~0x10;
            for (int i = 0; i < 4; ++i) copy[6 + i] = (uint8_t)(body >> (7 * (3 - i)) & 0x7F);
        }
        any = tag_read_id3v2(copy, got, t);
    }
    free(copy);
    return any;
}

void probe_stream(ToolReader* r, const InputFormat* f, StreamProbe* probe)
{
    memset(probe, 0, sizeof *probe);
    const uint64_t savedLimit = r->limit;
    r->limit = TOOL_READER_UNKNOWN;
    probe->tags = read_id3v2(r, &probe->text);
    size_t left;
    const uint8_t* p;
    if (r->size != TOOL_READER_UNKNOWN && r->size >= 128 && (p = reader_at(r, r->size - 128, 128, &left)) != NULL &&
        left == 128)
        probe->tags |= tag_read_id3v1(p, 128, &probe->text);
    r->limit = f->audioEnd;
    uint64_t pos = f->audioStart;
    if (f->kind == INPUT_ADTS) {
        if ((p = reader_at(r, pos, 16, &left)) != NULL) probe->adts = adts_frame_length(p, left, &probe->adtsHeader) != 0;
    } else if (f->kind == INPUT_MP3 && (p = reader_at(r, pos, 8192, &left)) != NULL) {
        MpegHeader first, h;
        memset(&first, 0, sizeof first);
        size_t length = mpeg_frame_length(p, left, &first);
        if (length != 0 && first.sampleRate > 0) {
            probe->mp3 = 1;
            probe->infoFrame = tag_read_mp3_info(p, length, first.sideInfoBytes, first.protection, &probe->info);
            if (probe->infoFrame) pos += length;
            /* On a pipe, the frames in the window only. */
            const uint64_t stop = r->seekable ? UINT64_MAX : r->start + r->filled;
            while (pos + 8192 <= stop && (p = reader_at(r, pos, 8192, &left)) != NULL &&
                   (length = mpeg_frame_length(p, left, &h)) != 0 && length <= left &&
                   h.sampleRate == first.sampleRate && h.layer == first.layer) {
                if (probe->frames > 0 && h.kbps != first.kbps) probe->vbr = 1;
                if (probe->frames == 0) first = h;
                probe->modes |= 1 << h.mode;
                probe->bytes += length;
                ++probe->frames;
                pos += length;
            }
            probe->scanned = r->seekable;
            probe->first = first;
        }
    }
    r->limit = savedLimit;
}

static void print_tags(FILE* out, const StreamProbe* probe)
{
    if (!probe->tags) return;
    const TagText* t = &probe->text;
    const struct { const char* label; const char* value; } rows[] = {
        {"title", t->title}, {"artist", t->artist}, {"album", t->album}, {"year", t->year}, {"tagged by", t->encoder}};
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i)
        if (rows[i].value[0]) fprintf(out, "  %-10s %s\n", rows[i].label, rows[i].value);
}

static void mp3_info(FILE* out, const StreamProbe* probe, const StreamSummary* s)
{
    if (!probe->mp3) {
        fprintf(out, "  format     MPEG audio, no complete frame at the start of the audio\n");
        return;
    }
    const MpegHeader first = probe->first;
    const Mp3StreamInfo info = probe->info;
    const int infoFrame = probe->infoFrame;
    const unsigned long long bytes = probe->scanned ? probe->bytes : s->inputBytes;
    fprintf(out, "  format     MPEG-%s Layer III, %d Hz, %s%s\n",
            first.version == 3 ? "1" : first.version == 2 ? "2" : "2.5", first.sampleRate, kModes[first.mode & 3],
            (probe->modes & ~(1 << first.mode)) ? " (mode changes)" : "");
    const double seconds = (double)s->frames * first.samples / first.sampleRate;
    if (first.freeFormat) fprintf(out, "  bit rate   free format\n");
    else if (probe->vbr || (infoFrame && info.kind == 1))
        fprintf(out, "  bit rate   %.0f kbit/s average (VBR)\n", seconds > 0 ? bytes * 8.0 / seconds / 1000 : 0.0);
    else fprintf(out, "  bit rate   %d kbit/s (CBR)\n", first.kbps);
    print_duration(out, s->samples, s->sampleRate);
    fprintf(out, "  frames     %ld\n", s->frames);
    if (infoFrame) {
        fprintf(out, "  info frame %s", info.kind == 1 ? "Xing" : info.kind == 2 ? "Info" : "VBRI");
        if (info.frames >= 0) fprintf(out, ", %ld frames", info.frames);
        if (info.encoder[0]) fprintf(out, ", encoder %s", info.encoder);
        fprintf(out, "\n");
        if (info.hasLame)
            fprintf(out, "  gapless    encoder delay %d, padding %d samples (%s)\n", info.encoderDelay,
                    info.encoderPadding, s->trimmed ? "removed" : "kept: --no-gapless");
        else if (info.encoderDelay >= 0)
            fprintf(out, "  gapless    encoder delay %d samples, padding not declared (%s)\n", info.encoderDelay,
                    s->trimmed ? "delay removed" : "kept: --no-gapless");
    }
}

static void aac_info(FILE* out, const StreamProbe* probe, const InputFormat* f, const StreamSummary* s)
{
    if (f->kind == INPUT_ADIF || f->kind == INPUT_LOAS) {
        fprintf(out, "  format     %s, %d Hz, %d channel%s\n", f->kind == INPUT_ADIF ? "AAC (ADIF)" : "MPEG-4 AAC (LATM/LOAS)",
                s->sampleRate, s->channels, s->channels == 1 ? "" : "s");
    } else {
        const AdtsHeader h = probe->adtsHeader;
        fprintf(out, "  format     MPEG-%d AAC %s (ADTS), %d Hz, %d channel%s\n", h.id ? 2 : 4, kProfiles[h.profile & 3],
                h.samplingIndex < 13 ? kAacRates[h.samplingIndex] : 0, s->channels, s->channels == 1 ? "" : "s");
    }
    const double seconds = s->sampleRate ? (double)s->samples / s->sampleRate : 0;
    if (seconds > 0 && f->audioEnd != TOOL_READER_UNKNOWN)
        fprintf(out, "  bit rate   %.0f kbit/s average\n", (double)(f->audioEnd - f->audioStart) * 8.0 / seconds / 1000);
    print_duration(out, s->samples, s->sampleRate);
    fprintf(out, "  frames     %ld\n", s->frames);
    fprintf(out, "  gapless    raw AAC declares no encoder delay: nothing removed\n");
}

static void mp4_info(FILE* out, const StreamSummary* s)
{
    const Mp4Track* t = s->mp4;
    static const char* const kObjects[] = {"?", "Main", "LC", "SSR", "LTP", "HE-AAC (SBR)"};
    const char* object = t->objectType == 29 ? "HE-AAC v2 (SBR+PS)"
                         : t->objectType >= 1 && t->objectType <= 5 ? kObjects[t->objectType] : "?";
    fprintf(out, "  format     MPEG-4 AAC %s (MP4), %d Hz%s, %d channel%s\n", object, t->sampleRate,
            t->extensionRate ? " core" : "", t->channelConfiguration, t->channelConfiguration == 1 ? "" : "s");
    if (t->extensionRate) fprintf(out, "  SBR        output rate %d Hz (signalled explicitly)\n", t->extensionRate);
    const unsigned long long bytes = t->totalBytes;
    if (t->timescale && t->duration)
        fprintf(out, "  bit rate   %.0f kbit/s average\n", bytes * 8.0 * t->timescale / (double)t->duration / 1000);
    print_duration(out, s->samples, s->sampleRate);
    fprintf(out, "  frames     %ld\n", s->frames);
    if (t->smpbDelay >= 0)
        fprintf(out, "  gapless    iTunSMPB: delay %ld, padding %ld, %lld samples (%s)\n", t->smpbDelay, t->smpbPadding,
                t->smpbSamples, s->trimmed ? "removed" : "kept: --no-gapless");
    else if (t->editStart >= 0)
        fprintf(out, "  gapless    edit list: starts at %lld, %lld samples (time scale %u; %s)\n",
                (long long)t->editStart, (long long)t->editDuration, t->timescale,
                s->trimmed ? "applied" : "not applied: --no-gapless");
    const struct { const char* label; const char* value; } rows[] = {{"title", t->tags.title},
        {"artist", t->tags.artist}, {"album", t->tags.album}, {"year", t->tags.year}, {"encoder", t->tags.encoder}};
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i)
        if (rows[i].value[0]) fprintf(out, "  %-10s %s\n", rows[i].label, rows[i].value);
}

void print_stream_info(FILE* out, const char* name, const StreamProbe* probe, const InputFormat* format,
                       const StreamSummary* summary)
{
    fprintf(out, "%s\n", name);
    if (summary->mp4) {
        mp4_info(out, summary);
        return;
    }
    if (format->kind == INPUT_MP3) mp3_info(out, probe, summary);
    else aac_info(out, probe, format, summary);
    print_tags(out, probe);
}
