// Test-side helpers for the AAC bit-stream tests: a bit writer, encoders for the
// built-in codes, and a padded stream buffer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "aac/aac_huffman.h"
#include "zamac.h"

namespace aactest {

// Writes fields most significant bit first.
class BitWriter {
public:
    void put(uint64_t value, int n)  // n up to 64
    {
        for (int i = n - 1; i >= 0; --i) putBit(static_cast<uint32_t>((value >> i) & 1u));
    }
    void putBit(uint32_t bit)
    {
        if (bits_ % 8 == 0) bytes_.push_back(0);
        if (bit) bytes_.back() |= static_cast<uint8_t>(0x80u >> (bits_ % 8));
        ++bits_;
    }
    void alignZero()
    {
        while (bits_ % 8) putBit(0);
    }
    size_t bits() const { return bits_; }
    // The bytes plus `pad` bytes of padding (the readers load 4 bytes at a time).
    std::vector<uint8_t> bytes(size_t pad = 8, uint8_t padValue = 0) const
    {
        std::vector<uint8_t> v = bytes_;
        v.insert(v.end(), pad, padValue);
        return v;
    }

    // Scale-factor difference -60..60.
    void scaleFactorDiff(int diff)
    {
        const zam::AacHuffCode& c = zam::kAacScaleFactorCodes[diff + 60];
        put(c.code, static_cast<int>(c.length));
    }

    // One tuple of spectral book 1..11 (values in bit-stream order), with sign bits
    // and book-11 escapes.
    void spectralTuple(int book, const int32_t* v)
    {
        const zam::AacSpectralBook& b = zam::kAacSpectralBooks[book];
        const int mod = b.isSigned ? 2 * b.largestValue + 1 : b.largestValue + 1;
        const int off = b.isSigned ? b.largestValue : 0;
        int index = 0;
        for (int k = 0; k < b.dimension; ++k) {
            int mag = b.isSigned ? v[k] : (v[k] < 0 ? -v[k] : v[k]);
            if (book == 11 && mag > 15) mag = 16;
            index = index * mod + mag + off;
        }
        put(b.codes[index].code, static_cast<int>(b.codes[index].length));
        if (!b.isSigned) {
            for (int k = 0; k < b.dimension; ++k) {
                if (v[k] != 0) putBit(v[k] < 0 ? 1 : 0);
            }
        }
        if (book == 11) {
            for (int k = 0; k < 2; ++k) {
                const int mag = v[k] < 0 ? -v[k] : v[k];
                if (mag < 16) continue;
                int n = 0;
                while ((mag >> (n + 5)) != 0) ++n;  // 2^(n+4) <= mag < 2^(n+5)
                for (int i = 0; i < n; ++i) putBit(1);
                putBit(0);
                put(static_cast<uint32_t>(mag - (1 << (n + 4))), n + 4);
            }
        }
    }

private:
    std::vector<uint8_t> bytes_;
    size_t bits_ = 0;
};

inline bool readFile(const std::string& path, std::vector<uint8_t>& out)
{
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    uint8_t buf[65536];
    size_t n;
    out.clear();
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.insert(out.end(), buf, buf + n);
    std::fclose(f);
    return true;
}

}  // namespace aactest

namespace aactest {

// ics_info() of a long sequence without prediction.
inline void writeLongIcs(BitWriter& w, int maxSfb, int windowSequence = 0)
{
    w.put(0, 1);  // ics_reserved_bit
    w.put(static_cast<uint32_t>(windowSequence), 2);
    w.put(0, 1);  // window_shape
    w.put(static_cast<uint32_t>(maxSfb), 6);
    w.put(0, 1);  // predictor_data_present
}

inline void writeShortIcs(BitWriter& w, int maxSfb, int grouping)
{
    w.put(0, 1);
    w.put(2, 2);
    w.put(1, 1);
    w.put(static_cast<uint32_t>(maxSfb), 4);
    w.put(static_cast<uint32_t>(grouping), 7);
}

// One section: its code book and its length in escape pieces.
inline void writeSection(BitWriter& w, int book, int length, bool eightShort)
{
    const int bits = eightShort ? 3 : 5;
    const int escape = eightShort ? 7 : 31;
    w.put(static_cast<uint32_t>(book), 4);
    while (length >= escape) {
        w.put(static_cast<uint32_t>(escape), bits);
        length -= escape;
    }
    w.put(static_cast<uint32_t>(length), bits);
}

// pulse_data_present, tns_data_present, gain_control_data_present all 0.
inline void writeNoTools(BitWriter& w) { w.put(0, 3); }

// Fresh per-channel outputs, canary-filled.
struct ChannelOutputs {
    AacChanInfo info;
    AacIcsInfo ics;
    AacMainHeader mainHeader;
    int16_t sf[8 * 64];
    uint8_t cb[8 * 64];
    int32_t spectrum[1024];
    int8_t tnsCoef[60];

    explicit ChannelOutputs(int sfi)
    {
        std::memset(this, 0xA5, sizeof *this);
        info.sampling_frequency_index = sfi;
        info.num_pred_sfb = 0;
        info.pIcsInfo = &ics;
    }
};

}  // namespace aactest
