// The frame of the fur test drawn through a small device interface: the
// OpenGL and Direct3D back-ends implement only the device (buffers,
// textures, states, shaders and the swap chain) and share the scene, the
// shell loop, the post effect, the logos and the HUD written here once, so
// that every one of them draws the same picture.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "monitor/temperature.h"
#include "platform/frame_pipeline.h"
#include "render/font.h"
#include "render/math3d.h"
#include "render/mesh.h"
#include "scenes/fur/fur_demo.h"

// Every vertex the painter hands a device has the mesh layout: position,
// normal, texture coordinate (8 floats). HUD vertices are in pixels, y down.
struct PaintVertex {
    float x, y, z;
    float nx, ny, nz;
    float u, v;
};
static_assert(sizeof(PaintVertex) == kMeshFloatsPerVertex * sizeof(float), "one vertex layout for all draws");

// What the programs of a back-end compute; each back-end maps them onto its
// own programs, techniques or entry points.
enum class PaintProgram {
    kBackground,  // full-view picture
    kSkin,        // the object's opaque surface, two lights
    kFur,         // one shell
    kPostFx,      // radial blur of the scene target onto the view
    kHudFlat,     // HUD rectangles and lines in one colour
    kHudTextured, // HUD pictures and text: texture times colour
};

enum class PaintBlend {
    kOpaque,
    kAlpha,           // source alpha, one minus source alpha
    kAdditive,        // one, one
    kInverseColorAdd, // one minus source colour, one
};

enum class PaintPrimitive { kTriangles, kLineStrip, kLines };

// Values of the surface programs for one draw; matrices are column-major
// and act on column vectors, as the OpenGL back-ends use them.
struct SurfaceConstants {
    m3d::Mat4 world, view, projection, modelView, worldViewProjection;
    float furLength = 0.0f;
    float layer = 0.0f;
    float uvScale = 1.0f;
    // How opaque the shell's hairs are: (1 - layer) to the fifth, worked out
    // here once per shell instead of per pixel.
    float furFade = 1.0f;
};

// Texture stages the programs read: the picture (or the scene target) and
// the shell's dot texture (or the post effect's tile).
enum PaintStage { kStageColor = 0, kStageDots = 1 };

// Mip levels of a picture, largest first, each level half the size of the
// one before (at least 1), box-filtered. Rows keep the order they came in.
std::vector<Image> MipChain(const Image& base);

class FurPainter : public FurDemoBase {
public:
    ~FurPainter() override;

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
    // The fur scene at a fixed moment, into the target BeginCheckScene
    // chooses.
    bool DrawCheckFrame(CheckFrame* out) override;

    int LastFrameBinds() const { return lastBinds_; }

protected:
    using TextureId = int;  // 0: none
    using MeshId = int;     // 0: none

    // The device. Create* log their own failure lines and return false or 0.
    virtual bool CreateDevice(const RenderTarget& target, int width, int height) = 0;
    virtual bool CreatePrograms(int radialBlurSamples) = 0;
    // Releases everything the device made, the device last. Safe to call
    // when CreateDevice failed half-way.
    virtual void DestroyDevice() = 0;
    virtual bool HasDevice() const = 0;
    // Levels as given: level 0 first. The rows are in OpenGL's order
    // (bottom row first for pictures), so texture coordinates mean the same
    // on every back-end. Wrapping or clamping is the program's choice (its
    // sampler), not the texture's.
    virtual TextureId CreateTexture(const std::vector<Image>& levels) = 0;
    virtual void FreeTexture(TextureId texture) = 0;
    virtual MeshId CreateMesh(const Mesh& mesh) = 0;
    // A colour target the size of the view for the post effect; false when
    // it cannot be made (the post effect is then off).
    virtual bool CreatePostTarget() = 0;
    // Binds the scene target (or the back buffer), sets the whole view and
    // clears colour to black and depth to 1.
    virtual void BeginScene(bool toPostTarget) = 0;
    // Back to the back buffer with the scene target bound on the colour stage.
    virtual void BeginPostPass() = 0;
    virtual void UseProgram(PaintProgram program, PaintBlend blend, bool depthTest, bool depthWrite) = 0;
    virtual void SetSurfaceConstants(const SurfaceConstants& c) = 0;
    virtual void SetElapsedTime(float seconds) = 0;
    virtual void SetColor(const float rgba[4]) = 0;
    virtual void BindTexture(PaintStage stage, TextureId texture) = 0;
    virtual void DrawMesh(MeshId mesh) = 0;
    virtual void DrawVertices(const std::vector<PaintVertex>& vertices, PaintPrimitive primitive) = 0;
    // ClearScreen: the back buffer in one colour, then presented.
    virtual void ClearBackBuffer(const float rgba[4]) = 0;
    virtual void PresentBackBuffer() = 0;
    // The device's frame fences; null when it has none (every present then
    // counts as a drawn frame).
    virtual platform::FenceOps* FrameFences() { return nullptr; }
    // The back buffer as RGBA, top row first, before it is presented.
    virtual bool ReadBackBuffer(std::string* rgba) = 0;
    // The post effect's target as RGBA, top row first, once the scene was
    // drawn into it.
    virtual bool ReadPostTarget(std::string* rgba) = 0;
    // "GL2", "D3D9", "D3D10", "D3D11": the prefix of the custom image messages.
    virtual const char* ImagePrefix() const = 0;
    // Logged once the whole set-up has worked.
    virtual std::string InitLine() const = 0;
    // Samples per pixel of the view the frames are drawn into.
    virtual int Samples() const { return 1; }
    // Where the check frame is drawn: binds and clears it and gives its
    // size. By default the post effect's target (a device without one draws
    // no check frame); a device may choose a smaller one of its own.
    virtual bool BeginCheckScene(int* width, int* height);
    // The check frame as RGBA, top row first; the back buffer is bound again.
    virtual bool ReadCheckScene(std::string* rgba) { return ReadPostTarget(rgba); }

    // What is drawn before the post effect: the fur scene, or a scene of a
    // subclass that draws its own (and may draw the fur's halves in it).
    virtual void DrawScene();
    // The background picture over the whole view.
    void DrawFurBackground();
    // The skin and the shells of the furry object.
    void DrawFurryObject();
    // Called with the overlay begun, after the HUD: texts of a subclass's own.
    virtual void DrawOverlayExtras() {}
    // The check frame's picture, at the fixed moment DrawCheckFrame sets:
    // by default the fur scene (background and furry object, even when the
    // object is hidden); a subclass whose own scene is a fixed function of
    // time and settings may draw that instead.
    virtual void DrawCheckScene();

    int width_ = 0, height_ = 0;

private:
    TextureId Upload(const Image& picture, bool mipmapped);
    void PendingCustomImages();
    void DrawFrame();
    void DrawLogos();
    void DrawHud();
    void DrawTemperatureGraphs(const struct HudFrame& hud);
    void DrawPixels(const std::vector<float>& xyuv, PaintPrimitive primitive);
    void DrawLines(const std::vector<float>& xy, PaintPrimitive primitive, const float* color);

    MeshId furMesh_ = 0, skinMesh_ = 0, quad_ = 0;
    TextureId bgTexture_ = 0, furTexture_ = 0, makerLogoTex_ = 0, productLogoTex_ = 0, apiLogoTex_ = 0,
              gpuLogoTex_ = 0, fontTexture_ = 0, smallFontTexture_ = 0;
    std::vector<TextureId> dotTextures_;
    FontAtlas font_, smallFont_;
    bool postActive_ = false;
    bool smallText_ = false;
    int lastBinds_ = 0;
    bool drawingCheck_ = false;  // the furry object is drawn even when hidden
    platform::FramePipeline pipeline_;
};
