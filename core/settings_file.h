// The settings file "startup_options.xml" beside the program: read at start
// before the command line, written back at exit when the launcher was shown.
#pragma once

#include <string>

struct StartupOptionsRecord;

constexpr const char* kSettingsFileName = "startup_options.xml";

// True when a `settings` element was found and read; false for a null path,
// a file that cannot be opened or is not text, or no such element. Absent
// attributes leave their fields as they were.
bool ReadStartupOptionsFile(const char* path);
bool ReadStartupOptionsFile(StartupOptionsRecord& o, const char* path);

// Writes the whole file anew; does nothing for a null path or a file that
// cannot be created.
void WriteStartupOptionsFile(const char* path);
void WriteStartupOptionsFile(const StartupOptionsRecord& o, const char* path);

// True for a complete, well-formed document with one root element: the check
// every file passes before its values are read.
bool XmlIsWellFormed(const std::string& text);
