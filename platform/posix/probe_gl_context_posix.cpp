// The probe's OpenGL context on Linux: EGL, loaded at run time.
#include "platform/probe_gl_context.h"

#include <cstdint>
#include <cstring>

#include "platform/platform.h"

namespace platform {

ProbeGlContext::~ProbeGlContext() { Destroy(); }

struct ProbeGlContext::Native {
    LibHandle lib = nullptr;
    void* (*getProcAddress)(const char*) = nullptr;
    void* display = nullptr;
    void* context = nullptr;
    void* surface = nullptr;
    unsigned (*destroyContext)(void*, void*) = nullptr;
    unsigned (*destroySurface)(void*, void*) = nullptr;
    unsigned (*makeCurrent)(void*, void*, void*, void*) = nullptr;
};

namespace {

using EGLint = int32_t;
constexpr EGLint EGL_NONE_ = 0x3038;
constexpr EGLint EGL_EXTENSIONS_ = 0x3055;
constexpr unsigned EGL_OPENGL_API_ = 0x30A2;
constexpr EGLint EGL_PLATFORM_SURFACELESS_MESA_ = 0x31DD;
constexpr EGLint EGL_RED_SIZE_ = 0x3024, EGL_GREEN_SIZE_ = 0x3023, EGL_BLUE_SIZE_ = 0x3022, EGL_ALPHA_SIZE_ = 0x3021;
constexpr EGLint EGL_DEPTH_SIZE_ = 0x3025, EGL_STENCIL_SIZE_ = 0x3026, EGL_SAMPLES_ = 0x3031;
constexpr EGLint EGL_RENDERABLE_TYPE_ = 0x3040, EGL_OPENGL_BIT_ = 0x0008, EGL_SURFACE_TYPE_ = 0x3033, EGL_PBUFFER_BIT_ = 0x0001;
constexpr EGLint EGL_WIDTH_ = 0x3057, EGL_HEIGHT_ = 0x3056;
constexpr EGLint EGL_CONTEXT_MAJOR_VERSION_ = 0x3098, EGL_CONTEXT_MINOR_VERSION_ = 0x30FB, EGL_CONTEXT_OPENGL_DEBUG_ = 0x31B0;

struct Egl {
    void* (*getProcAddress)(const char*) = nullptr;
    const char* (*queryString)(void*, EGLint) = nullptr;
    void* (*getDisplay)(void*) = nullptr;
    void* (*getPlatformDisplay)(unsigned, void*, const intptr_t*) = nullptr;
    void* (*getPlatformDisplayEXT)(unsigned, void*, const EGLint*) = nullptr;
    unsigned (*initialize)(void*, EGLint*, EGLint*) = nullptr;
    unsigned (*bindAPI)(unsigned) = nullptr;
    unsigned (*chooseConfig)(void*, const EGLint*, void**, EGLint, EGLint*) = nullptr;
    void* (*createContext)(void*, void*, void*, const EGLint*) = nullptr;
    void* (*createPbufferSurface)(void*, void*, const EGLint*) = nullptr;
};

template <typename T>
void Load(LibHandle lib, const char* name, T* out) {
    *out = reinterpret_cast<T>(LibSymbol(lib, name));
}

bool HasWord(const char* list, const char* word) {
    if (!list) return false;
    const size_t n = std::strlen(word);
    for (const char* p = list; (p = std::strstr(p, word)) != nullptr; p += n) {
        bool startOk = p == list || p[-1] == ' ';
        bool endOk = p[n] == '\0' || p[n] == ' ';
        if (startOk && endOk) return true;
    }
    return false;
}


}  // namespace

bool ProbeGlContext::Create(int x, int y, int width, int height, int major, int minor, bool debug, std::string* failure) {
    Destroy();
    native_ = new Native();
    native_->lib = LoadLib("libEGL.so.1");
    if (!native_->lib) {
        *failure = "libEGL.so.1 not found";
        Destroy();
        return false;
    }
    Egl egl;
    Load(native_->lib, "eglGetProcAddress", &egl.getProcAddress);
    Load(native_->lib, "eglQueryString", &egl.queryString);
    Load(native_->lib, "eglGetDisplay", &egl.getDisplay);
    Load(native_->lib, "eglGetPlatformDisplay", &egl.getPlatformDisplay);
    Load(native_->lib, "eglInitialize", &egl.initialize);
    Load(native_->lib, "eglBindAPI", &egl.bindAPI);
    Load(native_->lib, "eglChooseConfig", &egl.chooseConfig);
    Load(native_->lib, "eglCreateContext", &egl.createContext);
    Load(native_->lib, "eglCreatePbufferSurface", &egl.createPbufferSurface);
    Load(native_->lib, "eglMakeCurrent", &native_->makeCurrent);
    Load(native_->lib, "eglDestroyContext", &native_->destroyContext);
    Load(native_->lib, "eglDestroySurface", &native_->destroySurface);
    if (!egl.getProcAddress || !egl.queryString || !egl.getDisplay || !egl.initialize || !egl.bindAPI || !egl.chooseConfig ||
        !egl.createContext || !native_->makeCurrent || !native_->destroyContext) {
        *failure = "libEGL.so.1 lacks EGL 1.4 entry points";
        Destroy();
        return false;
    }
    egl.getPlatformDisplayEXT =
        reinterpret_cast<void* (*)(unsigned, void*, const EGLint*)>(egl.getProcAddress("eglGetPlatformDisplayEXT"));

    // No window system is needed: Mesa's surfaceless platform first, then
    // whatever the default display is (a GPU driver's own, or X11).
    const char* clientExt = egl.queryString(nullptr, EGL_EXTENSIONS_);
    void* dpy = nullptr;
    EGLint maj = 0, min = 0;
    if (HasWord(clientExt, "EGL_MESA_platform_surfaceless")) {
        if (egl.getPlatformDisplay) dpy = egl.getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA_, nullptr, nullptr);
        if (!dpy && egl.getPlatformDisplayEXT) dpy = egl.getPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA_, nullptr, nullptr);
        if (dpy && !egl.initialize(dpy, &maj, &min)) dpy = nullptr;
    }
    if (!dpy) {
        dpy = egl.getDisplay(nullptr);
        if (dpy && !egl.initialize(dpy, &maj, &min)) dpy = nullptr;
    }
    if (!dpy) {
        *failure = "no EGL display";
        Destroy();
        return false;
    }
    native_->display = dpy;
    if (!egl.bindAPI(EGL_OPENGL_API_)) {
        *failure = "EGL offers no desktop OpenGL";
        Destroy();
        return false;
    }
    const char* dpyExt = egl.queryString(dpy, EGL_EXTENSIONS_);
    const bool surfaceless = HasWord(dpyExt, "EGL_KHR_surfaceless_context");
    const EGLint configAttribs[] = {EGL_RED_SIZE_,  8,  EGL_GREEN_SIZE_,   8, EGL_BLUE_SIZE_,       8,
                                    EGL_ALPHA_SIZE_, 8, EGL_DEPTH_SIZE_,   24, EGL_STENCIL_SIZE_,  8,
                                    EGL_SAMPLES_,   0,  EGL_RENDERABLE_TYPE_, EGL_OPENGL_BIT_,
                                    EGL_SURFACE_TYPE_, surfaceless ? 0 : EGL_PBUFFER_BIT_, EGL_NONE_};
    void* config = nullptr;
    EGLint numConfigs = 0;
    if (!egl.chooseConfig(dpy, configAttribs, &config, 1, &numConfigs) || numConfigs < 1) {
        *failure = "no EGL config with 32 colour, 24 depth and 8 stencil bits";
        Destroy();
        return false;
    }
    EGLint contextAttribs[9];
    int n = 0;
    if (major > 0) {
        contextAttribs[n++] = EGL_CONTEXT_MAJOR_VERSION_;
        contextAttribs[n++] = major;
        contextAttribs[n++] = EGL_CONTEXT_MINOR_VERSION_;
        contextAttribs[n++] = minor;
    }
    if (debug) {
        contextAttribs[n++] = EGL_CONTEXT_OPENGL_DEBUG_;
        contextAttribs[n++] = 1;
    }
    contextAttribs[n] = EGL_NONE_;
    native_->context = egl.createContext(dpy, config, nullptr, contextAttribs);
    if (!native_->context) {
        *failure = "eglCreateContext failed";
        Destroy();
        return false;
    }
    if (!surfaceless && egl.createPbufferSurface) {
        const EGLint pbuffer[] = {EGL_WIDTH_, width > 0 ? width : 1, EGL_HEIGHT_, height > 0 ? height : 1, EGL_NONE_};
        native_->surface = egl.createPbufferSurface(dpy, config, pbuffer);
    }
    if (!native_->makeCurrent(dpy, native_->surface, native_->surface, native_->context)) {
        *failure = "eglMakeCurrent failed";
        Destroy();
        return false;
    }
    native_->getProcAddress = egl.getProcAddress;
    (void)x;
    (void)y;
    return true;
}

void* ProbeGlContext::ProcAddress(const char* name) const {
    return native_ && native_->getProcAddress ? native_->getProcAddress(name) : nullptr;
}

void ProbeGlContext::Release() {
    if (native_ && native_->display) native_->makeCurrent(native_->display, nullptr, nullptr, nullptr);
}

void ProbeGlContext::Destroy() {
    if (native_) {
        if (native_->display) {
            if (native_->makeCurrent) native_->makeCurrent(native_->display, nullptr, nullptr, nullptr);
            if (native_->context) native_->destroyContext(native_->display, native_->context);
            if (native_->surface && native_->destroySurface) native_->destroySurface(native_->display, native_->surface);
            // The display is not terminated: EGL hands the same display to
            // every caller in the process, and the renderer may be using it.
        }
        // libEGL stays loaded for the same reason (unloading would be a no-op
        // at best while the renderer holds it).
        delete native_;
        native_ = nullptr;
    }
}

}  // namespace platform
