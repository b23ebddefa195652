// Shared body of the Huffman decoder fuzz targets: random side information and
// random data in a buffer that ends three bytes after the budget's last byte, so
// that any read past what the decoder may touch is caught.
#pragma once

#include <vector>

#include "mp3_fuzz_input.h"

namespace mp3fuzz {

enum class Decoder { Decode, Sfb, SfbMbp };

inline int runHuffman(const uint8_t* data, size_t size, Decoder which)
{
    Input in(data, size);
    const Mp3FrameHeader h = header(in);
    const Mp3SideInfo si = sideInfo(in);
    int32_t hufSize = in.field(si.part2_3_length > 0 && si.part2_3_length < 4096 ? si.part2_3_length + 1 : 4096);
    hufSize %= 8001;  // keeps the buffer below small even for wild values
    const int32_t startOffset = in.field(8);
    // Band tables: mostly valid-looking, sometimes random.
    int16_t longTable[6 * 23], shortTable[6 * 14], mbp[6 * 2];
    const bool randomTables = in.take(1) == 0x5A;
    for (int r = 0; r < 6; ++r) {
        for (int i = 0; i < 23; ++i) longTable[r * 23 + i] = static_cast<int16_t>(randomTables ? in.take(2) : i * 576 / 22);
        for (int i = 0; i < 14; ++i) shortTable[r * 14 + i] = static_cast<int16_t>(randomTables ? in.take(2) : i * 192 / 13);
        mbp[r * 2] = static_cast<int16_t>(randomTables ? in.take(2) : 8);
        mbp[r * 2 + 1] = static_cast<int16_t>(randomTables ? in.take(2) : in.take(1) % 8);
    }
    const int64_t budgetBytes =
        hufSize > 0 && startOffset >= 0 && startOffset < 8 ? (int64_t{startOffset} + hufSize + 7) / 8 : 1;
    std::vector<uint8_t> stream = in.stream(static_cast<size_t>(budgetBytes + 3));
    std::vector<int32_t> out(576, 0x11111111);
    int32_t bound = -7;
    const uint8_t* p = stream.data();
    int32_t offset = startOffset;
    ZamStatus s = zamStsOk;
    switch (which) {
    case Decoder::Decode: s = zamsHuffmanDecode_MP3_1u32s(&p, &offset, out.data(), &bound, &si, &h, hufSize); break;
    case Decoder::Sfb:
        s = zamsHuffmanDecodeSfb_MP3_1u32s(&p, &offset, out.data(), &bound, &si, &h, hufSize, longTable);
        break;
    case Decoder::SfbMbp:
        s = zamsHuffmanDecodeSfbMbp_MP3_1u32s(&p, &offset, out.data(), &bound, &si, &h, hufSize, longTable,
                                              shortTable, mbp);
        break;
    }
    if (s == zamStsOk) {
        // The cursor ends exactly on the budget, and the bound is consistent.
        if ((p - stream.data()) * 8 + offset - startOffset != hufSize) __builtin_trap();
        if (bound < 0 || bound > 576) __builtin_trap();
        for (int i = bound; i < 576; ++i)
            if (out[i] != 0) __builtin_trap();
        if (bound > 1 && out[bound - 1] == 0) __builtin_trap();
    }
    return 0;
}

}  // namespace mp3fuzz
