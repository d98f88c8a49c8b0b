// OpenGL contexts on Windows: WGL on the 3D window's device context.
#include "platform/gl_context.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/gpu_choice.h"
#include "platform/win32/wgl_setup.h"

namespace platform {

namespace {

thread_local GlContext* tCurrent = nullptr;

// WGL_NV_gpu_affinity: the driver lists its GPUs by handle, each with the
// display devices it drives; a device context made for a list of GPUs (an
// affinity DC) sends the OpenGL of contexts made on it to those GPUs only.
using GpuNv = void*;
struct GpuDeviceNv {
    DWORD cb;
    CHAR DeviceName[32];
    CHAR DeviceString[128];
    DWORD Flags;
    RECT rcVirtualScreen;
};
using EnumGpusNvFn = BOOL(WINAPI*)(UINT, GpuNv*);
using EnumGpuDevicesNvFn = BOOL(WINAPI*)(GpuNv, UINT, GpuDeviceNv*);
using CreateAffinityDcNvFn = HDC(WINAPI*)(const GpuNv*);
using DeleteDcNvFn = BOOL(WINAPI*)(HDC);
using GetExtensionsStringFn = const char*(WINAPI*)(HDC);

// A fixed-size text field of a Windows structure, which need not end in a 0.
template <size_t N>
std::string Field(const CHAR (&text)[N]) {
    return std::string(text, strnlen(text, N));
}

bool HasExtension(const char* list, const char* name) {
    const size_t n = std::strlen(name);
    for (const char* p = list; (p = std::strstr(p, name)) != nullptr; p += n)
        if ((p == list || p[-1] == ' ') && (p[n] == ' ' || p[n] == '\0')) return true;
    return false;
}

// The chosen GPU's affinity DC, looked for with a context current on the
// window's DC (the extension's functions come from it).
struct AffinityDc {
    HDC dc = nullptr;
    DeleteDcNvFn deleteDc = nullptr;
    std::string device;   // which GPU, for the log
    std::string failure;  // why none could be made
    bool associationOffered = false;  // the driver offers WGL_AMD_gpu_association instead
    // The window is on one of the chosen GPU's displays: a context of that
    // GPU shows its frames there. Elsewhere what it draws into the window is
    // undefined, so it draws offscreen instead.
    bool drivesWindow = false;
};

// The display device ("\\.\DISPLAY2") that holds most of the window.
std::string WindowDisplay(HWND window) {
    MONITORINFOEXA info = {};
    info.cbSize = sizeof info;
    HMONITOR monitor = MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST);
    if (!monitor || !GetMonitorInfoA(monitor, &info)) return std::string();
    return Field(info.szDevice);
}

AffinityDc ChooseAffinityGpu(HWND window, HDC windowDc) {
    AffinityDc out;
    const GpuChoice& choice = CurrentGpuChoice();
    if (choice.index <= 0) return out;
    auto extensions = wgl::Function<GetExtensionsStringFn>("wglGetExtensionsStringARB");
    if (!extensions) extensions = wgl::Function<GetExtensionsStringFn>("wglGetExtensionsStringEXT");
    const char* list = extensions ? extensions(windowDc) : nullptr;
    if (!list || !HasExtension(list, "WGL_NV_gpu_affinity")) {
        out.associationOffered = list && HasExtension(list, "WGL_AMD_gpu_association");
        out.failure = "the driver offers no GPU affinity extension";
        return out;
    }
    auto enumGpus = wgl::Function<EnumGpusNvFn>("wglEnumGpusNV");
    auto enumDevices = wgl::Function<EnumGpuDevicesNvFn>("wglEnumGpuDevicesNV");
    auto createDc = wgl::Function<CreateAffinityDcNvFn>("wglCreateAffinityDCNV");
    auto deleteDc = wgl::Function<DeleteDcNvFn>("wglDeleteDCNV");
    if (!enumGpus || !enumDevices || !createDc || !deleteDc) {
        out.failure = "WGL_NV_gpu_affinity is listed but its functions are missing";
        return out;
    }
    std::vector<GpuNv> gpus;
    std::vector<std::vector<std::string>> gpuDisplays;
    for (UINT i = 0; i < 64; ++i) {
        GpuNv gpu = nullptr;
        if (!enumGpus(i, &gpu) || !gpu) break;
        std::vector<std::string> names;
        for (UINT j = 0; j < 32; ++j) {
            GpuDeviceNv device = {};
            device.cb = sizeof device;
            if (!enumDevices(gpu, j, &device)) break;
            names.push_back(Field(device.DeviceName));
        }
        gpus.push_back(gpu);
        gpuDisplays.push_back(names);
    }
    std::vector<DisplayDeviceRow> displays;
    for (DWORD k = 0; k < 64; ++k) {
        DISPLAY_DEVICEA display = {};
        display.cb = sizeof display;
        if (!EnumDisplayDevicesA(nullptr, k, &display, 0)) break;
        displays.push_back(DisplayDeviceRow{Field(display.DeviceName), Field(display.DeviceID)});
    }
    const int k = PickAdapter(choice, IdentifyAffinityGpus(gpuDisplays, displays));
    const std::string count = std::to_string(gpus.size());
    if (k < 0) {
        out.failure = "GPU " + std::to_string(choice.index) + " (" + choice.name + ") is none of the " + count +
                      " GPUs WGL_NV_gpu_affinity lists";
        return out;
    }
    const GpuNv mask[2] = {gpus[static_cast<size_t>(k)], nullptr};
    out.dc = createDc(mask);
    if (!out.dc) {
        out.failure = "wglCreateAffinityDCNV failed for its GPU " + std::to_string(k + 1);
        return out;
    }
    out.deleteDc = deleteDc;
    out.device = "WGL_NV_gpu_affinity GPU " + std::to_string(k + 1) + " of " + count;
    const std::string shown = WindowDisplay(window);
    for (const std::string& name : gpuDisplays[static_cast<size_t>(k)])
        if (!shown.empty() && lstrcmpiA(name.c_str(), shown.c_str()) == 0) out.drivesWindow = true;
    return out;
}

// The framebuffer calls of the offscreen target a context of the chosen GPU
// draws into when it cannot draw in the window.
struct FboCalls {
    void(WINAPI* GenFramebuffers)(int, unsigned*);
    void(WINAPI* BindFramebuffer)(unsigned, unsigned);
    void(WINAPI* GenRenderbuffers)(int, unsigned*);
    void(WINAPI* BindRenderbuffer)(unsigned, unsigned);
    void(WINAPI* RenderbufferStorage)(unsigned, unsigned, int, int);
    void(WINAPI* FramebufferRenderbuffer)(unsigned, unsigned, unsigned, unsigned);
    unsigned(WINAPI* CheckFramebufferStatus)(unsigned);
    void(WINAPI* DeleteFramebuffers)(int, const unsigned*);
    void(WINAPI* DeleteRenderbuffers)(int, const unsigned*);

    bool Load() {
        GenFramebuffers = wgl::Function<decltype(GenFramebuffers)>("glGenFramebuffers");
        BindFramebuffer = wgl::Function<decltype(BindFramebuffer)>("glBindFramebuffer");
        GenRenderbuffers = wgl::Function<decltype(GenRenderbuffers)>("glGenRenderbuffers");
        BindRenderbuffer = wgl::Function<decltype(BindRenderbuffer)>("glBindRenderbuffer");
        RenderbufferStorage = wgl::Function<decltype(RenderbufferStorage)>("glRenderbufferStorage");
        FramebufferRenderbuffer = wgl::Function<decltype(FramebufferRenderbuffer)>("glFramebufferRenderbuffer");
        CheckFramebufferStatus = wgl::Function<decltype(CheckFramebufferStatus)>("glCheckFramebufferStatus");
        DeleteFramebuffers = wgl::Function<decltype(DeleteFramebuffers)>("glDeleteFramebuffers");
        DeleteRenderbuffers = wgl::Function<decltype(DeleteRenderbuffers)>("glDeleteRenderbuffers");
        return GenFramebuffers && BindFramebuffer && GenRenderbuffers && BindRenderbuffer && RenderbufferStorage &&
               FramebufferRenderbuffer && CheckFramebufferStatus && DeleteFramebuffers && DeleteRenderbuffers;
    }
};

constexpr unsigned kFramebuffer = 0x8D40, kRenderbuffer = 0x8D41, kColor0 = 0x8CE0, kDepthStencil = 0x821A,
                   kRgba8 = 0x8058, kDepth24Stencil8 = 0x88F0, kComplete = 0x8CD5;

// A colour and depth target of the window's size that stands in for the
// window, made and freed with its context current.
struct OffscreenTarget {
    FboCalls calls = {};
    unsigned fbo = 0, rbo[2] = {0, 0};
    int width = 0, height = 0;

    bool Create(int w, int h, std::string* error) {
        if (!calls.Load()) {
            *error = "framebuffer objects are not supported on the chosen GPU";
            return false;
        }
        width = w;
        height = h;
        calls.GenFramebuffers(1, &fbo);
        calls.GenRenderbuffers(2, rbo);
        calls.BindFramebuffer(kFramebuffer, fbo);
        calls.BindRenderbuffer(kRenderbuffer, rbo[0]);
        calls.RenderbufferStorage(kRenderbuffer, kRgba8, w, h);
        calls.FramebufferRenderbuffer(kFramebuffer, kColor0, kRenderbuffer, rbo[0]);
        calls.BindRenderbuffer(kRenderbuffer, rbo[1]);
        calls.RenderbufferStorage(kRenderbuffer, kDepth24Stencil8, w, h);
        calls.FramebufferRenderbuffer(kFramebuffer, kDepthStencil, kRenderbuffer, rbo[1]);
        if (calls.CheckFramebufferStatus(kFramebuffer) != kComplete) {
            *error = "the offscreen target on the chosen GPU is incomplete";
            return false;
        }
        using ViewportFn = void(WINAPI*)(int, int, int, int);
        if (auto viewport = reinterpret_cast<ViewportFn>(wgl::ProcAddress("glViewport"))) viewport(0, 0, w, h);
        return true;
    }
    void Destroy() {
        if (!fbo) return;
        calls.BindFramebuffer(kFramebuffer, 0);
        calls.DeleteFramebuffers(1, &fbo);
        calls.DeleteRenderbuffers(2, rbo);
        fbo = 0;
    }
};

// WGL_ARB_create_context and WGL_ARB_create_context_profile.
constexpr int kWglContextMajor = 0x2091, kWglContextMinor = 0x2092, kWglProfileMask = 0x9126,
              kWglCoreProfile = 0x00000001, kWglCompatibilityProfile = 0x00000002;
using CreateContextAttribsFn = HGLRC(WINAPI*)(HDC, HGLRC, const int*);

// Every context made here: on a window, which may be a hidden one of its own.
class WindowGlContext : public GlContext {
public:
    // The hidden window of an offscreen context goes with the context.
    void OwnWindow() { ownsWindow_ = true; }

protected:
    bool ownsWindow_ = false;
};

class WglContext : public WindowGlContext {
public:
    WglContext(HWND w, HDC dc, HGLRC rc) : window_(w), dc_(dc), rc_(rc) { LoadFences(); }
    ~WglContext() override {
        ReleaseFences();
        offscreen_.Destroy();
        wglMakeCurrent(nullptr, nullptr);
        wglDeleteContext(rc_);
        if (affinity_.dc) affinity_.deleteDc(affinity_.dc);
        ReleaseDC(window_, dc_);
        if (ownsWindow_) DestroyWindow(window_);
        if (tCurrent == this) tCurrent = nullptr;
    }
    // The context was made on the chosen GPU's affinity DC, which goes with it.
    void KeepAffinity(const AffinityDc& affinity) { affinity_ = affinity; }
    void SetChoiceFailure(const std::string& why) { failure_ = why; }
    // Current on the affinity DC only: the frames go into a target of the
    // window's size, as headless runs draw, since the window is not on the
    // chosen GPU's displays.
    bool DrawOffscreen(int width, int height, std::string* error) {
        if (!offscreen_.Create(width, height, error)) return false;
        affinity_.device += ", drawn offscreen (the window shows no picture: it is on none of that GPU's displays)";
        return true;
    }
    void* ProcAddress(const char* name) override { return wgl::ProcAddress(name); }
    void SwapBuffers() override {
        // An offscreen frame has nothing to show; it is fenced all the same,
        // so the driver never queues more than a swap chain would.
        if (!offscreen_.fbo) ::SwapBuffers(dc_);
        FencePresentedFrame();
    }
    unsigned DefaultFramebuffer() const override { return offscreen_.fbo; }
    int Samples() const override { return 0; }
    std::string ChosenDevice() const override { return affinity_.device; }
    std::string ChoiceFailure() const override { return failure_; }

private:
    HWND window_;
    HDC dc_;
    HGLRC rc_;
    AffinityDc affinity_;
    std::string failure_;
    OffscreenTarget offscreen_;
};

// WGL_AMD_gpu_association: the driver lists its GPUs by number and names
// each by its renderer string; a context associated with one GPU has no
// window and no default framebuffer, draws into a target of its own and
// has its frames blitted into a context of the window to be shown.
constexpr int kGpuRendererStringAmd = 0x1F01;
constexpr unsigned kUnsignedByte = 0x1401, kReadFramebuffer = 0x8CA8, kReadFramebufferBinding = 0x8CAA,
                   kColorBufferBit = 0x4000, kNearest = 0x2600;
using GetGpuIdsAmdFn = UINT(WINAPI*)(UINT, UINT*);
using GetGpuInfoAmdFn = INT(WINAPI*)(UINT, INT, unsigned, UINT, void*);
using CreateAssociatedAttribsAmdFn = HGLRC(WINAPI*)(UINT, HGLRC, const int*);
using CreateAssociatedAmdFn = HGLRC(WINAPI*)(UINT);
using AssociatedContextAmdFn = BOOL(WINAPI*)(HGLRC);
using BlitContextFramebufferAmdFn = VOID(WINAPI*)(HGLRC, int, int, int, int, int, int, int, int, unsigned, unsigned);

class AssociatedContext : public WindowGlContext {
public:
    struct Calls {
        AssociatedContextAmdFn makeCurrent = nullptr, destroy = nullptr;
        BlitContextFramebufferAmdFn blit = nullptr;
    };
    // `windowRc` is current on `dc` and stays the window's context; the
    // associated one is made current here.
    AssociatedContext(HWND window, HDC dc, HGLRC windowRc, HGLRC associated, const Calls& calls, std::string device)
        : window_(window), dc_(dc), windowRc_(windowRc), rc_(associated), calls_(calls), device_(std::move(device)) {}
    ~AssociatedContext() override {
        if (current_) {
            ReleaseFences();
            offscreen_.Destroy();
        }
        calls_.makeCurrent(nullptr);
        calls_.destroy(rc_);
        if (ownsWindowContext_) {
            wglMakeCurrent(nullptr, nullptr);
            wglDeleteContext(windowRc_);
            ReleaseDC(window_, dc_);
            if (ownsWindow_) DestroyWindow(window_);
        } else {
            wglMakeCurrent(dc_, windowRc_);
        }
        if (tCurrent == this) tCurrent = nullptr;
    }
    // Once started: the window's context and DC go with this one.
    void OwnWindowContext() { ownsWindowContext_ = true; }
    bool Start(int width, int height, std::string* error) {
        if (!calls_.makeCurrent(rc_)) {
            *error = "the context of the chosen GPU cannot be made current";
            return false;
        }
        current_ = true;
        LoadFences();
        if (!offscreen_.Create(width, height, error)) return false;
        using GetIntegervFn = void(WINAPI*)(unsigned, int*);
        using BindFramebufferFn = void(WINAPI*)(unsigned, unsigned);
        getIntegerv_ = reinterpret_cast<GetIntegervFn>(wgl::ProcAddress("glGetIntegerv"));
        bindFramebuffer_ = reinterpret_cast<BindFramebufferFn>(wgl::ProcAddress("glBindFramebuffer"));
        if (!getIntegerv_ || !bindFramebuffer_) {
            *error = "the chosen GPU's context lacks glGetIntegerv or glBindFramebuffer";
            return false;
        }
        return true;
    }
    void* ProcAddress(const char* name) override { return wgl::ProcAddress(name); }
    void SwapBuffers() override {
        // The frame goes from this context's target into the window's back
        // buffer, which the window's own context then presents.
        int read = 0;
        getIntegerv_(kReadFramebufferBinding, &read);
        bindFramebuffer_(kReadFramebuffer, offscreen_.fbo);
        const int w = offscreen_.width, h = offscreen_.height;
        calls_.blit(windowRc_, 0, 0, w, h, 0, 0, w, h, kColorBufferBit, kNearest);
        bindFramebuffer_(kReadFramebuffer, static_cast<unsigned>(read));
        FencePresentedFrame();
        if (wglMakeCurrent(dc_, windowRc_)) ::SwapBuffers(dc_);
        calls_.makeCurrent(rc_);
    }
    unsigned DefaultFramebuffer() const override { return offscreen_.fbo; }
    int Samples() const override { return 0; }
    std::string ChosenDevice() const override { return device_; }

private:
    HWND window_;
    HDC dc_;
    HGLRC windowRc_, rc_;
    Calls calls_;
    std::string device_;
    bool current_ = false;
    bool ownsWindowContext_ = false;
    OffscreenTarget offscreen_;
    void(WINAPI* getIntegerv_)(unsigned, int*) = nullptr;
    void(WINAPI* bindFramebuffer_)(unsigned, unsigned) = nullptr;
};

// The chosen GPU through WGL_AMD_gpu_association, with `windowRc` current
// on the window: null, and *failure says why, when it cannot be used; the
// window's context then stays the caller's.
std::unique_ptr<GlContext> CreateAssociatedContext(HWND window, HDC dc, HGLRC windowRc, const RenderTarget& target,
                                                   const GlContextRequest& req, const int* attribs,
                                                   std::string* failure) {
    const GpuChoice& choice = CurrentGpuChoice();
    auto getIds = wgl::Function<GetGpuIdsAmdFn>("wglGetGPUIDsAMD");
    auto getInfo = wgl::Function<GetGpuInfoAmdFn>("wglGetGPUInfoAMD");
    auto createAttribs = wgl::Function<CreateAssociatedAttribsAmdFn>("wglCreateAssociatedContextAttribsAMD");
    auto create = wgl::Function<CreateAssociatedAmdFn>("wglCreateAssociatedContextAMD");
    AssociatedContext::Calls calls;
    calls.makeCurrent = wgl::Function<AssociatedContextAmdFn>("wglMakeAssociatedContextCurrentAMD");
    calls.destroy = wgl::Function<AssociatedContextAmdFn>("wglDeleteAssociatedContextAMD");
    calls.blit = wgl::Function<BlitContextFramebufferAmdFn>("wglBlitContextFramebufferAMD");
    if (!getIds || !getInfo || !calls.makeCurrent || !calls.destroy || !calls.blit ||
        !(req.major >= 3 ? createAttribs != nullptr : create != nullptr)) {
        *failure = "WGL_AMD_gpu_association is listed but its functions are missing";
        return nullptr;
    }
    UINT ids[32] = {};
    const UINT listed = getIds(32, ids);
    const UINT count = listed < 32 ? listed : 32;
    std::vector<std::string> renderers;
    for (UINT i = 0; i < count; ++i) {
        char name[256] = {};
        if (getInfo(ids[i], kGpuRendererStringAmd, kUnsignedByte, sizeof name - 1, name) <= 0) name[0] = 0;
        renderers.push_back(Field(name));
    }
    const int k = PickByRendererName(choice, renderers);
    if (k < 0) {
        *failure = "GPU " + std::to_string(choice.index) + " (" + choice.name + ") is none of the " +
                   std::to_string(count) + " GPUs WGL_AMD_gpu_association lists";
        return nullptr;
    }
    const UINT id = ids[k];
    HGLRC associated = req.major >= 3 ? createAttribs(id, nullptr, attribs) : create(id);
    if (!associated) {
        *failure = "no OpenGL context could be associated with its GPU " + std::to_string(k + 1);
        return nullptr;
    }
    auto ctx = std::make_unique<AssociatedContext>(
        window, dc, windowRc, associated, calls,
        "WGL_AMD_gpu_association GPU " + std::to_string(k + 1) + " of " + std::to_string(count) +
            ", blitted into the window");
    tCurrent = ctx.get();
    std::string error;
    if (!ctx->Start(target.width, target.height, &error)) {
        // The window's context is current again, the caller's as before.
        *failure = error;
        ctx.reset();
        tCurrent = nullptr;
        return nullptr;
    }
    ctx->OwnWindowContext();
    return ctx;
}

}  // namespace

std::unique_ptr<GlContext> CreateGlContext(const RenderTarget& target, const GlContextRequest& req,
                                           std::string* error) {
    HWND window = static_cast<HWND>(target.nativeWindow);
    if (!window) {
        *error = "no window to draw on (this build draws through a window)";
        return nullptr;
    }
    HDC dc = GetDC(window);
    const PIXELFORMATDESCRIPTOR pfd = wgl::WindowFormat(8, 24, 8);
    const char* step = nullptr;
    HGLRC legacy = wgl::MakeCurrentLegacyContext(dc, pfd, &step);
    if (!legacy) {
        ReleaseDC(window, dc);
        *error = step;
        return nullptr;
    }
    auto create = req.major >= 3 ? wgl::Function<CreateContextAttribsFn>("wglCreateContextAttribsARB") : nullptr;
    const int attribs[] = {kWglContextMajor, req.major, kWglContextMinor, req.minor, kWglProfileMask,
                           req.core ? kWglCoreProfile : kWglCompatibilityProfile, 0};
    auto makeContext = [&](HDC on) -> HGLRC {
        if (req.major >= 3) return create ? create(on, nullptr, attribs) : nullptr;
        return on == dc ? legacy : wglCreateContext(on);
    };

    // A chosen GPU: the context is made on its affinity DC where the driver
    // offers one; otherwise on the window, and the log says why.
    AffinityDc affinity = ChooseAffinityGpu(window, dc);
    if (!affinity.dc && affinity.associationOffered) {
        std::string why;
        if (auto associated = CreateAssociatedContext(window, dc, legacy, target, req, attribs, &why))
            return associated;
        affinity.failure = why;
    }
    HGLRC rc = nullptr;
    if (affinity.dc) {
        if (wgl::SetFormat(affinity.dc, pfd)) rc = makeContext(affinity.dc);
        if (!rc) {
            affinity.deleteDc(affinity.dc);
            affinity = AffinityDc();
            affinity.failure = "no OpenGL context could be made on the chosen GPU's affinity DC";
        }
    }
    if (!rc) rc = makeContext(dc);
    if (!rc) {
        wglMakeCurrent(nullptr, nullptr);
        wglDeleteContext(legacy);
        ReleaseDC(window, dc);
        char buf[96];
        std::snprintf(buf, sizeof buf, "no OpenGL %d.%d %s context", req.major, req.minor,
                      req.core ? "core" : "compatibility");
        *error = buf;
        return nullptr;
    }
    if (rc != legacy) {
        wglMakeCurrent(nullptr, nullptr);
        wglDeleteContext(legacy);
    }
    // A context of the chosen GPU shows its frames in the window when the
    // window is on one of that GPU's displays; otherwise it is current on
    // its affinity DC alone.
    const bool onWindow = (!affinity.dc || affinity.drivesWindow) && wglMakeCurrent(dc, rc) != FALSE;
    if (!onWindow && !(affinity.dc && wglMakeCurrent(affinity.dc, rc))) {
        wglDeleteContext(rc);
        if (affinity.dc) affinity.deleteDc(affinity.dc);
        ReleaseDC(window, dc);
        *error = "the OpenGL context cannot be made current";
        return nullptr;
    }
    // As fast as the card allows: no wait for the vertical blank.
    using SwapIntervalFn = BOOL(WINAPI*)(int);
    auto swapInterval = wgl::Function<SwapIntervalFn>("wglSwapIntervalEXT");
    if (swapInterval && onWindow) swapInterval(0);
    auto ctx = std::make_unique<WglContext>(window, dc, rc);
    ctx->SetChoiceFailure(affinity.failure);
    if (affinity.dc) ctx->KeepAffinity(affinity);
    tCurrent = ctx.get();
    if (!onWindow && !ctx->DrawOffscreen(target.width, target.height, error)) return nullptr;
    return ctx;
}

std::unique_ptr<GlContext> CreateOffscreenGlContext(const GlContextRequest& request, std::string* error) {
    // WGL needs a window for its pixel format; a hidden one is enough, and
    // it is never shown nor drawn on, so its messages need no pumping.
    static const ATOM windowClass = [] {
        WNDCLASSA wc = {};
        wc.style = CS_OWNDC;
        wc.lpfnWndProc = DefWindowProcA;
        wc.hInstance = GetModuleHandleA(nullptr);
        wc.lpszClassName = "ArdentiumOffscreenGl";
        return RegisterClassA(&wc);
    }();
    if (!windowClass) {
        *error = "RegisterClass failed for the offscreen context";
        return nullptr;
    }
    HWND window = CreateWindowExA(0, "ArdentiumOffscreenGl", "", WS_POPUP | WS_CLIPSIBLINGS | WS_CLIPCHILDREN, 0, 0,
                                  16, 16, nullptr, nullptr, GetModuleHandleA(nullptr), nullptr);
    if (!window) {
        *error = "CreateWindowEx failed for the offscreen context";
        return nullptr;
    }
    RenderTarget target;
    target.nativeWindow = window;
    target.width = 16;
    target.height = 16;
    std::unique_ptr<GlContext> ctx = CreateGlContext(target, request, error);
    if (!ctx) {
        DestroyWindow(window);
        return nullptr;
    }
    static_cast<WindowGlContext*>(ctx.get())->OwnWindow();
    return ctx;
}

void* CurrentGlProcAddress(const char* name) { return tCurrent ? tCurrent->ProcAddress(name) : nullptr; }

}  // namespace platform
