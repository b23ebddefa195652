/* The growing byte buffer of the encoder's output. */
#include <stdlib.h>
#include <string.h>

#include "encoder.h"

int bytes_reserve(ByteBuffer* b, size_t extra)
{
    if (b->size + extra <= b->capacity) return 0;
    size_t cap = b->capacity ? b->capacity : 65536;
    while (cap < b->size + extra) cap *= 2;
    uint8_t* p = realloc(b->data, cap);
    if (!p) return -1;
    b->data = p;
    b->capacity = cap;
    return 0;
}

int bytes_append(ByteBuffer* b, const void* data, size_t n)
{
    if (bytes_reserve(b, n)) return -1;
    memcpy(b->data + b->size, data, n);
    b->size += n;
    return 0;
}
