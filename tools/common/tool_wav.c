#include "tool_wav.h"

#include <math.h>
#include <string.h>

static void put16(uint8_t* p, uint32_t v)
{
    p[0] = (uint8_t)v;
    p[1] = (uint8_t)(v >> 8);
}

static void put32(uint8_t* p, uint32_t v)
{
    put16(p, v & 0xFFFF);
    put16(p + 2, v >> 16);
}

static uint32_t get16(const uint8_t* p) { return (uint32_t)p[0] | (uint32_t)p[1] << 8; }
static uint32_t get32(const uint8_t* p) { return get16(p) | get16(p + 2) << 16; }

int wav_sample_bytes(WavSampleFormat format) { return format == WAV_S16 ? 2 : format == WAV_S24 ? 3 : 4; }

int wav_parse_format(const char* text)
{
    if (strcmp(text, "s16") == 0) return WAV_S16;
    if (strcmp(text, "s24") == 0) return WAV_S24;
    if (strcmp(text, "f32") == 0) return WAV_F32;
    return -1;
}

size_t wav_header(uint8_t* h, int sampleRate, int channels, uint32_t channelMask, WavSampleFormat format,
                  uint32_t dataBytes)
{
    const int plainMask = channelMask == 0 || channelMask == (channels == 1 ? 0x4u : 0x3u);
    const int extensible = channels > 2 || !plainMask || format == WAV_S24;
    /* A non-PCM format tag carries the cbSize word (0) even without an extension. */
    const uint32_t fmtBytes = extensible ? 40 : format == WAV_F32 ? 18 : 16;
    const uint32_t bytes = (uint32_t)wav_sample_bytes(format);
    const uint32_t blockAlign = (uint32_t)channels * bytes;
    const uint32_t formatTag = format == WAV_F32 ? 3 : 1;
    memcpy(h, "RIFF", 4);
    const uint64_t riff = 4 + (8 + fmtBytes) + 8 + (uint64_t)dataBytes;
    put32(h + 4, riff > 0xFFFFFFFFu ? 0xFFFFFFFFu : (uint32_t)riff);
    memcpy(h + 8, "WAVEfmt ", 8);
    put32(h + 16, fmtBytes);
    put16(h + 20, extensible ? 0xFFFE : formatTag);
    put16(h + 22, (uint32_t)channels);
    put32(h + 24, (uint32_t)sampleRate);
    put32(h + 28, (uint32_t)sampleRate * blockAlign);
    put16(h + 32, blockAlign);
    put16(h + 34, bytes * 8);
    size_t n = 36;
    if (fmtBytes == 18) {
        put16(h + 36, 0);
        n = 38;
    }
    if (extensible) {
        /* KSDATAFORMAT_SUBTYPE_PCM / _IEEE_FLOAT: 0000000x-0000-0010-8000-00aa00389b71 */
        static const uint8_t kGuidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                              0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
        put16(h + 36, 22);
        put16(h + 38, bytes * 8);
        put32(h + 40, channelMask);
        put16(h + 44, formatTag);
        memcpy(h + 46, kGuidTail, 14);
        n = 60;
    }
    memcpy(h + n, "data", 4);
    put32(h + n + 4, dataBytes);
    return n + 8;
}

size_t wav_pack_s16(const int16_t* in, size_t count, WavSampleFormat format, uint8_t* out)
{
    uint8_t* p = out;
    for (size_t i = 0; i < count; ++i) {
        const int32_t v = in[i];
        if (format == WAV_S16) {
            put16(p, (uint32_t)v);
            p += 2;
        } else if (format == WAV_S24) {
            const uint32_t w = (uint32_t)v << 8;
            p[0] = (uint8_t)w;
            put16(p + 1, w >> 8);
            p += 3;
        } else {
            float f = (float)v * (1.0f / 32768.0f);
            memcpy(p, &f, 4);
            p += 4;
        }
    }
    return (size_t)(p - out);
}

static int32_t round_clip(float v, float scale, int32_t limit)
{
    const float s = v * scale;
    if (!(s > -(float)limit - 1.0f)) return -limit - 1;  /* also NaN */
    if (s >= (float)limit) return limit;
    return (int32_t)lrintf(s);
}

size_t wav_pack_f32(const float* in, size_t count, float scale, WavSampleFormat format, uint8_t* out)
{
    uint8_t* p = out;
    for (size_t i = 0; i < count; ++i) {
        if (format == WAV_S16) {
            put16(p, (uint32_t)round_clip(in[i], scale, 32767));
            p += 2;
        } else if (format == WAV_S24) {
            const uint32_t w = (uint32_t)round_clip(in[i], scale * 256.0f, 8388607);
            p[0] = (uint8_t)w;
            put16(p + 1, w >> 8);
            p += 3;
        } else {
            const float f = in[i] * scale * (1.0f / 32768.0f);
            memcpy(p, &f, 4);
            p += 4;
        }
    }
    return (size_t)(p - out);
}

/* ------------------------------------------------------------------ reader */

int wav_read_open(WavReader* r, FILE* file, const char** why)
{
    uint8_t h[12], chunk[8], fmt[40];
    memset(r, 0, sizeof *r);
    r->file = file;
    if (fread(h, 1, 12, file) != 12 || memcmp(h, "RIFF", 4) != 0 || memcmp(h + 8, "WAVE", 4) != 0) {
        *why = "not a WAVE file";
        return -1;
    }
    int haveFormat = 0;
    for (;;) {
        if (fread(chunk, 1, 8, file) != 8) {
            *why = "no data chunk in the WAVE file";
            return -1;
        }
        uint32_t size = get32(chunk + 4);
        if (memcmp(chunk, "fmt ", 4) == 0) {
            if (size < 16 || size > 0xFFFF) {
                *why = "bad WAVE format chunk";
                return -1;
            }
            const size_t keep = size < sizeof fmt ? size : sizeof fmt;
            if (fread(fmt, 1, keep, file) != keep) {
                *why = "truncated WAVE format chunk";
                return -1;
            }
            for (uint32_t skip = (uint32_t)(size - keep) + (size & 1); skip > 0; --skip)
                if (fgetc(file) == EOF) break;
            uint32_t tag = get16(fmt);
            r->channels = (int)get16(fmt + 2);
            r->sampleRate = (int)get32(fmt + 4);
            r->bitsPerSample = (int)get16(fmt + 14);
            if (tag == 0xFFFE && keep >= 40) {
                r->channelMask = get32(fmt + 20);
                tag = get16(fmt + 24);
            }
            r->isFloat = tag == 3;
            const int pcmOk = tag == 1 && (r->bitsPerSample == 8 || r->bitsPerSample == 16 ||
                                           r->bitsPerSample == 24 || r->bitsPerSample == 32);
            if (!pcmOk && !(r->isFloat && r->bitsPerSample == 32)) {
                *why = "unsupported WAVE sample format (PCM 8/16/24/32-bit or 32-bit float are read)";
                return -1;
            }
            if (r->channels < 1 || r->channels > 64 || r->sampleRate < 1) {
                *why = "bad channel count or sampling rate in the WAVE file";
                return -1;
            }
            haveFormat = 1;
        } else if (memcmp(chunk, "data", 4) == 0) {
            if (!haveFormat) {
                *why = "WAVE data chunk before its format chunk";
                return -1;
            }
            const uint64_t frameBytes = (uint64_t)r->channels * (uint64_t)(r->bitsPerSample / 8);
            /* 0 and 0xFFFFFFFF are what streaming writers leave: read to the end. */
            r->frames = (size == 0 || size == 0xFFFFFFFFu) ? UINT64_MAX : size / frameBytes;
            r->framesLeft = r->frames;
            return 0;
        } else {
            for (uint64_t skip = (uint64_t)size + (size & 1); skip > 0; --skip)
                if (fgetc(file) == EOF) break;
        }
    }
}

long wav_read_s16(WavReader* r, int16_t* out, long maxFrames)
{
    const int bytes = r->bitsPerSample / 8;
    const int channels = r->channels;
    uint8_t buffer[4096];
    const long perRead = (long)(sizeof buffer / (size_t)(bytes * channels));
    long done = 0;
    while (done < maxFrames && r->framesLeft > 0 && perRead > 0) {
        long want = maxFrames - done < perRead ? maxFrames - done : perRead;
        if ((uint64_t)want > r->framesLeft) want = (long)r->framesLeft;
        const size_t got = fread(buffer, (size_t)(bytes * channels), (size_t)want, r->file);
        for (size_t i = 0; i < got * (size_t)channels; ++i) {
            const uint8_t* p = buffer + i * (size_t)bytes;
            int32_t v;
            if (r->isFloat) {
                float f;
                memcpy(&f, p, 4);
                v = round_clip(f, 32768.0f, 32767);
            } else if (bytes == 1) {
                v = ((int32_t)p[0] - 128) << 8;
            } else if (bytes == 2) {
                v = (int16_t)get16(p);
            } else {
                const int32_t wide = bytes == 3 ? (int32_t)(get16(p + 1) << 16 | (uint32_t)p[0] << 8)
                                                : (int32_t)get32(p);
                const int64_t rounded = ((int64_t)wide + 32768) >> 16;
                v = rounded > 32767 ? 32767 : (int32_t)rounded;
            }
            out[(size_t)done * (size_t)channels + i] = (int16_t)v;
        }
        done += (long)got;
        if (r->framesLeft != UINT64_MAX) r->framesLeft -= got;
        if ((long)got < want) {
            if (ferror(r->file)) return -1;
            r->framesLeft = 0;
        }
    }
    return done;
}
