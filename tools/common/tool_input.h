/* Input for the tools: a file (or "-" for standard input) read into memory with
 * zero padding behind it, refused with a clear message above a size limit so that a
 * huge or sparse file cannot make a tool allocate without bound. */
#ifndef ZAMAC_TOOL_INPUT_H
#define ZAMAC_TOOL_INPUT_H

#ifdef __cplusplus
extern "C" {
#endif

#include <stddef.h>
#include <stdint.h>

/* The largest input read into memory: 1 GiB. */
#define TOOL_INPUT_MAX_BYTES ((size_t)1 << 30)

/* Reads path ("-": standard input) followed by padding zero bytes. Returns the
 * buffer (free() it) with *size set, or NULL after printing the reason. */
uint8_t* tool_read_input(const char* path, size_t padding, size_t* size);

#ifdef __cplusplus
}
#endif

#endif
