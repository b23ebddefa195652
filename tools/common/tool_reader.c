#include "tool_reader.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "tool_cli.h"
#include "tool_tags.h"

static int reader_init(ToolReader* r)
{
    r->limit = TOOL_READER_UNKNOWN;
    r->buf = calloc(1, TOOL_READER_WINDOW + TOOL_READER_PADDING);
    return r->buf ? 0 : -1;
}

int reader_open_file(ToolReader* r, const char* path)
{
    memset(r, 0, sizeof *r);
    const int isStdin = strcmp(path, "-") == 0;
    const char* shown = isStdin ? "standard input" : path;
    r->file = isStdin ? stdin : fopen(path, "rb");
    if (!r->file) {
        tool_error("cannot open %s: %s", path, strerror(errno));
        return -1;
    }
    r->ownsFile = !isStdin;
    struct stat st;
    r->size = TOOL_READER_UNKNOWN;
    if (fstat(fileno(r->file), &st) == 0 && S_ISDIR(st.st_mode)) {
        tool_error("%s is a directory", shown);
        reader_close(r);
        return -1;
    }
    if (fstat(fileno(r->file), &st) == 0 && S_ISREG(st.st_mode) && ftello(r->file) == 0) {
        r->seekable = 1;
        r->size = (uint64_t)st.st_size;
    }
    setvbuf(r->file, NULL, _IONBF, 0); /* the window is the buffer */
    if (reader_init(r) != 0) {
        tool_error("out of memory reading %s", shown);
        reader_close(r);
        return -1;
    }
    return 0;
}

int reader_open_memory(ToolReader* r, const uint8_t* data, size_t size)
{
    memset(r, 0, sizeof *r);
    r->memory = data;
    r->seekable = 1;
    r->size = size;
    return reader_init(r);
}

int reader_open_source(ToolReader* r, ToolReadFn read, void* ctx, uint64_t size)
{
    memset(r, 0, sizeof *r);
    r->read = read;
    r->ctx = ctx;
    r->size = size;
    return reader_init(r);
}

void reader_close(ToolReader* r)
{
    if (r->file && r->ownsFile) fclose(r->file);
    free(r->buf);
    memset(r, 0, sizeof *r);
}

static size_t source_read(ToolReader* r, uint8_t* dst, size_t n)
{
    size_t got;
    if (r->memory) {
        const uint64_t rest = r->sourcePos < r->size ? r->size - r->sourcePos : 0;
        got = rest < n ? (size_t)rest : n;
        memcpy(dst, r->memory + r->sourcePos, got);
    } else if (r->file) {
        got = fread(dst, 1, n, r->file);
        if (got < n && ferror(r->file)) r->error = 1;
    } else {
        got = r->read(r->ctx, dst, n);
    }
    r->sourcePos += got;
    if (got < n && !r->error) r->size = r->sourcePos;
    return got;
}

/* Moves the window to start at pos and fills it. */
static int refill(ToolReader* r, uint64_t pos)
{
    const uint64_t bufferEnd = r->start + r->filled;
    if (pos >= r->start && pos <= bufferEnd) {
        const size_t keep = (size_t)(bufferEnd - pos);
        memmove(r->buf, r->buf + (pos - r->start), keep);
        r->filled = keep;
    } else if (r->seekable) {
        if (r->file && fseeko(r->file, (off_t)pos, SEEK_SET) != 0) {
            r->error = 1;
            return -1;
        }
        r->sourcePos = pos;
        r->filled = 0;
    } else if (pos < r->start) {
        return -1; /* a pipe cannot go back (the window stays as it is) */
    } else {
        uint64_t gap = pos - bufferEnd;
        while (gap > 0) {
            const size_t got = source_read(r, r->buf, gap < TOOL_READER_WINDOW ? (size_t)gap : TOOL_READER_WINDOW);
            if (got == 0) break;
            gap -= got;
        }
        r->filled = 0;
    }
    r->start = pos;
    if (r->start + r->filled < r->size && r->filled < TOOL_READER_WINDOW)
        r->filled += source_read(r, r->buf + r->filled, TOOL_READER_WINDOW - r->filled);
    memset(r->buf + r->filled, 0, TOOL_READER_PADDING);
    return r->error ? -1 : 0;
}

const uint8_t* reader_at(ToolReader* r, uint64_t pos, size_t n, size_t* left)
{
    *left = 0;
    if (r->error) return NULL;
    if (n > TOOL_READER_WINDOW) n = TOOL_READER_WINDOW;
    if (pos >= r->limit || pos >= r->size) return r->buf;
    if ((pos < r->start || pos + n > r->start + r->filled) && !(pos >= r->start && r->start + r->filled == r->size) &&
        refill(r, pos) != 0)
        return NULL;
    if (r->error) return NULL;
    const uint64_t end = r->limit < r->size ? r->limit : r->size;
    const uint64_t bufferEnd = r->start + r->filled < end ? r->start + r->filled : end;
    if (pos >= bufferEnd) return r->buf;
    *left = bufferEnd - pos < n ? (size_t)(bufferEnd - pos) : n;
    return r->buf + (pos - r->start);
}

uint64_t reader_audio_end(ToolReader* r, uint64_t floor)
{
    if (!r->seekable || r->size == TOOL_READER_UNKNOWN) return TOOL_READER_UNKNOWN;
    uint64_t end = r->size;
    while (end > floor) {
        const size_t k = end - floor < 128 ? (size_t)(end - floor) : 128;
        size_t left;
        const uint8_t* p = reader_at(r, end - k, k, &left);
        if (!p || left < k) break;
        const size_t tag = tag_trailing_bytes(p + k, (size_t)(end - floor));
        if (tag == 0) break;
        end -= tag;
    }
    return end;
}

int reader_spool(ToolReader* r)
{
    if (r->seekable || !r->file || r->start != 0) return -1;
    FILE* spool = tmpfile();
    if (!spool) return -1;
    int failed = fwrite(r->buf, 1, r->filled, spool) != r->filled;
    uint64_t size = r->filled;
    size_t got;
    while (!failed && (got = fread(r->buf, 1, TOOL_READER_WINDOW, r->file)) > 0) {
        failed = fwrite(r->buf, 1, got, spool) != got;
        size += got;
    }
    if (failed || ferror(r->file) || fflush(spool) != 0 || fseeko(spool, 0, SEEK_SET) != 0) {
        fclose(spool);
        r->error = 1;
        return -1;
    }
    if (r->ownsFile) fclose(r->file);
    r->file = spool;
    r->ownsFile = 1;
    r->seekable = 1;
    r->size = size;
    r->start = r->sourcePos = 0;
    r->filled = 0;
    return 0;
}
