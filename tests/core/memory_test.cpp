#include <gtest/gtest.h>

#include "core/memory.h"
#include "zamcore.h"

using namespace zam;

TEST(Tags, FourCharacterTagsReadLittleEndian)
{
    EXPECT_EQ(fourCharTag('h'), 0x434D4168u);
    const uint32_t tag = fourCharTag('`');
    char bytes[4];
    std::memcpy(bytes, &tag, 4);
    EXPECT_EQ(std::string(bytes, 4), "`AMC");
}

TEST(Placement, HeaderGoesToTheNextAlignedAddress)
{
    alignas(64) uint8_t raw[256];
    EXPECT_EQ(alignUp(raw + 1, 16), raw + 16);  // 15 bytes in
    EXPECT_EQ(alignUp(raw + 16, 16), raw + 16);
    EXPECT_EQ(alignUp(raw + 1, 64), raw + 64);
    EXPECT_EQ(roundUp16(1), 16);
    EXPECT_EQ(roundUp16(32), 32);
    EXPECT_EQ(roundUp(65, 64), 128);
}

TEST(Allocation, CountsBelowOneGiveNull)
{
    EXPECT_EQ(allocBytes(0), nullptr);
    EXPECT_EQ(allocBytes(-5), nullptr);
    EXPECT_EQ(allocElements32(0), nullptr);
    void* p = allocBytes(1);
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(isAligned(p, 64));
    release(p);
    void* q = allocElements32(1000);
    ASSERT_NE(q, nullptr);
    std::memset(q, 0, 4000);  // the sanitizer build checks the whole block is ours
    release(q);
}

TEST(Zamcore, MallocAlignmentAndLimits)
{
    EXPECT_EQ(zamMalloc(0), nullptr);
    EXPECT_EQ(zamMalloc(-1), nullptr);
    for (int64_t size : {1, 63, 64, 65, 4097}) {
        void* p = zamMalloc(size);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u);
        zamFree(p);
    }
    zamFree(nullptr);
}

TEST(Zamcore, CpuFeaturesAndCache)
{
    const uint64_t f = zamGetEnabledCpuFeatures();
    EXPECT_EQ(f, zamGetEnabledCpuFeatures());
    EXPECT_TRUE(f & ZAM_CPU_SSE2);
    EXPECT_TRUE(f & ZAM_CPU_AVX2) << "zamac is built for AVX2 processors";
    EXPECT_TRUE(f & ZAM_CPU_FMA);
    EXPECT_EQ(zamGetMaxCacheSizeB(nullptr), ZAMCORE_STS_NULL_PTR);
    int size = -1;
    EXPECT_EQ(zamGetMaxCacheSizeB(&size), ZAMCORE_STS_OK);
    EXPECT_GE(size, 32 * 1024);
}
