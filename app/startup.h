// The start-up and shut-down sequence that runs the life of the program on
// the main thread.
#pragma once

struct StartupOptionsRecord;
struct RunParametersBlock;
// Copies the run settings into the runner's block before a launcher or a test starts.
void CopyRunParameters(const StartupOptionsRecord& o, RunParametersBlock& run);

// Runs start-up, the chosen test or the launcher, and shut-down. Returns the
// process exit status.
int ArdentiumMain(const char* commandLine);
