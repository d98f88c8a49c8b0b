// Facts about the current run that the scores file records and the HUD shows,
// filled by the back-end and the monitor as they learn them.
#pragma once

#include <string>

struct RunFactsRecord {
    std::string renderer = "n.a.";
    std::string driver = "n.a.";
    double gpuClockMhz = 0.0;
    double memoryClockMhz = 0.0;
    int msaaSamples = 0;
    int clientWidth = 0;
    int clientHeight = 0;
    double tempStart = 0.0, tempEnd = 0.0, tempMax = 0.0;
};

// Written by the render thread while a run starts, read by the UI thread after
// the run has ended.
extern RunFactsRecord RunFacts;
