/* Code tables of the AAC encoder (generated into aac_tables.c). */
#ifndef ZAMAC_ENCODE_AAC_TABLES_H
#define ZAMAC_ENCODE_AAC_TABLES_H

#include "zamac.h"

/* One spectral code book as a table for the VLC encoders (keys: see the generator). */
typedef struct {
    const VlcEntry* entries;
    int count;
    int dim;     /* 4: quadruples, 2: pairs */
    int isSigned;
    int lav;     /* largest absolute value (16 for book 11: escape) */
} AacBook;

typedef struct {
    int count;         /* num_swb */
    int offset[53];    /* swb_offset, count + 1 values */
} AacBandTable;

extern const AacBook kAacBooks[12];            /* [1..11] */
extern const VlcEntry kAacScaleFactorCode[121]; /* value = difference -60..60 */
extern const AacBandTable kAacSwbLong[12];
extern const AacBandTable kAacSwbShort[12];

#endif
