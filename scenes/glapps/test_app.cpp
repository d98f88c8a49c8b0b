#include "scenes/glapps/test_app.h"

#include "core/settings.h"
#include "runner/catalogue.h"
#include "scenes/glapps/glapp_scenes.h"

TestAppRegistry gTestApps;

namespace {

const TestAppInfo& InfoOf(int id) {
    static const TestAppInfo kNone{0, "", "", ""};
    const TestAppInfo* info = FindTestApp(id);
    return info ? *info : kNone;
}

template <typename Scene>
class SceneApp : public cVXA_3DTestApp {
public:
    explicit SceneApp(int id) : cVXA_3DTestApp(id) {}
    std::unique_ptr<cLm4DDemo> CreateScene() const override { return std::make_unique<Scene>(id); }
};

}  // namespace

cVXA_3DTestApp::cVXA_3DTestApp(int appId)
    : id(appId), displayName(InfoOf(appId).displayName), description(InfoOf(appId).description),
      link(InfoOf(appId).link) {}

// One class per application, as the catalogue names them.
class cVXA_3DTestApp_GL2_Triangle : public SceneApp<glapps::TriangleScene> {
public:
    cVXA_3DTestApp_GL2_Triangle() : SceneApp(2001) {}
};
class cVXA_3DTestApp_GL2_WavyPlane : public SceneApp<glapps::WavyPlaneScene> {
public:
    cVXA_3DTestApp_GL2_WavyPlane() : SceneApp(2002) {}
};
class cVXA_3DTestApp_GL3_FractalFlame : public SceneApp<glapps::FractalFlameScene> {
public:
    cVXA_3DTestApp_GL3_FractalFlame() : SceneApp(2101) {}
};
class cVXA_3DTestApp_GL4_TessySphere : public SceneApp<glapps::TessyScene> {
public:
    cVXA_3DTestApp_GL4_TessySphere() : SceneApp(2201) {}
};
class cVXA_3DTestApp_GL4_TessySpheresOnPlane : public SceneApp<glapps::TessyScene> {
public:
    cVXA_3DTestApp_GL4_TessySpheresOnPlane() : SceneApp(2202) {}
};
class cVXA_3DTestApp_GL4_TessySpheresOnPlane_v2 : public SceneApp<glapps::TessyScene> {
public:
    cVXA_3DTestApp_GL4_TessySpheresOnPlane_v2() : SceneApp(2203) {}
};
class cVXA_3DTestApp_GL4_FurryTessyTest : public SceneApp<glapps::TessyScene> {
public:
    cVXA_3DTestApp_GL4_FurryTessyTest() : SceneApp(2204) {}
};

bool cVXA_3DTestApp::StartRenderThread(DisplayKind kind, Run3DServices services) const {
    auto others = services.createDemo;
    services.createDemo = [this, others](DemoClass c) -> std::unique_ptr<cLm4DDemo> {
        switch (c) {
            case DemoClass::TestAppGL2:
            case DemoClass::TestAppGL3:
            case DemoClass::TestAppGL4: return CreateScene();
            default: return others(c);
        }
    };
    return Start3DRun(kind, services);
}

void TestAppRegistry::Register(std::unique_ptr<cVXA_3DTestApp> app) { apps_.push_back(std::move(app)); }

cVXA_3DTestApp* TestAppRegistry::Select(int id) {
    if (selected_) return nullptr;
    for (auto& app : apps_) {
        if (app->id != id) continue;
        selected_ = app.get();
        return selected_;
    }
    return nullptr;
}

void TestAppRegistry::Clear() {
    selected_ = nullptr;
    apps_.clear();
}

void RegisterTestApps(TestAppRegistry& registry) {
    registry.Register(std::make_unique<cVXA_3DTestApp_GL2_Triangle>());
    registry.Register(std::make_unique<cVXA_3DTestApp_GL2_WavyPlane>());
    registry.Register(std::make_unique<cVXA_3DTestApp_GL3_FractalFlame>());
    registry.Register(std::make_unique<cVXA_3DTestApp_GL4_TessySphere>());
    registry.Register(std::make_unique<cVXA_3DTestApp_GL4_TessySpheresOnPlane>());
    registry.Register(std::make_unique<cVXA_3DTestApp_GL4_TessySpheresOnPlane_v2>());
    registry.Register(std::make_unique<cVXA_3DTestApp_GL4_FurryTessyTest>());
}

void ForceBenchmarkMode(StartupOptionsRecord& options, RunParametersBlock& run) {
    options.max_time = 60000;
    options.time_based_benchmark = true;
    options.run_mode = 1;
    run.max_time = 60000;
    run.time_based = 1;
    run.run_mode = 1;
}
