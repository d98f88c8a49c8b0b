#include "runner/text_block.h"

#include <algorithm>

#include "core/settings.h"
#include "platform/compiler.h"
#include "platform/str_format.h"
#include "runner/run_stats.h"

std::vector<TextLine> BuildTextBlock(const TextBlockInput& in) {
    using namespace textcolors;
    std::vector<TextLine> lines;
    const int x = 10;
    int y = (in.benchmark && in.warmupDone) ? 30 : 10;

    if (!in.benchmark && in.xtremeBurnIn) {
        lines.push_back({x, y, kWarningRed,
                         "****** WARNING: Xtreme burn-in may cause instability. Do it at your own risk. ******"});
        y += 40;
    }
    if (in.benchmark && !in.warmupDone) {
        lines.push_back({x, y, kWarmupOrange, "Benchmarking - WARMING-UP..."});
        y += 20;
    }
    lines.push_back({x, y, kHeadingYellow,
                     StrFormat("%s - %s, %dx%d (AA: %s), %s", "Ardentium", in.testName.c_str(), in.width, in.height,
                            in.aaMode.c_str(), in.adapterText.c_str())});
    lines.push_back({x, y + 20, kWhite,
                     StrFormat("FPS: %d (min:%d, max:%d, avg:%d)", in.currentFps, in.minFps, in.maxFps, in.avgFps)});
    unsigned s = in.elapsedMs / 1000;
    lines.push_back({x, y + 40, kWhite,
                     StrFormat("%s - Frames=%lu - Elapsed time=%.2d:%.2d:%.2d",
                            in.benchmark ? "Benchmarking" : "Stability Test", static_cast<unsigned long>(in.frames),
                            static_cast<int>(s / 3600), static_cast<int>((s % 3600) / 60), static_cast<int>(s % 60))});

    if (in.benchmark) {
        if (in.warmupDone) {
            // A frame-counted run without a frame limit has no progress to show.
            double progress = 0.0;
            if (in.timeBased && in.maxTime > 0)
                progress = 100.0 * in.elapsedMs / in.maxTime;
            else if (!in.timeBased && in.maxFrames > 0)
                progress = 100.0 * in.frames / in.maxFrames;
            // The frame that crosses the limit is still drawn; a slow one
            // would otherwise show more than the whole run.
            progress = std::min(progress, 100.0);
            lines.push_back({in.clientWidth / 2 - 10, 10, kWhite, StrFormat("%d %%", static_cast<int>(progress))});
        }
        return lines;
    }

    lines.push_back({x, y + 60, kHelpYellow, "> F1: toggle help"});
    if (in.showHelp) {
        const std::string help[] = {
            "> ESC: quit",
            "> SPACE: toggle furry object",
            "> I: toggle all indicators",
            "> F5: toggle GPU loadmeter",
            "> F6: toggle GPU thermometer",
            "> T: toggle temp. graphs",
            "> G: toggle GPU list",
            StrFormat("> + and - : rendering delay (%dms)", in.toneDownDelayMs),
        };
        int hy = y + 75;
        for (const std::string& h : help) {
            lines.push_back({x, hy, kHelpYellow, h});
            hy += 15;
        }
    }
    return lines;
}

TextBlockInput CurrentTextBlockInput(const cLm4DDemo& demo, int clientWidth, const std::string& adapterText) {
    const StartupOptionsRecord& o = StartupOptions;
    TextBlockInput in;
    in.benchmark = RunParameters.run_mode == 1;
    in.warmupDone = RunStats.warmup_done;
    in.xtremeBurnIn = o.xtreme_burn_in || o.xtreme_burn_in_active;
    in.testName = demo.display_name;
    in.width = RunParameters.width;
    in.height = RunParameters.height;
    in.clientWidth = clientWidth;
    in.aaMode = o.aa_mode;
    in.adapterText = adapterText;
    in.currentFps = RunStats.current_fps;
    in.minFps = RunStats.min_fps;
    in.maxFps = RunStats.max_fps;
    in.avgFps = RunStats.avg_fps;
    in.frames = RunStats.benchmark_frames;
    in.elapsedMs = RunStats.elapsed_ms;
    in.timeBased = RunParameters.time_based == 1;
    in.maxTime = RunParameters.max_time;
    in.maxFrames = RunParameters.max_frames;
    in.showHelp = demo.show_help;
    in.toneDownDelayMs = AtomicLoad(o.tone_down_delay_ms);
    return in;
}

int IndicatorTopWithHelp(bool benchmark, bool xtremeBurnIn) { return (!benchmark && xtremeBurnIn) ? 300 : 280; }
