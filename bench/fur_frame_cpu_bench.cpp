// The render thread's own work for one fur frame, outside the driver: the
// shell schedule, the HUD layout and the text layout of its lines. What the
// driver then does with the draw calls is not in here.
#include <benchmark/benchmark.h>

#include "render/font.h"
#include "scenes/fur/fur_scene.h"
#include "scenes/fur/indicators.h"

namespace {

void BM_FurFrameCpuWork(benchmark::State& state) {
    FurParams params = SelectFurParams(kFurryVxa, false, false);
    HudInput in;
    in.viewWidth = 1280;
    in.viewHeight = 720;
    in.benchmark = false;
    in.hasSnapshot = true;
    in.gpuMonitor = true;
    in.showHelp = true;
    in.loadMeter = GraphDescriptor{true, 10, 150, 120, 0.5f, 40};
    in.thermometer = GraphDescriptor{true, 150, 150, 120, 0.5f, 40};
    GpuReading g;
    g.load = 97;
    g.temperature = 71;
    g.name = "GPU";
    g.coreClock = 1500;
    g.memoryClock = 5000;
    in.gpus = {g, g};
    in.textBlock.benchmark = false;
    in.textBlock.testName = "Furry VXA GL2";
    in.textBlock.aaMode = "Off";
    in.textBlock.adapterText = "adapter";
    in.textBlock.showHelp = true;

    FontAtlas font;
    std::string error;
    const std::string file = FindHudFontFile("");
    const bool haveFont = !file.empty() && font.Build(file, 15.0f, &error);
    std::vector<float> vertices;
    for (auto _ : state) {
        int binds = 0, last = -1;
        for (int i = 0; i < params.numShells; ++i) {
            FurShell s = FurShellAt(params, i);
            if (s.texture != last) ++binds;
            last = s.texture;
            benchmark::DoNotOptimize(s);
        }
        HudFrame hud = BuildHud(in);
        if (haveFont) {
            for (const TextLine& l : hud.textBlock) {
                vertices.clear();
                font.Layout(l.text, static_cast<float>(l.x), static_cast<float>(l.y), &vertices);
            }
            for (const HudText& t : hud.labels) {
                vertices.clear();
                font.Layout(t.text, static_cast<float>(t.x), static_cast<float>(t.y), &vertices);
            }
        }
        benchmark::DoNotOptimize(binds);
        benchmark::DoNotOptimize(hud);
    }
    state.SetLabel(haveFont ? "with text layout" : "no font: text layout left out");
}
BENCHMARK(BM_FurFrameCpuWork)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
