#include "core/settings_file.h"

#include <irrXML.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/settings.h"
#include "platform/compiler.h"

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

// Attribute values are written inside double quotes; the five XML special
// characters are written as the entities the reader turns back into them, so
// a path or address containing them survives the round trip. Plain text is
// written unchanged.
std::string Escaped(const char* text) {
    std::string out;
    for (const char* c = text; *c; ++c) {
        switch (*c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&apos;"; break;
            default: out += *c;
        }
    }
    return out;
}

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
        std::fwrite(buf, 1, len, f_);
    }
    void Int(const char* name, long long value) { Piece("\n\t\t%s=\"%lld\"", name, value); }
    void Flag(const char* name, bool value) { Piece("\n\t\t%s=\"%d\"", name, value ? 1 : 0); }
    void Text(const char* name, const char* value) {
        std::string v = Escaped(value);
        // Long texts (a 1023-character path, an address of any length) are
        // written in pieces that fit the buffer.
        Piece("\n\t\t%s=\"", name);
        for (size_t at = 0; at < v.size(); at += 4000) Piece("%s", v.substr(at, 4000).c_str());
        Piece("\"");
    }

private:
    FILE* f_;
};

using Reader = irr::io::IrrXMLReader;

class AttributeReader {
public:
    explicit AttributeReader(Reader* r) : r_(r) {}
    bool Has(const char* name) const { return r_->getAttributeValue(name) != nullptr; }
    template <typename T>
    void Int(const char* name, T& field) const {
        if (Has(name)) field = static_cast<T>(r_->getAttributeValueAsInt(name));
    }
    // Byte-sized flags are true only for exactly 1.
    void Flag(const char* name, bool& field) const {
        if (Has(name)) field = r_->getAttributeValueAsInt(name) == 1;
    }
    void Text(const char* name, char* field, size_t size) const {
        if (const char* v = r_->getAttributeValue(name)) CopyText(field, size, v);
    }
    const char* Raw(const char* name) const { return r_->getAttributeValue(name); }

private:
    Reader* r_;
};

bool IsNameStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_' || c == ':'; }
bool IsNameChar(char c) {
    return IsNameStart(c) || std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '.' ||
           static_cast<unsigned char>(c) >= 0x80;
}
bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Reads the whole file when it is of a size a settings file can have.
bool ReadSmallFile(const char* path, std::string* out) {
    FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    const size_t kLimit = 1 << 20;
    char buf[4096];
    size_t n;
    out->clear();
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0 && out->size() <= kLimit) out->append(buf, n);
    std::fclose(f);
    return out->size() <= kLimit;
}

}  // namespace

bool XmlIsWellFormed(const std::string& text) {
    size_t i = 0;
    const size_t n = text.size();
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) i = 3;
    auto skipUntil = [&](const char* end) {
        size_t at = text.find(end, i);
        if (at == std::string::npos) return false;
        i = at + std::strlen(end);
        return true;
    };
    auto readName = [&](std::string* name) {
        if (i >= n || !IsNameStart(text[i])) return false;
        size_t start = i;
        while (i < n && IsNameChar(text[i])) ++i;
        if (name) *name = text.substr(start, i - start);
        return true;
    };
    auto skipSpace = [&] {
        size_t start = i;
        while (i < n && IsSpace(text[i])) ++i;
        return i > start;
    };
    std::vector<std::string> open;
    bool rootSeen = false;
    while (i < n) {
        char c = text[i];
        if (static_cast<unsigned char>(c) < 0x20 && !IsSpace(c)) return false;  // binary bytes
        if (c != '<') {
            // Character data is allowed only inside the root element.
            if (open.empty() && !IsSpace(c)) return false;
            ++i;
            continue;
        }
        if (text.compare(i, 4, "<!--") == 0) {
            i += 4;
            if (!skipUntil("-->")) return false;
        } else if (text.compare(i, 9, "<![CDATA[") == 0) {
            if (open.empty()) return false;
            i += 9;
            if (!skipUntil("]]>")) return false;
        } else if (text.compare(i, 2, "<?") == 0) {
            i += 2;
            if (!skipUntil("?>")) return false;
        } else if (text.compare(i, 2, "<!") == 0) {
            if (rootSeen) return false;  // declarations only before the root
            i += 2;
            if (!skipUntil(">")) return false;
        } else if (text.compare(i, 2, "</") == 0) {
            i += 2;
            std::string name;
            if (!readName(&name) || open.empty() || open.back() != name) return false;
            skipSpace();
            if (i >= n || text[i] != '>') return false;
            ++i;
            open.pop_back();
        } else {
            ++i;
            std::string name;
            if (!readName(&name)) return false;
            if (open.empty() && rootSeen) return false;  // a second root
            rootSeen = true;
            for (;;) {
                bool spaced = skipSpace();
                if (i >= n) return false;
                if (text[i] == '>') {
                    ++i;
                    open.push_back(name);
                    break;
                }
                if (text.compare(i, 2, "/>") == 0) {
                    i += 2;
                    break;
                }
                if (!spaced || !readName(nullptr)) return false;
                skipSpace();
                if (i >= n || text[i] != '=') return false;
                ++i;
                skipSpace();
                if (i >= n || (text[i] != '"' && text[i] != '\'')) return false;
                char quote = text[i++];
                size_t close = text.find(quote, i);
                if (close == std::string::npos || text.find('<', i) < close) return false;
                i = close + 1;
            }
        }
    }
    return rootSeen && open.empty();
}

bool ReadStartupOptionsFile(const char* path) { return ReadStartupOptionsFile(StartupOptions, path); }

bool ReadStartupOptionsFile(StartupOptionsRecord& o, const char* path) {
    // The parser trusts its input and can read past the end of a malformed
    // document, so only well-formed text is handed to it. A file that is not
    // XML, is cut short, or holds binary bytes leaves the settings as they are.
    std::string text;
    if (!path || !ReadSmallFile(path, &text) || !XmlIsWellFormed(text)) return false;
    std::unique_ptr<Reader> reader(irr::io::createIrrXMLReader(path));
    if (!reader) return false;

    bool found = false;
    while (reader->read()) {
        if (reader->getNodeType() == irr::io::EXN_ELEMENT && std::strcmp(reader->getNodeName(), "settings") == 0) {
            found = true;
            break;
        }
    }
    if (!found) return false;

    AttributeReader a(reader.get());
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

void WriteStartupOptionsFile(const char* path) { WriteStartupOptionsFile(StartupOptions, path); }

void WriteStartupOptionsFile(const StartupOptionsRecord& o, const char* path) {
    if (!path) return;
    FILE* f = std::fopen(path, "w");
    if (!f) return;
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
    std::fclose(f);
}
