// Generating the fur's dot-pattern textures on the CPU, once per process:
// the uniform set of the "VXA" object (40 layers of 512 x 512, 180000 dots)
// is the largest a normal run makes, the graded set the one of unknown
// objects. Run: build/bench/dot_set_bench
#include <benchmark/benchmark.h>

#include "scenes/fur/fur_scene.h"

namespace {

void BM_UniformDotSetVxa(benchmark::State& state) {
    const FurParams p = SelectFurParams(kFurryVxa, false, false, FurParams{});
    for (auto _ : state) {
        DotSet set = GenerateUniformDotSet(p.numLayerTextures, p.layerTextureSize, p.hairDensity, false);
        benchmark::DoNotOptimize(set.layers.data());
    }
    state.SetLabel("40 layers, 512x512, 180000 dots");
}
BENCHMARK(BM_UniformDotSetVxa)->Unit(benchmark::kMillisecond);

void BM_UniformDotSetTorus(benchmark::State& state) {
    const FurParams p = SelectFurParams(kFurryTorus, false, false, FurParams{});
    for (auto _ : state) {
        DotSet set = GenerateUniformDotSet(p.numLayerTextures, p.layerTextureSize, p.hairDensity, false);
        benchmark::DoNotOptimize(set.layers.data());
    }
    state.SetLabel("50 layers, 512x512, 100000 dots");
}
BENCHMARK(BM_UniformDotSetTorus)->Unit(benchmark::kMillisecond);

void BM_GradedDotSet(benchmark::State& state) {
    const FurParams p = SelectFurParams(0, false, false, FurParams{});
    for (auto _ : state) {
        DotSet set = GenerateGradedDotSet(p.numLayerTextures, p.layerTextureSize, p.hairDensity);
        benchmark::DoNotOptimize(set.layers.data());
    }
    state.SetLabel("12 layers, 256x256, 30000 dots");
}
BENCHMARK(BM_GradedDotSet)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
