// A small Layer III frame walker for tests: finds frames, parses header and side
// information through the library, and lays the main data of all frames end to end
// (the bit reservoir), so each granule's part 2 and 3 can be addressed by a bit
// position in one buffer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "zamac.h"

namespace mp3test {

struct Frame {
    Mp3FrameHeader header{};
    Mp3SideInfo sideInfo[4]{};
    int32_t scfsi[8]{};
    int32_t mainDataBegin = 0;
    int32_t privateBits = 0;
    size_t offset = 0;          // first byte of the frame in the file
    int headerBytes = 0;        // 4 or 6
    int sideInfoBytes = 0;
    int frameBytes = 0;
    int64_t mainDataBit = -1;   // start of this frame's main data in Stream::mainData, -1 if lost
    int channels() const { return header.mode == 3 ? 1 : 2; }
    int granules() const { return header.ID == 1 ? 2 : 1; }
    bool mpeg25 = false;
    int sampleRate = 0;
};

struct Stream {
    std::vector<uint8_t> file;
    std::vector<uint8_t> mainData;  // reservoir, with zero padding at the end
    std::vector<Frame> frames;
};

inline std::vector<uint8_t> readFile(const std::string& path)
{
    std::vector<uint8_t> data;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return data;
    uint8_t buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) data.insert(data.end(), buf, buf + n);
    std::fclose(f);
    return data;
}

// Plain header decoding, independent of the library, for frame lengths.
struct RawHeader {
    int version;  // 1, 2, or 25
    int layerCode, bitrateIndex, rateIndex, padding, mode, protection;
};

inline bool rawHeader(const uint8_t* p, RawHeader& h)
{
    if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return false;
    const int v = (p[1] >> 3) & 3;
    if (v == 1) return false;
    h.version = v == 3 ? 1 : v == 2 ? 2 : 25;
    h.layerCode = (p[1] >> 1) & 3;
    h.protection = p[1] & 1;
    h.bitrateIndex = p[2] >> 4;
    h.rateIndex = (p[2] >> 2) & 3;
    h.padding = (p[2] >> 1) & 1;
    h.mode = p[3] >> 6;
    return h.layerCode == 1 && h.bitrateIndex != 15 && h.rateIndex != 3;
}

inline int sampleRateOf(const RawHeader& h)
{
    static const int rates[3][3] = {{44100, 48000, 32000}, {22050, 24000, 16000}, {11025, 12000, 8000}};
    return rates[h.version == 1 ? 0 : h.version == 2 ? 1 : 2][h.rateIndex];
}

inline int frameLength(const RawHeader& h)
{
    static const int kbps1[15] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    static const int kbps2[15] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    const int rate = sampleRateOf(h);
    if (h.bitrateIndex == 0) return 0;
    if (h.version == 1) return 144000 * kbps1[h.bitrateIndex] / rate + h.padding;
    return 72000 * kbps2[h.bitrateIndex] / rate + h.padding;
}

// Free format: the distance to the next header with the same fixed fields.
inline int freeFormatLength(const std::vector<uint8_t>& file, size_t pos)
{
    for (size_t q = pos + 4; q + 4 <= file.size(); ++q) {
        if (file[q] == file[pos] && file[q + 1] == file[pos + 1] &&
            (file[q + 2] & 0xFD) == (file[pos + 2] & 0xFD) && (file[q + 3] & 0xC0) == (file[pos + 3] & 0xC0))
            return static_cast<int>(q - pos);
    }
    return static_cast<int>(file.size() - pos);
}

inline Stream walk(const std::string& path)
{
    Stream s;
    s.file = readFile(path);
    std::vector<uint8_t> padded = s.file;
    padded.resize(padded.size() + 64, 0);
    size_t pos = 0;
    while (pos + 4 <= s.file.size()) {
        RawHeader raw;
        if (!rawHeader(&s.file[pos], raw)) {
            ++pos;
            continue;
        }
        int length = frameLength(raw);
        if (length == 0) length = freeFormatLength(s.file, pos);
        Frame f;
        f.offset = pos;
        f.frameBytes = length;
        f.mpeg25 = raw.version == 25;
        f.sampleRate = sampleRateOf(raw);
        const uint8_t* p = &padded[pos];
        if (zamsUnpackFrameHeader_MP3(&p, &f.header) != zamStsOk) break;
        f.headerBytes = static_cast<int>(p - &padded[pos]);
        const uint8_t* q = p;
        if (zamsUnpackSideInfo_MP3(&q, f.sideInfo, &f.mainDataBegin, &f.privateBits, f.scfsi, &f.header) !=
            zamStsOk)
            break;
        f.sideInfoBytes = static_cast<int>(q - p);
        if (pos + length > s.file.size()) break;  // truncated last frame
        const int64_t reservoirEnd = static_cast<int64_t>(s.mainData.size());
        f.mainDataBit = reservoirEnd - f.mainDataBegin >= 0 ? (reservoirEnd - f.mainDataBegin) * 8 : -1;
        const size_t mainStart = pos + f.headerBytes + f.sideInfoBytes;
        s.mainData.insert(s.mainData.end(), s.file.begin() + mainStart, s.file.begin() + pos + length);
        s.frames.push_back(f);
        pos += length;
    }
    s.mainData.resize(s.mainData.size() + 64, 0);
    return s;
}

// Bit i (MSB first) of a buffer.
inline int bitAt(const uint8_t* p, int64_t i) { return (p[i >> 3] >> (7 - (i & 7))) & 1; }

inline bool sameBits(const uint8_t* a, int64_t aStart, const uint8_t* b, int64_t bStart, int64_t count)
{
    for (int64_t i = 0; i < count; ++i)
        if (bitAt(a, aStart + i) != bitAt(b, bStart + i)) return false;
    return true;
}

}  // namespace mp3test
