#include "tool_tags.h"

#include <string.h>

static uint32_t be32(const uint8_t* p) { return (uint32_t)p[0] << 24 | (uint32_t)p[1] << 16 | (uint32_t)p[2] << 8 | p[3]; }
static uint32_t syncsafe(const uint8_t* p)
{
    return (uint32_t)(p[0] & 0x7F) << 21 | (uint32_t)(p[1] & 0x7F) << 14 | (uint32_t)(p[2] & 0x7F) << 7 | (p[3] & 0x7F);
}

size_t tag_id3v2_size(const uint8_t* p, size_t left)
{
    if (left < 10 || memcmp(p, "ID3", 3) != 0 || p[3] == 0xFF || p[4] == 0xFF) return 0;
    if ((p[6] | p[7] | p[8] | p[9]) & 0x80) return 0;
    size_t size = 10 + (size_t)syncsafe(p + 6);
    if (p[5] & 0x10) size += 10; /* footer */
    return size;
}

size_t tag_trailing_bytes(const uint8_t* end, size_t size)
{
    if (size >= 128 && memcmp(end - 128, "TAG", 3) == 0) return 128;
    /* Lyrics3v2: "LYRICSBEGIN" ... six-digit size, "LYRICS200" */
    if (size >= 15 && memcmp(end - 9, "LYRICS200", 9) == 0) {
        size_t length = 0;
        int digits = 1;
        for (int i = 0; i < 6; ++i) {
            const uint8_t c = end[i - 15];
            if (c < '0' || c > '9') digits = 0;
            length = length * 10 + (size_t)(c - '0');
        }
        return digits && length >= 11 && length + 15 <= size ? length + 15 : 0;
    }
    if (size >= 32 && memcmp(end - 32, "APETAGEX", 8) == 0) {
        const uint8_t* f = end - 32;
        /* The size counts the items and this footer; a header may precede the items. */
        size_t tag = (size_t)f[12] | (size_t)f[13] << 8 | (size_t)f[14] << 16 | (size_t)f[15] << 24;
        if (f[23] & 0x80) tag += 32;
        return tag < 32 || tag > size ? 0 : tag; /* implausible: keep the bytes as audio */
    }
    return 0;
}

size_t tag_audio_end(const uint8_t* data, size_t size)
{
    size_t tag;
    while ((tag = tag_trailing_bytes(data + size, size)) != 0) size -= tag;
    return size;
}

/* Appends text of the given ID3 encoding as UTF-8 into dst (capacity n). */
static void copy_text(char* dst, size_t n, const uint8_t* p, size_t length, int encoding)
{
    size_t o = 0;
    int bigEndian = encoding == 2;
    if (encoding == 1 && length >= 2) {
        bigEndian = p[0] == 0xFE && p[1] == 0xFF;
        p += 2;
        length -= 2;
    }
    for (size_t i = 0; i < length;) {
        uint32_t c;
        if (encoding == 1 || encoding == 2) {
            if (i + 1 >= length) break;
            c = bigEndian ? (uint32_t)p[i] << 8 | p[i + 1] : (uint32_t)p[i + 1] << 8 | p[i];
            i += 2;
            if (c >= 0xD800 && c < 0xE000) c = '?'; /* surrogate pairs are not joined */
        } else {
            c = p[i++];
            if (encoding == 3) {
                if (c == 0) break;
                if (o + 1 < n) dst[o++] = (char)c; /* already UTF-8 */
                continue;
            }
        }
        if (c == 0) break;
        char u[3];
        int k = 0;
        if (c < 0x80) u[k++] = (char)c;
        else if (c < 0x800) {
            u[k++] = (char)(0xC0 | c >> 6);
            u[k++] = (char)(0x80 | (c & 0x3F));
        } else {
            u[k++] = (char)(0xE0 | c >> 12);
            u[k++] = (char)(0x80 | (c >> 6 & 0x3F));
            u[k++] = (char)(0x80 | (c & 0x3F));
        }
        if (o + (size_t)k >= n) break;
        memcpy(dst + o, u, (size_t)k);
        o += (size_t)k;
    }
    while (o > 0 && dst[o - 1] == ' ') --o;
    dst[o] = '\0';
}

static void set_field(char* dst, size_t n, const uint8_t* p, size_t length, int encoding)
{
    if (dst[0] == '\0') copy_text(dst, n, p, length, encoding);
}

int tag_read_id3v2(const uint8_t* p, size_t left, TagText* t)
{
    const size_t size = tag_id3v2_size(p, left);
    if (size == 0 || size > left) return 0;
    const int version = p[3];
    size_t pos = 10;
    const size_t end = size - ((p[5] & 0x10) ? 10 : 0);
    if (version < 2 || version > 4 || (p[5] & 0x80)) return 1; /* unsynchronised tags are not read */
    if ((p[5] & 0x40) && version >= 3 && pos + 4 <= end)
        pos += version == 3 ? 4 + (size_t)be32(p + pos) : (size_t)syncsafe(p + pos);
    const size_t headerBytes = version == 2 ? 6 : 10;
    while (pos + headerBytes <= end && p[pos] != 0) {
        const uint8_t* h = p + pos;
        size_t length;
        char id[5] = {0};
        if (version == 2) {
            memcpy(id, h, 3);
            length = (size_t)h[3] << 16 | (size_t)h[4] << 8 | h[5];
        } else {
            memcpy(id, h, 4);
            length = version == 4 ? syncsafe(h + 4) : be32(h + 4);
        }
        pos += headerBytes;
        if (length > end - pos) break;
        const uint8_t* body = p + pos;
        pos += length;
        if (length < 2 || id[0] != 'T') continue;
        const int enc = body[0];
        if (enc > 3) continue;
        if (!strcmp(id, "TIT2") || !strcmp(id, "TT2")) set_field(t->title, sizeof t->title, body + 1, length - 1, enc);
        else if (!strcmp(id, "TPE1") || !strcmp(id, "TP1")) set_field(t->artist, sizeof t->artist, body + 1, length - 1, enc);
        else if (!strcmp(id, "TALB") || !strcmp(id, "TAL")) set_field(t->album, sizeof t->album, body + 1, length - 1, enc);
        else if (!strcmp(id, "TYER") || !strcmp(id, "TDRC") || !strcmp(id, "TYE"))
            set_field(t->year, sizeof t->year, body + 1, length - 1, enc);
        else if (!strcmp(id, "TSSE") || !strcmp(id, "TSS") || !strcmp(id, "TENC"))
            set_field(t->encoder, sizeof t->encoder, body + 1, length - 1, enc);
    }
    return 1;
}

int tag_read_id3v1(const uint8_t* p, size_t left, TagText* t)
{
    if (left < 128 || memcmp(p, "TAG", 3) != 0) return 0;
    set_field(t->title, sizeof t->title, p + 3, 30, 0);
    set_field(t->artist, sizeof t->artist, p + 33, 30, 0);
    set_field(t->album, sizeof t->album, p + 63, 30, 0);
    set_field(t->year, sizeof t->year, p + 93, 4, 0);
    return 1;
}

int tag_read_mp3_info(const uint8_t* p, size_t length, int sideInfoBytes, int crc, Mp3StreamInfo* info)
{
    memset(info, 0, sizeof *info);
    info->frames = info->bytes = -1;
    info->encoderDelay = info->encoderPadding = -1;
    /* lame puts the tag right after the side information's nominal place even when a
     * CRC word moves the side information two bytes on; look at both. */
    for (int c = 0; c <= (crc ? 2 : 0); c += 2) {
        size_t at = 4 + (size_t)c + (size_t)sideInfoBytes;
        if (at + 8 > length) continue;
        const int xing = memcmp(p + at, "Xing", 4) == 0, cbr = memcmp(p + at, "Info", 4) == 0;
        if (!xing && !cbr) continue;
        info->kind = xing ? 1 : 2;
        const uint32_t flags = be32(p + at + 4);
        at += 8;
        if ((flags & 1) && at + 4 <= length) info->frames = (long)be32(p + at);
        if (flags & 1) at += 4;
        if ((flags & 2) && at + 4 <= length) info->bytes = (long)be32(p + at);
        if (flags & 2) at += 4;
        if (flags & 4) at += 100;
        if (flags & 8) at += 4;
        if (at + 24 <= length && p[at] >= 'A' && p[at] <= 'Z') {
            memcpy(info->encoder, p + at, 9);
            info->encoder[9] = '\0';
            for (int i = 8; i >= 0 && (info->encoder[i] == ' ' || info->encoder[i] == '\0'); --i) info->encoder[i] = '\0';
            if (memcmp(p + at, "LAME", 4) == 0 || memcmp(p + at, "Lavc", 4) == 0 || memcmp(p + at, "Lavf", 4) == 0) {
                const uint8_t* d = p + at + 21;
                info->hasLame = 1;
                info->encoderDelay = d[0] << 4 | d[1] >> 4;
                info->encoderPadding = (d[1] & 0x0F) << 8 | d[2];
            }
        }
        return 1;
    }
    if (36 + 18 <= length && memcmp(p + 36, "VBRI", 4) == 0) {
        info->kind = 3;
        info->encoderDelay = (int)(p[36 + 6] << 8 | p[36 + 7]); /* padding is not declared */
        info->bytes = (long)be32(p + 36 + 10);
        info->frames = (long)be32(p + 36 + 14);
        return 1;
    }
    return 0;
}
