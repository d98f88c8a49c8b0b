// What the program tells its user and the script that started it about a
// run: the summary line on standard output, the JSON results file, the
// scores row, and the outcome that becomes the exit code.
#pragma once

#include <string>
#include <vector>

#include "runner/frame_log.h"

#include "runner/run_results.h"

// Starts collecting each GPU's sensor minimum and maximum for the run about
// to start (the monitor thread feeds them after every refresh).
void BeginRunReport();
// The render thread's last act: prints the summary line, writes the JSON
// results file when /results_json= asked for one, and notes how the run
// ended for the exit code.
void ReportRunEnded(const RunResults& results);
// Each GPU's latest readings as the frame log writes them; returns the
// number of GPUs the monitor has.
int ReadGpuLogReadings(std::vector<GpuLogReading>* out);

// At exit, after the last benchmark, when the scores file is asked for.
void WriteScoresRow();

// The JSON results' context for a run: the settings that shaped it, the
// sensor ranges collected since BeginRunReport, the errors noted so far.
ResultsContext CollectResultsContext();
