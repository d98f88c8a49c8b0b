#include "scenes/amark/amark_bench.h"

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace amark {
namespace {

struct StageRun {
    StageRecord stages[kStageCount];
    StageRun() { InitStages(stages); }
    void Set(int i, int frames, int cloth = 0, int fluid = 0) {
        stages[i].frames = frames;
        stages[i].clothSimulations = cloth;
        stages[i].fluidSimulations = fluid;
    }
};

std::vector<std::string> Lines(const StageRun& r, bool competition, Scores* out = nullptr) {
    std::vector<std::string> lines;
    Scores s = ComputeScores(r.stages, competition, [&](const std::string& l) { lines.push_back(l); });
    if (out) *out = s;
    return lines;
}

TEST(AmarkScores, GraphxIsThreeTimesTheHarmonicMeanOfTheGraphicsStages) {
    StageRun r;
    r.Set(kFurStage, 1000);
    r.Set(kTessellationStage, 2000);
    r.Set(kInstancingStage, 4000);
    r.Set(kPhysxStage, 999999);  // not a graphics stage
    Scores s;
    std::vector<std::string> lines = Lines(r, false, &s);
    EXPECT_NEAR(s.graphxScore, 5142.857f, 0.01f);
    EXPECT_EQ(lines[0], "GraphX score: 5142.9 points");
    EXPECT_NEAR(s.graphxAvgFps, 7000.0f / 60.0f, 1e-3f);
    EXPECT_EQ(lines[1], "GraphX avg FPS: 116.7");

    // A graphics stage without frames leaves the mean and the sums.
    r.Set(kTessellationStage, 0);
    s = ComputeScores(r.stages, false);
    EXPECT_NEAR(s.graphxScore, 2.0 / (1.0 / 1000 + 1.0 / 4000) * 3.0, 0.01);
    EXPECT_NEAR(s.graphxAvgFps, 5000.0f / 40.0f, 1e-3f);
}

TEST(AmarkScores, SimulationStagesWeighStepsAndFramesUnlessCompetitionPreset) {
    StageRun r;
    r.Set(kPhysxStage, 400, 3000, 1000);     // 20 s
    r.Set(kCombinedStage, 1000, 2000, 3000); // 50 s
    Scores s;
    std::vector<std::string> lines = Lines(r, false, &s);
    EXPECT_FLOAT_EQ(s.physxScore, 4000 * 0.8f + 400 * 0.2f);
    EXPECT_FLOAT_EQ(s.physxAvgFps, 20.0f);
    EXPECT_FLOAT_EQ(s.physxAvgSps, 200.0f);
    EXPECT_FLOAT_EQ(s.combinedScore, 5000 * 0.3f + 1000 * 0.7f);
    EXPECT_FLOAT_EQ(s.combinedAvgFps, 20.0f);
    EXPECT_FLOAT_EQ(s.combinedAvgSps, 100.0f);
    ASSERT_EQ(lines.size(), 9u);
    EXPECT_EQ(lines[2], "PhysX score: 3280.0 points");
    EXPECT_EQ(lines[3], "PhysX avg FPS: 20.0");
    EXPECT_EQ(lines[4], "PhysX avg SPS: 200.0");
    EXPECT_EQ(lines[5], "Combined score: 2200.0 points");
    EXPECT_EQ(lines[6], "Combined avg FPS: 20.0");
    EXPECT_EQ(lines[7], "Combined avg SPS: 100.0");

    // Presets 4 and 5: frames only, and the SPS figure is the FPS.
    s = ComputeScores(r.stages, true);
    EXPECT_FLOAT_EQ(s.physxScore, 400.0f);
    EXPECT_FLOAT_EQ(s.physxAvgSps, s.physxAvgFps);
    EXPECT_FLOAT_EQ(s.combinedScore, 1000.0f);
    EXPECT_FLOAT_EQ(s.combinedAvgSps, 20.0f);
}

TEST(AmarkScores, AscoreIsAWeightedHarmonicMeanThatSkipsZeroTerms) {
    StageRun r;
    r.Set(kFurStage, 1000);
    r.Set(kTessellationStage, 1000);
    r.Set(kInstancingStage, 1000);
    r.Set(kPhysxStage, 100, 900, 0);
    r.Set(kCombinedStage, 1000, 0, 0);
    Scores s = ComputeScores(r.stages, false);
    const double all = 1.0 / (0.6 / 3000.0 + 0.15 / (900 * 0.8 + 100 * 0.2) + 0.25 / 700.0);
    EXPECT_NEAR(s.ascore, all, 0.01);

    // The PhysX stage counted nothing: its score is 0 and its term is left out.
    r.Set(kPhysxStage, 0, 0, 0);
    std::vector<std::string> lines = Lines(r, false, &s);
    EXPECT_EQ(s.physxScore, 0.0f);
    EXPECT_NEAR(s.ascore, 1.0 / (0.6 / 3000.0 + 0.25 / 700.0), 0.01);
    EXPECT_EQ(lines[2], "PhysX score: 0.0 points");
    char expected[64];
    std::snprintf(expected, sizeof expected, "AScore: %.1f points", 1.0 / (0.6 / 3000.0 + 0.25 / 700.0));
    EXPECT_EQ(lines[8], expected);
}

TEST(AmarkScores, AllSubScoresZeroGiveAnInfiniteAscoreLoggedAsIs) {
    StageRun r;
    Scores s;
    std::vector<std::string> lines = Lines(r, false, &s);
    EXPECT_EQ(s.graphxScore, 0.0f);
    EXPECT_EQ(s.physxScore, 0.0f);
    EXPECT_EQ(s.combinedScore, 0.0f);
    EXPECT_TRUE(std::isinf(s.ascore) && s.ascore > 0.0f);
    EXPECT_EQ(lines.back(), "AScore: inf points");
}

TEST(AmarkStages, RecordsAndAverageFpsUseTheTruncatedDuration) {
    StageRecord st[kStageCount];
    InitStages(st);
    for (int i = 0; i < kStageCount; ++i) {
        EXPECT_TRUE(st[i].active);
        EXPECT_EQ(st[i].kind, i);
    }
    EXPECT_EQ(st[kCombinedStage].duration, 50.0f);
    EXPECT_EQ(st[kFurStage].duration, 20.0f);
    st[0].frames = 1999;
    EXPECT_EQ(StageAverageFps(st[0]), 99);
    st[0].duration = 2.9f;  // truncated to 2
    EXPECT_EQ(StageAverageFps(st[0]), 999);
    st[0].duration = 0.5f;
    EXPECT_EQ(StageAverageFps(st[0]), 0);
    // A test's stage length applies to all five.
    InitStages(st, 1.5f);
    for (const StageRecord& s : st) EXPECT_EQ(s.duration, 1.5f);
}

TEST(AmarkStages, SequencerWalksActiveStagesAndWrapsWithTheFinishedFlag) {
    StageRecord st[kStageCount];
    InitStages(st, 2.0f);
    st[1].active = false;
    st[3].active = false;
    StageSequencer seq(st);
    ASSERT_TRUE(seq.Start(0.0f));
    EXPECT_EQ(seq.Current(), 0);
    st[0].frames = 100;
    EXPECT_FALSE(seq.Update(1.99f));
    EXPECT_NEAR(seq.TimeLeft(1.5f), 0.5f, 1e-5f);
    EXPECT_TRUE(seq.Update(2.1f));
    EXPECT_EQ(st[0].averageFps, 50);
    EXPECT_EQ(seq.Current(), 2);  // stage 2 is skipped
    EXPECT_FLOAT_EQ(st[2].startTime, 2.1f);
    EXPECT_FALSE(seq.Update(4.0f));
    EXPECT_TRUE(seq.Update(4.1f));
    EXPECT_EQ(seq.Current(), 4);
    EXPECT_FALSE(seq.Finished());
    st[4].frames = 9;
    EXPECT_TRUE(seq.Update(6.2f));
    EXPECT_EQ(st[4].averageFps, 4);
    EXPECT_TRUE(seq.Finished());
    EXPECT_EQ(seq.Current(), 0);  // wrapped to the first stage
    EXPECT_FALSE(seq.Update(100.0f));

    // Nothing active: finished before any stage ran.
    for (StageRecord& s : st) s.active = false;
    StageSequencer none(st);
    EXPECT_FALSE(none.Start(0.0f));
    EXPECT_TRUE(none.Finished());

    // The first stage inactive: the run begins with the next active one.
    InitStages(st);
    st[0].active = false;
    StageSequencer late(st);
    ASSERT_TRUE(late.Start(3.0f));
    EXPECT_EQ(late.Current(), 1);
    EXPECT_FLOAT_EQ(st[1].startTime, 3.0f);
}

TEST(AmarkStages, LogLinesByKindOfStage) {
    StageRecord st[kStageCount];
    InitStages(st);
    st[0].frames = 400;
    st[0].averageFps = 20;
    st[2].frames = 60;
    st[2].averageFps = 3;
    st[2].clothSimulations = 700;
    st[2].fluidSimulations = 650;
    st[3].active = false;
    std::vector<std::string> lines;
    LogStageLines(st, 1234, 5678, [&](const std::string& l) { lines.push_back(l); });
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[0], "GRAPHICS TEST 1 (fur rendering) - 400 frames, 20 avg FPS");
    EXPECT_EQ(lines[2], "PHYSX TEST (particles + clothes) - 60 frames, 3 avg FPS, 700 sim cloth, 650 sim fluid");
    EXPECT_EQ(lines[3], "GRAPHICS TEST 3 (geometry instancing) - not active");
    EXPECT_EQ(lines[4], "COMBINED TEST - 0 frames, 0 avg FPS, 0 sim cloth, 0 sim fluid");
    EXPECT_EQ(lines[5], "PhysX total simulations: 1234 sim cloth, 5678 sim fluid");
}

TEST(AmarkPresets, NumbersAndViewHeightSelectTheParameterSet) {
    Preset p = SelectPreset(1, 720);
    EXPECT_STREQ(p.logName, "AMark Entry preset");
    EXPECT_EQ(p.instanceCount, 10000);
    EXPECT_EQ(p.furShells, 40);
    EXPECT_FALSE(p.competition);
    p = SelectPreset(3, 1080);
    EXPECT_STREQ(p.logName, "AMark Extreme preset");
    EXPECT_EQ(p.sphereTessellationB, 32.0f);
    EXPECT_EQ(p.valueW, 4.0f);
    // 4 and 5 depend on the view height only, and are the same preset.
    for (int n : {4, 5}) {
        Preset at720 = SelectPreset(n, 720), other = SelectPreset(n, 1080);
        EXPECT_STREQ(at720.logName, "VXA Ardentium Competition Dec 2011 preset");
        EXPECT_TRUE(at720.competition && other.competition);
        EXPECT_EQ(at720.groundTessellation, 8.0f);
        EXPECT_EQ(at720.sphereTessellationB, 8.0f);
        EXPECT_EQ(at720.instanceCount, 40000);
        EXPECT_EQ(other.groundTessellation, 16.0f);
        EXPECT_EQ(other.instanceCount, 80000);
        EXPECT_EQ(other.particleValue, 6.0f);
        EXPECT_EQ(SelectPreset(n, 719).instanceCount, 80000);
    }
    for (int n : {0, 6, -3}) {
        p = SelectPreset(n, 720);
        EXPECT_STREQ(p.logName, "AMark demo mode");
        EXPECT_EQ(p.flagSupportValue, 80);
        EXPECT_EQ(p.particleValue, 7.0f);
        EXPECT_FALSE(p.competition);
    }
}

}  // namespace
}  // namespace amark
