#include "scenes/fur/fur_d3d11.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "core/event_log.h"
#include "platform/gpu_choice.h"
#include "runner/frame_verify.h"
#include "scenes/fur/d3d11_compute_program.h"
#include "scenes/fur/d3d_shaders.h"
#include "scenes/fur/fur_d3d_api.h"
#include "scenes/fur/fur_d3d_tables.h"
#include "scenes/fur/fur_hlsl.h"

namespace {

// The DXGI adapter of the GPU chosen with /gpu=N (with a reference the
// caller releases); null for the system's default. False when a GPU was
// chosen and DXGI has no adapter for it.
bool ChosenDxgiAdapter(const char* apiName, IDXGIAdapter** out) {
    *out = nullptr;
    const platform::GpuChoice& choice = platform::CurrentGpuChoice();
    if (choice.index <= 0) return true;
    IDXGIFactory* factory = nullptr;
    if (FAILED(CreateDXGIFactory(__uuidof(IDXGIFactory), reinterpret_cast<void**>(&factory)))) {
        gEventLog.Write("%s: no DXGI factory, so GPU %d cannot be chosen.", apiName, choice.index);
        return false;
    }
    std::vector<IDXGIAdapter*> adapters;
    std::vector<platform::AdapterIdentity> ids;
    IDXGIAdapter* a = nullptr;
    for (UINT i = 0; factory->EnumAdapters(i, &a) != DXGI_ERROR_NOT_FOUND; ++i) {
        DXGI_ADAPTER_DESC desc{};
        platform::AdapterIdentity id;
        if (a && SUCCEEDED(a->GetDesc(&desc))) {
            id.pciVendor = static_cast<int>(desc.VendorId);
            id.pciDevice = static_cast<int>(desc.DeviceId);
        }
        adapters.push_back(a);
        ids.push_back(id);
    }
    factory->Release();
    int k = platform::PickAdapter(choice, ids);
    bool byOrder = false;
    // An identity DXGI reports differently (a virtual or remote adapter):
    // the inventory's order is the one left to go by.
    if (k < 0 && choice.index <= static_cast<int>(adapters.size())) {
        k = choice.index - 1;
        byOrder = true;
    }
    for (size_t i = 0; i < adapters.size(); ++i)
        if (static_cast<int>(i) != k && adapters[i]) adapters[i]->Release();
    if (k < 0) {
        gEventLog.Write("%s: GPU %d (%s) is none of the %u DXGI adapters.", apiName, choice.index, choice.name.c_str(),
                        static_cast<unsigned>(adapters.size()));
        return false;
    }
    gEventLog.Write("%s: drawing on GPU %d (%s) through DXGI adapter %d%s.", apiName, choice.index, choice.name.c_str(), k,
                    byOrder ? " (by order: no adapter with its PCI identity)" : "");
    *out = adapters[static_cast<size_t>(k)];
    return true;
}

template <class T>
void Release(T*& p) {
    if (p) p->Release();
    p = nullptr;
}

// The compute check (Direct3D 11 only): its program, the buffer it writes
// through an unordered-access view, and a staging copy to read it from.
struct ComputeCheckResources {
    // 0: not set up yet; 1: ready; -1: this device runs no check.
    int state = 0;
    ID3D11ComputeShader* shader = nullptr;
    ID3D11Buffer* values = nullptr;
    ID3D11UnorderedAccessView* view = nullptr;
    ID3D11Buffer* staging = nullptr;

    // False, with a line in the log, where the device cannot run the check.
    bool SetUp(ID3D11Device* device);
    void ReleaseAll() {
        Release(view);
        Release(values);
        Release(staging);
        Release(shader);
        state = 0;
    }
};

bool ComputeCheckResources::SetUp(ID3D11Device* device) {
    if (device->GetFeatureLevel() < D3D_FEATURE_LEVEL_11_0) {
        gEventLog.Write("Verification: no compute check (Direct3D 11 at feature level %s runs no shader-model-5 "
                        "compute programs).",
                        device->GetFeatureLevel() >= D3D_FEATURE_LEVEL_10_1 ? "10.1" : "10.0");
        return false;
    }
    const std::vector<uint8_t> code = d3d11_compute::CheckProgram();
    HRESULT hr = device->CreateComputeShader(code.data(), code.size(), nullptr, &shader);
    if (FAILED(hr)) {
        gEventLog.Write("Verification: the compute check's program was refused (0x%08lX); no compute check.",
                        static_cast<unsigned long>(hr));
        return false;
    }
    D3D11_BUFFER_DESC bd{};
    bd.ByteWidth = kComputeValues * sizeof(uint32_t);
    bd.Usage = D3D11_USAGE_DEFAULT;
    bd.BindFlags = D3D11_BIND_UNORDERED_ACCESS;
    bd.MiscFlags = D3D11_RESOURCE_MISC_BUFFER_STRUCTURED;
    bd.StructureByteStride = sizeof(uint32_t);
    hr = device->CreateBuffer(&bd, nullptr, &values);
    if (SUCCEEDED(hr)) {
        D3D11_UNORDERED_ACCESS_VIEW_DESC ud{};
        ud.Format = DXGI_FORMAT_UNKNOWN;
        ud.ViewDimension = D3D11_UAV_DIMENSION_BUFFER;
        ud.Buffer.NumElements = kComputeValues;
        hr = device->CreateUnorderedAccessView(values, &ud, &view);
    }
    if (SUCCEEDED(hr)) {
        bd.Usage = D3D11_USAGE_STAGING;
        bd.BindFlags = 0;
        bd.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
        bd.MiscFlags = 0;
        bd.StructureByteStride = 0;
        hr = device->CreateBuffer(&bd, nullptr, &staging);
    }
    if (FAILED(hr)) {
        gEventLog.Write("Verification: the compute check's buffers could not be made (0x%08lX); no compute check.",
                        static_cast<unsigned long>(hr));
        return false;
    }
    return true;
}

// The adapter the device runs on and its driver version, as the run's
// renderer and driver texts.
template <class Dev>
void DescribeAdapter(Dev* device, std::string* renderer, std::string* driver) {
    IDXGIDevice* dxgi = nullptr;
    IDXGIAdapter* adapter = nullptr;
    if (SUCCEEDED(device->QueryInterface(__uuidof(IDXGIDevice), reinterpret_cast<void**>(&dxgi))) &&
        SUCCEEDED(dxgi->GetAdapter(&adapter))) {
        DXGI_ADAPTER_DESC desc{};
        if (SUCCEEDED(adapter->GetDesc(&desc))) {
            char name[256] = {};
            WideCharToMultiByte(CP_ACP, 0, desc.Description, -1, name, sizeof name - 1, nullptr, nullptr);
            *renderer = name;
        }
        LARGE_INTEGER v{};
        if (SUCCEEDED(adapter->CheckInterfaceSupport(__uuidof(ID3D10Device), &v))) {
            char version[64];
            std::snprintf(version, sizeof version, "%u.%u.%u.%u", static_cast<unsigned>(HIWORD(v.HighPart)),
                          static_cast<unsigned>(LOWORD(v.HighPart)), static_cast<unsigned>(HIWORD(v.LowPart)),
                          static_cast<unsigned>(LOWORD(v.LowPart)));
            *driver = version;
        }
    }
    Release(adapter);
    Release(dxgi);
}

}  // namespace

template <class Api>
struct D3DFurDevice<Api>::Device {
    using Dev = typename Api::Device;
    using Context = typename Api::Context;
    using Texture2D = typename Api::Texture2D;
    using Buffer = typename Api::Buffer;
    using VertexShader = typename Api::VertexShader;
    using PixelShader = typename Api::PixelShader;
    using ShaderResourceView = typename Api::ShaderResourceView;

    Dev* device = nullptr;
    Context* context = nullptr;  // Direct3D 10: the device again, with a reference of its own
    IDXGISwapChain* swapChain = nullptr;
    Texture2D* backBuffer = nullptr;
    typename Api::RenderTargetView* backView = nullptr;
    Texture2D* depth = nullptr;
    typename Api::DepthStencilView* depthView = nullptr;
    Texture2D* post = nullptr;
    typename Api::RenderTargetView* postView = nullptr;
    ShaderResourceView* postResource = nullptr;
    typename Api::InputLayout* layout = nullptr;
    // Owned by entry point name; the passes below only point into them.
    std::map<std::string, VertexShader*> vertexShaders;
    std::map<std::string, PixelShader*> pixelShaders;
    struct Bound {
        VertexShader* vs = nullptr;
        PixelShader* ps = nullptr;
    };
    Bound passes[fur_d3d::kProgramCount];
    Bound lines;
    Buffer* constants[4] = {};
    typename Api::BlendState* blends[fur_d3d::kBlendCount] = {};
    typename Api::DepthStencilState* depthStates[2][2] = {};
    typename Api::RasterizerState* raster = nullptr;
    typename Api::SamplerState* samplers[2] = {};
    struct Texture {
        Texture2D* texture = nullptr;
        ShaderResourceView* view = nullptr;
    };
    std::vector<Texture> textures;  // id - 1; freed ones stay as empty slots
    struct MeshBuffers {
        Buffer* vertices = nullptr;
        Buffer* indices = nullptr;
        UINT count = 0;
    };
    std::vector<MeshBuffers> meshes;
    Buffer* stream = nullptr;  // HUD vertices, rewritten per draw
    size_t streamCapacity = 0;
    fur_hlsl::CbPerFrame frame{};
    fur_hlsl::CbHud hud{};
    PaintProgram program = PaintProgram::kHudFlat;
    bool lost = false;
    int width = 0, height = 0;

    ComputeCheckResources compute;

    // Event queries fence the presented frames.
    struct Fences : platform::FenceOps {
        Device* d = nullptr;
        void* Insert() override {
            typename Api::Query* q = nullptr;
            if (d->lost || FAILED(Api::CreateEventQuery(d->device, &q))) return nullptr;
            Api::EndQuery(d->context, q);
            return q;
        }
        bool Done(void* fence, bool wait) override {
            auto* q = static_cast<typename Api::Query*>(fence);
            for (;;) {
                const HRESULT hr = Api::QueryDone(d->context, q);
                if (hr == S_OK) return true;
                if (FAILED(hr)) {
                    d->Check(hr);  // a device that is gone draws nothing more
                    return true;
                }
                if (!wait) return false;
                std::this_thread::yield();
            }
        }
        void Free(void* fence) override { static_cast<typename Api::Query*>(fence)->Release(); }
        void FinishAll() override {}
    };
    Fences fences;

    void Update(int slot, const void* data) { context->UpdateSubresource(constants[slot], 0, nullptr, data, 0, 0); }

    // A failed call on a device that is gone ends the run with one line.
    bool Check(HRESULT hr) {
        if (hr == DXGI_ERROR_DEVICE_REMOVED || hr == DXGI_ERROR_DEVICE_RESET) {
            if (!lost) {
                const HRESULT why = device ? device->GetDeviceRemovedReason() : hr;
                gEventLog.Write("%s: the device was lost (%s, reason 0x%08lX): the test ends.", Api::kName,
                                hr == DXGI_ERROR_DEVICE_RESET ? "DXGI_ERROR_DEVICE_RESET" : "DXGI_ERROR_DEVICE_REMOVED",
                                static_cast<unsigned long>(why));
            }
            lost = true;
            return false;
        }
        return SUCCEEDED(hr);
    }

    template <class Shader>
    Shader* Make(std::map<std::string, Shader*>* made, const char* entry, bool vertex, const fur_d3d::Pass& pass,
                 const std::string& source, std::vector<unsigned char>* firstVertexCode) {
        auto it = made->find(entry);
        if (it != made->end()) return it->second;
        std::vector<unsigned char> code;
        std::string error;
        if (!d3d_shaders::Compile(source, entry, vertex ? "vs_4_0" : "ps_4_0", &code, &error)) {
            gEventLog.Write(vertex ? "Vertex shader creation failed: %s" : "Pixel shader creation failed: %s",
                            fur_d3d::CompileFailure(pass, error).c_str());
            return nullptr;
        }
        Shader* shader = nullptr;
        const HRESULT hr = Api::CreateShader(device, code, &shader);
        if (FAILED(hr)) {
            gEventLog.Write("Shader program creation failed: %s: %s (0x%08lX)", fur_d3d::Describe(pass).c_str(), entry,
                            static_cast<unsigned long>(hr));
            return nullptr;
        }
        (*made)[entry] = shader;
        if (vertex && firstVertexCode->empty()) *firstVertexCode = code;
        return shader;
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
        for (Bound& b : passes) b = Bound{};
        lines = Bound{};
        for (Buffer*& b : constants) Release(b);
        for (auto*& b : blends) Release(b);
        for (auto& row : depthStates)
            for (auto*& s : row) Release(s);
        for (auto*& s : samplers) Release(s);
        Release(raster);
        Release(layout);
        compute.ReleaseAll();
        Release(stream);
        streamCapacity = 0;
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

template <class Api>
D3DFurDevice<Api>::D3DFurDevice() : d_(new Device) {
    d_->fences.d = d_.get();
}

template <class Api>
platform::FenceOps* D3DFurDevice<Api>::FrameFences() {
    return d_->device ? &d_->fences : nullptr;
}

template <class Api>
D3DFurDevice<Api>::~D3DFurDevice() {
    Terminate();
}

template <class Api>
bool D3DFurDevice<Api>::DeviceLost() const {
    return d_->lost;
}

// A lost device still holds objects that must be released: it counts as
// present until DestroyDevice has run.
template <class Api>
bool D3DFurDevice<Api>::HasDevice() const {
    return d_->device != nullptr;
}

template <class Api>
void D3DFurDevice<Api>::DestroyDevice() {
    d_->ReleaseAll();
}

template <class Api>
bool D3DFurDevice<Api>::CreateDevice(const RenderTarget& target, int width, int height) {
    Device& d = *d_;
    d.width = width;
    d.height = height;
    d.lost = false;
    HWND window = static_cast<HWND>(target.nativeWindow);
    if (!window) {
        gEventLog.Write("%s", Api::kNoWindow);
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
    IDXGIAdapter* adapter = nullptr;
    if (!ChosenDxgiAdapter(Api::kName, &adapter)) {
        gEventLog.Write("%s", Api::kInitFailed);
        return false;
    }
    const HRESULT hr = Api::Create(adapter, &sc, &d.swapChain, &d.device, &d.context);
    if (adapter) adapter->Release();
    if (FAILED(hr)) {
        gEventLog.Write("%s", Api::kInitFailed);
        gEventLog.Write("%s: device creation failed (0x%08lX).", Api::kName, static_cast<unsigned long>(hr));
        return false;
    }
    DescribeAdapter(d.device, &renderer_text, &driver_text);
    using BackBuffer = typename Api::Texture2D;
    bool ok = SUCCEEDED(d.swapChain->GetBuffer(0, __uuidof(BackBuffer), reinterpret_cast<void**>(&d.backBuffer))) &&
              SUCCEEDED(d.device->CreateRenderTargetView(d.backBuffer, nullptr, &d.backView));
    typename Api::Texture2DDesc dd{};
    dd.Width = sc.BufferDesc.Width;
    dd.Height = sc.BufferDesc.Height;
    dd.MipLevels = 1;
    dd.ArraySize = 1;
    dd.Format = DXGI_FORMAT_D24_UNORM_S8_UINT;
    dd.SampleDesc.Count = 1;
    dd.Usage = Api::kUsageDefault;
    dd.BindFlags = Api::kBindDepthStencil;
    ok = ok && SUCCEEDED(d.device->CreateTexture2D(&dd, nullptr, &d.depth)) &&
         SUCCEEDED(d.device->CreateDepthStencilView(d.depth, nullptr, &d.depthView));

    const size_t sizes[4] = {sizeof(fur_hlsl::CbPerObject), sizeof(fur_hlsl::CbPerFrame), sizeof(fur_hlsl::CbLights),
                             sizeof(fur_hlsl::CbHud)};
    for (int i = 0; ok && i < 4; ++i) {
        typename Api::BufferDesc bd{};
        bd.ByteWidth = static_cast<UINT>(sizes[i]);
        bd.Usage = Api::kUsageDefault;
        bd.BindFlags = Api::kBindConstantBuffer;
        if (FAILED(d.device->CreateBuffer(&bd, nullptr, &d.constants[i]))) {
            gEventLog.Write("%s: constant buffer (%d) creation failed!", Api::kName, i + 1);
            return false;
        }
    }
    for (int i = 0; ok && i < fur_d3d::kBlendCount; ++i) {
        const typename Api::BlendDesc bd = Api::MakeBlend(fur_d3d::BlendModeOf(static_cast<PaintBlend>(i)));
        ok = SUCCEEDED(d.device->CreateBlendState(&bd, &d.blends[i]));
    }
    for (int test = 0; ok && test < 2; ++test) {
        for (int write = 0; ok && write < 2; ++write) {
            typename Api::DepthStencilDesc ds{};
            ds.DepthEnable = test != 0;
            ds.DepthWriteMask = write ? Api::kDepthWriteAll : Api::kDepthWriteNone;
            ds.DepthFunc = Api::kLess;
            ok = SUCCEEDED(d.device->CreateDepthStencilState(&ds, &d.depthStates[test][write]));
        }
    }
    const bool anisotropic = fur_d3d::AnisotropicFilteringHere();
    typename Api::RasterizerDesc rd{};
    rd.FillMode = Api::kFillSolid;
    rd.CullMode = Api::kCullNone;
    rd.DepthClipEnable = TRUE;
    ok = ok && SUCCEEDED(d.device->CreateRasterizerState(&rd, &d.raster));
    for (int i = 0; ok && i < 2; ++i) {
        // Slot 0 repeats (surfaces, dots), slot 1 clamps (HUD, scene target).
        typename Api::SamplerDesc sd{};
        sd.Filter = i == 0 && anisotropic ? Api::kFilterAnisotropic : Api::kFilterLinear;
        sd.AddressU = sd.AddressV = sd.AddressW = i == 0 ? Api::kAddressWrap : Api::kAddressClamp;
        sd.MaxAnisotropy = i == 0 && anisotropic ? 16 : 1;
        sd.ComparisonFunc = Api::kNever;
        sd.MaxLOD = Api::kMaxLod;
        ok = SUCCEEDED(d.device->CreateSamplerState(&sd, &d.samplers[i]));
    }
    if (!ok) {
        gEventLog.Write("%s", Api::kInitFailed);
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
    const typename Api::Viewport vp = Api::MakeViewport(width, height);
    d.context->RSSetViewports(1, &vp);
    d.context->OMSetRenderTargets(1, &d.backView, d.depthView);
    return true;
}

template <class Api>
bool D3DFurDevice<Api>::CreatePrograms(int radialBlurSamples) {
    Device& d = *d_;
    const fur_d3d::PassTable table = Api::Passes();
    const std::string source = fur_hlsl::Source(radialBlurSamples);
    std::vector<unsigned char> layoutCode;
    auto build = [&](const fur_d3d::Pass& pass, typename Device::Bound* bound) {
        bound->vs = d.Make(&d.vertexShaders, pass.program.vertex, true, pass, source, &layoutCode);
        bound->ps = bound->vs ? d.Make(&d.pixelShaders, pass.program.pixel, false, pass, source, &layoutCode) : nullptr;
        return bound->vs && bound->ps;
    };
    for (int i = 0; i < fur_d3d::kProgramCount; ++i)
        if (!build(table.programs[i], &d.passes[i])) return false;
    if (!build(table.lines, &d.lines)) return false;

    // Every vertex stage reads the mesh layout: one input layout serves all.
    const typename Api::InputElementDesc elements[] = {
        {"POSITION", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 0, Api::kPerVertex, 0},
        {"NORMAL", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 12, Api::kPerVertex, 0},
        {"TEXCOORD", 0, DXGI_FORMAT_R32G32_FLOAT, 0, 24, Api::kPerVertex, 0},
    };
    if (FAILED(d.device->CreateInputLayout(elements, 3, layoutCode.data(), layoutCode.size(), &d.layout))) {
        gEventLog.Write("Shader program creation failed: input layout (%s)", fur_d3d::Describe(table.programs[0]).c_str());
        return false;
    }
    d.context->IASetInputLayout(d.layout);
    return true;
}

template <class Api>
FurPainter::TextureId D3DFurDevice<Api>::CreateTexture(const std::vector<Image>& levels) {
    Device& d = *d_;
    if (levels.empty() || !d.device) return 0;
    typename Api::Texture2DDesc td{};
    td.Width = static_cast<UINT>(levels[0].width);
    td.Height = static_cast<UINT>(levels[0].height);
    td.MipLevels = static_cast<UINT>(levels.size());
    td.ArraySize = 1;
    td.Format = DXGI_FORMAT_R8G8B8A8_UNORM;
    td.SampleDesc.Count = 1;
    td.Usage = Api::kUsageImmutable;
    td.BindFlags = Api::kBindShaderResource;
    std::vector<typename Api::SubresourceData> data(levels.size());
    for (size_t i = 0; i < levels.size(); ++i) {
        data[i].pSysMem = levels[i].rgba.data();
        data[i].SysMemPitch = static_cast<UINT>(levels[i].width * 4);
    }
    typename Device::Texture t;
    if (FAILED(d.device->CreateTexture2D(&td, data.data(), &t.texture)) ||
        FAILED(d.device->CreateShaderResourceView(t.texture, nullptr, &t.view))) {
        Release(t.texture);
        gEventLog.Write("%s: texture creation failed (%dx%d).", Api::kName, levels[0].width, levels[0].height);
        return 0;
    }
    d.textures.push_back(t);
    return static_cast<TextureId>(d.textures.size());
}

template <class Api>
void D3DFurDevice<Api>::FreeTexture(TextureId texture) {
    Device& d = *d_;
    if (texture <= 0 || texture > static_cast<int>(d.textures.size())) return;
    typename Device::Texture& t = d.textures[static_cast<size_t>(texture - 1)];
    Release(t.view);
    Release(t.texture);
}

template <class Api>
FurPainter::MeshId D3DFurDevice<Api>::CreateMesh(const Mesh& mesh) {
    Device& d = *d_;
    if (mesh.empty() || !d.device) return 0;
    typename Device::MeshBuffers m;
    typename Api::BufferDesc bd{};
    bd.Usage = Api::kUsageImmutable;
    bd.ByteWidth = static_cast<UINT>(mesh.vertices.size() * sizeof(float));
    bd.BindFlags = Api::kBindVertexBuffer;
    typename Api::SubresourceData data{mesh.vertices.data(), 0, 0};
    HRESULT hr = d.device->CreateBuffer(&bd, &data, &m.vertices);
    bd.ByteWidth = static_cast<UINT>(mesh.indices.size() * sizeof(uint32_t));
    bd.BindFlags = Api::kBindIndexBuffer;
    data.pSysMem = mesh.indices.data();
    if (SUCCEEDED(hr)) hr = d.device->CreateBuffer(&bd, &data, &m.indices);
    if (FAILED(hr)) {
        Release(m.vertices);
        gEventLog.Write("%s: mesh buffer creation failed (0x%08lX).", Api::kName, static_cast<unsigned long>(hr));
        return 0;
    }
    m.count = static_cast<UINT>(mesh.indices.size());
    d.meshes.push_back(m);
    return static_cast<MeshId>(d.meshes.size());
}

template <class Api>
bool D3DFurDevice<Api>::CreatePostTarget() {
    Device& d = *d_;
    typename Api::Texture2DDesc td{};
    td.Width = static_cast<UINT>(d.width);
    td.Height = static_cast<UINT>(d.height);
    td.MipLevels = 1;
    td.ArraySize = 1;
    td.Format = DXGI_FORMAT_R8G8B8A8_UNORM;
    td.SampleDesc.Count = 1;
    td.Usage = Api::kUsageDefault;
    td.BindFlags = Api::kBindRenderTarget | Api::kBindShaderResource;
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

template <class Api>
void D3DFurDevice<Api>::BeginScene(bool toPostTarget) {
    Device& d = *d_;
    typename Api::ShaderResourceView* none[2] = {nullptr, nullptr};
    d.context->PSSetShaderResources(0, 2, none);  // the scene target may still be bound for reading
    typename Api::RenderTargetView* target = toPostTarget ? d.postView : d.backView;
    d.context->OMSetRenderTargets(1, &target, d.depthView);
    const float black[4] = {0.0f, 0.0f, 0.0f, 1.0f};
    d.context->ClearRenderTargetView(target, black);
    d.context->ClearDepthStencilView(d.depthView, Api::kClearDepthStencil, 1.0f, 0);
}

template <class Api>
void D3DFurDevice<Api>::BeginPostPass() {
    Device& d = *d_;
    d.context->OMSetRenderTargets(1, &d.backView, d.depthView);
    d.context->PSSetShaderResources(kStageColor, 1, &d.postResource);
}

template <class Api>
void D3DFurDevice<Api>::UseProgram(PaintProgram program, PaintBlend blend, bool depthTest, bool depthWrite) {
    Device& d = *d_;
    d.program = program;
    const typename Device::Bound& pass = d.passes[static_cast<int>(program)];
    Api::SetShaders(d.context, pass.vs, pass.ps);
    const float factor[4] = {0, 0, 0, 0};
    d.context->OMSetBlendState(d.blends[static_cast<int>(blend)], factor, 0xFFFFFFFFu);
    d.context->OMSetDepthStencilState(d.depthStates[depthTest ? 1 : 0][depthWrite ? 1 : 0], 0);
}

template <class Api>
void D3DFurDevice<Api>::SetSurfaceConstants(const SurfaceConstants& c) {
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

template <class Api>
void D3DFurDevice<Api>::SetElapsedTime(float seconds) {
    d_->frame.elapsedTime = seconds;
    d_->Update(1, &d_->frame);
}

template <class Api>
void D3DFurDevice<Api>::SetColor(const float rgba[4]) {
    std::memcpy(d_->hud.flat_color, rgba, sizeof d_->hud.flat_color);
    d_->Update(3, &d_->hud);
}

template <class Api>
void D3DFurDevice<Api>::BindTexture(PaintStage stage, TextureId texture) {
    Device& d = *d_;
    typename Api::ShaderResourceView* view = nullptr;
    if (texture > 0 && texture <= static_cast<int>(d.textures.size()))
        view = d.textures[static_cast<size_t>(texture - 1)].view;
    d.context->PSSetShaderResources(static_cast<UINT>(stage), 1, &view);
}

template <class Api>
void D3DFurDevice<Api>::DrawMesh(MeshId mesh) {
    Device& d = *d_;
    if (mesh <= 0 || mesh > static_cast<int>(d.meshes.size())) return;
    const typename Device::MeshBuffers& m = d.meshes[static_cast<size_t>(mesh - 1)];
    const UINT stride = sizeof(PaintVertex), offset = 0;
    d.context->IASetVertexBuffers(0, 1, &m.vertices, &stride, &offset);
    d.context->IASetIndexBuffer(m.indices, DXGI_FORMAT_R32_UINT, 0);
    d.context->IASetPrimitiveTopology(D3D_PRIMITIVE_TOPOLOGY_TRIANGLELIST);
    d.context->DrawIndexed(m.count, 0, 0);
}

template <class Api>
void D3DFurDevice<Api>::DrawVertices(const std::vector<PaintVertex>& vertices, PaintPrimitive primitive) {
    Device& d = *d_;
    if (vertices.empty() || d.lost) return;
    const size_t bytes = vertices.size() * sizeof(PaintVertex);
    const size_t capacity = fur_d3d::StreamCapacity(d.streamCapacity, bytes);
    if (capacity != d.streamCapacity || !d.stream) {
        Release(d.stream);
        typename Api::BufferDesc bd{};
        bd.ByteWidth = static_cast<UINT>(capacity);
        bd.Usage = Api::kUsageDynamic;
        bd.BindFlags = Api::kBindVertexBuffer;
        bd.CPUAccessFlags = Api::kCpuWrite;
        d.streamCapacity = SUCCEEDED(d.device->CreateBuffer(&bd, nullptr, &d.stream)) ? capacity : 0;
        if (!d.stream) return;
    }
    void* mapped = nullptr;
    if (!d.Check(Api::MapDiscard(d.context, d.stream, &mapped))) return;
    std::memcpy(mapped, vertices.data(), bytes);
    Api::Unmap(d.context, d.stream);
    // The flat HUD program draws its lines with the lines' own pair.
    const bool lines = primitive != PaintPrimitive::kTriangles && d.program == PaintProgram::kHudFlat;
    if (lines) Api::SetShaders(d.context, d.lines.vs, d.lines.ps);
    const UINT stride = sizeof(PaintVertex), offset = 0;
    d.context->IASetVertexBuffers(0, 1, &d.stream, &stride, &offset);
    d.context->IASetPrimitiveTopology(fur_d3d::ToTopology(primitive));
    d.context->Draw(static_cast<UINT>(vertices.size()), 0);
    if (lines) {
        const typename Device::Bound& flat = d.passes[static_cast<int>(PaintProgram::kHudFlat)];
        Api::SetShaders(d.context, flat.vs, flat.ps);
    }
}

template <class Api>
void D3DFurDevice<Api>::ClearBackBuffer(const float rgba[4]) {
    Device& d = *d_;
    d.context->OMSetRenderTargets(1, &d.backView, d.depthView);
    d.context->ClearRenderTargetView(d.backView, rgba);
}

template <class Api>
void D3DFurDevice<Api>::PresentBackBuffer() {
    Device& d = *d_;
    if (!d.swapChain || d.lost) return;
    d.Check(d.swapChain->Present(0, 0));
}

template <class Api>
bool D3DFurDevice<Api>::ReadBackBuffer(std::string* rgba) {
    Device& d = *d_;
    if (!d.backBuffer || d.lost) return false;
    return ReadTexture(d.backBuffer, rgba);
}

template <class Api>
bool D3DFurDevice<Api>::ReadPostTarget(std::string* rgba) {
    Device& d = *d_;
    if (!d.post || d.lost) return false;
    return ReadTexture(d.post, rgba);
}

template <class Api>
template <class Texture>
bool D3DFurDevice<Api>::ReadTexture(Texture* texture, std::string* rgba) {
    Device& d = *d_;
    typename Api::Texture2DDesc td{};
    texture->GetDesc(&td);
    td.Usage = Api::kUsageStaging;
    td.BindFlags = 0;
    td.CPUAccessFlags = Api::kCpuRead;
    td.MiscFlags = 0;
    typename Api::Texture2D* staging = nullptr;
    if (FAILED(d.device->CreateTexture2D(&td, nullptr, &staging))) return false;
    d.context->CopyResource(staging, texture);
    void* mapped = nullptr;
    UINT pitch = 0;
    const bool ok = d.Check(Api::MapRead(d.context, staging, &mapped, &pitch));
    if (ok) {
        fur_d3d::PackRows(mapped, pitch, d.width, d.height, rgba);
        Api::Unmap(d.context, staging);
    }
    staging->Release();
    return ok;
}


template <class Api>
int D3DFurDevice<Api>::RunComputeCheck() {
    if constexpr (!std::is_same<Api, D3D11Api>::value) {
        return -1;
    } else {
        Device& d = *d_;
        if (!d.device || d.lost) return -1;
        ComputeCheckResources& c = d.compute;
        if (c.state == 0) c.state = c.SetUp(d.device) ? 1 : -1;
        if (c.state < 0) return -1;
        // Cleared first: results left from the last check must not pass for this one's.
        const UINT zero[4] = {0, 0, 0, 0};
        d.context->ClearUnorderedAccessViewUint(c.view, zero);
        d.context->CSSetShader(c.shader, nullptr, 0);
        d.context->CSSetUnorderedAccessViews(0, 1, &c.view, nullptr);
        d.context->Dispatch(kComputeValues / d3d11_compute::kGroupSize, 1, 1);
        ID3D11UnorderedAccessView* none = nullptr;
        d.context->CSSetUnorderedAccessViews(0, 1, &none, nullptr);
        d.context->CSSetShader(nullptr, nullptr, 0);
        d.context->CopyResource(c.staging, c.values);
        D3D11_MAPPED_SUBRESOURCE mapped{};
        if (!d.Check(d.context->Map(c.staging, 0, D3D11_MAP_READ, 0, &mapped)) || !mapped.pData) return -1;
        const int wrong = CountComputeMismatches(static_cast<const uint32_t*>(mapped.pData));
        d.context->Unmap(c.staging, 0);
        return wrong;
    }
}

template class D3DFurDevice<D3D10Api>;
template class D3DFurDevice<D3D11Api>;

cLm4DDemo_D3D10::cLm4DDemo_D3D10() { api_id = 10; }
cLm4DDemo_D3D10::~cLm4DDemo_D3D10() = default;

cLm4DDemo_D3D11::cLm4DDemo_D3D11() { api_id = 11; }
cLm4DDemo_D3D11::~cLm4DDemo_D3D11() = default;
