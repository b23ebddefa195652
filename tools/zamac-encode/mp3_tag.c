/* Xing/Info header with the LAME extension. */
#include "mp3_tag.h"

#include <string.h>

#define XING_BYTES 120  /* id, flags, frames, bytes, 100-byte seek table, quality */
#define LAME_BYTES 36

int mp3_tag_min_bytes(int sideInfoBytes) { return 4 + sideInfoBytes + XING_BYTES + LAME_BYTES; }

uint16_t mp3_tag_crc(uint16_t crc, const uint8_t* data, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k) crc = (crc & 1) ? (uint16_t)((crc >> 1) ^ 0xA001) : (uint16_t)(crc >> 1);
    }
    return crc;
}

static uint8_t* put32(uint8_t* p, uint32_t v)
{
    p[0] = (uint8_t)(v >> 24), p[1] = (uint8_t)(v >> 16), p[2] = (uint8_t)(v >> 8), p[3] = (uint8_t)v;
    return p + 4;
}

void mp3_tag_write(const Mp3Tag* t, uint8_t* out)
{
    memset(out, 0, (size_t)t->frameBytes);
    uint8_t* p = out;
    zamsPackFrameHeader_MP3(&t->header, &p);
    p = out + 4 + t->sideInfoBytes;  /* side information: all zero */
    memcpy(p, t->vbr ? "Xing" : "Info", 4);
    p = put32(p + 4, 0x0F);          /* frames, bytes, seek table, quality present */
    p = put32(p, t->frames);
    p = put32(p, t->bytes);
    memcpy(p, t->toc, 100);
    p = put32(p + 100, t->vbr ? 50 : 0);
    /* LAME extension. */
    uint8_t* lame = p;
    memcpy(p, "LAME3.100", 9);       /* the form gapless decoders look for */
    p += 9;
    *p++ = (uint8_t)(t->vbr ? 0x04 : 0x01);                       /* revision 0, VBR method */
    *p++ = (uint8_t)((t->lowpassHz + 50) / 100 > 255 ? 255 : (t->lowpassHz + 50) / 100);
    p += 4 + 2 + 2;                                               /* peak, replay gains */
    *p++ = 0;                                                     /* flags, ATH type */
    *p++ = (uint8_t)(t->bitrate > 255 ? 255 : t->bitrate);
    *p++ = (uint8_t)(t->encoderDelay >> 4);
    *p++ = (uint8_t)(((t->encoderDelay & 15) << 4) | ((t->padding >> 8) & 15));
    *p++ = (uint8_t)t->padding;
    p += 1 + 1 + 2;                                               /* misc, gain, preset */
    p = put32(p, t->bytes);                                       /* music length */
    *p++ = (uint8_t)(t->musicCrc >> 8);
    *p++ = (uint8_t)t->musicCrc;
    const uint16_t crc = mp3_tag_crc(0, out, (size_t)(p - out));
    *p++ = (uint8_t)(crc >> 8);
    *p++ = (uint8_t)crc;
    (void)lame;
}
