// The generated code tables against ../shared/tables, the scale-factor byte tree
// against the code list, and the table-driven spectral decoder against its
// bit-by-bit twin.
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "aac/aac_bitstream.h"
#include "aac/aac_huffman.h"
#include "aac/aac_tables.h"
#include "aac_test_util.h"
#include "test_support.h"

namespace {

struct CodeRow {
    int index;
    std::string code;
};

// Rows of a table file, grouped by "# book N" headers (group 0 when none).
std::vector<std::vector<CodeRow>> readCodeFile(const std::string& name)
{
    std::vector<std::vector<CodeRow>> groups(12);
    std::ifstream in(zamtest::sharedPath("tables/" + name));
    std::string line;
    int group = 0;
    while (std::getline(in, line)) {
        std::istringstream ls(line);
        std::string first;
        if (!(ls >> first)) continue;
        if (first == "#") {
            std::string word;
            if (ls >> word && word == "book") ls >> group;
            continue;
        }
        CodeRow r;
        int length;
        r.index = std::stoi(first);
        ls >> length >> r.code;
        groups[static_cast<size_t>(group)].push_back(r);
    }
    return groups;
}

std::string codeString(const zam::AacHuffCode& c)
{
    std::string s;
    for (int i = static_cast<int>(c.length) - 1; i >= 0; --i) s += ((c.code >> i) & 1u) ? '1' : '0';
    return s;
}

}  // namespace

TEST(AacTables, SpectralCodesMatchTheSharedTables)
{
    const auto groups = readCodeFile("aac_spectral_huffman.txt");
    for (int book = 1; book <= 11; ++book) {
        const auto& rows = groups[static_cast<size_t>(book)];
        const zam::AacSpectralBook& b = zam::kAacSpectralBooks[book];
        ASSERT_EQ(static_cast<int>(rows.size()), b.numCodes) << book;
        for (const CodeRow& r : rows) EXPECT_EQ(codeString(b.codes[r.index]), r.code) << book << " " << r.index;
    }
}

TEST(AacTables, ScaleFactorTreeDecodesEveryCode)
{
    const auto rows = readCodeFile("aac_scalefactor_huffman.txt")[0];
    ASSERT_EQ(rows.size(), 121u);
    for (const CodeRow& r : rows) {
        EXPECT_EQ(codeString(zam::kAacScaleFactorCodes[r.index]), r.code);
        // The walk: a 0 moves to the next byte, a 1 forward by half the byte.
        unsigned node = 0;
        size_t used = 0;
        while (!(zam::kAacScaleFactorTree[node] & 1u)) {
            ASSERT_LT(used, r.code.size());
            node = r.code[used++] == '1' ? node + (zam::kAacScaleFactorTree[node] >> 1) : node + 1;
        }
        EXPECT_EQ(used, r.code.size()) << r.index;
        EXPECT_EQ(zam::kAacScaleFactorTree[node] >> 1, r.index);
    }
}

// Every code word of every book, at every start offset, through the table-driven
// decoder and its bit-by-bit twin; book 11 escapes cover every width 16..8191.
TEST(AacTables, EveryCodeWordThroughBothDecoders)
{
    for (int book = 1; book <= 11; ++book) {
        const zam::AacSpectralBook& b = zam::kAacSpectralBooks[book];
        const int mod = b.isSigned ? 2 * b.largestValue + 1 : b.largestValue + 1;
        const int off = b.isSigned ? b.largestValue : 0;
        for (int startOffset = 0; startOffset < 8; ++startOffset) {
            aactest::BitWriter w;
            w.put(0, startOffset);
            std::vector<int32_t> expected;
            for (int index = 0; index < b.numCodes; ++index) {
                int32_t v[4];
                int rest = index;
                for (int k = b.dimension - 1; k >= 0; --k) {
                    v[k] = rest % mod - off;
                    rest /= mod;
                }
                for (int k = 0; k < b.dimension; ++k) {
                    if (book == 11 && v[k] == 16) v[k] = 16 + (index * 28 + startOffset) % 8176;
                    if (!b.isSigned && (index + k + startOffset) % 2) v[k] = -v[k];
                    expected.push_back(v[k]);
                }
                w.spectralTuple(book, v);
            }
            std::vector<uint8_t> data = w.bytes(4);
            std::vector<int32_t> fast(expected.size()), ref(expected.size());
            zam::AacCursor cf{data.data(), startOffset}, cr{data.data(), startOffset};
            const int n = static_cast<int>(expected.size());
            ASSERT_EQ(zam::aacDecodeSpectralValues(cf, book, fast.data(), n), zamStsOk);
            ASSERT_EQ(zam::aacDecodeSpectralValuesRef(cr, book, ref.data(), n), zamStsOk);
            EXPECT_EQ(fast, expected) << book;
            EXPECT_EQ(ref, expected) << book;
            EXPECT_EQ(cf.ptr, cr.ptr);
            EXPECT_EQ(cf.offset, cr.offset);
            EXPECT_EQ((cf.ptr - data.data()) * 8 + cf.offset, static_cast<long>(w.bits()));
        }
    }
}

// Random bits decode the same through both decoders (every book is a complete
// prefix code), up to a failing escape too.
TEST(AacTables, RandomBitsDecodeAlike)
{
    std::mt19937 rng(11);
    for (int book = 1; book <= 11; ++book) {
        std::vector<uint8_t> data(2048 + 4);
        for (auto& x : data) x = static_cast<uint8_t>(rng());
        zam::AacCursor fast{data.data(), 3};
        zam::AacCursor ref{data.data(), 3};
        std::vector<int32_t> a(128, 0), r(128, 0);
        EXPECT_EQ(zam::aacDecodeSpectralValues(fast, book, a.data(), 128),
                  zam::aacDecodeSpectralValuesRef(ref, book, r.data(), 128)) << book;
        EXPECT_EQ(a, r) << book;
        EXPECT_EQ(fast.ptr, ref.ptr);
        EXPECT_EQ(fast.offset, ref.offset);
    }
}
