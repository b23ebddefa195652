// ADIF and ADTS headers and program configuration elements on hand-built bit
// strings.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "aac_test_util.h"
#include "test_support.h"
#include "zamac.h"

using aactest::BitWriter;

namespace {

// A random program configuration, written to the stream and kept as expected.
AacProgramConfig writeRandomPce(BitWriter& w, std::mt19937& rng, bool alignFromBufferStart = true)
{
    AacProgramConfig e;
    std::memset(&e, 0xA5, sizeof e);
    auto field = [&](int32_t& dst, int bits) {
        dst = static_cast<int32_t>(rng() & ((1u << bits) - 1));
        w.put(static_cast<uint32_t>(dst), bits);
    };
    field(e.element_instance_tag, 4);
    field(e.object_type, 2);
    field(e.sampling_frequency_index, 4);
    field(e.num_front_channel_elements, 4);
    field(e.num_side_channel_elements, 4);
    field(e.num_back_channel_elements, 4);
    field(e.num_lfe_channel_elements, 2);
    field(e.num_assoc_data_elements, 3);
    field(e.num_valid_cc_elements, 4);
    e.mono_mixdown_element_number = e.stereo_mixdown_element_number = 0;
    e.matrix_mixdown_idx = e.pseudo_surround_enable = 0;
    field(e.mono_mixdown_present, 1);
    if (e.mono_mixdown_present) field(e.mono_mixdown_element_number, 4);
    field(e.stereo_mixdown_present, 1);
    if (e.stereo_mixdown_present) field(e.stereo_mixdown_element_number, 4);
    field(e.matrix_mixdown_idx_present, 1);
    if (e.matrix_mixdown_idx_present) {
        field(e.matrix_mixdown_idx, 2);
        field(e.pseudo_surround_enable, 1);
    }
    for (int i = 0; i < e.num_front_channel_elements; ++i) {
        field(e.front_element_is_cpe[i], 1);
        field(e.front_element_tag_select[i], 4);
    }
    for (int i = 0; i < e.num_side_channel_elements; ++i) {
        field(e.side_element_is_cpe[i], 1);
        field(e.side_element_tag_select[i], 4);
    }
    for (int i = 0; i < e.num_back_channel_elements; ++i) {
        field(e.back_element_is_cpe[i], 1);
        field(e.back_element_tag_select[i], 4);
    }
    for (int i = 0; i < e.num_lfe_channel_elements; ++i) field(e.lfe_element_tag_select[i], 4);
    for (int i = 0; i < e.num_assoc_data_elements; ++i) field(e.assoc_data_element_tag_select[i], 4);
    for (int i = 0; i < e.num_valid_cc_elements; ++i) {
        field(e.cc_element_is_ind_sw[i], 1);
        field(e.valid_cc_element_tag_select[i], 4);
    }
    if (alignFromBufferStart) w.alignZero();
    e.comment_field_bytes = static_cast<int32_t>(rng() % 3 == 0 ? rng() % 256 : rng() % 8);
    w.put(static_cast<uint32_t>(e.comment_field_bytes), 8);
    for (int i = 0; i < e.comment_field_bytes; ++i) {
        e.comment_field_data[i] = static_cast<uint8_t>(rng());
        w.put(e.comment_field_data[i], 8);
    }
    return e;
}

void writeAdifStart(BitWriter& w, bool copyright, int bitstreamType, int codedPceCount)
{
    w.put(0x4144, 16);
    w.put(0x4946, 16);
    w.put(copyright ? 1 : 0, 1);
    if (copyright) {
        for (int i = 0; i < 9; ++i) w.put(static_cast<uint32_t>(0x30 + i), 8);
    }
    w.put(1, 1);  // original_copy
    w.put(0, 1);  // home
    w.put(static_cast<uint32_t>(bitstreamType), 1);
    w.put(320000, 23);
    w.put(static_cast<uint32_t>(codedPceCount), 4);
}

}  // namespace

TEST(AacProgramConfig, RandomElementsAtEveryOffset)
{
    std::mt19937 rng(3);
    for (int trial = 0; trial < 200; ++trial) {
        const int startOffset = trial % 8;
        BitWriter w;
        w.put(0, startOffset);
        const AacProgramConfig expected = writeRandomPce(w, rng);
        std::vector<uint8_t> data = w.bytes();
        uint8_t* p = data.data();
        int off = startOffset;
        AacProgramConfig got;
        std::memset(&got, 0xA5, sizeof got);
        ASSERT_EQ(zamsDecodePrgCfgElt_AAC(&p, &off, &got), zamStsOk);
        EXPECT_EQ(std::memcmp(&got, &expected, sizeof got), 0) << trial;  // untouched entries keep the canary
        EXPECT_EQ((p - data.data()) * 8 + off, static_cast<long>(w.bits()));
        EXPECT_EQ(off, 0);
    }
}

// Constant rate (type 0) reads a buffer fullness before each element, variable
// rate none; the copyright id is read only when flagged.
TEST(AacAdif, ProgramConfigsAndBufferFullness)
{
    std::mt19937 rng(5);
    for (int bitstreamType = 0; bitstreamType < 2; ++bitstreamType) {
        const bool copyright = bitstreamType == 0;
        const int count = 3 - bitstreamType;
        BitWriter w;
        writeAdifStart(w, copyright, bitstreamType, count - 1);
        AacProgramConfig expected[3];
        const uint32_t fullness[3] = {0xFFFFF, 0x12345, 7};
        for (int i = 0; i < count; ++i) {
            if (bitstreamType == 0) w.put(fullness[i], 20);
            expected[i] = writeRandomPce(w, rng);
        }
        std::vector<uint8_t> data = w.bytes();
        uint8_t* p = data.data();
        AacAdifHeader h;
        AacProgramConfig pce[4];
        aactest::fillCanary(h), aactest::fillCanary(pce);
        ASSERT_EQ(zamsUnpackADIFHeader_AAC(&p, &h, pce, 4), zamStsOk);
        EXPECT_EQ((p - data.data()) * 8, static_cast<long>(w.bits()));
        EXPECT_EQ(h.adif_id, 0x41444946u);
        EXPECT_EQ(h.copyright_id_present, copyright);
        if (copyright) EXPECT_EQ(std::memcmp(h.copyright_id, "012345678", 9), 0);
        else EXPECT_TRUE(zamtest::untouched(h.copyright_id, 9));
        EXPECT_EQ(h.original_copy, 1);
        EXPECT_EQ(h.home, 0);
        EXPECT_EQ(h.bitstream_type, bitstreamType);
        EXPECT_EQ(h.bitrate, 320000);
        EXPECT_EQ(h.num_program_config_elements, count);
        for (int i = 0; i < count; ++i) {
            if (bitstreamType == 0) EXPECT_EQ(h.adif_buffer_fullness[i], static_cast<int32_t>(fullness[i]));
            EXPECT_EQ(std::memcmp(&pce[i], &expected[i], sizeof pce[i]), 0) << i;
        }
        EXPECT_TRUE(zamtest::untouched(h.adif_buffer_fullness + (bitstreamType == 0 ? 3 : 0), bitstreamType == 0 ? 13 : 16));
        EXPECT_TRUE(zamtest::untouched(&pce[count], 4 - count));
    }
}

TEST(AacAdif, SixteenElementsNeedCapacitySixteen)
{
    BitWriter w;
    writeAdifStart(w, false, 1, 15);
    for (int i = 0; i < 16; ++i) {
        w.put(static_cast<uint32_t>(i), 4);  // tag, then an empty element
        w.put(0, 30);
        w.alignZero();
        w.put(0, 8);
    }
    std::vector<uint8_t> data = w.bytes();
    std::vector<AacProgramConfig> pce(16);
    AacAdifHeader h;
    uint8_t* p = data.data();
    ASSERT_EQ(zamsUnpackADIFHeader_AAC(&p, &h, pce.data(), 16), zamStsOk);
    EXPECT_EQ(h.num_program_config_elements, 16);
    EXPECT_EQ(pce[15].element_instance_tag, 15);
    EXPECT_EQ((p - data.data()) * 8, static_cast<long>(w.bits()));

    // Capacity 15: the header fields are read (63 bits), then the count fails.
    p = data.data();
    std::memset(pce.data(), 0xA5, pce.size() * sizeof pce[0]);
    std::memset(&h, 0xA5, sizeof h);
    EXPECT_EQ(zamsUnpackADIFHeader_AAC(&p, &h, pce.data(), 15), zamStsAacPceCountErr);
    EXPECT_EQ(h.num_program_config_elements, 16);
    EXPECT_EQ(h.bitrate, 320000);
    EXPECT_EQ(p, data.data() + 7);
    EXPECT_TRUE(zamtest::untouched(pce.data(), pce.size()));
}

namespace {

BitWriter adtsHeader(int protectionAbsent, uint32_t sync = 0xFFF)
{
    BitWriter w;
    w.put(sync, 12);
    w.put(1, 1);   // ID
    w.put(2, 2);   // layer
    w.put(static_cast<uint32_t>(protectionAbsent), 1);
    w.put(1, 2);   // profile
    w.put(11, 4);  // sampling_frequency_index
    w.put(1, 1);   // private_bit
    w.put(6, 3);   // channel_configuration
    w.put(1, 1);   // original_copy
    w.put(0, 1);   // home
    w.put(1, 1);   // copyright_identification_bit
    w.put(0, 1);   // copyright_identification_start
    w.put(5000, 13);
    w.put(0x7FF, 11);
    w.put(3, 2);   // four raw data blocks
    if (!protectionAbsent) w.put(0xBEEF, 16);
    return w;
}

}  // namespace

TEST(AacAdts, FieldsAndLength)
{
    for (int protectionAbsent = 0; protectionAbsent < 2; ++protectionAbsent) {
        for (uint32_t sync : {0xFFFu, 0x123u}) {  // the sync word is not checked
            std::vector<uint8_t> data = adtsHeader(protectionAbsent, sync).bytes();
            uint8_t* p = data.data();
            AacAdtsFrameHeader h;
            std::memset(&h, 0xA5, sizeof h);
            ASSERT_EQ(zamsUnpackADTSFrameHeader_AAC(&p, &h), zamStsOk);
            EXPECT_EQ(p - data.data(), protectionAbsent ? 7 : 9);
            const int32_t spare = static_cast<int32_t>(0xA5A5A5A5u);
            const AacAdtsFrameHeader want = {1, 2, protectionAbsent, 1, 11, 1, 6, 1, 0, spare, 1, 0, 5000, 0x7FF, 4,
                                             protectionAbsent ? spare : 0xBEEF};
            EXPECT_EQ(std::memcmp(&h, &want, sizeof h), 0) << protectionAbsent;
        }
    }
}
