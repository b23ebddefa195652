// Pins the size and field offsets of every AAC bit-stream record.
#include <gtest/gtest.h>

#include <cstddef>

#include "aac/aac_tables.h"
#include "zamac.h"

#define EXPECT_OFFSET(type, field, value) EXPECT_EQ(offsetof(type, field), size_t{value}) << #type "." #field

TEST(AacBitstreamLayout, AdifHeader)
{
    EXPECT_OFFSET(AacAdifHeader, adif_id, 0);
    EXPECT_OFFSET(AacAdifHeader, copyright_id_present, 4);
    EXPECT_OFFSET(AacAdifHeader, original_copy, 8);
    EXPECT_OFFSET(AacAdifHeader, home, 12);
    EXPECT_OFFSET(AacAdifHeader, bitstream_type, 16);
    EXPECT_OFFSET(AacAdifHeader, bitrate, 20);
    EXPECT_OFFSET(AacAdifHeader, num_program_config_elements, 24);
    EXPECT_OFFSET(AacAdifHeader, adif_buffer_fullness, 28);
    EXPECT_OFFSET(AacAdifHeader, copyright_id, 92);
    EXPECT_EQ(sizeof(AacAdifHeader), 104u);
}

TEST(AacBitstreamLayout, AdtsFrameHeader)
{
    EXPECT_OFFSET(AacAdtsFrameHeader, ID, 0);
    EXPECT_OFFSET(AacAdtsFrameHeader, layer, 4);
    EXPECT_OFFSET(AacAdtsFrameHeader, protection_absent, 8);
    EXPECT_OFFSET(AacAdtsFrameHeader, profile, 12);
    EXPECT_OFFSET(AacAdtsFrameHeader, sampling_frequency_index, 16);
    EXPECT_OFFSET(AacAdtsFrameHeader, private_bit, 20);
    EXPECT_OFFSET(AacAdtsFrameHeader, channel_configuration, 24);
    EXPECT_OFFSET(AacAdtsFrameHeader, original_copy, 28);
    EXPECT_OFFSET(AacAdtsFrameHeader, home, 32);
    EXPECT_OFFSET(AacAdtsFrameHeader, adts_header_spare, 36);
    EXPECT_OFFSET(AacAdtsFrameHeader, copyright_identification_bit, 40);
    EXPECT_OFFSET(AacAdtsFrameHeader, copyright_identification_start, 44);
    EXPECT_OFFSET(AacAdtsFrameHeader, aac_frame_length, 48);
    EXPECT_OFFSET(AacAdtsFrameHeader, adts_buffer_fullness, 52);
    EXPECT_OFFSET(AacAdtsFrameHeader, number_of_raw_data_blocks_in_frame, 56);
    EXPECT_OFFSET(AacAdtsFrameHeader, crc_check, 60);
    EXPECT_EQ(sizeof(AacAdtsFrameHeader), 64u);
}

TEST(AacBitstreamLayout, ProgramConfig)
{
    EXPECT_OFFSET(AacProgramConfig, element_instance_tag, 0);
    EXPECT_OFFSET(AacProgramConfig, object_type, 4);
    EXPECT_OFFSET(AacProgramConfig, sampling_frequency_index, 8);
    EXPECT_OFFSET(AacProgramConfig, num_front_channel_elements, 12);
    EXPECT_OFFSET(AacProgramConfig, num_side_channel_elements, 16);
    EXPECT_OFFSET(AacProgramConfig, num_back_channel_elements, 20);
    EXPECT_OFFSET(AacProgramConfig, num_lfe_channel_elements, 24);
    EXPECT_OFFSET(AacProgramConfig, num_assoc_data_elements, 28);
    EXPECT_OFFSET(AacProgramConfig, num_valid_cc_elements, 32);
    EXPECT_OFFSET(AacProgramConfig, mono_mixdown_present, 36);
    EXPECT_OFFSET(AacProgramConfig, mono_mixdown_element_number, 40);
    EXPECT_OFFSET(AacProgramConfig, stereo_mixdown_present, 44);
    EXPECT_OFFSET(AacProgramConfig, stereo_mixdown_element_number, 48);
    EXPECT_OFFSET(AacProgramConfig, matrix_mixdown_idx_present, 52);
    EXPECT_OFFSET(AacProgramConfig, matrix_mixdown_idx, 56);
    EXPECT_OFFSET(AacProgramConfig, pseudo_surround_enable, 60);
    EXPECT_OFFSET(AacProgramConfig, front_element_is_cpe, 64);
    EXPECT_OFFSET(AacProgramConfig, front_element_tag_select, 128);
    EXPECT_OFFSET(AacProgramConfig, side_element_is_cpe, 192);
    EXPECT_OFFSET(AacProgramConfig, side_element_tag_select, 256);
    EXPECT_OFFSET(AacProgramConfig, back_element_is_cpe, 320);
    EXPECT_OFFSET(AacProgramConfig, back_element_tag_select, 384);
    EXPECT_OFFSET(AacProgramConfig, lfe_element_tag_select, 448);
    EXPECT_OFFSET(AacProgramConfig, assoc_data_element_tag_select, 464);
    EXPECT_OFFSET(AacProgramConfig, cc_element_is_ind_sw, 496);
    EXPECT_OFFSET(AacProgramConfig, valid_cc_element_tag_select, 560);
    EXPECT_OFFSET(AacProgramConfig, comment_field_bytes, 624);
    EXPECT_OFFSET(AacProgramConfig, comment_field_data, 628);
    EXPECT_EQ(sizeof(AacProgramConfig), 884u);
}

TEST(AacBitstreamLayout, IcsInfoAndChanPair)
{
    EXPECT_OFFSET(AacIcsInfo, ics_reserved_bit, 0);
    EXPECT_OFFSET(AacIcsInfo, window_sequence, 4);
    EXPECT_OFFSET(AacIcsInfo, window_shape, 8);
    EXPECT_OFFSET(AacIcsInfo, max_sfb, 12);
    EXPECT_OFFSET(AacIcsInfo, scale_factor_grouping, 16);
    EXPECT_OFFSET(AacIcsInfo, predictor_data_present, 20);
    EXPECT_OFFSET(AacIcsInfo, predictor_reset, 24);
    EXPECT_OFFSET(AacIcsInfo, predictor_reset_group_number, 28);
    EXPECT_OFFSET(AacIcsInfo, prediction_used, 32);
    EXPECT_OFFSET(AacIcsInfo, num_window_groups, 76);
    EXPECT_OFFSET(AacIcsInfo, window_group_length, 80);
    EXPECT_EQ(sizeof(AacIcsInfo), 112u);

    EXPECT_OFFSET(AacChanPairElt, common_window, 0);
    EXPECT_OFFSET(AacChanPairElt, ms_mask_present, 4);
    EXPECT_OFFSET(AacChanPairElt, ms_used, 8);
    EXPECT_EQ(sizeof(AacChanPairElt), 488u);
    EXPECT_EQ(sizeof(AacChanPairElt::ms_used[0]), 60u);
}

TEST(AacBitstreamLayout, TnsAndLtp)
{
    EXPECT_OFFSET(AacTnsData, tns_data_present, 0);
    EXPECT_OFFSET(AacTnsData, n_filt, 4);
    EXPECT_OFFSET(AacTnsData, coef_res, 36);
    EXPECT_OFFSET(AacTnsData, length, 68);
    EXPECT_OFFSET(AacTnsData, order, 100);
    EXPECT_OFFSET(AacTnsData, direction, 132);
    EXPECT_OFFSET(AacTnsData, coef, 196);
    EXPECT_EQ(sizeof(AacTnsData), 64u * 4);

    EXPECT_OFFSET(AacLtpData, ltp_data_present, 0);
    EXPECT_OFFSET(AacLtpData, ltp_lag, 4);
    EXPECT_OFFSET(AacLtpData, ltp_coef, 8);
    EXPECT_OFFSET(AacLtpData, ltp_long_used, 12);
    EXPECT_OFFSET(AacLtpData, ltp_spare, 176);
    EXPECT_OFFSET(AacLtpData, ltp_short_used, 256);
    EXPECT_OFFSET(AacLtpData, ltp_short_lag_present, 288);
    EXPECT_OFFSET(AacLtpData, ltp_short_lag, 320);
    EXPECT_EQ(sizeof(AacLtpData), 88u * 4);
}

TEST(AacBitstreamLayout, MainAndExtensionHeaders)
{
    EXPECT_OFFSET(AacMainHeader, window_sequence, 0);
    EXPECT_OFFSET(AacMainHeader, window_shape, 4);
    EXPECT_OFFSET(AacMainHeader, max_sfb, 8);
    EXPECT_OFFSET(AacMainHeader, scale_factor_grouping, 12);
    EXPECT_OFFSET(AacMainHeader, num_window_groups, 16);
    EXPECT_OFFSET(AacMainHeader, window_group_length, 20);
    EXPECT_OFFSET(AacMainHeader, ms_mask_present, 52);
    EXPECT_OFFSET(AacMainHeader, pMsUsed, 56);
    EXPECT_OFFSET(AacMainHeader, tns, 64);
    EXPECT_OFFSET(AacMainHeader, ltp, 64 + 2 * 256);
    EXPECT_EQ(sizeof(AacMainHeader), 64u + 2 * 256 + 2 * 352);

    EXPECT_OFFSET(AacExtensionHeader, ms_mask_present, 0);
    EXPECT_OFFSET(AacExtensionHeader, max_sfb, 4);
    EXPECT_OFFSET(AacExtensionHeader, pMsUsed, 8);
    EXPECT_OFFSET(AacExtensionHeader, tns, 16);
    EXPECT_OFFSET(AacExtensionHeader, diff_control_lr, 16 + 2 * 256);
    EXPECT_EQ(sizeof(AacExtensionHeader), 16u + 2 * 256 + 2 * 51 * 4);
}

TEST(AacBitstreamLayout, ChanInfo)
{
    EXPECT_OFFSET(AacChanInfo, caller_word0, 0);
    EXPECT_OFFSET(AacChanInfo, caller_word1, 4);
    EXPECT_OFFSET(AacChanInfo, sampling_frequency_index, 8);
    EXPECT_OFFSET(AacChanInfo, num_pred_sfb, 12);
    EXPECT_OFFSET(AacChanInfo, caller_word2, 16);
    EXPECT_OFFSET(AacChanInfo, frame_length, 20);
    EXPECT_OFFSET(AacChanInfo, num_window, 24);
    EXPECT_OFFSET(AacChanInfo, num_swb, 28);
    EXPECT_OFFSET(AacChanInfo, global_gain, 32);
    EXPECT_OFFSET(AacChanInfo, pulse_data_present, 36);
    EXPECT_OFFSET(AacChanInfo, tns_data_present, 40);
    EXPECT_OFFSET(AacChanInfo, gain_control_data_present, 44);
    EXPECT_OFFSET(AacChanInfo, pIcsInfo, 48);
    EXPECT_OFFSET(AacChanInfo, pCallerData, 56);
    EXPECT_OFFSET(AacChanInfo, sect_cb, 64);
    EXPECT_OFFSET(AacChanInfo, sect_end, 184);
    EXPECT_OFFSET(AacChanInfo, num_sec, 304);
    EXPECT_OFFSET(AacChanInfo, n_filt, 336);
    EXPECT_OFFSET(AacChanInfo, coef_res, 368);
    EXPECT_OFFSET(AacChanInfo, length, 400);
    EXPECT_OFFSET(AacChanInfo, order, 432);
    EXPECT_OFFSET(AacChanInfo, direction, 464);
    EXPECT_EQ(sizeof(AacChanInfo), 496u);
}

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
