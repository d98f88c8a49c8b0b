// The settings file "startup_options.xml" beside the program: read at start
// before the command line, written back at exit when the launcher was shown.
#pragma once

#include <string>
#include <string_view>

struct StartupOptionsRecord;

constexpr const char* kSettingsFileName = "startup_options.xml";

// True when a `settings` element was found and read; false for a null path,
// a file that cannot be opened, or no complete `settings` tag before the
// first malformed markup. Absent
// attributes leave their fields as they were.
bool ReadStartupOptionsFile(const char* path);
bool ReadStartupOptionsFile(StartupOptionsRecord& o, const char* path);
// The same for a file's bytes already in memory.
bool ReadStartupOptionsText(StartupOptionsRecord& o, std::string_view text);

// Writes the whole file anew: into "<path>.tmp" first, which then replaces the
// file in one step. False for a null path, or when writing, closing or
// replacing fails; the event log then names the path and the reason, and the
// old file is left as it was.
bool WriteStartupOptionsFile(const char* path);
bool WriteStartupOptionsFile(const StartupOptionsRecord& o, const char* path);
// The file's text, with "\n" line ends (text mode turns them into the
// system's).
std::string FormatStartupOptionsFile(const StartupOptionsRecord& o);
