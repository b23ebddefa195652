// Encode then decode with the standards' code books: identical values, identical final
// cursors, and bit counts equal to the bits written, under several level choices of the
// decode tables.
#include "vlc_test_util.h"

using namespace vlctest;

namespace {

// Level choices: one level as wide as the longest code, and narrower ones.
std::vector<std::vector<int>> levelChoices(int longest)
{
    return {{longest}, {(longest + 1) / 2, longest}, {4, 4, 4, 4, 4, 4, 4, 4}, {3, 1, 5, 2, 7, 32}};
}

int longestOf(const std::vector<VlcEntry>& t)
{
    int m = 0;
    for (const auto& e : t) m = std::max(m, e.length);
    return m;
}

int randomIn(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(zamtest::rng()); }

// A stream starting at a random bit; `run` calls an encoder or decoder on a cursor at the
// start and returns the bits it moved over.
struct Stream {
    BitSink sink;
    size_t start;
    explicit Stream(size_t bytes) : sink(bytes, 0, 0x77), start(static_cast<size_t>(randomIn(0, 31))) {}
    template <class F>
    int64_t run(F f)
    {
        uint8_t* p;
        int offset;
        sink.cursor(start, p, offset);
        EXPECT_EQ(f(&p, &offset), zamStsOk);
        return sink.position(p, offset) - static_cast<int64_t>(start);
    }
};

}  // namespace

TEST(VlcRoundTrip, TheCodeBooksAreThere)
{
    ASSERT_EQ(aacBooks().size(), 11u) << zamtest::sharedPath("tables/aac_spectral_huffman.txt");
    ASSERT_EQ(mp3Tables().size(), 29u) << zamtest::sharedPath("tables/mp3_huffman_pairs.txt");
    const size_t aacEntries[] = {81, 81, 81, 81, 81, 81, 64, 64, 169, 169, 289};
    for (int b = 1; b <= 11; ++b) EXPECT_EQ(aacBooks().at(b).words.size(), aacEntries[b - 1]);
}

// Book 11: pairs of magnitudes 0..16 with sign bits; 16 escapes up to 8191.
TEST(VlcRoundTrip, AacBook11WithEscapes)
{
    ASSERT_EQ(aacBooks().count(11), 1u);
    const CodeBook& book = aacBooks().at(11);
    std::vector<VlcEntry> decodePairs, decodeTuples, encodeKeys;
    for (const auto& w : book.words) {
        const auto mags = aacTuple(book, w.index);
        decodeTuples.push_back({(mags[0] << 5) | mags[1], static_cast<int32_t>(w.code), w.length});
        for (const auto& v : signVariants(mags)) {
            const VlcEntry e = withSignBits(0, w, v);
            decodePairs.push_back({v[0] * 256 + v[1] + 128, e.code, e.length});
            encodeKeys.push_back({v[0] * 64 + v[1], e.code, e.length});
        }
    }
    EXPECT_EQ(encodeKeys.size(), 17u * 17u * 4u - 2u * 17u * 2u + 1u);
    EncodeSpec enc(encodeKeys);
    ASSERT_EQ(enc.status, zamStsOk);
    for (const auto& widths : levelChoices(longestOf(decodePairs))) {
        DecodeSpec pairs(decodePairs, widths), tuples(decodeTuples, widths, 0, 2, 5);
        ASSERT_EQ(pairs.status, zamStsOk);
        ASSERT_EQ(tuples.status, zamStsOk);
        for (int round = 0; round < 8; ++round) {
            const int n = 2 * randomIn(0, 300) + (round == 0);  // an odd count leaves the last value
            std::vector<int16_t> src(n);
            for (auto& v : src) {
                const int kind = round == 7 ? 4 : randomIn(0, 3);  // the last round: all worst case
                v = static_cast<int16_t>(kind == 0   ? randomIn(-16, 16)
                                         : kind == 1 ? randomIn(-2, 2)
                                         : kind == 2 ? randomIn(-8191, 8191)
                                                     : (randomIn(0, 1) ? 1 : -1) * (kind == 3 ? 16 : 8191));
            }
            Stream s(static_cast<size_t>(n) * 8 + 64);
            int counted = -1;
            ASSERT_EQ(zamsVLCCountEscBits_AAC_16s32s(src.data(), n, &counted, enc.spec()), zamStsOk);
            const int64_t written =
                s.run([&](uint8_t** p, int* o) { return zamsVLCEncodeEscBlock_AAC_16s1u(src.data(), n, p, o, enc.spec()); });
            EXPECT_EQ(counted, written);
            for (const bool tuple : {false, true}) {
                std::vector<int16_t> out(n + 1, 0x5555);
                EXPECT_EQ(s.run([&](uint8_t** p, int* o) {
                    return tuple ? zamsVLCDecodeUTupleEscBlock_AAC_1u16s(p, o, out.data(), n, tuples.spec())
                                 : zamsVLCDecodeEscBlock_AAC_1u16s(p, o, out.data(), n, pairs.spec());
                }), written);
                EXPECT_TRUE(std::equal(src.begin(), src.begin() + (n & ~1), out.begin()));
                EXPECT_EQ(out[n & ~1], 0x5555);
            }
        }
    }
}

// MP3 pair tables with linbits. Decode pairs follow the escape block's reading: sign bits
// of non-escaped elements come with the code (for an escaped x, y's too), escaped ones after
// their linbits. The tuple block reads the encoder's order for every pair; the pair block
// reads it whenever x is not escaped or y is 0 or escaped too.
TEST(VlcRoundTrip, Mp3PairTablesWithLinbits)
{
    for (const auto& [number, table] : mp3Tables()) {
        SCOPED_TRACE(number);
        std::vector<VlcEntry> decodePairs, decodeTuples, encodeKeys;
        int size = 0;  // values per coordinate
        for (const auto& w : table.words) {
            const int x = w.index / 16, y = w.index % 16;
            size = std::max(size, x + 1);
            decodeTuples.push_back({(x << 4) | y, static_cast<int32_t>(w.code), w.length});
            for (const auto& v : signVariants({x, y})) {
                const VlcEntry e = withSignBits(0, w, v);
                encodeKeys.push_back({v[0] * 32 + v[1], e.code, e.length});
                if ((v[0] < 0 && x == 15) || (v[1] < 0 && y == 15)) continue;  // an escaped value's table sign is unused
                const VlcEntry d = withSignBits(0, w, {x == 15 ? 0 : v[0], y == 15 ? 0 : v[1]});
                decodePairs.push_back({v[0] * 256 + v[1] + 128, d.code, d.length});
            }
        }
        const int linbits = table.linbits;
        const int largest = size < 16 ? size - 1 : 15 + (1 << linbits) - 1;
        auto value = [&](bool worst) {
            const int m = worst ? largest : randomIn(0, 3) == 0 ? randomIn(0, largest) : randomIn(0, std::min(largest, 15));
            return static_cast<int16_t>(randomIn(0, 1) ? -m : m);
        };
        EncodeSpec enc(encodeKeys);
        ASSERT_EQ(enc.status, zamStsOk);
        for (const auto& widths : levelChoices(std::max(longestOf(decodePairs), longestOf(encodeKeys)))) {
            DecodeSpec pairs(decodePairs, widths), tuples(decodeTuples, widths, 0, 2, 4);
            ASSERT_EQ(pairs.status, zamStsOk);
            ASSERT_EQ(tuples.status, zamStsOk);
            for (int round = 0; round < 4; ++round) {
                const bool pairBlock = round == 3;
                const int n = 2 * randomIn(1, 288);
                std::vector<int16_t> src(n);
                for (int i = 0; i < n; i += 2) {
                    src[i] = value(round == 2);
                    src[i + 1] = value(round == 2);
                    if (pairBlock && std::abs(src[i]) >= 15 && std::abs(src[i + 1]) < 15) src[i + 1] = 0;
                }
                Stream s(static_cast<size_t>(n) * 6 + 64);
                int counted = -1;
                ASSERT_EQ(zamsVLCCountEscBits_MP3_16s32s(src.data(), n, linbits, &counted, enc.spec()), zamStsOk);
                const int64_t written = s.run([&](uint8_t** p, int* o) {
                    return zamsVLCEncodeEscBlock_MP3_16s1u(src.data(), n, linbits, p, o, enc.spec());
                });
                EXPECT_EQ(counted, written);
                std::vector<int16_t> out(n);
                EXPECT_EQ(s.run([&](uint8_t** p, int* o) {
                    return pairBlock ? zamsVLCDecodeEscBlock_MP3_1u16s(p, o, linbits, out.data(), n, pairs.spec())
                                     : zamsVLCDecodeUTupleEscBlock_MP3_1u16s(p, o, linbits, out.data(), n, tuples.spec());
                }), written);
                EXPECT_EQ(out, src);
            }
        }
    }
}

// Plain codes of every book, value = index - 100: block and one-at-a-time decoding.
TEST(VlcRoundTrip, PlainCodesOfEveryBook)
{
    for (const auto* group : {&aacBooks(), &mp3Tables()})
        for (const auto& [number, book] : *group) {
            std::vector<VlcEntry> table;
            for (const auto& w : book.words) table.push_back({w.index - 100, static_cast<int32_t>(w.code), w.length});
            EncodeSpec enc(table);
            ASSERT_EQ(enc.status, zamStsOk);
            std::vector<int16_t> src(randomIn(1, 700));
            for (auto& v : src) v = static_cast<int16_t>(table[randomIn(0, static_cast<int>(table.size()) - 1)].value);
            const int n = static_cast<int>(src.size());
            Stream s(src.size() * 3 + 64);
            int counted = -1;
            ASSERT_EQ(zamsVLCCountBits_16s32s(src.data(), n, &counted, enc.spec()), zamStsOk);
            const int64_t written =
                s.run([&](uint8_t** p, int* o) { return zamsVLCEncodeBlock_16s1u(src.data(), n, p, o, enc.spec()); });
            EXPECT_EQ(counted, written);
            for (const auto& widths : levelChoices(longestOf(table))) {
                DecodeSpec dec(table, widths);
                ASSERT_EQ(dec.status, zamStsOk);
                std::vector<int16_t> out(src.size()), one(src.size());
                EXPECT_EQ(s.run([&](uint8_t** p, int* o) { return zamsVLCDecodeBlock_1u16s(p, o, out.data(), n, dec.spec()); }),
                          written);
                EXPECT_EQ(out, src);
                EXPECT_EQ(s.run([&](uint8_t** p, int* o) {
                    ZamStatus st = zamStsOk;
                    for (int i = 0; i < n && st == zamStsOk; ++i) st = zamsVLCDecodeOne_1u16s(p, o, &one[i], dec.spec());
                    return st;
                }), written);
                EXPECT_EQ(one, src);
            }
        }
}

// Tuples of magnitudes with one sign bit per non-zero element: the unsigned AAC books and
// the MP3 count-1 quadruple tables (four 1-bit magnitudes). The encoder sees each signed
// tuple as one value.
TEST(VlcRoundTrip, UnsignedTuplesWithSignBits)
{
    struct TupleBook {
        std::string name;
        int dim, fieldBits, largest;
        std::vector<std::pair<std::vector<int>, CodeWord>> rows;
    };
    std::vector<TupleBook> books;
    for (int number : {3, 4, 7, 8, 9, 10}) {
        const CodeBook& book = aacBooks().at(number);
        TupleBook t{"AAC book " + std::to_string(number), book.dim, book.lav <= 3 ? 2 : 4, book.lav, {}};
        for (const auto& w : book.words) t.rows.push_back({aacTuple(book, w.index), w});
        books.push_back(t);
    }
    std::ifstream in(zamtest::sharedPath("tables/mp3_huffman_quads.txt"));
    std::string line;
    std::map<char, TupleBook> quads;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream ss(line);
        char name;
        std::vector<int> q(4);
        int length;
        std::string bits;
        ss >> name >> q[0] >> q[1] >> q[2] >> q[3] >> length >> bits;
        quads.emplace(name, TupleBook{std::string("MP3 quad ") + name, 4, 1, 1, {}});
        quads.at(name).rows.push_back({q, {0, length, parseBits(bits)}});
    }
    ASSERT_EQ(quads.size(), 2u);
    for (auto& [name, q] : quads) {
        EXPECT_EQ(q.rows.size(), 16u);
        books.push_back(q);
    }
    for (const auto& b : books) {
        SCOPED_TRACE(b.name);
        const int mod = 2 * b.largest + 1;
        auto key = [&](const std::vector<int>& v) {
            int k = 0;
            for (int x : v) k = k * mod + x + b.largest;
            return k;
        };
        std::vector<VlcEntry> decodeTable, encodeTable;
        std::vector<std::vector<int>> tuples;
        for (const auto& [mags, w] : b.rows) {
            int packed = 0;
            for (int m : mags) packed = (packed << b.fieldBits) | m;
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
        Stream s(keys.size() * 4 + 64);
        int counted = -1;
        ASSERT_EQ(zamsVLCCountBits_16s32s(keys.data(), codes, &counted, enc.spec()), zamStsOk);
        const int64_t written =
            s.run([&](uint8_t** p, int* o) { return zamsVLCEncodeBlock_16s1u(keys.data(), codes, p, o, enc.spec()); });
        EXPECT_EQ(counted, written);
        for (const auto& widths : levelChoices(longestOf(decodeTable))) {
            DecodeSpec dec(decodeTable, widths, 0, b.dim, b.fieldBits);
            ASSERT_EQ(dec.status, zamStsOk);
            std::vector<int16_t> out(expected.size() + b.dim - 1, 0x5555), one(expected.size());
            EXPECT_EQ(s.run([&](uint8_t** p, int* o) {
                return zamsVLCDecodeUTupleBlock_1u16s(p, o, out.data(), static_cast<int>(out.size()), dec.spec());
            }), written);
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), out.begin()));
            EXPECT_EQ(out.back(), 0x5555);  // the incomplete last tuple is not written
            EXPECT_EQ(s.run([&](uint8_t** p, int* o) {
                ZamStatus st = zamStsOk;
                for (int i = 0; i < codes && st == zamStsOk; ++i)
                    st = zamsVLCDecodeUTupleOne_1u16s(p, o, &one[static_cast<size_t>(i) * b.dim], dec.spec());
                return st;
            }), written);
            EXPECT_EQ(one, expected);
        }
    }
}
