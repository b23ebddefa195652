/* Temporary front end of zamac-encode for AAC output, until the tool's command line
 * takes it over: zamac-encode [-b kbps | -q 1..100] [--bandwidth Hz] [--no-ms]
 * [--no-tns] in.wav out.aac */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aac_api.h"
#include "tool_cli.h"
#include "tool_wav.h"

typedef struct {
    WavReader wav;
    int16_t* pcm;
} Input;

static long read_input(void* ctx, float* out, long frames)
{
    Input* in = (Input*)ctx;
    const long got = wav_read_s16(&in->wav, in->pcm, frames);
    for (long i = 0; i < got * in->wav.channels; ++i) out[i] = (float)in->pcm[i];
    return got < 0 ? 0 : got;
}

/* Weak, so that the tool's own command line (main.c), once it takes AAC output over,
 * replaces this one without a clash. */
__attribute__((weak)) int main(int argc, char** argv)
{
    tool_set_name("zamac-encode");
    if (tool_check_cpu() != 0) return TOOL_EXIT_FAILURE;
    AacConfig cfg = {0};
    int kbps = 0, i = 1;
    for (; i < argc && argv[i][0] == '-'; ++i) {
        if (!strcmp(argv[i], "-b") && i + 1 < argc) kbps = atoi(argv[++i]);
        else if (!strcmp(argv[i], "-q") && i + 1 < argc) cfg.quality = atoi(argv[++i]);
        else if (!strcmp(argv[i], "--bandwidth") && i + 1 < argc) cfg.bandwidth = atoi(argv[++i]);
        else if (!strcmp(argv[i], "--no-ms")) cfg.noMidSide = 1;
        else if (!strcmp(argv[i], "--tns")) cfg.tns = 1;
        else if (!strcmp(argv[i], "--no-pns")) cfg.noPns = 1;
        else if (!strcmp(argv[i], "--no-is")) cfg.noIntensity = 1;
        else break;
    }
    if (argc - i != 2) {
        fprintf(stderr, "usage: zamac-encode [-b kbps | -q 1..100] in.wav out.aac\n");
        return TOOL_EXIT_USAGE;
    }
    Input in = {0};
    const char* why = "cannot open";
    FILE* f = fopen(argv[i], "rb");
    if (!f || wav_read_open(&in.wav, f, &why) != 0) {
        tool_error("%s: %s", argv[i], why);
        return TOOL_EXIT_FAILURE;
    }
    cfg.sampleRate = in.wav.sampleRate;
    cfg.channels = in.wav.channels;
    cfg.bitRate = (kbps > 0 ? kbps : 64 * (in.wav.channels > 1 ? 2 : 1)) * 1000;
    in.pcm = (int16_t*)malloc(1024 * sizeof(int16_t) * (size_t)in.wav.channels);
    FILE* out = fopen(argv[i + 1], "wb");
    if (!out || !in.pcm) return TOOL_EXIT_FAILURE;
    AacPcmSource src = {&in, read_input};
    AacEncodeStats st;
    const int r = aac_encode(&cfg, &src, out, &st);
    fclose(out);
    fclose(f);
    free(in.pcm);
    return r == 0 ? TOOL_EXIT_OK : TOOL_EXIT_FAILURE;
}
