#include "core/settings_file.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/event_log.h"
#include "core/settings.h"
#include "core/xml_reader.h"
#include "platform/compiler.h"
#include "platform/platform.h"

namespace {

struct FurryName {
    int number;
    const char* name;
};
// In the order the file writer tests them.
const FurryName kFurryNames[] = {{1, "VXA"}, {5, "HD6970"}, {2, "TORUS"}, {4, "SPHERE"}, {3, "BOX"}};

const char* FurryObjectName(int number) {
    for (const FurryName& f : kFurryNames)
        if (f.number == number) return f.name;
    return "VXA";
}

// The texts of the file are compared on their first 32 characters.
bool SameWord(const char* text, const char* word) { return std::strncmp(text, word, 32) == 0; }

class PieceWriter {
public:
    explicit PieceWriter(FILE* f) : f_(f) {}
    // Each piece is formatted into a 4096-byte buffer and written with its length.
    ARD_PRINTF_LIKE(2, 3) void Piece(const char* format, ...) {
        char buf[4096];
        va_list args;
        va_start(args, format);
        int n = std::vsnprintf(buf, sizeof buf, format, args);
        va_end(args);
        if (n < 0) return;
        size_t len = static_cast<size_t>(n) < sizeof buf ? static_cast<size_t>(n) : sizeof buf - 1;
        if (std::fwrite(buf, 1, len, f_) != len) failed_ = true;
    }
    bool failed() const { return failed_ || std::ferror(f_) != 0; }
    void Int(const char* name, long long value) { Piece("\n\t\t%s=\"%lld\"", name, value); }
    void Flag(const char* name, bool value) { Piece("\n\t\t%s=\"%d\"", name, value ? 1 : 0); }
    void Text(const char* name, const char* value) {
        std::string v = EscapeXmlAttribute(value);
        // Long texts (a 1023-character path, an address of any length) are
        // written in pieces that fit the buffer.
        Piece("\n\t\t%s=\"", name);
        for (size_t at = 0; at < v.size(); at += 4000) Piece("%s", v.substr(at, 4000).c_str());
        Piece("\"");
    }

private:
    FILE* f_;
    bool failed_ = false;
};

// Logs why the settings file could not be written and drops the half-made copy.
bool WriteFailed(const char* path, const std::string& temp, const char* reason) {
    gEventLog.Write("Settings file [%s] could not be written: %s.", path, reason);
    std::remove(temp.c_str());
    return false;
}

class AttributeReader {
public:
    explicit AttributeReader(const XmlPullReader& r) : r_(r) {}
    const char* Raw(const char* name) const {
        const std::string* v = r_.Attribute(name);
        return v ? v->c_str() : nullptr;
    }
    // Integers the field cannot hold leave it as it was.
    template <typename T>
    void Int(const char* name, T& field) const {
        const char* v = Raw(name);
        long long value = 0;
        if (v && ScanInteger(v, &value) != NumberScan::TooLarge && FitsIn<T>(value)) field = static_cast<T>(value);
    }
    // Byte-sized flags are true only for exactly 1.
    void Flag(const char* name, bool& field) const {
        const char* v = Raw(name);
        long long value = 0;
        if (v && ScanInteger(v, &value) != NumberScan::TooLarge) field = value == 1;
    }
    void Text(const char* name, char* field, size_t size) const {
        if (const char* v = Raw(name)) CopyText(field, size, v);
    }

private:
    const XmlPullReader& r_;
};

// Reads the whole file when it is of a size a settings file can have.
bool ReadSmallFile(const char* path, std::string* out) {
    FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    const size_t kLimit = 1 << 20;
    char buf[4096];
    size_t n;
    out->clear();
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0 && out->size() <= kLimit) out->append(buf, n);
    bool failed = std::ferror(f) != 0;
    std::fclose(f);
    return !failed && out->size() <= kLimit;
}

}  // namespace

bool ReadStartupOptionsFile(const char* path) { return ReadStartupOptionsFile(StartupOptions, path); }

bool ReadStartupOptionsFile(StartupOptionsRecord& o, const char* path) {
    // The file is read once and those bytes are parsed. Everything up to the
    // first complete `settings` tag must make sense; what follows it is not
    // looked at, so a file cut short after that tag still gives its values.
    std::string text;
    if (!path || !ReadSmallFile(path, &text)) return false;
    XmlPullReader reader(text);
    XmlPullReader::Node node;
    while ((node = reader.Next()) != XmlPullReader::Node::End && node != XmlPullReader::Node::Error) {
        if (node == XmlPullReader::Node::StartElement && reader.Name() == "settings") break;
    }
    if (node != XmlPullReader::Node::StartElement) return false;

    AttributeReader a(reader);
    a.Int("api3d", o.api3d);  // stored unchecked, unlike the switch
    a.Int("display_gui", o.display_gui);
    a.Int("display_menu_bar", o.display_menu_bar);
    a.Int("display_score", o.display_score);
    a.Int("display_version", o.display_version);
    a.Int("width", o.width);
    a.Int("height", o.height);
    a.Flag("custom_viewport_size", o.custom_viewport_size);
    a.Text("aa_mode", o.aa_mode, sizeof o.aa_mode);
    a.Int("fullscreen", o.fullscreen);
    if (const char* mode = a.Raw("run_mode")) o.run_mode = SameWord(mode, "BENCHMARK") ? 1 : 2;
    a.Flag("time_based_benchmark", o.time_based_benchmark);
    a.Int("max_time", o.max_time);
    a.Int("max_frames", o.max_frames);
    a.Flag("xtreme_burn_in", o.xtreme_burn_in);
    a.Flag("log_temperature", o.log_temperature);
    a.Flag("log_score", o.log_score);
    a.Flag("enable_unlock_power_draw", o.enable_unlock_power_draw);
    a.Flag("render_post_fx", o.render_post_fx);
    a.Flag("render_temp_graphs", o.render_temp_graphs);
    a.Flag("render_vxa_logo", o.render_vxa_logo);
    a.Flag("render_a_logo", o.render_a_logo);
    a.Flag("render_gpu_monitor", o.render_gpu_monitor);
    a.Flag("render_general_indicators", o.render_general_indicators);
    a.Flag("enable_ty_osd_fix", o.enable_ty_osd_fix);
    a.Flag("enable_amark_music", o.enable_amark_music);
    a.Flag("enable_gpu_physx", o.enable_gpu_physx);
    if (const char* object = a.Raw("furry_object")) {
        for (const FurryName& f : kFurryNames)
            if (SameWord(object, f.name)) o.furry_object = f.number;
    }
    a.Int("tone_down_delay_ms", o.tone_down_delay_ms);
    a.Int("fullscreen_frequency_hz", o.fullscreen_frequency_hz);
    a.Text("fur_custom_diffuse_map", o.fur_custom_diffuse_map, sizeof o.fur_custom_diffuse_map);
    a.Text("fur_custom_bkg_map", o.fur_custom_bkg_map, sizeof o.fur_custom_bkg_map);
    if (const char* email = a.Raw("submit_score_user_email")) o.submit_score_user_email = email;
    return true;
}

bool WriteStartupOptionsFile(const char* path) { return WriteStartupOptionsFile(StartupOptions, path); }

bool WriteStartupOptionsFile(const StartupOptionsRecord& o, const char* path) {
    if (!path) return false;
    // The new file is written beside the old one and put in its place only
    // when it is complete, so a crash or a full disk keeps the old settings.
    const std::string temp = std::string(path) + ".tmp";
    FILE* f = std::fopen(temp.c_str(), "w");
    if (!f) return WriteFailed(path, temp, std::strerror(errno));
    PieceWriter w(f);
    w.Piece("<?xml version=\"1.0\"?>");
    w.Piece("\n<ardentium>");
    w.Piece("\n\t<!--\n\trun_mode: \"BENCHMARK\" or \"STABILITY_TEST\".\n\tmax_time: in milliseconds.\n\t"
            "max_frames: 0 means not used.\n\t-->");
    w.Piece("\n\t<settings");
    w.Int("api3d", o.api3d);
    w.Int("display_gui", o.display_gui);
    w.Int("display_menu_bar", o.display_menu_bar);
    w.Int("display_score", o.display_score);
    w.Int("display_version", o.display_version);
    w.Int("width", o.width);
    w.Int("height", o.height);
    w.Flag("custom_viewport_size", o.custom_viewport_size);
    w.Text("aa_mode", o.aa_mode);
    w.Int("fullscreen", o.fullscreen);
    w.Text("run_mode", o.run_mode == 1 ? "BENCHMARK" : "STABILITY_TEST");
    w.Flag("time_based_benchmark", o.time_based_benchmark);
    w.Int("max_time", o.max_time);
    w.Int("max_frames", o.max_frames);
    w.Flag("xtreme_burn_in", o.xtreme_burn_in);
    w.Flag("log_temperature", o.log_temperature);
    w.Flag("log_score", o.log_score);
    w.Flag("enable_unlock_power_draw", o.enable_unlock_power_draw);
    w.Text("furry_object", FurryObjectName(o.furry_object));
    w.Flag("render_post_fx", o.render_post_fx);
    w.Flag("render_temp_graphs", o.render_temp_graphs);
    w.Flag("render_vxa_logo", o.render_vxa_logo);
    w.Flag("render_a_logo", o.render_a_logo);
    w.Flag("render_gpu_monitor", o.render_gpu_monitor);
    w.Flag("render_general_indicators", o.render_general_indicators);
    w.Flag("enable_ty_osd_fix", o.enable_ty_osd_fix);
    w.Int("tone_down_delay_ms", o.tone_down_delay_ms);
    w.Int("fullscreen_frequency_hz", o.fullscreen_frequency_hz);
    w.Flag("enable_amark_music", o.enable_amark_music);
    w.Flag("enable_gpu_physx", o.enable_gpu_physx);
    w.Text("fur_custom_diffuse_map", o.fur_custom_diffuse_map);
    w.Text("fur_custom_bkg_map", o.fur_custom_bkg_map);
    w.Text("submit_score_user_email", o.submit_score_user_email.c_str());
    w.Piece("\n\t/>");
    w.Piece("\n</ardentium>");
    bool ok = !w.failed() && platform::FlushFileToDisk(f);
    int err = errno;
    if (std::fclose(f) != 0 && ok) {
        ok = false;
        err = errno;
    }
    if (!ok) return WriteFailed(path, temp, std::strerror(err ? err : EIO));
    std::string why;
    if (!platform::MoveFileOver(temp, path, &why)) return WriteFailed(path, temp, why.c_str());
    return true;
}
