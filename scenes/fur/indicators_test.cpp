#include "scenes/fur/indicators.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

HudInput Base() {
    HudInput in;
    in.viewWidth = 1280;
    in.viewHeight = 720;
    in.benchmark = false;
    in.hasSnapshot = true;
    in.loadMeter = GraphDescriptor{true, 10, 150, 120, 0.5f, 40};
    in.thermometer = GraphDescriptor{true, 150, 150, 120, 0.5f, 40};
    GpuReading a;
    a.hasLoad = a.hasTemperature = true;
    a.load = 100;
    a.temperature = 50;
    GpuReading b;
    b.hasLoad = b.hasTemperature = true;
    b.load = 0;
    b.temperature = 111.2f;
    in.gpus = {a, b};
    in.textBlock.benchmark = false;
    return in;
}

bool Same(const Color4& a, const Color4& b) { return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a; }

TEST(Indicators, BarsFillByLoadAndTemperature) {
    HudFrame f = BuildHud(Base());
    // GPU0: background + full fill; GPU1: background only (load 0); then temperature bars.
    ASSERT_EQ(f.bars.size(), 2u + 1u + 2u + 2u);
    const int H = 360;
    EXPECT_EQ(f.bars[0].x, 10);
    EXPECT_EQ(f.bars[0].y, 150);
    EXPECT_EQ(f.bars[0].w, 24);
    EXPECT_EQ(f.bars[0].h, H);
    EXPECT_EQ(f.bars[1].h, H);  // 100 % fills exactly
    EXPECT_EQ(f.bars[1].x, 12);
    EXPECT_EQ(f.bars[1].w, 20);
    EXPECT_EQ(f.bars[2].x, 50);  // second GPU one bar step further
    EXPECT_TRUE(Same(f.bars[1].color, Color4{0, 0.9f, 0, 0.5f}));
    EXPECT_EQ(f.bars[4].h, static_cast<int>(50 * H * 0.009f));
    EXPECT_EQ(f.bars[4].y + f.bars[4].h, 150 + H);  // bottoms line up
    EXPECT_EQ(f.bars[6].h, H);  // 111.2 degrees: full, and not one pixel past the top
    EXPECT_EQ(f.bars[6].y, 150);
    EXPECT_TRUE(Same(f.bars[6].color, Color4{1, 0, 0, 0.5f}));
}

// A scorching reading is drawn to the top of its bar and no further; its
// label still tells the real value.
TEST(Indicators, HotGpusFillTheirBarWithoutRunningOver) {
    HudInput in = Base();
    in.gpus[0].temperature = 150.0f;
    in.gpus[1].load = 130.0f;  // a misreporting interface
    HudFrame f = BuildHud(in);
    for (const HudRect& r : f.bars) {
        EXPECT_GE(r.y, 150) << r.x;
        EXPECT_LE(r.y + r.h, 150 + 360) << r.x;
    }
    bool found = false;
    for (const HudText& t : f.labels) found = found || t.text == "150\xB0" "C";
    EXPECT_TRUE(found);
}

// A GPU that no interface reads shows "n.a." and an empty bar, not a
// measured 0.
TEST(Indicators, ReadingsNoInterfaceSuppliesShowNa) {
    HudInput in = Base();
    GpuReading none;
    none.name = "PCI display device 1234:5678";
    in.gpus.push_back(none);
    in.gpus[1].hasTemperature = false;  // load known, temperature not
    in.gpus[1].temperature = 0.0f;
    HudFrame f = BuildHud(in);
    // Backgrounds for all three GPUs in both meters; fills only for known readings
    // (GPU0 load 100, GPU0 temperature 50; GPU1's load is a real 0).
    ASSERT_EQ(f.bars.size(), 3u + 1u + 3u + 1u);
    std::vector<std::string> values;
    for (const HudText& t : f.labels)
        if (t.y == 150 - 20) values.push_back(t.text);
    EXPECT_EQ(values, (std::vector<std::string>{"100%", "0%", "n.a.", "50\xB0" "C", "n.a.", "n.a."}));
}

TEST(Indicators, LabelsKeepTheirOwnSteps) {
    HudInput in = Base();
    in.loadMeter.step = 55;  // the load meter's labels use their own step, its bars the bar step
    HudFrame f = BuildHud(in);
    ASSERT_GE(f.labels.size(), 10u);
    EXPECT_EQ(f.labels[0].text, "GPU LOAD");
    EXPECT_EQ(f.labels[0].y, 150 - 35);
    EXPECT_EQ(f.labels[1].text, "100%");
    EXPECT_EQ(f.labels[3].text, "0%");
    EXPECT_EQ(f.labels[3].x, 10 + 2 + 55);
    EXPECT_EQ(f.labels[4].text, "GPU1");
    EXPECT_EQ(f.labels[4].y, 360 + 5 + 150);
    EXPECT_EQ(f.bars[2].x, 50);
    EXPECT_EQ(f.labels[5].text, "GPU Temp");
    EXPECT_EQ(f.labels[6].text, "50\xB0" "C");
}

TEST(Indicators, HelpBurnInAndBenchmarkLayouts) {
    HudInput in = Base();
    in.showHelp = true;
    HudFrame f = BuildHud(in);
    EXPECT_EQ(f.bars[0].y, 280);
    EXPECT_EQ(f.bars[0].h, static_cast<int>(720 * 0.3f));
    in.xtremeBurnIn = true;
    f = BuildHud(in);
    EXPECT_EQ(f.bars[0].y, 300 + 30);
    in.showHelp = false;
    f = BuildHud(in);
    EXPECT_EQ(f.bars[0].y, 150 + 30);
    // A benchmark: no shift, no panels or graphs even when asked for.
    in.benchmark = true;
    in.gpuMonitor = true;
    in.tempGraphs = true;
    in.gpus[0].hasHistory = true;
    f = BuildHud(in);
    EXPECT_EQ(f.bars[0].y, 150);
    EXPECT_TRUE(f.panels.empty());
    EXPECT_TRUE(f.graphs.empty());
}

TEST(Indicators, PanelLinesAndColours) {
    HudInput in = Base();
    in.gpuMonitor = true;
    in.gpus[0].name = "Test Board";
    in.gpus[0].powerAvailable = true;
    in.gpus[0].powerPercent = 99.9f;
    in.gpus[0].coreClock = 900;
    in.gpus[0].coreClockOverride = 1100;
    in.gpus[0].throttlingMhz = 2;
    in.gpus[0].memoryClock = 2000;
    in.gpus[0].vddc = 1.05f;
    in.gpus[1].powerAvailable = true;
    in.gpus[1].powerPercent = 100.0f;
    in.gpus[1].throttlingMhz = 3;
    HudFrame f = BuildHud(in);
    ASSERT_EQ(f.panels.size(), 2u);
    EXPECT_EQ(f.panels[1].x, 1280 - 160);
    EXPECT_EQ(f.panels[1].y, 20 + 150);
    std::vector<std::string> first;
    for (const HudText& t : f.gpuText)
        if (t.y < 200) first.push_back(t.text);
    EXPECT_EQ(first, (std::vector<std::string>{"GPU1", "Test Board", "POWER: 99 % TPD", "CORE: 1100 MHz", "MEM: 2000 MHz",
                                               "VDDC: 1.050 V"}));
    EXPECT_EQ(f.gpuText[0].y, 100);
    EXPECT_EQ(f.gpuText[5].y, 150);
    EXPECT_TRUE(Same(f.gpuText[2].color, Color4{0, 1, 0, 1}));
    // Second GPU: no name, so power comes right under the number, in red at 100 %.
    const HudText& gpu2 = f.gpuText[6];
    EXPECT_EQ(gpu2.text, "GPU2");
    EXPECT_EQ(gpu2.y, 250);
    EXPECT_EQ(f.gpuText[7].text, "POWER: 100 % TPD");
    EXPECT_TRUE(Same(f.gpuText[7].color, Color4{1, 0, 0, 1}));
    EXPECT_EQ(f.gpuText[8].text, "GPU throttling:: -3 MHz");
    EXPECT_EQ(f.gpuText[8].x, 1280 - 130);
}

TEST(Indicators, SwitchesAndMissingSnapshot) {
    HudInput in = Base();
    in.hasSnapshot = false;
    HudFrame f = BuildHud(in);
    EXPECT_TRUE(f.bars.empty());
    EXPECT_TRUE(f.labels.empty());
    EXPECT_FALSE(f.textBlock.empty());

    in = Base();
    in.loadMeter.shown = false;
    f = BuildHud(in);
    EXPECT_EQ(f.bars.size(), 4u);
    EXPECT_EQ(f.labels[0].text, "GPU Temp");
    in.generalIndicators = false;
    EXPECT_TRUE(BuildHud(in).textBlock.empty());
    in.allIndicators = false;
    f = BuildHud(in);
    EXPECT_TRUE(f.bars.empty() && f.labels.empty() && f.textBlock.empty());

    in = Base();
    in.tempGraphs = true;
    in.gpus[1].hasHistory = true;
    EXPECT_EQ(BuildHud(in).graphs, std::vector<int>{1});
}

}  // namespace

namespace {

std::vector<std::string> Texts(const std::vector<HudText>& texts) {
    std::vector<std::string> out;
    for (const HudText& t : texts) out.push_back(t.text);
    return out;
}

int Count(const std::vector<std::string>& texts, const std::string& text) {
    int n = 0;
    for (const std::string& t : texts) n += t == text;
    return n;
}

}  // namespace

TEST(Indicators, GpuUnderTestIsMarkedOnMetersAndPanel) {
    HudInput in = Base();
    in.gpuMonitor = true;
    HudFrame f = BuildHud(in);
    EXPECT_EQ(Count(Texts(f.labels), "GPU1*"), 0);
    EXPECT_EQ(Count(Texts(f.gpuText), "GPU2 - UNDER TEST"), 0);
    in.gpuUnderTest = 1;
    f = BuildHud(in);
    const std::vector<std::string> labels = Texts(f.labels);
    EXPECT_EQ(Count(labels, "GPU1*"), 2);  // under the load meter and the thermometer
    EXPECT_EQ(Count(labels, "GPU0"), 2);
    EXPECT_EQ(Count(Texts(f.gpuText), "GPU2 - UNDER TEST"), 1);
    EXPECT_EQ(Count(Texts(f.gpuText), "GPU1"), 1);
}

TEST(Indicators, CheckLineOnlyWithChecksAndRedOnceOneFailed) {
    HudInput in = Base();
    EXPECT_TRUE(BuildHud(in).checkLine.text.empty());
    in.checksActive = true;
    in.checks = 12;
    HudFrame f = BuildHud(in);
    EXPECT_EQ(f.checkLine.text, "Verification: 12 checks, 0 errors");
    EXPECT_EQ(f.checkLine.x, 10);
    EXPECT_EQ(f.checkLine.y, 720 - 25);
    EXPECT_TRUE(Same(f.checkLine.color, Color4{0, 1, 0, 1}));
    in.checkErrors = 1;
    f = BuildHud(in);
    EXPECT_EQ(f.checkLine.text, "Verification: 12 checks, 1 errors");
    EXPECT_TRUE(Same(f.checkLine.color, Color4{1, 0, 0, 1}));
    // Hidden with the other texts.
    in.generalIndicators = false;
    EXPECT_TRUE(BuildHud(in).checkLine.text.empty());
}
