// The Direct3D 9 back-end of the fur test (Windows only): a HAL device on
// the 3D window, shader-model-3 programs assembled at start-up from the
// text fur_d3d9_asm makes, and the technique table kept there.
#pragma once

#include <memory>

#include "scenes/fur/fur_painter.h"

class cLm4DDemo_D3D9 : public FurPainter {
public:
    cLm4DDemo_D3D9();
    ~cLm4DDemo_D3D9() override;
    bool DeviceLost() const override;

protected:
    bool CreateDevice(const RenderTarget& target, int width, int height) override;
    bool CreatePrograms(int radialBlurSamples) override;
    void DestroyDevice() override;
    bool HasDevice() const override;
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
    platform::FenceOps* FrameFences() override;
    const char* ImagePrefix() const override { return "D3D9"; }
    std::string InitLine() const override { return "Direct3D 9 context init ok."; }

private:
    // A render-target surface of the view's size as RGBA (ends the scene).
    bool ReadSurface(struct IDirect3DSurface9* surface, std::string* rgba);

    struct Device;
    std::unique_ptr<Device> d_;
};
