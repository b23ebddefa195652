#include "tool_mp4.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const int kRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};

static uint32_t be16(const uint8_t* p) { return (uint32_t)p[0] << 8 | p[1]; }
static uint32_t be32(const uint8_t* p) { return be16(p) << 16 | be16(p + 2); }
static uint64_t be64(const uint8_t* p) { return (uint64_t)be32(p) << 32 | be32(p + 4); }
#define TAG(a, b, c, d) ((uint32_t)(a) << 24 | (uint32_t)(b) << 16 | (uint32_t)(c) << 8 | (uint32_t)(d))

/* A box inside [*pos, end): its type and body. Returns 1, 0 at the end, -1 when the
 * box does not fit. */
typedef struct {
    uint32_t type;
    size_t body, end;
} Box;

static int next_box(const uint8_t* data, size_t* pos, size_t end, Box* box)
{
    if (*pos >= end || end - *pos < 8) return 0;
    const uint8_t* p = data + *pos;
    uint64_t size = be32(p);
    size_t header = 8;
    box->type = be32(p + 4);
    if (size == 1) {
        if (end - *pos < 16) return -1;
        size = be64(p + 8);
        header = 16;
    } else if (size == 0) {
        size = end - *pos;
    }
    if (size < header || size > end - *pos) return -1;
    box->body = *pos + header;
    box->end = *pos + (size_t)size;
    *pos = box->end;
    return 1;
}

/* The first child of the given type inside [begin, end). */
static int find_box(const uint8_t* data, size_t begin, size_t end, uint32_t type, Box* box)
{
    size_t pos = begin;
    int r;
    while ((r = next_box(data, &pos, end, box)) == 1)
        if (box->type == type) return 1;
    return 0;
}

static int fail(Mp4Track* t, const char* text)
{
    snprintf(t->error, sizeof t->error, "%s", text);
    return -1;
}

int mp4_is_file(const uint8_t* data, size_t size)
{
    return size >= 12 && memcmp(data + 4, "ftyp", 4) == 0 && be32(data) >= 8;
}

/* ------------------------------------------------------------------ AudioSpecificConfig */

uint32_t mp4_bits(Mp4Bits* b, int n)
{
    uint32_t v = 0;
    for (int i = 0; i < n; ++i, ++b->pos) {
        if (b->pos >= b->bits) {
            b->overrun = 1;
            v <<= 1;
            continue;
        }
        v = v << 1 | ((b->p[b->pos >> 3] >> (7 - (b->pos & 7))) & 1u);
    }
    return v;
}

static int object_type(Mp4Bits* b)
{
    const int type = (int)mp4_bits(b, 5);
    return type == 31 ? 32 + (int)mp4_bits(b, 6) : type;
}

static int rate_index(Mp4Bits* b, int* rate)
{
    const int index = (int)mp4_bits(b, 4);
    if (index == 15) {
        *rate = (int)mp4_bits(b, 24);
        return -1;
    }
    *rate = index < 13 ? kRates[index] : 0;
    return index;
}

void mp4_read_asc_head(Mp4Bits* b, Mp4Track* t)
{
    t->objectType = object_type(b);
    t->samplingIndex = rate_index(b, &t->sampleRate);
    t->channelConfiguration = (int)mp4_bits(b, 4);
    t->coreObjectType = t->objectType;
    if (t->objectType == 5 || t->objectType == 29) {
        t->sbr = 1;
        t->ps = t->objectType == 29;
        rate_index(b, &t->extensionRate);
        t->coreObjectType = object_type(b);
    }
}

static int read_asc(const uint8_t* p, size_t length, Mp4Track* t)
{
    Mp4Bits r = {p, length * 8, 0, 0};
    mp4_read_asc_head(&r, t);
    if (t->samplingIndex < 0 || t->sampleRate == 0) return fail(t, "the AAC track's sampling rate has no index ADTS could carry");
    return 0;
}

/* An MPEG-4 descriptor's tag and length at *pos (the length in 1..4 bytes of 7 bits). */
static int descriptor(const uint8_t* data, size_t* pos, size_t end, int* tag, size_t* length)
{
    if (*pos >= end) return 0;
    *tag = data[(*pos)++];
    *length = 0;
    for (int i = 0; i < 4; ++i) {
        if (*pos >= end) return 0;
        const uint8_t b = data[(*pos)++];
        *length = *length << 7 | (b & 0x7F);
        if (!(b & 0x80)) break;
    }
    return *length <= end - *pos;
}

static int read_esds(const uint8_t* data, const Box* esds, Mp4Track* t)
{
    size_t pos = esds->body + 4, length;
    int tag;
    if (!descriptor(data, &pos, esds->end, &tag, &length) || tag != 3 || length < 3) return fail(t, "damaged esds box");
    const size_t esEnd = pos + length;
    const uint8_t flags = data[pos + 2];
    pos += 3;
    if (flags & 0x80) pos += 2;
    if ((flags & 0x40) && pos < esEnd) pos += 1 + (size_t)data[pos];
    if (flags & 0x20) pos += 2;
    if (pos > esEnd || !descriptor(data, &pos, esEnd, &tag, &length) || tag != 4 || length < 13)
        return fail(t, "damaged esds box (no decoder configuration)");
    const size_t configEnd = pos + length;
    const int oti = data[pos];
    pos += 13;
    if (oti >= 0x66 && oti <= 0x68) {  /* MPEG-2 AAC Main, LC, SSR */
        t->objectType = oti - 0x65;
    } else if (oti != 0x40) {
        return fail(t, "the audio track is not AAC");
    }
    if (!descriptor(data, &pos, configEnd, &tag, &length) || tag != 5 || length < 2)
        return fail(t, "the AAC track has no AudioSpecificConfig");
    return read_asc(data + pos, length, t);
}

/* mp4a sample entry: fixed fields (by sound version), then esds (possibly in wave). */
static int read_sample_entry(const uint8_t* data, const Box* entry, Mp4Track* t)
{
    if (entry->type != TAG('m', 'p', '4', 'a')) return fail(t, "the audio track is not AAC (no mp4a sample entry)");
    if (entry->end - entry->body < 28) return fail(t, "damaged mp4a sample entry");
    const uint32_t version = be16(data + entry->body + 8);
    size_t children = entry->body + 28 + (version == 1 ? 16 : version == 2 ? 36 : 0);
    if (children > entry->end) return fail(t, "damaged mp4a sample entry");
    Box esds, wave;
    if (find_box(data, children, entry->end, TAG('e', 's', 'd', 's'), &esds) ||
        (find_box(data, children, entry->end, TAG('w', 'a', 'v', 'e'), &wave) &&
         find_box(data, wave.body, wave.end, TAG('e', 's', 'd', 's'), &esds)))
        return read_esds(data, &esds, t);
    return fail(t, "the AAC track has no esds box");
}

/* ------------------------------------------------------------------ sample table */

static int read_sample_table(const uint8_t* data, uint64_t fileSize, const Box* stbl, Mp4Track* t)
{
    Box stsd, stsz, stsc, stco;
    if (!find_box(data, stbl->body, stbl->end, TAG('s', 't', 's', 'd'), &stsd) || stsd.end - stsd.body < 8)
        return fail(t, "no sample description (stsd)");
    size_t pos = stsd.body + 8;
    Box entry;
    if (next_box(data, &pos, stsd.end, &entry) != 1) return fail(t, "damaged sample description");
    if (read_sample_entry(data, &entry, t) != 0) return -1;

    if (!find_box(data, stbl->body, stbl->end, TAG('s', 't', 's', 'z'), &stsz) || stsz.end - stsz.body < 12)
        return fail(t, "no sample sizes (stsz)");
    const int co64 = !find_box(data, stbl->body, stbl->end, TAG('s', 't', 'c', 'o'), &stco);
    if (co64 && !find_box(data, stbl->body, stbl->end, TAG('c', 'o', '6', '4'), &stco)) return fail(t, "no chunk offsets");
    if (!find_box(data, stbl->body, stbl->end, TAG('s', 't', 's', 'c'), &stsc) || stsc.end - stsc.body < 8)
        return fail(t, "no sample-to-chunk table (stsc)");
    if (stco.end - stco.body < 8) return fail(t, "damaged chunk offsets");
    /* The entries of stsz and stco: here, or (tablesInFile) where the stubs that
     * mp4_read_reader left in their place say. */
    uint64_t sizesAt = stsz.body + 12, sizesBytes = stsz.end - stsz.body - 12;
    uint64_t chunksAt = stco.body + 8, chunksBytes = stco.end - stco.body - 8;
    if (t->tablesInFile) {
        if (stsz.end - stsz.body < 28 || stco.end - stco.body < 24) return fail(t, "damaged sample table");
        sizesAt = be64(data + stsz.body + 12);
        sizesBytes = be64(data + stsz.body + 20);
        chunksAt = be64(data + stco.body + 8);
        chunksBytes = be64(data + stco.body + 16);
    }
    const uint32_t fixedSize = be32(data + stsz.body + 4);
    const uint32_t count = be32(data + stsz.body + 8);
    if (fixedSize == 0 && count > sizesBytes / 4) return fail(t, "damaged sample sizes (stsz)");
    if (fixedSize != 0 && count > fileSize / fixedSize) return fail(t, "sample sizes larger than the file");
    const uint32_t chunks = be32(data + stco.body + 4);
    if (chunks > chunksBytes / (co64 ? 8 : 4)) return fail(t, "damaged chunk offsets");
    const uint32_t runs = be32(data + stsc.body + 4);
    if (runs > (stsc.end - stsc.body - 8) / 12) return fail(t, "damaged sample-to-chunk table");
    t->stsc = malloc((size_t)runs * 12 + 1);
    if (!t->stsc) return fail(t, "out of memory");
    memcpy(t->stsc, data + stsc.body + 8, (size_t)runs * 12);
    t->runs = runs;
    t->fixedSize = fixedSize;
    t->stszAt = sizesAt;
    t->stcoAt = chunksAt;
    t->co64 = co64;
    t->chunks = chunks;
    t->sampleCount = count;
    return 0;
}

/* ------------------------------------------------------------------ metadata */

static void read_ilst(const uint8_t* data, const Box* ilst, Mp4Track* t)
{
    size_t pos = ilst->body;
    Box item;
    while (next_box(data, &pos, ilst->end, &item) == 1) {
        Box d, name;
        if (!find_box(data, item.body, item.end, TAG('d', 'a', 't', 'a'), &d) || d.end - d.body < 8) continue;
        const uint8_t* text = data + d.body + 8;
        const size_t length = d.end - d.body - 8;
        char* field = NULL;
        size_t capacity = 0;
        switch (item.type) {
        case TAG(0xA9, 'n', 'a', 'm'): field = t->tags.title, capacity = sizeof t->tags.title; break;
        case TAG(0xA9, 'A', 'R', 'T'): field = t->tags.artist, capacity = sizeof t->tags.artist; break;
        case TAG(0xA9, 'a', 'l', 'b'): field = t->tags.album, capacity = sizeof t->tags.album; break;
        case TAG(0xA9, 'd', 'a', 'y'): field = t->tags.year, capacity = sizeof t->tags.year; break;
        case TAG(0xA9, 't', 'o', 'o'): field = t->tags.encoder, capacity = sizeof t->tags.encoder; break;
        case TAG('-', '-', '-', '-'):
            if (find_box(data, item.body, item.end, TAG('n', 'a', 'm', 'e'), &name) && name.end - name.body == 4 + 8 &&
                memcmp(data + name.body + 4, "iTunSMPB", 8) == 0) {
                char smpb[128];
                const size_t n = length < sizeof smpb - 1 ? length : sizeof smpb - 1;
                memcpy(smpb, text, n);
                smpb[n] = '\0';
                unsigned long zero, delay, padding;
                unsigned long long samples;
                if (sscanf(smpb, " %lx %lx %lx %llx", &zero, &delay, &padding, &samples) == 4) {
                    t->smpbDelay = (long)delay;
                    t->smpbPadding = (long)padding;
                    t->smpbSamples = (long long)samples;
                }
            }
            break;
        default: break;
        }
        if (field && field[0] == '\0') {
            const size_t n = length < capacity - 1 ? length : capacity - 1;
            memcpy(field, text, n);
            field[n] = '\0';
        }
    }
}

static void read_metadata(const uint8_t* data, const Box* moov, Mp4Track* t)
{
    Box udta, meta, ilst;
    if (!find_box(data, moov->body, moov->end, TAG('u', 'd', 't', 'a'), &udta) ||
        !find_box(data, udta.body, udta.end, TAG('m', 'e', 't', 'a'), &meta) || meta.end - meta.body < 4)
        return;
    /* meta is a full box (4 bytes of version and flags) in ISO files, a plain one in QuickTime */
    size_t children = meta.body + 4;
    if (meta.end - meta.body >= 8 && be32(data + meta.body + 4) == TAG('h', 'd', 'l', 'r')) children = meta.body;
    if (find_box(data, children, meta.end, TAG('i', 'l', 's', 't'), &ilst)) read_ilst(data, &ilst, t);
}

/* ------------------------------------------------------------------ tracks */

static int read_track(const uint8_t* data, uint64_t size, const Box* trak, uint32_t movieTimescale, Mp4Track* t)
{
    Box mdia, hdlr, mdhd, minf, stbl, edts, elst;
    if (!find_box(data, trak->body, trak->end, TAG('m', 'd', 'i', 'a'), &mdia) ||
        !find_box(data, mdia.body, mdia.end, TAG('h', 'd', 'l', 'r'), &hdlr) || hdlr.end - hdlr.body < 12 ||
        be32(data + hdlr.body + 8) != TAG('s', 'o', 'u', 'n'))
        return 1;  /* not an audio track */
    if (find_box(data, mdia.body, mdia.end, TAG('m', 'd', 'h', 'd'), &mdhd) && mdhd.end - mdhd.body >= 24 &&
        (data[mdhd.body] != 1 || mdhd.end - mdhd.body >= 36)) {
        const int v1 = data[mdhd.body] == 1;
        t->timescale = be32(data + mdhd.body + (v1 ? 20 : 12));
        t->duration = v1 ? be64(data + mdhd.body + 24) : be32(data + mdhd.body + 16);
    }
    t->editStart = t->editDuration = -1;
    if (find_box(data, trak->body, trak->end, TAG('e', 'd', 't', 's'), &edts) &&
        find_box(data, edts.body, edts.end, TAG('e', 'l', 's', 't'), &elst) && elst.end - elst.body >= 8) {
        const int v1 = data[elst.body] == 1;
        const uint32_t entries = be32(data + elst.body + 4);
        const size_t entryBytes = v1 ? 20 : 12;
        for (uint32_t e = 0; e < entries && e < (elst.end - elst.body - 8) / entryBytes; ++e) {
            const uint8_t* p = data + elst.body + 8 + e * entryBytes;
            const uint64_t duration = v1 ? be64(p) : be32(p);
            const int64_t start = v1 ? (int64_t)be64(p + 8) : (int64_t)(int32_t)be32(p + 4);
            if (start < 0) continue;  /* an empty edit */
            t->editStart = start;
            if (movieTimescale && t->timescale && duration < (1ull << 40)) {
                t->editDuration = (int64_t)(duration * t->timescale / movieTimescale);
                /* The movie's time scale (often 1/1000 s) rounds the length; the track's
                 * own duration after the start is exact when it agrees within a tick. */
                const int64_t exact = (int64_t)t->duration - start;
                const int64_t tick = t->timescale / movieTimescale + 1;
                if (t->duration < (1ull << 62) && exact > 0 && exact - t->editDuration <= tick &&
                    t->editDuration - exact <= tick)
                    t->editDuration = exact;
            }
            break;
        }
    }
    Box tkhd;
    if (find_box(data, trak->body, trak->end, TAG('t', 'k', 'h', 'd'), &tkhd) &&
        tkhd.end - tkhd.body >= (data[tkhd.body] == 1 ? 24u : 16u))
        t->trackId = be32(data + tkhd.body + (data[tkhd.body] == 1 ? 20 : 12));
    if (!find_box(data, mdia.body, mdia.end, TAG('m', 'i', 'n', 'f'), &minf) ||
        !find_box(data, minf.body, minf.end, TAG('s', 't', 'b', 'l'), &stbl))
        return fail(t, "the audio track has no sample table");
    return read_sample_table(data, size, &stbl, t);
}

/* The boxes in data (size bytes) of a file of fileSize bytes. */
static int read_boxes(const uint8_t* data, size_t size, uint64_t fileSize, int fragmented, int tablesInFile,
                      Mp4Track* t)
{
    memset(t, 0, sizeof *t);
    t->tablesInFile = tablesInFile;
    t->fileSize = fileSize;
    t->smpbDelay = t->smpbPadding = -1;
    t->smpbSamples = -1;
    Box moov, mvhd, trak;
    size_t pos = 0;
    int r, found = 0;
    while ((r = next_box(data, &pos, size, &moov)) == 1) {
        if (moov.type == TAG('m', 'o', 'o', 'f')) fragmented = 1;
        if (moov.type == TAG('m', 'o', 'o', 'v')) {
            found = 1;
            break;
        }
    }
    if (!found) return fail(t, r < 0 ? "damaged MP4 file (a box runs past the end)" : "MP4 file without a movie box (moov)");
    uint32_t movieTimescale = 0;
    if (find_box(data, moov.body, moov.end, TAG('m', 'v', 'h', 'd'), &mvhd) && mvhd.end - mvhd.body >= 24)
        movieTimescale = be32(data + mvhd.body + (data[mvhd.body] == 1 ? 20 : 12));
    read_metadata(data, &moov, t);
    pos = moov.body;
    while ((r = next_box(data, &pos, moov.end, &trak)) == 1) {
        if (trak.type != TAG('t', 'r', 'a', 'k')) continue;
        const int result = read_track(data, fileSize, &trak, movieTimescale, t);
        Box mvex, trex;
        if (result == 0 && t->sampleCount == 0 && find_box(data, moov.body, moov.end, TAG('m', 'v', 'e', 'x'), &mvex)) {
            /* A fragmented file: the samples are listed in the movie fragments. */
            t->fragmented = 1;
            size_t at = mvex.body;
            while (next_box(data, &at, mvex.end, &trex) == 1)
                if (trex.type == TAG('t', 'r', 'e', 'x') && trex.end - trex.body >= 24 &&
                    be32(data + trex.body + 4) == t->trackId)
                    t->defaultSampleSize = be32(data + trex.body + 16);
            return 0;
        }
        if (result <= 0) {
            if (result == 0 && t->sampleCount == 0)
                return fail(t, fragmented ? "fragmented MP4 files are not read" : "the AAC track has no samples");
            return result;
        }
    }
    return fail(t, "no audio track in the MP4 file");
}

/* ------------------------------------------------------------------ fragments */

static int add_sample(Mp4Track* t, uint64_t offset, uint32_t size, uint64_t fileSize)
{
    if (size == 0 || offset > fileSize || size > fileSize - offset) return fail(t, "a sample lies outside the file");
    if (t->sampleCount == t->capacity) {
        if (t->capacity >= (1u << 30)) return fail(t, "too many samples");
        const uint32_t capacity = t->capacity ? t->capacity * 2 : 1024;
        uint64_t* offsets = realloc(t->offsets, capacity * sizeof *offsets);
        if (offsets) t->offsets = offsets;
        uint32_t* sizes = realloc(t->sizes, capacity * sizeof *sizes);
        if (sizes) t->sizes = sizes;
        if (!offsets || !sizes) return fail(t, "out of memory");
        t->capacity = capacity;
    }
    t->offsets[t->sampleCount] = offset;
    t->sizes[t->sampleCount++] = size;
    return 0;
}

/* The samples of the track in one movie fragment (moof, size bytes, at file offset
 * moofOffset): track fragment header (tfhd) defaults over the movie's (trex), and the
 * runs (trun) in order, each at its data offset or after the run before. */
static int read_fragment(const uint8_t* data, size_t size, uint64_t moofOffset, uint64_t fileSize, Mp4Track* t)
{
    Box moof, traf;
    size_t pos = 0;
    if (next_box(data, &pos, size, &moof) != 1 || moof.type != TAG('m', 'o', 'o', 'f'))
        return fail(t, "damaged movie fragment (moof)");
    pos = moof.body;
    uint64_t dataEnd = moofOffset; /* where the previous track fragment's data ended */
    while (next_box(data, &pos, moof.end, &traf) == 1) {
        if (traf.type != TAG('t', 'r', 'a', 'f')) continue;
        Box tfhd;
        if (!find_box(data, traf.body, traf.end, TAG('t', 'f', 'h', 'd'), &tfhd) || tfhd.end - tfhd.body < 8)
            return fail(t, "damaged track fragment header (tfhd)");
        const uint8_t* h = data + tfhd.body;
        const uint32_t flags = be32(h) & 0xFFFFFF;
        size_t need = 8 + ((flags & 1) ? 8 : 0) + ((flags & 2) ? 4 : 0) + ((flags & 8) ? 4 : 0) + ((flags & 0x10) ? 4 : 0);
        if (tfhd.end - tfhd.body < need) return fail(t, "damaged track fragment header (tfhd)");
        if (be32(h + 4) != t->trackId) continue;
        size_t at = 8;
        uint64_t base = (flags & 0x20000) ? moofOffset : dataEnd;
        if (flags & 1) base = be64(h + at), at += 8;
        if (flags & 2) at += 4;
        if (flags & 8) at += 4;
        const uint32_t defaultSize = (flags & 0x10) ? be32(h + at) : t->defaultSampleSize;
        uint64_t next = base;
        size_t runAt = traf.body;
        Box trun;
        while (next_box(data, &runAt, traf.end, &trun) == 1) {
            if (trun.type != TAG('t', 'r', 'u', 'n')) continue;
            if (trun.end - trun.body < 8) return fail(t, "damaged track run (trun)");
            const uint8_t* r = data + trun.body;
            const uint32_t runFlags = be32(r) & 0xFFFFFF, count = be32(r + 4);
            size_t e = 8;
            if (runFlags & 1) {
                if (trun.end - trun.body < e + 4) return fail(t, "damaged track run (trun)");
                next = base + (uint64_t)(int64_t)(int32_t)be32(r + e);
                e += 4;
            }
            if (runFlags & 4) e += 4;
            const size_t entry = 4 * (size_t)(!!(runFlags & 0x100) + !!(runFlags & 0x200) + !!(runFlags & 0x400) +
                                              !!(runFlags & 0x800));
            if (e > trun.end - trun.body || (entry && count > (trun.end - trun.body - e) / entry))
                return fail(t, "damaged track run (trun)");
            for (uint32_t i = 0; i < count; ++i) {
                const uint8_t* v = r + e + (size_t)i * entry + ((runFlags & 0x100) ? 4 : 0);
                const uint32_t sampleSize = (runFlags & 0x200) ? be32(v) : defaultSize;
                if (add_sample(t, next, sampleSize, fileSize) != 0) return -1;
                next += sampleSize;
            }
        }
        dataEnd = next;
    }
    return 0;
}

/* Walks the whole sample list once: every sample inside the file, the tables
 * consistent; sets totalBytes. */
static int check_samples(Mp4Track* t, const char* path)
{
    Mp4Samples samples;
    if (mp4_samples_open(&samples, t, path) != 0) return fail(t, "the MP4 file could not be read again");
    uint64_t offset;
    uint32_t size;
    int r;
    const char* why = NULL;
    t->totalBytes = 0;
    while ((r = mp4_samples_next(&samples, &offset, &size, &why)) == 1) t->totalBytes += size;
    mp4_samples_close(&samples);
    return r < 0 ? fail(t, why) : 0;
}

int mp4_read(const uint8_t* data, size_t size, Mp4Track* t)
{
    if (read_boxes(data, size, size, 0, 0, t) != 0) return -1;
    t->tableData = data;
    t->tableSize = size;
    if (!t->fragmented) return check_samples(t, NULL);
    size_t pos = 0, start = 0;
    Box box;
    for (; next_box(data, &pos, size, &box) == 1; start = pos)
        if (box.type == TAG('m', 'o', 'o', 'f') && read_fragment(data + start, box.end - start, start, size, t) != 0)
            return -1;
    return t->sampleCount ? check_samples(t, NULL) : fail(t, "the AAC track has no samples");
}

/* The movie fragments after the movie box. */
static int read_fragments(ToolReader* r, uint64_t pos, Mp4Track* t)
{
    for (;;) {
        size_t left;
        const uint8_t* p = reader_at(r, pos, 16, &left);
        if (!p) return fail(t, "the MP4 file could not be read");
        if (left < 8) break;
        uint64_t size = be32(p);
        if (size == 1 && left >= 16) size = be64(p + 8);
        else if (size == 0) size = r->size - pos;
        if (size < 8 || (r->size != TOOL_READER_UNKNOWN && size > r->size - pos)) break; /* damaged tail */
        if (be32(p + 4) == TAG('m', 'o', 'o', 'f')) {
            if (size > MP4_MOVIE_MAX_BYTES) return fail(t, "an MP4 movie fragment (moof) is larger than 256 MiB");
            uint8_t* moof = malloc((size_t)size);
            size_t got = 0;
            while (moof && got < size &&
                   (p = reader_at(r, pos + got, size - got < 32768 ? (size_t)(size - got) : 32768, &left)) != NULL &&
                   left > 0) {
                memcpy(moof + got, p, left);
                got += left;
            }
            const int result = !moof ? fail(t, "out of memory")
                               : got < size ? fail(t, "damaged MP4 file (a box runs past the end)")
                                            : read_fragment(moof, (size_t)size, pos, r->size, t);
            free(moof);
            if (result != 0) return result;
        }
        pos += size;
    }
    return t->sampleCount ? check_samples(t, NULL) : fail(t, "the AAC track has no samples");
}

/* A growing copy of the movie box. */
typedef struct {
    uint8_t* p;
    size_t used, capacity;
    int failed;
} Copy;

static uint8_t* copy_grow(Copy* c, size_t n)
{
    if (c->failed || n > MP4_MOVIE_MAX_BYTES - c->used) {
        c->failed = 1;
        return NULL;
    }
    if (c->used + n > c->capacity) {
        size_t capacity = c->capacity ? c->capacity : 65536;
        while (capacity < c->used + n) capacity *= 2;
        uint8_t* bigger = realloc(c->p, capacity);
        if (!bigger) {
            c->failed = 1;
            return NULL;
        }
        c->p = bigger;
        c->capacity = capacity;
    }
    uint8_t* at = c->p + c->used;
    c->used += n;
    return at;
}

static void copy_bytes(Copy* c, ToolReader* r, uint64_t pos, uint64_t n)
{
    while (n > 0 && !c->failed) {
        size_t left;
        const uint8_t* p = reader_at(r, pos, n < 32768 ? (size_t)n : 32768, &left);
        uint8_t* to = p && left > 0 ? copy_grow(c, left) : NULL;
        if (!to) {
            c->failed = 1;
            return;
        }
        memcpy(to, p, left);
        pos += left;
        n -= left;
    }
}

static void put32(uint8_t* p, uint32_t v)
{
    p[0] = (uint8_t)(v >> 24), p[1] = (uint8_t)(v >> 16), p[2] = (uint8_t)(v >> 8), p[3] = (uint8_t)v;
}

static void put64(uint8_t* p, uint64_t v)
{
    put32(p, (uint32_t)(v >> 32));
    put32(p + 4, (uint32_t)v);
}

/* Copies the boxes in [pos, end) of the file; on the way to the sample table the
 * containers are copied box by box, and the entries of stsz and stco/co64 stay in the
 * file: a stub with their position and length takes their place. */
static void copy_boxes(Copy* c, ToolReader* r, uint64_t pos, uint64_t end, int depth)
{
    while (pos + 8 <= end && !c->failed) {
        size_t left;
        const uint8_t* p = reader_at(r, pos, 16, &left);
        if (!p || left < 8) break;
        uint64_t size = be32(p);
        size_t header = 8;
        const uint32_t type = be32(p + 4);
        if (size == 1 && left >= 16) size = be64(p + 8), header = 16;
        else if (size == 0) size = end - pos;
        if (size < header || size > end - pos) {
            copy_bytes(c, r, pos, end - pos); /* the parser reports the damage */
            return;
        }
        const size_t at = c->used;
        const int container = type == TAG('m', 'o', 'o', 'v') || type == TAG('t', 'r', 'a', 'k') ||
                              type == TAG('m', 'd', 'i', 'a') || type == TAG('m', 'i', 'n', 'f') ||
                              type == TAG('s', 't', 'b', 'l');
        const size_t fixed = type == TAG('s', 't', 's', 'z') ? 12
                             : type == TAG('s', 't', 'c', 'o') || type == TAG('c', 'o', '6', '4') ? 8 : 0;
        uint8_t* h = copy_grow(c, 8);
        if (!h) return;
        put32(h + 4, type);
        if (container && depth < 8) {
            copy_boxes(c, r, pos + header, pos + size, depth + 1);
        } else if (fixed && size - header >= fixed) {
            copy_bytes(c, r, pos + header, fixed);
            uint8_t* stub = copy_grow(c, 16);
            if (!stub) return;
            put64(stub, pos + header + fixed);
            put64(stub + 8, size - header - fixed);
        } else {
            copy_bytes(c, r, pos + header, size - header);
        }
        if (!c->failed) put32(c->p + at, (uint32_t)(c->used - at));
        pos += size;
    }
}

int mp4_read_reader(ToolReader* r, const char* path, Mp4Track* t)
{
    uint64_t pos = 0;
    int fragmented = 0;
    for (;;) {
        size_t left;
        const uint8_t* p = reader_at(r, pos, 16, &left);
        if (!p || left < 8) {
            memset(t, 0, sizeof *t);
            return fail(t, !p ? "the MP4 file could not be read" : "MP4 file without a movie box (moov)");
        }
        uint64_t size = be32(p);
        const uint32_t type = be32(p + 4);
        if (size == 1 && left >= 16) size = be64(p + 8);
        else if (size == 0) size = r->size - pos;
        if (size < 8 || (r->size != TOOL_READER_UNKNOWN && size > r->size - pos)) {
            memset(t, 0, sizeof *t);
            return fail(t, "damaged MP4 file (a box runs past the end)");
        }
        if (type == TAG('m', 'o', 'o', 'f')) fragmented = 1;
        if (type == TAG('m', 'o', 'o', 'v')) {
            /* From a file the sample table stays in the file; from a pipe the whole movie
             * box is kept (the pipe cannot go back to it). */
            const int tablesInFile = r->seekable && (path != NULL || r->memory != NULL);
            Copy c = {NULL, 0, 0, 0};
            if (tablesInFile) copy_boxes(&c, r, pos, pos + size, 0);
            else copy_bytes(&c, r, pos, size);
            if (c.failed) {
                free(c.p);
                memset(t, 0, sizeof *t);
                return fail(t, size > MP4_MOVIE_MAX_BYTES ? "the MP4 movie box (moov) is larger than 256 MiB"
                                                         : "damaged MP4 file (a box runs past the end)");
            }
            const int result = read_boxes(c.p, c.used, r->size, fragmented, tablesInFile, t);
            if (result != 0 || tablesInFile || t->fragmented) {
                free(c.p);
                if (tablesInFile && r->memory) { /* the tables stay where they are, in memory */
                    t->tableData = r->memory;
                    t->tableSize = (size_t)r->size;
                }
            } else {
                t->moovCopy = c.p;
                t->tableData = c.p;
                t->tableSize = c.used;
            }
            if (result != 0) return result;
            if (!t->fragmented) return check_samples(t, tablesInFile ? path : NULL);
            pos += size;
            return read_fragments(r, pos, t);
        }
        pos += size;
    }
}

int mp4_samples_open(Mp4Samples* s, const Mp4Track* t, const char* path)
{
    memset(s, 0, sizeof *s);
    s->t = t;
    if (t->fragmented) return 0;
    int failed;
    if (t->tablesInFile && !t->tableData) {
        if (!path) return -1;
        failed = reader_open_file(&s->sizes, path) != 0;
        if (!failed && reader_open_file(&s->chunks, path) != 0) {
            reader_close(&s->sizes);
            failed = 1;
        }
    } else {
        failed = reader_open_memory(&s->sizes, t->tableData, t->tableSize) != 0;
        if (!failed && reader_open_memory(&s->chunks, t->tableData, t->tableSize) != 0) {
            reader_close(&s->sizes);
            failed = 1;
        }
    }
    s->open = !failed;
    return failed ? -1 : 0;
}

void mp4_samples_close(Mp4Samples* s)
{
    if (s->open) {
        reader_close(&s->sizes);
        reader_close(&s->chunks);
    }
    s->open = 0;
}

static int chunk_offset(Mp4Samples* s, uint32_t chunk, uint64_t* offset)
{
    const Mp4Track* t = s->t;
    size_t left;
    const size_t bytes = t->co64 ? 8 : 4;
    const uint8_t* p = reader_at(&s->chunks, t->stcoAt + (uint64_t)(chunk - 1) * bytes, bytes, &left);
    if (!p || left < bytes) return -1;
    *offset = t->co64 ? be64(p) : be32(p);
    return 0;
}

int mp4_samples_next(Mp4Samples* s, uint64_t* offset, uint32_t* size, const char** why)
{
    const Mp4Track* t = s->t;
    if (s->index == t->sampleCount) return 0;
    if (t->fragmented) {
        *offset = t->offsets[s->index];
        *size = t->sizes[s->index++];
        return 1;
    }
    while (!s->started || s->inChunk == s->perChunk) {
        if (s->started && s->chunk < s->lastChunk) {
            ++s->chunk;
        } else {
            /* the next run of chunks with the same number of samples */
            if (s->run == t->runs) {
                *why = "the chunk tables hold fewer samples than stsz lists";
                return -1;
            }
            const uint8_t* e = t->stsc + 12 * (size_t)s->run;
            const uint32_t first = be32(e), last = s->run + 1 < t->runs ? be32(e + 12) - 1 : t->chunks;
            if (first < 1 || last > t->chunks || (s->run + 1 < t->runs && last + 1 <= first)) {
                *why = "damaged sample-to-chunk table";
                return -1;
            }
            ++s->run;
            s->perChunk = be32(e + 4);
            s->lastChunk = last;
            s->started = 1;
            if (first > last) {
                s->inChunk = s->perChunk;
                continue;
            }
            s->chunk = first;
        }
        s->inChunk = 0;
        if (chunk_offset(s, s->chunk, &s->offset) != 0) {
            *why = "damaged chunk offsets";
            return -1;
        }
    }
    uint32_t bytes = t->fixedSize;
    if (!bytes) {
        size_t left;
        const uint8_t* p = reader_at(&s->sizes, t->stszAt + 4 * (uint64_t)s->index, 4, &left);
        if (!p || left < 4) {
            *why = "damaged sample sizes (stsz)";
            return -1;
        }
        bytes = be32(p);
    }
    if (s->offset > t->fileSize || bytes > t->fileSize - s->offset) {
        *why = "a sample lies outside the file";
        return -1;
    }
    *offset = s->offset;
    *size = bytes;
    s->offset += bytes;
    ++s->inChunk;
    ++s->index;
    return 1;
}

void mp4_free(Mp4Track* t)
{
    free(t->offsets);
    free(t->sizes);
    free(t->stsc);
    free(t->moovCopy);
    t->stsc = t->moovCopy = NULL;
    t->offsets = NULL;
    t->sizes = NULL;
}

int mp4_adts_header(const Mp4Track* t, size_t payloadBytes, uint8_t* h)
{
    const size_t length = payloadBytes + 7;
    if (t->coreObjectType < 1 || t->coreObjectType > 4 || t->channelConfiguration < 1 ||
        t->channelConfiguration > 7 || t->samplingIndex < 0 || t->samplingIndex > 12 || length > 8191)
        return -1;
    const int profile = t->coreObjectType - 1, cc = t->channelConfiguration;
    h[0] = 0xFF;
    h[1] = 0xF1;  /* MPEG-4, layer 0, no CRC */
    h[2] = (uint8_t)(profile << 6 | t->samplingIndex << 2 | cc >> 2);
    h[3] = (uint8_t)((cc & 3) << 6 | (int)(length >> 11));
    h[4] = (uint8_t)(length >> 3);
    h[5] = (uint8_t)((length & 7) << 5 | 0x1F);
    h[6] = 0xFC;  /* buffer fullness 0x7FF (variable), one raw data block */
    return 0;
}
