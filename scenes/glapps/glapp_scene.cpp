#include <algorithm>
#include <cmath>
#include <cstdio>
#include <type_traits>

#include <imgui.h>
#include <backends/imgui_impl_opengl3.h>

#include "core/event_log.h"
#include "core/settings.h"
#include "platform/gl_context.h"
#include "platform/str_format.h"
#include "scenes/fur/fur_shaders.h"
#include "scenes/glapps/glapp_scenes.h"

namespace glapps {

float SteppedValue(const Param& p, float current, int direction) {
    if (p.toggle) return current != 0.0f ? 0.0f : 1.0f;
    const float v = current + p.step * static_cast<float>(direction);
    return std::max(p.min, std::min(p.max, v));
}

std::string ExtraApi::Load(gl::ProcLookup lookup) {
    std::string missing;
    auto get = [&](auto& fn, const char* name) {
        fn = reinterpret_cast<std::remove_reference_t<decltype(fn)>>(lookup(name));
        if (!fn) missing += std::string(missing.empty() ? "" : ", ") + name;
    };
    get(TransformFeedbackVaryings, "glTransformFeedbackVaryings");
    get(BeginTransformFeedback, "glBeginTransformFeedback");
    get(EndTransformFeedback, "glEndTransformFeedback");
    get(BindBufferBase, "glBindBufferBase");
    get(PolygonMode, "glPolygonMode");
    get(Uniform1ui, "glUniform1ui");
    get(Uniform2f, "glUniform2f");
    return missing;
}

GlAppScene::GlAppScene(int appId, int api)
    : appId_(appId), api_(api), logPrefix_(api == 4 ? "GL4" : api == 3 ? "GL3" : "GL2") {
    api_id = api;
    speed_ = &AddParam("Animation speed", 1.0f, 0.0f, 4.0f, 0.25f);
}

GlAppScene::~GlAppScene() {
    // The application's part is gone by now; the runner ended it through
    // Terminate before deleting the object.
    appUp_ = false;
    Terminate();
}

Param& GlAppScene::AddParam(const char* name, float value, float lo, float hi, float step, bool toggle) {
    params_.push_back(std::make_unique<Param>(name, std::max(lo, std::min(hi, value)), lo, hi, step, toggle));
    return *params_.back();
}

std::vector<Param*> GlAppScene::Params() const {
    std::vector<Param*> out;
    for (const auto& p : params_) out.push_back(p.get());
    return out;
}

cLm4DDemo_GL::Dialect GlAppScene::ChooseDialect() const {
    if (api_ == 4) return Dialect{4, 0, true, fur_glsl::kHeader150, true};
    if (api_ == 3) return Dialect{3, 3, false, fur_glsl::kHeader150, true};
    return Dialect{2, 0, false, fur_glsl::kHeader120, false};
}

const char* GlAppScene::WindowFailureLine() const {
    return api_ == 4 ? "OpenGL 4 window creation failed!" : api_ == 3 ? "OpenGL 3 window creation failed!"
                                                                  : "OpenGL 2 window creation failed!";
}

const char* GlAppScene::MinimumLine() const {
    return api_ == 4 ? "This test requires at least an OpenGL 4.0 support."
                     : api_ == 3 ? "This test requires at least an OpenGL 3.3 support."
                                 : "This test requires at least an OpenGL 2.0 support.";
}

std::string GlAppScene::SuccessLine(int major, int minor) const {
    // The same lines as the other tests' contexts of each generation.
    if (api_ == 4) return StrFormat("OpenGL 4 (%d.%d) context with core profile init ok.", major, minor);
    if (api_ == 3) return StrFormat("OpenGL 3 (%d.%d) context with compatibility profile init ok.", major, minor);
    return StrFormat("OpenGL 2 (%d.%d) context init ok.", major, minor);
}

bool GlAppScene::Init(const RenderTarget& target, int width, int height) {
    if (!cLm4DDemo_GL::Init(target, width, height)) return false;
    std::string missing = extra_.Load(platform::CurrentGlProcAddress);
    if (api_ == 4) {
        const std::string more = gl4_.Load(platform::CurrentGlProcAddress);
        if (!more.empty()) missing += (missing.empty() ? "" : ", ") + more;
    }
    if (!missing.empty()) {
        gEventLog.Write("%s: missing entry points: %s", display_name.c_str(), missing.c_str());
        return false;
    }
    // What a failed start made is released by Terminate as well.
    appUp_ = true;
    if (!InitApp()) {
        gEventLog.Write("%s: the test's programs or buffers could not be made (see above).", display_name.c_str());
        return false;
    }
    InitPanel();
    if (gRunExtras.glappPanel) panelShown_ = true;
    gEventLog.Write("%s init ok (%s).", display_name.c_str(), LoadLine().c_str());
    return true;
}

void GlAppScene::Terminate() {
    if (Context()) {
        FreePanel();
        if (appUp_) TerminateApp();
    }
    appUp_ = false;
    cLm4DDemo_GL::Terminate();
}

void GlAppScene::Frame(float frameSeconds) {
    // What the panel changed is logged where it takes effect, so a long
    // stability run's log says which load ran when.
    if (seen_.size() != params_.size()) {
        for (const auto& p : params_) seen_.push_back(Value(*p));
    }
    for (size_t i = 0; i < params_.size(); ++i) {
        const float v = Value(*params_[i]);
        if (v == seen_[i]) continue;
        gEventLog.Write("%s: %s %g -> %g.", display_name.c_str(), params_[i]->name, static_cast<double>(seen_[i]),
                        static_cast<double>(v));
        seen_[i] = v;
    }
    if (gRunExtras.animationTime >= 0.0f)
        animationTime_ = gRunExtras.animationTime;
    else
        animationTime_ += frameSeconds * Value(*speed_);
    cLm4DDemo_GL::Frame(frameSeconds);
}

void GlAppScene::SetWireframe(bool on) {
    extra_.PolygonMode(0x0408 /* FRONT_AND_BACK */, on ? 0x1B01 /* LINE */ : 0x1B02 /* FILL */);
}

void GlAppScene::DrawScene() {
    // The application's load replaces the fur; what it leaves in the
    // pipeline state is put back before the overlay draws.
    DrawApp();
    ResetAppState();
}

void GlAppScene::ResetAppState() {
    SetWireframe(false);
    gl::BindVertexArray(0);
    gl::UseProgram(0);
    gl::BindBuffer(gl::ARRAY_BUFFER, 0);
    gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, 0);
}

void GlAppScene::DrawCheckScene() {
    if (!DrawsOwnCheckFrame()) {
        cLm4DDemo_GL::DrawCheckScene();
        return;
    }
    // The first check frame is the reference: the values it is drawn with
    // are the ones every later check uses.
    if (checkValues_.size() != params_.size()) {
        checkValues_.clear();
        for (const auto& p : params_) checkValues_.push_back(p->value.load());
        gEventLog.Write("%s: the check frame is the test's own scene (at %g s, with the parameters it started with).",
                        display_name.c_str(), static_cast<double>(kCheckAnimationSeconds));
    }
    const float time = animationTime_;
    animationTime_ = kCheckAnimationSeconds;
    checkDrawing_ = true;
    DrawApp();
    checkDrawing_ = false;
    animationTime_ = time;
    ResetAppState();
}

float GlAppScene::CheckValue(const Param& p) const {
    for (size_t i = 0; i < params_.size() && i < checkValues_.size(); ++i)
        if (params_[i].get() == &p) return checkValues_[i];
    return p.value.load(std::memory_order_relaxed);
}

bool GlAppScene::PanelKey(RunKey key) {
    const int rows = static_cast<int>(params_.size());
    if (key == RunKey::F2) {
        panelShown_ = !panelShown_;
        return true;
    }
    if (!panelShown_ || rows == 0) return false;
    int row = panelRow_;
    switch (key) {
        case RunKey::Up: panelRow_ = (row + rows - 1) % rows; return true;
        case RunKey::Down: panelRow_ = (row + 1) % rows; return true;
        case RunKey::Left:
        case RunKey::Right: {
            Param& p = *params_[static_cast<size_t>(row)];
            p.value = SteppedValue(p, p.value.load(), key == RunKey::Right ? 1 : -1);
            return true;
        }
        default: return false;
    }
}

void GlAppScene::InitPanel() {
    // The panel library draws through OpenGL 3 programs; an older context
    // keeps the key controls and the load line only.
    GLint major = 0;
    gl::GetIntegerv(0x821B /* MAJOR_VERSION */, &major);
    if (major < 3) {
        gEventLog.Write("%s: parameter panel not available on this context (OpenGL 3 needed).", display_name.c_str());
        return;
    }
    ImGuiContext* previous = ImGui::GetCurrentContext();
    ImGuiContext* mine = ImGui::CreateContext();
    ImGui::SetCurrentContext(mine);
    ImGui::GetIO().IniFilename = nullptr;
    ImGui::GetIO().LogFilename = nullptr;
    ImGui::StyleColorsDark();
    imguiBackend_ = ImGui_ImplOpenGL3_Init(api_ == 4 ? "#version 150" : "#version 130");
    if (!imguiBackend_) {
        ImGui::DestroyContext(mine);
        mine = nullptr;
        gEventLog.Write("%s: parameter panel could not start.", display_name.c_str());
    }
    imgui_ = mine;
    ImGui::SetCurrentContext(previous);
}

void GlAppScene::FreePanel() {
    if (!imgui_) return;
    ImGuiContext* previous = ImGui::GetCurrentContext();
    ImGui::SetCurrentContext(static_cast<ImGuiContext*>(imgui_));
    if (imguiBackend_) ImGui_ImplOpenGL3_Shutdown();
    ImGui::DestroyContext(static_cast<ImGuiContext*>(imgui_));
    ImGui::SetCurrentContext(previous == imgui_ ? nullptr : previous);
    imgui_ = nullptr;
    imguiBackend_ = false;
}

void GlAppScene::DrawOverlayExtras() {
    const Color4 amber{1.0f, 0.8f, 0.3f, 1.0f};
    char line[200];
    std::snprintf(line, sizeof line, "%s - F2: parameters", LoadLine().c_str());
    DrawText(10, ViewHeight() - 24, amber, line);
    if (panelShown_) DrawPanel();
}

void GlAppScene::DrawPanel() {
    const int rows = static_cast<int>(params_.size());
    const int chosen = panelRow_;
    if (!imgui_) {
        // Without the panel library the rows are drawn as text.
        for (int i = 0; i < rows; ++i) {
            const Param& p = *params_[static_cast<size_t>(i)];
            char line[96];
            std::snprintf(line, sizeof line, "%s %s: %g", i == chosen ? ">" : " ", p.name, static_cast<double>(Value(p)));
            DrawText(ViewWidth() - 260, 40 + 18 * i, Color4{1, 1, 1, 1}, line);
        }
        return;
    }
    ImGuiContext* previous = ImGui::GetCurrentContext();
    ImGui::SetCurrentContext(static_cast<ImGuiContext*>(imgui_));
    ImGuiIO& io = ImGui::GetIO();
    io.DisplaySize = ImVec2(static_cast<float>(ViewWidth()), static_cast<float>(ViewHeight()));
    io.DeltaTime = std::max(frame_seconds, 0.001f);
    ImGui_ImplOpenGL3_NewFrame();
    ImGui::NewFrame();
    ImGui::SetNextWindowPos(ImVec2(static_cast<float>(ViewWidth()) - 240.0f, 30.0f), ImGuiCond_Always);
    ImGui::SetNextWindowSize(ImVec2(230.0f, 0.0f), ImGuiCond_Always);
    ImGui::SetNextWindowBgAlpha(0.75f);
    ImGui::Begin("Parameters", nullptr, ImGuiWindowFlags_NoSavedSettings | ImGuiWindowFlags_NoCollapse);
    ImGui::TextDisabled("Arrows: choose, change");
    for (int i = 0; i < rows; ++i) {
        const Param& p = *params_[static_cast<size_t>(i)];
        const float v = Value(p);
        char text[96];
        if (p.toggle)
            std::snprintf(text, sizeof text, "%s: %s", p.name, v != 0.0f ? "on" : "off");
        else
            std::snprintf(text, sizeof text, "%s: %g", p.name, static_cast<double>(v));
        ImGui::Selectable(text, i == chosen);
        if (!p.toggle && p.max > p.min) ImGui::ProgressBar((v - p.min) / (p.max - p.min), ImVec2(-1.0f, 4.0f), "");
    }
    ImGui::End();
    ImGui::Render();
    ImGui_ImplOpenGL3_RenderDrawData(ImGui::GetDrawData());
    ImGui::SetCurrentContext(previous);
}

}  // namespace glapps
