// The render thread's own work per frame of each GL test application,
// outside the driver: every OpenGL entry point is a function that returns at
// once, so what is timed is the scene's CPU side (uniforms, matrices, the
// panel's values, the load line), not what a driver does with the calls.
// Run: build/bench/glapps_cpu_bench
#include <benchmark/benchmark.h>

#include "render/gl_api.h"
#include "scenes/glapps/glapp_scenes.h"

namespace {

extern "C" long ReturnsAtOnce() { return 0; }
void* Lookup(const char*) { return reinterpret_cast<void*>(&ReturnsAtOnce); }

// Opens the scene's drawing to the bench; the first frame (outside the
// timing) builds the buffers the scene makes on demand.
template <typename Scene>
class Unplugged : public Scene {
public:
    explicit Unplugged(int id) : Scene(id) {
        gl::LoadFunctions(Lookup);
        this->extra_.Load(Lookup);
        this->gl4_.Load(Lookup);
        this->DrawScene();
    }
    void Draw() {
        this->DrawScene();
        benchmark::DoNotOptimize(this->LoadLine());
    }
};

template <typename Scene>
void BM_Frame(benchmark::State& state) {
    Unplugged<Scene> scene(static_cast<int>(state.range(0)));
    for (auto _ : state) scene.Draw();
}

}  // namespace

BENCHMARK_TEMPLATE(BM_Frame, glapps::TriangleScene)->Arg(2001);
BENCHMARK_TEMPLATE(BM_Frame, glapps::WavyPlaneScene)->Arg(2002);
BENCHMARK_TEMPLATE(BM_Frame, glapps::FractalFlameScene)->Arg(2101);
BENCHMARK_TEMPLATE(BM_Frame, glapps::TessyScene)->Arg(2201)->Arg(2202)->Arg(2203)->Arg(2204);
BENCHMARK_MAIN();
