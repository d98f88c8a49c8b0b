#include "core/settings.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace {

StartupOptionsRecord Parsed(const char* cmd, unsigned cpus = 4) {
    StartupOptionsRecord o;
    o.api3d = 0;
    InitStartupOptions(o, cpus);
    ParseCommandLine(o, cmd);
    return o;
}

TEST(Settings, DefaultsAndEmptyCommandLine) {
    StartupOptionsRecord o = Parsed("");
    EXPECT_EQ(o.display_gui, 1);
    EXPECT_EQ(o.width, 1280);
    EXPECT_EQ(o.height, 720);
    EXPECT_STREQ(o.aa_mode, "Off");
    EXPECT_EQ(o.run_mode, 1);
    EXPECT_TRUE(o.time_based_benchmark);
    EXPECT_EQ(o.max_time, 60000u);
    EXPECT_EQ(o.max_frames, 0u);
    EXPECT_EQ(o.app_process_priority, 32);
    EXPECT_EQ(o.rendering_cpu_affinity, 2u);
    EXPECT_EQ(Parsed("", 1).rendering_cpu_affinity, 1u);
    EXPECT_TRUE(o.catalyst_warning);
    EXPECT_TRUE(o.enable_ty_osd_fix);
    EXPECT_FALSE(o.render_post_fx);
    EXPECT_TRUE(o.render_general_indicators);
    EXPECT_EQ(o.dmsize, 4096);
    EXPECT_EQ(o.fullscreen_frequency_hz, -1);
    EXPECT_EQ(o.fractal_flame_particles, 2000000);
    EXPECT_EQ(o.gpu_temp_graph.x, 150);
    EXPECT_FLOAT_EQ(o.gpu_load_graph.heightFraction, 0.5f);
    EXPECT_FLOAT_EQ(o.tuning[14], 90.0f);

    // The defaults do not touch api3d, and a null command line changes nothing.
    StartupOptionsRecord keep;
    keep.api3d = 11;
    InitStartupOptions(keep, 2);
    ParseCommandLine(keep, nullptr);
    EXPECT_EQ(keep.api3d, 11);
    EXPECT_EQ(keep.width, 1280);
}

// The GPU-Z bridge is off unless asked for, on the command line or in the file.
TEST(Settings, GpuzBridgeSwitch) {
    EXPECT_FALSE(Parsed("").enable_gpuz_bridge);
    EXPECT_TRUE(Parsed("/enable_gpuz_bridge=1").enable_gpuz_bridge);
    EXPECT_FALSE(Parsed("/enable_gpuz_bridge=0").enable_gpuz_bridge);
    EXPECT_FALSE(Parsed("/enable_gpuz_bridge=2").enable_gpuz_bridge);
}

TEST(Settings, AntiAliasingSwitch) {
    EXPECT_STREQ(Parsed("/msaa=4").aa_mode, "4X MSAA");
    EXPECT_STREQ(Parsed("/msaa=8").aa_mode, "8X MSAA");
    EXPECT_STREQ(Parsed("/msaa=2").aa_mode, "2X MSAA");
    // Unknown counts leave the mode alone; a missing number means "Off".
    StartupOptionsRecord o;
    InitStartupOptions(o, 1);
    CopyText(o.aa_mode, sizeof o.aa_mode, "16X CSAA");
    ParseCommandLine(o, "/msaa=3");
    EXPECT_STREQ(o.aa_mode, "16X CSAA");
    ParseCommandLine(o, "/msaa=");
    EXPECT_STREQ(o.aa_mode, "Off");
    EXPECT_EQ(AaSampleCount("4X MSAA"), 4);
    EXPECT_EQ(AaSampleCount("Off"), 1);
    EXPECT_EQ(AaSampleCount("nonsense"), 1);
}

TEST(Settings, RangeCheckedSwitches) {
    EXPECT_EQ(Parsed("/dmsize=100").dmsize, 4096);
    EXPECT_EQ(Parsed("/dmsize=9000").dmsize, 4096);
    EXPECT_EQ(Parsed("/dmsize=8192").dmsize, 8192);
    EXPECT_EQ(Parsed("/dmsize=256").dmsize, 256);
    EXPECT_EQ(Parsed("/api3d=7").api3d, 2);
    EXPECT_EQ(Parsed("/api3d=11").api3d, 11);
    EXPECT_EQ(Parsed("/api3d=x").api3d, 2);
    for (int api : {2, 3, 4, 9, 10}) EXPECT_EQ(Parsed(("/api3d=" + std::to_string(api)).c_str()).api3d, api);
    EXPECT_EQ(Parsed("/test3d=2003").test3d, 2003);
    EXPECT_EQ(Parsed("/test3d=abc").test3d, 0);
    EXPECT_EQ(Parsed("/fractal_flame_particles=-5").fractal_flame_particles, -5);
    EXPECT_EQ(Parsed("/fractal_flame_particles").fractal_flame_particles, 0);
    // No range check on the run mode.
    EXPECT_EQ(Parsed("/run_mode=7").run_mode, 7);
}

TEST(Settings, ScratchValueCarriesOver) {
    StartupOptionsRecord o = Parsed("/fullscreen=1 /render_post_fx");
    EXPECT_EQ(o.fullscreen, 1);
    EXPECT_TRUE(o.render_post_fx);
    // Alone, the bare switch turns the effect off.
    o = Parsed("/render_post_fx");
    EXPECT_FALSE(o.render_post_fx);
    // /msaa= resets the scratch and reads its number: 4 is not 1.
    o = Parsed("/fullscreen=1 /msaa=4 /render_post_fx");
    EXPECT_FALSE(o.render_post_fx);
    // Every later 0/1 switch sees the same carried number.
    o = Parsed("/render_vxa_logo=1 /render_a_logo /render_gpu_monitor /render_temp_graph");
    EXPECT_TRUE(o.render_a_logo);
    EXPECT_TRUE(o.render_gpu_monitor);
    EXPECT_TRUE(o.render_temp_graphs);
    o = Parsed("/render_vxa_logo=0 /render_a_logo");
    EXPECT_FALSE(o.render_vxa_logo);
    EXPECT_FALSE(o.render_a_logo);
    // The carried 1 does not make a good map size; a carried 300 does.
    EXPECT_EQ(Parsed("/fullscreen=1 /dmsize").dmsize, 4096);
    EXPECT_EQ(Parsed("/enable_ty_osd_fix=300 /dmsize").dmsize, 300);
    // test3d resets: a carried 1 never becomes a test number.
    EXPECT_EQ(Parsed("/fullscreen=1 /test3d").test3d, 0);
    // Unreadable number keeps the scratch: /fullscreen=x after /display_gui=1.
    o = Parsed("/display_gui=1 /fullscreen=x");
    EXPECT_EQ(o.fullscreen, 1);
    // A bare /display_gui hides the launcher.
    EXPECT_EQ(Parsed("/display_gui").display_gui, 0);
    EXPECT_EQ(Parsed("/display_gui=1").display_gui, 1);
    EXPECT_EQ(Parsed("/display_gui=2").display_gui, 0);
}

TEST(Settings, DirectSwitchesAndFirstOccurrence) {
    StartupOptionsRecord o = Parsed("/width=800 /height=600 /width=1024");
    EXPECT_EQ(o.width, 800);
    EXPECT_EQ(o.height, 600);
    o = Parsed("/width=abc /max_time=5000 /max_frames=300 /contest_mode=3");
    EXPECT_EQ(o.width, 1280);
    EXPECT_EQ(o.max_time, 5000u);
    EXPECT_EQ(o.max_frames, 300u);
    EXPECT_EQ(o.contest_mode, 3);
    o = Parsed("/app_thread_priority=2 /rendering_thread_priority=-1 /app_process_priority=128 "
               "/app_cpu_affinity=12 /rendering_cpu_affinity=8");
    EXPECT_EQ(o.app_thread_priority, 2);
    EXPECT_EQ(o.rendering_thread_priority, -1);
    EXPECT_EQ(o.app_process_priority, 128);
    EXPECT_EQ(o.app_cpu_affinity, 12u);
    EXPECT_EQ(o.rendering_cpu_affinity, 8u);
    // Switches are found anywhere, case-sensitively, without word splitting.
    EXPECT_EQ(Parsed("x/width=640y").width, 640);
    EXPECT_EQ(Parsed("/WIDTH=640").width, 1280);
}

TEST(Settings, BareSwitches) {
    StartupOptionsRecord o = Parsed(
        "/version /nomenubar /noscore /xtreme_burn_in /log_temperature /log_score /disable_catalyst_warning "
        "/no_visual_indicators /gl3_core_profile /display_dm /log_gl_errors /no_music");
    EXPECT_EQ(o.display_version, 1);
    EXPECT_EQ(o.display_menu_bar, 0);
    EXPECT_EQ(o.display_score, 0);
    EXPECT_TRUE(o.xtreme_burn_in_active);
    EXPECT_FALSE(o.xtreme_burn_in);  // the file's choice is a separate field
    EXPECT_TRUE(o.log_temperature);
    EXPECT_TRUE(o.log_score);
    EXPECT_FALSE(o.catalyst_warning);
    EXPECT_FALSE(o.display_visual_indicators);
    EXPECT_TRUE(o.gl3_core_profile);
    EXPECT_TRUE(o.display_dm);
    EXPECT_TRUE(o.log_gl_errors);
    EXPECT_FALSE(o.enable_amark_music);
    // The later furry switch wins.
    EXPECT_EQ(Parsed("/furry_hd6970 /furry_torus").furry_object, 2);
    EXPECT_EQ(Parsed("/furry_torus /furry_hd6970").furry_object, 2);
    EXPECT_EQ(Parsed("/furry_hd6970").furry_object, 5);
    EXPECT_EQ(Parsed("/furry_hd6970 /furry_vxa").furry_object, 5);
}

TEST(Settings, LinuxStyleArguments) {
    const char* argv[] = {"ardentium", "--width=800", "--log_score", "/height=600", "plain"};
    EXPECT_EQ(JoinArguments(5, argv), "/width=800 /log_score /height=600 plain");
    const char* one[] = {"ardentium"};
    EXPECT_EQ(JoinArguments(1, one), "");
    StartupOptionsRecord o = Parsed(JoinArguments(5, argv).c_str());
    EXPECT_EQ(o.width, 800);
    EXPECT_TRUE(o.log_score);
    RunExtras e = ParseRunExtras("/headless /screenshot=\"my shots/a.png\" /animation_time=1.5");
    EXPECT_TRUE(e.headless);
    EXPECT_EQ(e.screenshotPath, "my shots/a.png");
    EXPECT_FLOAT_EQ(e.animationTime, 1.5f);
    e = ParseRunExtras("/screenshot=out.png /animation_time=-3 /width=8");
    EXPECT_FALSE(e.headless);
    EXPECT_EQ(e.screenshotPath, "out.png");
    EXPECT_LT(e.animationTime, 0.0f);
    EXPECT_TRUE(WantsUsage("/?"));
    EXPECT_TRUE(WantsUsage("--help"));
    EXPECT_FALSE(WantsUsage("/width=800"));
}

TEST(Settings, PrintedInDeclarationOrder) {
    StartupOptionsRecord o = Parsed("/msaa=4 /render_post_fx=1 /api3d=3");
    std::string text = FormatSettings(o);
    EXPECT_NE(text.find("aa_mode=4X MSAA\n"), std::string::npos);
    EXPECT_NE(text.find("render_post_fx=1\n"), std::string::npos);
    std::vector<std::string> names;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) names.push_back(line.substr(0, line.find('=')));
    ASSERT_GE(names.size(), 40u);
    EXPECT_EQ(names.front(), "test3d");
    EXPECT_EQ(names[1], "api3d");
    // Newer attributes follow the original ones, so older files keep their layout.
    EXPECT_EQ(names[names.size() - 4], "submit_score_user_email");
    EXPECT_EQ(names[names.size() - 3], "enable_gpuz_bridge");
    EXPECT_EQ(names[names.size() - 2], "score_submit_url");
    EXPECT_EQ(names.back(), "launcher_test3d");
    for (const std::string& n : names) EXPECT_EQ(n.find("reserved"), std::string::npos) << n;
    // Each switch in the usage text is one the parser knows, or a diagnostic.
    EXPECT_NE(UsageText().find("/print_settings"), std::string::npos);
}

TEST(Settings, PrintSwitchDoesNotCollide) {
    // The diagnostic switch must neither contain nor be contained in a real one.
    std::vector<std::string> switches = KnownSwitches();
    EXPECT_EQ(switches.size(), 43u + 13u + 1u);  // settings, run extras, /print_settings
    std::string p = kPrintSettingsSwitch;
    for (const std::string& s : switches) {
        if (s == p) continue;
        EXPECT_EQ(p.find(s), std::string::npos) << s;
        EXPECT_EQ(s.find(p), std::string::npos) << s;
    }
    StartupOptionsRecord before = Parsed("");
    StartupOptionsRecord after = Parsed("/print_settings");
    EXPECT_EQ(FormatSettings(before), FormatSettings(after));
}

TEST(Settings, OversizeNumbersAreRefused) {
    // Too large for the field, or for 64 bits: the field keeps its value.
    StartupOptionsRecord o = Parsed("/width=100000 /height=99999999999999999999999 /max_time=-1 /max_frames=4294967296");
    EXPECT_EQ(o.width, 1280);
    EXPECT_EQ(o.height, 720);
    EXPECT_EQ(o.max_time, 60000u);
    EXPECT_EQ(o.max_frames, 0u);
    // The full range of a mask is a mask, not an overflow.
    EXPECT_EQ(Parsed("/app_cpu_affinity=4294967295").app_cpu_affinity, 4294967295u);
    EXPECT_EQ(Parsed("/width=16384 /height=1").width, 16384);
    EXPECT_EQ(Parsed("/width=0").width, 1280);
    // A scratch switch with a refused number sets nothing and leaves the
    // scratch as it was for the switches after it.
    o = Parsed("/fullscreen=1 /render_post_fx=4294967297 /render_vxa_logo");
    EXPECT_FALSE(o.render_post_fx);
    EXPECT_TRUE(o.render_vxa_logo);
    EXPECT_EQ(Parsed("/test3d=2147483648").test3d, 0);
    EXPECT_EQ(Parsed("/fractal_flame_particles=-2147483649").fractal_flame_particles, 2000000);
    EXPECT_EQ(Parsed("/fractal_flame_particles=-2147483648").fractal_flame_particles, -2147483647 - 1);
    // sscanf-like reading: spaces and a sign before the digits.
    EXPECT_EQ(Parsed("/width= +640").width, 640);
}

TEST(Settings, ScanInteger) {
    long long v = 7;
    EXPECT_EQ(ScanInteger("  -12x", &v), NumberScan::Ok);
    EXPECT_EQ(v, -12);
    EXPECT_EQ(ScanInteger("9223372036854775807", &v), NumberScan::Ok);
    EXPECT_EQ(v, 9223372036854775807LL);
    EXPECT_EQ(ScanInteger("-9223372036854775808", &v), NumberScan::Ok);
    EXPECT_EQ(v, -9223372036854775807LL - 1);
    EXPECT_EQ(ScanInteger("9223372036854775808", &v), NumberScan::TooLarge);
    EXPECT_EQ(ScanInteger("-", &v), NumberScan::NoNumber);
    EXPECT_EQ(v, 0);
    EXPECT_EQ(ScanInteger(nullptr, &v), NumberScan::NoNumber);
}

TEST(Settings, HelpComesFromTheTables) {
    const std::string help = UsageText();
    // Every switch that changes something is listed, run extras included.
    for (const char* s : {"/display_gui=0|1", "/width=N", "/msaa=0|2|4|8", "/furry_hd6970", "/dmsize=256..8192",
                          "/headless", "/screenshot=PATH", "/results_json=PATH", "/print_settings", "/list_gpus",
                          "/enable_gpuz_bridge=0|1"})
        EXPECT_NE(help.find(s), std::string::npos) << s;
    // Stored-only switches are not advertised.
    for (const char* s : {"/app_thread_priority", "/rendering_cpu_affinity", "/disable_catalyst_warning"})
        EXPECT_EQ(help.find(s), std::string::npos) << s;
    // /max_frames says when it counts.
    size_t at = help.find("/max_frames=N");
    ASSERT_NE(at, std::string::npos);
    EXPECT_NE(help.find("time_based_benchmark=\"0\"", at), std::string::npos);
    // The footer closes the text, and no line is wider than 80 columns.
    EXPECT_EQ(help.substr(help.size() - std::string(kUsageFooter).size()), kUsageFooter);
    std::istringstream in(help);
    for (std::string line; std::getline(in, line);) EXPECT_LE(line.size(), 84u) << line;

    RunExtras e = ParseRunExtras("/results_json=\"out dir/r.json\" /headless");
    EXPECT_EQ(e.resultsJsonPath, "out dir/r.json");
    EXPECT_TRUE(ParseRunExtras("").resultsJsonPath.empty());
}

TEST(Settings, WholeNumberExtrasTakeOnlyNumbersOfZeroOrMore) {
    RunExtras e = ParseRunExtras("/gpu=2 /log_frames=\"a b/f.csv\" /verify_every=30 /verify_fault=1");
    EXPECT_EQ(e.gpuIndex, 2);
    EXPECT_EQ(e.logFramesPath, "a b/f.csv");
    EXPECT_EQ(e.verifyEveryFrames, 30);
    EXPECT_EQ(e.verifyFaultCheck, 1);
    // Garbage and negative numbers leave the default (the system's GPU, no fault).
    e = ParseRunExtras("/gpu=x /verify_fault=-3 /verify_every=99999999999");
    EXPECT_EQ(e.gpuIndex, 0);
    EXPECT_EQ(e.verifyFaultCheck, 0);
    EXPECT_EQ(e.verifyEveryFrames, 0);
    EXPECT_EQ(ParseRunExtras("/gpu=17").gpuIndex, 17);
}

}  // namespace
