#include "tool_input.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "tool_cli.h"

uint8_t* tool_read_input(const char* path, size_t padding, size_t* size)
{
    const int isStdin = strcmp(path, "-") == 0;
    FILE* f = isStdin ? stdin : fopen(path, "rb");
    if (!f) {
        tool_error("cannot open %s: %s", path, strerror(errno));
        return NULL;
    }
    const char* shown = isStdin ? "standard input" : path;
    struct stat st;
    size_t capacity = 1 << 20;
    if (fstat(fileno(f), &st) == 0 && S_ISREG(st.st_mode)) {
        if ((uint64_t)st.st_size > TOOL_INPUT_MAX_BYTES) {
            tool_error("%s is %llu bytes; inputs above %zu MiB are refused", shown,
                       (unsigned long long)st.st_size, TOOL_INPUT_MAX_BYTES >> 20);
            if (!isStdin) fclose(f);
            return NULL;
        }
        capacity = (size_t)st.st_size + 1;  /* one more byte shows the end */
    } else if (fstat(fileno(f), &st) == 0 && S_ISDIR(st.st_mode)) {
        tool_error("%s is a directory", shown);
        if (!isStdin) fclose(f);
        return NULL;
    }
    size_t used = 0;
    uint8_t* data = malloc(capacity + padding);
    if (!data) tool_error("out of memory reading %s", shown);
    while (data) {
        used += fread(data + used, 1, capacity - used, f);
        if (used < capacity || ferror(f)) break;
        if (capacity >= TOOL_INPUT_MAX_BYTES) {
            tool_error("%s is larger than %zu MiB; such inputs are refused", shown, TOOL_INPUT_MAX_BYTES >> 20);
            free(data);
            data = NULL;
            break;
        }
        capacity = capacity * 2 > TOOL_INPUT_MAX_BYTES ? TOOL_INPUT_MAX_BYTES : capacity * 2;
        uint8_t* bigger = realloc(data, capacity + padding);
        if (!bigger) {
            free(data);
            tool_error("out of memory reading %s", shown);
        }
        data = bigger;
    }
    if (data && ferror(f)) {
        tool_error("cannot read %s: %s", shown, strerror(errno));
        free(data);
        data = NULL;
    }
    if (!isStdin) fclose(f);
    if (data) {
        memset(data + used, 0, padding);
        *size = used;
    }
    return data;
}
