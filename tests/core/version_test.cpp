#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>

#include "test_support.h"
#include "zamac.h"

TEST(Version, RecordValues)
{
    const ZamLibVersion* v = zamacGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->majorVersion, 7);
    EXPECT_EQ(v->minorVersion, 1);
    EXPECT_EQ(v->updateNumber, 0);
    EXPECT_EQ(v->buildNumber, 36264);
    EXPECT_EQ(std::memcmp(v->cpuCode, "k4\0\0", 4), 0);
    EXPECT_STREQ(v->libraryName, "zamAC AVX2 (k4)");
    EXPECT_STREQ(v->versionText, "7.1.0 (r36264)");
    EXPECT_STREQ(v->buildDate, "Jul 23 2012");
}

TEST(Version, SamePointerEveryCall)
{
    EXPECT_EQ(zamacGetLibVersion(), zamacGetLibVersion());
}

TEST(Version, RecordLayout)
{
    const size_t got[] = {offsetof(ZamLibVersion, majorVersion), offsetof(ZamLibVersion, minorVersion),
                          offsetof(ZamLibVersion, updateNumber), offsetof(ZamLibVersion, buildNumber),
                          offsetof(ZamLibVersion, cpuCode),      offsetof(ZamLibVersion, libraryName),
                          offsetof(ZamLibVersion, versionText),  offsetof(ZamLibVersion, buildDate),
                          sizeof(ZamLibVersion)};
    const size_t want[] = {0, 4, 8, 12, 16, 24, 32, 40, 48};
    for (size_t i = 0; i < 9; ++i) EXPECT_EQ(got[i], want[i]) << i;
}

// Each code's value is part of the interface.
TEST(Status, Values)
{
    struct Code { int value; int expected; };
    const Code codes[] = {
        {zamStsMisalignedData, 2}, {zamStsOk, 0}, {zamStsBadData, -2}, {zamStsBadArg, -5},
        {zamStsSize, -6}, {zamStsNullPtr, -8}, {zamStsMemAlloc, -9}, {zamStsStep, -14},
        {zamStsFftOrder, -15}, {zamStsFftFlag, -16}, {zamStsContextMismatch, -17},
        {zamStsFirLength, -26}, {zamStsNumChannels, -53}, {zamStsVlcArg, -127},
        {zamStsVlcTable, -129}, {zamStsBitOffset, -193}, {zamStsAacObjTypeErr, -136},
        {zamStsAacLayerFlagErr, -137}, {zamStsAacDiffFlagErr, -138}, {zamStsAacMsFlagErr, -139},
        {zamStsAacFlagErr, -140}, {zamStsAacChanNumErr, -141}, {zamStsAacMsMaskErr, -142},
        {zamStsAacCommonWinErr, -143}, {zamStsAacWinSeqErr, -144}, {zamStsAacNumWinGrpErr, -145},
        {zamStsAacWinLenErr, -146}, {zamStsAacSmplRateIdxErr, -147}, {zamStsAacBitOffsetErr, -149},
        {zamStsAacProfileErr, -151}, {zamStsAacTnsDirErr, -152}, {zamStsAacTnsCoefErr, -153},
        {zamStsAacTnsCoefResErr, -154}, {zamStsAacTnsOrderErr, -155}, {zamStsAacTnsLenErr, -156},
        {zamStsAacTnsNumFiltErr, -157}, {zamStsAacSectDataErr, -158}, {zamStsAacGainCtrlErr, -159},
        {zamStsAacPulseErr, -160}, {zamStsAacPredSfbErr, -161}, {zamStsAacMaxSfbErr, -162},
        {zamStsAacQuantValErr, -163}, {zamStsAacSfValueErr, -164}, {zamStsAacSpectCbErr, -165},
        {zamStsAacSfCbErr, -166}, {zamStsAacPceCountErr, -167}, {zamStsMp3SideInfoErr, -170},
        {zamStsMp3FrameHeaderErr, -171}, {zamStsAacNotSupported, -9999},
    };
    for (const Code& c : codes) EXPECT_EQ(c.value, c.expected);
    EXPECT_EQ(sizeof(ZamStatus), 4u);
}

// zamStatusName knows every code the header declares (read from the header itself).
TEST(Status, NamesCoverTheHeader)
{
    std::ifstream header(ZAMAC_SOURCE_DIR "/include/zamac.h");
    const std::string text((std::istreambuf_iterator<char>(header)), std::istreambuf_iterator<char>());
    const std::regex code(R"(\n\s+(zamSts\w+) = (-?\d+))");
    int count = 0;
    for (auto m = std::sregex_iterator(text.begin(), text.end(), code); m != std::sregex_iterator(); ++m, ++count)
        EXPECT_STREQ(zamStatusName(std::stoi((*m)[2])), (*m)[1].str().c_str());
    EXPECT_GE(count, 49);
    EXPECT_STREQ(zamStatusName(12345), "unknown status");
}
