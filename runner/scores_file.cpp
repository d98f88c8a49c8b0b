#include "runner/scores_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

std::string CsvField(const std::string& text) {
    if (text.find_first_of(",\"\n") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text) {
        if (c == '"') out += '"';
        out += c == '\n' ? ' ' : c;
    }
    return out + "\"";
}

namespace {

bool Fail(std::string* reason) {
    if (reason) *reason = errno ? std::strerror(errno) : "write error";
    return false;
}

}  // namespace

bool AppendScoreRow(const char* path, const ScoreRow& r, std::string* reason) {
    errno = 0;
    FILE* f = std::fopen(path, "r+");
    bool fresh = false;
    if (!f) {
        f = std::fopen(path, "w+");
        if (!f) return Fail(reason);
        fresh = true;
    }
    // The degree sign is written in the Windows-1252 code page, as
    // spreadsheet programs on the product's home platform expect.
    if (fresh)
        std::fputs("Test name,Renderer,Driver,GPU clock(MHz),Memory clock(MHz),MSAA,Width,Height,Fullscreen,"
                   "Is time based,Max time,Max frames,GPU temp start(\xB0"
                   "C),GPU temp end(\xB0"
                   "C),GPU temp max(\xB0"
                   "C),AVG FPS,MIN FPS,MAX FPS\n",
                   f);
    std::fseek(f, 0, SEEK_END);
    std::fprintf(f, "%s,%s,%s,%.2f,%.2f,%d,%d,%d,%s,%s,%d,%d,%.2f,%.2f,%.2f,%d,%d,%d\n", CsvField(r.testName).c_str(),
                 CsvField(r.renderer).c_str(), CsvField(r.driver).c_str(), r.gpuClockMhz, r.memoryClockMhz,
                 r.msaaSamples, r.width, r.height, r.fullscreen ? "YES" : "NO", r.timeBased ? "YES" : "NO", r.maxTime,
                 r.score, r.tempStart, r.tempEnd, r.tempMax, r.avgFps, r.minFps, r.maxFps);
    // A full disk shows only when the buffer is flushed, so both the flush
    // and the close are checked.
    bool ok = std::fflush(f) == 0 && !std::ferror(f);
    if (!ok) {
        std::string why = errno ? std::strerror(errno) : "write error";
        std::fclose(f);
        if (reason) *reason = why;
        return false;
    }
    if (std::fclose(f) != 0) return Fail(reason);
    return true;
}
