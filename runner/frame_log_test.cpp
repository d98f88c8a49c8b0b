#include "runner/frame_log.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

TEST(SummariseSecond, RateFromTheTrueIntervalAndNearestRankPercentiles) {
    std::vector<double> times;
    for (int i = 1; i <= 100; ++i) times.push_back(101 - i);  // 100 ... 1 ms, out of order
    SecondSummary s = SummariseSecond(100, 1250, &times);
    EXPECT_EQ(s.frames, 100u);
    EXPECT_DOUBLE_EQ(s.fps, 80.0);
    EXPECT_DOUBLE_EQ(s.p50, 50.0);
    EXPECT_DOUBLE_EQ(s.p99, 99.0);

    // One slow frame among few is the 99th percentile; without times both are 0.
    times = {10, 10, 10, 250};
    s = SummariseSecond(4, 1000, &times);
    EXPECT_DOUBLE_EQ(s.p50, 10.0);
    EXPECT_DOUBLE_EQ(s.p99, 250.0);
    times.clear();
    s = SummariseSecond(0, 0, &times);
    EXPECT_EQ(s.fps, 0.0);
    EXPECT_EQ(s.p50, 0.0);
    EXPECT_EQ(s.p99, 0.0);
}

TEST(FrameLog, HeaderAndRowsNameEachGpuAndWriteNaForMissingReadings) {
    EXPECT_EQ(FrameLog::Header(0), "time_s,phase,frames,fps,frame_time_p50_ms,frame_time_p99_ms");
    EXPECT_EQ(FrameLog::Header(2),
              "time_s,phase,frames,fps,frame_time_p50_ms,frame_time_p99_ms,"
              "gpu1_temperature_c,gpu1_load_percent,gpu1_core_clock_mhz,gpu1_memory_clock_mhz,gpu1_power_percent,"
              "gpu2_temperature_c,gpu2_load_percent,gpu2_core_clock_mhz,gpu2_memory_clock_mhz,gpu2_power_percent");
    SecondSummary s;
    s.frames = 61;
    s.fps = 60.5;
    s.p50 = 16.25;
    s.p99 = 33.5;
    GpuLogReading a;
    a.hasTemperature = a.hasLoad = a.hasCoreClock = a.hasMemoryClock = a.hasPower = true;
    a.temperature = 0;  // a supplied 0 is a measurement
    a.load = 97.5;
    a.coreClock = 1850;
    a.memoryClock = 7000;
    a.power = 101;
    GpuLogReading b;
    b.hasLoad = true;
    b.load = 3;
    EXPECT_EQ(FrameLog::Row(12.3456, "measured", s, 2, {a, b}),
              "12.346,measured,61,60.50,16.250,33.500,0.0,97.5,1850,7000,101,n.a.,3.0,n.a.,n.a.,n.a.");
    // A GPU missing from the readings is written as unread, not dropped.
    EXPECT_EQ(FrameLog::Row(1, "warm-up", s, 2, {a}),
              "1.000,warm-up,61,60.50,16.250,33.500,0.0,97.5,1850,7000,101,n.a.,n.a.,n.a.,n.a.,n.a.");
}

TEST(FrameLog, EachRowIsOnDiskAsSoonAsItIsWritten) {
    const std::string path = ::testing::TempDir() + "frame_log_flush.csv";
    FrameLog log;
    std::string reason;
    ASSERT_TRUE(log.Open(path, 1, &reason)) << reason;
    SecondSummary s;
    s.frames = 5;
    ASSERT_TRUE(log.AddRow(1.0, "measured", s, {}, &reason));
    // Read while the log is still open: the row must already be there.
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str(), FrameLog::Header(1) + "\n" + FrameLog::Row(1.0, "measured", s, 1, {}) + "\n");
    log.Close();
    EXPECT_FALSE(log.AddRow(2.0, "measured", s, {}, &reason));
    std::remove(path.c_str());

    FrameLog bad;
    EXPECT_FALSE(bad.Open(::testing::TempDir() + "missing-folder/x.csv", 1, &reason));
    EXPECT_FALSE(reason.empty());
    EXPECT_FALSE(bad.open());
}
