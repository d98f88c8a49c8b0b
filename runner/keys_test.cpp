#include "runner/keys.h"

#include <gtest/gtest.h>

#include <vector>

#include "core/settings.h"
#include "runner/demo_access.h"

namespace {

class KeyDemo : public cLm4DDemo {
public:
    bool Init(const RenderTarget&, int, int) override { return true; }
    void Terminate() override {}
    void ClearScreen() override {}
    void Frame(float) override {}
    void BeginOverlay() override {}
    void EndOverlay() override {}
    void DrawText(int, int, const Color4&, const char*) override {}
    void DrawQuad(int, int, int, int, const Color4&, unsigned short) override {}
    void Present() override {}
    void CopyKeyboardState(const unsigned char* s) override { copied = s[65]; }
    bool PanelKey(RunKey key) override {
        panelKeys.push_back(key);
        return key == RunKey::F2;
    }
    int copied = -1;
    std::vector<RunKey> panelKeys;
};

class Keys : public ::testing::Test {
protected:
    void SetUp() override {
        InitStartupOptions(StartupOptions, 2);
        RunParameters.run_mode = 2;
        demo.api_id = 2;
        DemoAccess::Publish(&demo);
    }
    void TearDown() override { DemoAccess::Withdraw(); }
    KeyDemo demo;
};

TEST_F(Keys, StabilityTestToggles) {
    EXPECT_EQ(HandleRunKey(RunKey::Space, nullptr), KeyResult::Handled);
    EXPECT_FALSE(demo.render_furry_object);
    HandleRunKey(RunKey::I, nullptr);
    EXPECT_FALSE(StartupOptions.display_visual_indicators);
    HandleRunKey(RunKey::F5, nullptr);
    EXPECT_FALSE(StartupOptions.gpu_load_graph.shown);
    HandleRunKey(RunKey::F6, nullptr);
    EXPECT_FALSE(StartupOptions.gpu_temp_graph.shown);
    HandleRunKey(RunKey::T, nullptr);
    EXPECT_TRUE(StartupOptions.render_temp_graphs);
    HandleRunKey(RunKey::G, nullptr);
    EXPECT_TRUE(StartupOptions.render_gpu_monitor);
    HandleRunKey(RunKey::F1, nullptr);
    EXPECT_TRUE(demo.show_help);
    HandleRunKey(RunKey::K, nullptr);
    EXPECT_TRUE(StartupOptions.render_post_fx);
    HandleRunKey(RunKey::K, nullptr);
    EXPECT_FALSE(StartupOptions.render_post_fx);
    EXPECT_EQ(HandleRunKey(RunKey::Other, nullptr), KeyResult::Ignored);
    EXPECT_EQ(HandleRunKey(RunKey::Escape, nullptr), KeyResult::Close);
    // P belongs to the benchmark object only.
    unsigned char state[256] = {0};
    state[65] = 0x80;
    EXPECT_EQ(HandleRunKey(RunKey::P, state), KeyResult::Ignored);
    EXPECT_EQ(demo.copied, -1);
}

TEST_F(Keys, RenderingDelayNeverBelowZero) {
    EXPECT_EQ(HandleRunKey(RunKey::NumMinus, nullptr), KeyResult::Ignored);
    EXPECT_EQ(StartupOptions.tone_down_delay_ms, 0);
    for (int i = 0; i < 1500; ++i) HandleRunKey(RunKey::NumPlus, nullptr);
    EXPECT_EQ(StartupOptions.tone_down_delay_ms, 1500);
    HandleRunKey(RunKey::NumMinus, nullptr);
    EXPECT_EQ(StartupOptions.tone_down_delay_ms, 1499);
}

TEST_F(Keys, BenchmarkLocksAllButEscape) {
    RunParameters.run_mode = 1;
    for (RunKey k : {RunKey::Space, RunKey::I, RunKey::F1, RunKey::K, RunKey::NumPlus})
        EXPECT_EQ(HandleRunKey(k, nullptr), KeyResult::Ignored);
    EXPECT_TRUE(demo.render_furry_object);
    EXPECT_FALSE(demo.show_help);
    EXPECT_TRUE(StartupOptions.display_visual_indicators);
    EXPECT_EQ(HandleRunKey(RunKey::Escape, nullptr), KeyResult::Close);
}

TEST_F(Keys, BenchmarkObjectAndNoObject) {
    demo.api_id = 4;
    demo.amark_mode = true;
    unsigned char state[256] = {0};
    state[65] = 0x80;
    EXPECT_EQ(HandleRunKey(RunKey::P, state), KeyResult::Handled);
    EXPECT_EQ(demo.copied, 0x80);
    EXPECT_EQ(HandleRunKey(RunKey::Space, nullptr), KeyResult::Ignored);
    EXPECT_EQ(HandleRunKey(RunKey::NumPlus, nullptr), KeyResult::Ignored);
    EXPECT_EQ(StartupOptions.tone_down_delay_ms, 0);
    EXPECT_TRUE(demo.render_furry_object);

    DemoAccess::Withdraw();
    EXPECT_EQ(HandleRunKey(RunKey::I, nullptr), KeyResult::Ignored);
    EXPECT_TRUE(StartupOptions.display_visual_indicators);
    EXPECT_EQ(HandleRunKey(RunKey::Escape, nullptr), KeyResult::Close);
}

// An OpenGL 4 object that is not the benchmark (a test application) keeps
// the stability test's keys, and the keys the run does not use reach its
// panel.
TEST_F(Keys, OtherOpenGL4ObjectsKeepTheirKeysAndGetThePanelKeys) {
    demo.api_id = 4;
    EXPECT_EQ(HandleRunKey(RunKey::Space, nullptr), KeyResult::Handled);
    EXPECT_FALSE(demo.render_furry_object);
    EXPECT_EQ(HandleRunKey(RunKey::NumPlus, nullptr), KeyResult::Handled);
    EXPECT_EQ(HandleRunKey(RunKey::F2, nullptr), KeyResult::Handled);
    EXPECT_EQ(HandleRunKey(RunKey::Other, nullptr), KeyResult::Ignored);
    ASSERT_EQ(demo.panelKeys.size(), 2u);
    EXPECT_EQ(demo.panelKeys[0], RunKey::F2);
    // A benchmark run locks the panel too.
    RunParameters.run_mode = 1;
    EXPECT_EQ(HandleRunKey(RunKey::F2, nullptr), KeyResult::Ignored);
    EXPECT_EQ(demo.panelKeys.size(), 2u);
}

}  // namespace
