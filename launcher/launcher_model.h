// What the launcher shows and writes, apart from its widgets: the tests as
// the launcher lists them, the resolutions it offers, the rows of the scores
// file, the score dialog's texts and files, and its widget-state dump.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "runner/run_results.h"

// One entry of the tests tab.
struct LauncherTest {
    int test3d = 0;
    int api3d = 2;      // the API the entry runs with (test 0: the one chosen)
    std::string name;   // as the window title and the logs name it
    std::string description;
    bool renderThread = true;  // false: a GL test application
};

struct LauncherTestGroup {
    std::string title;
    std::vector<LauncherTest> tests;
};

// The catalogue, grouped as it numbers its tests: the fur test with the
// object of one's choice first, then 20xx (OpenGL 2 and Direct3D), 21xx
// (OpenGL 3) and 22xx (OpenGL 4).
std::vector<LauncherTestGroup> LauncherCatalogue();
// The entry for a test identifier (and, for test 0, an API); null when none.
const LauncherTest* FindLauncherTest(const std::vector<LauncherTestGroup>& groups, int test3d, int api3d);

// The distinct sizes among the display modes, largest first, with the
// current size added when the display has no such mode.
std::vector<std::pair<int, int>> ResolutionChoices(const std::vector<std::pair<int, int>>& modes, int width,
                                                   int height);

// The scores file: its header and rows, split into fields (quoted fields as
// spreadsheets write them), newest row first.
struct ScoresTable {
    std::vector<std::string> header;
    std::vector<std::vector<std::string>> rows;
};
ScoresTable ParseScoresFile(const std::string& text);
std::vector<std::string> SplitCsvLine(const std::string& line);

// The score dialog's figures, taken when the run closes.
struct ScoreSheet {
    RunResults results;
    ResultsContext context;
};
// Lines of "label: value" as the dialog shows them and the clipboard gets them.
std::vector<std::pair<std::string, std::string>> ScoreSheetLines(const ScoreSheet& s);
std::string ScoreClipboardText(const ScoreSheet& s);
// A header line and one row: the figures of the results file, flat.
std::string ScoreCsv(const ScoreSheet& s);
// The body of "Submit score" (the results document with the user's
// address) and of "Post status" (one line of text about the run).
std::string ScoreSubmission(const ScoreSheet& s, const std::string& userEmail);
std::string StatusPost(const ScoreSheet& s, const std::string& userEmail);

// The error box of a run that could not start and raised no box itself:
// the event-log lines written while it tried that say what failed (at most
// four, the last ones), else a pointer to the log.
std::string RunFailureText(const std::string& testName, const std::vector<std::string>& linesOfTheTry);

// The widget-state dump: "key=value" lines in the order given; line breaks
// inside a value are written as "\n" so each key stays on one line.
std::string FormatStateDump(const std::vector<std::pair<std::string, std::string>>& entries);
