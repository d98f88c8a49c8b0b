// The launcher: a window with the tests, the settings, the GPU's sensors, the
// scores file and the about page, from which runs are started any number of
// times; and the score dialog after a benchmark that ended by itself.
#pragma once

#include <functional>
#include <string>

#include "runner/run_results.h"

struct LauncherHooks {
    // Runs the test the settings record names with its window, and returns
    // when the run's window has closed; false when it could not start.
    std::function<bool()> run = [] { return false; };
    // Whether this build can run a test with an API.
    std::function<bool(int test3d, int api3d)> available = [](int, int) { return false; };
    // The figures of the results file that the runner does not know.
    std::function<ResultsContext()> resultsContext = [] { return ResultsContext(); };
};

// UI thread. Shows the launcher until the user closes it. False, with the
// reason, when its window cannot open; nothing was shown then.
bool RunLauncher(const LauncherHooks& hooks, std::string* error);
