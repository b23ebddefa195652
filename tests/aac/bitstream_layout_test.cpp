// Pins the size and field offsets of every AAC bit-stream record.
#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>

#include "aac/aac_tables.h"
#include "zamac.h"

namespace {

// Fields that follow one another `step` bytes apart from `first`.
void expectRun(const char* record, std::initializer_list<size_t> offsets, size_t first, size_t step = 4)
{
    size_t want = first;
    int field = 0;
    for (size_t got : offsets) {
        EXPECT_EQ(got, want) << record << " field " << field++;
        want += step;
    }
}

}  // namespace

#define O(field) offsetof(T, field)

TEST(AacBitstreamLayout, StreamHeadersAndProgramConfig)
{
    {
        using T = AacAdifHeader;
        expectRun("ADIF", {O(adif_id), O(copyright_id_present), O(original_copy), O(home), O(bitstream_type),
                           O(bitrate), O(num_program_config_elements), O(adif_buffer_fullness)}, 0);
        expectRun("ADIF", {O(copyright_id)}, 92);
        EXPECT_EQ(sizeof(T), 104u);
    }
    {
        using T = AacAdtsFrameHeader;
        expectRun("ADTS", {O(ID), O(layer), O(protection_absent), O(profile), O(sampling_frequency_index),
                           O(private_bit), O(channel_configuration), O(original_copy), O(home), O(adts_header_spare),
                           O(copyright_identification_bit), O(copyright_identification_start), O(aac_frame_length),
                           O(adts_buffer_fullness), O(number_of_raw_data_blocks_in_frame), O(crc_check)}, 0);
        EXPECT_EQ(sizeof(T), 64u);
    }
    {
        using T = AacProgramConfig;
        expectRun("PCE", {O(element_instance_tag), O(object_type), O(sampling_frequency_index),
                          O(num_front_channel_elements), O(num_side_channel_elements), O(num_back_channel_elements),
                          O(num_lfe_channel_elements), O(num_assoc_data_elements), O(num_valid_cc_elements),
                          O(mono_mixdown_present), O(mono_mixdown_element_number), O(stereo_mixdown_present),
                          O(stereo_mixdown_element_number), O(matrix_mixdown_idx_present), O(matrix_mixdown_idx),
                          O(pseudo_surround_enable)}, 0);
        expectRun("PCE", {O(front_element_is_cpe), O(front_element_tag_select), O(side_element_is_cpe),
                          O(side_element_tag_select), O(back_element_is_cpe), O(back_element_tag_select),
                          O(lfe_element_tag_select)}, 64, 64);
        expectRun("PCE", {O(assoc_data_element_tag_select), O(cc_element_is_ind_sw)}, 464, 32);
        expectRun("PCE", {O(valid_cc_element_tag_select), O(comment_field_bytes)}, 560, 64);
        expectRun("PCE", {O(comment_field_bytes), O(comment_field_data)}, 624);
        EXPECT_EQ(sizeof(T), 884u);
    }
}

TEST(AacBitstreamLayout, ElementRecords)
{
    {
        using T = AacIcsInfo;
        expectRun("ICS", {O(ics_reserved_bit), O(window_sequence), O(window_shape), O(max_sfb),
                          O(scale_factor_grouping), O(predictor_data_present), O(predictor_reset),
                          O(predictor_reset_group_number), O(prediction_used)}, 0);
        expectRun("ICS", {O(num_window_groups), O(window_group_length)}, 76);
        EXPECT_EQ(sizeof(T), 112u);
    }
    {
        using T = AacChanPairElt;
        expectRun("CPE", {O(common_window), O(ms_mask_present), O(ms_used)}, 0);
        EXPECT_EQ(sizeof(T), 488u);
        EXPECT_EQ(sizeof(T::ms_used[0]), 60u);
    }
    {
        using T = AacTnsData;
        expectRun("TNS", {O(tns_data_present), O(n_filt)}, 0);
        expectRun("TNS", {O(n_filt), O(coef_res), O(length), O(order), O(direction)}, 4, 32);
        expectRun("TNS", {O(direction), O(coef)}, 132, 64);
        EXPECT_EQ(sizeof(T), 64u * 4);
    }
    {
        using T = AacLtpData;
        expectRun("LTP", {O(ltp_data_present), O(ltp_lag), O(ltp_coef), O(ltp_long_used)}, 0);
        expectRun("LTP", {O(ltp_spare)}, 176);
        expectRun("LTP", {O(ltp_short_used), O(ltp_short_lag_present), O(ltp_short_lag)}, 256, 32);
        EXPECT_EQ(sizeof(T), 88u * 4);
    }
    {
        using T = AacMainHeader;
        expectRun("main", {O(window_sequence), O(window_shape), O(max_sfb), O(scale_factor_grouping),
                           O(num_window_groups), O(window_group_length)}, 0);
        expectRun("main", {O(ms_mask_present), O(pMsUsed)}, 52);
        expectRun("main", {O(tns), O(ltp)}, 64, 2 * 256);
        EXPECT_EQ(sizeof(T), 64u + 2 * 256 + 2 * 352);
    }
    {
        using T = AacExtensionHeader;
        expectRun("extension", {O(ms_mask_present), O(max_sfb), O(pMsUsed)}, 0);
        expectRun("extension", {O(tns), O(diff_control_lr)}, 16, 2 * 256);
        EXPECT_EQ(sizeof(T), 16u + 2 * 256 + 2 * 51 * 4);
    }
    {
        using T = AacChanInfo;
        expectRun("channel", {O(caller_word0), O(caller_word1), O(sampling_frequency_index), O(num_pred_sfb),
                              O(caller_word2), O(frame_length), O(num_window), O(num_swb), O(global_gain),
                              O(pulse_data_present), O(tns_data_present), O(gain_control_data_present), O(pIcsInfo)},
                  0);
        expectRun("channel", {O(pIcsInfo), O(pCallerData), O(sect_cb)}, 48, 8);
        expectRun("channel", {O(sect_cb), O(sect_end), O(num_sec)}, 64, 120);
        expectRun("channel", {O(num_sec), O(n_filt), O(coef_res), O(length), O(order), O(direction)}, 304, 32);
        EXPECT_EQ(sizeof(T), 496u);
    }
}

#undef O

// Band tables: offsets rise strictly, start at 0 and end at the window length.
TEST(AacBitstreamLayout, SwbOffsetTables)
{
    for (int sfi = 0; sfi < zam::kAacNumSampleRates; ++sfi) {
        for (bool eightShort : {false, true}) {
            const uint16_t* off = zam::aacSwbOffsets(sfi, eightShort);
            const int n = zam::aacNumSwb(sfi, eightShort);
            EXPECT_EQ(off[0], 0);
            EXPECT_EQ(off[n], eightShort ? 128 : 1024);
            for (int b = 0; b < n; ++b) EXPECT_LT(off[b], off[b + 1]) << sfi << " " << b;
        }
    }
    EXPECT_EQ(zam::kAacNumSwbLong[4], 49);
    EXPECT_EQ(zam::kAacSwbOffsetLong[4][48], 928);
    EXPECT_EQ(zam::kAacNumSwbShort[11], 15);
    EXPECT_EQ(zam::kAacNumSwbLong[11], 40);
}
