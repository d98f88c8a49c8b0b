// What the program tells the script that started it: the exit code. Every
// part of the program reports here what went wrong; the shell turns the
// worst of it into the code when it ends.
#pragma once

#include <string>
#include <vector>

// The exit codes, documented in --help and the README.
enum ExitCode {
    kExitOk = 0,                 // the run did what was asked and its results were written
    kExitCouldNotStart = 2,      // no window, context, graphics API, data or test to start
    kExitResultsNotWritten = 3,  // a result (scores row, JSON results, temperature log) could not be written
    kExitRunFailed = 4,          // the run broke off (the device was lost)
    kExitStoppedEarly = 5,       // a benchmark was stopped (Esc, close, Ctrl+C) before its end
    kExitVerificationErrors = 6, // a picture check differed from the run's reference
    kExitInterrupted = 130,      // a second Ctrl+C or SIGINT ended the program at once
};

// Each may be called from any thread. A non-empty `what` is kept for the
// results file's error list.
void NoteCouldNotStart(const std::string& what = std::string());
void NoteRunFailed(const std::string& what = std::string());
void NoteStoppedEarly();
// The run's picture checks found errors (the text says how many).
void NoteVerificationErrors(const std::string& what);
// Logs "Unable to write <what> [<path>]: <reason>." and remembers it.
void NoteResultNotWritten(const char* what, const std::string& path, const std::string& reason);
// The texts noted so far, oldest first.
std::vector<std::string> NotedErrors();

// The code for everything noted so far, the most serious first: could not
// start, run failed, verification errors, results not written, stopped early.
ExitCode CurrentExitCode();
// Forgets everything noted (tests; each program run starts clean).
void ResetRunOutcome();
