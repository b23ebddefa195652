/*
 * Channel layout of an AAC stream: which output channel each SCE, CPE and LFE
 * element feeds, and the WAVE channel mask of the output. Output channels are
 * ordered by their mask bits, as WAVE files want them.
 */
#ifndef ZAMAC_DECODE_AAC_LAYOUT_H
#define ZAMAC_DECODE_AAC_LAYOUT_H

#include <stdint.h>

#include "zamac.h"

#define AAC_MAX_CHANNELS 16

enum { AAC_ELEMENT_SCE = 0, AAC_ELEMENT_CPE = 1, AAC_ELEMENT_LFE = 2 };

typedef struct {
    int type;          /* AAC_ELEMENT_* */
    int tag;           /* element_instance_tag, -1 when any tag will do */
    uint32_t position[2]; /* WAVE speaker bit of each channel; 0 unknown */
    int output[2];     /* output channel of each channel, -1 none */
    int used;          /* taken by an element of the current raw data block */
} AacLayoutSlot;

typedef struct {
    AacLayoutSlot slots[AAC_MAX_CHANNELS];
    int slotCount;
    int channels;
    uint32_t channelMask;  /* 0 when the positions are unknown */
    int open;              /* no configuration known: slots are made as elements arrive */
} AacLayout;

/* channel_configuration 1..7; returns 0, or -1 for another value. */
int aac_layout_from_configuration(AacLayout* layout, int channelConfiguration);
/* The layout a program configuration element describes. */
void aac_layout_from_program(AacLayout* layout, const AacProgramConfig* program);
/* No configuration: the elements of the first raw data block define the layout. */
void aac_layout_open(AacLayout* layout);
/* Fixes an open layout once its first block is decoded. */
void aac_layout_close(AacLayout* layout);

void aac_layout_new_block(AacLayout* layout);
/* Output channels for the next element of a type (-1 where it has none). */
void aac_layout_place(AacLayout* layout, int type, int tag, int outputs[2]);
/* "FL FR FC LFE ..." */
void aac_layout_describe(const AacLayout* layout, char* text, int size);

#endif
