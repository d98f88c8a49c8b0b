// OpenGL contexts on Windows: WGL on the 3D window's device context.
#include "platform/gl_context.h"

#include <windows.h>

#include <cstdio>

namespace platform {

namespace {

thread_local GlContext* tCurrent = nullptr;

// WGL_ARB_create_context and WGL_ARB_create_context_profile.
constexpr int kWglContextMajor = 0x2091, kWglContextMinor = 0x2092, kWglProfileMask = 0x9126,
              kWglCoreProfile = 0x00000001, kWglCompatibilityProfile = 0x00000002;
using CreateContextAttribsFn = HGLRC(WINAPI*)(HDC, HGLRC, const int*);

HMODULE OpenGl32() {
    static HMODULE lib = LoadLibraryA("opengl32.dll");
    return lib;
}

class WglContext : public GlContext {
public:
    WglContext(HWND w, HDC dc, HGLRC rc) : window_(w), dc_(dc), rc_(rc) { LoadFences(); }
    ~WglContext() override {
        ReleaseFences();
        wglMakeCurrent(nullptr, nullptr);
        wglDeleteContext(rc_);
        ReleaseDC(window_, dc_);
        if (ownsWindow_) DestroyWindow(window_);
        if (tCurrent == this) tCurrent = nullptr;
    }
    // The hidden window of an offscreen context goes with the context.
    void OwnWindow() { ownsWindow_ = true; }
    void* ProcAddress(const char* name) override {
        // wglGetProcAddress knows only what came after OpenGL 1.1; the rest
        // is exported by opengl32 itself. Some drivers answer 1, 2, 3 or -1
        // for "not found".
        PROC p = wglGetProcAddress(name);
        intptr_t v = reinterpret_cast<intptr_t>(p);
        if (v == 0 || v == 1 || v == 2 || v == 3 || v == -1)
            p = OpenGl32() ? GetProcAddress(OpenGl32(), name) : nullptr;
        return reinterpret_cast<void*>(p);
    }
    void SwapBuffers() override {
        ::SwapBuffers(dc_);
        FencePresentedFrame();
    }
    unsigned DefaultFramebuffer() const override { return 0; }
    int Samples() const override { return 0; }

private:
    HWND window_;
    HDC dc_;
    HGLRC rc_;
    bool ownsWindow_ = false;
};

}  // namespace

std::unique_ptr<GlContext> CreateGlContext(const RenderTarget& target, const GlContextRequest& req,
                                           std::string* error) {
    HWND window = static_cast<HWND>(target.nativeWindow);
    if (!window) {
        *error = "no window to draw on (this build draws through a window)";
        return nullptr;
    }
    HDC dc = GetDC(window);
    PIXELFORMATDESCRIPTOR pfd = {};
    pfd.nSize = sizeof pfd;
    pfd.nVersion = 1;
    pfd.dwFlags = PFD_DRAW_TO_WINDOW | PFD_SUPPORT_OPENGL | PFD_DOUBLEBUFFER;
    pfd.iPixelType = PFD_TYPE_RGBA;
    pfd.cColorBits = 32;
    pfd.cAlphaBits = 8;
    pfd.cDepthBits = 24;
    pfd.cStencilBits = 8;
    pfd.iLayerType = PFD_MAIN_PLANE;
    int format = ChoosePixelFormat(dc, &pfd);
    if (format == 0 || !SetPixelFormat(dc, format, &pfd)) {
        ReleaseDC(window, dc);
        *error = "no suitable pixel format";
        return nullptr;
    }
    HGLRC legacy = wglCreateContext(dc);
    if (!legacy || !wglMakeCurrent(dc, legacy)) {
        if (legacy) wglDeleteContext(legacy);
        ReleaseDC(window, dc);
        *error = "wglCreateContext failed";
        return nullptr;
    }
    HGLRC rc = legacy;
    if (req.major >= 3) {
        auto create = reinterpret_cast<CreateContextAttribsFn>(
            reinterpret_cast<void*>(wglGetProcAddress("wglCreateContextAttribsARB")));
        const int attribs[] = {kWglContextMajor, req.major, kWglContextMinor, req.minor, kWglProfileMask,
                               req.core ? kWglCoreProfile : kWglCompatibilityProfile, 0};
        HGLRC modern = create ? create(dc, nullptr, attribs) : nullptr;
        if (!modern) {
            wglMakeCurrent(nullptr, nullptr);
            wglDeleteContext(legacy);
            ReleaseDC(window, dc);
            char buf[96];
            std::snprintf(buf, sizeof buf, "no OpenGL %d.%d %s context", req.major, req.minor,
                          req.core ? "core" : "compatibility");
            *error = buf;
            return nullptr;
        }
        wglMakeCurrent(nullptr, nullptr);
        wglDeleteContext(legacy);
        wglMakeCurrent(dc, modern);
        rc = modern;
    }
    // As fast as the card allows: no wait for the vertical blank.
    using SwapIntervalFn = BOOL(WINAPI*)(int);
    auto swapInterval = reinterpret_cast<SwapIntervalFn>(reinterpret_cast<void*>(wglGetProcAddress("wglSwapIntervalEXT")));
    if (swapInterval) swapInterval(0);
    auto ctx = std::make_unique<WglContext>(window, dc, rc);
    tCurrent = ctx.get();
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
    static_cast<WglContext*>(ctx.get())->OwnWindow();
    return ctx;
}

void* CurrentGlProcAddress(const char* name) { return tCurrent ? tCurrent->ProcAddress(name) : nullptr; }

}  // namespace platform
