#include "runner/run_results.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

TEST(FrameTimes, PercentilesAndLowsFollowTheSlowFrames) {
    FrameTimeHistogram h;
    EXPECT_EQ(h.Percentile(0.5), 0.0);
    EXPECT_EQ(h.LowFps(0.01), 0.0);
    // 990 frames of 10 ms and 10 stalls of 100 ms.
    for (int i = 0; i < 990; ++i) h.Add(10.0);
    for (int i = 0; i < 10; ++i) h.Add(100.0);
    h.Add(-1.0);  // not a frame time
    h.Add(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(h.count(), 1000u);
    EXPECT_NEAR(h.Percentile(0.50), 10.0, 0.05);
    EXPECT_NEAR(h.Percentile(0.99), 10.0, 0.05);
    EXPECT_NEAR(h.Percentile(0.999), 100.0, 0.5);
    // The slowest 1 % are exactly the stalls: 10 FPS.
    EXPECT_NEAR(h.LowFps(0.01), 10.0, 0.01);
    // The slowest 2 % mix stalls and normal frames: 1000 / 55 ms.
    EXPECT_NEAR(h.LowFps(0.02), 1000.0 / 55.0, 0.1);
    // Times beyond the histogram's range stay counted.
    h.Add(1e9);
    EXPECT_EQ(h.count(), 1001u);
    EXPECT_GT(h.Percentile(1.0), 1e5);
    h.Reset();
    EXPECT_EQ(h.count(), 0u);
}

RunResults Finished() {
    RunResults r;
    r.testName = "Furry VXA GL2";
    r.apiName = "OpenGL 2";
    r.width = 640;
    r.height = 360;
    r.started = true;
    r.finished = true;
    r.frames = 1204;
    r.seconds = 5.0;
    r.minFps = 228;
    r.avgFps = 240;
    r.maxFps = 251;
    r.score = 1204;
    r.renderer = "Mesa \"llvmpipe\"\n";
    r.fpsSeries = {228, 240, 251};
    for (int i = 0; i < 100; ++i) r.frameTimes.Add(4.0);
    return r;
}

TEST(RunResults, SummaryLineNamesTheOutcome) {
    RunResults r = Finished();
    EXPECT_EQ(SummaryLine(r),
              "Result: Furry VXA GL2, OpenGL 2, 640x360, 1204 frames in 5.00 s, FPS min/avg/max 228/240/251, score 1204");
    r.finished = false;
    EXPECT_NE(SummaryLine(r).find("score n.a. (stopped before the end)"), std::string::npos);
    r.benchmark = false;
    EXPECT_NE(SummaryLine(r).find("score n.a. (stability test)"), std::string::npos);
    r.deviceLost = true;
    EXPECT_NE(SummaryLine(r).find("score n.a. (the device was lost)"), std::string::npos);

    // A run shorter than its first whole second has no FPS sample: the
    // statistics' starting values (min 10000) must not read as a measurement.
    RunResults brief = Finished();
    brief.fpsSeries.clear();
    brief.minFps = 10000;
    brief.avgFps = brief.maxFps = 0;
    EXPECT_NE(SummaryLine(brief).find("FPS min/avg/max n.a. (no whole second measured), score 1204"), std::string::npos);
    EXPECT_NE(ResultsJson(brief, ResultsContext()).find("\"fps\": null,"), std::string::npos);
}

TEST(RunResults, JsonHoldsEveryFieldAndEscapesDriverTexts) {
    RunResults r = Finished();
    ResultsContext c;
    c.programVersion = "2.6.0";
    c.settings = {{"test3d", "2003"}, {"fur_custom_bkg_map", "C:\\pics\\a.png"}};
    GpuResult g;
    g.name = "Board \xE9";  // Latin-1 from a driver
    g.sensors = {{"temperature_c", 41.0, 67.5}};
    c.gpus = {g};
    c.errors = {"Unable to write the scores file [x]: Read-only file system."};
    const std::string j = ResultsJson(r, c);
    EXPECT_NE(j.find("\"renderer\": \"Mesa \\\"llvmpipe\\\"\\n\""), std::string::npos) << j;
    EXPECT_NE(j.find("\"fur_custom_bkg_map\": \"C:\\\\pics\\\\a.png\""), std::string::npos);
    EXPECT_NE(j.find("\"name\": \"Board \xC3\xA9\""), std::string::npos);  // as UTF-8
    EXPECT_NE(j.find("\"temperature_c\": {\"min\": 41.00, \"max\": 67.50}"), std::string::npos);
    EXPECT_NE(j.find("\"fps_per_second\": [228, 240, 251]"), std::string::npos);
    EXPECT_NE(j.find("\"p50\": 4.000"), std::string::npos);
    EXPECT_NE(j.find("\"low_fps\": {\"1_percent\": 250.00"), std::string::npos);
    EXPECT_NE(j.find("\"score\": 1204"), std::string::npos);
    EXPECT_NE(j.find("\"ending\": \"completed\""), std::string::npos);
    EXPECT_NE(j.find("Read-only file system."), std::string::npos);
    // No control characters escape into the document.
    for (unsigned char ch : j) EXPECT_TRUE(ch >= 0x20 || ch == '\n') << static_cast<int>(ch);

    r.finished = false;
    EXPECT_NE(ResultsJson(r, c).find("\"score\": null"), std::string::npos);
}

TEST(RunResults, StagedBenchmarkCarriesSubScoresAndStages) {
    RunResults r = Finished();
    r.testName = "AMark GL4 CPU PhysX";
    r.subScores = {{"graphx_score", 5142.857}, {"graphx_avg_fps", 116.7}, {"physx_score", 0.0},
                   {"ascore", std::numeric_limits<double>::infinity()}};
    StageResult fur;
    fur.name = "GRAPHICS TEST 1 (fur rendering)";
    fur.frames = 400;
    fur.avgFps = 20;
    fur.renderCpuMsPerFrame = 0.25;
    fur.frameMs = 50.0;
    StageResult off;
    off.name = "COMBINED TEST";
    off.active = false;
    r.stages = {fur, off};
    // The summary names the scores, not the rates; infinity as printf words it.
    const std::string line = SummaryLine(r);
    EXPECT_NE(line.find("(graphx_score 5142.9, physx_score 0.0, ascore inf)"), std::string::npos) << line;
    const std::string j = ResultsJson(r, ResultsContext());
    EXPECT_NE(j.find("\"sub_scores\": {\"graphx_score\": 5142.857, \"graphx_avg_fps\": 116.700, "
                     "\"physx_score\": 0.000, \"ascore\": null}"),
              std::string::npos)
        << j;
    EXPECT_NE(j.find("{\"name\": \"GRAPHICS TEST 1 (fur rendering)\", \"active\": true, \"frames\": 400, "
                     "\"avg_fps\": 20, \"sim_cloth\": 0, \"sim_fluid\": 0, "
                     "\"render_thread_cpu_ms_per_frame\": 0.2500, \"frame_ms\": 50.0000}"),
              std::string::npos)
        << j;
    EXPECT_NE(j.find("\"active\": false, \"frames\": 0, \"avg_fps\": 0, \"sim_cloth\": 0, \"sim_fluid\": 0, "
                     "\"render_thread_cpu_ms_per_frame\": null, \"frame_ms\": null}"),
              std::string::npos)
        << j;
    // A benchmark stopped before its end has neither.
    r.finished = false;
    EXPECT_EQ(ResultsJson(r, ResultsContext()).find("sub_scores"), std::string::npos);
    EXPECT_EQ(SummaryLine(r).find("ascore"), std::string::npos);
}

TEST(RunResults, VerificationIsNullWithoutChecksAndListsEachMismatch) {
    RunResults r = Finished();
    ResultsContext c;
    EXPECT_NE(ResultsJson(r, c).find("\"verification\": null,"), std::string::npos);
    r.checksActive = true;
    r.checks = 7;
    r.checkErrors = 2;
    r.checkMs = 12.5;
    r.computeChecks = true;
    r.mismatches = {{120, 64, 243, 0}, {340, 0, 0, 17}};
    EXPECT_NE(ResultsJson(r, c).find("\"verification\": {\"checks\": 7, \"errors\": 2, \"check_ms\": 12.500, "
                                     "\"compute_check\": true, \"mismatches\": [{\"frame\": 120, \"pixels\": 64, "
                                     "\"largest_difference\": 243, \"compute_wrong\": 0}, {\"frame\": 340, \"pixels\": 0, "
                                     "\"largest_difference\": 0, \"compute_wrong\": 17}]},"),
              std::string::npos)
        << ResultsJson(r, c);
}

}  // namespace
