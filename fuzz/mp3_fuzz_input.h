// Splits a fuzzer input into parameter bytes and a stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "zamac.h"

namespace mp3fuzz {

class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint32_t take(int bytes)
    {
        uint32_t v = 0;
        for (int i = 0; i < bytes; ++i) v = (v << 8) | (pos_ < size_ ? data_[pos_++] : 0);
        return v;
    }
    // Values mostly in range, sometimes anything.
    int32_t field(uint32_t range)
    {
        const uint32_t r = take(1);
        if (r == 0xFF) return static_cast<int32_t>(take(4));
        return static_cast<int32_t>(take(2) % range);
    }
    // The rest of the input as a stream of exactly `bytes` bytes (zeros after the input).
    std::vector<uint8_t> stream(size_t bytes) const
    {
        std::vector<uint8_t> s(bytes, 0);
        if (pos_ < size_) std::memcpy(s.data(), data_ + pos_, std::min(bytes, size_ - pos_));
        return s;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

inline Mp3FrameHeader header(Input& in)
{
    Mp3FrameHeader h{};
    h.ID = in.field(2);
    h.layer = in.field(4) == 0 ? 1 : in.field(4);
    h.sampling_frequency = in.field(3);
    h.mode = in.field(4);
    h.mode_extension = in.field(4);
    h.protection_bit = in.field(2);
    return h;
}

inline Mp3SideInfo sideInfo(Input& in)
{
    Mp3SideInfo si{};
    si.part2_3_length = in.field(4096);
    si.big_values = in.field(289);
    si.global_gain = in.field(256);
    si.scalefac_compress = in.field(512);
    si.window_switching_flag = in.field(2);
    si.block_type = in.field(4);
    si.mixed_block_flag = in.field(2);
    for (int& t : si.table_select) t = in.field(32);
    for (int& g : si.subblock_gain) g = in.field(8);
    si.region0_count = in.field(16);
    si.region1_count = in.field(8);
    si.preflag = in.field(2);
    si.scalefac_scale = in.field(2);
    si.count1table_select = in.field(2);
    return si;
}

}  // namespace mp3fuzz
