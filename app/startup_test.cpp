#include <gtest/gtest.h>

#include "app/startup.h"
#include "core/settings.h"
#include "core/shell_state.h"

namespace {

TEST(Startup, RunParametersAlwaysHaveAnEnd) {
    StartupOptionsRecord o;
    InitStartupOptions(o, 2);
    ParseCommandLine(o, "/max_frames=0 /max_time=0 /width=800 /height=600 /fullscreen=1 /run_mode=2");
    RunParametersBlock run;
    CopyRunParameters(o, run);
    EXPECT_EQ(run.time_based, 1);
    EXPECT_EQ(run.max_time, 60000u);
    EXPECT_EQ(run.max_frames, 0u);
    EXPECT_EQ(run.width, 800);
    EXPECT_EQ(run.height, 600);
    EXPECT_EQ(run.fullscreen, 1);
    EXPECT_EQ(run.run_mode, 2);

    // A frame-limited run (the settings file's choice) keeps its time; any non-zero fullscreen value counts as 1.
    ParseCommandLine(o, "");
    o.max_frames = 500;
    o.max_time = 0;
    o.fullscreen = 7;
    o.time_based_benchmark = false;
    RunParametersBlock framed;
    CopyRunParameters(o, framed);
    EXPECT_EQ(framed.time_based, 0);
    EXPECT_EQ(framed.max_time, 0u);
    EXPECT_EQ(framed.max_frames, 500u);
    EXPECT_EQ(framed.fullscreen, 1);
}

TEST(Startup, MeshLibraryLoadFailures) {
    ADataLibrary lib;
    bool missingEntry = true;
    EXPECT_FALSE(LoadADataLibrary("no_such_folder/no_such_library", &lib, &missingEntry));
    EXPECT_FALSE(missingEntry);
    EXPECT_FALSE(lib.loaded());
    EXPECT_EQ(lib.Mesh_GetFaces, nullptr);
}

}  // namespace
