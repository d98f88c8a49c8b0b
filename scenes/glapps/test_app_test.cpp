#include "scenes/glapps/test_app.h"

#include <gtest/gtest.h>

#include "core/settings.h"
#include "scenes/glapps/glapp_scenes.h"

namespace {

TEST(TestAppRegistry, SevenApplicationsInTheirOrderWithTheirTexts) {
    TestAppRegistry r;
    RegisterTestApps(r);
    ASSERT_EQ(r.Count(), 7);
    const int ids[] = {2001, 2002, 2101, 2201, 2202, 2203, 2204};
    for (int i = 0; i < 7; ++i) EXPECT_EQ(r.At(i)->id, ids[i]);
    EXPECT_STREQ(r.At(0)->displayName, "Triangle of Death (GL2)");
    EXPECT_STREQ(r.At(5)->displayName, "Tessy Spheres on Plane v2 (GL4)");
    EXPECT_NE(std::string(r.At(2)->description).find("fractal flame"), std::string::npos);
    for (int i = 0; i < 7; ++i) EXPECT_NE(std::string(r.At(i)->link), "");
}

TEST(TestAppRegistry, LookupTakesTheFirstMatchAndRefusesWhileOneIsSelected) {
    struct Marked : cVXA_3DTestApp {
        Marked(int id, int m) : cVXA_3DTestApp(id), mark(m) {}
        std::unique_ptr<cLm4DDemo> CreateScene() const override { return nullptr; }
        int mark;
    };
    TestAppRegistry r;
    r.Register(std::make_unique<Marked>(2002, 1));
    r.Register(std::make_unique<Marked>(2101, 2));
    r.Register(std::make_unique<Marked>(2002, 3));

    EXPECT_EQ(r.Select(9999), nullptr);  // none matches: nothing changes
    EXPECT_EQ(r.Selected(), nullptr);
    cVXA_3DTestApp* first = r.Select(2002);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(static_cast<Marked*>(first)->mark, 1);
    // Already selected: even a matching identifier is refused, and the
    // selection stays.
    EXPECT_EQ(r.Select(2101), nullptr);
    EXPECT_EQ(r.Select(2002), nullptr);
    EXPECT_EQ(r.Selected(), first);
    r.Unselect();
    ASSERT_NE(r.Select(2101), nullptr);
    EXPECT_EQ(static_cast<Marked*>(r.Selected())->mark, 2);
    r.Clear();
    EXPECT_EQ(r.Count(), 0);
    EXPECT_EQ(r.Selected(), nullptr);
}

TEST(TestAppRegistry, EachApplicationMakesItsOwnSceneThroughItsApi) {
    TestAppRegistry r;
    RegisterTestApps(r);
    const int apis[] = {2, 2, 3, 4, 4, 4, 4};
    for (int i = 0; i < r.Count(); ++i) {
        std::unique_ptr<cLm4DDemo> scene = r.At(i)->CreateScene();
        ASSERT_NE(scene, nullptr) << r.At(i)->id;
        EXPECT_EQ(scene->api_id, apis[i]) << r.At(i)->id;
        EXPECT_FALSE(scene->amark_mode);
    }
}

TEST(BenchmarkMode, ForcesOneMinuteByTheClockInSettingsAndRunParameters) {
    StartupOptionsRecord o;
    o.max_time = 5000;
    o.time_based_benchmark = false;
    o.run_mode = 0;
    o.max_frames = 300;
    RunParametersBlock run;
    run.max_time = 0;
    run.time_based = 0;
    run.run_mode = 0;
    run.max_frames = 300;
    ForceBenchmarkMode(o, run);
    EXPECT_EQ(o.max_time, 60000u);
    EXPECT_TRUE(o.time_based_benchmark);
    EXPECT_EQ(o.run_mode, 1);
    EXPECT_EQ(run.max_time, 60000u);
    EXPECT_EQ(run.time_based, 1);
    EXPECT_EQ(run.run_mode, 1);
    // The frame limit is left as it was; the clock decides.
    EXPECT_EQ(run.max_frames, 300u);
}

TEST(PanelValues, StepWithinTheirRangeAndTogglesFlip) {
    glapps::Param level("Tessellation level", 4.0f, 1.0f, 64.0f, 1.0f);
    EXPECT_FLOAT_EQ(glapps::SteppedValue(level, 4.0f, 1), 5.0f);
    EXPECT_FLOAT_EQ(glapps::SteppedValue(level, 1.0f, -1), 1.0f);
    EXPECT_FLOAT_EQ(glapps::SteppedValue(level, 64.0f, 1), 64.0f);
    glapps::Param wire("Wireframe", 0.0f, 0.0f, 1.0f, 1.0f, true);
    EXPECT_FLOAT_EQ(glapps::SteppedValue(wire, 0.0f, -1), 1.0f);
    EXPECT_FLOAT_EQ(glapps::SteppedValue(wire, 1.0f, 1), 0.0f);
}

TEST(PanelKeys, F2ShowsThePanelArrowsChooseAndChangeOnlyWhileShown) {
    glapps::TessyScene scene(2201);
    std::vector<glapps::Param*> p = scene.Params();
    ASSERT_GE(p.size(), 3u);
    const float speed = p[0]->value;
    EXPECT_FALSE(scene.PanelKey(RunKey::Right));  // hidden: the arrows are not the panel's
    EXPECT_FLOAT_EQ(p[0]->value, speed);
    EXPECT_TRUE(scene.PanelKey(RunKey::F2));
    EXPECT_TRUE(scene.PanelShown());
    EXPECT_TRUE(scene.PanelKey(RunKey::Down));
    EXPECT_EQ(scene.PanelRow(), 1);
    const float level = p[1]->value;
    EXPECT_TRUE(scene.PanelKey(RunKey::Right));
    EXPECT_FLOAT_EQ(p[1]->value, level + 1.0f);
    EXPECT_TRUE(scene.PanelKey(RunKey::Up));
    EXPECT_TRUE(scene.PanelKey(RunKey::Up));  // wraps to the last row
    EXPECT_EQ(scene.PanelRow(), static_cast<int>(p.size()) - 1);
    EXPECT_FALSE(scene.PanelKey(RunKey::Other));
}

}  // namespace
