#include "tool_cli.h"

#include <stdarg.h>
#include <time.h>
#include <string.h>
#include <stdlib.h>

#include "zamac.h"

#ifndef ZAMAC_VERSION_TEXT
#define ZAMAC_VERSION_TEXT "unknown"
#endif

static const char* g_name = "zamac";

void tool_set_name(const char* name) { g_name = name; }
const char* tool_name(void) { return g_name; }

void tool_error(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    fprintf(stderr, "%s: ", g_name);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    va_end(args);
}

void tool_print_version(FILE* out)
{
    fprintf(out, "%s (zamac) %s\n", g_name, ZAMAC_VERSION_TEXT);
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
        const ZamLibVersion* v = zamacGetLibVersion();
        fprintf(out, "library %s %s, built %s\n", v->libraryName, v->versionText, v->buildDate);
    }
}

int tool_check_cpu(void)
{
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return 0;
    tool_error("this processor lacks AVX2 or FMA, which the zamac library needs "
               "(x86-64 processors from 2013 on have them)");
    return -1;
}

double tool_cpu_seconds(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return (double)ts.tv_sec + ts.tv_nsec * 1e-9;
}

char* tool_output_name(const char* input, const char* extension)
{
    const size_t n = strlen(input), e = strlen(extension);
    char* name = malloc(n + e + 1);
    if (!name) return NULL;
    memcpy(name, input, n + 1);
    char* dot = strrchr(name, '.');
    char* slash = strrchr(name, '/');
    if (dot && (!slash || dot > slash)) *dot = 0;
    strcat(name, extension);
    return name;
}
