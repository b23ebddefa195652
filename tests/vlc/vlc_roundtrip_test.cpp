// Encode then decode with the standards' code books: identical values, identical
// final cursors, and bit counts equal to the bits written, under several level
// choices of the decode tables.
#include "vlc_test_util.h"

using namespace vlctest;

namespace {

// Level choices: one level as wide as the longest code, and narrower ones.
std::vector<std::vector<int>> levelChoices(int longest)
{
    return {{longest}, {(longest + 1) / 2, longest}, {4, 4, 4, 4, 4, 4, 4, 4}, {3, 1, 5, 2, 7, 32}};
}

struct Stream {
    BitSink sink;
    size_t startBit;
    uint8_t* p;
    int offset;
    Stream(size_t bytes, size_t start) : sink(bytes, 0, 0x77), startBit(start)
    {
        p = sink.base + start / 8;
        offset = static_cast<int>(start % 8);
    }
    void rewind()
    {
        p = sink.base + startBit / 8;
        offset = static_cast<int>(startBit % 8);
    }
    size_t bitsFromStart() const { return static_cast<size_t>(p - sink.base) * 8 + offset - startBit; }
};

int randomIn(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(zamtest::rng()); }

// ---- AAC book 11: pairs with escapes ----

struct AacPairTables {
    std::vector<VlcEntry> decodePairs, decodeTuples, encodeKeys;
    int longest = 0;
};

const AacPairTables& book11()
{
    static const AacPairTables t = [] {
        AacPairTables out;
        const CodeBook& book = aacBooks().at(11);
        for (const auto& w : book.words) {
            const auto mags = aacTuple(book, w.index);
            out.decodeTuples.push_back({(mags[0] << 5) | mags[1], static_cast<int32_t>(w.code), w.length});
            for (const auto& v : signVariants(mags)) {
                const VlcEntry e = withSignBits(0, w, v);
                out.decodePairs.push_back({v[0] * 256 + v[1] + 128, e.code, e.length});
                out.encodeKeys.push_back({v[0] * 64 + v[1], e.code, e.length});
                out.longest = std::max(out.longest, e.length);
            }
        }
        return out;
    }();
    return t;
}

int aacValue(bool worst)
{
    if (worst) return randomIn(0, 1) ? 8191 : -8191;
    switch (randomIn(0, 3)) {
    case 0: return randomIn(-16, 16);
    case 1: return randomIn(-2, 2);
    case 2: return randomIn(-8191, 8191);
    default: return randomIn(0, 1) ? 16 : -16;
    }
}

}  // namespace

TEST(VlcRoundTrip, TheCodeBooksAreThere)
{
    ASSERT_EQ(aacBooks().size(), 11u) << zamtest::sharedPath("tables/aac_spectral_huffman.txt");
    ASSERT_EQ(mp3Tables().size(), 29u) << zamtest::sharedPath("tables/mp3_huffman_pairs.txt");
    const size_t aacEntries[] = {81, 81, 81, 81, 81, 81, 64, 64, 169, 169, 289};
    for (int b = 1; b <= 11; ++b) EXPECT_EQ(aacBooks().at(b).words.size(), aacEntries[b - 1]);
}

TEST(VlcRoundTrip, AacBook11WithEscapes)
{
    if (aacBooks().count(11) == 0) GTEST_FAIL() << "AAC code books missing";
    const auto& t = book11();
    EXPECT_EQ(t.encodeKeys.size(), 17u * 17u * 4u - 2u * 17u * 2u + 1u);
    EncodeSpec enc(t.encodeKeys);
    ASSERT_EQ(enc.status, zamStsOk);
    for (const auto& widths : levelChoices(t.longest)) {
        DecodeSpec pairs(t.decodePairs, widths);
        DecodeSpec tuples(t.decodeTuples, widths, 2, 5);
        ASSERT_EQ(pairs.status, zamStsOk);
        ASSERT_EQ(tuples.status, zamStsOk);
        for (int round = 0; round < 8; ++round) {
            const bool worst = round == 7;
            const int n = 2 * randomIn(0, 300) + (round == 0 ? 1 : 0);
            std::vector<int16_t> src(n);
            for (auto& v : src) v = static_cast<int16_t>(aacValue(worst));
            Stream s(static_cast<size_t>(n) * 8 + 64, static_cast<size_t>(randomIn(0, 31)));
            int counted = -1;
            ASSERT_EQ(zamsVLCCountEscBits_AAC_16s32s(src.data(), n, &counted, enc.spec()), zamStsOk);
            ASSERT_EQ(zamsVLCEncodeEscBlock_AAC_16s1u(src.data(), n, &s.p, &s.offset, enc.spec()), zamStsOk);
            const size_t written = s.bitsFromStart();
            EXPECT_EQ(static_cast<size_t>(counted), written);
            const uint8_t* endP = s.p;
            const int endOffset = s.offset;

            const int even = n & ~1;
            std::vector<int16_t> out(n + 1, 0x5555);
            s.rewind();
            ASSERT_EQ(zamsVLCDecodeEscBlock_AAC_1u16s(&s.p, &s.offset, out.data(), n, pairs.spec()), zamStsOk);
            EXPECT_TRUE(std::equal(src.begin(), src.begin() + even, out.begin()));
            EXPECT_EQ(out[even], 0x5555);
            EXPECT_EQ(s.p, endP);
            EXPECT_EQ(s.offset, endOffset);

            std::fill(out.begin(), out.end(), 0x5555);
            s.rewind();
            ASSERT_EQ(zamsVLCDecodeUTupleEscBlock_AAC_1u16s(&s.p, &s.offset, out.data(), n, tuples.spec()), zamStsOk);
            EXPECT_TRUE(std::equal(src.begin(), src.begin() + even, out.begin()));
            EXPECT_EQ(s.p, endP);
            EXPECT_EQ(s.offset, endOffset);
        }
    }
}

// ---- MP3 pair tables with linbits ----

namespace {

struct Mp3Tables {
    std::vector<VlcEntry> decodePairs, decodeTuples, encodeKeys;
    int longest = 0;
    int size = 0;  // values per coordinate
};

// Decode pairs follow the escape block's reading: sign bits of non-escaped
// elements come with the code (for an escaped x, y's too), escaped ones after
// their linbits.
Mp3Tables mp3Table(const CodeBook& table)
{
    Mp3Tables out;
    for (const auto& w : table.words) {
        const int x = w.index / 16, y = w.index % 16;
        out.size = std::max(out.size, x + 1);
        out.decodeTuples.push_back({(x << 4) | y, static_cast<int32_t>(w.code), w.length});
        for (const auto& v : signVariants({x, y})) {
            const VlcEntry e = withSignBits(0, w, v);
            out.encodeKeys.push_back({v[0] * 32 + v[1], e.code, e.length});
            if (v[0] < 0 && x == 15) continue;  // the table's sign of an escaped value is unused
            if (v[1] < 0 && y == 15) continue;
            const VlcEntry d = withSignBits(0, w, {x == 15 ? 0 : v[0], y == 15 ? 0 : v[1]});
            out.decodePairs.push_back({v[0] * 256 + v[1] + 128, d.code, d.length});
            out.longest = std::max(out.longest, std::max(e.length, d.length));
        }
    }
    return out;
}

int mp3Value(int size, int linbits, bool worst)
{
    const int largest = size < 16 ? size - 1 : 15 + (1 << linbits) - 1;
    const int m = worst ? largest : randomIn(0, 3) == 0 ? randomIn(0, largest) : randomIn(0, std::min(largest, 15));
    return randomIn(0, 1) ? -m : m;
}

}  // namespace

TEST(VlcRoundTrip, Mp3PairTablesWithLinbits)
{
    for (const auto& [number, table] : mp3Tables()) {
        SCOPED_TRACE(number);
        const Mp3Tables t = mp3Table(table);
        EncodeSpec enc(t.encodeKeys);
        ASSERT_EQ(enc.status, zamStsOk);
        const int linbits = table.linbits;
        for (const auto& widths : levelChoices(t.longest)) {
            DecodeSpec pairs(t.decodePairs, widths);
            DecodeSpec tuples(t.decodeTuples, widths, 2, 4);
            ASSERT_EQ(pairs.status, zamStsOk);
            ASSERT_EQ(tuples.status, zamStsOk);
            for (int round = 0; round < 3; ++round) {
                const int n = 2 * randomIn(1, 288);
                std::vector<int16_t> src(n);
                for (auto& v : src) v = static_cast<int16_t>(mp3Value(t.size, linbits, round == 2));
                Stream s(static_cast<size_t>(n) * 6 + 64, static_cast<size_t>(randomIn(0, 31)));
                int counted = -1;
                ASSERT_EQ(zamsVLCCountEscBits_MP3_16s32s(src.data(), n, linbits, &counted, enc.spec()), zamStsOk);
                ASSERT_EQ(zamsVLCEncodeEscBlock_MP3_16s1u(src.data(), n, linbits, &s.p, &s.offset, enc.spec()),
                          zamStsOk);
                EXPECT_EQ(static_cast<size_t>(counted), s.bitsFromStart());
                const uint8_t* endP = s.p;
                const int endOffset = s.offset;
                // The tuple block reads the encoder's order for every pair.
                std::vector<int16_t> out(n);
                s.rewind();
                ASSERT_EQ(zamsVLCDecodeUTupleEscBlock_MP3_1u16s(&s.p, &s.offset, linbits, out.data(), n, tuples.spec()),
                          zamStsOk);
                EXPECT_EQ(out, src);
                EXPECT_EQ(s.p, endP);
                EXPECT_EQ(s.offset, endOffset);
            }
            // The pair block takes a non-escaped y's sign from the table, ahead of
            // x's linbits; it reads the encoder's stream whenever x is not escaped
            // or y is 0 or escaped too.
            const int n = 2 * 200;
            std::vector<int16_t> src(n);
            for (int i = 0; i < n; i += 2) {
                src[i] = static_cast<int16_t>(mp3Value(t.size, linbits, false));
                src[i + 1] = static_cast<int16_t>(mp3Value(t.size, linbits, false));
                if (std::abs(src[i]) >= 15 && std::abs(src[i + 1]) < 15) src[i + 1] = 0;
            }
            Stream s(static_cast<size_t>(n) * 6 + 64, static_cast<size_t>(randomIn(0, 31)));
            ASSERT_EQ(zamsVLCEncodeEscBlock_MP3_16s1u(src.data(), n, linbits, &s.p, &s.offset, enc.spec()), zamStsOk);
            const uint8_t* endP = s.p;
            const int endOffset = s.offset;
            std::vector<int16_t> out(n);
            s.rewind();
            ASSERT_EQ(zamsVLCDecodeEscBlock_MP3_1u16s(&s.p, &s.offset, linbits, out.data(), n, pairs.spec()), zamStsOk);
            EXPECT_EQ(out, src);
            EXPECT_EQ(s.p, endP);
            EXPECT_EQ(s.offset, endOffset);
        }
    }
}

// ---- plain codes: every code book, value = index ----

TEST(VlcRoundTrip, PlainCodesOfEveryBook)
{
    std::vector<std::vector<VlcEntry>> tables;
    for (const auto* group : {&aacBooks(), &mp3Tables()})
        for (const auto& [number, book] : *group) {
            std::vector<VlcEntry> t;
            for (const auto& w : book.words) t.push_back({w.index - 100, static_cast<int32_t>(w.code), w.length});
            tables.push_back(t);
        }
    for (const auto& table : tables) {
        int longest = 0;
        for (const auto& e : table) longest = std::max(longest, e.length);
        EncodeSpec enc(table);
        ASSERT_EQ(enc.status, zamStsOk);
        std::vector<int16_t> src(randomIn(1, 700));
        for (auto& v : src) v = static_cast<int16_t>(table[randomIn(0, static_cast<int>(table.size()) - 1)].value);
        Stream s(src.size() * 3 + 64, static_cast<size_t>(randomIn(0, 31)));
        int counted = -1;
        ASSERT_EQ(zamsVLCCountBits_16s32s(src.data(), static_cast<int>(src.size()), &counted, enc.spec()), zamStsOk);
        ASSERT_EQ(zamsVLCEncodeBlock_16s1u(src.data(), static_cast<int>(src.size()), &s.p, &s.offset, enc.spec()),
                  zamStsOk);
        EXPECT_EQ(static_cast<size_t>(counted), s.bitsFromStart());
        const uint8_t* endP = s.p;
        const int endOffset = s.offset;
        for (const auto& widths : levelChoices(longest)) {
            DecodeSpec dec(table, widths);
            ASSERT_EQ(dec.status, zamStsOk);
            std::vector<int16_t> out(src.size());
            s.rewind();
            ASSERT_EQ(zamsVLCDecodeBlock_1u16s(&s.p, &s.offset, out.data(), static_cast<int>(out.size()), dec.spec()),
                      zamStsOk);
            EXPECT_EQ(out, src);
            EXPECT_EQ(s.p, endP);
            EXPECT_EQ(s.offset, endOffset);
            s.rewind();
            for (size_t i = 0; i < 20 && i < src.size(); ++i) {
                int16_t one;
                ASSERT_EQ(zamsVLCDecodeOne_1u16s(&s.p, &s.offset, &one, dec.spec()), zamStsOk);
                EXPECT_EQ(one, src[i]);
            }
        }
    }
}

// ---- unsigned AAC books as tuples with sign bits ----

TEST(VlcRoundTrip, UnsignedAacBooksAsTuples)
{
    if (aacBooks().size() != 11) GTEST_FAIL() << "AAC code books missing";
    for (int number : {3, 4, 7, 8, 9, 10}) {
        SCOPED_TRACE(number);
        const CodeBook& book = aacBooks().at(number);
        const int fieldBits = book.lav <= 3 ? 2 : 4;
        const int mod = 2 * book.lav + 1;
        auto key = [&](const std::vector<int>& v) {
            int k = 0;
            for (int x : v) k = k * mod + x + book.lav;
            return k;
        };
        std::vector<VlcEntry> decodeTable, encodeTable;
        std::vector<std::vector<int>> tuples;
        for (const auto& w : book.words) {
            const auto mags = aacTuple(book, w.index);
            int packed = 0;
            for (int m : mags) packed = (packed << fieldBits) | m;
            decodeTable.push_back({packed, static_cast<int32_t>(w.code), w.length});
            for (const auto& v : signVariants(mags)) {
                encodeTable.push_back(withSignBits(key(v), w, v));
                tuples.push_back(v);
            }
        }
        EncodeSpec enc(encodeTable);
        ASSERT_EQ(enc.status, zamStsOk);
        const int codes = randomIn(1, 200);
        std::vector<int16_t> keys, expected;
        for (int i = 0; i < codes; ++i) {
            const auto& v = tuples[randomIn(0, static_cast<int>(tuples.size()) - 1)];
            keys.push_back(static_cast<int16_t>(key(v)));
            expected.insert(expected.end(), v.begin(), v.end());
        }
        Stream s(keys.size() * 4 + 64, static_cast<size_t>(randomIn(0, 31)));
        ASSERT_EQ(zamsVLCEncodeBlock_16s1u(keys.data(), codes, &s.p, &s.offset, enc.spec()), zamStsOk);
        const uint8_t* endP = s.p;
        const int endOffset = s.offset;
        int longest = 0;
        for (const auto& e : decodeTable) longest = std::max(longest, e.length);
        for (const auto& widths : levelChoices(longest)) {
            DecodeSpec dec(decodeTable, widths, book.dim, fieldBits);
            ASSERT_EQ(dec.status, zamStsOk);
            std::vector<int16_t> out(expected.size() + book.dim - 1, 0x5555);
            s.rewind();
            ASSERT_EQ(zamsVLCDecodeUTupleBlock_1u16s(&s.p, &s.offset, out.data(), static_cast<int>(out.size()),
                                                     dec.spec()),
                      zamStsOk);
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), out.begin()));
            EXPECT_EQ(out.back(), 0x5555);  // the incomplete last tuple is not written
            EXPECT_EQ(s.p, endP);
            EXPECT_EQ(s.offset, endOffset);
        }
    }
}

// ---- MP3 count1 quadruples: four 1-bit magnitudes, one sign bit per 1 ----

TEST(VlcRoundTrip, Mp3QuadTablesAsTuples)
{
    std::ifstream in(zamtest::sharedPath("tables/mp3_huffman_quads.txt"));
    ASSERT_TRUE(in.good());
    std::map<char, std::vector<std::pair<std::vector<int>, CodeWord>>> tables;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream ss(line);
        char name;
        std::vector<int> q(4);
        int length;
        std::string bits;
        ss >> name >> q[0] >> q[1] >> q[2] >> q[3] >> length >> bits;
        tables[name].push_back({q, {0, length, parseBits(bits)}});
    }
    ASSERT_EQ(tables.size(), 2u);
    auto key = [](const std::vector<int>& v) { return ((v[0] + 1) * 27) + ((v[1] + 1) * 9) + ((v[2] + 1) * 3) + v[3] + 1; };
    for (const auto& [name, rows] : tables) {
        SCOPED_TRACE(name);
        ASSERT_EQ(rows.size(), 16u);
        std::vector<VlcEntry> decodeTable, encodeTable;
        std::vector<std::vector<int>> quads;
        for (const auto& [q, w] : rows) {
            decodeTable.push_back({(q[0] << 3) | (q[1] << 2) | (q[2] << 1) | q[3], static_cast<int32_t>(w.code), w.length});
            for (const auto& v : signVariants(q)) {
                encodeTable.push_back(withSignBits(key(v), w, v));
                quads.push_back(v);
            }
        }
        EncodeSpec enc(encodeTable);
        ASSERT_EQ(enc.status, zamStsOk);
        const int codes = 150;
        std::vector<int16_t> keys, expected;
        for (int i = 0; i < codes; ++i) {
            const auto& v = quads[randomIn(0, static_cast<int>(quads.size()) - 1)];
            keys.push_back(static_cast<int16_t>(key(v)));
            expected.insert(expected.end(), v.begin(), v.end());
        }
        Stream s(codes * 2 + 64, static_cast<size_t>(randomIn(0, 31)));
        int counted = -1;
        ASSERT_EQ(zamsVLCCountBits_16s32s(keys.data(), codes, &counted, enc.spec()), zamStsOk);
        ASSERT_EQ(zamsVLCEncodeBlock_16s1u(keys.data(), codes, &s.p, &s.offset, enc.spec()), zamStsOk);
        EXPECT_EQ(static_cast<size_t>(counted), s.bitsFromStart());
        const uint8_t* endP = s.p;
        const int endOffset = s.offset;
        for (const auto& widths : levelChoices(10)) {
            DecodeSpec dec(decodeTable, widths, 4, 1);
            ASSERT_EQ(dec.status, zamStsOk);
            std::vector<int16_t> out(expected.size());
            s.rewind();
            ASSERT_EQ(zamsVLCDecodeUTupleBlock_1u16s(&s.p, &s.offset, out.data(), static_cast<int>(out.size()), dec.spec()),
                      zamStsOk);
            EXPECT_EQ(out, expected);
            EXPECT_EQ(s.p, endP);
            EXPECT_EQ(s.offset, endOffset);
            s.rewind();
            for (int i = 0; i < codes; ++i) ASSERT_EQ(zamsVLCDecodeUTupleOne_1u16s(&s.p, &s.offset, &out[4 * i], dec.spec()), zamStsOk);
            EXPECT_EQ(out, expected);
            EXPECT_EQ(s.p, endP);
        }
    }
}
