// Test-side references read from the plain-text ISO tables: Huffman code books and
// band tables.
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
    bool present = false;
};

struct RefTables {
    CodeBook books[32];
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
        }
        std::ifstream quads(zamtest::sharedPath("tables/mp3_huffman_quads.txt"));
        while (std::getline(quads, line)) {
            if (line.empty() || line[0] == '#') continue;
            std::istringstream in(line);
            std::string table, code;
            int v, w, x, y, len;
            in >> table >> v >> w >> x >> y >> len >> code;
            if (table != "A") continue;
            t.quadACode[v * 8 + w * 4 + x * 2 + y] = {static_cast<uint32_t>(std::stoul(code, nullptr, 2)), len};
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

}  // namespace mp3test
