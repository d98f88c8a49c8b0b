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

// The applications, one row each: the class the catalogue names, the scene
// it draws and its identifier. The classes and their registration below
// are made from this list, so an application is added in one place.
#define ARD_TEST_APPS(X)                                                        \
    X(cVXA_3DTestApp_GL2_Triangle, glapps::TriangleScene, 2001)                 \
    X(cVXA_3DTestApp_GL2_WavyPlane, glapps::WavyPlaneScene, 2002)               \
    X(cVXA_3DTestApp_GL3_FractalFlame, glapps::FractalFlameScene, 2101)         \
    X(cVXA_3DTestApp_GL4_TessySphere, glapps::TessyScene, 2201)                 \
    X(cVXA_3DTestApp_GL4_TessySpheresOnPlane, glapps::TessyScene, 2202)         \
    X(cVXA_3DTestApp_GL4_TessySpheresOnPlane_v2, glapps::TessyScene, 2203)      \
    X(cVXA_3DTestApp_GL4_FurryTessyTest, glapps::TessyScene, 2204)

#define ARD_DECLARE_TEST_APP(Name, Scene, Id)     \
    class Name : public SceneApp<Scene> {         \
    public:                                       \
        Name() : SceneApp(Id) {}                  \
    };
ARD_TEST_APPS(ARD_DECLARE_TEST_APP)
#undef ARD_DECLARE_TEST_APP

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
#define ARD_REGISTER_TEST_APP(Name, Scene, Id) registry.Register(std::make_unique<Name>());
    ARD_TEST_APPS(ARD_REGISTER_TEST_APP)
#undef ARD_REGISTER_TEST_APP
}

void ForceBenchmarkMode(StartupOptionsRecord& options, RunParametersBlock& run) {
    options.max_time = 60000;
    options.time_based_benchmark = true;
    options.run_mode = 1;
    run.max_time = 60000;
    run.time_based = 1;
    run.run_mode = 1;
}
