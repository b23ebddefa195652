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
    int index;  // AAC: code-book index; MP3: x * 16 + y
    int length;
    uint32_t code;
};

struct CodeBook {
    int dim = 2, lav = 0, linbits = 0;
    bool isSigned = false;
    std::vector<CodeWord> words;
};

inline uint32_t parseBits(const std::string& s)
{
    uint32_t v = 0;
    for (char c : s) v = (v << 1) | (c == '1' ? 1u : 0u);
    return v;
}

// AAC spectral books 1..11 ("# book N dim D signed S lav L", rows "index length bits") or MP3
// pair tables ("# table N linbits L", rows "x y length bits"), by number.
inline std::map<int, CodeBook> readBooks(const char* file, bool aac)
{
    std::map<int, CodeBook> out;
    std::ifstream in(zamtest::sharedPath(file));
    std::string line, word;
    CodeBook* cur = nullptr;
    while (std::getline(in, line)) {
        std::istringstream ss(line);
        if (line.rfind(aac ? "# book" : "# table", 0) == 0) {
            int number, a, b = 0, c = 0;
            ss >> word >> word >> number >> word >> a;
            if (aac) ss >> word >> b >> word >> c;
            cur = &out[number];
            if (aac) *cur = CodeBook{a, c, 0, b != 0, {}};
            else cur->linbits = a;
        } else if (!line.empty() && line[0] != '#' && cur) {
            int x, y = 0, length;
            std::string bits;
            if (aac) ss >> x >> length >> bits;
            else ss >> x >> y >> length >> bits;
            cur->words.push_back({aac ? x : x * 16 + y, length, parseBits(bits)});
        }
    }
    return out;
}
inline const std::map<int, CodeBook>& aacBooks()
{
    static const auto books = readBooks("tables/aac_spectral_huffman.txt", true);
    return books;
}
inline const std::map<int, CodeBook>& mp3Tables()  // 1..31, not 4 or 14
{
    static const auto tables = readBooks("tables/mp3_huffman_pairs.txt", false);
    return tables;
}

// The book's tuple of an AAC index, in stream order.
inline std::vector<int> aacTuple(const CodeBook& b, int index)
{
    const int mod = b.isSigned ? 2 * b.lav + 1 : b.lav + 1, off = b.isSigned ? b.lav : 0;
    std::vector<int> t(b.dim);
    for (int k = b.dim - 1; k >= 0; --k, index /= mod) t[k] = index % mod - off;
    return t;
}

// A code word followed by one sign bit per non-zero element of `signedValues`.
inline VlcEntry withSignBits(int value, const CodeWord& w, const std::vector<int>& signedValues)
{
    uint32_t code = w.code;
    int length = w.length;
    for (int v : signedValues)
        if (v != 0) code = (code << 1) | (v < 0 ? 1u : 0u), ++length;
    return {value, static_cast<int32_t>(code), length};
}

// Every sign combination of an unsigned tuple (the tuple itself first).
inline std::vector<std::vector<int>> signVariants(const std::vector<int>& magnitudes)
{
    std::vector<std::vector<int>> out{magnitudes};
    for (size_t k = 0; k < magnitudes.size(); ++k) {
        if (magnitudes[k] == 0) continue;
        for (size_t i = 0, n = out.size(); i < n; ++i) {
            auto v = out[i];
            v[k] = -v[k];
            out.push_back(v);
        }
    }
    return out;
}

// A spec in test-owned canary memory, at a chosen distance from a 64-byte boundary.
struct SpecMemory {
    std::vector<uint8_t> raw;
    uint8_t* mem = nullptr;
    int size = 0;
    ZamStatus status = zamStsOk;
    void allocate(size_t misalign)
    {
        raw.assign(static_cast<size_t>(size) + 128, zamtest::kCanary);
        mem = reinterpret_cast<uint8_t*>(((reinterpret_cast<uintptr_t>(raw.data()) + 63) & ~uintptr_t{63}) + misalign);
    }
    // The aligned header and its fields.
    const uint8_t* header() const { return mem + ((64 - (reinterpret_cast<uintptr_t>(mem) & 63)) & 63); }
    int32_t field(int byteOffset) const
    {
        int32_t v;
        std::memcpy(&v, header() + byteOffset, 4);
        return v;
    }
};

struct DecodeSpec : SpecMemory {
    // elements == 0: a plain spec; otherwise a tuple spec of `elements` x `valueBits`.
    DecodeSpec(const std::vector<VlcEntry>& t, const std::vector<int>& w, size_t misalign = 0, int elements = 0,
               int valueBits = 0)
    {
        const int n = static_cast<int>(t.size()), nw = static_cast<int>(w.size());
        status = elements ? zamsVLCDecodeUTupleGetSize_32s(t.data(), n, w.data(), nw, elements, valueBits, &size)
                          : zamsVLCDecodeGetSize_32s(t.data(), n, w.data(), nw, &size);
        if (status != zamStsOk) return;
        allocate(misalign);
        status = elements ? zamsVLCDecodeUTupleInit_32s(t.data(), n, w.data(), nw, elements, valueBits, spec())
                          : zamsVLCDecodeInit_32s(t.data(), n, w.data(), nw, spec());
    }
    VlcDecodeSpec* spec() { return reinterpret_cast<VlcDecodeSpec*>(mem); }
    int elementBits() const { return field(24); }
    int lenBits() const { return field(28); }
    int peekWidth() const { return field(8); }
    const uint8_t* table() const
    {
        const uint8_t* p;
        std::memcpy(&p, header() + 16, sizeof p);
        return p;
    }
    uint32_t element(int i) const  // element i of the table, unsigned
    {
        uint32_t v = 0;
        std::memcpy(&v, table() + static_cast<size_t>(i) * (elementBits() / 8), elementBits() / 8);
        return v;
    }
};

struct EncodeSpec : SpecMemory {
    explicit EncodeSpec(const std::vector<VlcEntry>& table, size_t misalign = 0)
    {
        status = zamsVLCEncodeGetSize_32s(table.data(), static_cast<int>(table.size()), &size);
        if (status != zamStsOk) return;
        allocate(misalign);
        status = zamsVLCEncodeInit_32s(table.data(), static_cast<int>(table.size()), spec());
    }
    VlcEncodeSpec* spec() { return reinterpret_cast<VlcEncodeSpec*>(mem); }
};

// Independent MSB-first bit writer over a 64-byte-aligned buffer with slack.
struct BitSink {
    std::vector<uint8_t> raw;
    uint8_t* base;
    size_t bit;  // absolute bit position from base
    explicit BitSink(size_t bytes, size_t startBit = 0, uint8_t fill = 0) : raw(bytes + 192, fill), bit(startBit)
    {
        base = reinterpret_cast<uint8_t*>(((reinterpret_cast<uintptr_t>(raw.data()) + 63) & ~uintptr_t{63}) + 64);
    }
    void put(uint32_t value, int n)
    {
        for (int k = n - 1; k >= 0; --k, ++bit) {
            const uint8_t mask = static_cast<uint8_t>(0x80u >> (bit & 7));
            base[bit >> 3] = static_cast<uint8_t>(((value >> k) & 1u) ? base[bit >> 3] | mask : base[bit >> 3] & ~mask);
        }
    }
    void put(const char* bits)  // "0"/"1", other characters ignored
    {
        for (; *bits; ++bits)
            if (*bits == '0' || *bits == '1') put(*bits == '1', 1);
    }
    uint32_t get(size_t at, int n) const
    {
        uint32_t v = 0;
        for (int k = 0; k < n; ++k, ++at) v = (v << 1) | ((base[at >> 3] >> (7 - (at & 7))) & 1u);
        return v;
    }
    // The cursor at bit `at`, and its absolute bit position.
    void cursor(size_t at, uint8_t*& p, int& offset) const
    {
        p = base + at / 8;
        offset = static_cast<int>(at % 8);
    }
    int64_t position(const uint8_t* p, int offset) const { return (p - base) * 8 + offset; }
};

}  // namespace vlctest
