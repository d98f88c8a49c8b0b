// Facts about the current run that the scores file records, filled by the
// back-end as it learns them (the renderer, driver and clocks come from the
// monitor).
#pragma once

#include <string>

struct RunFactsRecord {
    int msaaSamples = 0;
    int clientWidth = 0;
    int clientHeight = 0;
    double tempStart = 0.0, tempEnd = 0.0, tempMax = 0.0;
};

// Written by the render thread while a run starts, read by the UI thread after
// the run has ended.
extern RunFactsRecord RunFacts;
