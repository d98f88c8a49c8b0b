// The scenes of the GL test applications. Each draws on the fur test's
// OpenGL back-end (its context, text block, logos and read-back) and puts
// its own load where the fur would be, with a parameter panel of its own.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "render/gl4_api.h"
#include "scenes/fur/fur_gl.h"

namespace glapps {

// One value of the panel; written by the UI thread's keys, read each frame.
struct Param {
    const char* name;
    float min, max, step;
    bool toggle;  // shown as on/off; the step flips it
    std::atomic<float> value;
    Param(const char* n, float v, float lo, float hi, float st, bool t = false)
        : name(n), min(lo), max(hi), step(st), toggle(t), value(v) {}
};

// Where the keys move the panel: the chosen row, and a row's new value.
// Pure, for tests: Up/Down move the row (wrapping), Left/Right step the value
// within its range (a toggle flips).
float SteppedValue(const Param& p, float current, int direction);

// Entry points beyond the shared table: transform feedback and polygon modes.
struct ExtraApi {
    void(ARD_GLAPI* TransformFeedbackVaryings)(GLuint, GLsizei, const char* const*, GLenum) = nullptr;
    void(ARD_GLAPI* BeginTransformFeedback)(GLenum) = nullptr;
    void(ARD_GLAPI* EndTransformFeedback)() = nullptr;
    void(ARD_GLAPI* BindBufferBase)(GLenum, GLuint, GLuint) = nullptr;
    void(ARD_GLAPI* PolygonMode)(GLenum, GLenum) = nullptr;
    void(ARD_GLAPI* Uniform1ui)(GLint, GLuint) = nullptr;
    void(ARD_GLAPI* Uniform2f)(GLint, GLfloat, GLfloat) = nullptr;
    std::string Load(gl::ProcLookup lookup);
};

class GlAppScene : public cLm4DDemo_GL {
public:
    GlAppScene(int appId, int api);
    ~GlAppScene() override;
    bool Init(const RenderTarget& target, int width, int height) override;
    void Terminate() override;
    void Frame(float frameSeconds) override;
    bool PanelKey(RunKey key) override;

    std::vector<Param*> Params() const;
    bool PanelShown() const { return panelShown_.load(); }
    int PanelRow() const { return panelRow_.load(); }

protected:
    // The application's own resources and drawing, on the run's context.
    virtual bool InitApp() = 0;
    virtual void DrawApp() = 0;
    virtual void TerminateApp() = 0;
    // What the load is now, for the line under the text block.
    virtual std::string LoadLine() const = 0;

    Param& AddParam(const char* name, float value, float lo, float hi, float step, bool toggle = false);
    // A parameter's value; while the check frame is drawn, the value it had
    // when the reference was, so that turning a knob mid-run is no error.
    float Value(const Param& p) const { return checkDrawing_ ? CheckValue(p) : p.value.load(std::memory_order_relaxed); }
    // True for applications whose picture follows from the animation time
    // and the parameters alone: their check frame is their own scene at the
    // fixed moment. The others (the fractal flame accumulates over frames)
    // are checked with the fur scene.
    virtual bool DrawsOwnCheckFrame() const { return false; }
    void DrawCheckScene() override;
    float AnimationTime() const { return animationTime_; }
    void SetWireframe(bool on);

    Dialect ChooseDialect() const override;
    const char* WindowFailureLine() const override;
    const char* MinimumLine() const override;
    std::string SuccessLine(int major, int minor) const override;
    const char* ImageFailurePrefix() const override { return logPrefix_; }
    void DrawScene() override;
    void DrawOverlayExtras() override;

    const int appId_;
    const int api_;
    gl4::Api gl4_;
    ExtraApi extra_;
    Param* speed_ = nullptr;

private:
    void DrawPanel();
    void InitPanel();
    void FreePanel();
    float CheckValue(const Param& p) const;
    void ResetAppState();

    const char* logPrefix_;
    std::vector<std::unique_ptr<Param>> params_;
    std::vector<float> seen_;  // the values the last frame drew with
    std::atomic<bool> panelShown_{false};
    std::atomic<int> panelRow_{0};
    float animationTime_ = 0.0f;
    std::vector<float> checkValues_;  // the parameters when the reference was drawn
    bool checkDrawing_ = false;
    void* imgui_ = nullptr;  // the panel's own GUI context
    bool imguiBackend_ = false;
    bool appUp_ = false;
};

// 2001: one triangle, as many times a second as the card allows.
class TriangleScene : public GlAppScene {
public:
    explicit TriangleScene(int appId);

protected:
    bool DrawsOwnCheckFrame() const override { return true; }
    bool InitApp() override;
    void DrawApp() override;
    void TerminateApp() override;
    std::string LoadLine() const override;

private:
    GLuint program_ = 0, vbo_ = 0;
};

// 2002: a grid of N x N vertices whose height is a sum of waves computed in
// the vertex shader.
class WavyPlaneScene : public GlAppScene {
public:
    explicit WavyPlaneScene(int appId);

protected:
    bool InitApp() override;
    void DrawApp() override;
    void TerminateApp() override;
    std::string LoadLine() const override;

private:
    bool BuildGrid(int side);
    Param* side_ = nullptr;
    Param* wireframe_ = nullptr;
    Param* height_ = nullptr;
    GLuint program_ = 0, vbo_ = 0, ibo_ = 0;
    int builtSide_ = 0;
    GLsizei indexCount_ = 0;
};

// 2101: particles iterated through a random iterated function system on the
// GPU (transform feedback, ping-pong buffers), splatted additively into a
// floating-point density buffer and tone-mapped by log density.
class FractalFlameScene : public GlAppScene {
public:
    explicit FractalFlameScene(int appId);

protected:
    bool InitApp() override;
    void DrawApp() override;
    void TerminateApp() override;
    std::string LoadLine() const override;

private:
    bool BuildParticles(int count);
    Param* count_ = nullptr;
    Param* pointSize_ = nullptr;
    Param* persistence_ = nullptr;
    Param* iterations_ = nullptr;
    Param* gamma_ = nullptr;
    GLuint iterateProgram_ = 0, splatProgram_ = 0, toneProgram_ = 0, fadeProgram_ = 0;
    bool densityFresh_ = false;
    GLuint vao_[2] = {0, 0}, vbo_[2] = {0, 0}, quadVao_ = 0;
    GLuint densityFbo_ = 0, densityTex_ = 0;
    int current_ = 0, builtCount_ = 0;
    unsigned frameCounter_ = 0;
};

// 2201-2204: tessellated spheres; with a plane (tessellated for 2203) and
// soft shadows for 2202/2203; with fur shells over the tessellated object
// for 2204.
class TessyScene : public GlAppScene {
public:
    explicit TessyScene(int appId);

protected:
    bool DrawsOwnCheckFrame() const override { return true; }
    bool InitApp() override;
    void DrawApp() override;
    void TerminateApp() override;
    std::string LoadLine() const override;

private:
    Param* level_ = nullptr;
    Param* wireframe_ = nullptr;
    Param* shells_ = nullptr;
    Param* ripple_ = nullptr;
    GLuint sphereProgram_ = 0, planeProgram_ = 0, furProgram_ = 0;
    GLuint sphereVao_ = 0, sphereVbo_ = 0, sphereIbo_ = 0, planeVao_ = 0, planeVbo_ = 0;
    GLsizei sphereIndices_ = 0, planeVertices_ = 0;
    bool withPlane_ = false, tessellatedPlane_ = false, withFur_ = false;
};

}  // namespace glapps
