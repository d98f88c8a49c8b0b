#include "scenes/fur/indicators.h"

#include <cstdarg>
#include <cstdio>

#include "platform/compiler.h"
#include "platform/str_format.h"
#include "runner/frame_verify.h"
#include "runner/run_stats.h"

namespace {

constexpr Color4 kBarBackground{0.05f, 0.15f, 0.2f, 0.6f};
constexpr Color4 kLoadFill{0.0f, 0.9f, 0.0f, 0.5f};
constexpr Color4 kTempFill{1.0f, 0.0f, 0.0f, 0.5f};
constexpr Color4 kYellow{1.0f, 1.0f, 0.0f, 1.0f};
constexpr Color4 kWhite{1.0f, 1.0f, 1.0f, 1.0f};
constexpr Color4 kPanelYellow{1.0f, 1.0f, 0.1f, 1.0f};
constexpr Color4 kGreen{0.0f, 1.0f, 0.0f, 1.0f};
constexpr Color4 kRed{1.0f, 0.0f, 0.0f, 1.0f};
constexpr Color4 kThrottleBlue{0.2f, 0.6f, 1.0f, 1.0f};

struct MeterLayout {
    int x, y, height, labelStep, barStep;
};

void AddBars(const HudInput& in, const MeterLayout& m, bool temperature, HudFrame* out) {
    for (size_t i = 0; i < in.gpus.size(); ++i) {
        const int x = m.x + static_cast<int>(i) * m.barStep;
        out->bars.push_back({x, m.y, 24, m.height, kBarBackground});
        if (!(temperature ? in.gpus[i].hasTemperature : in.gpus[i].hasLoad)) continue;
        const float value = temperature ? in.gpus[i].temperature : in.gpus[i].load;
        int fill = static_cast<int>(value * m.height * (temperature ? 0.009f : 0.01f));
        // Above about 111 degrees (or a load over 100 %) the fill would run
        // out of its bar over the labels: the drawing stops at the top, the
        // label still prints the value.
        if (fill > m.height) fill = m.height;
        if (fill > 0) out->bars.push_back({x + 2, m.y + m.height - fill, 20, fill, temperature ? kTempFill : kLoadFill});
    }
}

void AddLabels(const HudInput& in, const MeterLayout& m, bool temperature, HudFrame* out) {
    out->labels.push_back({m.x, m.y - 35, kYellow, temperature ? "GPU Temp" : "GPU LOAD"});
    for (size_t i = 0; i < in.gpus.size(); ++i) {
        const int step = static_cast<int>(i) * m.labelStep;
        // The degree sign is the Latin-1 byte, as the HUD font maps it.
        const bool known = temperature ? in.gpus[i].hasTemperature : in.gpus[i].hasLoad;
        std::string value = !known      ? std::string("n.a.")
                            : temperature ? StrFormat("%d\xB0" "C", static_cast<int>(in.gpus[i].temperature))
                                          : StrFormat("%d%%", static_cast<int>(in.gpus[i].load));
        out->labels.push_back({m.x + 2 + step, m.y - 20, kWhite, value});
        // The GPU the run draws on is marked, so its bars are told apart.
        const bool underTest = static_cast<int>(i) == in.gpuUnderTest;
        out->labels.push_back({m.x - 2 + step, m.height + 5 + m.y, underTest ? kYellow : kWhite,
                               StrFormat(underTest ? "GPU%d*" : "GPU%d", static_cast<int>(i))});
    }
}

void AddPanelText(const HudInput& in, HudFrame* out) {
    for (size_t i = 0; i < in.gpus.size(); ++i) {
        const GpuReading& g = in.gpus[i];
        const int top = 150 * static_cast<int>(i);  // the panel's viewport, top-down
        const int x = in.viewWidth - 150 + 20;
        int y = 100;
        auto line = [&](const Color4& c, const std::string& text) {
            out->gpuText.push_back({x, top + y, c, text});
            y += 10;
        };
        line(kPanelYellow, StrFormat(static_cast<int>(i) == in.gpuUnderTest ? "GPU%d - UNDER TEST" : "GPU%d",
                                     static_cast<int>(i) + 1));
        if (!g.name.empty()) line(kWhite, g.name);
        if (g.powerAvailable)
            line(g.powerPercent < 100.0f ? kGreen : kRed, StrFormat("POWER: %d %% TPD", static_cast<int>(g.powerPercent)));
        const int core = g.coreClockOverride > 0 ? g.coreClockOverride : g.coreClock;
        if (core > 0) line(kWhite, StrFormat("CORE: %d MHz", core));
        if (g.throttlingMhz > 2) line(kThrottleBlue, StrFormat("GPU throttling:: -%d MHz", g.throttlingMhz));
        const int mem = g.memoryClockOverride > 0 ? g.memoryClockOverride : g.memoryClock;
        if (mem > 0) line(kWhite, StrFormat("MEM: %d MHz", mem));
        const float vddc = g.vddcOverride > 0.0f ? g.vddcOverride : g.vddc;
        if (vddc > 0.0f) line(kWhite, StrFormat("VDDC: %.3f V", static_cast<double>(vddc)));
    }
}

}  // namespace

HudFrame BuildHud(const HudInput& in) {
    HudFrame out;
    if (!in.allIndicators) return out;

    // While the help is shown the meters move below it and shrink.
    MeterLayout load{in.loadMeter.x, in.loadMeter.y, 0, in.loadMeter.step, in.thermometer.step};
    MeterLayout temp{in.thermometer.x, in.thermometer.y, 0, in.thermometer.step, in.thermometer.step};
    float loadFraction = in.loadMeter.heightFraction, tempFraction = in.thermometer.heightFraction;
    const bool help = in.showHelp && !in.benchmark;
    if (help) {
        load.y = (!in.benchmark && in.xtremeBurnIn) ? 300 : 280;
        temp.y = load.y;
        loadFraction = tempFraction = 0.3f;
    }
    const int burnInShift = (in.xtremeBurnIn && !in.benchmark) ? 30 : 0;
    load.y += burnInShift;
    temp.y += burnInShift;
    load.height = static_cast<int>(in.viewHeight * loadFraction);
    temp.height = static_cast<int>(in.viewHeight * tempFraction);

    if (in.hasSnapshot) {
        if (in.loadMeter.shown) AddBars(in, load, false, &out);
        if (in.thermometer.shown) AddBars(in, temp, true, &out);
        if (in.gpuMonitor && !in.benchmark)
            for (size_t i = 0; i < in.gpus.size(); ++i)
                out.panels.push_back({in.viewWidth - 160, 20 + 150 * static_cast<int>(i), 150, 100, kWhite});
        if (in.tempGraphs && !in.benchmark)
            for (size_t i = 0; i < in.gpus.size(); ++i)
                if (in.gpus[i].hasHistory) out.graphs.push_back(static_cast<int>(i));
        if (in.loadMeter.shown) AddLabels(in, load, false, &out);
        if (in.thermometer.shown) AddLabels(in, temp, true, &out);
        if (in.gpuMonitor && !in.benchmark) AddPanelText(in, &out);
    }
    if (in.generalIndicators) out.textBlock = BuildTextBlock(in.textBlock);
    if (in.generalIndicators && in.checksActive) {
        out.checkLine = {10, in.viewHeight - 25, in.checkErrors > 0 ? kRed : kGreen,
                         StrFormat("Verification: %u checks, %u errors", in.checks, in.checkErrors)};
    }
    return out;
}

HudInput CurrentHudInput(const cLm4DDemo& demo, int viewWidth, int viewHeight, const std::string& adapterText,
                         bool hasSnapshot, const std::vector<GpuReading>& gpus) {
    const StartupOptionsRecord& o = StartupOptions;
    HudInput in;
    in.viewWidth = viewWidth;
    in.viewHeight = viewHeight;
    in.benchmark = RunParameters.run_mode == 1;
    in.xtremeBurnIn = o.xtreme_burn_in || o.xtreme_burn_in_active;
    in.showHelp = demo.show_help;
    in.hasSnapshot = hasSnapshot;
    in.gpus = gpus;
    in.allIndicators = AtomicLoad(o.display_visual_indicators);
    in.generalIndicators = AtomicLoad(o.render_general_indicators);
    in.gpuMonitor = AtomicLoad(o.render_gpu_monitor);
    in.tempGraphs = AtomicLoad(o.render_temp_graphs);
    in.loadMeter = o.gpu_load_graph;
    in.loadMeter.shown = AtomicLoad(o.gpu_load_graph.shown);
    in.thermometer = o.gpu_temp_graph;
    in.thermometer.shown = AtomicLoad(o.gpu_temp_graph.shown);
    in.textBlock = CurrentTextBlockInput(demo, viewWidth, adapterText);
    in.gpuUnderTest = gRunExtras.gpuIndex - 1;
    in.checksActive = gCheckCounters.active;
    in.checks = gCheckCounters.checks;
    in.checkErrors = gCheckCounters.errors;
    return in;
}
