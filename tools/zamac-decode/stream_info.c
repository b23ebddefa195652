#include "stream_info.h"

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

static void print_tags(FILE* out, const uint8_t* data, size_t size)
{
    TagText t;
    memset(&t, 0, sizeof t);
    int any = tag_read_id3v2(data, size, &t);
    if (size >= 128) any |= tag_read_id3v1(data + size - 128, 128, &t);
    if (!any) return;
    const struct { const char* label; const char* value; } rows[] = {
        {"title", t.title}, {"artist", t.artist}, {"album", t.album}, {"year", t.year}, {"tagged by", t.encoder}};
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i)
        if (rows[i].value[0]) fprintf(out, "  %-10s %s\n", rows[i].label, rows[i].value);
}

static void mp3_info(FILE* out, const uint8_t* data, const InputFormat* f, const StreamSummary* s)
{
    MpegHeader first, h;
    size_t pos = f->audioStart;
    memset(&first, 0, sizeof first);
    size_t length = mpeg_frame_length(data + pos, f->audioEnd - pos, &first);
    if (length == 0 || first.sampleRate <= 0) {
        fprintf(out, "  format     MPEG audio, no complete frame at the start of the audio\n");
        return;
    }
    long frames = 0;
    unsigned long long bytes = 0;
    int vbr = 0, modes = 0;
    Mp3StreamInfo info;
    const int infoFrame = length && tag_read_mp3_info(data + pos, length, first.sideInfoBytes, first.protection, &info);
    if (infoFrame) pos += length;
    while (pos < f->audioEnd && (length = mpeg_frame_length(data + pos, f->audioEnd - pos, &h)) != 0 &&
           length <= f->audioEnd - pos && h.sampleRate == first.sampleRate && h.layer == first.layer) {
        if (frames > 0 && h.kbps != first.kbps) vbr = 1;
        if (frames == 0) first = h;
        modes |= 1 << h.mode;
        bytes += length;
        ++frames;
        pos += length;
    }
    fprintf(out, "  format     MPEG-%s Layer III, %d Hz, %s%s\n",
            first.version == 3 ? "1" : first.version == 2 ? "2" : "2.5", first.sampleRate, kModes[first.mode & 3],
            (modes & ~(1 << first.mode)) ? " (mode changes)" : "");
    const double seconds = (double)s->frames * first.samples / first.sampleRate;
    if (first.freeFormat) fprintf(out, "  bit rate   free format\n");
    else if (vbr || (infoFrame && info.kind == 1))
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
    }
}

static void aac_info(FILE* out, const uint8_t* data, const InputFormat* f, const StreamSummary* s)
{
    if (f->kind == INPUT_ADIF) {
        fprintf(out, "  format     AAC (ADIF), %d Hz, %d channel%s\n", s->sampleRate, s->channels,
                s->channels == 1 ? "" : "s");
    } else {
        AdtsHeader h;
        adts_frame_length(data + f->audioStart, f->audioEnd - f->audioStart, &h);
        fprintf(out, "  format     MPEG-%d AAC %s (ADTS), %d Hz, %d channel%s\n", h.id ? 2 : 4, kProfiles[h.profile],
                h.samplingIndex < 13 ? kAacRates[h.samplingIndex] : 0, s->channels, s->channels == 1 ? "" : "s");
    }
    const double seconds = s->sampleRate ? (double)s->samples / s->sampleRate : 0;
    const size_t bytes = f->audioEnd - f->audioStart;
    if (seconds > 0) fprintf(out, "  bit rate   %.0f kbit/s average\n", bytes * 8.0 / seconds / 1000);
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
    unsigned long long bytes = 0;
    for (uint32_t i = 0; i < t->sampleCount; ++i) bytes += t->sizes[i];
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

void print_stream_info(FILE* out, const char* name, const uint8_t* data, size_t size, const InputFormat* format,
                       const StreamSummary* summary)
{
    fprintf(out, "%s\n", name);
    if (summary->mp4) {
        mp4_info(out, summary);
        return;
    }
    if (format->kind == INPUT_MP3) mp3_info(out, data, format, summary);
    else aac_info(out, data, format, summary);
    print_tags(out, data, size);
}
