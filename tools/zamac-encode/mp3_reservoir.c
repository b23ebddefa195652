/* Bit reservoir operations on Mp3BitReservoir, and main-data placement. */
#include "mp3_reservoir.h"

#include <string.h>

static int nominal_frame_scaled(const Mp3BitReservoir* r, int bitrate)
{
    return (r->granules == 2 ? 144000 : 72000) * bitrate;
}

int reservoir_frame_bytes(const Mp3BitReservoir* r, int bitrate)
{
    return nominal_frame_scaled(r, bitrate) / r->samplingRate;
}

void reservoir_begin_frame(Mp3BitReservoir* r)
{
    const int f = nominal_frame_scaled(r, r->bitrate);
    r->frameRemainder += f % r->samplingRate;
    r->paddingBit = 0;
    if (r->frameRemainder >= r->samplingRate) {
        r->frameRemainder -= r->samplingRate;
        r->paddingBit = 1;
    }
    r->frameBytes = f / r->samplingRate + r->paddingBit;
    r->mainDataBits = 8 * r->frameBytes - r->sideInfoBits;
}

void reservoir_begin_frame_at(Mp3BitReservoir* r, int bitrate)
{
    r->paddingBit = 0;
    r->frameBytes = reservoir_frame_bytes(r, bitrate);
    r->mainDataBits = 8 * r->frameBytes - r->sideInfoBits;
}

void reservoir_budgets(const Mp3BitReservoir* r, const int* pe, const int* blockType, int count, int* budget)
{
    const int mean = r->mainDataBits / count;
    /* Up to 60 % of the reservoir for this frame, shared by demand. */
    const int pool = r->bits * 6 / 10;
    long demand[8], total = 0;
    for (int i = 0; i < count; ++i) {
        long d = pe[i] - 400;
        if (d < 0) d = 0;
        if (blockType[i] == 2) d += 1500;
        demand[i] = d;
        total += d;
    }
    int left = r->bits + r->mainDataBits;
    for (int i = 0; i < count; ++i) {
        long b = mean + (total > 0 ? (long)pool * demand[i] / total : 0);
        if (b > 4095) b = 4095;
        if (b > left) b = left;
        budget[i] = (int)b;
        left -= (int)b;
    }
    /* What the frame leaves unused stays in the reservoir. */
}

int reservoir_end_frame(Mp3BitReservoir* r, int usedBits)
{
    int bits = r->bits + r->mainDataBits - usedBits;
    int given = bits % 8;
    bits -= given;
    if (bits > r->maxBits) {
        given += bits - r->maxBits;
        bits = r->maxBits;
    }
    r->bits = bits;
    return given;
}

int main_data_add_frame(MainDataWriter* w, ByteBuffer* out, const uint8_t* head, int headBytes, int slotBytes)
{
    if (bytes_reserve(out, (size_t)headBytes + (size_t)slotBytes)) return -1;
    memcpy(out->data + out->size, head, (size_t)headBytes);
    memset(out->data + out->size + headBytes, 0, (size_t)slotBytes);
    Slot* s = &w->slots[w->count % 64];
    s->file = out->size + (size_t)headBytes;
    s->md = w->mdEnd;
    s->len = slotBytes;
    w->count++;
    w->mdEnd += slotBytes;
    out->size += (size_t)headBytes + (size_t)slotBytes;
    return 0;
}

void main_data_write(MainDataWriter* w, ByteBuffer* out, int back, const uint8_t* data, int n)
{
    const Slot* newest = &w->slots[(w->count - 1) % 64];
    long md = newest->md - back;
    int k = w->count - 1;
    while (k > 0 && w->slots[k % 64].md > md) --k;  /* the slot holding the first byte */
    for (int i = 0; i < n; ++i, ++md) {
        while (md >= w->slots[k % 64].md + w->slots[k % 64].len) ++k;
        const Slot* s = &w->slots[k % 64];
        out->data[s->file + (size_t)(md - s->md)] = data[i];
    }
}
