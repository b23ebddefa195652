/* Output files that never lie: every write is checked, a regular file is written
 * under a temporary name in the same folder and renamed only when everything was
 * written, and a failed run leaves nothing behind under the output name. "-" is
 * standard output; devices and pipes are written directly. */
#ifndef ZAMAC_TOOL_OUTPUT_H
#define ZAMAC_TOOL_OUTPUT_H

#ifdef __cplusplus
extern "C" {
#endif

#include <stddef.h>
#include <stdio.h>

typedef struct {
    FILE* file;
    const char* path;     /* the name given ("-" for standard output) */
    char* tempPath;       /* NULL when written directly */
    int seekable;         /* a regular file: the start may be rewritten */
    int failed;           /* a write failed; errorNumber says why */
    int errorNumber;
} ToolOutput;

/* Opens path for writing. Returns 0, or -1 with errno set. */
int tool_output_open(ToolOutput* out, const char* path);

/* Writes bytes; on failure marks the output failed and returns -1. */
int tool_output_write(ToolOutput* out, const void* bytes, size_t count);

/* Rewrites count bytes at the start of a seekable output (e.g. a header with the
 * final sizes), then returns to the end. Returns 0, or -1 (nothing done when the
 * output cannot seek). */
int tool_output_rewrite_start(ToolOutput* out, const void* bytes, size_t count);

/* Flushes and closes. With keep != 0 and no failure the file gets its name;
 * otherwise the temporary file is removed. Returns 0 when the output is complete,
 * -1 otherwise (errno set). */
int tool_output_close(ToolOutput* out, int keep);

#ifdef __cplusplus
}
#endif

#endif
