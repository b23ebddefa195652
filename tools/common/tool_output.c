#include "tool_output.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

int tool_output_open(ToolOutput* out, const char* path)
{
    memset(out, 0, sizeof *out);
    out->path = path;
    if (strcmp(path, "-") == 0) {
        out->file = stdout;
        return 0;
    }
    struct stat st;
    if (stat(path, &st) == 0 && !S_ISREG(st.st_mode)) {
        out->file = fopen(path, "wb");  /* a device or a pipe */
        return out->file ? 0 : -1;
    }
    const size_t length = strlen(path);
    out->tempPath = malloc(length + 16);
    if (!out->tempPath) return -1;
    /* name.partXXXXXX beside the final file, so that rename() stays in one file system */
    memcpy(out->tempPath, path, length);
    memcpy(out->tempPath + length, ".partXXXXXX", 12);
    const int fd = mkstemp(out->tempPath);
    if (fd < 0 || !(out->file = fdopen(fd, "wb"))) {
        const int e = errno;
        if (fd >= 0) {
            close(fd);
            unlink(out->tempPath);
        }
        free(out->tempPath);
        out->tempPath = NULL;
        errno = e;
        return -1;
    }
    /* mkstemp makes the file 0600; give it the mode fopen would have given it. */
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    out->seekable = 1;
    return 0;
}

int tool_output_write(ToolOutput* out, const void* bytes, size_t count)
{
    if (out->failed) return -1;
    if (count && fwrite(bytes, 1, count, out->file) != count) {
        out->failed = 1;
        out->errorNumber = errno ? errno : EIO;
        return -1;
    }
    return 0;
}

int tool_output_rewrite_start(ToolOutput* out, const void* bytes, size_t count)
{
    if (!out->seekable || out->failed) return -1;
    if (fseek(out->file, 0, SEEK_SET) != 0) return -1;
    const int status = tool_output_write(out, bytes, count);
    fseek(out->file, 0, SEEK_END);
    return status;
}

int tool_output_close(ToolOutput* out, int keep)
{
    int ok = !out->failed;
    if (out->file) {
        errno = 0;
        if (fflush(out->file) != 0 && ok) {
            ok = 0;
            out->errorNumber = errno ? errno : EIO;
        }
        if (out->file != stdout) {
            if (fclose(out->file) != 0 && ok) {
                ok = 0;
                out->errorNumber = errno ? errno : EIO;
            }
        } else if (ferror(stdout) && ok) {
            ok = 0;
            out->errorNumber = EIO;
        }
        out->file = NULL;
    }
    if (out->tempPath) {
        if (ok && keep && rename(out->tempPath, out->path) != 0) {
            ok = 0;
            out->errorNumber = errno;
        }
        if (!ok || !keep) unlink(out->tempPath);
        free(out->tempPath);
        out->tempPath = NULL;
    }
    if (!ok) {
        out->failed = 1;
        errno = out->errorNumber;
        return -1;
    }
    return 0;
}
