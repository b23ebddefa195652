/* The rate options both encoders take (-b, -V, --lowpass): parsed and checked in one
 * place, with the same messages. */
#include <stdlib.h>

#include "encoder.h"
#include "tool_cli.h"

int option_kbps(const char* arg, int* kbps)
{
    char* end;
    const long v = strtol(arg, &end, 10);
    if (*end || v <= 0 || v > 100000) {
        tool_error("-b: not a bit rate: %s", arg);
        return -1;
    }
    *kbps = (int)v;
    return 0;
}

int option_quality(const char* arg, int* quality)
{
    char* end;
    const long v = strtol(arg, &end, 10);
    if (*end || v < 0 || v > 9) {
        tool_error("-V: quality is 0..9: %s", arg);
        return -1;
    }
    *quality = (int)v;
    return 0;
}

int option_lowpass_hz(const char* arg, int* hz)
{
    char* end;
    const double khz = strtod(arg, &end);
    if (*end || khz <= 0.0 || khz > 1000.0) {
        tool_error("--lowpass: not a frequency in kHz: %s", arg);
        return -1;
    }
    *hz = (int)(khz * 1000.0);
    return 0;
}
