/*
 * zamac-decode: decodes an AAC (ADTS or ADIF, AAC-LC) or MP3 file to a WAVE file or
 * to raw 16-bit PCM on stdout.
 *
 *   zamac-decode [--info] [--bench] [-v] [-o out.wav] input
 *
 * This file is the front end: it reads the input, picks the decoder, and owns the
 * output (WAVE file, raw PCM on stdout, or nothing for --bench), the progress line
 * and the exit status. The decoders are in aac_*.c and mp3_*.c.
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "decoder.h"
#include "wav.h"

/* ------------------------------------------------------------------ sinks */

typedef struct {
    FILE* file;
    int wav;             /* write a WAVE header (patched with the sizes at the end) */
    int discard;         /* --bench: count only */
    int progress;        /* print a progress line on stderr */
    int sampleRate, channels;
    uint32_t channelMask;
    uint64_t framesWritten;
    double lastProgress;
    int failed;
} OutputSink;

static double cpu_seconds(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return (double)ts.tv_sec + ts.tv_nsec * 1e-9;
}

static int sink_format(void* ctx, int sampleRate, int channels, uint32_t channelMask)
{
    OutputSink* out = ctx;
    out->sampleRate = sampleRate;
    out->channels = channels;
    out->channelMask = channelMask;
    if (out->wav && wav_write_header(out->file, sampleRate, channels, channelMask, 0xFFFFFFFFu - 64) != 0) {
        out->failed = 1;
        return -1;
    }
    return 0;
}

static int sink_write(void* ctx, const int16_t* interleaved, int frames)
{
    OutputSink* out = ctx;
    out->framesWritten += (uint64_t)frames;
    if (!out->discard) {
        /* WAVE and raw output are little-endian, as is every target of this library. */
        const size_t count = (size_t)frames * (size_t)out->channels;
        if (fwrite(interleaved, sizeof(int16_t), count, out->file) != count) {
            out->failed = 1;
            return -1;
        }
    }
    if (out->progress) {
        const double seconds = (double)out->framesWritten / out->sampleRate;
        if (seconds - out->lastProgress >= 10.0) {
            out->lastProgress = seconds;
            fprintf(stderr, "\r%8.1f s decoded", seconds);
        }
    }
    return 0;
}

/* Puts the real sizes into the WAVE header once the data length is known. */
static void finish_wav(OutputSink* out)
{
    if (!out->wav || out->sampleRate == 0) return;
    const uint64_t dataBytes = out->framesWritten * (uint64_t)out->channels * 2;
    if (dataBytes > 0xFFFFFFFFu - 80) {
        fprintf(stderr, "zamac-decode: output longer than a WAVE file can describe; sizes left open\n");
        return;
    }
    if (fseek(out->file, 0, SEEK_SET) == 0)
        wav_write_header(out->file, out->sampleRate, out->channels, out->channelMask, (uint32_t)dataBytes);
}

/* ------------------------------------------------------------------ input */

/* The whole file, followed by DECODER_INPUT_PADDING zero bytes. */
static uint8_t* read_file(const char* path, size_t* size)
{
    FILE* f = fopen(path, "rb");
    if (!f) return NULL;
    size_t capacity = 1 << 20, used = 0;
    uint8_t* data = malloc(capacity + DECODER_INPUT_PADDING);
    while (data) {
        used += fread(data + used, 1, capacity - used, f);
        if (used < capacity) break;
        capacity *= 2;
        uint8_t* bigger = realloc(data, capacity + DECODER_INPUT_PADDING);
        if (!bigger) free(data);
        data = bigger;
    }
    if (data && ferror(f)) {
        free(data);
        data = NULL;
    }
    fclose(f);
    if (data) {
        memset(data + used, 0, DECODER_INPUT_PADDING);
        *size = used;
    }
    return data;
}

/* Length of an ADTS frame whose header starts at p, or 0 when p holds no ADTS header
 * (sync word 0xFFF with layer 0; an MP3 header has a non-zero layer). */
static size_t adts_frame_length(const uint8_t* p, size_t left)
{
    if (left < 7 || p[0] != 0xFF || (p[1] & 0xF6) != 0xF0) return 0;
    const size_t length = ((size_t)(p[3] & 3) << 11) | ((size_t)p[4] << 3) | (p[5] >> 5);
    return length >= 7 ? length : 0;
}

/* Length of a Layer III frame whose header starts at p; 1 for another MPEG audio
 * header (free format, Layers I and II), whose length is not worked out here, so it
 * never decides alone; 0 when p holds no valid MPEG audio header. A file in which
 * nothing decides goes to the MP3 decoder, which reports what it finds. */
static size_t mpeg_audio_frame_length(const uint8_t* p, size_t left)
{
    static const int kBitrateKbps[2][15] = {
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},     /* MPEG-2 and 2.5 */
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}, /* MPEG-1 */
    };
    static const int kRateHz[3] = {44100, 48000, 32000};
    if (left < 4 || p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return 0;
    const int version = (p[1] >> 3) & 3; /* 0: 2.5, 1: reserved, 2: MPEG-2, 3: MPEG-1 */
    const int layer = (p[1] >> 1) & 3;   /* 1: Layer III, 0: reserved */
    const int bitrateIndex = p[2] >> 4;
    const int rateIndex = (p[2] >> 2) & 3;
    if (version == 1 || layer == 0 || bitrateIndex == 15 || rateIndex == 3) return 0;
    if (layer != 1 || bitrateIndex == 0) return 1;
    const int mpeg1 = version == 3;
    const int rate = kRateHz[rateIndex] >> (mpeg1 ? 0 : version == 2 ? 1 : 2);
    const int padding = (p[2] >> 1) & 1;
    return (size_t)((mpeg1 ? 144000 : 72000) * kBitrateKbps[mpeg1][bitrateIndex] / rate + padding);
}

/* An ADIF file starts with "ADIF". Otherwise, after an optional ID3v2 tag, the first
 * place in the first 64 KB where two consecutive frame headers of one kind follow
 * each other (or one frame fills the file) decides between ADTS and MP3. Looking
 * for the first such place, not for any, matters: an MP3 frame's data may happen
 * to hold a pair of ADTS-looking headers further on. */
static int looks_like_aac(const uint8_t* data, size_t size)
{
    if (size >= 4 && memcmp(data, "ADIF", 4) == 0) return 1;
    size_t start = 0;
    if (size >= 10 && memcmp(data, "ID3", 3) == 0)
        start = 10 + (((size_t)data[6] & 0x7F) << 21 | ((size_t)data[7] & 0x7F) << 14 |
                      ((size_t)data[8] & 0x7F) << 7 | ((size_t)data[9] & 0x7F));
    const size_t end = size < start + 65536 ? size : start + 65536;
    for (size_t i = start; i < end; ++i) {
        const size_t adts = adts_frame_length(data + i, size - i);
        if (adts != 0 && (i + adts == size || adts_frame_length(data + i + adts, size - i - adts) != 0))
            return 1;
        const size_t mpeg = mpeg_audio_frame_length(data + i, size - i);
        if (mpeg > 1 && (i + mpeg >= size || mpeg_audio_frame_length(data + i + mpeg, size - i - mpeg) != 0))
            return 0;
    }
    return 0;
}

/* ------------------------------------------------------------------ main */

static void usage(void)
{
    fprintf(stderr,
            "usage: zamac-decode [--info] [--bench] [--fixed] [-v] [-o out.wav] input\n"
            "  decodes AAC (LC, Main, LTP; ADTS .aac or ADIF) or MP3 to 16-bit PCM\n"
            "  -o out.wav  write a WAVE file (without -o: raw little-endian PCM on stdout)\n"
            "  --info      print the stream format and one line per frame, write no PCM\n"
            "              unless -o is given\n"
            "  --bench     decode without writing and print the decoding speed\n"
            "  --fixed     AAC: integer synthesis filter bank (no floating point after the\n"
            "              dequantizer, except in AAC Main prediction)\n"
            "  -v          report every concealed frame\n");
}

int main(int argc, char** argv)
{
    DecodeOptions options = {0, 0, 0, 0};
    const char* input = NULL;
    const char* output = NULL;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--info") == 0) options.info = 1;
        else if (strcmp(argv[i], "--bench") == 0) options.bench = 1;
        else if (strcmp(argv[i], "-v") == 0) options.verbose = 1;
        else if (strcmp(argv[i], "--fixed") == 0) options.fixed = 1;
        else if (strcmp(argv[i], "-o") == 0 && i + 1 < argc) output = argv[++i];
        else if (strcmp(argv[i], "-h") == 0 || strcmp(argv[i], "--help") == 0) {
            usage();
            return 0;
        } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
            usage();
            return 2;
        } else if (!input) input = argv[i];
        else {
            usage();
            return 2;
        }
    }
    if (!input) {
        usage();
        return 2;
    }

    size_t size = 0;
    uint8_t* data = read_file(input, &size);
    if (!data) {
        fprintf(stderr, "zamac-decode: cannot read %s: %s\n", input, strerror(errno));
        return 1;
    }

    OutputSink out = {0};
    out.discard = options.bench || (options.info && !output);
    if (!out.discard) {
        if (output) {
            out.file = fopen(output, "wb");
            if (!out.file) {
                fprintf(stderr, "zamac-decode: cannot write %s: %s\n", output, strerror(errno));
                free(data);
                return 1;
            }
            out.wav = 1;
        } else {
            if (isatty(STDOUT_FILENO)) {
                fprintf(stderr, "zamac-decode: refusing to write raw PCM to a terminal (use -o out.wav)\n");
                free(data);
                return 2;
            }
            out.file = stdout;
        }
    }
    out.progress = isatty(STDERR_FILENO) && !options.info;
    PcmSink sink = {&out, sink_format, sink_write};
    DecodeStats stats = {0, 0, 0.0};

    const int isAac = looks_like_aac(data, size);
    const double cpuStart = cpu_seconds();
    const int status = isAac ? aac_decode(data, size, &options, &sink, &stats)
                             : mp3_decode(data, size, &options, &sink, &stats);
    const double cpu = cpu_seconds() - cpuStart;
    if (out.lastProgress > 0) fprintf(stderr, "\r%*s\r", 20, "");

    finish_wav(&out);
    if (out.file && out.file != stdout) fclose(out.file);
    else if (out.file) fflush(out.file);
    free(data);
    if (out.failed) {
        fprintf(stderr, "zamac-decode: writing the output failed\n");
        return 1;
    }

    if (stats.framesDecoded == 0) return 1;
    fprintf(stderr, "%s: %s, %d Hz, %d channel%s, %.2f s, %ld frames (%ld concealed)", input,
            isAac ? "AAC" : "MP3", out.sampleRate, out.channels, out.channels == 1 ? "" : "s",
            stats.audioSeconds, stats.framesDecoded, stats.framesConcealed);
    if (cpu > 0 && stats.audioSeconds > 0)
        fprintf(stderr, ", %.3f s CPU, %.0fx real time", cpu, stats.audioSeconds / cpu);
    fprintf(stderr, "\n");
    if (options.bench)
        printf("%.3f seconds of audio per CPU second\n", cpu > 0 ? stats.audioSeconds / cpu : 0.0);
    return status == 0 ? 0 : 1;
}
