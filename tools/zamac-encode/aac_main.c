/*
 * zamac-encode, AAC-LC output: the command line of an AAC run, chosen by main.c when
 * the output name ends in .aac or --aac is given. The same spelling as the MP3 side
 * (lame's), plus the AAC tools' switches.
 *
 * The road of a run: options (getopt_long), processor check, the WAVE header
 * (tools/common), aac_encode() frame by frame as the samples arrive, ADTS written
 * with checked writes under a temporary name.
 */
#include <errno.h>
#include <getopt.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "aac_api.h"
#include "encoder.h"
#include "tool_cli.h"
#include "tool_output.h"
#include "tool_wav.h"

static void usage(FILE* out)
{
    fprintf(out,
            "usage: %s --aac [options] <infile> [outfile]\n"
            "       %s [options] <infile> <outfile.aac>\n"
            "\n"
            "    AAC-LC in ADTS. <infile> is a WAVE file (any PCM or float format) with 1 to 6\n"
            "    channels (WAVE order: FL FR FC LFE BL BR) at 8 to 96 kHz; \"-\" is stdin/stdout.\n"
            "    Without <outfile> the output is <infile> with the extension .aac.\n"
            "\n"
            "Options:\n"
            "    -b bitrate      average bit rate in kbps, all channels (default 64 per channel,\n"
            "                    at most 6 x the sampling rate in kHz per channel)\n"
            "    -V n            variable bit rate by quality, 0 = best, 9 = smallest\n"
            "    --he            HE-AAC v1: AAC-LC at half the rate plus spectral band\n"
            "                    replication (SBR, signalled implicitly), for mono or stereo\n"
            "                    at 32, 44.1 or 48 kHz; -b 24 to 64 stereo (default 48),\n"
            "                    16 to 48 mono (default 32)\n"
            "    --lowpass freq  audio bandwidth in kHz (default: chosen from the rate; not\n"
            "                    with --he, where the SBR range sets the core's bandwidth)\n"
            "    --no-ms         no mid/side stereo\n"
            "    --no-is         no intensity stereo (used below 32 kbps per channel)\n"
            "    --no-pns        no noise substitution (used below 64 kbps per channel)\n"
            "    --no-tns        no temporal noise shaping (used in long windows)\n"
            "    --fixed         the integer analysis filter bank instead of the float MDCT\n"
            "    --quiet         no summary\n"
            "    -h, --help      this text\n"
            "    --version       the version of the tool and the library\n",
            tool_name(), tool_name());
}

int aac_wanted(int argc, char** argv)
{
    const char* last = NULL;
    for (int i = 1; i < argc; ++i) {
        if (!strcmp(argv[i], "--aac") || !strcmp(argv[i], "--he")) return 1;
        if (argv[i][0] != '-' || !strcmp(argv[i], "-")) last = argv[i];
    }
    const size_t n = last ? strlen(last) : 0;
    return n > 4 && !strcmp(last + n - 4, ".aac");
}

typedef struct {
    WavReader wav;
    int16_t* pcm;
    int failed;
} Input;

static long read_input(void* ctx, float* out, long frames)
{
    Input* in = (Input*)ctx;
    const long got = wav_read_s16(&in->wav, in->pcm, frames);
    if (got < 0) {
        in->failed = 1;
        return 0;
    }
    for (long i = 0; i < got * in->wav.channels; ++i) out[i] = (float)in->pcm[i];
    return got;
}

static int write_output(void* ctx, const void* bytes, size_t count)
{
    return tool_output_write((ToolOutput*)ctx, bytes, count);
}

int aac_main(int argc, char** argv)
{
    AacConfig cfg = {0};
    int kbps = 0, vbr = -1, quiet = 0, he = 0;
    enum { OPT_AAC = 256, OPT_HE, OPT_LOWPASS, OPT_NO_MS, OPT_NO_IS, OPT_NO_PNS, OPT_TNS, OPT_FIXED, OPT_QUIET, OPT_VERSION };
    static const struct option longOptions[] = {
        {"aac", no_argument, NULL, OPT_AAC},         {"help", no_argument, NULL, 'h'},
        {"he", no_argument, NULL, OPT_HE},
        {"lowpass", required_argument, NULL, OPT_LOWPASS}, {"no-ms", no_argument, NULL, OPT_NO_MS},
        {"no-is", no_argument, NULL, OPT_NO_IS},     {"no-pns", no_argument, NULL, OPT_NO_PNS},
        {"no-tns", no_argument, NULL, OPT_TNS},         {"quiet", no_argument, NULL, OPT_QUIET},
        {"fixed", no_argument, NULL, OPT_FIXED},
        {"silent", no_argument, NULL, OPT_QUIET},    {"version", no_argument, NULL, OPT_VERSION},
        {NULL, 0, NULL, 0}};
    int opt;
    optind = 1;
    while ((opt = getopt_long(argc, argv, "b:V:h", longOptions, NULL)) != -1) {
        switch (opt) {
        case 'b':
            if (option_kbps(optarg, &kbps) != 0) return TOOL_EXIT_USAGE;
            break;
        case 'V':
            if (option_quality(optarg, &vbr) != 0) return TOOL_EXIT_USAGE;
            break;
        case OPT_LOWPASS:
            if (option_lowpass_hz(optarg, &cfg.bandwidth) != 0) return TOOL_EXIT_USAGE;
            break;
        case OPT_AAC: break;
        case OPT_HE: he = 1; break;
        case OPT_NO_MS: cfg.noMidSide = 1; break;
        case OPT_NO_IS: cfg.noIntensity = 1; break;
        case OPT_NO_PNS: cfg.noPns = 1; break;
        case OPT_TNS: cfg.noTns = 1; break;
        case OPT_FIXED: cfg.fixedBank = 1; break;
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
    if (kbps && vbr >= 0) {
        tool_error("-b and -V exclude each other");
        return TOOL_EXIT_USAGE;
    }
    if (he && vbr >= 0) {
        tool_error("--he encodes at an average bit rate (-b), not by quality (-V)");
        return TOOL_EXIT_USAGE;
    }
    if (he && cfg.bandwidth) {
        tool_error("--he sets the core's bandwidth itself (where the SBR range starts); no --lowpass");
        return TOOL_EXIT_USAGE;
    }
    if (tool_check_cpu()) return TOOL_EXIT_FAILURE;

    const char* inPath = argv[optind];
    FILE* f = strcmp(inPath, "-") ? fopen(inPath, "rb") : stdin;
    if (!f) {
        tool_error("%s: %s", inPath, strerror(errno));
        return TOOL_EXIT_FAILURE;
    }
    Input in = {0};
    const char* why = NULL;
    if (wav_read_open(&in.wav, f, &why)) {
        tool_error("%s: %s", inPath, why);
        return TOOL_EXIT_FAILURE;
    }
    cfg.sampleRate = in.wav.sampleRate;
    cfg.channels = in.wav.channels;
    cfg.quality = vbr >= 0 ? 95 - 10 * vbr : 0;
    const int coded = cfg.channels >= 6 ? 5 : cfg.channels;
    cfg.bitRate = (kbps > 0 ? kbps : he ? (cfg.channels == 1 ? 32 : 48) : 64 * coded) * 1000;
    const int most = 6 * cfg.sampleRate * cfg.channels;
    if (he) {
        if (!he_aac_supported(cfg.sampleRate, cfg.channels, cfg.bitRate, &why)) {
            tool_error("--he: %s (input: %d Hz, %d channel%s, %d kbps)", why, cfg.sampleRate, cfg.channels,
                       cfg.channels > 1 ? "s" : "", cfg.bitRate / 1000);
            return TOOL_EXIT_USAGE;
        }
    } else if (cfg.quality == 0 && cfg.bitRate > most) {
        tool_error("-b %d: at most %d kbps at %d Hz with %d channels", kbps, most / 1000, cfg.sampleRate,
                   cfg.channels);
        return TOOL_EXIT_USAGE;
    }
    char* outPath = argc - optind == 2 ? strdup(argv[optind + 1]) : tool_output_name(inPath, ".aac");
    in.pcm = (int16_t*)malloc(1024 * sizeof(int16_t) * (size_t)(cfg.channels > 0 ? cfg.channels : 1));
    ToolOutput out;
    if (!outPath || !in.pcm || tool_output_open(&out, outPath)) {
        tool_error("%s: %s", outPath ? outPath : "output", strerror(errno));
        free(outPath);
        free(in.pcm);
        return TOOL_EXIT_FAILURE;
    }
    if (!quiet)
        fprintf(stderr, "Encoding %s to %s\nEncoding as %s, %d Hz, %d channel%s, %s %d%s\n", inPath, outPath,
                he ? "HE-AAC (SBR)" : "AAC-LC", cfg.sampleRate, cfg.channels, cfg.channels > 1 ? "s" : "", cfg.quality ? "quality" : "average",
                cfg.quality ? vbr : kbps ? kbps : cfg.bitRate / 1000, cfg.quality ? " (VBR)" : " kbps");

    const double start = tool_cpu_seconds();
    AacPcmSource source = {&in, read_input};
    AacSink sink = {&out, write_output};
    AacEncodeStats stats;
    int status = (he ? he_aac_encode : aac_encode)(&cfg, &source, &sink, &stats) == 0 && !in.failed ? TOOL_EXIT_OK : TOOL_EXIT_FAILURE;
    if (in.failed) tool_error("%s: read error", inPath);
    if (f != stdin) fclose(f);
    free(in.pcm);
    if (tool_output_close(&out, status == TOOL_EXIT_OK)) {
        if (status == TOOL_EXIT_OK) tool_error("%s: %s", outPath, strerror(errno));
        status = TOOL_EXIT_FAILURE;
    } else if (!quiet) {
        const double seconds = tool_cpu_seconds() - start;
        fprintf(stderr, "%ld bytes, %ld frames (%ld with short windows), %.2f s CPU\n", stats.bytes, stats.frames,
                stats.shortFrames, seconds);
    }
    free(outPath);
    return status;
}
