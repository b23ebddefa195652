/*
 * The SBR encoder (see sbr_encoder.h). First version: the interface only; a frame
 * carries no payload yet (0 bits).
 */
#include <stdlib.h>

#include "sbr_encoder.h"

struct SbrEncoder {
    int rate, channels, bitRate;
};

SbrEncoder* sbr_encoder_open(int inRate, int channels, int bitRate)
{
    if (channels < 1 || channels > 2 || bitRate <= 0) return NULL;
    if (inRate != 22050 && inRate != 24000 && inRate != 32000 && inRate != 44100 && inRate != 48000) return NULL;
    SbrEncoder* e = calloc(1, sizeof *e);
    if (!e) return NULL;
    e->rate = inRate, e->channels = channels, e->bitRate = bitRate;
    return e;
}

void sbr_encoder_close(SbrEncoder* e)
{
    free(e);
}

int sbr_encoder_frame(SbrEncoder* e, const float* const* pcm, uint8_t* buf, int bufBytes)
{
    if (!e || !pcm || !buf || bufBytes < 0) return -1;
    return 0;
}

int sbr_encoder_delay(const SbrEncoder* e)
{
    (void)e;
    return 0;
}
