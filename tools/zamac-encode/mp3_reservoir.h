/* The bit reservoir as the encoder runs it (the record and its operations are
 * described with Mp3BitReservoir in zamac.h), and the placement of each frame's main
 * data into the frames' slots, main_data_begin bytes back. */
#ifndef ZAMAC_ENCODE_MP3_RESERVOIR_H
#define ZAMAC_ENCODE_MP3_RESERVOIR_H

#include <stddef.h>
#include <stdint.h>

#include "encoder.h"
#include "zamac.h"

/* Frame start of a CBR stream: padding, frame size and main-data bits. */
void reservoir_begin_frame(Mp3BitReservoir* r);
/* Frame start at a given bit rate without padding (VBR frames). */
void reservoir_begin_frame_at(Mp3BitReservoir* r, int bitrate);
/* Frame size in bytes of a bit rate (no padding). */
int reservoir_frame_bytes(const Mp3BitReservoir* r, int bitrate);
/* The bits each granule/channel may take, from their perceptual entropy and block
 * type: the mean share plus part of the reservoir for the hard ones. */
void reservoir_budgets(const Mp3BitReservoir* r, const int* pe, const int* blockType, int count, int* budget);
/* Frame end after U bits of main data; returns the bits given up (ancillary). */
int reservoir_end_frame(Mp3BitReservoir* r, int usedBits);

/* Main data written into the stream's frame slots. */
typedef struct {
    size_t file;  /* offset of the slot in the output */
    long md;      /* offset of the slot in the main-data stream */
    int len;
} Slot;

typedef struct {
    Slot slots[64];  /* the newest frames' slots (a ring) */
    int count;
    long mdEnd;      /* main-data stream offset after the last slot */
} MainDataWriter;

/* Appends a frame (header and side information in `head`, then a zeroed slot of
 * slotBytes) to out and records the slot. Returns 0 or -1 (out of memory). */
int main_data_add_frame(MainDataWriter* w, ByteBuffer* out, const uint8_t* head, int headBytes, int slotBytes);
/* Writes bytes of main data starting `back` bytes before the newest slot. */
void main_data_write(MainDataWriter* w, ByteBuffer* out, int back, const uint8_t* data, int n);

#endif
