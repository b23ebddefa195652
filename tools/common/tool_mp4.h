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
    uint32_t capacity;       /* of offsets and sizes (fragmented files) */
    uint32_t trackId;        /* tkhd */
    int fragmented;          /* the samples come from movie fragments */
    uint32_t defaultSampleSize; /* trex */
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
/* The same from a reader: the top-level boxes are stepped over (by seeking on a file)
 * and only the movie box (moov, at most MP4_MOVIE_MAX_BYTES) is read into memory; the
 * sample table takes 12 bytes per AAC frame (1.9 MB per hour at 44.1 kHz). */
#define MP4_MOVIE_MAX_BYTES ((uint64_t)256 << 20)
int mp4_read_reader(ToolReader* r, Mp4Track* track);
void mp4_free(Mp4Track* track);

/* Writes the 7-byte ADTS header (no CRC) for a raw data block of payloadBytes
 * bytes of the track into header. Returns -1 when ADTS cannot carry the track
 * (object type of the core above 4, channel configuration 0, payload too long). */
int mp4_adts_header(const Mp4Track* track, size_t payloadBytes, uint8_t* header);

#ifdef __cplusplus
}
#endif

#endif
