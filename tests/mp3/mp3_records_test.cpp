// The MP3 records that cross the interface: exact field order, types and sizes.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "zamac.h"

TEST(Mp3Records, FrameHeaderLayout)
{
    EXPECT_EQ(sizeof(Mp3FrameHeader), 13u * 4u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, ID), 0u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, layer), 4u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, protection_bit), 8u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, bitrate_index), 12u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, sampling_frequency), 16u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, padding_bit), 20u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, private_bit), 24u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, mode), 28u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, mode_extension), 32u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, copyright), 36u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, original_copy), 40u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, emphasis), 44u);
    EXPECT_EQ(offsetof(Mp3FrameHeader, crc_check), 48u);
    EXPECT_TRUE((std::is_same_v<decltype(Mp3FrameHeader::crc_check), int32_t>));
}

TEST(Mp3Records, SideInfoLayout)
{
    EXPECT_EQ(sizeof(Mp3SideInfo), 18u * 4u);
    EXPECT_EQ(offsetof(Mp3SideInfo, part2_3_length), 0u);
    EXPECT_EQ(offsetof(Mp3SideInfo, big_values), 4u);
    EXPECT_EQ(offsetof(Mp3SideInfo, global_gain), 8u);
    EXPECT_EQ(offsetof(Mp3SideInfo, scalefac_compress), 12u);
    EXPECT_EQ(offsetof(Mp3SideInfo, window_switching_flag), 16u);
    EXPECT_EQ(offsetof(Mp3SideInfo, block_type), 20u);
    EXPECT_EQ(offsetof(Mp3SideInfo, mixed_block_flag), 24u);
    EXPECT_EQ(offsetof(Mp3SideInfo, table_select), 28u);
    EXPECT_EQ(sizeof(Mp3SideInfo::table_select), 12u);
    EXPECT_EQ(offsetof(Mp3SideInfo, subblock_gain), 40u);
    EXPECT_EQ(sizeof(Mp3SideInfo::subblock_gain), 12u);
    EXPECT_EQ(offsetof(Mp3SideInfo, region0_count), 52u);
    EXPECT_EQ(offsetof(Mp3SideInfo, region1_count), 56u);
    EXPECT_EQ(offsetof(Mp3SideInfo, preflag), 60u);
    EXPECT_EQ(offsetof(Mp3SideInfo, scalefac_scale), 64u);
    EXPECT_EQ(offsetof(Mp3SideInfo, count1table_select), 68u);
    EXPECT_TRUE((std::is_same_v<decltype(Mp3SideInfo::table_select), int32_t[3]>));
    EXPECT_TRUE((std::is_same_v<decltype(Mp3SideInfo::subblock_gain), int32_t[3]>));
}
