// The OpenGL back-ends of the fur test. OpenGL 2 and OpenGL 3 draw the same
// frame with the same code; they differ in the context they ask for, the
// shading-language version, vertex array objects and their log lines.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/gl_context.h"
#include "monitor/temperature.h"
#include "render/font.h"
#include "render/gl_api.h"
#include "scenes/fur/fur_demo.h"
#include "scenes/fur/indicators.h"

class cLm4DDemo_GL : public FurDemoBase {
public:
    ~cLm4DDemo_GL() override;

    bool Init(const RenderTarget& target, int width, int height) override;
    void Terminate() override;
    void ClearScreen() override;
    void Frame(float frameSeconds) override;
    bool UploadDotTextures() override;
    void ReleaseDotTextures() override;
    void Present() override;
    uint64_t FramesFinished() override;
    void FinishFrames() override;
    void BeginOverlay() override;
    void EndOverlay() override;
    void DrawText(int x, int y, const Color4& color, const char* text) override;
    void DrawQuad(int x, int y, int w, int h, const Color4& color, unsigned short stipple = 0xFFFF) override;
    bool ReadBackFrame(std::string* rgba, int* width, int* height) override;
    bool DrawCheckFrame(CheckFrame* out) override;
    int RunComputeCheck() override;

    // How many dot-texture binds the last frame made (a texture changes only
    // when the shell's index does).
    int LastFrameBinds() const { return lastBinds_; }

protected:
    struct Dialect {
        int major, minor;
        bool core;
        const char* header;
        bool useVao;
    };
    virtual Dialect ChooseDialect() const = 0;
    virtual const char* WindowFailureLine() const = 0;
    virtual const char* MinimumLine() const = 0;
    virtual void LogSuccess(int major, int minor) const = 0;
    virtual const char* ImageFailurePrefix() const = 0;

    // The scene under the overlay; the benchmark object draws its stages here
    // and the fur through this class's own.
    virtual void DrawScene();
    // The two halves of the fur scene: the background picture over the whole
    // view, and the skin and shells of the furry object.
    void DrawFurBackground();
    void DrawFurryObject();
    // Called with the overlay begun, after the text block: texts of a
    // subclass's own.
    virtual void DrawOverlayExtras() {}
    platform::GlContext* Context() const { return context_.get(); }
    int ViewWidth() const { return width_; }
    int ViewHeight() const { return height_; }

private:
    struct GpuMesh {
        GLuint vbo = 0, ibo = 0, vao = 0;
        GLsizei count = 0;
    };
    GpuMesh UploadMesh(const Mesh& mesh);
    void DrawMesh(const GpuMesh& m);
    void FreeMesh(GpuMesh& m);
    void DrawScreenQuad(GLuint program);
    void DrawHudQuads(const std::vector<float>& xyuv);
    void PendingCustomImages();
    void DrawFrame();
    void DrawLogos();
    void DrawHud();
    void DrawTemperatureGraphs(const HudFrame& hud);
    void DrawLines(const std::vector<float>& xy, GLenum mode, const float* color);
    void SetSurfaceUniforms(GLuint program, const m3d::Mat4& model);
    bool CreatePostTarget();
    bool CreateCheckTarget();
    void FreeCheckTarget();

    std::unique_ptr<platform::GlContext> context_;
    Dialect dialect_{};
    int width_ = 0, height_ = 0;
    bool anisotropic_ = true;  // off on software rasterizers
    float Anisotropy(float wanted) const { return anisotropic_ ? wanted : 0.0f; }

    GLuint bgProgram_ = 0, skinProgram_ = 0, furProgram_ = 0, blurProgram_ = 0, flatProgram_ = 0, textProgram_ = 0, texturedProgram_ = 0;
    GpuMesh furMesh_, skinMesh_, quad_;
    GLuint hudVbo_ = 0, hudVao_ = 0;
    GLuint bgTexture_ = 0, furTexture_ = 0, makerLogoTex_ = 0, productLogoTex_ = 0, apiLogoTex_ = 0, gpuLogoTex_ = 0;
    GLuint fontTexture_ = 0, smallFontTexture_ = 0;
    FontAtlas font_, smallFont_;
    std::vector<GLuint> dotTextures_;
    GLuint postFbo_ = 0, postColor_ = 0, postDepth_ = 0;
    bool postActive_ = false;
    int lastBinds_ = 0;
    bool smallText_ = false;  // DrawText uses the small face for the panels
    // The check frame's own target: single-sampled, the view's shape at most
    // 256 pixels a side.
    GLuint checkFbo_ = 0, checkColor_ = 0, checkDepth_ = 0;
    int checkWidth_ = 0, checkHeight_ = 0;
    bool drawingCheck_ = false;  // the furry object is drawn even when hidden
    // The compute check's program and buffer (OpenGL 4.3 contexts); state 0
    // untried, 1 ready, -1 not available.
    bool SetUpComputeCheck();
    gl::ComputeApi compute_;
    int computeState_ = 0;
    GLuint computeProgram_ = 0, computeBuffer_ = 0;
    std::vector<uint32_t> computeExpected_;
    int glMajor_ = 0, glMinor_ = 0;
};

class cLm4DDemo_OpenGL_2 : public cLm4DDemo_GL {
public:
    cLm4DDemo_OpenGL_2() { api_id = 2; }

protected:
    Dialect ChooseDialect() const override;
    const char* WindowFailureLine() const override { return "OpenGL 2 window creation failed!"; }
    const char* MinimumLine() const override { return "This test requires at least an OpenGL 2.0 support."; }
    void LogSuccess(int major, int minor) const override;
    const char* ImageFailurePrefix() const override { return "GL2"; }
};

class cLm4DDemo_OpenGL_3 : public cLm4DDemo_GL {
public:
    cLm4DDemo_OpenGL_3() { api_id = 3; }

protected:
    Dialect ChooseDialect() const override;
    const char* WindowFailureLine() const override { return "OpenGL 3 window creation failed!"; }
    const char* MinimumLine() const override { return "This test requires at least an OpenGL 3.3 support."; }
    void LogSuccess(int major, int minor) const override;
    const char* ImageFailurePrefix() const override { return "GL3"; }
};
