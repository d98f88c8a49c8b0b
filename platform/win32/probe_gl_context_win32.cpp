// The probe's OpenGL context on Windows: WGL on a hidden popup window.
#include "platform/probe_gl_context.h"

#include <windows.h>

#include <cstdint>
#include <cstring>

#include "platform/platform.h"

namespace platform {

ProbeGlContext::~ProbeGlContext() { Destroy(); }

struct ProbeGlContext::Native {
    HWND hwnd = nullptr;
    HDC hdc = nullptr;
    HGLRC hglrc = nullptr;
    bool classRegistered = false;
    LibHandle opengl32 = nullptr;
};

namespace {
constexpr const char* kClassName = "ProbeGPU_DummyW";
}  // namespace

bool ProbeGlContext::Create(int x, int y, int width, int height, int major, int minor, bool debug, std::string* failure) {
    Destroy();
    native_ = new Native();
    HINSTANCE inst = GetModuleHandleA(nullptr);
    WNDCLASSEXA wc;
    std::memset(&wc, 0, sizeof wc);
    wc.cbSize = sizeof wc;
    if (!GetClassInfoExA(inst, kClassName, &wc)) {
        std::memset(&wc, 0, sizeof wc);
        wc.cbSize = sizeof wc;
        wc.style = CS_OWNDC;
        wc.lpfnWndProc = DefWindowProcA;
        wc.hInstance = inst;
        wc.lpszClassName = kClassName;
        if (!RegisterClassExA(&wc)) {
            *failure = "RegisterClassExA failed";
            Destroy();
            return false;
        }
        native_->classRegistered = true;
    }
    native_->hwnd = CreateWindowExA(0, kClassName, "ProbeGPU Dummy Win", WS_POPUP | WS_CLIPSIBLINGS | WS_CLIPCHILDREN, x, y,
                                    width, height, nullptr, nullptr, inst, nullptr);
    if (!native_->hwnd) {
        *failure = "CreateWindowExA failed";
        Destroy();
        return false;
    }
    native_->hdc = GetDC(native_->hwnd);
    PIXELFORMATDESCRIPTOR pfd;
    std::memset(&pfd, 0, sizeof pfd);
    pfd.nSize = sizeof pfd;
    pfd.nVersion = 1;
    pfd.dwFlags = PFD_DRAW_TO_WINDOW | PFD_SUPPORT_OPENGL | PFD_DOUBLEBUFFER;
    pfd.iPixelType = PFD_TYPE_RGBA;
    pfd.cColorBits = 32;
    pfd.cDepthBits = 24;
    pfd.cStencilBits = 8;
    pfd.iLayerType = PFD_MAIN_PLANE;
    int format = native_->hdc ? ChoosePixelFormat(native_->hdc, &pfd) : 0;
    if (!format || !SetPixelFormat(native_->hdc, format, &pfd)) {
        *failure = "no pixel format with 32 colour, 24 depth and 8 stencil bits";
        Destroy();
        return false;
    }
    native_->hglrc = wglCreateContext(native_->hdc);
    if (!native_->hglrc || !wglMakeCurrent(native_->hdc, native_->hglrc)) {
        *failure = "wglCreateContext failed";
        Destroy();
        return false;
    }
    if (major > 0 || debug) {
        // A versioned (or debug) context needs the ARB entry point, which
        // only a current legacy context can hand out.
        using CreateAttribsFn = HGLRC(WINAPI*)(HDC, HGLRC, const int*);
        auto createAttribs = reinterpret_cast<CreateAttribsFn>(
            reinterpret_cast<void*>(wglGetProcAddress("wglCreateContextAttribsARB")));
        if (createAttribs) {
            const int attribs[] = {0x2091, major > 0 ? major : 1, 0x2092, major > 0 ? minor : 0, 0x2094, debug ? 1 : 0, 0};
            HGLRC versioned = createAttribs(native_->hdc, nullptr, attribs);
            if (versioned) {
                wglMakeCurrent(nullptr, nullptr);
                wglDeleteContext(native_->hglrc);
                native_->hglrc = versioned;
                wglMakeCurrent(native_->hdc, versioned);
            }
        }
    }
    // OpenGL 1.1 functions come from opengl32.dll itself, not from the driver.
    native_->opengl32 = LoadLib("opengl32.dll");
    return true;
}

void* ProbeGlContext::ProcAddress(const char* name) const {
    if (!native_) return nullptr;
    void* p = reinterpret_cast<void*>(wglGetProcAddress(name));
    // Some drivers answer 1, 2, 3 or -1 instead of null for what they lack.
    const intptr_t v = reinterpret_cast<intptr_t>(p);
    if (v == 0 || v == 1 || v == 2 || v == 3 || v == -1) p = LibSymbol(native_->opengl32, name);
    return p;
}

void ProbeGlContext::Release() {
    if (native_ && native_->hglrc) wglMakeCurrent(nullptr, nullptr);
}

void ProbeGlContext::Destroy() {
    if (native_) {
        if (native_->hglrc) {
            wglMakeCurrent(nullptr, nullptr);
            wglDeleteContext(native_->hglrc);
        }
        if (native_->hdc) ReleaseDC(native_->hwnd, native_->hdc);
        if (native_->hwnd) DestroyWindow(native_->hwnd);
        FreeLib(native_->opengl32);
        // The class goes with the window: a failed start-up leaves nothing behind.
        UnregisterClassA(kClassName, GetModuleHandleA(nullptr));
        delete native_;
        native_ = nullptr;
    }
}

}  // namespace platform
