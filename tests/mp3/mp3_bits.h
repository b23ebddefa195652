// A plain test-side bit writer (MSB first), independent of the library's writers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mp3test {

class Bits {
public:
    explicit Bits(int startOffset = 0) : bits_(startOffset, false), start_(startOffset) {}
    void put(uint32_t value, int n)
    {
        for (int i = n - 1; i >= 0; --i) bits_.push_back(((value >> i) & 1) != 0);
    }
    void put(const std::string& code)
    {
        for (char c : code) bits_.push_back(c == '1');
    }
    int64_t size() const { return static_cast<int64_t>(bits_.size()) - start_; }
    // The bytes, with `padding` zero bytes after the last one.
    std::vector<uint8_t> bytes(size_t padding = 16) const
    {
        std::vector<uint8_t> out((bits_.size() + 7) / 8 + padding, 0);
        for (size_t i = 0; i < bits_.size(); ++i)
            if (bits_[i]) out[i / 8] |= static_cast<uint8_t>(0x80 >> (i % 8));
        return out;
    }

private:
    std::vector<bool> bits_;
    int start_;
};

}  // namespace mp3test
