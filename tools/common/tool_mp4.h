/* ISO base media files (.m4a, .mp4, .m4b): the first AAC audio track of a file held in
 * memory. The reader takes the track's AudioSpecificConfig from esds (object type,
 * sampling rate, channel configuration, explicit SBR/PS signalling), its sample table
 * (stsz, stsc, stco/co64, stts), the edit list's start and length, iTunes gapless
 * information (iTunSMPB) and the title/artist/album/year of iTunes metadata.
 * Fragmented files (an empty sample table, mvex/trex defaults, then moof boxes with
 * tfhd and trun) give the same sample list. Every offset and count is checked against
 * the buffer: a damaged file gives a message, never a read outside it. */
#ifndef ZAMAC_TOOL_MP4_H
#define ZAMAC_TOOL_MP4_H

#include <stddef.h>
#include <stdint.h>

#include "tool_reader.h"
#include "tool_tags.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    int objectType;          /* AudioSpecificConfig audioObjectType (2 LC, 5 SBR, 29 PS, ...) */
    int coreObjectType;      /* the AAC core's object type (the one ADTS can carry) */
    int samplingIndex;       /* of the AAC core, 0..12 */
    int sampleRate;          /* of the AAC core */
    int extensionRate;       /* SBR output rate when signalled explicitly, else 0 */
    int channelConfiguration;
    int sbr, ps;             /* explicitly signalled */
    uint32_t timescale;      /* mdhd */
    uint64_t duration;       /* mdhd, in timescale units */
    uint32_t sampleCount;
    unsigned long long totalBytes; /* of all samples */
    uint32_t trackId;        /* tkhd */
    /* Plain files: the sample table is read as it is needed (mp4_samples_*), from the
     * file or from tableData: only the sample-to-chunk runs are held here. */
    int tablesInFile;
    uint64_t fileSize;
    uint64_t stszAt;         /* the first size entry (unused when fixedSize) */
    uint32_t fixedSize;
    uint64_t stcoAt;         /* the first chunk offset */
    int co64;
    uint32_t chunks;
    uint8_t* stsc;           /* the sample-to-chunk runs, 12 bytes each */
    uint32_t runs;
    const uint8_t* tableData;/* the tables when not read from the file */
    size_t tableSize;
    uint8_t* moovCopy;       /* owned: the movie box of a file read from a pipe */
    /* Fragmented files: the samples listed by the movie fragments. */
    int fragmented;
    uint32_t defaultSampleSize; /* trex */
    uint32_t capacity;
    uint64_t* offsets;       /* sampleCount file offsets */
    uint32_t* sizes;         /* sampleCount sizes */
    int64_t editStart;       /* media time where the presentation starts (-1: no edit list) */
    int64_t editDuration;    /* its length in timescale units of the media (-1: to the end) */
    long smpbDelay, smpbPadding; /* iTunSMPB, -1 when absent */
    long long smpbSamples;
    TagText tags;
    char error[160];         /* why mp4_read failed */
} Mp4Track;

/* 1 when the data starts like an ISO base media file (an ftyp box). */
int mp4_is_file(const uint8_t* data, size_t size);

/* Reads the first AAC track. Returns 0, or -1 with a message in track->error.
 * mp4_free releases the tables (also after a failure). */
int mp4_read(const uint8_t* data, size_t size, Mp4Track* track);

/* A reader of the bits of p[], most significant first, over `bits` bits: reads past
   the end give zero bits and set `overrun`. */
typedef struct {
    const uint8_t* p;
    size_t bits, pos;
    int overrun;
} Mp4Bits;
uint32_t mp4_bits(Mp4Bits* b, int n);

/* The head of an AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1) into t: object type,
   sampling index and rate (index -1 for an explicit rate), channel configuration, and
   for object types 5 and 29 (SBR, PS) the extension rate and the core object type.
   Nothing is checked; the MP4 and LATM readers judge the values. */
void mp4_read_asc_head(Mp4Bits* b, Mp4Track* t);
/* The same from a reader: the top-level boxes are stepped over (by seeking on a file)
 * and the movie box (moov, at most MP4_MOVIE_MAX_BYTES) is read into memory without
 * the entries of its sample sizes and chunk offsets, which are read from the file at
 * path as decoding needs them: memory does not grow with the file's length. With path
 * NULL (a pipe) the whole movie box is kept. A fragmented file's sample list is held
 * in memory (12 bytes per AAC frame). */
#define MP4_MOVIE_MAX_BYTES ((uint64_t)256 << 20)
int mp4_read_reader(ToolReader* r, const char* path, Mp4Track* track);

/* The samples of a track in order: offset and size. path is the file of
 * mp4_read_reader (NULL after mp4_read or for a pipe). */
typedef struct {
    const Mp4Track* t;
    ToolReader sizes, chunks;  /* windows on stsz and stco */
    int open, started;
    uint32_t index, run, chunk, lastChunk, perChunk, inChunk;
    uint64_t offset;
} Mp4Samples;
int mp4_samples_open(Mp4Samples* s, const Mp4Track* track, const char* path);
/* 1 with the next sample, 0 after the last, -1 with the damage named in *why. */
int mp4_samples_next(Mp4Samples* s, uint64_t* offset, uint32_t* size, const char** why);
void mp4_samples_close(Mp4Samples* s);
void mp4_free(Mp4Track* track);

/* Writes the 7-byte ADTS header (no CRC) for a raw data block of payloadBytes
 * bytes of the track into header. Returns -1 when ADTS cannot carry the track
 * (object type of the core above 4, channel configuration 0, payload too long). */
int mp4_adts_header(const Mp4Track* track, size_t payloadBytes, uint8_t* header);

#ifdef __cplusplus
}
#endif

#endif
