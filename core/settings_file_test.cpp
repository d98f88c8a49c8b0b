#include "core/settings_file.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "core/settings.h"
#include "core/xml_reader.h"

#if !defined(_WIN32)
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

// Tests run as separate processes side by side: each gets files of its own.
std::string TempPath(const char* name) {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string("settings_file_test_") + (test ? test->name() : "none") + "_" + name + ".xml";
}

void WriteRaw(const std::string& path, const std::string& bytes) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f << bytes;
}

std::string ReadRaw(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

StartupOptionsRecord Defaults() {
    StartupOptionsRecord o;
    o.api3d = 0;
    InitStartupOptions(o, 2);
    return o;
}

StartupOptionsRecord ReadXml(const std::string& xml, bool* found = nullptr) {
    std::string path = TempPath("read");
    WriteRaw(path, xml);
    StartupOptionsRecord o = Defaults();
    bool ok = ReadStartupOptionsFile(o, path.c_str());
    if (found) *found = ok;
    std::remove(path.c_str());
    return o;
}

std::string Settings(const std::string& attributes) {
    return "<?xml version=\"1.0\"?>\n<ardentium>\n<settings " + attributes + " />\n</ardentium>";
}

TEST(SettingsFile, ExactLayout) {
    StartupOptionsRecord o = Defaults();
    o.api3d = 3;
    std::string path = TempPath("layout");
    ASSERT_TRUE(WriteStartupOptionsFile(o, path.c_str()));
    std::string text = ReadRaw(path);
    std::remove(path.c_str());
#if defined(_WIN32)
    // Text mode on Windows writes CR LF; compare the lines.
    std::string unix;
    for (char c : text)
        if (c != '\r') unix += c;
    text = unix;
#endif
    const std::string expected =
        "<?xml version=\"1.0\"?>\n<ardentium>\n\t<!--\n\trun_mode: \"BENCHMARK\" or \"STABILITY_TEST\".\n"
        "\tmax_time: in milliseconds.\n\tmax_frames: 0 means not used.\n\t-->\n\t<settings"
        "\n\t\tapi3d=\"3\"\n\t\tdisplay_gui=\"1\"\n\t\tdisplay_menu_bar=\"1\"\n\t\tdisplay_score=\"1\""
        "\n\t\tdisplay_version=\"0\"\n\t\twidth=\"1280\"\n\t\theight=\"720\"\n\t\tcustom_viewport_size=\"0\""
        "\n\t\taa_mode=\"Off\"\n\t\tfullscreen=\"0\"\n\t\trun_mode=\"BENCHMARK\"\n\t\ttime_based_benchmark=\"1\""
        "\n\t\tmax_time=\"60000\"\n\t\tmax_frames=\"0\"\n\t\txtreme_burn_in=\"0\"\n\t\tlog_temperature=\"0\""
        "\n\t\tlog_score=\"0\"\n\t\tenable_unlock_power_draw=\"1\"\n\t\tfurry_object=\"VXA\""
        "\n\t\trender_post_fx=\"0\"\n\t\trender_temp_graphs=\"0\"\n\t\trender_vxa_logo=\"1\"\n\t\trender_a_logo=\"1\""
        "\n\t\trender_gpu_monitor=\"0\"\n\t\trender_general_indicators=\"1\"\n\t\tenable_ty_osd_fix=\"1\""
        "\n\t\ttone_down_delay_ms=\"0\"\n\t\tfullscreen_frequency_hz=\"-1\"\n\t\tenable_amark_music=\"1\""
        "\n\t\tenable_gpu_physx=\"0\"\n\t\tfur_custom_diffuse_map=\"\"\n\t\tfur_custom_bkg_map=\"\""
        "\n\t\tsubmit_score_user_email=\"\"\n\t\tenable_gpuz_bridge=\"0\"\n\t\tscore_submit_url=\"\"\n\t\tlauncher_test3d=\"2003\"\n\t/>\n</ardentium>";
    EXPECT_EQ(text, expected);
}

TEST(SettingsFile, WriteThenReadEveryAttribute) {
    StartupOptionsRecord o = Defaults();
    o.api3d = 10;
    o.display_gui = 0;
    o.display_menu_bar = 0;
    o.display_score = 0;
    o.display_version = 1;
    o.width = 1920;
    o.height = 1080;
    o.custom_viewport_size = true;
    CopyText(o.aa_mode, sizeof o.aa_mode, "8XQ (Quality) CSAA");
    o.fullscreen = 1;
    o.run_mode = 2;
    o.time_based_benchmark = false;
    o.max_time = 123456;
    o.max_frames = 789;
    o.xtreme_burn_in = true;
    o.log_temperature = true;
    o.log_score = true;
    o.enable_unlock_power_draw = false;
    o.render_post_fx = true;
    o.render_temp_graphs = true;
    o.render_vxa_logo = false;
    o.render_a_logo = false;
    o.render_gpu_monitor = true;
    o.render_general_indicators = false;
    o.enable_ty_osd_fix = false;
    o.tone_down_delay_ms = 25;
    o.fullscreen_frequency_hz = 144;
    o.enable_amark_music = false;
    o.enable_gpu_physx = true;
    CopyText(o.fur_custom_diffuse_map, sizeof o.fur_custom_diffuse_map, "C:\\images\\fur & \"co\" <1>.png");
    CopyText(o.fur_custom_bkg_map, sizeof o.fur_custom_bkg_map, std::string(1023, 'b').c_str());
    o.submit_score_user_email = "someone@example.org" + std::string(5000, 'x');

    for (int object : {1, 2, 3, 4, 5}) {
        o.furry_object = object;
        std::string path = TempPath("roundtrip");
        WriteStartupOptionsFile(o, path.c_str());
        StartupOptionsRecord r = Defaults();
        ASSERT_TRUE(ReadStartupOptionsFile(r, path.c_str()));
        std::remove(path.c_str());
        // The fields the file does not carry stay at their defaults; the
        // rest must come back as written.
        StartupOptionsRecord expected = o;
        StartupOptionsRecord d = Defaults();
        expected.test3d = d.test3d;
        expected.contest_mode = d.contest_mode;
        EXPECT_EQ(FormatSettings(r), FormatSettings(expected)) << "object " << object;
    }
}

TEST(SettingsFile, ValueConversions) {
    EXPECT_TRUE(ReadXml(Settings("enable_gpuz_bridge='1'")).enable_gpuz_bridge);
    EXPECT_FALSE(ReadXml(Settings("enable_gpuz_bridge='yes'")).enable_gpuz_bridge);
    StartupOptionsRecord o = ReadXml(Settings("run_mode='benchmark' furry_object='CUBE' log_score='2' display_gui='2'"));
    EXPECT_EQ(o.run_mode, 2);
    EXPECT_EQ(o.furry_object, 1);
    EXPECT_FALSE(o.log_score);
    EXPECT_EQ(o.display_gui, 2);

    o = ReadXml(Settings("run_mode='BENCHMARK' furry_object='SPHERE' api3d='77' tone_down_delay_ms='abc' "
                         "width='abc' height='100000' fullscreen='5'"));
    EXPECT_EQ(o.run_mode, 1);
    EXPECT_EQ(o.furry_object, 4);
    EXPECT_EQ(o.api3d, 77);              // stored unchecked, unlike the switch
    EXPECT_EQ(o.tone_down_delay_ms, 0);  // the integer conversion of text without digits
    // A render size outside 1..16384 would ask for gigabytes: refused.
    EXPECT_EQ(o.width, 1280);
    EXPECT_EQ(o.height, 720);
    EXPECT_EQ(o.fullscreen, 5);

    o = ReadXml(Settings("aa_mode='" + std::string(80, 'a') + "' fur_custom_bkg_map='" + std::string(2000, 'p') + "'"));
    EXPECT_EQ(std::string(o.aa_mode), std::string(63, 'a'));
    EXPECT_EQ(std::string(o.fur_custom_bkg_map), std::string(1023, 'p'));

    // Absent attributes keep their values; only the first settings element counts.
    bool found = false;
    o = ReadXml("<?xml version=\"1.0\"?><other><settings width='640'/><settings width='320' height='200'/></other>",
                &found);
    EXPECT_TRUE(found);
    EXPECT_EQ(o.width, 640);
    EXPECT_EQ(o.height, 720);
    EXPECT_STREQ(o.aa_mode, "Off");
}

TEST(SettingsFile, MissingAndBrokenFilesKeepDefaults) {
    const std::string defaults = FormatSettings(Defaults());
    StartupOptionsRecord o = Defaults();
    EXPECT_FALSE(ReadStartupOptionsFile(o, nullptr));
    EXPECT_FALSE(ReadStartupOptionsFile(o, "no_such_dir/no_such_file.xml"));
    EXPECT_EQ(FormatSettings(o), defaults);

    bool found = true;
    o = ReadXml("<?xml version=\"1.0\"?>\n<ardentium>\n</ardentium>", &found);
    EXPECT_FALSE(found);
    EXPECT_EQ(FormatSettings(o), defaults);

    const std::string broken[] = {
        "",
        "this is not xml at all, just a note",
        "<?xml version=\"1.0\"?>\n<ardentium>\n\t<settings\n\t\tapi3d=\"3",
        "<?xml version=\"1.0\"?>\n<ardentium>\n\t<settings width=",
        "<<<<>>>>''''\"\"\"\"&&&&",
        std::string("\xFF\xFE<\0s\0", 6),
        std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16),
    };
    for (const std::string& b : broken) {
        o = ReadXml(b);
        // A truncated attribute list may or may not yield values, but must
        // never crash, and the defaults it leaves are intact.
        EXPECT_EQ(o.height, 720);
        EXPECT_STREQ(o.aa_mode, "Off");
    }

    // Random bytes, many times, with and without an XML start.
    std::mt19937 rng(1234);
    for (int round = 0; round < 300; ++round) {
        std::string bytes(static_cast<size_t>(rng() % 2048), '\0');
        for (char& c : bytes) c = static_cast<char>(rng() & 0xFF);
        if (round % 3 == 2) {
            // Text made of markup characters only: it passes the text check
            // and goes through the parser itself.
            static const char kMarkup[] = "<>/='\"&;!?-[] settingsxml\n\t";
            for (char& c : bytes) c = kMarkup[rng() % (sizeof kMarkup - 1)];
        }
        if (round % 2) bytes = "<?xml version=\"1.0\"?><ardentium><settings width='" + bytes;
        o = ReadXml(bytes);
        EXPECT_EQ(o.height, 720);
    }
}

TEST(SettingsFile, RandomWellFormedDocuments) {
    // Well-formed documents of random shape: the first settings element's
    // values arrive, entities decoded.
    std::mt19937 rng(99);
    for (int round = 0; round < 300; ++round) {
        std::string attrs;
        std::string firstMode;
        bool haveMode = false;
        int count = static_cast<int>(rng() % 8);
        for (int k = 0; k < count; ++k) {
            std::string value;
            int len = static_cast<int>(rng() % 40);
            for (int c = 0; c < len; ++c) value += "ab1 -&;#/=>!"[rng() % 12];
            const char* name = k % 2 ? "aa_mode" : "x";
            attrs += std::string(" ") + name + "='" + value + "'";
            if (!haveMode && k % 2) {
                firstMode = DecodeXmlEntities(value).substr(0, 63);
                haveMode = true;
            }
        }
        std::string doc = "<ardentium><settings" + attrs + (rng() % 2 ? "/>" : "></settings>") + "</ardentium>";
        bool found = false;
        StartupOptionsRecord o = ReadXml(doc, &found);
        EXPECT_TRUE(found) << doc;
        EXPECT_EQ(o.display_gui, 1);
        EXPECT_EQ(std::string(o.aa_mode), haveMode ? firstMode : std::string("Off")) << doc;
    }
}

TEST(SettingsFile, HostileMarkup) {
    // Comments and sections holding markup characters once crashed the
    // program before any window opened.
    bool found = false;
    StartupOptionsRecord o = ReadXml("<ardentium><!-- > --><settings width='640'/></ardentium>", &found);
    EXPECT_TRUE(found);
    EXPECT_EQ(o.width, 640);
    o = ReadXml("<ardentium><!-->--><settings width='641'/></ardentium>", &found);
    EXPECT_TRUE(found);
    EXPECT_EQ(o.width, 641);
    o = ReadXml("<ardentium><![CD[x]]><settings width='642'/></ardentium>", &found);
    EXPECT_FALSE(found);
    EXPECT_EQ(o.width, 1280);
    // A well-formed prologue with an internal subset and comments.
    o = ReadXml("<?xml version=\"1.0\"?><!DOCTYPE a [<!ENTITY x '>'><!-- > ]> -->]><a><![CDATA[<settings "
                "width='1'/>]]><settings width='643' aa_mode='R&D &amp; &lt;b&gt;'/></a>",
                &found);
    EXPECT_TRUE(found);
    EXPECT_EQ(o.width, 643);
    EXPECT_STREQ(o.aa_mode, "R&D & <b>");
    // A missing closing root tag does not hide the settings element.
    o = ReadXml("<?xml version=\"1.0\"?>\n<ardentium>\n\t<settings width='644' height='480'/>", &found);
    EXPECT_TRUE(found);
    EXPECT_EQ(o.height, 480);
    // Numbers too large for their field leave it as it was.
    o = ReadXml(Settings("width='99999999999' max_time='-5' max_frames='4294967295' fullscreen_frequency_hz='-7' "
                         "tone_down_delay_ms='99999999999999999999999'"));
    EXPECT_EQ(o.width, 1280);
    EXPECT_EQ(o.max_time, 60000u);
    EXPECT_EQ(o.max_frames, 4294967295u);
    EXPECT_EQ(o.fullscreen_frequency_hz, -7);
    EXPECT_EQ(o.tone_down_delay_ms, 0);
}

TEST(SettingsFile, TruncatedAtEveryOffset) {
    StartupOptionsRecord full = Defaults();
    full.width = 1024;
    full.run_mode = 2;
    full.furry_object = 3;
    CopyText(full.fur_custom_bkg_map, sizeof full.fur_custom_bkg_map, "bkg & <co>.png");
    full.submit_score_user_email = "a@b.c";
    full.score_submit_url = "http://127.0.0.1:8080/scores?a=1&b=2";
    std::string path = TempPath("whole");
    ASSERT_TRUE(WriteStartupOptionsFile(full, path.c_str()));
    const std::string text = ReadRaw(path);
    std::remove(path.c_str());
    StartupOptionsRecord expected = Defaults();
    {
        bool found = false;
        expected = ReadXml(text, &found);
        ASSERT_TRUE(found);
    }
    const std::string defaults = FormatSettings(Defaults());
    const std::string wanted = FormatSettings(expected);
    // Every cut either still holds the whole settings tag and reads all of
    // it, or reads nothing and keeps the defaults.
    const size_t tagEnd = text.find("/>", text.find("<settings")) + 2;
    for (size_t cut = 0; cut <= text.size(); ++cut) {
        bool found = false;
        StartupOptionsRecord o = ReadXml(text.substr(0, cut), &found);
        EXPECT_EQ(found, cut >= tagEnd) << cut;
        EXPECT_EQ(FormatSettings(o), found ? wanted : defaults) << cut;
    }
}

TEST(SettingsFile, WriteFailuresKeepTheOldFile) {
    StartupOptionsRecord o = Defaults();
    EXPECT_FALSE(WriteStartupOptionsFile(o, nullptr));
    EXPECT_FALSE(WriteStartupOptionsFile(o, "no_such_dir/sub/startup_options.xml"));
    EXPECT_FALSE(std::ifstream("no_such_dir/sub/startup_options.xml").good());
    // A folder path that runs through a plain file.
    std::string plain = TempPath("plain");
    WriteRaw(plain, "x");
    EXPECT_FALSE(WriteStartupOptionsFile(o, (plain + "/startup_options.xml").c_str()));
    std::remove(plain.c_str());

    // The target is replaced in one step: the old text stays until then.
    std::string path = TempPath("replace");
    WriteRaw(path, "old settings");
    o.width = 1234;
    ASSERT_TRUE(WriteStartupOptionsFile(o, path.c_str()));
    EXPECT_NE(ReadRaw(path).find("width=\"1234\""), std::string::npos);
    EXPECT_FALSE(std::ifstream(path + ".tmp").good());
    std::remove(path.c_str());
}

#if !defined(_WIN32)
TEST(SettingsFile, FullDiskKeepsTheOldFile) {
    std::string path = TempPath("full");
    WriteRaw(path, "old settings");
    // A file-size limit stands in for a full disk: writes past it fail.
    struct rlimit saved;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    void (*oldHandler)(int) = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = saved;
    small.rlim_cur = 200;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    StartupOptionsRecord o = Defaults();
    bool ok = WriteStartupOptionsFile(o, path.c_str());
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_FALSE(ok);
    EXPECT_EQ(ReadRaw(path), "old settings");
    EXPECT_FALSE(std::ifstream(path + ".tmp").good());
    std::remove(path.c_str());
}

TEST(SettingsFile, ReadOnlyFolderKeepsTheOldFile) {
    std::string dir = TempPath("dir");
    std::string path = dir + "/startup_options.xml";
    mkdir(dir.c_str(), 0755);
    WriteRaw(path, "old settings");
    chmod(dir.c_str(), 0555);
    bool writable = access(dir.c_str(), W_OK) == 0;  // true for root, which ignores the mode
    StartupOptionsRecord o = Defaults();
    bool ok = WriteStartupOptionsFile(o, path.c_str());
    chmod(dir.c_str(), 0755);
    std::string after = ReadRaw(path);
    std::remove(path.c_str());
    rmdir(dir.c_str());
    if (writable) GTEST_SKIP() << "running as a user who may write anywhere";
    EXPECT_FALSE(ok);
    EXPECT_EQ(after, "old settings");
}
#endif

}  // namespace
