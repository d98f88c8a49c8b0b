#include "core/settings_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "core/event_log.h"
#include "core/settings.h"
#include "core/xml_reader.h"
#include "platform/compiler.h"
#include "platform/platform.h"

namespace {

using namespace settings_table;

// The texts of the file are compared on their first 32 characters.
bool SameWord(const char* text, const char* word) { return std::strncmp(text, word, 32) == 0; }

class PieceWriter {
public:
    // Each piece is formatted into a 4096-byte buffer and written with its length.
    ARD_PRINTF_LIKE(2, 3) void Piece(const char* format, ...) {
        char buf[4096];
        va_list args;
        va_start(args, format);
        int n = std::vsnprintf(buf, sizeof buf, format, args);
        va_end(args);
        if (n < 0) return;
        size_t len = static_cast<size_t>(n) < sizeof buf ? static_cast<size_t>(n) : sizeof buf - 1;
        out_.append(buf, len);
    }
    const std::string& text() const { return out_; }
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
    std::string out_;
};

// Logs why the settings file could not be written and drops the half-made copy.
bool WriteFailed(const char* path, const std::string& temp, const char* reason) {
    gEventLog.Write("Settings file [%s] could not be written: %s.", path, reason);
    std::remove(temp.c_str());
    return false;
}

// A number read from the file is stored when the field's type and limits
// accept it; anything else leaves the field as it was.
template <typename T>
void ReadNumber(const char* name, const char* raw, const Limits& limits, T& field) {
    long long value = 0;
    if (ScanInteger(raw, &value) == NumberScan::TooLarge || !Accepts<T>(limits, value)) {
        gEventLog.Write("Settings file: %s=\"%.40s\" refused (not a value the field can hold); the old value stays.",
                        name, raw);
        return;
    }
    if constexpr (std::is_same_v<T, bool>)
        field = value == 1;  // byte-sized flags are true only for exactly 1
    else
        field = static_cast<T>(value);
}

template <typename T>
void ReadAttribute(const XmlPullReader& r, const char* name, const FileSpec& file, const Limits& limits, T& field) {
    const std::string* value = r.Attribute(name);
    if (!value) return;
    const char* raw = value->c_str();
    if constexpr (std::is_array_v<T>) {
        CopyText(field, sizeof field, raw);
    } else if constexpr (std::is_same_v<T, std::string>) {
        field = *value;
    } else if constexpr (std::is_arithmetic_v<T>) {
        if (file.words) {
            const WordList& list = *file.words;
            for (int i = 0; i < list.count; ++i) {
                if (SameWord(raw, list.words[i].text)) {
                    field = static_cast<T>(list.words[i].value);
                    return;
                }
            }
            if (!list.readOtherwiseKeeps) field = static_cast<T>(list.readOtherwise);
        } else {
            ReadNumber(name, raw, limits, field);
        }
    }
}

template <typename T>
void WriteAttribute(PieceWriter& w, const char* name, const FileSpec& file, const T& field) {
    if constexpr (std::is_array_v<T>) {
        w.Text(name, field);
    } else if constexpr (std::is_same_v<T, std::string>) {
        w.Text(name, field.c_str());
    } else if constexpr (std::is_same_v<T, bool>) {
        w.Flag(name, field);
    } else if constexpr (std::is_arithmetic_v<T>) {
        if (file.words) {
            const WordList& list = *file.words;
            for (int i = 0; i < list.count; ++i) {
                if (list.words[i].value == static_cast<long long>(field)) {
                    w.Text(name, list.words[i].text);
                    return;
                }
            }
            w.Text(name, list.writeOtherwise);
        } else {
            w.Int(name, static_cast<long long>(field));
        }
    }
}

struct FileRow {
    FileSpec file;
    void (*read)(const XmlPullReader&, StartupOptionsRecord&);
    void (*write)(PieceWriter&, const StartupOptionsRecord&);
};

#define ARD_FILE_ROW(TYPE, NAME, DEFAULT, LIMITS, FILE, SWITCH, HELP)                                           \
    FileRow{FILE, [](const XmlPullReader& r, StartupOptionsRecord& o) { ReadAttribute(r, #NAME, FILE, LIMITS, o.NAME); }, \
            [](PieceWriter& w, const StartupOptionsRecord& o) { WriteAttribute(w, #NAME, FILE, o.NAME); }},
#define ARD_NO_ROW(...)
const FileRow kAllRows[] = {ARD_SETTINGS_FIELDS(ARD_FILE_ROW, ARD_NO_ROW)};
#undef ARD_FILE_ROW
#undef ARD_NO_ROW

// The attributes in the order given by `order` (write or read).
std::vector<const FileRow*> RowsBy(int FileSpec::*order) {
    std::vector<const FileRow*> rows;
    for (const FileRow& row : kAllRows)
        if (row.file.*order > 0) rows.push_back(&row);
    std::sort(rows.begin(), rows.end(), [order](const FileRow* a, const FileRow* b) { return a->file.*order < b->file.*order; });
    return rows;
}

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
    return ReadStartupOptionsText(o, text);
}

bool ReadStartupOptionsText(StartupOptionsRecord& o, std::string_view text) {
    XmlPullReader reader(text);
    XmlPullReader::Node node;
    while ((node = reader.Next()) != XmlPullReader::Node::End && node != XmlPullReader::Node::Error) {
        if (node == XmlPullReader::Node::StartElement && reader.Name() == "settings") break;
    }
    if (node != XmlPullReader::Node::StartElement) return false;

    static const std::vector<const FileRow*> rows = RowsBy(&FileSpec::readOrder);
    for (const FileRow* row : rows) row->read(reader, o);
    return true;
}

std::string FormatStartupOptionsFile(const StartupOptionsRecord& o) {
    PieceWriter w;
    w.Piece("<?xml version=\"1.0\"?>");
    w.Piece("\n<ardentium>");
    w.Piece("\n\t<!--\n\trun_mode: \"BENCHMARK\" or \"STABILITY_TEST\".\n\tmax_time: in milliseconds.\n\t"
            "max_frames: 0 means not used.\n\t-->");
    w.Piece("\n\t<settings");
    static const std::vector<const FileRow*> rows = RowsBy(&FileSpec::writeOrder);
    for (const FileRow* row : rows) row->write(w, o);
    w.Piece("\n\t/>");
    w.Piece("\n</ardentium>");
    return w.text();
}

bool WriteStartupOptionsFile(const char* path) { return WriteStartupOptionsFile(StartupOptions, path); }

bool WriteStartupOptionsFile(const StartupOptionsRecord& o, const char* path) {
    if (!path) return false;
    // The new file is written beside the old one and put in its place only
    // when it is complete, so a crash or a full disk keeps the old settings.
    const std::string text = FormatStartupOptionsFile(o);
    const std::string temp = std::string(path) + ".tmp";
    FILE* f = std::fopen(temp.c_str(), "w");
    if (!f) return WriteFailed(path, temp, std::strerror(errno));
    errno = 0;
    bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size() && platform::FlushFileToDisk(f);
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
