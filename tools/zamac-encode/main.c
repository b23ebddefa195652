/*
 * zamac-encode: encodes a WAVE file (16-bit PCM, mono or stereo) to MP3 (MPEG-1
 * Layer III at 32, 44.1 and 48 kHz; MPEG-2 Layer III at 16, 22.05 and 24 kHz).
 *
 * The road of a run, top to bottom:
 *   options      getopt_long, in lame's spelling; errors exit with 2
 *   processor    the library needs AVX2 and FMA: a clear message instead of a crash
 *   input        the WAVE header (tools/common), then blocks of samples
 *   encoding     mp3_encoder.c, frame by frame as the samples arrive; progress on stderr
 *   output       the finished stream, Xing/Info frame first (its counts known only at
 *                the end), written with checked writes under a temporary name
 *
 * Exit status: 0 encoded, 1 failed (unreadable input, a write failed), 2 bad
 * command line.
 */
#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "aac_api.h"
#include "encoder.h"
#include "mp3_encoder.h"
#include "tool_cli.h"
#include "tool_output.h"
#include "tool_wav.h"

static void usage(FILE* out)
{
    fprintf(out,
            "usage: %s [options] <infile> [outfile]\n"
            "\n"
            "    <infile> and/or <outfile> can be \"-\", which means stdin/stdout.\n"
            "    <infile> is a WAVE file, 16-bit PCM, mono or stereo, at 32, 44.1 or 48 kHz\n"
            "    (MPEG-1) or 16, 22.05 or 24 kHz (MPEG-2); without <outfile> the output is\n"
            "    <infile> with the extension .mp3.\n"
            "\n"
            "Options:\n"
            "    -b bitrate      constant bit rate in kbps (default 128; 64 for MPEG-2)\n"
            "                    MPEG-1: 32 40 48 56 64 80 96 112 128 160 192 224 256 320\n"
            "                    MPEG-2: 8 16 24 32 40 48 56 64 80 96 112 128 144 160\n"
            "    -V n            variable bit rate by quality, 0 = best, 9 = smallest\n"
            "    -m mode         (j)oint stereo (default for stereo input), (s)tereo,\n"
            "                    (m)ono (a stereo input is mixed down)\n"
            "    --lowpass freq  low-pass cut-off in kHz (default: chosen from the rate)\n"
            "    -t              no Xing/Info frame (no gapless delay and padding)\n"
            "    --quiet         no progress and no summary\n"
            "    --silent        the same\n"
            "    --aac           AAC-LC (ADTS) instead of MP3, as an output name ending in\n"
            "                    .aac also chooses; --aac --help lists the AAC options\n"
            "    --he            HE-AAC v1 (AAC-LC core at half rate + SBR, in ADTS)\n"
            "    -h, --help      this text\n"
            "    --version       the version of the tool and the library\n",
            tool_name());
}

static void progress(long frame, long total, int final)
{
    if (total > 0)
        fprintf(stderr, "\rFrame# %6ld/%ld (%3d%%)%s", frame, total, (int)(100.0 * frame / total), final ? "\n" : "");
    else
        fprintf(stderr, "\rFrame# %6ld%s", frame, final ? "\n" : "");
}

int main(int argc, char** argv)
{
    tool_set_name("zamac-encode");
    if (aac_wanted(argc, argv)) return aac_main(argc, argv); /* AAC-LC: aac_main.c */
    EncoderSettings set = {0};
    set.vbrQuality = -1;
    set.writeTag = 1;
    int quiet = 0;
    enum { OPT_LOWPASS = 256, OPT_QUIET, OPT_VERSION };
    static const struct option longOptions[] = {{"help", no_argument, NULL, 'h'},
                                                {"lowpass", required_argument, NULL, OPT_LOWPASS},
                                                {"quiet", no_argument, NULL, OPT_QUIET},
                                                {"silent", no_argument, NULL, OPT_QUIET},
                                                {"version", no_argument, NULL, OPT_VERSION},
                                                {NULL, 0, NULL, 0}};
    int opt;
    while ((opt = getopt_long(argc, argv, "b:V:m:th", longOptions, NULL)) != -1) {
        switch (opt) {
        case 'b':
            if (option_kbps(optarg, &set.bitrate) != 0) return TOOL_EXIT_USAGE;
            break;
        case 'V':
            if (option_quality(optarg, &set.vbrQuality) != 0) return TOOL_EXIT_USAGE;
            break;
        case 'm':
            if (!strcmp(optarg, "j")) set.mode = CHANNELS_JOINT;
            else if (!strcmp(optarg, "s")) set.mode = CHANNELS_STEREO;
            else if (!strcmp(optarg, "m")) set.mode = CHANNELS_MONO;
            else {
                tool_error("-m: mode is j, s or m: %s", optarg);
                return TOOL_EXIT_USAGE;
            }
            break;
        case OPT_LOWPASS:
            if (option_lowpass_hz(optarg, &set.lowpassHz) != 0) return TOOL_EXIT_USAGE;
            break;
        case 't': set.writeTag = 0; break;
        case OPT_QUIET: quiet = 1; break;
        case OPT_VERSION: tool_print_version(stdout); return TOOL_EXIT_OK;
        case 'h': usage(stdout); return TOOL_EXIT_OK;
        default: usage(stderr); return TOOL_EXIT_USAGE;
        }
    }
    if (optind >= argc || argc - optind > 2) {
        usage(stderr);
        return TOOL_EXIT_USAGE;
    }
    if (set.bitrate && set.vbrQuality >= 0) {
        tool_error("-b and -V exclude each other");
        return TOOL_EXIT_USAGE;
    }
    if (tool_check_cpu()) return TOOL_EXIT_FAILURE;

    /* Input. */
    const char* inPath = argv[optind];
    FILE* in = strcmp(inPath, "-") ? fopen(inPath, "rb") : stdin;
    if (!in) {
        tool_error("%s: %s", inPath, strerror(errno));
        return TOOL_EXIT_FAILURE;
    }
    WavReader wav;
    const char* why = NULL;
    if (wav_read_open(&wav, in, &why)) {
        tool_error("%s: %s", inPath, why);
        return TOOL_EXIT_FAILURE;
    }
    if (wav.channels > 2) {
        tool_error("%s: %d channels; only mono and stereo are supported", inPath, wav.channels);
        return TOOL_EXIT_FAILURE;
    }
    set.sampleRate = wav.sampleRate;
    set.inputChannels = wav.channels;
    const int mpeg1 = wav.sampleRate >= 32000;
    if (!set.bitrate && set.vbrQuality < 0) set.bitrate = mpeg1 ? 128 : 64;

    Mp3Encoder* enc = mp3_encoder_open(&set, &why);
    if (!enc) {
        tool_error("%s", why);
        return TOOL_EXIT_FAILURE;
    }
    char* outPath = argc - optind == 2 ? strdup(argv[optind + 1]) : tool_output_name(inPath, ".mp3");
    const long total = wav.frames != UINT64_MAX ? mp3_encoder_frames_for(enc, (long long)wav.frames) : 0;
    if (!quiet) {
        char text[128];
        mp3_encoder_describe(enc, text, sizeof text);
        fprintf(stderr, "Encoding %s to %s\nEncoding as %s\n", inPath, outPath, text);
    }

    /* Encoding. */
    const double start = tool_cpu_seconds();
    enum { BLOCK = 4096 };
    int16_t* block = malloc(sizeof(int16_t) * BLOCK * 2);
    int status = block ? TOOL_EXIT_OK : TOOL_EXIT_FAILURE;
    long lastShown = -1000;
    for (;;) {
        if (status != TOOL_EXIT_OK) break;
        const long n = wav_read_s16(&wav, block, BLOCK);
        if (n < 0) {
            tool_error("%s: read error", inPath);
            status = TOOL_EXIT_FAILURE;
            break;
        }
        if (n == 0) break;
        if (mp3_encoder_push(enc, block, n)) status = TOOL_EXIT_FAILURE;
        const long frames = mp3_encoder_frames(enc);
        if (!quiet && frames - lastShown >= 100) {
            progress(frames, total, 0);
            lastShown = frames;
        }
    }
    free(block);
    if (in != stdin) fclose(in);
    if (status == TOOL_EXIT_OK && mp3_encoder_finish(enc)) status = TOOL_EXIT_FAILURE;
    if (status != TOOL_EXIT_OK) {
        tool_error("encoding failed (out of memory)");
        mp3_encoder_close(enc);
        free(outPath);
        return status;
    }
    const double seconds = tool_cpu_seconds() - start;
    if (!quiet) progress(mp3_encoder_frames(enc), mp3_encoder_frames(enc), 1);

    /* Output. */
    ToolOutput out;
    if (tool_output_open(&out, outPath)) {
        tool_error("%s: %s", outPath, strerror(errno));
        mp3_encoder_close(enc);
        free(outPath);
        return TOOL_EXIT_FAILURE;
    }
    const ByteBuffer* stream = mp3_encoder_stream(enc);
    tool_output_write(&out, stream->data, stream->size);
    if (tool_output_close(&out, 1)) {
        tool_error("%s: %s", outPath, strerror(errno));
        status = TOOL_EXIT_FAILURE;
    } else if (!quiet) {
        fprintf(stderr, "%zu bytes, %ld frames, %.2f s CPU\n", stream->size, mp3_encoder_frames(enc), seconds);
    }
    mp3_encoder_close(enc);
    free(outPath);
    return status;
}
