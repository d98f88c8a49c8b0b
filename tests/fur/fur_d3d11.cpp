#include "tests/fur/fur_d3d11.h"

#include <windows.h>
#include <d3d11.h>
#include <dxgi.h>

#include <cstring>
#include <map>
#include <string>

#include "app/event_log.h"
#include "tests/fur/d3d_shaders.h"
#include "tests/fur/fur_hlsl.h"

namespace {

template <class T>
void Release(T*& p) {
    if (p) p->Release();
    p = nullptr;
}

}  // namespace

struct cLm4DDemo_D3D11::Device {
    ID3D11Device* device = nullptr;
    ID3D11DeviceContext* context = nullptr;
    IDXGISwapChain* swapChain = nullptr;
    ID3D11Texture2D* backBuffer = nullptr;
    ID3D11RenderTargetView* backView = nullptr;
    ID3D11Texture2D* depth = nullptr;
    ID3D11DepthStencilView* depthView = nullptr;
    ID3D11Texture2D* post = nullptr;
    ID3D11RenderTargetView* postView = nullptr;
    ID3D11ShaderResourceView* postResource = nullptr;
    ID3D11InputLayout* layout = nullptr;
    std::map<std::string, ID3D11VertexShader*> vertexShaders;
    std::map<std::string, ID3D11PixelShader*> pixelShaders;
    ID3D11Buffer* constants[4] = {};
    ID3D11BlendState* blends[4] = {};
    ID3D11DepthStencilState* depthStates[2][2] = {};
    ID3D11RasterizerState* raster = nullptr;
    ID3D11SamplerState* samplers[2] = {};
    struct Texture {
        ID3D11Texture2D* texture = nullptr;
        ID3D11ShaderResourceView* view = nullptr;
    };
    std::vector<Texture> textures;  // id - 1; freed ones stay as empty slots
    struct MeshBuffers {
        ID3D11Buffer* vertices = nullptr;
        ID3D11Buffer* indices = nullptr;
        UINT count = 0;
    };
    std::vector<MeshBuffers> meshes;
    ID3D11Buffer* stream = nullptr;  // HUD vertices, rewritten per draw
    size_t streamCapacity = 0;
    fur_hlsl::CbPerFrame frame{};
    fur_hlsl::CbHud hud{};
    PaintProgram program = PaintProgram::kHudFlat;
    bool lost = false;
    int width = 0, height = 0;

    void Update(int slot, const void* data) { context->UpdateSubresource(constants[slot], 0, nullptr, data, 0, 0); }

    // A failed call on a device that is gone ends the run with one line.
    bool Check(HRESULT hr) {
        if (hr == DXGI_ERROR_DEVICE_REMOVED || hr == DXGI_ERROR_DEVICE_RESET) {
            if (!lost) {
                const HRESULT why = device ? device->GetDeviceRemovedReason() : hr;
                gEventLog.Write("Direct3D 11: the device was lost (DXGI_ERROR_DEVICE_REMOVED, reason 0x%08lX): the test ends.",
                                static_cast<unsigned long>(why));
            }
            lost = true;
            return false;
        }
        return SUCCEEDED(hr);
    }

    void ReleaseAll() {
        if (context) {
            context->ClearState();
            context->Flush();
        }
        for (Texture& t : textures) {
            Release(t.view);
            Release(t.texture);
        }
        textures.clear();
        for (MeshBuffers& m : meshes) {
            Release(m.vertices);
            Release(m.indices);
        }
        meshes.clear();
        for (auto& v : vertexShaders) Release(v.second);
        for (auto& p : pixelShaders) Release(p.second);
        vertexShaders.clear();
        pixelShaders.clear();
        for (ID3D11Buffer*& b : constants) Release(b);
        for (ID3D11BlendState*& b : blends) Release(b);
        for (auto& row : depthStates)
            for (ID3D11DepthStencilState*& s : row) Release(s);
        for (ID3D11SamplerState*& s : samplers) Release(s);
        Release(raster);
        Release(layout);
        Release(stream);
        Release(postResource);
        Release(postView);
        Release(post);
        Release(depthView);
        Release(depth);
        Release(backView);
        Release(backBuffer);
        Release(swapChain);
        Release(context);
        Release(device);
    }
};

cLm4DDemo_D3D11::cLm4DDemo_D3D11() : d_(new Device) { api_id = 11; }

cLm4DDemo_D3D11::~cLm4DDemo_D3D11() { Terminate(); }

bool cLm4DDemo_D3D11::DeviceLost() const { return d_->lost; }

bool cLm4DDemo_D3D11::HasDevice() const { return d_->device != nullptr && !d_->lost; }

void cLm4DDemo_D3D11::DestroyDevice() { d_->ReleaseAll(); }

bool cLm4DDemo_D3D11::CreateDevice(const RenderTarget& target, int width, int height) {
    Device& d = *d_;
    d.width = width;
    d.height = height;
    HWND window = static_cast<HWND>(target.nativeWindow);
    if (!window) {
        gEventLog.Write("Direct3D 11 window creation failed!");
        return false;
    }
    DXGI_SWAP_CHAIN_DESC sc{};
    sc.BufferDesc.Width = static_cast<UINT>(width);
    sc.BufferDesc.Height = static_cast<UINT>(height);
    sc.BufferDesc.Format = DXGI_FORMAT_R8G8B8A8_UNORM;
    sc.SampleDesc.Count = 1;
    sc.BufferUsage = DXGI_USAGE_RENDER_TARGET_OUTPUT;
    sc.BufferCount = 1;
    sc.OutputWindow = window;
    sc.Windowed = TRUE;
    sc.SwapEffect = DXGI_SWAP_EFFECT_DISCARD;
    const D3D_FEATURE_LEVEL levels[] = {D3D_FEATURE_LEVEL_11_0, D3D_FEATURE_LEVEL_10_1, D3D_FEATURE_LEVEL_10_0};
    D3D_FEATURE_LEVEL got{};
    HRESULT hr = D3D11CreateDeviceAndSwapChain(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, levels, 3, D3D11_SDK_VERSION,
                                               &sc, &d.swapChain, &d.device, &got, &d.context);
    if (FAILED(hr)) {
        gEventLog.Write("D3D11 initialization failed!");
        gEventLog.Write("Direct3D 11: device creation failed (0x%08lX).", static_cast<unsigned long>(hr));
        return false;
    }
    bool ok = SUCCEEDED(d.swapChain->GetBuffer(0, __uuidof(ID3D11Texture2D), reinterpret_cast<void**>(&d.backBuffer))) &&
              SUCCEEDED(d.device->CreateRenderTargetView(d.backBuffer, nullptr, &d.backView));
    D3D11_TEXTURE2D_DESC dd{};
    dd.Width = sc.BufferDesc.Width;
    dd.Height = sc.BufferDesc.Height;
    dd.MipLevels = 1;
    dd.ArraySize = 1;
    dd.Format = DXGI_FORMAT_D24_UNORM_S8_UINT;
    dd.SampleDesc.Count = 1;
    dd.Usage = D3D11_USAGE_DEFAULT;
    dd.BindFlags = D3D11_BIND_DEPTH_STENCIL;
    ok = ok && SUCCEEDED(d.device->CreateTexture2D(&dd, nullptr, &d.depth)) &&
         SUCCEEDED(d.device->CreateDepthStencilView(d.depth, nullptr, &d.depthView));

    const size_t sizes[4] = {sizeof(fur_hlsl::CbPerObject), sizeof(fur_hlsl::CbPerFrame), sizeof(fur_hlsl::CbLights),
                             sizeof(fur_hlsl::CbHud)};
    for (int i = 0; ok && i < 4; ++i) {
        D3D11_BUFFER_DESC bd{};
        bd.ByteWidth = static_cast<UINT>(sizes[i]);
        bd.Usage = D3D11_USAGE_DEFAULT;
        bd.BindFlags = D3D11_BIND_CONSTANT_BUFFER;
        if (FAILED(d.device->CreateBuffer(&bd, nullptr, &d.constants[i]))) {
            gEventLog.Write("Direct3D 11: constant buffer (%d) creation failed!", i + 1);
            return false;
        }
    }

    // Blending: opaque, alpha, additive, inverse colour added.
    const D3D11_BLEND pairs[4][2] = {{D3D11_BLEND_ONE, D3D11_BLEND_ZERO},
                                     {D3D11_BLEND_SRC_ALPHA, D3D11_BLEND_INV_SRC_ALPHA},
                                     {D3D11_BLEND_ONE, D3D11_BLEND_ONE},
                                     {D3D11_BLEND_INV_SRC_COLOR, D3D11_BLEND_ONE}};
    for (int i = 0; ok && i < 4; ++i) {
        D3D11_BLEND_DESC bd{};
        bd.RenderTarget[0].BlendEnable = i != 0;
        bd.RenderTarget[0].SrcBlend = pairs[i][0];
        bd.RenderTarget[0].DestBlend = pairs[i][1];
        bd.RenderTarget[0].BlendOp = D3D11_BLEND_OP_ADD;
        bd.RenderTarget[0].SrcBlendAlpha = pairs[i][0] == D3D11_BLEND_INV_SRC_COLOR ? D3D11_BLEND_ONE : pairs[i][0];
        bd.RenderTarget[0].DestBlendAlpha = pairs[i][1];
        bd.RenderTarget[0].BlendOpAlpha = D3D11_BLEND_OP_ADD;
        bd.RenderTarget[0].RenderTargetWriteMask = D3D11_COLOR_WRITE_ENABLE_ALL;
        ok = SUCCEEDED(d.device->CreateBlendState(&bd, &d.blends[i]));
    }
    for (int test = 0; ok && test < 2; ++test) {
        for (int write = 0; ok && write < 2; ++write) {
            D3D11_DEPTH_STENCIL_DESC ds{};
            ds.DepthEnable = test != 0;
            ds.DepthWriteMask = write ? D3D11_DEPTH_WRITE_MASK_ALL : D3D11_DEPTH_WRITE_MASK_ZERO;
            ds.DepthFunc = D3D11_COMPARISON_LESS;
            ok = SUCCEEDED(d.device->CreateDepthStencilState(&ds, &d.depthStates[test][write]));
        }
    }
    D3D11_RASTERIZER_DESC rd{};
    rd.FillMode = D3D11_FILL_SOLID;
    rd.CullMode = D3D11_CULL_NONE;
    rd.DepthClipEnable = TRUE;
    ok = ok && SUCCEEDED(d.device->CreateRasterizerState(&rd, &d.raster));
    for (int i = 0; ok && i < 2; ++i) {
        D3D11_SAMPLER_DESC sd{};
        sd.Filter = i == 0 ? D3D11_FILTER_ANISOTROPIC : D3D11_FILTER_MIN_MAG_MIP_LINEAR;
        const D3D11_TEXTURE_ADDRESS_MODE mode = i == 0 ? D3D11_TEXTURE_ADDRESS_WRAP : D3D11_TEXTURE_ADDRESS_CLAMP;
        sd.AddressU = sd.AddressV = sd.AddressW = mode;
        sd.MaxAnisotropy = 16;
        sd.ComparisonFunc = D3D11_COMPARISON_NEVER;
        sd.MaxLOD = D3D11_FLOAT32_MAX;
        ok = SUCCEEDED(d.device->CreateSamplerState(&sd, &d.samplers[i]));
    }
    if (!ok) {
        gEventLog.Write("D3D11 initialization failed!");
        return false;
    }

    const fur_hlsl::CbLights lights = fur_hlsl::Lights();
    d.Update(2, &lights);
    fur_hlsl::HudMatrix(width, height, d.frame.g_hudMatrix);
    d.frame.radial_blur_samples = scene_.params.radialBlurSamples;
    d.frame.radial_blur_scale_mul = scene_.params.radialBlurScaleMul;
    d.Update(1, &d.frame);
    d.Update(3, &d.hud);
    d.context->VSSetConstantBuffers(0, 4, d.constants);
    d.context->PSSetConstantBuffers(0, 4, d.constants);
    d.context->PSSetSamplers(0, 2, d.samplers);
    d.context->RSSetState(d.raster);
    D3D11_VIEWPORT vp{0.0f, 0.0f, static_cast<float>(width), static_cast<float>(height), 0.0f, 1.0f};
    d.context->RSSetViewports(1, &vp);
    d.context->OMSetRenderTargets(1, &d.backView, d.depthView);
    return true;
}

bool cLm4DDemo_D3D11::CreatePrograms(int radialBlurSamples) {
    Device& d = *d_;
    const std::string source = fur_hlsl::Source(radialBlurSamples);
    std::vector<unsigned char> layoutCode;
    for (const fur_hlsl::EntryPoint& e : fur_hlsl::EntryPoints()) {
        const char* entry = e.name;
        const bool vertex = e.vertex;
        std::vector<unsigned char> code;
        std::string error;
        if (!d3d_shaders::Compile(source, entry, vertex ? "vs_4_0" : "ps_4_0", &code, &error)) {
            gEventLog.Write(vertex ? "Vertex shader creation failed: %s" : "Pixel shader creation failed: %s", error.c_str());
            return false;
        }
        HRESULT hr;
        if (vertex) {
            ID3D11VertexShader* vs = nullptr;
            hr = d.device->CreateVertexShader(code.data(), code.size(), nullptr, &vs);
            d.vertexShaders[entry] = vs;
            if (layoutCode.empty()) layoutCode = code;
        } else {
            ID3D11PixelShader* ps = nullptr;
            hr = d.device->CreatePixelShader(code.data(), code.size(), nullptr, &ps);
            d.pixelShaders[entry] = ps;
        }
        if (FAILED(hr)) {
            gEventLog.Write("Shader program creation failed: %s (0x%08lX)", entry, static_cast<unsigned long>(hr));
            return false;
        }
    }
    const D3D11_INPUT_ELEMENT_DESC elements[] = {
        {"POSITION", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 0, D3D11_INPUT_PER_VERTEX_DATA, 0},
        {"NORMAL", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 12, D3D11_INPUT_PER_VERTEX_DATA, 0},
        {"TEXCOORD", 0, DXGI_FORMAT_R32G32_FLOAT, 0, 24, D3D11_INPUT_PER_VERTEX_DATA, 0},
    };
    if (FAILED(d.device->CreateInputLayout(elements, 3, layoutCode.data(), layoutCode.size(), &d.layout))) {
        gEventLog.Write("Shader program creation failed: input layout");
        return false;
    }
    d.context->IASetInputLayout(d.layout);
    return true;
}

FurPainter::TextureId cLm4DDemo_D3D11::CreateTexture(const std::vector<Image>& levels, bool repeat) {
    Device& d = *d_;
    if (levels.empty() || !d.device) return 0;
    D3D11_TEXTURE2D_DESC td{};
    td.Width = static_cast<UINT>(levels[0].width);
    td.Height = static_cast<UINT>(levels[0].height);
    td.MipLevels = static_cast<UINT>(levels.size());
    td.ArraySize = 1;
    td.Format = DXGI_FORMAT_R8G8B8A8_UNORM;
    td.SampleDesc.Count = 1;
    td.Usage = D3D11_USAGE_IMMUTABLE;
    td.BindFlags = D3D11_BIND_SHADER_RESOURCE;
    std::vector<D3D11_SUBRESOURCE_DATA> data(levels.size());
    for (size_t i = 0; i < levels.size(); ++i) {
        data[i].pSysMem = levels[i].rgba.data();
        data[i].SysMemPitch = static_cast<UINT>(levels[i].width * 4);
    }
    Device::Texture t;
    if (FAILED(d.device->CreateTexture2D(&td, data.data(), &t.texture)) ||
        FAILED(d.device->CreateShaderResourceView(t.texture, nullptr, &t.view))) {
        Release(t.texture);
        gEventLog.Write("Direct3D 11: texture creation failed (%dx%d).", levels[0].width, levels[0].height);
        return 0;
    }
    (void)repeat;  // addressing is the sampler's: the programs pick wrap or clamp
    d.textures.push_back(t);
    return static_cast<TextureId>(d.textures.size());
}

void cLm4DDemo_D3D11::FreeTexture(TextureId texture) {
    Device& d = *d_;
    if (texture <= 0 || texture > static_cast<int>(d.textures.size())) return;
    Device::Texture& t = d.textures[static_cast<size_t>(texture - 1)];
    Release(t.view);
    Release(t.texture);
}

FurPainter::MeshId cLm4DDemo_D3D11::CreateMesh(const Mesh& mesh) {
    Device& d = *d_;
    if (mesh.empty() || !d.device) return 0;
    Device::MeshBuffers m;
    D3D11_BUFFER_DESC bd{};
    bd.Usage = D3D11_USAGE_IMMUTABLE;
    bd.ByteWidth = static_cast<UINT>(mesh.vertices.size() * sizeof(float));
    bd.BindFlags = D3D11_BIND_VERTEX_BUFFER;
    D3D11_SUBRESOURCE_DATA data{mesh.vertices.data(), 0, 0};
    HRESULT hr = d.device->CreateBuffer(&bd, &data, &m.vertices);
    bd.ByteWidth = static_cast<UINT>(mesh.indices.size() * sizeof(uint32_t));
    bd.BindFlags = D3D11_BIND_INDEX_BUFFER;
    data.pSysMem = mesh.indices.data();
    if (SUCCEEDED(hr)) hr = d.device->CreateBuffer(&bd, &data, &m.indices);
    if (FAILED(hr)) {
        Release(m.vertices);
        gEventLog.Write("Direct3D 11: mesh buffer creation failed (0x%08lX).", static_cast<unsigned long>(hr));
        return 0;
    }
    m.count = static_cast<UINT>(mesh.indices.size());
    d.meshes.push_back(m);
    return static_cast<MeshId>(d.meshes.size());
}

bool cLm4DDemo_D3D11::CreatePostTarget() {
    Device& d = *d_;
    D3D11_TEXTURE2D_DESC td{};
    td.Width = static_cast<UINT>(d.width);
    td.Height = static_cast<UINT>(d.height);
    td.MipLevels = 1;
    td.ArraySize = 1;
    td.Format = DXGI_FORMAT_R8G8B8A8_UNORM;
    td.SampleDesc.Count = 1;
    td.Usage = D3D11_USAGE_DEFAULT;
    td.BindFlags = D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE;
    if (FAILED(d.device->CreateTexture2D(&td, nullptr, &d.post)) ||
        FAILED(d.device->CreateRenderTargetView(d.post, nullptr, &d.postView)) ||
        FAILED(d.device->CreateShaderResourceView(d.post, nullptr, &d.postResource))) {
        gEventLog.Write("Post-processing target creation failed: the post effect is off.");
        Release(d.postView);
        Release(d.post);
        return false;
    }
    return true;
}

void cLm4DDemo_D3D11::BeginScene(bool toPostTarget) {
    Device& d = *d_;
    ID3D11ShaderResourceView* none[2] = {nullptr, nullptr};
    d.context->PSSetShaderResources(0, 2, none);  // the scene target may still be bound for reading
    ID3D11RenderTargetView* target = toPostTarget ? d.postView : d.backView;
    d.context->OMSetRenderTargets(1, &target, d.depthView);
    const float black[4] = {0.0f, 0.0f, 0.0f, 1.0f};
    d.context->ClearRenderTargetView(target, black);
    d.context->ClearDepthStencilView(d.depthView, D3D11_CLEAR_DEPTH | D3D11_CLEAR_STENCIL, 1.0f, 0);
}

void cLm4DDemo_D3D11::BeginPostPass() {
    Device& d = *d_;
    d.context->OMSetRenderTargets(1, &d.backView, d.depthView);
    d.context->PSSetShaderResources(kStageColor, 1, &d.postResource);
}

void cLm4DDemo_D3D11::UseProgram(PaintProgram program, PaintBlend blend, bool depthTest, bool depthWrite) {
    Device& d = *d_;
    d.program = program;
    const fur_hlsl::Program& p = fur_hlsl::D3D11Program(program);
    d.context->VSSetShader(d.vertexShaders[p.vertex], nullptr, 0);
    d.context->PSSetShader(d.pixelShaders[p.pixel], nullptr, 0);
    const float factor[4] = {0, 0, 0, 0};
    d.context->OMSetBlendState(d.blends[static_cast<int>(blend)], factor, 0xFFFFFFFFu);
    d.context->OMSetDepthStencilState(d.depthStates[depthTest ? 1 : 0][depthWrite ? 1 : 0], 0);
}

void cLm4DDemo_D3D11::SetSurfaceConstants(const SurfaceConstants& c) {
    fur_hlsl::CbPerObject o{};
    std::memcpy(o.g_worldViewProjection, c.worldViewProjection.data(), sizeof o.g_worldViewProjection);
    std::memcpy(o.g_modelView, c.modelView.data(), sizeof o.g_modelView);
    std::memcpy(o.g_viewMatrix, c.view.data(), sizeof o.g_viewMatrix);
    std::memcpy(o.g_matWorld, c.world.data(), sizeof o.g_matWorld);
    o.g_FurLength = c.furLength;
    o.g_Layer = c.layer;
    o.g_UVScale = c.uvScale;
    o.g_FurFade = c.furFade;
    d_->Update(0, &o);
}

void cLm4DDemo_D3D11::SetElapsedTime(float seconds) {
    d_->frame.elapsedTime = seconds;
    d_->Update(1, &d_->frame);
}

void cLm4DDemo_D3D11::SetColor(const float rgba[4]) {
    std::memcpy(d_->hud.flat_color, rgba, sizeof d_->hud.flat_color);
    d_->Update(3, &d_->hud);
}

void cLm4DDemo_D3D11::BindTexture(PaintStage stage, TextureId texture) {
    Device& d = *d_;
    ID3D11ShaderResourceView* view = nullptr;
    if (texture > 0 && texture <= static_cast<int>(d.textures.size()))
        view = d.textures[static_cast<size_t>(texture - 1)].view;
    d.context->PSSetShaderResources(static_cast<UINT>(stage), 1, &view);
}

void cLm4DDemo_D3D11::DrawMesh(MeshId mesh) {
    Device& d = *d_;
    if (mesh <= 0 || mesh > static_cast<int>(d.meshes.size())) return;
    const Device::MeshBuffers& m = d.meshes[static_cast<size_t>(mesh - 1)];
    const UINT stride = sizeof(PaintVertex), offset = 0;
    d.context->IASetVertexBuffers(0, 1, &m.vertices, &stride, &offset);
    d.context->IASetIndexBuffer(m.indices, DXGI_FORMAT_R32_UINT, 0);
    d.context->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLELIST);
    d.context->DrawIndexed(m.count, 0, 0);
}

void cLm4DDemo_D3D11::DrawVertices(const std::vector<PaintVertex>& vertices, PaintPrimitive primitive) {
    Device& d = *d_;
    if (vertices.empty()) return;
    const size_t bytes = vertices.size() * sizeof(PaintVertex);
    if (bytes > d.streamCapacity) {
        Release(d.stream);
        size_t capacity = d.streamCapacity ? d.streamCapacity : 64 * 1024;
        while (capacity < bytes) capacity *= 2;
        D3D11_BUFFER_DESC bd{};
        bd.ByteWidth = static_cast<UINT>(capacity);
        bd.Usage = D3D11_USAGE_DYNAMIC;
        bd.BindFlags = D3D11_BIND_VERTEX_BUFFER;
        bd.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE;
        d.streamCapacity = SUCCEEDED(d.device->CreateBuffer(&bd, nullptr, &d.stream)) ? capacity : 0;
        if (!d.stream) return;
    }
    D3D11_MAPPED_SUBRESOURCE mapped{};
    if (!d.Check(d.context->Map(d.stream, 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped))) return;
    std::memcpy(mapped.pData, vertices.data(), bytes);
    d.context->Unmap(d.stream, 0);
    const bool lines = primitive != PaintPrimitive::kTriangles;
    if (lines && d.program == PaintProgram::kHudFlat) {
        const fur_hlsl::Program& p = fur_hlsl::D3D11LineProgram();
        d.context->VSSetShader(d.vertexShaders[p.vertex], nullptr, 0);
        d.context->PSSetShader(d.pixelShaders[p.pixel], nullptr, 0);
    }
    const UINT stride = sizeof(PaintVertex), offset = 0;
    d.context->IASetVertexBuffers(0, 1, &d.stream, &stride, &offset);
    d.context->IASetPrimitiveTopology(primitive == PaintPrimitive::kTriangles ? D3D11_PRIMITIVE_TOPOLOGY_TRIANGLELIST
                                      : primitive == PaintPrimitive::kLineStrip ? D3D11_PRIMITIVE_TOPOLOGY_LINESTRIP
                                                                                : D3D11_PRIMITIVE_TOPOLOGY_LINELIST);
    d.context->Draw(static_cast<UINT>(vertices.size()), 0);
    if (lines && d.program == PaintProgram::kHudFlat) UseProgram(PaintProgram::kHudFlat, PaintBlend::kAlpha, false, false);
}

void cLm4DDemo_D3D11::ClearBackBuffer(const float rgba[4]) {
    Device& d = *d_;
    d.context->OMSetRenderTargets(1, &d.backView, d.depthView);
    d.context->ClearRenderTargetView(d.backView, rgba);
}

void cLm4DDemo_D3D11::PresentBackBuffer() {
    Device& d = *d_;
    if (!d.swapChain || d.lost) return;
    d.Check(d.swapChain->Present(0, 0));
}

bool cLm4DDemo_D3D11::ReadBackBuffer(std::string* rgba) {
    Device& d = *d_;
    D3D11_TEXTURE2D_DESC td{};
    d.backBuffer->GetDesc(&td);
    td.Usage = D3D11_USAGE_STAGING;
    td.BindFlags = 0;
    td.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    td.MiscFlags = 0;
    ID3D11Texture2D* staging = nullptr;
    if (FAILED(d.device->CreateTexture2D(&td, nullptr, &staging))) return false;
    d.context->CopyResource(staging, d.backBuffer);
    D3D11_MAPPED_SUBRESOURCE mapped{};
    bool ok = d.Check(d.context->Map(staging, 0, D3D11_MAP_READ, 0, &mapped));
    if (ok) {
        const size_t row = static_cast<size_t>(d.width) * 4;
        rgba->assign(row * d.height, '\0');
        for (int y = 0; y < d.height; ++y)
            std::memcpy(&(*rgba)[y * row], static_cast<const char*>(mapped.pData) + static_cast<size_t>(y) * mapped.RowPitch,
                        row);
        d.context->Unmap(staging, 0);
    }
    staging->Release();
    return ok;
}
