#include "launcher/launcher_model.h"

#include <gtest/gtest.h>

#include <set>

#include "runner/catalogue.h"

namespace {

RunResults FinishedBenchmark() {
    RunResults r;
    r.testName = "Furry VXA GL2";
    r.apiName = "OpenGL 2";
    r.width = 320;
    r.height = 240;
    r.started = true;
    r.finished = true;
    r.frames = 150;
    r.seconds = 3.0;
    r.minFps = 45;
    r.avgFps = 50;
    r.maxFps = 55;
    r.score = 150;
    r.fpsSeries = {45, 50, 55};
    r.renderer = "llvmpipe (LLVM 15.0.6, 256 bits), \"soft\"";
    return r;
}

}  // namespace

TEST(LauncherCatalogue, EveryTestOnceInItsGenerationWithItsText) {
    const std::vector<LauncherTestGroup> groups = LauncherCatalogue();
    ASSERT_EQ(groups.size(), 4u);
    std::set<int> ids;
    for (size_t g = 0; g < groups.size(); ++g) {
        for (const LauncherTest& t : groups[g].tests) {
            EXPECT_FALSE(t.name.empty()) << t.test3d;
            EXPECT_EQ(t.description.find("%s"), std::string::npos) << t.name;
            EXPECT_EQ(t.description.rfind("Ardentium: ", 0), 0u) << t.description;
            if (t.test3d == 0) {
                EXPECT_EQ(g, 0u);
                continue;
            }
            EXPECT_TRUE(ids.insert(t.test3d).second) << t.test3d;
            // 20xx, 21xx and 22xx each have their own group, in that order.
            EXPECT_EQ(static_cast<size_t>((t.test3d - 2000) / 100) + 1, g) << t.test3d;
        }
    }
    for (int i = 0; i < kTestAppCount; ++i) EXPECT_EQ(ids.count(kTestApps[i].id), 1u) << kTestApps[i].id;
    for (int id : {2003, 2006, 2010, 2015, 2102, 2205, 2206}) EXPECT_EQ(ids.count(id), 1u) << id;

    const LauncherTest* wavy = FindLauncherTest(groups, 2002, 0);
    ASSERT_NE(wavy, nullptr);
    EXPECT_FALSE(wavy->renderThread);
    EXPECT_NE(wavy->description.find("wavy surface"), std::string::npos);
}

TEST(LauncherCatalogue, TestsRunWithTheirOwnApiAndTestZeroByTheChosenOne) {
    const std::vector<LauncherTestGroup> groups = LauncherCatalogue();
    EXPECT_EQ(FindLauncherTest(groups, 2003, 11)->api3d, kApiOpenGL2);
    EXPECT_EQ(FindLauncherTest(groups, 2102, 2)->api3d, kApiOpenGL3);
    EXPECT_EQ(FindLauncherTest(groups, 2015, 2)->api3d, kApiD3D11);
    EXPECT_EQ(FindLauncherTest(groups, 2206, 2)->api3d, kApiOpenGL4);
    const LauncherTest* fur3 = FindLauncherTest(groups, 0, 3);
    ASSERT_NE(fur3, nullptr);
    EXPECT_EQ(fur3->name, "Fur GL3");
    EXPECT_EQ(FindLauncherTest(groups, 0, 10)->name, "Fur D3D10");
    EXPECT_EQ(FindLauncherTest(groups, 0, 7), nullptr);
    EXPECT_EQ(FindLauncherTest(groups, 1999, 2), nullptr);
}

TEST(LauncherResolutions, DistinctSizesLargestFirstWithTheCurrentOne) {
    // The same size at several refresh rates is one choice.
    std::vector<std::pair<int, int>> modes = {{1024, 768}, {1920, 1080}, {1024, 768}, {800, 600}, {1280, 1024}};
    auto sizes = ResolutionChoices(modes, 1280, 720);
    std::vector<std::pair<int, int>> expected = {{1920, 1080}, {1280, 1024}, {1280, 720}, {1024, 768}, {800, 600}};
    EXPECT_EQ(sizes, expected);
    EXPECT_EQ(ResolutionChoices({}, 640, 480), (std::vector<std::pair<int, int>>{{640, 480}}));
    EXPECT_EQ(ResolutionChoices({{800, 600}}, 800, 600).size(), 1u);
}

TEST(LauncherScores, RowsNewestFirstWithQuotedFields) {
    const std::string text =
        "Test name,Renderer,Driver,GPU clock(MHz)\r\n"
        "Furry VXA GL2,\"Mesa, llvmpipe\",1.0,0.00\r\n"
        "Furry VXA GL3,\"say \"\"hi\"\"\",2.0,0.00\r\n"
        "\n";
    ScoresTable t = ParseScoresFile(text);
    ASSERT_EQ(t.header.size(), 4u);
    EXPECT_EQ(t.header[3], "GPU clock(MHz)");
    ASSERT_EQ(t.rows.size(), 2u);
    EXPECT_EQ(t.rows[0][0], "Furry VXA GL3");
    EXPECT_EQ(t.rows[0][1], "say \"hi\"");
    EXPECT_EQ(t.rows[1][1], "Mesa, llvmpipe");
    EXPECT_EQ(t.rows[1][3], "0.00");

    // A file that lost its header still shows its rows; an empty one none.
    t = ParseScoresFile("a,b\nc,d");
    EXPECT_TRUE(t.header.empty());
    ASSERT_EQ(t.rows.size(), 2u);
    EXPECT_EQ(t.rows[0][0], "c");
    EXPECT_TRUE(ParseScoresFile("").rows.empty());
}

TEST(LauncherScoreSheet, FiguresOnlyWhereMeasured) {
    ScoreSheet s;
    s.results = FinishedBenchmark();
    GpuResult gpu;
    gpu.name = "GPU A";
    gpu.sensors.push_back(SensorRange{"temperature_c", 40.0, 71.5});
    s.context.gpus.push_back(gpu);
    std::vector<std::pair<std::string, std::string>> lines = ScoreSheetLines(s);
    auto value = [&](const std::string& label) {
        for (const auto& l : lines)
            if (l.first == label) return l.second;
        return std::string("(missing)");
    };
    EXPECT_EQ(value("Score"), "150");
    EXPECT_EQ(value("FPS min/avg/max"), "45 / 50 / 55");
    EXPECT_EQ(value("Resolution"), "320x240 windowed");
    EXPECT_EQ(value("GPU 1 temperature_c"), "40.0 .. 71.5");

    // Stopped early: no score. No whole second measured: the statistics'
    // starting values are no FPS figures.
    s.results.finished = false;
    s.results.fpsSeries.clear();
    s.results.minFps = 10000;
    lines = ScoreSheetLines(s);
    EXPECT_EQ(value("Score"), "n.a.");
    EXPECT_EQ(value("FPS min/avg/max"), "n.a.");
    EXPECT_NE(ScoreClipboardText(s).find("Result: Furry VXA GL2"), std::string::npos);
}

TEST(LauncherScoreSheet, CsvHeaderAndRowHaveTheSameColumns) {
    ScoreSheet s;
    s.results = FinishedBenchmark();
    GpuResult gpu;
    gpu.sensors.push_back(SensorRange{"load_percent", 10.0, 99.0});
    s.context.gpus.push_back(gpu);
    const std::string csv = ScoreCsv(s);
    const size_t nl = csv.find('\n');
    ASSERT_NE(nl, std::string::npos);
    std::vector<std::string> header = SplitCsvLine(csv.substr(0, nl));
    std::vector<std::string> row = SplitCsvLine(csv.substr(nl + 1, csv.size() - nl - 2));
    ASSERT_EQ(header.size(), row.size());
    EXPECT_EQ(row[0], "Furry VXA GL2");
    EXPECT_EQ(row[7], "150");
    EXPECT_EQ(row[11], s.results.renderer);  // comma and quotes survive
    EXPECT_EQ(header.back(), "gpu1_load_percent_max");
    EXPECT_EQ(row.back(), "99.00");
}

TEST(LauncherScoreSheet, SubmissionsCarryTheResultsAndAnEscapedAddress) {
    ScoreSheet s;
    s.results = FinishedBenchmark();
    const std::string body = ScoreSubmission(s, "a\"b@example.org");
    EXPECT_EQ(body.rfind("{\"kind\":\"score\",\"user_email\":\"a\\\"b@example.org\"", 0), 0u) << body;
    EXPECT_NE(body.find(ResultsJson(s.results, s.context)), std::string::npos);
    const std::string status = StatusPost(s, "");
    EXPECT_NE(status.find("\"kind\":\"status\""), std::string::npos);
    EXPECT_NE(status.find("Furry VXA GL2"), std::string::npos);
}

TEST(LauncherStateDump, OneLinePerKey) {
    EXPECT_EQ(FormatStateDump({{"tab", "tests"}, {"error", "line one\nline two\r\n"}, {"path", "C:\\x"}}),
              "tab=tests\nerror=line one\\nline two\\n\npath=C:\\\\x\n");
}

TEST(RunFailureText, QuotesTheLinesThatSayWhatFailed) {
    // The lines of a real attempt: images loaded, the context refused, the
    // kill sequence.
    const std::vector<std::string> tried = {"Trying to load default background image...",
                                            "Default background image loaded OK.",
                                            "OpenGL initialization failed!",
                                            "OpenGL: EGL context creation failed (0x3009)",
                                            "Render thread killed ok.",
                                            "3D window killed ok."};
    EXPECT_EQ(RunFailureText("Furry VXA GL3", tried),
              "Furry VXA GL3 could not start:\nOpenGL initialization failed!\n"
              "OpenGL: EGL context creation failed (0x3009)\n(ardentium_log.txt has every step.)");
    // Nothing that reads as a reason: the log is named instead.
    EXPECT_EQ(RunFailureText("Furry VXA GL3", {"Render thread killed ok."}),
              "Furry VXA GL3 could not start: see ardentium_log.txt for why.");
    EXPECT_EQ(RunFailureText("T", {}), "T could not start: see ardentium_log.txt for why.");
    // Many complaints: the last four, in order.
    std::vector<std::string> many;
    for (int i = 0; i < 7; ++i) many.push_back("Step " + std::to_string(i) + " FAILED");
    const std::string text = RunFailureText("T", many);
    EXPECT_EQ(text.find("Step 2"), std::string::npos);
    EXPECT_LT(text.find("Step 3 FAILED"), text.find("Step 6 FAILED"));
}
