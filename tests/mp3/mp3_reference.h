// Straightforward test-side references: band tables and a bit-by-bit Huffman
// decoder, both read from the plain-text ISO tables.
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "test_support.h"
#include "zamac.h"

namespace mp3test {

struct CodeBook {
    std::map<std::pair<int, uint32_t>, std::pair<int, int>> pairs;  // (length, code) -> (x, y)
    int linbits = 0;
    int maxLength = 0;
    bool present = false;
};

struct RefTables {
    CodeBook books[32];
    std::map<std::pair<int, uint32_t>, int> quadA;  // (length, code) -> vwxy
    std::map<int, std::pair<uint32_t, int>> quadACode;  // vwxy -> (code, length)
};

inline const RefTables& refTables()
{
    static const RefTables tables = [] {
        RefTables t;
        std::ifstream pairs(zamtest::sharedPath("tables/mp3_huffman_pairs.txt"));
        std::string line;
        int current = -1;
        while (std::getline(pairs, line)) {
            if (line.empty()) continue;
            std::istringstream in(line);
            if (line[0] == '#') {
                std::string hash, word, lin;
                int n, l;
                if (in >> hash >> word >> n >> lin >> l && word == "table") {
                    current = n;
                    t.books[n].linbits = l;
                    t.books[n].present = true;
                }
                continue;
            }
            int x, y, len;
            std::string code;
            in >> x >> y >> len >> code;
            t.books[current].pairs[{len, static_cast<uint32_t>(std::stoul(code, nullptr, 2))}] = {x, y};
            t.books[current].maxLength = std::max(t.books[current].maxLength, len);
        }
        std::ifstream quads(zamtest::sharedPath("tables/mp3_huffman_quads.txt"));
        while (std::getline(quads, line)) {
            if (line.empty() || line[0] == '#') continue;
            std::istringstream in(line);
            std::string table, code;
            int v, w, x, y, len;
            in >> table >> v >> w >> x >> y >> len >> code;
            if (table != "A") continue;
            const uint32_t c = static_cast<uint32_t>(std::stoul(code, nullptr, 2));
            t.quadA[{len, c}] = v * 8 + w * 4 + x * 2 + y;
            t.quadACode[v * 8 + w * 4 + x * 2 + y] = {c, len};
        }
        return t;
    }();
    return tables;
}

// Band tables in the library's layout, row = ID * 3 + sampling_frequency. For
// MPEG-2.5 rows 0..2 hold 11.025, 12 and 8 kHz.
struct BandTables {
    int16_t longTable[6 * 23]{};
    int16_t shortTable[6 * 14]{};
    int16_t mbp[6 * 2]{};
};

inline BandTables bandTables(bool mpeg25)
{
    BandTables b;
    std::ifstream in(zamtest::sharedPath("tables/mp3_sfb_bands.txt"));
    std::string line;
    const std::pair<std::string, int> rows[6] = {
        {mpeg25 ? "2.5" : "2", mpeg25 ? 11025 : 22050}, {mpeg25 ? "2.5" : "2", mpeg25 ? 12000 : 24000},
        {mpeg25 ? "2.5" : "2", mpeg25 ? 8000 : 16000},  {"1", 44100}, {"1", 48000}, {"1", 32000}};
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream s(line);
        std::string mpeg, block;
        int fs;
        s >> mpeg >> fs >> block;
        for (int r = 0; r < 6; ++r) {
            if (rows[r].first != mpeg || rows[r].second != fs) continue;
            if (block == "long")
                for (int i = 0; i < 23; ++i) s >> b.longTable[r * 23 + i];
            else
                for (int i = 0; i < 14; ++i) s >> b.shortTable[r * 14 + i];
        }
    }
    for (int r = 0; r < 6; ++r) {
        b.mbp[r * 2] = r < 3 ? 6 : 8;  // long bands of a mixed block: 36 lines for the ISO rates
        b.mbp[r * 2 + 1] = 0;
    }
    return b;
}

// Decodes one granule bit by bit. Region ends given in lines; returns the bit
// position after the decode and fills 576 values. Count-1 quadruples are read while
// bits are left and the line is at most 572; one that runs over is discarded.
inline int64_t referenceDecode(const uint8_t* buf, int64_t pos, int64_t hufSize, const Mp3SideInfo& si,
                               const int regionEnd[3], int regions, std::vector<int>& out)
{
    const RefTables& t = refTables();
    out.assign(576, 0);
    const int64_t end = pos + hufSize;
    auto bit = [&]() { const int b = (buf[pos >> 3] >> (7 - (pos & 7))) & 1; ++pos; return b; };
    auto bits = [&](int n) { uint32_t v = 0; for (int k = 0; k < n; ++k) v = (v << 1) | bit(); return v; };
    const int bv2 = 2 * si.big_values;
    int line = 0;
    for (int r = 0; r < regions; ++r) {
        const int stop = r == regions - 1 ? bv2 : std::min(regionEnd[r], bv2);
        const CodeBook& book = t.books[si.table_select[r]];
        for (; line < stop; line += 2) {
            if (!book.present) continue;
            uint32_t code = 0;
            int len = 0;
            std::pair<int, int> xy{-1, -1};
            while (len < 32) {
                code = (code << 1) | bit();
                ++len;
                auto it = book.pairs.find({len, code});
                if (it != book.pairs.end()) { xy = it->second; break; }
            }
            int v[2] = {xy.first, xy.second};
            for (int k = 0; k < 2; ++k) {
                if (book.linbits && v[k] == 15) v[k] += static_cast<int>(bits(book.linbits));
                if (v[k] && bit()) v[k] = -v[k];
            }
            out[line] = v[0];
            out[line + 1] = v[1];
        }
    }
    while (pos < end && line <= 572) {
        int q;
        if (si.count1table_select) {
            q = 15 - static_cast<int>(bits(4));
        } else {
            uint32_t code = 0;
            int len = 0;
            for (;;) {
                code = (code << 1) | bit();
                ++len;
                auto it = t.quadA.find({len, code});
                if (it != t.quadA.end()) { q = it->second; break; }
            }
        }
        int v[4] = {(q >> 3) & 1, (q >> 2) & 1, (q >> 1) & 1, q & 1};
        for (int k = 0; k < 4; ++k)
            if (v[k] && bit()) v[k] = -v[k];
        if (pos > end) {
            for (int k = 0; k < 4; ++k) out[line + k] = 0;
            break;
        }
        for (int k = 0; k < 4; ++k) out[line + k] = v[k];
        line += 4;
    }
    return pos;
}

}  // namespace mp3test
