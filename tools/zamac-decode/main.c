/*
 * zamac-decode: decodes MP3 (MPEG-1/2/2.5 Layer III) and AAC (ADTS, ADIF, LOAS/LATM,
 * MP4) to a WAVE file, to raw PCM on standard output, or to nothing (--bench, --info).
 *
 * The road of a run, top to bottom:
 *   options      getopt_long; errors name the option and exit with 2
 *   processor    the library needs AVX2 and FMA: a clear message instead of a crash
 *   input        the file (or "-" for standard input) read through a 64 KiB window as
 *                it is decoded (tool_reader.h): memory does not grow with its length
 *   format       a run of consistent frame headers or a container (detect.c); an
 *                MP4/M4A file's AAC samples (read by offset) and a LOAS stream's LATM
 *                payloads are handed on as ADTS frames; an MP4 file on a pipe is
 *                copied to a temporary file first
 *   output       checked writes; a regular file is written under a temporary name and
 *                renamed when complete, so a failed run leaves nothing behind
 *   decoding     aac_decoder.c, mp3_decoder.c into the sink below (16-bit, 24-bit or
 *                float samples; gapless trimming of MP3 delay and padding)
 *   summary      one line on stderr; --info prints the stream description on stdout
 *
 * Exit status: 0 decoded, 1 failed (unreadable input, nothing decodable, a write
 * failed), 2 bad command line.
 */
#include <errno.h>
#include <getopt.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "decoder.h"
#include "detect.h"
#include "stream_info.h"
#include "tool_cli.h"
#include "tool_latm.h"
#include "tool_mp4.h"
#include "tool_output.h"
#include "tool_reader.h"
#include "tool_wav.h"

/* ------------------------------------------------------------------ sink */

typedef struct {
    ToolOutput* output;        /* NULL: samples are counted only */
    int wav;                   /* write a WAVE header (sizes patched at the end when seekable) */
    WavSampleFormat format;
    int progress;              /* a progress line on stderr */
    int sampleRate, channels;
    uint32_t channelMask;
    long skip;                 /* gapless: frames still to drop at the start */
    long long keep;            /* gapless: frames still to pass on (-1: all) */
    int trimmed;               /* the stream declared delay and padding */
    long trimSkip;
    long long trimKeep;
    int trimRate;              /* non-zero: skip and keep are in samples at this rate */
    uint64_t framesWritten;
    double lastProgress;
    uint8_t* bytes;            /* packing buffer */
    size_t capacity;
    int keepSamples;           /* --compare: keep every output sample as 16-bit */
    int16_t* kept;
    size_t keptCount, keptCapacity;
} Sink;

static int sink_format(void* ctx, int sampleRate, int channels, uint32_t channelMask)
{
    Sink* s = ctx;
    if (s->trimRate && s->trimRate != sampleRate) {
        /* A container's delay counted at another rate (HE-AAC without SBR output) */
        s->skip = s->trimSkip = (long)((long long)s->trimSkip * sampleRate / s->trimRate);
        if (s->keep >= 0) s->keep = s->trimKeep = s->trimKeep * sampleRate / s->trimRate;
    }
    s->sampleRate = sampleRate;
    s->channels = channels;
    s->channelMask = channelMask;
    if (!s->output || !s->wav) return 0;
    uint8_t header[68];
    const size_t n = wav_header(header, sampleRate, channels, channelMask, s->format, 0xFFFFFFFFu);
    return tool_output_write(s->output, header, n);
}

static void sink_trim(void* ctx, long skip, long long keep)
{
    Sink* s = ctx;
    s->skip = s->trimSkip = skip;
    s->keep = s->trimKeep = keep;
    s->trimmed = 1;
}

static uint8_t* sink_buffer(Sink* s, size_t bytes)
{
    if (bytes == 0) bytes = 1;
    if (bytes > s->capacity) {
        uint8_t* bigger = realloc(s->bytes, bytes);
        if (!bigger) return NULL;
        s->bytes = bigger;
        s->capacity = bytes;
    }
    return s->bytes;
}

/* Frames [*first, *first + *count) of a block of `frames` survive the gapless trim. */
static void apply_trim(Sink* s, int frames, int* first, int* count)
{
    *first = 0;
    *count = frames;
    if (s->skip > 0) {
        *first = s->skip < frames ? (int)s->skip : frames;
        s->skip -= *first;
        *count = frames - *first;
    }
    if (s->keep >= 0) {
        if (*count > s->keep) *count = (int)s->keep;
        s->keep -= *count;
    }
}

static void keep_for_compare(Sink* s, const int16_t* pcm, size_t count)
{
    if (!s->keepSamples) return;
    if (s->keptCount + count > s->keptCapacity) {
        size_t capacity = s->keptCapacity ? s->keptCapacity * 2 : 1 << 20;
        while (capacity < s->keptCount + count) capacity *= 2;
        int16_t* bigger = realloc(s->kept, capacity * sizeof *bigger);
        if (!bigger) return;
        s->kept = bigger;
        s->keptCapacity = capacity;
    }
    memcpy(s->kept + s->keptCount, pcm, count * sizeof *pcm);
    s->keptCount += count;
}

static int sink_emit(Sink* s, const uint8_t* bytes, size_t n, int frames)
{
    s->framesWritten += (uint64_t)frames;
    if (s->output && tool_output_write(s->output, bytes, n) != 0) return -1;
    if (s->progress) {
        const double seconds = (double)s->framesWritten / s->sampleRate;
        if (seconds - s->lastProgress >= 10.0) {
            s->lastProgress = seconds;
            fprintf(stderr, "\r%8.1f s decoded", seconds);
        }
    }
    return 0;
}

static int sink_write(void* ctx, const int16_t* interleaved, int frames)
{
    Sink* s = ctx;
    int first, count;
    apply_trim(s, frames, &first, &count);
    const int16_t* pcm = interleaved + (size_t)first * (size_t)s->channels;
    const size_t samples = (size_t)count * (size_t)s->channels;
    keep_for_compare(s, pcm, samples);
    uint8_t* bytes = sink_buffer(s, samples * 4);
    if (!bytes) return -1;
    return sink_emit(s, bytes, wav_pack_s16(pcm, samples, s->format, bytes), count);
}

static int sink_write_float(void* ctx, const float* const* planar, int channels, int frames)
{
    Sink* s = ctx;
    int first, count;
    apply_trim(s, frames, &first, &count);
    const size_t samples = (size_t)count * (size_t)channels;
    uint8_t* bytes = sink_buffer(s, samples * 4 + samples * sizeof(float));
    if (!bytes) return -1;
    float* interleaved = (float*)(void*)(bytes + samples * 4);
    for (int i = 0; i < count; ++i)
        for (int c = 0; c < channels; ++c) interleaved[(size_t)i * (size_t)channels + (size_t)c] = planar[c][first + i];
    if (s->keepSamples) {
        /* s16 bytes are little-endian int16_t on every target of this library */
        wav_pack_f32(interleaved, samples, 1.0f, WAV_S16, bytes);
        keep_for_compare(s, (const int16_t*)(const void*)bytes, samples);
    }
    return sink_emit(s, bytes, wav_pack_f32(interleaved, samples, 1.0f, s->format, bytes), count);
}

/* Puts the real sizes into the WAVE header once the data length is known. */
static void finish_wav(Sink* s)
{
    if (!s->output || !s->wav || s->sampleRate == 0 || !s->output->seekable) return;
    const uint64_t dataBytes = s->framesWritten * (uint64_t)s->channels * (uint64_t)wav_sample_bytes(s->format);
    if (dataBytes > 0xFFFFFFFFu - 80) {
        tool_error("output longer than a WAVE file can describe; sizes left open");
        return;
    }
    uint8_t header[68];
    const size_t n = wav_header(header, s->sampleRate, s->channels, s->channelMask, s->format, (uint32_t)dataBytes);
    tool_output_rewrite_start(s->output, header, n);
}

/* ------------------------------------------------------------------ --compare */

/* PSNR, largest difference and alignment of the decoded samples against a WAVE file:
 * the lag (within +-4096 frames) that best matches the first 16384 frames is used. */
static int compare_with(const char* path, const Sink* s)
{
    FILE* f = fopen(path, "rb");
    if (!f) {
        tool_error("cannot open %s: %s", path, strerror(errno));
        return -1;
    }
    WavReader r;
    const char* why = NULL;
    if (wav_read_open(&r, f, &why) != 0) {
        tool_error("%s: %s", path, why);
        fclose(f);
        return -1;
    }
    if (r.channels != s->channels) {
        tool_error("%s has %d channels, the decoded stream %d", path, r.channels, s->channels);
        fclose(f);
        return -1;
    }
    size_t refFrames = 0, capacity = 1 << 16;
    int16_t* ref = malloc(capacity * (size_t)r.channels * sizeof *ref);
    long got;
    while (ref && (got = wav_read_s16(&r, ref + refFrames * (size_t)r.channels, (long)(capacity - refFrames))) > 0) {
        refFrames += (size_t)got;
        if (refFrames == capacity) {
            capacity *= 2;
            int16_t* bigger = realloc(ref, capacity * (size_t)r.channels * sizeof *ref);
            if (!bigger) free(ref);
            ref = bigger;
        }
    }
    fclose(f);
    if (!ref) {
        tool_error("out of memory reading %s", path);
        return -1;
    }
    const int ch = s->channels;
    const size_t ours = s->keptCount / (size_t)ch;
    const long probe = 16384;
    long bestLag = 0;
    double bestError = -1;
    for (long lag = -4096; lag <= 4096; ++lag) {  /* ours[i] against ref[i + lag] */
        double error = 0;
        long n = 0;
        for (long i = 0; i < probe && i < (long)ours; ++i) {
            const long j = i + lag;
            if (j < 0 || j >= (long)refFrames) continue;
            const double d = (double)s->kept[(size_t)i * (size_t)ch] - ref[(size_t)j * (size_t)ch];
            error += d * d;
            ++n;
        }
        if (n > probe / 2 && (bestError < 0 || error / n < bestError)) {
            bestError = error / n;
            bestLag = lag;
        }
    }
    double sum = 0;
    int maxDiff = 0;
    size_t compared = 0;
    for (size_t i = 0; i < ours; ++i) {
        const long j = (long)i + bestLag;
        if (j < 0 || j >= (long)refFrames) continue;
        for (int c = 0; c < ch; ++c) {
            const int d = s->kept[i * (size_t)ch + (size_t)c] - ref[(size_t)j * (size_t)ch + (size_t)c];
            sum += (double)d * d;
            if (abs(d) > maxDiff) maxDiff = abs(d);
        }
        ++compared;
    }
    free(ref);
    const double mse = compared ? sum / ((double)compared * ch) : 0;
    printf("compare: %zu frames decoded, %zu in %s, lag %+ld frames, %zu compared, max difference %d, ", ours,
           refFrames, path, bestLag, compared, maxDiff);
    if (mse > 0) printf("PSNR %.2f dB\n", 10 * log10(32767.0 * 32767.0 / mse));
    else printf("identical\n");
    return 0;
}

/* ------------------------------------------------------------------ MP4 */

/* The track's samples read by offset, each behind an ADTS header: a source of bytes
 * for the AAC decoder. */
typedef struct {
    ToolReader* file;
    const Mp4Track* track;
    Mp4Samples samples;
    uint32_t next;          /* the sample to read next */
    uint8_t frame[8192];
    size_t have, used;
    int failed;             /* a sample could not be read */
} AdtsFromMp4;

static size_t adts_from_mp4(void* ctx, uint8_t* dst, size_t n)
{
    AdtsFromMp4* s = ctx;
    size_t out = 0;
    while (out < n) {
        if (s->used == s->have) {
            const Mp4Track* t = s->track;
            uint64_t offset;
            uint32_t size;
            const char* why;
            if (s->failed || mp4_samples_next(&s->samples, &offset, &size, &why) != 1) break;
            size_t left;
            const uint8_t* p = reader_at(s->file, offset, size, &left);
            if (!p || left < size || mp4_adts_header(t, size, s->frame) != 0) {
                s->failed = 1;
                break;
            }
            memcpy(s->frame + 7, p, size);
            s->have = 7 + (size_t)size;
            s->used = 0;
            ++s->next;
        }
        const size_t k = n - out < s->have - s->used ? n - out : s->have - s->used;
        memcpy(dst + out, s->frame + s->used, k);
        s->used += k;
        out += k;
    }
    return out;
}

/* The payloads of a LOAS/LATM stream, each behind an ADTS header: a source of bytes
 * for the AAC decoder. */
typedef struct {
    ToolReader* file;
    uint64_t pos;
    LatmState latm;
    uint8_t payloads[8192];
    uint32_t lengths[LATM_MAX_PAYLOADS];
    int count, next;
    size_t payloadAt;
    uint8_t frame[8192];
    size_t have, used;
    int quiet, reported;
} AdtsFromLoas;

static size_t adts_from_loas(void* ctx, uint8_t* dst, size_t n)
{
    AdtsFromLoas* s = ctx;
    size_t out = 0;
    while (out < n) {
        if (s->used == s->have) {
            if (s->next < s->count) {
                const uint32_t length = s->lengths[s->next++];
                const uint8_t* payload = s->payloads + s->payloadAt;
                s->payloadAt += length;
                if (length == 0 || mp4_adts_header(&s->latm.config, length, s->frame) != 0) continue;
                memcpy(s->frame + 7, payload, length);
                s->have = 7 + (size_t)length;
                s->used = 0;
                continue;
            }
            size_t left;
            const uint8_t* p = reader_at(s->file, s->pos, 8192 + 3, &left);
            if (!p || left == 0) break;
            const size_t length = loas_frame_length(p, left);
            if (length == 0 || length > left) { /* not a LOAS frame, or a truncated last one */
                s->pos += length && length > left ? left : 1;
                continue;
            }
            const char* why = NULL;
            s->count = latm_read_element(&s->latm, p + 3, length - 3, s->payloads, sizeof s->payloads, s->lengths, &why);
            s->next = 0;
            s->payloadAt = 0;
            if (s->count < 0 && !s->quiet && s->reported++ < 3)
                fprintf(stderr, "zamac-decode: LOAS frame at byte %llu: %s; skipped\n", (unsigned long long)s->pos, why);
            s->pos += length;
            continue;
        }
        const size_t k = n - out < s->have - s->used ? n - out : s->have - s->used;
        memcpy(dst + out, s->frame + s->used, k);
        s->used += k;
        out += k;
    }
    return out;
}

/* Whether the track can be decoded as ADTS frames; the reason in why when not. Sets
 * *total to the bytes of the frames. */
static int mp4_check(const ToolReader* r, const char* path, const Mp4Track* t, uint64_t* total, char* why,
                     size_t whySize)
{
    if (t->coreObjectType != 1 && t->coreObjectType != 2 && t->coreObjectType != 4) {
        snprintf(why, whySize, "AAC object type %d in the MP4 track is not supported; only Main, LC (also as the "
                 "core of HE-AAC) and LTP (object types 1, 2 and 4) are", t->coreObjectType);
        return -1;
    }
    uint8_t header[7];
    if (t->sampleCount == 0 || mp4_adts_header(t, 0, header) != 0) {
        snprintf(why, whySize, t->sampleCount ? "the MP4 track's channel configuration %d cannot be decoded here"
                                               : "the MP4 track has no samples", t->channelConfiguration);
        return -1;
    }
    Mp4Samples samples;
    uint64_t offset, first = 0;
    uint32_t size, i = 0;
    const char* damage;
    if (mp4_samples_open(&samples, t, path) != 0) {
        snprintf(why, whySize, "the MP4 file could not be read again");
        return -1;
    }
    *total = 0;
    for (; mp4_samples_next(&samples, &offset, &size, &damage) == 1; ++i) {
        if (i == 0) first = offset;
        if (mp4_adts_header(t, size, header) != 0) {
            snprintf(why, whySize, "MP4 sample %u is too long for an AAC frame", i + 1);
            mp4_samples_close(&samples);
            return -1;
        }
        *total += 7 + (uint64_t)size;
    }
    mp4_samples_close(&samples);
    if (!r->seekable && first < r->start) {
        snprintf(why, whySize, t->fragmented ? "a fragmented MP4 file is read from a file, not from a pipe"
                 : "the media data comes before the movie box (moov), which a pipe cannot go back "
                 "to: give a file, or move the moov box to the front (ffmpeg -movflags +faststart)");
        return -1;
    }
    return 0;
}

/* Gapless playback from the container: iTunSMPB (delay, padding, length in output
 * samples) or else the edit list (start and length in the track's time scale). */
static void mp4_gapless(const Mp4Track* t, Sink* s)
{
    if (t->smpbDelay >= 0 && t->smpbSamples > 0) {
        sink_trim(s, t->smpbDelay, t->smpbSamples);
        s->trimRate = t->extensionRate ? t->extensionRate : t->sampleRate;
    } else if (t->editStart >= 0 && t->timescale) {
        sink_trim(s, (long)t->editStart, t->editDuration);
        s->trimRate = (int)t->timescale;
    }
}

/* ------------------------------------------------------------------ main */

static void usage(FILE* out)
{
    fprintf(out,
            "Usage: zamac-decode [OPTION]... INPUT\n"
            "Decode an MP3 or AAC (LC, Main, LTP, HE-AAC v1/v2; ADTS, ADIF, LOAS/LATM,\n"
            "MP4/M4A) file to WAVE or raw PCM.\n"
            "INPUT '-' is standard input.\n"
            "\n"
            "  -o, --output=FILE    write a WAVE file ('-': WAVE on standard output); without\n"
            "                       -o, raw little-endian PCM goes to standard output\n"
            "  -f, --format=FMT     sample format: s16 (default), s24 or f32 (float, not clipped)\n"
            "  -r, --raw            raw PCM instead of WAVE, also with -o\n"
            "      --fixed          decode with the integer (fixed-point) stages only\n"
            "      --sbr-lp         HE-AAC: low-power SBR (real-valued; parametric stereo is\n"
            "                       not applied)\n"
            "      --downsample     HE-AAC: output at the core rate (down-sampling synthesis)\n"
            "      --no-gapless     keep the encoder delay and padding that a LAME tag, a\n"
            "                       VBRI header (delay only), an MP4 edit list or iTunSMPB\n"
            "                       declares (by default they are removed, as mpg123 and\n"
            "                       ffmpeg do)\n"
            "  -i, --info           describe the stream on standard output (format, mode, bit\n"
            "                       rate, duration, delay and padding, tags); no PCM unless -o\n"
            "      --frames         with --info: one line per frame\n"
            "  -b, --bench          decode without writing and print the decoding speed\n"
            "      --fixed          AAC: integer synthesis filter bank (no floating point after\n"
            "                       the dequantizer, except in AAC Main prediction)\n"
            "      --compare=REF    compare the decoded samples with the WAVE file REF\n"
            "                       (alignment, largest difference, PSNR)\n"
            "  -v, --verbose        report every concealed frame\n"
            "  -q, --quiet          no summary line and no per-frame reports\n"
            "  -h, --help           show this help and exit\n"
            "  -V, --version        show the version and exit\n"
            "\n"
            "The input is read as it is decoded, in constant memory (about 3 MB). From a pipe,\n"
            "tags at the end (ID3v1, APE) are read as data and skipped, an MP4 file is first\n"
            "copied to a temporary file, and an MP3 without a frame count in its Xing/Info\n"
            "header keeps its end padding. WAVE written to a pipe has its sizes set to\n"
            "0xFFFFFFFF (length unknown).\n"
            "Raw ADTS and ADIF carry no delay information: their output includes the encoder's\n"
            "priming samples (ffmpeg and faad do the same).\n"
            "Exit status: 0 decoded, 1 failure, 2 bad command line.\n");
}

enum { OPT_NO_GAPLESS = 256, OPT_FRAMES, OPT_COMPARE, OPT_FIXED, OPT_SBR_LP, OPT_DOWNSAMPLE };

int main(int argc, char** argv)
{
    tool_set_name("zamac-decode");
    static const struct option kOptions[] = {
        {"output", required_argument, NULL, 'o'},  {"format", required_argument, NULL, 'f'},
        {"raw", no_argument, NULL, 'r'},           {"no-gapless", no_argument, NULL, OPT_NO_GAPLESS},
        {"info", no_argument, NULL, 'i'},          {"frames", no_argument, NULL, OPT_FRAMES},
        {"bench", no_argument, NULL, 'b'},         {"compare", required_argument, NULL, OPT_COMPARE},
        {"fixed", no_argument, NULL, OPT_FIXED},   {"sbr-lp", no_argument, NULL, OPT_SBR_LP},
        {"downsample", no_argument, NULL, OPT_DOWNSAMPLE},
        {"verbose", no_argument, NULL, 'v'},       {"quiet", no_argument, NULL, 'q'},
        {"help", no_argument, NULL, 'h'},          {"version", no_argument, NULL, 'V'},
        {NULL, 0, NULL, 0}};
    DecodeOptions options = {.gapless = 1};
    const char* output = NULL;
    const char* compare = NULL;
    int raw = 0, info = 0, frames = 0, quiet = 0, format = WAV_S16, c;
    opterr = 0;
    while ((c = getopt_long(argc, argv, ":o:f:ribvqhV", kOptions, NULL)) != -1) {
        switch (c) {
        case 'o': output = optarg; break;
        case 'f':
            if ((format = wav_parse_format(optarg)) < 0) {
                tool_error("unknown sample format '%s' for %s (use s16, s24 or f32)", optarg, argv[optind - 1]);
                return TOOL_EXIT_USAGE;
            }
            break;
        case 'r': raw = 1; break;
        case OPT_NO_GAPLESS: options.gapless = 0; break;
        case OPT_FIXED: options.fixed = 1; break;
        case OPT_SBR_LP: options.sbrMode = 1; break;
        case OPT_DOWNSAMPLE: options.sbrMode = 2; break;
        case 'i': info = 1; break;
        case OPT_FRAMES: frames = 1; break;
        case 'b': options.bench = 1; break;
        case OPT_COMPARE: compare = optarg; break;
        case 'v': options.verbose = 1; break;
        case 'q': quiet = options.quiet = 1; break;
        case 'h': usage(stdout); return TOOL_EXIT_OK;
        case 'V': tool_print_version(stdout); return TOOL_EXIT_OK;
        case ':':
            tool_error("option '%s' needs an argument", argv[optind - 1]);
            fprintf(stderr, "Try 'zamac-decode --help' for more information.\n");
            return TOOL_EXIT_USAGE;
        default:
            if (optopt) tool_error("unknown option '-%c'", optopt);
            else tool_error("unknown option '%s'", argv[optind - 1]);
            fprintf(stderr, "Try 'zamac-decode --help' for more information.\n");
            return TOOL_EXIT_USAGE;
        }
    }
    if (optind != argc - 1) {
        tool_error(optind == argc ? "no input file given" : "more than one input file given");
        fprintf(stderr, "Try 'zamac-decode --help' for more information.\n");
        return TOOL_EXIT_USAGE;
    }
    const char* input = argv[optind];
    if (frames && !info) {
        tool_error("--frames goes with --info");
        return TOOL_EXIT_USAGE;
    }
    options.info = frames;
    if (tool_check_cpu() != 0) return TOOL_EXIT_FAILURE;

    ToolReader reader;
    if (reader_open_file(&reader, input) != 0) return TOOL_EXIT_FAILURE;
    const char* shown = strcmp(input, "-") == 0 ? "standard input" : input;

    InputFormat fmt;
    detect_format_reader(&reader, &fmt);
    const char* refusal = NULL;
    char text[200];
    if (reader.error) {
        snprintf(text, sizeof text, "read error: %s", strerror(errno));
        refusal = text;
    } else if (fmt.kind == INPUT_UNKNOWN) refusal = fmt.why;
    else if (fmt.kind == INPUT_MPEG12) {
        snprintf(text, sizeof text, "this is an MPEG audio Layer %s stream; only Layer III (MP3) is decoded",
                 fmt.layer == 1 ? "I" : "II");
        refusal = text;
    }
    Mp4Track mp4;
    memset(&mp4, 0, sizeof mp4);
    /* An MP4 file's sample table is read from the file as decoding goes; from a pipe the
     * file is first copied to a temporary file (its moov box may come last). */
    const char* tablePath = strcmp(input, "-") != 0 ? input : reader.seekable ? "/proc/self/fd/0" : NULL;
    char spoolPath[64];
    if (fmt.kind == INPUT_MP4 && !refusal && !reader.seekable) {
        if (reader_spool(&reader) != 0) {
            snprintf(text, sizeof text, "cannot copy the MP4 file to a temporary file: %s", strerror(errno));
            refusal = text;
        } else {
            snprintf(spoolPath, sizeof spoolPath, "/proc/self/fd/%d", fileno(reader.file));
            tablePath = spoolPath;
        }
    }
    uint64_t adtsSize = 0; /* an MP4 track's samples as ADTS frames */
    if (fmt.kind == INPUT_MP4 && !refusal) {
        if (mp4_read_reader(&reader, tablePath, &mp4) != 0) {
            snprintf(text, sizeof text, "%s", mp4.error);
            refusal = text;
        } else if (mp4_check(&reader, tablePath, &mp4, &adtsSize, text, sizeof text) != 0) {
            refusal = text;
        }
    }
    if (refusal) {
        mp4_free(&mp4);
        tool_error("%s: %s", shown, refusal);
        reader_close(&reader);
        return TOOL_EXIT_FAILURE;
    }
    StreamProbe probe;
    if (info) probe_stream(&reader, &fmt, &probe);

    /* Output: -o FILE (WAVE, or raw with --raw), raw PCM on stdout, or none. */
    ToolOutput out;
    Sink sink = {0};
    sink.format = (WavSampleFormat)format;
    sink.keep = -1;
    const int discard = options.bench || (info && !output);
    if (!discard) {
        const char* path = output ? output : "-";
        if (strcmp(path, "-") == 0 && isatty(STDOUT_FILENO)) {
            tool_error("refusing to write PCM to a terminal (use -o FILE.wav or a pipe)");
            reader_close(&reader);
            return TOOL_EXIT_USAGE;
        }
        if (tool_output_open(&out, path) != 0) {
            tool_error("cannot write %s: %s", path, strerror(errno));
            reader_close(&reader);
            return TOOL_EXIT_FAILURE;
        }
        sink.output = &out;
        sink.wav = output != NULL && !raw;
    }
    sink.progress = isatty(STDERR_FILENO) && !info && !quiet;
    sink.keepSamples = compare != NULL;
    PcmSink pcmSink = {&sink, sink_format, sink_write, format == WAV_S16 ? NULL : sink_write_float, sink_trim};
    DecodeStats stats = {0, 0, 0.0, 0};

    const int isAac = fmt.kind == INPUT_ADTS || fmt.kind == INPUT_ADIF || fmt.kind == INPUT_MP4 || fmt.kind == INPUT_LOAS;
    AdtsFromMp4 fromMp4;
    memset(&fromMp4, 0, sizeof fromMp4);
    fromMp4.file = &reader;
    fromMp4.track = &mp4;
    ToolReader adtsReader;
    int status;
    const double cpuStart = tool_cpu_seconds();
    if (fmt.kind == INPUT_MP4) {
        if (options.gapless) mp4_gapless(&mp4, &sink);
        status = mp4_samples_open(&fromMp4.samples, &mp4, tablePath) != 0 ||
                 reader_open_source(&adtsReader, adts_from_mp4, &fromMp4, adtsSize) != 0;
        if (status == 0) {
            status = aac_decode_reader(&adtsReader, 0, &options, &pcmSink, &stats);
            reader_close(&adtsReader);
        }
        mp4_samples_close(&fromMp4.samples);
        if (fromMp4.failed) {
            tool_error("%s: MP4 sample %u could not be read", shown, fromMp4.next + 1);
            status = 1;
        }
    } else if (fmt.kind == INPUT_LOAS) {
        AdtsFromLoas* fromLoas = calloc(1, sizeof *fromLoas);
        status = !fromLoas;
        if (fromLoas) {
            fromLoas->file = &reader;
            fromLoas->pos = fmt.audioStart;
            fromLoas->quiet = options.quiet;
            reader.limit = fmt.audioEnd;
            status = reader_open_source(&adtsReader, adts_from_loas, fromLoas, TOOL_READER_UNKNOWN);
            if (status == 0) {
                status = aac_decode_reader(&adtsReader, 0, &options, &pcmSink, &stats);
                reader_close(&adtsReader);
            }
            reader.limit = TOOL_READER_UNKNOWN;
            free(fromLoas);
        }
    } else if (isAac) {
        if (fmt.kind == INPUT_ADTS) reader.limit = fmt.audioEnd;
        status = aac_decode_reader(&reader, fmt.kind == INPUT_ADTS ? fmt.audioStart : 0, &options, &pcmSink, &stats);
        reader.limit = TOOL_READER_UNKNOWN;
    } else {
        /* From the start of the file where the reader can go back there (the framing
         * finds the first frame as it always does), else from the first frame. */
        status = mp3_decode_reader(&reader, reader.seekable || reader.start == 0 ? 0 : fmt.audioStart, &options,
                                   &pcmSink, &stats);
    }
    if (reader.error) {
        tool_error("%s: read error: %s", shown, strerror(errno));
        status = 1;
    }
    const double cpu = tool_cpu_seconds() - cpuStart;
    if (sink.lastProgress > 0) fprintf(stderr, "\r%*s\r", 20, "");

    int failed = status != 0 || stats.framesDecoded == 0;
    if (sink.output) {
        finish_wav(&sink);
        if (tool_output_close(&out, !failed) != 0 && !failed) {
            tool_error("writing %s failed: %s", strcmp(out.path, "-") == 0 ? "standard output" : out.path,
                       strerror(errno));
            failed = 1;
        }
    }
    if (!failed && info) {
        StreamSummary summary = {fmt.kind,     stats.framesDecoded, (long long)sink.framesWritten,
                                 sink.sampleRate, sink.channels,    sink.trimmed,
                                 sink.trimSkip,   sink.trimKeep,    fmt.kind == INPUT_MP4 ? &mp4 : NULL,
                                 stats.inputBytes};
        print_stream_info(stdout, shown, &probe, &fmt, &summary);
    }
    if (!failed && compare && compare_with(compare, &sink) != 0) failed = 1;
    free(sink.bytes);
    free(sink.kept);
    mp4_free(&mp4);
    reader_close(&reader);
    if (failed) return TOOL_EXIT_FAILURE;

    if (!quiet && !info) {  /* --info has said it all on stdout */
        const double seconds = sink.sampleRate ? (double)sink.framesWritten / sink.sampleRate : 0;
        fprintf(stderr, "%s: %s, %d Hz, %d channel%s, %.2f s, %ld frames (%ld concealed)", shown,
                fmt.kind == INPUT_MP4 ? "AAC (MP4)" : fmt.kind == INPUT_LOAS ? "AAC (LOAS)" : isAac ? "AAC" : "MP3", sink.sampleRate, sink.channels, sink.channels == 1 ? "" : "s", seconds,
                stats.framesDecoded, stats.framesConcealed);
        if (cpu > 0 && stats.audioSeconds > 0)
            fprintf(stderr, ", %.3f s CPU, %.0fx real time", cpu, stats.audioSeconds / cpu);
        fprintf(stderr, "\n");
    }
    if (options.bench)
        printf("%.3f seconds of audio per CPU second\n", cpu > 0 ? stats.audioSeconds / cpu : 0.0);
    return TOOL_EXIT_OK;
}
