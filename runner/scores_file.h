// The scores file "./Ardentium_Scores.csv": one row for the last benchmark,
// written when the program ends.
#pragma once

#include <string>

struct ScoreRow {
    std::string testName;
    std::string renderer;
    std::string driver;
    double gpuClockMhz = 0.0;
    double memoryClockMhz = 0.0;
    int msaaSamples = 0;
    int width = 0;
    int height = 0;
    bool fullscreen = false;
    bool timeBased = true;
    int maxTime = 0;
    int score = 0;  // under the "Max frames" heading: the frames rendered
    double tempStart = 0.0, tempEnd = 0.0, tempMax = 0.0;
    int avgFps = 0, minFps = 0, maxFps = 0;
};

constexpr const char* kScoresFileName = "./Ardentium_Scores.csv";

// One field of a CSV row: renderer and driver texts come from the driver and
// may hold commas or quotes, so such a text is quoted (and a line break
// becomes a space) to keep the columns where spreadsheets expect them.
std::string CsvField(const std::string& text);

// The header goes in only when the file could not be opened; false (with
// the system's reason) when the row could not be written completely.
bool AppendScoreRow(const char* path, const ScoreRow& row, std::string* reason = nullptr);
