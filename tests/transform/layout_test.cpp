// Field order and sizes of the transform records.
#include <gtest/gtest.h>

#include <cstddef>

#include "transform/fft.h"
#include "transform/fft16.h"
#include "transform/mdct.h"

namespace {

TEST(TransformLayout, FftSpec)
{
    EXPECT_EQ(offsetof(zam::FftSpec, tag), 0u);
    EXPECT_EQ(offsetof(zam::FftSpec, order), 4u);
    EXPECT_EQ(offsetof(zam::FftSpec, scaleFwd), 8u);
    EXPECT_EQ(offsetof(zam::FftSpec, scaleInv), 12u);
    EXPECT_EQ(offsetof(zam::FftSpec, scale), 16u);
    EXPECT_EQ(offsetof(zam::FftSpec, hint), 20u);
    EXPECT_EQ(offsetof(zam::FftSpec, workSize), 24u);
    EXPECT_EQ(offsetof(zam::FftSpec, reserved), 28u);
    EXPECT_EQ(offsetof(zam::FftSpec, bitReverse), 32u);
    EXPECT_EQ(offsetof(zam::FftSpec, twiddles), 40u);
    EXPECT_EQ(sizeof(zam::FftSpec), 64u);  // the bit-reversal table follows at +64
}

TEST(TransformLayout, DctSpec)
{
    EXPECT_EQ(offsetof(zam::DctSpec, tag), 0u);
    EXPECT_EQ(offsetof(zam::DctSpec, length), 4u);
    EXPECT_EQ(offsetof(zam::DctSpec, hint), 8u);
    EXPECT_EQ(offsetof(zam::DctSpec, workSize), 12u);
    EXPECT_EQ(offsetof(zam::DctSpec, reserved), 16u);
    EXPECT_EQ(offsetof(zam::DctSpec, s0), 20u);
    EXPECT_EQ(offsetof(zam::DctSpec, s1), 24u);
    EXPECT_EQ(offsetof(zam::DctSpec, smallKernel), 28u);
    EXPECT_EQ(offsetof(zam::DctSpec, fftPath), 32u);
    EXPECT_EQ(offsetof(zam::DctSpec, generalPath), 36u);
    EXPECT_EQ(offsetof(zam::DctSpec, table), 40u);
    EXPECT_LE(sizeof(zam::DctSpec), size_t{zam::kDctClearBytes});
}

TEST(TransformLayout, MdctSpecs)
{
    EXPECT_EQ(offsetof(zam::MdctSpec32f, tag), 0u);
    EXPECT_EQ(offsetof(zam::MdctSpec32f, length), 4u);
    EXPECT_EQ(offsetof(zam::MdctSpec32f, workSize), 8u);
    EXPECT_EQ(offsetof(zam::MdctSpec32f, fftOrder), 12u);
    EXPECT_EQ(offsetof(zam::MdctSpec32f, ownsMemory), 16u);
    EXPECT_EQ(offsetof(zam::MdctSpec32f, twiddles), 24u);
    EXPECT_EQ(offsetof(zam::MdctSpec32f, fft), 32u);
    EXPECT_EQ(sizeof(zam::MdctSpec32f), 40u);
    EXPECT_EQ(offsetof(zam::MdctSpec16s, tag), 0u);
    EXPECT_EQ(offsetof(zam::MdctSpec16s, ownsMemory), 16u);
    EXPECT_EQ(offsetof(zam::MdctSpec16s, twiddles), 24u);
    EXPECT_EQ(offsetof(zam::MdctSpec16s, fft), 32u);
    EXPECT_EQ(sizeof(zam::Fft16Spec), 64u);
}

}  // namespace
