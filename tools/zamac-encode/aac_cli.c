/* Temporary front end of zamac-encode for AAC output: zamac-encode [-b kbps] [-q N] in.wav out.aac */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aac_api.h"

typedef struct {
    FILE* f;
    int channels, bits, isFloat;
    long left; /* frames left */
} Wav;

static uint32_t le32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | (uint32_t)p[3] << 24; }

static int wav_open(Wav* w, const char* path, int* rate)
{
    uint8_t h[12], c[8];
    w->f = fopen(path, "rb");
    if (!w->f || fread(h, 1, 12, w->f) != 12 || memcmp(h, "RIFF", 4) || memcmp(h + 8, "WAVE", 4)) return -1;
    while (fread(c, 1, 8, w->f) == 8) {
        const uint32_t size = le32(c + 4);
        if (!memcmp(c, "fmt ", 4)) {
            uint8_t f[40] = {0};
            if (fread(f, 1, size < 40 ? size : 40, w->f) < 16) return -1;
            if (size > 40) fseek(w->f, (long)(size - 40), SEEK_CUR);
            int tag = f[0] | f[1] << 8;
            if (tag == 0xFFFE && size >= 26) tag = f[24] | f[25] << 8;
            w->channels = f[2] | f[3] << 8;
            *rate = (int)le32(f + 4);
            w->bits = f[14] | f[15] << 8;
            w->isFloat = tag == 3;
        } else if (!memcmp(c, "data", 4)) {
            w->left = (long)(size / (uint32_t)(w->channels * (w->bits / 8)));
            return w->channels > 0 ? 0 : -1;
        } else {
            fseek(w->f, (long)(size + (size & 1)), SEEK_CUR);
        }
    }
    return -1;
}

static long wav_read(void* ctx, float* out, long frames)
{
    Wav* w = (Wav*)ctx;
    if (frames > w->left) frames = w->left;
    const int bytes = w->bits / 8;
    uint8_t buf[4096 * 8];
    long done = 0;
    while (done < frames) {
        long n = frames - done;
        const long cap = (long)sizeof buf / (bytes * w->channels);
        if (n > cap) n = cap;
        const long got = (long)fread(buf, (size_t)(bytes * w->channels), (size_t)n, w->f);
        for (long i = 0; i < got * w->channels; ++i) {
            const uint8_t* p = buf + i * bytes;
            float v;
            if (w->isFloat) {
                float f;
                memcpy(&f, p, 4);
                v = f * 32768.0f;
            } else if (bytes == 2) {
                v = (float)(int16_t)(p[0] | p[1] << 8);
            } else if (bytes == 3) {
                v = (float)((int32_t)((uint32_t)p[0] << 8 | (uint32_t)p[1] << 16 | (uint32_t)p[2] << 24) >> 8) / 256.0f;
            } else if (bytes == 4) {
                v = (float)(int32_t)le32(p) / 65536.0f;
            } else {
                v = ((float)p[0] - 128.0f) * 256.0f;
            }
            out[done * w->channels + i] = v;
        }
        done += got;
        if (got < n) break;
    }
    w->left -= done;
    return done;
}

int main(int argc, char** argv)
{
    AacConfig cfg = {0};
    int kbps = 0, i = 1;
    for (; i < argc && argv[i][0] == '-'; ++i) {
        if (!strcmp(argv[i], "-b") && i + 1 < argc) kbps = atoi(argv[++i]);
        else if (!strcmp(argv[i], "-q") && i + 1 < argc) cfg.quality = atoi(argv[++i]);
        else if (!strcmp(argv[i], "--bandwidth") && i + 1 < argc) cfg.bandwidth = atoi(argv[++i]);
        else if (!strcmp(argv[i], "--no-ms")) cfg.noMidSide = 1;
        else if (!strcmp(argv[i], "--no-tns")) cfg.noTns = 1;
        else break;
    }
    if (argc - i != 2) {
        fprintf(stderr, "usage: zamac-encode [-b kbps | -q 1..100] in.wav out.aac\n");
        return 2;
    }
    Wav w = {0};
    if (wav_open(&w, argv[i], &cfg.sampleRate) != 0) {
        fprintf(stderr, "zamac-encode: cannot read %s\n", argv[i]);
        return 1;
    }
    cfg.channels = w.channels;
    cfg.bitRate = (kbps > 0 ? kbps : 64 * (w.channels > 1 ? 2 : 1)) * 1000;
    FILE* out = fopen(argv[i + 1], "wb");
    if (!out) return 1;
    AacPcmSource src = {&w, wav_read};
    AacEncodeStats st;
    const int r = aac_encode(&cfg, &src, out, &st);
    fclose(out);
    fclose(w.f);
    return r == 0 ? 0 : 1;
}
