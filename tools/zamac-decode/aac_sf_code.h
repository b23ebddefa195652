/* The AAC scale-factor Huffman code (index = difference + 60), used only to skip
 * the gain elements of coupling channel elements. */
#ifndef ZAMAC_DECODE_AAC_SF_CODE_H
#define ZAMAC_DECODE_AAC_SF_CODE_H

#include <stdint.h>

typedef struct {
    uint32_t code;
    int length;
} AacSfCode;

extern const AacSfCode kAacSfCode[121];

#endif
