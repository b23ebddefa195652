/* Input for the tools, read as it is decoded: a window over a file, standard input or
 * bytes in memory. The decoders ask for the bytes at an offset of the input; the window
 * moves forward (reading, or seeking over a gap when the input is a file) and back only
 * on a file. Memory use is the window, whatever the input's length.
 *
 * Behind the last byte of the input the window holds TOOL_READER_PADDING zero bytes, so
 * that bit readers which load whole words, or run past a damaged frame, read zeros. */
#ifndef ZAMAC_TOOL_READER_H
#define ZAMAC_TOOL_READER_H

#ifdef __cplusplus
extern "C" {
#endif

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* Bytes of the window, and the most one call may ask for. */
#define TOOL_READER_WINDOW ((size_t)64 << 10)
#define TOOL_READER_PADDING ((size_t)16 << 10)
/* An input's length when it is not known (a pipe). */
#define TOOL_READER_UNKNOWN UINT64_MAX

/* A source of bytes read in order: returns the bytes written to dst (fewer than n only
 * at the end). */
typedef size_t (*ToolReadFn)(void* ctx, uint8_t* dst, size_t n);

typedef struct {
    FILE* file;              /* a file or standard input, or NULL */
    int ownsFile;
    const uint8_t* memory;   /* or bytes in memory */
    ToolReadFn read;         /* or a source read in order */
    void* ctx;
    int seekable;            /* the window may go back (and skip by seeking) */
    uint64_t size;           /* the input's length, TOOL_READER_UNKNOWN until its end is seen */
    uint64_t limit;          /* reader_at() reports no bytes from here on (trailing tags) */
    uint64_t sourcePos;      /* where the next read of the source starts */
    uint64_t start;          /* input offset of buf[0] */
    size_t filled;           /* bytes of the input in buf */
    int error;               /* a read failed, or the window was asked to go back on a pipe */
    uint8_t* buf;            /* TOOL_READER_WINDOW + TOOL_READER_PADDING bytes */
} ToolReader;

/* Opens path ("-": standard input). Returns 0, or -1 after printing the reason. */
int reader_open_file(ToolReader* r, const char* path);
/* Bytes in memory (not copied; they must outlive the reader). */
int reader_open_memory(ToolReader* r, const uint8_t* data, size_t size);
/* A source read in order; size is its length or TOOL_READER_UNKNOWN. */
int reader_open_source(ToolReader* r, ToolReadFn read, void* ctx, uint64_t size);
void reader_close(ToolReader* r);

/* The input's bytes from offset pos: returns a pointer to them and sets *left to the
 * bytes there are from pos to the limit, at most n (n <= TOOL_READER_WINDOW). The bytes
 * stay valid until the next call. Returns NULL (and *left = 0) when the window cannot
 * go back to pos (a pipe; the window is then left as it was) or a read failed (error
 * is set); pos at or past the limit gives *left = 0. */
const uint8_t* reader_at(ToolReader* r, uint64_t pos, size_t n, size_t* left);

/* A pipe whose window has not moved yet is copied to a temporary file (deleted when
 * the reader closes), which the reader then reads like a file: for a container that
 * must be read out of order (an MP4 file with its moov box at the end). */
int reader_spool(ToolReader* r);

/* The end of the audio before trailing ID3v1, Lyrics3 and APE tags, not below floor;
 * TOOL_READER_UNKNOWN on a pipe (tags at the end are then read as data). */
uint64_t reader_audio_end(ToolReader* r, uint64_t floor);

#ifdef __cplusplus
}
#endif

#endif
