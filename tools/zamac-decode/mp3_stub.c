/* Placeholder until the MP3 decoder lands: reports that MP3 input is not handled. */
#include <stdio.h>

#include "decoder.h"

int mp3_decode(const uint8_t* data, size_t size, const DecodeOptions* options, PcmSink* sink,
               DecodeStats* stats)
{
    (void)data; (void)size; (void)options; (void)sink; (void)stats;
    fprintf(stderr, "zamac-decode: no AAC (ADTS or ADIF) stream found, and MP3 decoding is not built in\n");
    return 1;
}
