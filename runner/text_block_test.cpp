#include "runner/text_block.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "runner/scores_file.h"

namespace {

TextBlockInput Base() {
    TextBlockInput in;
    in.testName = "Furry VXA GL2";
    in.width = 1280;
    in.height = 720;
    in.clientWidth = 1264;
    in.aaMode = "4X MSAA";
    in.adapterText = "llvmpipe";
    in.maxTime = 60000;
    return in;
}

bool SameColor(const Color4& a, const Color4& b) { return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a; }

TEST(TextBlock, BenchmarkWarmUpAndMeasuring) {
    TextBlockInput in = Base();
    std::vector<TextLine> l = BuildTextBlock(in);
    ASSERT_EQ(l.size(), 4u);
    EXPECT_EQ(l[0].text, "Benchmarking - WARMING-UP...");
    EXPECT_EQ(l[0].y, 10);
    EXPECT_TRUE(SameColor(l[0].color, textcolors::kWarmupOrange));
    EXPECT_EQ(l[1].text, "Ardentium - Furry VXA GL2, 1280x720 (AA: 4X MSAA), llvmpipe");
    EXPECT_EQ(l[1].y, 30);
    EXPECT_EQ(l[2].text, "FPS: 0 (min:10000, max:0, avg:0)");
    EXPECT_EQ(l[3].text, "Benchmarking - Frames=0 - Elapsed time=00:00:00");

    in.warmupDone = true;
    in.elapsedMs = 15000;
    in.frames = 900;
    l = BuildTextBlock(in);
    ASSERT_EQ(l.size(), 4u);
    EXPECT_EQ(l[0].y, 30);  // the heading moves down for the progress figure
    EXPECT_EQ(l[2].text, "Benchmarking - Frames=900 - Elapsed time=00:00:15");
    EXPECT_EQ(l[2].y, 70);
    EXPECT_EQ(l[2].x, 10);
    EXPECT_EQ(l.back().text, "25 %");
    EXPECT_EQ(l.back().x, 1264 / 2 - 10);
    EXPECT_EQ(l.back().y, 10);

    in.timeBased = false;
    in.maxFrames = 3000;
    EXPECT_EQ(BuildTextBlock(in).back().text, "30 %");
    in.frames = 3100;  // the frame that crossed the limit is still drawn
    EXPECT_EQ(BuildTextBlock(in).back().text, "100 %");
    in.maxFrames = 0;  // no limit: nothing to divide by
    EXPECT_EQ(BuildTextBlock(in).back().text, "0 %");
}

TEST(TextBlock, StabilityTestHelpAndWarning) {
    TextBlockInput in = Base();
    in.benchmark = false;
    in.elapsedMs = 3725 * 1000 + 999;
    in.xtremeBurnIn = true;
    std::vector<TextLine> l = BuildTextBlock(in);
    ASSERT_EQ(l.size(), 5u);
    EXPECT_TRUE(SameColor(l[0].color, textcolors::kWarningRed));
    EXPECT_EQ(l[1].y, 50);
    EXPECT_EQ(l[3].text, "Stability Test - Frames=0 - Elapsed time=01:02:05");
    EXPECT_EQ(l[4].text, "> F1: toggle help");
    EXPECT_EQ(l[4].y, 110);

    in.xtremeBurnIn = false;
    in.showHelp = true;
    in.toneDownDelayMs = 7;
    in.elapsedMs = 100u * 3600u * 1000u;  // past 99 hours the field widens
    l = BuildTextBlock(in);
    ASSERT_EQ(l.size(), 12u);
    EXPECT_NE(l[2].text.find("Elapsed time=100:00:00"), std::string::npos);
    EXPECT_EQ(l[4].text, "> ESC: quit");
    EXPECT_EQ(l[4].y, 85);
    EXPECT_EQ(l.back().text, "> + and - : rendering delay (7ms)");
    EXPECT_EQ(l.back().y, 10 + 75 + 7 * 15);
    EXPECT_TRUE(SameColor(l.back().color, textcolors::kHelpYellow));
    EXPECT_EQ(IndicatorTopWithHelp(false, true), 300);
    EXPECT_EQ(IndicatorTopWithHelp(true, true), 280);
}

std::string Slurp(const char* path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

TEST(ScoresFile, HeaderOnlyForANewFileThenRows) {
    const char* path = "scores_test.csv";
    std::remove(path);
    ScoreRow r;
    r.testName = "Furry VXA GL2";
    r.renderer = "llvmpipe";
    r.driver = "Mesa";
    r.gpuClockMhz = 1500.5;
    r.msaaSamples = 4;
    r.width = 640;
    r.height = 360;
    r.maxTime = 60000;
    r.score = 1234;
    r.tempMax = 71;
    r.avgFps = 20;
    r.minFps = 18;
    r.maxFps = 22;
    ASSERT_TRUE(AppendScoreRow(path, r));
    r.fullscreen = true;
    r.timeBased = false;
    ASSERT_TRUE(AppendScoreRow(path, r));
    std::string text = Slurp(path);
    std::string header = "Test name,Renderer,Driver,GPU clock(MHz),Memory clock(MHz),MSAA,Width,Height,Fullscreen,"
                         "Is time based,Max time,Max frames,GPU temp start(\xB0" "C),GPU temp end(\xB0"
                         "C),GPU temp max(\xB0" "C),AVG FPS,MIN FPS,MAX FPS\n";
    std::string row1 = "Furry VXA GL2,llvmpipe,Mesa,1500.50,0.00,4,640,360,NO,YES,60000,1234,0.00,0.00,71.00,20,18,22\n";
    std::string row2 = "Furry VXA GL2,llvmpipe,Mesa,1500.50,0.00,4,640,360,YES,NO,60000,1234,0.00,0.00,71.00,20,18,22\n";
#if defined(_WIN32)
    std::string crlf;
    for (char c : text)
        if (c != '\r') crlf += c;
    text = crlf;
#endif
    EXPECT_EQ(text, header + row1 + row2);

    // An existing empty file gets no header.
    std::remove(path);
    { std::ofstream(path).close(); }
    ASSERT_TRUE(AppendScoreRow(path, r));
    EXPECT_EQ(Slurp(path).substr(0, 14), "Furry VXA GL2,");
    std::remove(path);
    std::string reason;
    EXPECT_FALSE(AppendScoreRow("no_such_dir/x/scores.csv", r, &reason));
    EXPECT_FALSE(reason.empty());

    // Driver texts with commas or quotes stay in their column.
    r.renderer = "Mesa, \"llvmpipe\"";
    r.driver = "4.5 (Core Profile) Mesa 22.3.6";
    ASSERT_TRUE(AppendScoreRow(path, r));
    EXPECT_NE(Slurp(path).find("Furry VXA GL2,\"Mesa, \"\"llvmpipe\"\"\",4.5 (Core Profile) Mesa 22.3.6,"),
              std::string::npos);
    std::remove(path);
#if !defined(_WIN32)
    // A full disk shows when the row is flushed; it is reported, not lost silently.
    reason.clear();
    EXPECT_FALSE(AppendScoreRow("/dev/full", r, &reason));
    EXPECT_NE(reason.find("space"), std::string::npos) << reason;
#endif
}

}  // namespace
