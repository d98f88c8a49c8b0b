#include "scenes/fur/fur_d3d9.h"

#include <d3d9.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "core/event_log.h"
#include "platform/gpu_choice.h"
#include "scenes/fur/d3d_shaders.h"
#include "scenes/fur/fur_d3d9_asm.h"
#include "scenes/fur/fur_d3d_tables.h"

namespace {

using fur_d3d9::Const;
using fur_d3d9::ShaderStage;

template <class T>
void Release(T*& p) {
    if (p) p->Release();
    p = nullptr;
}

// The codes that say the device is gone for good, as far as this test is
// concerned: a windowed run is never reset.
const char* LostCode(HRESULT hr) {
    switch (hr) {
        case D3DERR_DEVICELOST: return "D3DERR_DEVICELOST";
        case D3DERR_DEVICENOTRESET: return "D3DERR_DEVICENOTRESET";
        case D3DERR_DEVICEREMOVED: return "D3DERR_DEVICEREMOVED";
        case D3DERR_DEVICEHUNG: return "D3DERR_DEVICEHUNG";
        case D3DERR_DRIVERINTERNALERROR: return "D3DERR_DRIVERINTERNALERROR";
        default: return nullptr;
    }
}

D3DCOLOR ToColor(const float rgba[4]) {
    auto byte = [](float v) { return static_cast<DWORD>(std::min(1.0f, std::max(0.0f, v)) * 255.0f + 0.5f); };
    return D3DCOLOR_ARGB(byte(rgba[3]), byte(rgba[0]), byte(rgba[1]), byte(rgba[2]));
}

}  // namespace

struct cLm4DDemo_D3D9::Device {
    IDirect3D9* d3d = nullptr;
    IDirect3DDevice9* device = nullptr;
    IDirect3DSurface9* backBuffer = nullptr;
    IDirect3DTexture9* post = nullptr;
    IDirect3DSurface9* postSurface = nullptr;
    IDirect3DVertexDeclaration9* layout = nullptr;
    std::map<std::string, IDirect3DVertexShader9*> vertexShaders;
    std::map<std::string, IDirect3DPixelShader9*> pixelShaders;
    std::vector<IDirect3DTexture9*> textures;  // id - 1; freed ones stay as empty slots
    struct MeshBuffers {
        IDirect3DVertexBuffer9* vertices = nullptr;
        IDirect3DIndexBuffer9* indices = nullptr;
        UINT vertexCount = 0;
        UINT triangles = 0;
    };
    std::vector<MeshBuffers> meshes;
    // HUD vertices: a ring the draws append to, started again (discarded)
    // when full.
    IDirect3DVertexBuffer9* stream = nullptr;
    UINT streamCapacity = 0, streamUsed = 0;  // in vertices

    // What the constant registers hold; the registers a draw changed are
    // uploaded before it.
    float vs[fur_d3d9::kVertexRegisters][4] = {};
    float ps[fur_d3d9::kPixelRegisters][4] = {};
    int dirtyLow[2] = {0, 0}, dirtyHigh[2] = {-1, -1};  // per stage, registers

    // Event queries fence the presented frames.
    struct Fences : platform::FenceOps {
        Device* d = nullptr;
        void* Insert() override {
            IDirect3DQuery9* q = nullptr;
            if (d->lost || FAILED(d->device->CreateQuery(D3DQUERYTYPE_EVENT, &q))) return nullptr;
            q->Issue(D3DISSUE_END);
            return q;
        }
        bool Done(void* fence, bool wait) override {
            auto* q = static_cast<IDirect3DQuery9*>(fence);
            for (;;) {
                const HRESULT hr = q->GetData(nullptr, 0, D3DGETDATA_FLUSH);
                if (hr == S_OK) return true;
                if (FAILED(hr)) {
                    d->Check(hr, "GetData");  // a device that is gone draws nothing more
                    return true;
                }
                if (!wait) return false;
                std::this_thread::yield();
            }
        }
        void Free(void* fence) override { static_cast<IDirect3DQuery9*>(fence)->Release(); }
        void FinishAll() override {}
    };
    Fences fences;

    const fur_d3d9::Technique* technique = nullptr;
    int blend = -1, depthTest = -1, depthWrite = -1, sampling = -1;  // -1: not set yet
    DWORD minFilterWrap = D3DTEXF_LINEAR, maxAnisotropy = 1;
    DWORD maxVertexIndex = 0xFFFF;
    bool stencil = false;
    bool inScene = false;
    bool lost = false;
    int width = 0, height = 0;

    // A call on a device that is gone ends the run with one line.
    bool Check(HRESULT hr, const char* call) {
        if (const char* code = LostCode(hr)) {
            if (!lost) gEventLog.Write("Direct3D 9: the device was lost (%s from %s): the test ends.", code, call);
            lost = true;
            return false;
        }
        return SUCCEEDED(hr);
    }

    void Put(Const id, const float* values) {
        const fur_d3d9::ConstantSlot& s = fur_d3d9::Slot(id);
        const int stage = s.stage == ShaderStage::kVertex ? 0 : 1;
        float(*regs)[4] = stage == 0 ? vs : ps;
        for (int r = 0; r < s.registers; ++r)
            for (int c = 0; c < s.components; ++c) regs[s.reg + r][s.component + c] = values[r * s.components + c];
        if (dirtyHigh[stage] < dirtyLow[stage]) {
            dirtyLow[stage] = s.reg;
            dirtyHigh[stage] = s.reg + s.registers - 1;
        } else {
            dirtyLow[stage] = std::min(dirtyLow[stage], s.reg);
            dirtyHigh[stage] = std::max(dirtyHigh[stage], s.reg + s.registers - 1);
        }
    }
    void Put(Const id, float value) { Put(id, &value); }
    void PutMatrix(Const id, const m3d::Mat4& m) {
        float rows[16];
        fur_d3d9::MatrixRows(m.data(), rows);
        Put(id, rows);
    }

    void Flush() {
        for (int stage = 0; stage < 2; ++stage) {
            if (dirtyHigh[stage] < dirtyLow[stage]) continue;
            const UINT count = static_cast<UINT>(dirtyHigh[stage] - dirtyLow[stage] + 1);
            if (stage == 0)
                device->SetVertexShaderConstantF(static_cast<UINT>(dirtyLow[0]), vs[dirtyLow[0]], count);
            else
                device->SetPixelShaderConstantF(static_cast<UINT>(dirtyLow[1]), ps[dirtyLow[1]], count);
            dirtyLow[stage] = 0;
            dirtyHigh[stage] = -1;
        }
    }

    void SetSampling(fur_d3d9::Sampling s) {
        if (sampling == static_cast<int>(s)) return;
        sampling = static_cast<int>(s);
        const bool wrap = s == fur_d3d9::Sampling::kWrapAnisotropic;
        for (DWORD stage = 0; stage < 2; ++stage) {
            const DWORD address = wrap ? D3DTADDRESS_WRAP : D3DTADDRESS_CLAMP;
            device->SetSamplerState(stage, D3DSAMP_ADDRESSU, address);
            device->SetSamplerState(stage, D3DSAMP_ADDRESSV, address);
            device->SetSamplerState(stage, D3DSAMP_MINFILTER,
                                    wrap ? minFilterWrap : static_cast<DWORD>(D3DTEXF_LINEAR));
            device->SetSamplerState(stage, D3DSAMP_MAGFILTER, D3DTEXF_LINEAR);
            device->SetSamplerState(stage, D3DSAMP_MIPFILTER, D3DTEXF_LINEAR);
            device->SetSamplerState(stage, D3DSAMP_MAXANISOTROPY, wrap ? maxAnisotropy : 1);
        }
    }

    void EndScene() {
        if (inScene && device) device->EndScene();
        inScene = false;
    }

    void ReleaseAll() {
        if (device) {
            EndScene();
            // Nothing stays bound to what is about to go.
            device->SetStreamSource(0, nullptr, 0, 0);
            device->SetIndices(nullptr);
            device->SetTexture(0, nullptr);
            device->SetTexture(1, nullptr);
            device->SetVertexShader(nullptr);
            device->SetPixelShader(nullptr);
            device->SetVertexDeclaration(nullptr);
            if (backBuffer) device->SetRenderTarget(0, backBuffer);
        }
        for (IDirect3DTexture9*& t : textures) Release(t);
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
        Release(stream);
        streamCapacity = streamUsed = 0;
        Release(layout);
        Release(postSurface);
        Release(post);
        Release(backBuffer);
        if (device) {
            // The device goes last; anything still holding it was leaked.
            const ULONG left = device->Release();
            device = nullptr;
            if (left != 0)
                gEventLog.Write("Direct3D 9: the device still had %lu reference(s) after its release.",
                                static_cast<unsigned long>(left));
        }
        Release(d3d);
        technique = nullptr;
        blend = depthTest = depthWrite = sampling = -1;
    }
};

cLm4DDemo_D3D9::cLm4DDemo_D3D9() : d_(new Device) {
    api_id = 9;
    d_->fences.d = d_.get();
}

platform::FenceOps* cLm4DDemo_D3D9::FrameFences() { return d_->device ? &d_->fences : nullptr; }

cLm4DDemo_D3D9::~cLm4DDemo_D3D9() {
    Terminate();
    // A lost or half-made device is not released by Terminate.
    d_->ReleaseAll();
}

bool cLm4DDemo_D3D9::DeviceLost() const { return d_->lost; }

bool cLm4DDemo_D3D9::HasDevice() const { return d_->device != nullptr && !d_->lost; }

void cLm4DDemo_D3D9::DestroyDevice() { d_->ReleaseAll(); }

bool cLm4DDemo_D3D9::CreateDevice(const RenderTarget& target, int width, int height) {
    Device& d = *d_;
    d.width = width;
    d.height = height;
    HWND window = static_cast<HWND>(target.nativeWindow);
    if (!window) {
        gEventLog.Write("D3D9 window creation failed!");
        return false;
    }
    d.d3d = Direct3DCreate9(D3D_SDK_VERSION);
    if (!d.d3d) {
        gEventLog.Write("D3D9 initialization failed!");
        gEventLog.Write("Direct3D 9: Direct3DCreate9 failed (no Direct3D 9 runtime).");
        return false;
    }

    // Every adapter's facts; the device goes on the one showing the window.
    // With /gpu=N, the device goes on that GPU's adapter instead.
    const HMONITOR monitor = MonitorFromWindow(window, MONITOR_DEFAULTTOPRIMARY);
    const platform::GpuChoice& choice = platform::CurrentGpuChoice();
    int chosen = -1;
    if (choice.index > 0) {
        std::vector<platform::AdapterIdentity> ids;
        for (UINT i = 0; i < d.d3d->GetAdapterCount(); ++i) {
            D3DADAPTER_IDENTIFIER9 id{};
            platform::AdapterIdentity a;
            if (SUCCEEDED(d.d3d->GetAdapterIdentifier(i, 0, &id))) {
                a.pciVendor = static_cast<int>(id.VendorId);
                a.pciDevice = static_cast<int>(id.DeviceId);
            }
            ids.push_back(a);
        }
        chosen = platform::PickAdapter(choice, ids);
        const bool byOrder = chosen < 0 && choice.index <= static_cast<int>(ids.size());
        if (byOrder) chosen = choice.index - 1;
        if (chosen < 0) {
            gEventLog.Write("D3D9 initialization failed!");
            gEventLog.Write("Direct3D 9: GPU %d (%s) is none of the %u adapters.", choice.index, choice.name.c_str(),
                            static_cast<unsigned>(ids.size()));
            return false;
        }
        gEventLog.Write("Direct3D 9: drawing on GPU %d (%s) through adapter %d%s.", choice.index, choice.name.c_str(),
                        chosen, byOrder ? " (by order: no adapter with its PCI identity)" : "");
    }
    UINT adapter = D3DADAPTER_DEFAULT;
    for (UINT i = 0; i < d.d3d->GetAdapterCount(); ++i) {
        D3DADAPTER_IDENTIFIER9 id{};
        if (FAILED(d.d3d->GetAdapterIdentifier(i, 0, &id))) continue;
        const int n = static_cast<int>(i);
        gEventLog.Write("Direct3D 9 - Adapter %d - Description: %s", n, id.Description);
        gEventLog.Write("Direct3D 9 - Adapter %d - Device name: %s", n, id.DeviceName);
        gEventLog.Write("Direct3D 9 - Adapter %d - Driver: %s", n, id.Driver);
        gEventLog.Write("Direct3D 9 - Adapter %d - vendorId: %.4X, deviceId: %.4X, revision: %.4X", n,
                        static_cast<unsigned>(id.VendorId), static_cast<unsigned>(id.DeviceId),
                        static_cast<unsigned>(id.Revision));
        if (chosen >= 0 ? static_cast<int>(i) == chosen : d.d3d->GetAdapterMonitor(i) == monitor) {
            adapter = i;
            const LARGE_INTEGER v = id.DriverVersion;
            char version[64];
            std::snprintf(version, sizeof version, "%s %u.%u.%u.%u", id.Driver, static_cast<unsigned>(HIWORD(v.HighPart)),
                          static_cast<unsigned>(LOWORD(v.HighPart)), static_cast<unsigned>(HIWORD(v.LowPart)),
                          static_cast<unsigned>(LOWORD(v.LowPart)));
            renderer_text = id.Description;
            driver_text = version;
        }
    }
    D3DCAPS9 caps{};
    HRESULT hr = d.d3d->GetDeviceCaps(adapter, D3DDEVTYPE_HAL, &caps);
    if (FAILED(hr)) {
        gEventLog.Write("D3D9 initialization failed!");
        gEventLog.Write("Direct3D 9: no hardware device on adapter %u (0x%08lX).", adapter,
                        static_cast<unsigned long>(hr));
        return false;
    }
    gEventLog.Write("Direct3D 9 - Max texture size: %dx%d", static_cast<int>(caps.MaxTextureWidth),
                    static_cast<int>(caps.MaxTextureHeight));
    gEventLog.Write("Direct3D 9 - Max texture units: %d", static_cast<int>(caps.MaxSimultaneousTextures));
    gEventLog.Write("Direct3D 9 - Num render targets (MRT): %d", static_cast<int>(caps.NumSimultaneousRTs));
    gEventLog.Write("Direct3D 9 - Vertex shader version: %d.%d, pixel shader version: %d.%d",
                    static_cast<int>(D3DSHADER_VERSION_MAJOR(caps.VertexShaderVersion)),
                    static_cast<int>(D3DSHADER_VERSION_MINOR(caps.VertexShaderVersion)),
                    static_cast<int>(D3DSHADER_VERSION_MAJOR(caps.PixelShaderVersion)),
                    static_cast<int>(D3DSHADER_VERSION_MINOR(caps.PixelShaderVersion)));
    // Vertex programs can run on the processor; pixel programs cannot.
    if (caps.PixelShaderVersion < D3DPS_VERSION(3, 0)) {
        gEventLog.Write("D3D9 initialization failed!");
        gEventLog.Write("Direct3D 9: pixel shader 3.0 is required.");
        return false;
    }
    d.maxVertexIndex = caps.MaxVertexIndex;
    if ((caps.TextureFilterCaps & D3DPTFILTERCAPS_MINFANISOTROPIC) && fur_d3d::AnisotropicFilteringHere()) {
        d.minFilterWrap = D3DTEXF_ANISOTROPIC;
        d.maxAnisotropy = std::max<DWORD>(1, std::min<DWORD>(16, caps.MaxAnisotropy));
    }

    D3DPRESENT_PARAMETERS pp{};
    pp.BackBufferWidth = static_cast<UINT>(width);
    pp.BackBufferHeight = static_cast<UINT>(height);
    pp.BackBufferFormat = D3DFMT_X8R8G8B8;
    pp.BackBufferCount = 1;
    pp.MultiSampleType = D3DMULTISAMPLE_NONE;
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    pp.hDeviceWindow = window;
    pp.Windowed = TRUE;
    pp.EnableAutoDepthStencil = TRUE;
    pp.AutoDepthStencilFormat = D3DFMT_D24S8;
    for (D3DFORMAT depth : {D3DFMT_D24S8, D3DFMT_D24X8, D3DFMT_D16}) {
        if (SUCCEEDED(d.d3d->CheckDeviceFormat(adapter, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, D3DUSAGE_DEPTHSTENCIL,
                                               D3DRTYPE_SURFACE, depth))) {
            pp.AutoDepthStencilFormat = depth;
            break;
        }
    }
    d.stencil = pp.AutoDepthStencilFormat == D3DFMT_D24S8;
    pp.PresentationInterval = D3DPRESENT_INTERVAL_IMMEDIATE;

    // Hardware vertex processing where the adapter has it, else on the
    // processor. The device keeps the thread's floating-point precision:
    // the run's timing is computed in doubles on this thread. It leaves the
    // window alone: the window belongs to the UI thread, which hides and
    // destroys it while this thread may still be drawing.
    const DWORD flags = D3DCREATE_FPU_PRESERVE | D3DCREATE_NOWINDOWCHANGES;
    const bool hardware =
        (caps.DevCaps & D3DDEVCAPS_HWTRANSFORMANDLIGHT) && caps.VertexShaderVersion >= D3DVS_VERSION(3, 0);
    hr = E_FAIL;
    if (hardware)
        hr = d.d3d->CreateDevice(adapter, D3DDEVTYPE_HAL, window, flags | D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp,
                                 &d.device);
    if (FAILED(hr)) {
        hr = d.d3d->CreateDevice(adapter, D3DDEVTYPE_HAL, window, flags | D3DCREATE_SOFTWARE_VERTEXPROCESSING, &pp,
                                 &d.device);
        if (SUCCEEDED(hr)) gEventLog.Write("Direct3D 9: vertex processing runs on the processor.");
    }
    if (FAILED(hr)) {
        d.device = nullptr;
        gEventLog.Write("D3D9 initialization failed!");
        gEventLog.Write("Direct3D 9: device creation failed (0x%08lX).", static_cast<unsigned long>(hr));
        return false;
    }

    const D3DVERTEXELEMENT9 elements[] = {
        {0, 0, D3DDECLTYPE_FLOAT3, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_POSITION, 0},
        {0, 12, D3DDECLTYPE_FLOAT3, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_NORMAL, 0},
        {0, 24, D3DDECLTYPE_FLOAT2, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_TEXCOORD, 0},
        D3DDECL_END(),
    };
    if (FAILED(d.device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &d.backBuffer)) ||
        FAILED(d.device->CreateVertexDeclaration(elements, &d.layout))) {
        gEventLog.Write("D3D9 initialization failed!");
        return false;
    }
    d.device->SetVertexDeclaration(d.layout);
    d.device->SetRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
    d.device->SetRenderState(D3DRS_LIGHTING, FALSE);
    d.device->SetRenderState(D3DRS_ZFUNC, D3DCMP_LESS);
    d.device->SetRenderState(D3DRS_BLENDOP, D3DBLENDOP_ADD);

    const fur_d3d9::LightValues lights = fur_d3d9::Lights();
    d.Put(Const::kLightPosition0, lights.position0);
    d.Put(Const::kLightPosition1, lights.position1);
    d.Put(Const::kLightAmbient, lights.ambient);
    d.Put(Const::kLightDiffuse0, lights.diffuse0);
    d.Put(Const::kLightDiffuse1, lights.diffuse1);
    float values[16];
    fur_d3d9::HudMatrixRows(width, height, values);
    d.Put(Const::kHudMatrix, values);
    fur_d3d9::PixelOffset(width, height, values);
    d.Put(Const::kPixelOffset, values);
    d.Put(Const::kRadialBlurScaleMul, scene_.params.radialBlurScaleMul);
    const float white[4] = {1.0f, 1.0f, 1.0f, 1.0f};
    d.Put(Const::kFlatColor, white);
    d.Put(Const::kFurFade, 1.0f);
    d.Put(Const::kUVScale, 1.0f);
    d.Flush();
    return true;
}

bool cLm4DDemo_D3D9::CreatePrograms(int radialBlurSamples) {
    Device& d = *d_;
    const int samples = fur_d3d9::ClampBlurSamples(radialBlurSamples);
    if (samples != radialBlurSamples)
        gEventLog.Write("Direct3D 9: the post effect takes %d samples instead of %d (what one pixel program holds).",
                        samples, radialBlurSamples);
    d.Put(Const::kRadialBlurSamples, static_cast<float>(samples));
    for (const fur_d3d9::Shader& s : fur_d3d9::Shaders(samples)) {
        const bool vertex = s.stage == ShaderStage::kVertex;
        const char* line = vertex ? "Vertex shader creation failed: %s" : "Pixel shader creation failed: %s";
        std::vector<unsigned char> code;
        std::string error;
        if (!d3d_shaders::Assemble(s.text, &code, &error)) {
            gEventLog.Write(line, (s.name + ": " + error).c_str());
            return false;
        }
        const DWORD* words = reinterpret_cast<const DWORD*>(code.data());
        HRESULT hr;
        if (vertex) {
            IDirect3DVertexShader9* vs = nullptr;
            hr = d.device->CreateVertexShader(words, &vs);
            d.vertexShaders[s.name] = vs;
        } else {
            IDirect3DPixelShader9* ps = nullptr;
            hr = d.device->CreatePixelShader(words, &ps);
            d.pixelShaders[s.name] = ps;
        }
        if (FAILED(hr)) {
            char why[32];
            std::snprintf(why, sizeof why, " (0x%08lX)", static_cast<unsigned long>(hr));
            gEventLog.Write(line, (s.name + why).c_str());
            return false;
        }
    }
    // Every technique names shaders that now exist.
    for (const fur_d3d9::Technique& t : fur_d3d9::Techniques()) {
        if (!d.vertexShaders.count(t.vertexShader) || !d.pixelShaders.count(t.pixelShader)) {
            gEventLog.Write("Shader program creation failed: %s", t.name);
            return false;
        }
    }
    d.Flush();
    return true;
}

FurPainter::TextureId cLm4DDemo_D3D9::CreateTexture(const std::vector<Image>& levels) {
    Device& d = *d_;
    if (levels.empty() || !d.device) return 0;
    const Image& base = levels[0];
    IDirect3DTexture9* texture = nullptr;
    HRESULT hr = d.device->CreateTexture(static_cast<UINT>(base.width), static_cast<UINT>(base.height),
                                         static_cast<UINT>(levels.size()), 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED,
                                         &texture, nullptr);
    if (FAILED(hr)) {
        gEventLog.Write("Direct3D 9: texture creation failed (%dx%d, 0x%08lX).", base.width, base.height,
                        static_cast<unsigned long>(hr));
        return 0;
    }
    for (size_t i = 0; i < levels.size(); ++i) {
        const Image& level = levels[i];
        D3DSURFACE_DESC desc{};
        D3DLOCKED_RECT rect{};
        const bool fits = SUCCEEDED(texture->GetLevelDesc(static_cast<UINT>(i), &desc)) &&
                          desc.Width == static_cast<UINT>(level.width) &&
                          desc.Height == static_cast<UINT>(level.height) &&
                          level.rgba.size() >= static_cast<size_t>(level.width) * level.height * 4;
        if (!fits || FAILED(texture->LockRect(static_cast<UINT>(i), &rect, nullptr, 0))) {
            gEventLog.Write("Direct3D 9: texture level %d (%dx%d) could not be filled.", static_cast<int>(i),
                            level.width, level.height);
            texture->Release();
            return 0;
        }
        fur_d3d9::RgbaToBgra(level.rgba.data(), level.width, level.height, static_cast<uint8_t*>(rect.pBits),
                             rect.Pitch);
        texture->UnlockRect(static_cast<UINT>(i));
    }
    d.textures.push_back(texture);
    return static_cast<TextureId>(d.textures.size());
}

void cLm4DDemo_D3D9::FreeTexture(TextureId texture) {
    Device& d = *d_;
    if (texture <= 0 || texture > static_cast<int>(d.textures.size())) return;
    IDirect3DTexture9*& t = d.textures[static_cast<size_t>(texture - 1)];
    if (t && d.device) {
        // Not left bound to a stage.
        for (DWORD stage = 0; stage < 2; ++stage) {
            IDirect3DBaseTexture9* bound = nullptr;
            if (SUCCEEDED(d.device->GetTexture(stage, &bound)) && bound) {
                if (bound == t) d.device->SetTexture(stage, nullptr);
                bound->Release();
            }
        }
    }
    Release(t);
}

FurPainter::MeshId cLm4DDemo_D3D9::CreateMesh(const Mesh& mesh) {
    Device& d = *d_;
    if (mesh.empty() || !d.device) return 0;
    const size_t vertexCount = mesh.vertices.size() / kMeshFloatsPerVertex;
    for (uint32_t index : mesh.indices) {
        if (index >= vertexCount) {
            gEventLog.Write("Direct3D 9: a mesh index (%u) is past its %u vertices.", static_cast<unsigned>(index),
                            static_cast<unsigned>(vertexCount));
            return 0;
        }
    }
    // 16-bit indices where they reach every vertex; 32-bit ones only where
    // the adapter takes them.
    const bool wide = vertexCount > 0x10000;
    if (wide && d.maxVertexIndex < vertexCount - 1) {
        gEventLog.Write("Direct3D 9: a mesh of %u vertices is more than the adapter indexes (%lu).",
                        static_cast<unsigned>(vertexCount), static_cast<unsigned long>(d.maxVertexIndex));
        return 0;
    }
    Device::MeshBuffers m;
    const UINT vertexBytes = static_cast<UINT>(vertexCount * sizeof(PaintVertex));
    const UINT indexBytes = static_cast<UINT>(mesh.indices.size() * (wide ? 4 : 2));
    void* p = nullptr;
    HRESULT hr =
        d.device->CreateVertexBuffer(vertexBytes, D3DUSAGE_WRITEONLY, 0, D3DPOOL_MANAGED, &m.vertices, nullptr);
    if (SUCCEEDED(hr)) hr = m.vertices->Lock(0, vertexBytes, &p, 0);
    if (SUCCEEDED(hr)) {
        std::memcpy(p, mesh.vertices.data(), vertexBytes);
        m.vertices->Unlock();
        hr = d.device->CreateIndexBuffer(indexBytes, D3DUSAGE_WRITEONLY, wide ? D3DFMT_INDEX32 : D3DFMT_INDEX16,
                                         D3DPOOL_MANAGED, &m.indices, nullptr);
    }
    if (SUCCEEDED(hr)) hr = m.indices->Lock(0, indexBytes, &p, 0);
    if (FAILED(hr)) {
        Release(m.vertices);
        Release(m.indices);
        gEventLog.Write("Direct3D 9: mesh buffer creation failed (0x%08lX).", static_cast<unsigned long>(hr));
        return 0;
    }
    if (wide) {
        std::memcpy(p, mesh.indices.data(), indexBytes);
    } else {
        uint16_t* out = static_cast<uint16_t*>(p);
        for (size_t i = 0; i < mesh.indices.size(); ++i) out[i] = static_cast<uint16_t>(mesh.indices[i]);
    }
    m.indices->Unlock();
    m.vertexCount = static_cast<UINT>(vertexCount);
    m.triangles = static_cast<UINT>(mesh.indices.size() / 3);
    d.meshes.push_back(m);
    return static_cast<MeshId>(d.meshes.size());
}

bool cLm4DDemo_D3D9::CreatePostTarget() {
    Device& d = *d_;
    // The back buffer's depth surface serves both: the target has its size.
    if (FAILED(d.device->CreateTexture(static_cast<UINT>(d.width), static_cast<UINT>(d.height), 1,
                                       D3DUSAGE_RENDERTARGET, D3DFMT_A8R8G8B8, D3DPOOL_DEFAULT, &d.post, nullptr)) ||
        FAILED(d.post->GetSurfaceLevel(0, &d.postSurface))) {
        gEventLog.Write("Post-processing target creation failed: the post effect is off.");
        Release(d.post);
        return false;
    }
    return true;
}

void cLm4DDemo_D3D9::BeginScene(bool toPostTarget) {
    Device& d = *d_;
    if (!HasDevice() || !d.Check(d.device->TestCooperativeLevel(), "TestCooperativeLevel")) return;
    if (!d.inScene) d.inScene = SUCCEEDED(d.device->BeginScene());
    // The scene target may still be bound for reading.
    d.device->SetTexture(0, nullptr);
    d.device->SetTexture(1, nullptr);
    d.device->SetRenderTarget(0, toPostTarget && d.postSurface ? d.postSurface : d.backBuffer);  // whole-view viewport
    d.device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER | (d.stencil ? D3DCLEAR_STENCIL : 0),
                    D3DCOLOR_ARGB(255, 0, 0, 0), 1.0f, 0);
}

void cLm4DDemo_D3D9::BeginPostPass() {
    Device& d = *d_;
    if (!HasDevice()) return;
    d.device->SetRenderTarget(0, d.backBuffer);
    d.device->SetTexture(kStageColor, d.post);
}

void cLm4DDemo_D3D9::UseProgram(PaintProgram program, PaintBlend blend, bool depthTest, bool depthWrite) {
    Device& d = *d_;
    if (!HasDevice()) return;
    const fur_d3d9::Technique& t = fur_d3d9::TechniqueFor(program);
    if (d.technique != &t) {
        d.technique = &t;
        d.device->SetVertexShader(d.vertexShaders[t.vertexShader]);
        d.device->SetPixelShader(d.pixelShaders[t.pixelShader]);
        d.SetSampling(t.sampling);
    }
    if (d.blend != static_cast<int>(blend)) {
        d.blend = static_cast<int>(blend);
        static const DWORD factors[4][2] = {{D3DBLEND_ONE, D3DBLEND_ZERO},
                                            {D3DBLEND_SRCALPHA, D3DBLEND_INVSRCALPHA},
                                            {D3DBLEND_ONE, D3DBLEND_ONE},
                                            {D3DBLEND_INVSRCCOLOR, D3DBLEND_ONE}};
        d.device->SetRenderState(D3DRS_ALPHABLENDENABLE, blend != PaintBlend::kOpaque);
        d.device->SetRenderState(D3DRS_SRCBLEND, factors[d.blend][0]);
        d.device->SetRenderState(D3DRS_DESTBLEND, factors[d.blend][1]);
    }
    if (d.depthTest != static_cast<int>(depthTest)) {
        d.depthTest = depthTest;
        d.device->SetRenderState(D3DRS_ZENABLE, depthTest ? D3DZB_TRUE : D3DZB_FALSE);
    }
    if (d.depthWrite != static_cast<int>(depthWrite)) {
        d.depthWrite = depthWrite;
        d.device->SetRenderState(D3DRS_ZWRITEENABLE, depthWrite);
    }
}

void cLm4DDemo_D3D9::SetSurfaceConstants(const SurfaceConstants& c) {
    Device& d = *d_;
    d.PutMatrix(Const::kWorldViewProjection, c.worldViewProjection);
    d.PutMatrix(Const::kModelView, c.modelView);
    d.PutMatrix(Const::kViewMatrix, c.view);
    d.PutMatrix(Const::kMatWorld, c.world);
    d.PutMatrix(Const::kProjectionMatrix, c.projection);
    d.Put(Const::kFurLength, c.furLength);
    d.Put(Const::kLayer, c.layer);
    d.Put(Const::kUVScale, c.uvScale);
    d.Put(Const::kFurFade, c.furFade);
}

void cLm4DDemo_D3D9::SetElapsedTime(float seconds) { d_->Put(Const::kElapsedTime, seconds); }

void cLm4DDemo_D3D9::SetColor(const float rgba[4]) { d_->Put(Const::kFlatColor, rgba); }

void cLm4DDemo_D3D9::BindTexture(PaintStage stage, TextureId texture) {
    Device& d = *d_;
    if (!HasDevice()) return;
    IDirect3DTexture9* t = nullptr;
    if (texture > 0 && texture <= static_cast<int>(d.textures.size())) t = d.textures[static_cast<size_t>(texture - 1)];
    d.device->SetTexture(static_cast<DWORD>(stage), t);
}

void cLm4DDemo_D3D9::DrawMesh(MeshId mesh) {
    Device& d = *d_;
    if (!HasDevice() || !d.inScene || mesh <= 0 || mesh > static_cast<int>(d.meshes.size())) return;
    const Device::MeshBuffers& m = d.meshes[static_cast<size_t>(mesh - 1)];
    d.Flush();
    d.device->SetStreamSource(0, m.vertices, 0, sizeof(PaintVertex));
    d.device->SetIndices(m.indices);
    d.device->DrawIndexedPrimitive(D3DPT_TRIANGLELIST, 0, 0, m.vertexCount, 0, m.triangles);
}

void cLm4DDemo_D3D9::DrawVertices(const std::vector<PaintVertex>& vertices, PaintPrimitive primitive) {
    Device& d = *d_;
    if (!HasDevice() || !d.inScene) return;
    const UINT count = static_cast<UINT>(vertices.size());
    D3DPRIMITIVETYPE type = D3DPT_TRIANGLELIST;
    UINT primitives = count / 3;
    if (primitive == PaintPrimitive::kLineStrip) {
        type = D3DPT_LINESTRIP;
        primitives = count > 1 ? count - 1 : 0;
    } else if (primitive == PaintPrimitive::kLines) {
        type = D3DPT_LINELIST;
        primitives = count / 2;
    }
    if (primitives == 0) return;
    if (count > d.streamCapacity) {
        Release(d.stream);
        UINT capacity = d.streamCapacity ? d.streamCapacity : 4096;
        while (capacity < count) capacity *= 2;
        const HRESULT hr =
            d.device->CreateVertexBuffer(capacity * sizeof(PaintVertex), D3DUSAGE_DYNAMIC | D3DUSAGE_WRITEONLY, 0,
                                         D3DPOOL_DEFAULT, &d.stream, nullptr);
        d.streamCapacity = SUCCEEDED(hr) ? capacity : 0;
        d.streamUsed = 0;
        if (FAILED(hr)) {
            d.stream = nullptr;
            return;
        }
    }
    DWORD flags = D3DLOCK_NOOVERWRITE;
    if (d.streamUsed + count > d.streamCapacity) {
        d.streamUsed = 0;
        flags = D3DLOCK_DISCARD;
    }
    void* p = nullptr;
    const UINT bytes = count * sizeof(PaintVertex);
    if (FAILED(d.stream->Lock(d.streamUsed * sizeof(PaintVertex), bytes, &p, flags))) return;
    std::memcpy(p, vertices.data(), bytes);
    d.stream->Unlock();
    d.Flush();
    d.device->SetStreamSource(0, d.stream, 0, sizeof(PaintVertex));
    d.device->DrawPrimitive(type, d.streamUsed, primitives);
    d.streamUsed += count;
}

void cLm4DDemo_D3D9::ClearBackBuffer(const float rgba[4]) {
    Device& d = *d_;
    if (!HasDevice()) return;
    d.device->SetRenderTarget(0, d.backBuffer);
    d.device->Clear(0, nullptr, D3DCLEAR_TARGET, ToColor(rgba), 1.0f, 0);
}

void cLm4DDemo_D3D9::PresentBackBuffer() {
    Device& d = *d_;
    if (!HasDevice()) return;
    d.EndScene();
    d.Check(d.device->Present(nullptr, nullptr, nullptr, nullptr), "Present");
}

bool cLm4DDemo_D3D9::ReadBackBuffer(std::string* rgba) {
    Device& d = *d_;
    if (!HasDevice()) return false;
    return ReadSurface(d.backBuffer, rgba);
}

bool cLm4DDemo_D3D9::ReadPostTarget(std::string* rgba) {
    Device& d = *d_;
    if (!HasDevice() || !d.postSurface) return false;
    return ReadSurface(d.postSurface, rgba);
}

bool cLm4DDemo_D3D9::ReadSurface(IDirect3DSurface9* surface, std::string* rgba) {
    Device& d = *d_;
    d.EndScene();
    D3DSURFACE_DESC desc{};
    surface->GetDesc(&desc);
    if ((desc.Format != D3DFMT_X8R8G8B8 && desc.Format != D3DFMT_A8R8G8B8) ||
        desc.Width != static_cast<UINT>(d.width) || desc.Height != static_cast<UINT>(d.height))
        return false;
    IDirect3DSurface9* copy = nullptr;
    if (FAILED(d.device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM, &copy,
                                                     nullptr)))
        return false;
    bool ok = d.Check(d.device->GetRenderTargetData(surface, copy), "GetRenderTargetData");
    D3DLOCKED_RECT rect{};
    ok = ok && SUCCEEDED(copy->LockRect(&rect, nullptr, D3DLOCK_READONLY));
    if (ok) {
        fur_d3d9::BgrxToRgba(static_cast<const uint8_t*>(rect.pBits), d.width, d.height, rect.Pitch, rgba);
        copy->UnlockRect();
    }
    copy->Release();
    return ok;
}
