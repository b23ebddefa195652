// Helpers of the VLC tests: the standards' code books read from the shared
// tables, specs in test-owned memory, and an independent bit writer.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"
#include "zamac.h"

namespace vlctest {

struct CodeWord {
    int index;       // AAC: code-book index; MP3: x * 16 + y
    int length;
    uint32_t code;
};

struct CodeBook {
    int dim = 0;
    bool isSigned = false;
    int lav = 0;
    int linbits = 0;
    std::vector<CodeWord> words;
    int maxLength() const
    {
        int m = 0;
        for (const auto& w : words) m = std::max(m, w.length);
        return m;
    }
};

inline uint32_t parseBits(const std::string& s)
{
    uint32_t v = 0;
    for (char c : s) v = (v << 1) | (c == '1' ? 1u : 0u);
    return v;
}

// AAC spectral books 1..11 by number.
inline const std::map<int, CodeBook>& aacBooks()
{
    static const std::map<int, CodeBook> books = [] {
        std::map<int, CodeBook> out;
        std::ifstream in(zamtest::sharedPath("tables/aac_spectral_huffman.txt"));
        std::string line;
        CodeBook* cur = nullptr;
        while (std::getline(in, line)) {
            if (line.rfind("# book", 0) == 0) {
                std::istringstream ss(line.substr(2));
                std::string word;
                int number, dim, sgn, lav;
                ss >> word >> number >> word >> dim >> word >> sgn >> word >> lav;
                cur = &out[number];
                cur->dim = dim;
                cur->isSigned = sgn != 0;
                cur->lav = lav;
            } else if (!line.empty() && line[0] != '#' && cur) {
                std::istringstream ss(line);
                int index, length;
                std::string bits;
                ss >> index >> length >> bits;
                cur->words.push_back({index, length, parseBits(bits)});
            }
        }
        return out;
    }();
    return books;
}

// MP3 big-value pair tables by number (1..31, not 4 or 14).
inline const std::map<int, CodeBook>& mp3Tables()
{
    static const std::map<int, CodeBook> tables = [] {
        std::map<int, CodeBook> out;
        std::ifstream in(zamtest::sharedPath("tables/mp3_huffman_pairs.txt"));
        std::string line;
        CodeBook* cur = nullptr;
        while (std::getline(in, line)) {
            if (line.rfind("# table", 0) == 0) {
                std::istringstream ss(line.substr(2));
                std::string word;
                int number, linbits;
                ss >> word >> number >> word >> linbits;
                cur = &out[number];
                cur->dim = 2;
                cur->linbits = linbits;
            } else if (!line.empty() && line[0] != '#' && cur) {
                std::istringstream ss(line);
                int x, y, length;
                std::string bits;
                ss >> x >> y >> length >> bits;
                cur->words.push_back({x * 16 + y, length, parseBits(bits)});
            }
        }
        return out;
    }();
    return tables;
}

// The book's tuple of an AAC index, in stream order.
inline std::vector<int> aacTuple(const CodeBook& b, int index)
{
    const int mod = b.isSigned ? 2 * b.lav + 1 : b.lav + 1;
    const int off = b.isSigned ? b.lav : 0;
    std::vector<int> t(b.dim);
    for (int k = b.dim - 1; k >= 0; --k) {
        t[k] = index % mod - off;
        index /= mod;
    }
    return t;
}

// A code word followed by one sign bit per non-zero element of `signedValues`.
inline VlcEntry withSignBits(int value, const CodeWord& w, const std::vector<int>& signedValues)
{
    uint32_t code = w.code;
    int length = w.length;
    for (int v : signedValues)
        if (v != 0) {
            code = (code << 1) | (v < 0 ? 1u : 0u);
            ++length;
        }
    return {value, static_cast<int32_t>(code), length};
}

// Every sign combination of an unsigned tuple (the tuple itself first).
inline std::vector<std::vector<int>> signVariants(const std::vector<int>& magnitudes)
{
    std::vector<std::vector<int>> out{magnitudes};
    for (size_t k = 0; k < magnitudes.size(); ++k) {
        if (magnitudes[k] == 0) continue;
        const size_t n = out.size();
        for (size_t i = 0; i < n; ++i) {
            auto v = out[i];
            v[k] = -v[k];
            out.push_back(v);
        }
    }
    return out;
}

// A spec in test-owned memory, at a chosen distance from a 64-byte boundary.
struct SpecMemory {
    std::vector<uint8_t> raw;
    uint8_t* mem = nullptr;
    void allocate(int size, size_t misalign = 0)
    {
        raw.assign(static_cast<size_t>(size) + 128, zamtest::kCanary);
        auto a = reinterpret_cast<uintptr_t>(raw.data());
        mem = reinterpret_cast<uint8_t*>(((a + 63) & ~uintptr_t{63}) + misalign);
    }
};

struct DecodeSpec : SpecMemory {
    int size = 0;
    ZamStatus status = zamStsOk;
    DecodeSpec(const std::vector<VlcEntry>& table, const std::vector<int>& widths, size_t misalign = 0)
    {
        status = zamsVLCDecodeGetSize_32s(table.data(), static_cast<int>(table.size()), widths.data(),
                                          static_cast<int>(widths.size()), &size);
        if (status != zamStsOk) return;
        allocate(size, misalign);
        status = zamsVLCDecodeInit_32s(table.data(), static_cast<int>(table.size()), widths.data(),
                                       static_cast<int>(widths.size()), spec());
    }
    DecodeSpec(const std::vector<VlcEntry>& table, const std::vector<int>& widths, int elements, int valueBits)
    {
        status = zamsVLCDecodeUTupleGetSize_32s(table.data(), static_cast<int>(table.size()), widths.data(),
                                                static_cast<int>(widths.size()), elements, valueBits, &size);
        if (status != zamStsOk) return;
        allocate(size);
        status = zamsVLCDecodeUTupleInit_32s(table.data(), static_cast<int>(table.size()), widths.data(),
                                             static_cast<int>(widths.size()), elements, valueBits, spec());
    }
    VlcDecodeSpec* spec() { return reinterpret_cast<VlcDecodeSpec*>(mem); }
    // The aligned header and its fields.
    const uint8_t* header() const { return mem + ((64 - (reinterpret_cast<uintptr_t>(mem) & 63)) & 63); }
    int32_t field(int byteOffset) const
    {
        int32_t v;
        std::memcpy(&v, header() + byteOffset, 4);
        return v;
    }
    int elementBits() const { return field(24); }
    int lenBits() const { return field(28); }
    int peekWidth() const { return field(8); }
    const uint8_t* table() const
    {
        const uint8_t* p;
        std::memcpy(&p, header() + 16, sizeof p);
        return p;
    }
    // Element i of the table, unsigned.
    uint32_t element(int i) const
    {
        const int bytes = elementBits() / 8;
        uint32_t v = 0;
        std::memcpy(&v, table() + static_cast<size_t>(i) * bytes, bytes);
        return v;
    }
};

struct EncodeSpec : SpecMemory {
    int size = 0;
    ZamStatus status = zamStsOk;
    explicit EncodeSpec(const std::vector<VlcEntry>& table, size_t misalign = 0)
    {
        status = zamsVLCEncodeGetSize_32s(table.data(), static_cast<int>(table.size()), &size);
        if (status != zamStsOk) return;
        allocate(size, misalign);
        status = zamsVLCEncodeInit_32s(table.data(), static_cast<int>(table.size()), spec());
    }
    VlcEncodeSpec* spec() { return reinterpret_cast<VlcEncodeSpec*>(mem); }
};

// Independent MSB-first bit writer over a 64-byte-aligned buffer with slack.
struct BitSink {
    std::vector<uint8_t> raw;
    uint8_t* base;
    size_t bit;  // absolute bit position from base
    explicit BitSink(size_t bytes, size_t startBit = 0, uint8_t fill = 0) : raw(bytes + 192, fill)
    {
        auto a = reinterpret_cast<uintptr_t>(raw.data());
        base = reinterpret_cast<uint8_t*>(((a + 63) & ~uintptr_t{63}) + 64);
        bit = startBit;
    }
    void put(uint32_t value, int n)
    {
        for (int k = n - 1; k >= 0; --k) {
            const uint8_t mask = static_cast<uint8_t>(0x80u >> (bit & 7));
            if ((value >> k) & 1u) base[bit >> 3] |= mask;
            else base[bit >> 3] &= static_cast<uint8_t>(~mask);
            ++bit;
        }
    }
    uint32_t get(size_t at, int n) const
    {
        uint32_t v = 0;
        for (int k = 0; k < n; ++k, ++at) v = (v << 1) | ((base[at >> 3] >> (7 - (at & 7))) & 1u);
        return v;
    }
};

}  // namespace vlctest
