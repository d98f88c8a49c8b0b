// The probe's OpenGL context on Windows: WGL on a hidden popup window.
#include "platform/probe_gl_context.h"

#include <windows.h>

#include <cstdint>
#include <cstring>

#include "platform/platform.h"
#include "platform/win32/wgl_setup.h"

namespace platform {

ProbeGlContext::~ProbeGlContext() { Destroy(); }

struct ProbeGlContext::Native {
    HWND hwnd = nullptr;
    HDC hdc = nullptr;
    HGLRC hglrc = nullptr;
    bool classRegistered = false;
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
    const char* step = nullptr;
    native_->hglrc = wgl::MakeCurrentLegacyContext(native_->hdc, wgl::WindowFormat(0, 24, 8), &step);
    if (!native_->hglrc) {
        *failure = step;
        Destroy();
        return false;
    }
    if (major > 0 || debug) {
        // A versioned (or debug) context needs the ARB entry point, which
        // only a current legacy context can hand out.
        using CreateAttribsFn = HGLRC(WINAPI*)(HDC, HGLRC, const int*);
        auto createAttribs = wgl::Function<CreateAttribsFn>("wglCreateContextAttribsARB");
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
    return true;
}

void* ProbeGlContext::ProcAddress(const char* name) const {
    return native_ ? wgl::ProcAddress(name) : nullptr;
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
        // The class goes with the window: a failed start-up leaves nothing behind.
        UnregisterClassA(kClassName, GetModuleHandleA(nullptr));
        delete native_;
        native_ = nullptr;
    }
}

}  // namespace platform
