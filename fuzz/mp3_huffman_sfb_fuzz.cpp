// zamsHuffmanDecodeSfb_MP3_1u32s on random side information, band tables and data.
#include "mp3_huffman_fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return mp3fuzz::runHuffman(data, size, mp3fuzz::Decoder::Sfb);
}
