// The OpenGL back-ends of the fur test: an OpenGL device beneath the
// FurPainter, so that OpenGL draws the frame the Direct3D back-ends draw.
// OpenGL 2 and OpenGL 3 differ in the context they ask for, the
// shading-language version, vertex array objects and their log lines. The
// benchmark and the GL test applications build on this class for their
// context, HUD and presentation and draw scenes of their own.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/gl_context.h"
#include "render/gl_api.h"
#include "scenes/fur/fur_painter.h"

class cLm4DDemo_GL : public FurPainter {
public:
    ~cLm4DDemo_GL() override;

    uint64_t FramesFinished() override;
    void FinishFrames() override;
    int RunComputeCheck() override;

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
    // Logged once the whole set-up has worked, with the version the context got.
    virtual std::string SuccessLine(int major, int minor) const = 0;
    virtual const char* ImageFailurePrefix() const = 0;

    platform::GlContext* Context() const { return context_.get(); }
    int ViewWidth() const { return width_; }
    int ViewHeight() const { return height_; }

    // The device.
    bool CreateDevice(const RenderTarget& target, int width, int height) override;
    bool CreatePrograms(int radialBlurSamples) override;
    void DestroyDevice() override;
    bool HasDevice() const override { return context_ != nullptr; }
    TextureId CreateTexture(const std::vector<Image>& levels) override;
    void FreeTexture(TextureId texture) override;
    MeshId CreateMesh(const Mesh& mesh) override;
    bool CreatePostTarget() override;
    void BeginScene(bool toPostTarget) override;
    void BeginPostPass() override;
    void UseProgram(PaintProgram program, PaintBlend blend, bool depthTest, bool depthWrite) override;
    void SetSurfaceConstants(const SurfaceConstants& c) override;
    void SetElapsedTime(float seconds) override;
    void SetColor(const float rgba[4]) override;
    void BindTexture(PaintStage stage, TextureId texture) override;
    void DrawMesh(MeshId mesh) override;
    void DrawVertices(const std::vector<PaintVertex>& vertices, PaintPrimitive primitive) override;
    void ClearBackBuffer(const float rgba[4]) override;
    void PresentBackBuffer() override;
    bool ReadBackBuffer(std::string* rgba) override;
    bool ReadPostTarget(std::string* rgba) override;
    const char* ImagePrefix() const override { return ImageFailurePrefix(); }
    std::string InitLine() const override { return SuccessLine(glMajor_, glMinor_); }
    int Samples() const override;
    bool BeginCheckScene(int* width, int* height) override;
    bool ReadCheckScene(std::string* rgba) override;

private:
    struct GpuMesh {
        GLuint vbo = 0, ibo = 0, vao = 0;
        GLsizei count = 0;
    };
    // A texture and the sampling its parameters were last set for (OpenGL 2
    // has no sampler objects: wrapping and filtering live in the texture).
    struct GpuTexture {
        GLuint name = 0;
        bool mipmapped = false;
        int sampling = -1;
    };
    // Where a program's surface values are, and the values last given to
    // it: a shell changes only its length and layer, so only those go out.
    struct SurfaceSlots {
        GLint model = -1, view = -1, viewUpper = -1, projection = -1, modelView = -1, normal = -1, wvp = -1;
        GLint uvScale = -1, furLength = -1, layer = -1;
        bool given = false;
        SurfaceConstants last;
    };
    GLuint ProgramOf(PaintProgram program) const { return programs_[static_cast<int>(program)]; }
    void ReadFramebuffer(GLuint framebuffer, int width, int height, std::string* rgba);
    // Binds a target, sets the viewport to it and clears colour to black and depth to 1.
    void ClearTarget(GLuint framebuffer, int width, int height);
    bool SetUpComputeCheck();
    void FreeCheckTarget();

    std::unique_ptr<platform::GlContext> context_;
    Dialect dialect_{};
    bool anisotropic_ = true;  // off on software rasterizers
    int glMajor_ = 0, glMinor_ = 0;

    static constexpr int kPrograms = 6;
    GLuint programs_[kPrograms] = {};
    SurfaceSlots surface_[kPrograms];
    // Where each program's colour and time are: set many times a frame (every
    // HUD text), so looked up once.
    GLint colorSlot_[kPrograms] = {}, timeSlot_[kPrograms] = {};
    PaintProgram current_ = PaintProgram::kBackground;
    std::vector<GpuTexture> textures_;  // id - 1
    std::vector<GpuMesh> meshes_;       // id - 1
    GLuint streamVbo_ = 0, streamVao_ = 0;
    GLuint postFbo_ = 0, postColor_ = 0, postDepth_ = 0;
    // The check frame's own target: single-sampled, the view's shape at most
    // 256 pixels a side.
    GLuint checkFbo_ = 0, checkColor_ = 0, checkDepth_ = 0;
    int checkWidth_ = 0, checkHeight_ = 0;
    // The compute check's program and buffer (OpenGL 4.3 contexts); state 0
    // untried, 1 ready, -1 not available.
    gl::ComputeApi compute_;
    int computeState_ = 0;
    GLuint computeProgram_ = 0, computeBuffer_ = 0;
};

class cLm4DDemo_OpenGL_2 : public cLm4DDemo_GL {
public:
    cLm4DDemo_OpenGL_2() { api_id = 2; }

protected:
    Dialect ChooseDialect() const override;
    const char* WindowFailureLine() const override { return "OpenGL 2 window creation failed!"; }
    const char* MinimumLine() const override { return "This test requires at least an OpenGL 2.0 support."; }
    std::string SuccessLine(int major, int minor) const override;
    const char* ImageFailurePrefix() const override { return "GL2"; }
};

class cLm4DDemo_OpenGL_3 : public cLm4DDemo_GL {
public:
    cLm4DDemo_OpenGL_3() { api_id = 3; }

protected:
    Dialect ChooseDialect() const override;
    const char* WindowFailureLine() const override { return "OpenGL 3 window creation failed!"; }
    const char* MinimumLine() const override { return "This test requires at least an OpenGL 3.3 support."; }
    std::string SuccessLine(int major, int minor) const override;
    const char* ImageFailurePrefix() const override { return "GL3"; }
};
