#include "core/settings.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <type_traits>

#include "core/event_log.h"
#include "platform/platform.h"

StartupOptionsRecord StartupOptions;
RunParametersBlock RunParameters;

const AaModeInfo kAaModes[] = {
    {"Off", 1},
    {"2X MSAA", 2},
    {"4X MSAA", 4},
    {"8X MSAA", 8},
    // Coverage modes fall back to the colour sample count they are built on.
    {"8X CSAA", 4},
    {"16X CSAA", 4},
    {"32X CSAA", 8},
    {"8XQ (Quality) CSAA", 8},
    {"16XQ (Quality) CSAA", 8},
    {"32XQ (Quality) CSAA", 8},
};
const int kAaModeCount = static_cast<int>(sizeof kAaModes / sizeof kAaModes[0]);

int AaSampleCount(const char* modeName) {
    if (!modeName) return 1;
    for (const AaModeInfo& m : kAaModes)
        if (std::strcmp(m.name, modeName) == 0) return m.samples;
    return 1;
}

void CopyText(char* dst, size_t dstSize, const char* src) {
    if (dstSize == 0) return;
    std::memset(dst, 0, dstSize);
    if (src) std::strncpy(dst, src, dstSize - 1);
}

NumberScan ScanInteger(const char* text, long long* out) {
    if (!text) {
        *out = 0;
        return NumberScan::NoNumber;
    }
    const char* p = text;
    while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r' || *p == '\v' || *p == '\f') ++p;
    bool negative = *p == '-';
    if (*p == '+' || *p == '-') ++p;
    if (*p < '0' || *p > '9') {
        *out = 0;
        return NumberScan::NoNumber;
    }
    unsigned long long magnitude = 0;
    const unsigned long long limit = negative ? 9223372036854775808ull : 9223372036854775807ull;
    for (; *p >= '0' && *p <= '9'; ++p) {
        unsigned digit = static_cast<unsigned>(*p - '0');
        if (magnitude > (limit - digit) / 10) return NumberScan::TooLarge;
        magnitude = magnitude * 10 + digit;
    }
    *out = negative ? static_cast<long long>(0 - magnitude) : static_cast<long long>(magnitude);
    return NumberScan::Ok;
}

void InitStartupOptions() { InitStartupOptions(StartupOptions, platform::GetSystemInfo().numberOfProcessors); }

namespace {

using namespace settings_table;

template <typename T, typename V>
void SetDefault(T& field, const V& value) {
    field = static_cast<T>(value);
}
template <size_t N>
void SetDefault(char (&field)[N], const char* value) {
    CopyText(field, N, value);
}
template <typename T>
void SetDefault(T&, Untouched) {}
template <typename T>
void SetDefault(T& field, Zeroed) {
    std::memset(&field, 0, sizeof field);
}
template <typename T, size_t N>
void SetDefault(T (&field)[N], const std::array<T, N>& values) {
    for (size_t i = 0; i < N; ++i) field[i] = values[i];
}
inline void SetDefault(GraphDescriptor& field, const GraphDescriptor& value) { field = value; }
inline void SetDefault(std::string& field, const char* value) { field = value; }

}  // namespace

void InitStartupOptions(StartupOptionsRecord& o, unsigned processorCount) {
    const unsigned cpus = processorCount;  // the name the table's defaults use
    (void)cpus;
#define ARD_DEFAULT(TYPE, NAME, DEFAULT, ...) SetDefault(o.NAME, DEFAULT);
#define ARD_RESERVED_DEFAULT(TYPE, NAME, DEFAULT) SetDefault(o.NAME, DEFAULT);
    ARD_SETTINGS_FIELDS(ARD_DEFAULT, ARD_RESERVED_DEFAULT)
#undef ARD_DEFAULT
#undef ARD_RESERVED_DEFAULT
}

namespace {

// The parse state shared by all switches: one scratch integer that carries a
// number from one switch to the next unless a switch resets it. A bare
// "/render_post_fx" therefore takes whatever an earlier switch left there;
// scripts rely on that, so it stays.
class SwitchParser {
public:
    explicit SwitchParser(const char* cmd) : cmd_(cmd) {}

    bool Has(const char* name) const { return std::strstr(cmd_, name) != nullptr; }

    // Scans "name=<integer>" at the switch's first occurrence, as a "%d"
    // scan would, but refuses numbers beyond 64 bits instead of wrapping.
    enum class Scan { Absent, Unreadable, TooLarge, Ok };
    Scan Number(const char* name, long long* value, std::string* text) const {
        const char* at = std::strstr(cmd_, name);
        if (!at) return Scan::Absent;
        at += std::strlen(name);
        if (name[std::strlen(name) - 1] != '=') {
            if (*at != '=') return Scan::Unreadable;
            ++at;
        }
        const char* end = at;
        while (*end && *end != ' ' && end - at < 24) ++end;
        text->assign(at, end);
        switch (ScanInteger(at, value)) {
            case NumberScan::Ok: return Scan::Ok;
            case NumberScan::TooLarge: return Scan::TooLarge;
            default: return Scan::Unreadable;
        }
    }

    // Scans into the scratch (set to 0 first when asked). False when the
    // switch is absent or refused; an unreadable number leaves the scratch
    // as it was and counts as read.
    bool Scratch(const char* name, bool reset, const char* field) {
        long long value = 0;
        std::string text;
        Scan scan = Number(name, &value, &text);
        if (scan == Scan::Absent) return false;
        if (reset) scratch_ = 0;
        if (scan == Scan::TooLarge || (scan == Scan::Ok && !Accepts<int>(AnyValue, value))) {
            Refuse(name, text.c_str(), "the number is too large", field);
            return false;
        }
        if (scan == Scan::Ok) scratch_ = static_cast<int>(value);
        return true;
    }

    int scratch() const { return scratch_; }

    static void Refuse(const char* name, const char* text, const char* why, const char* field) {
        gEventLog.Write("Command line: %s%s%s refused (%s); %s keeps its value.", name,
                        name[std::strlen(name) - 1] == '=' ? "" : "=", text, why, field);
    }

private:
    const char* cmd_;
    int scratch_ = 0;  // never 1 before the first scan
};

std::string RangeText(const Limits& limits) {
    return "outside " + std::to_string(limits.min) + ".." + std::to_string(limits.max);
}

// Stores a number in a numeric field when its type and limits accept it.
template <typename T>
void StoreNumber(T& field, long long value, const Limits& limits, const SwitchSpec& sw, const char* fieldName) {
    if constexpr (std::is_arithmetic_v<T>) {
        if (Accepts<T>(limits, value)) {
            field = static_cast<T>(value);
            return;
        }
        std::string why = limits.set && Accepts<T>(AnyValue, value) ? RangeText(limits) : "too large for the field";
        SwitchParser::Refuse(sw.name, std::to_string(value).c_str(), why.c_str(), fieldName);
    }
}

template <typename T>
void ApplySwitch(SwitchParser& p, const SwitchSpec& sw, const Limits& limits, const char* fieldName, T& field) {
    switch (sw.form) {
        case SwitchForm::None: return;
        case SwitchForm::Bare:
            if constexpr (std::is_arithmetic_v<T>)
                if (p.Has(sw.name)) field = static_cast<T>(sw.value);
            return;
        case SwitchForm::Choice:
            if constexpr (std::is_arithmetic_v<T>)
                for (int i = 0; i < sw.wordCount; ++i)
                    if (p.Has(sw.words[i].text)) field = static_cast<T>(sw.words[i].value);
            return;
        case SwitchForm::Flag01:
            if constexpr (std::is_arithmetic_v<T>)
                if (p.Scratch(sw.name, false, fieldName)) field = static_cast<T>(p.scratch() == 1);
            return;
        case SwitchForm::Direct: {
            long long value = 0;
            std::string text;
            SwitchParser::Scan scan = p.Number(sw.name, &value, &text);
            if (scan == SwitchParser::Scan::TooLarge)
                SwitchParser::Refuse(sw.name, text.c_str(), "the number is too large", fieldName);
            else if (scan == SwitchParser::Scan::Ok)
                StoreNumber(field, value, limits, sw, fieldName);
            return;
        }
        case SwitchForm::Scratch: {
            if (!p.Scratch(sw.name, sw.resetScratch, fieldName)) return;
            long long value = p.scratch();
            if (sw.oneOf) {
                bool known = false;
                for (int i = 0; i < sw.oneOfCount; ++i) known = known || sw.oneOf[i] == value;
                if (!known) value = sw.otherwise;
            }
            if constexpr (std::is_array_v<T>) {
                // A number that names a text (the anti-aliasing modes).
                for (int i = 0; i < sw.wordCount; ++i) {
                    if (sw.words[i].value == value) {
                        CopyText(field, sizeof field, sw.words[i].text);
                        return;
                    }
                }
                SwitchParser::Refuse(sw.name, std::to_string(value).c_str(), "not a known value", fieldName);
            } else {
                StoreNumber(field, value, limits, sw, fieldName);
            }
            return;
        }
    }
}

using SwitchApplier = void (*)(SwitchParser&, StartupOptionsRecord&);

struct SwitchRow {
    const char* field;
    SwitchSpec sw;
    HelpText help;
    SwitchApplier apply;
};

#define ARD_SWITCH_ROW(TYPE, NAME, DEFAULT, LIMITS, FILE, SWITCH, HELP)            \
    SwitchRow{#NAME, SWITCH, HELP, [](SwitchParser& p, StartupOptionsRecord& o) { \
                  ApplySwitch(p, SWITCH, LIMITS, #NAME, o.NAME);                   \
              }},
#define ARD_NO_ROW(...)
const SwitchRow kAllRows[] = {ARD_SETTINGS_FIELDS(ARD_SWITCH_ROW, ARD_NO_ROW)};
#undef ARD_SWITCH_ROW
#undef ARD_NO_ROW

// The rows that have a switch, in the order the switches are tested.
const std::vector<const SwitchRow*>& SwitchesInOrder() {
    static const std::vector<const SwitchRow*> rows = [] {
        std::vector<const SwitchRow*> r;
        for (const SwitchRow& row : kAllRows)
            if (row.sw.order > 0) r.push_back(&row);
        std::sort(r.begin(), r.end(), [](const SwitchRow* a, const SwitchRow* b) { return a->sw.order < b->sw.order; });
        return r;
    }();
    return rows;
}

}  // namespace

void ParseCommandLine(const char* commandLine) { ParseCommandLine(StartupOptions, commandLine); }

void ParseCommandLine(StartupOptionsRecord& o, const char* commandLine) {
    if (!commandLine) return;
    SwitchParser p(commandLine);
    for (const SwitchRow* row : SwitchesInOrder()) row->apply(p, o);
}

std::string JoinArguments(int argc, const char* const* argv) {
    std::string out;
    for (int i = 1; i < argc; ++i) {
        if (!argv[i]) continue;
        std::string arg = argv[i];
        if (arg.size() > 2 && arg[0] == '-' && arg[1] == '-') arg = "/" + arg.substr(2);
        if (!out.empty()) out += ' ';
        out += arg;
    }
    return out;
}

namespace {

void PrintField(std::ostringstream& out, const char* name, long long v) { out << name << '=' << v << '\n'; }
void PrintField(std::ostringstream& out, const char* name, bool v) { out << name << '=' << (v ? 1 : 0) << '\n'; }
void PrintField(std::ostringstream& out, const char* name, const char* v) { out << name << '=' << v << '\n'; }
void PrintField(std::ostringstream& out, const char* name, const std::string& v) { out << name << '=' << v << '\n'; }
void PrintField(std::ostringstream& out, const char* name, const GraphDescriptor& g) {
    char buf[160];
    std::snprintf(buf, sizeof buf, "%d,%d,%d,%d,%g,%d", g.shown ? 1 : 0, g.x, g.y, g.third,
                  static_cast<double>(g.heightFraction), g.step);
    out << name << '=' << buf << '\n';
}
template <typename T, typename = std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>>
void PrintField(std::ostringstream& out, const char* name, T v) {
    PrintField(out, name, static_cast<long long>(v));
}

}  // namespace

std::string FormatSettings(const StartupOptionsRecord& o) {
    std::ostringstream out;
#define ARD_PRINT(TYPE, NAME, ...) PrintField(out, #NAME, o.NAME);
#define ARD_SKIP(...)
    ARD_SETTINGS_FIELDS(ARD_PRINT, ARD_SKIP)
#undef ARD_PRINT
#undef ARD_SKIP
    return out.str();
}

RunExtras gRunExtras;

namespace {

// A present switch sets a flag.
void ParseExtra(const char* at, const char*, bool& field) { field = at != nullptr; }

// Seconds, 0 or more; anything else leaves the default (off).
void ParseExtra(const char* at, const char* name, float& field) {
    if (!at) return;
    char* end = nullptr;
    double t = std::strtod(at + std::strlen(name), &end);
    if (end != at + std::strlen(name) && t >= 0.0 && t < 1e6) field = static_cast<float>(t);
}

// A whole number, 0 or more; anything else leaves the default.
void ParseExtra(const char* at, const char* name, int& field) {
    if (!at) return;
    long long v = 0;
    if (ScanInteger(at + std::strlen(name), &v) == NumberScan::Ok && v >= 0 && v <= 1000000000) field = static_cast<int>(v);
}

// A path: quoted when it holds spaces, otherwise up to the next space.
void ParseExtra(const char* at, const char* name, std::string& field) {
    if (!at) return;
    at += std::strlen(name);
    if (*at == '"') {
        const char* end = std::strchr(at + 1, '"');
        field = end ? std::string(at + 1, end) : std::string(at + 1);
    } else {
        const char* end = std::strchr(at, ' ');
        field = end ? std::string(at, end) : std::string(at);
    }
}

}  // namespace

RunExtras ParseRunExtras(const char* commandLine) {
    RunExtras e;
    if (!commandLine) return e;
#define ARD_PARSE_EXTRA(TYPE, MEMBER, SWITCH, DEFAULT, HELP) \
    ParseExtra(std::strstr(commandLine, SWITCH), SWITCH, e.MEMBER);
    ARD_RUN_EXTRAS(ARD_PARSE_EXTRA)
#undef ARD_PARSE_EXTRA
    return e;
}

bool WantsUsage(const char* commandLine) {
    if (!commandLine) return false;
    return std::strstr(commandLine, "/?") || std::strstr(commandLine, "/help") || std::strstr(commandLine, "--help");
}

const char* const kUsageFooter =
    "\n"
    "A bare 0/1 switch (for example /render_post_fx) takes the number of the switch\n"
    "before it; write the value to be sure.\n"
    "\n"
    "Every run prints one \"Result:\" line on standard output when it ends.\n"
    "\n"
    "Exit codes:\n"
    "  0    the run did what was asked and its results were written\n"
    "  2    could not start (window, graphics context or API, data, unknown test)\n"
    "  3    a result (scores row, JSON results, temperature log) could not be written\n"
    "  4    the run broke off (the graphics device was lost)\n"
    "  5    a benchmark was stopped (Esc, window closed, Ctrl+C) before its end\n"
    "  6    the picture checks found errors: a check frame differed from the run's\n"
    "       reference (see \"Verification\" in the event log)\n"
    "  130  a second Ctrl+C or SIGINT ended the program at once\n";

namespace {

// "/name=ARG": the argument follows the switch, after an equals sign.
std::string SwitchWithArg(const char* name, const char* arg) {
    std::string s = name;
    if (*arg) s += (s.back() == '=' ? "" : "=") + std::string(arg);
    return s;
}

// One switch: its name in the left column, the text wrapped at 80 columns.
void UsageLine(std::string* out, const std::string& left, const char* text) {
    const size_t kColumn = 32, kWidth = 80;
    std::string line = "  " + left;
    line += line.size() < kColumn ? std::string(kColumn - line.size(), ' ') : std::string(" ");
    std::string word;
    for (const char* c = text;; ++c) {
        if (*c && *c != ' ') {
            word += *c;
            continue;
        }
        if (!word.empty()) {
            if (line.size() + word.size() > kWidth && line.find_first_not_of(' ') < line.size() &&
                line.back() != ' ') {
                *out += line + "\n";
                line.assign(kColumn, ' ');
            }
            if (line.back() != ' ') line += ' ';
            line += word;
            word.clear();
        }
        if (!*c) break;
    }
    *out += line + "\n";
}

}  // namespace

std::string UsageText() {
    std::string out =
        "Usage: ardentium [switches]\n"
        "Switches are written /name or /name=value (on Linux also --name or --name=value).\n"
        "\n";
    for (const SwitchRow* row : SwitchesInOrder()) {
        if (!row->help.arg) continue;
        std::string left;
        if (row->sw.form == SwitchForm::Choice) {
            for (int i = 0; i < row->sw.wordCount; ++i) left += (i ? "  " : "") + std::string(row->sw.words[i].text);
        } else {
            left = SwitchWithArg(row->sw.name, row->help.arg);
        }
        UsageLine(&out, left, row->help.text);
    }
#define ARD_EXTRA_USAGE(TYPE, MEMBER, SWITCH, DEFAULT, HELP) \
    UsageLine(&out, SwitchWithArg(SWITCH, (HELP).arg), (HELP).text);
    ARD_RUN_EXTRAS(ARD_EXTRA_USAGE)
#undef ARD_EXTRA_USAGE
    UsageLine(&out, kPrintSettingsSwitch, "print the resulting settings and exit");
    UsageLine(&out, "/? /help", "this text");
    return out + kUsageFooter;
}

std::vector<std::string> KnownSwitches() {
    std::vector<std::string> names;
    for (const SwitchRow* row : SwitchesInOrder()) {
        if (row->sw.form == SwitchForm::Choice) {
            for (int i = 0; i < row->sw.wordCount; ++i) names.push_back(row->sw.words[i].text);
        } else {
            names.push_back(row->sw.name);
        }
    }
#define ARD_EXTRA_NAME(TYPE, MEMBER, SWITCH, DEFAULT, HELP) names.push_back(SWITCH);
    ARD_RUN_EXTRAS(ARD_EXTRA_NAME)
#undef ARD_EXTRA_NAME
    names.push_back(kPrintSettingsSwitch);
    return names;
}
