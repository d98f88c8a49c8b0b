#include "runner/frame_verify.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

CheckFrame Filled(int w, int h, uint8_t v) {
    CheckFrame f;
    f.width = w;
    f.height = h;
    f.rgba.assign(static_cast<size_t>(w) * h * 4, v);
    return f;
}

}  // namespace

TEST(CompareFrames, ToleranceIsPerChannelAndEveryChannelCounts) {
    const CheckFrame ref = Filled(16, 8, 100);
    CheckFrame f = ref;
    EXPECT_FALSE(IsCheckError(CompareFrames(ref, f)));
    // Rounding-sized differences in every pixel are no error.
    for (size_t i = 0; i < f.rgba.size(); ++i) f.rgba[i] = static_cast<uint8_t>(100 + (i % 3) - 1);
    FrameDifference d = CompareFrames(ref, f);
    EXPECT_FALSE(IsCheckError(d));
    EXPECT_EQ(d.largest, 1);
    // One channel of one pixel just past the tolerance, and the alpha of another.
    f = ref;
    f.rgba[4 * 7 + 1] = 100 + kCheckChannelTolerance + 1;
    f.rgba[4 * 20 + 3] = 0;
    d = CompareFrames(ref, f);
    EXPECT_TRUE(IsCheckError(d));
    EXPECT_EQ(d.pixels, 2u);
    EXPECT_EQ(d.largest, 100);
    // A frame of another size differs everywhere.
    d = CompareFrames(ref, Filled(8, 8, 100));
    EXPECT_EQ(d.pixels, 128u);
    EXPECT_EQ(d.largest, 255);
}

TEST(InjectFault, CorruptsABlockInTheMiddleOfAnyFrame) {
    for (int w : {1, 3, 64}) {
        const CheckFrame ref = Filled(w, 5, 30);
        CheckFrame f = ref;
        InjectFault(&f);
        const FrameDifference d = CompareFrames(ref, f);
        EXPECT_TRUE(IsCheckError(d)) << w;
        EXPECT_EQ(d.largest, 195) << w;
    }
}

TEST(CheckSchedule, NeedsBothTimeAndFramesUnlessTestsSetAFrameCount) {
    CheckSchedule s;
    EXPECT_FALSE(s.Due(4999, 1000));
    EXPECT_FALSE(s.Due(60000, 199));
    EXPECT_TRUE(s.Due(5000, 200));
    // A check that took 200 ms waits until it is 2 % of the time: 9.8 s.
    EXPECT_TRUE(s.Due(5000, 200, 100.0));
    EXPECT_FALSE(s.Due(9799, 5000, 200.0));
    EXPECT_TRUE(s.Due(9800, 5000, 200.0));
    s.everyFrames = 10;
    EXPECT_FALSE(s.Due(60000, 9));
    EXPECT_TRUE(s.Due(0, 10, 10000.0));  // tests ask for checks whatever they cost
}

TEST(ComputeCheckValue, WrapsAt32BitsAndSpreadsNeighbouringIndices) {
    // Fixed values: the shader on the GPU must give exactly these.
    EXPECT_EQ(ComputeCheckValue(0), 0x27a47c0eu);
    EXPECT_EQ(ComputeCheckValue(4095), 0xd5e4d37fu);
    int sameLowByte = 0;
    for (uint32_t i = 0; i < 256; ++i) sameLowByte += (ComputeCheckValue(i) & 0xFF) == (ComputeCheckValue(i + 1) & 0xFF);
    EXPECT_LT(sameLowByte, 8);
}

TEST(ComputeCheckValue, MismatchesAreCountedByIndex) {
    std::vector<uint32_t> got(kComputeValues);
    for (int i = 0; i < kComputeValues; ++i) got[static_cast<size_t>(i)] = ComputeCheckValue(static_cast<uint32_t>(i));
    EXPECT_EQ(CountComputeMismatches(got.data()), 0);
    // Right values at the wrong indices are wrong: a driver that ran the
    // groups but stored them shifted must not pass.
    std::vector<uint32_t> shifted(got.begin() + 1, got.end());
    shifted.push_back(got.front());
    EXPECT_EQ(CountComputeMismatches(shifted.data()), kComputeValues);
    got.back() ^= 1u;
    got.front() = 0;  // the cleared buffer's value, as when a group never ran
    EXPECT_EQ(CountComputeMismatches(got.data()), 2);
}
