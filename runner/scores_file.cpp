#include "runner/scores_file.h"

#include <cstdio>

bool AppendScoreRow(const char* path, const ScoreRow& r) {
    FILE* f = std::fopen(path, "r+");
    if (!f) {
        FILE* created = std::fopen(path, "w");
        if (!created) return false;
        // The degree sign is written in the Windows-1252 code page, as
        // spreadsheet programs on the product's home platform expect.
        std::fputs("Test name,Renderer,Driver,GPU clock(MHz),Memory clock(MHz),MSAA,Width,Height,Fullscreen,"
                   "Is time based,Max time,Max frames,GPU temp start(\xB0"
                   "C),GPU temp end(\xB0"
                   "C),GPU temp max(\xB0"
                   "C),AVG FPS,MIN FPS,MAX FPS\n",
                   created);
        std::fclose(created);
        f = std::fopen(path, "r+");
        if (!f) return false;
    }
    std::fseek(f, 0, SEEK_END);
    std::fprintf(f, "%s,%s,%s,%.2f,%.2f,%d,%d,%d,%s,%s,%d,%d,%.2f,%.2f,%.2f,%d,%d,%d\n", r.testName.c_str(),
                 r.renderer.c_str(), r.driver.c_str(), r.gpuClockMhz, r.memoryClockMhz, r.msaaSamples, r.width,
                 r.height, r.fullscreen ? "YES" : "NO", r.timeBased ? "YES" : "NO", r.maxTime, r.score, r.tempStart,
                 r.tempEnd, r.tempMax, r.avgFps, r.minFps, r.maxFps);
    std::fclose(f);
    return true;
}
