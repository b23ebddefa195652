#include "wav.h"

#include <string.h>

static void put_le16(uint8_t* p, uint32_t v)
{
    p[0] = (uint8_t)v;
    p[1] = (uint8_t)(v >> 8);
}

static void put_le32(uint8_t* p, uint32_t v)
{
    put_le16(p, v & 0xFFFF);
    put_le16(p + 2, v >> 16);
}

int wav_write_header(FILE* f, int sampleRate, int channels, uint32_t channelMask, uint32_t dataBytes)
{
    const int extensible = channels > 2 || (channelMask != 0 && channelMask != (channels == 1 ? 0x4u : 0x3u));
    const uint32_t fmtBytes = extensible ? 40 : 16;
    const uint32_t blockAlign = (uint32_t)channels * 2;
    uint8_t h[68];
    size_t n = 0;

    memcpy(h, "RIFF", 4);
    put_le32(h + 4, 4 + (8 + fmtBytes) + 8 + dataBytes);
    memcpy(h + 8, "WAVEfmt ", 8);
    put_le32(h + 16, fmtBytes);
    put_le16(h + 20, extensible ? 0xFFFE : 1);
    put_le16(h + 22, (uint32_t)channels);
    put_le32(h + 24, (uint32_t)sampleRate);
    put_le32(h + 28, (uint32_t)sampleRate * blockAlign);
    put_le16(h + 32, blockAlign);
    put_le16(h + 34, 16);
    n = 36;
    if (extensible) {
        /* KSDATAFORMAT_SUBTYPE_PCM: 00000001-0000-0010-8000-00aa00389b71 */
        static const uint8_t kPcmGuid[16] = {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                             0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
        put_le16(h + 36, 22);
        put_le16(h + 38, 16);
        put_le32(h + 40, channelMask);
        memcpy(h + 44, kPcmGuid, 16);
        n = 60;
    }
    memcpy(h + n, "data", 4);
    put_le32(h + n + 4, dataBytes);
    n += 8;
    return fwrite(h, 1, n, f) == n ? 0 : -1;
}
