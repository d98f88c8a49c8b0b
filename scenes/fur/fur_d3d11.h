// The Direct3D 10 and 11 back-ends of the fur test (Windows only). Both
// compile the same shader-model-4 text and make the same objects; they
// differ in a handful of calls (Direct3D 10 makes them on the device, where
// Direct3D 11 has an immediate context) and in the names of their types. So
// the device code is written once, as D3DFurDevice over a traits structure
// that names the API's types and wraps the calls that differ, and the two
// classes below only say which API they are.
#pragma once

#include <memory>

#include "scenes/fur/fur_painter.h"

// The traits structures (tests/fur/fur_d3d_api.h) need the Direct3D
// headers; users of the classes below do not.
struct D3D10Api;
struct D3D11Api;

template <class Api>
class D3DFurDevice : public FurPainter {
public:
    ~D3DFurDevice() override;
    bool DeviceLost() const override;
    // Direct3D 11 at feature level 11: the compute check's program (made as
    // byte code) over a structured buffer. Direct3D 10 has no compute
    // programs: -1.
    int RunComputeCheck() override;

protected:
    D3DFurDevice();

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

private:
    // A colour texture of the view's size as RGBA through a staging copy.
    template <class Texture>
    bool ReadTexture(Texture* texture, std::string* rgba);

    struct Device;
    std::unique_ptr<Device> d_;
};

extern template class D3DFurDevice<D3D10Api>;
extern template class D3DFurDevice<D3D11Api>;

class cLm4DDemo_D3D10 final : public D3DFurDevice<D3D10Api> {
public:
    cLm4DDemo_D3D10();
    ~cLm4DDemo_D3D10() override;  // defined with the device code: its virtual table is made there alone

protected:
    const char* ImagePrefix() const override { return "D3D10"; }
    std::string InitLine() const override { return "Direct3D 10 context init ok."; }
};

class cLm4DDemo_D3D11 final : public D3DFurDevice<D3D11Api> {
public:
    cLm4DDemo_D3D11();
    ~cLm4DDemo_D3D11() override;  // defined with the device code: its virtual table is made there alone

protected:
    const char* ImagePrefix() const override { return "D3D11"; }
    std::string InitLine() const override { return "Direct3D 11 context init ok."; }
};
