/* Command-line conventions shared by the zamac tools: messages prefixed with the
 * tool's name, --version text, and the processor check every tool does first (the
 * library needs AVX2 and FMA). Options themselves are parsed with getopt_long. */
#ifndef ZAMAC_TOOL_CLI_H
#define ZAMAC_TOOL_CLI_H

#ifdef __cplusplus
extern "C" {
#endif

#include <stdio.h>

/* Sets the name used in messages (e.g. "zamac-decode"). */
void tool_set_name(const char* name);
const char* tool_name(void);

/* "name: message\n" on stderr. */
void tool_error(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* "name (zamac) 7.1.0" and the library's build on out. */
void tool_print_version(FILE* out);

/* 0 when the processor has what the library needs; otherwise prints a message and
 * returns -1 (call before any library function). */
int tool_check_cpu(void);

/* CPU time of the process so far, in seconds. */
double tool_cpu_seconds(void);

/* A new string (free it) naming the output beside `input`: its extension, if any,
 * replaced by `extension` (".mp3"); NULL when out of memory. */
char* tool_output_name(const char* input, const char* extension);

/* Exit statuses: 0 success, 1 failure of the work, 2 bad command line. */
enum { TOOL_EXIT_OK = 0, TOOL_EXIT_FAILURE = 1, TOOL_EXIT_USAGE = 2 };

#ifdef __cplusplus
}
#endif

#endif
