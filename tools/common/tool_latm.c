#include "tool_latm.h"

#include <string.h>

/* LatmGetValue() */
static uint32_t latm_value(Mp4Bits* b)
{
    const int bytes = (int)mp4_bits(b, 2) + 1;
    uint32_t v = 0;
    for (int i = 0; i < bytes; ++i) v = v << 8 | mp4_bits(b, 8);
    return v;
}

static int read_asc(Mp4Bits* b, Mp4Track* t, const char** why)
{
    memset(t, 0, sizeof *t);
    mp4_read_asc_head(b, t);
    const int type = t->coreObjectType;
    if (type != 1 && type != 2 && type != 4) {
        *why = "the LATM stream's AAC object type is not Main, LC or LTP";
        return -1;
    }
    if (t->samplingIndex < 0 || t->sampleRate == 0) {
        *why = "the LATM stream's sampling rate has no index";
        return -1;
    }
    mp4_bits(b, 1);                         /* frameLengthFlag */
    if (mp4_bits(b, 1)) mp4_bits(b, 14);     /* dependsOnCoreCoder: coreCoderDelay */
    const int extensionFlag = (int)mp4_bits(b, 1);
    if (t->channelConfiguration == 0) {
        *why = "a LATM stream with a program config element is not read";
        return -1;
    }
    if (extensionFlag) mp4_bits(b, 1);      /* extensionFlag3 (object types 1, 2, 4 have no more) */
    return 0;
}

/* StreamMuxConfig() */
static int read_config(LatmState* s, Mp4Bits* b, const char** why)
{
    s->audioMuxVersion = (int)mp4_bits(b, 1);
    if (s->audioMuxVersion && mp4_bits(b, 1)) {
        *why = "LATM audioMuxVersionA 1 is not read";
        return -1;
    }
    if (s->audioMuxVersion) latm_value(b); /* taraBufferFullness */
    mp4_bits(b, 1);                             /* allStreamsSameTimeFraming */
    s->numSubFrames = (int)mp4_bits(b, 6);
    if (mp4_bits(b, 4) != 0 || mp4_bits(b, 3) != 0) {
        *why = "a LATM stream of more than one program or layer is not read";
        return -1;
    }
    if (s->audioMuxVersion) {
        const uint32_t length = latm_value(b);
        const size_t start = b->pos;
        if (read_asc(b, &s->config, why) != 0) return -1;
        b->pos = start + length;
    } else if (read_asc(b, &s->config, why) != 0) {
        return -1;
    }
    if (mp4_bits(b, 3) != 0) {
        *why = "LATM frameLengthType other than 0 is not read";
        return -1;
    }
    mp4_bits(b, 8); /* latmBufferFullness */
    s->otherDataPresent = (int)mp4_bits(b, 1);
    s->otherDataBits = 0;
    if (s->otherDataPresent) {
        if (s->audioMuxVersion) {
            s->otherDataBits = latm_value(b);
        } else {
            int escape;
            do {
                escape = (int)mp4_bits(b, 1);
                s->otherDataBits = s->otherDataBits << 8 | mp4_bits(b, 8);
            } while (escape && !b->overrun);
        }
    }
    if (mp4_bits(b, 1)) mp4_bits(b, 8); /* crcCheckPresent: crcCheckSum */
    if (b->overrun) {
        *why = "damaged LATM StreamMuxConfig";
        return -1;
    }
    s->configured = 1;
    return 0;
}

size_t loas_frame_length(const uint8_t* p, size_t left)
{
    if (left < 3 || p[0] != 0x56 || (p[1] & 0xE0) != 0xE0) return 0;
    return 3 + ((size_t)(p[1] & 0x1F) << 8 | p[2]);
}

int latm_read_element(LatmState* s, const uint8_t* p, size_t size, uint8_t* out, size_t outSize, uint32_t* lengths,
                      const char** why)
{
    Mp4Bits b = {p, size * 8, 0, 0};
    if (!mp4_bits(&b, 1)) {
        if (read_config(s, &b, why) != 0) {
            s->configured = 0;
            return -1;
        }
    } else if (!s->configured) {
        *why = "LATM frame before the first StreamMuxConfig";
        return -1;
    }
    size_t used = 0;
    const int payloads = s->numSubFrames + 1;
    for (int i = 0; i < payloads; ++i) {
        size_t length = 0;
        uint32_t part;
        do {
            part = mp4_bits(&b, 8);
            length += part;
        } while (part == 255 && !b.overrun);
        if (b.overrun || length > (b.bits - b.pos) / 8 || length > outSize - used) {
            *why = "a LATM payload runs past its frame";
            return -1;
        }
        for (size_t k = 0; k < length; ++k) out[used + k] = (uint8_t)mp4_bits(&b, 8);
        used += length;
        lengths[i] = (uint32_t)length;
    }
    return payloads;
}
