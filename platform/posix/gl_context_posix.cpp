// OpenGL contexts on Linux: SDL (GLX) on a window, EGL with no display at all
// for headless runs.
#include "platform/gl_context.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <SDL2/SDL.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

#include "platform/gpu_choice.h"

namespace platform {

namespace {

thread_local GlContext* tCurrent = nullptr;

class SdlContext : public GlContext {
public:
    SdlContext(SDL_Window* w, SDL_GLContext c, int samples) : window_(w), context_(c), samples_(samples) {
        LoadFences();
    }
    ~SdlContext() override {
        ReleaseFences();
        SDL_GL_MakeCurrent(window_, nullptr);
        SDL_GL_DeleteContext(context_);
        if (tCurrent == this) tCurrent = nullptr;
    }
    void* ProcAddress(const char* name) override { return SDL_GL_GetProcAddress(name); }
    void SwapBuffers() override {
        SDL_GL_SwapWindow(window_);
        FencePresentedFrame();
    }
    unsigned DefaultFramebuffer() const override { return 0; }
    int Samples() const override { return samples_; }

private:
    SDL_Window* window_;
    SDL_GLContext context_;
    int samples_;
};

std::unique_ptr<GlContext> CreateSdlContext(const RenderTarget& target, const GlContextRequest& req,
                                            std::string* error) {
    SDL_Window* window = static_cast<SDL_Window*>(target.nativeWindow);
    // The window was made with SDL_WINDOW_OPENGL; its pixel format is fixed, so
    // multisampling of the window itself is asked for when it was created.
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, req.major);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, req.minor);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK,
                        req.core ? SDL_GL_CONTEXT_PROFILE_CORE : SDL_GL_CONTEXT_PROFILE_COMPATIBILITY);
    SDL_GLContext c = SDL_GL_CreateContext(window);
    if (!c) {
        *error = SDL_GetError();
        return nullptr;
    }
    SDL_GL_MakeCurrent(window, c);
    SDL_GL_SetSwapInterval(0);  // as fast as the card allows
    int samples = 0;
    SDL_GL_GetAttribute(SDL_GL_MULTISAMPLESAMPLES, &samples);
    auto ctx = std::make_unique<SdlContext>(window, c, samples);
    tCurrent = ctx.get();
    return ctx;
}

// The few framebuffer calls the headless target needs, looked up here so
// that the platform layer stays below the renderer's function list.
struct FboCalls {
    void (*GenFramebuffers)(int, unsigned*);
    void (*BindFramebuffer)(unsigned, unsigned);
    void (*GenRenderbuffers)(int, unsigned*);
    void (*BindRenderbuffer)(unsigned, unsigned);
    void (*RenderbufferStorageMultisample)(unsigned, int, unsigned, int, int);
    void (*FramebufferRenderbuffer)(unsigned, unsigned, unsigned, unsigned);
    unsigned (*CheckFramebufferStatus)(unsigned);
    void (*DeleteFramebuffers)(int, const unsigned*);
    void (*DeleteRenderbuffers)(int, const unsigned*);
    void (*Viewport)(int, int, int, int);

    bool Load() {
        Get(GenFramebuffers, "glGenFramebuffers");
        Get(BindFramebuffer, "glBindFramebuffer");
        Get(GenRenderbuffers, "glGenRenderbuffers");
        Get(BindRenderbuffer, "glBindRenderbuffer");
        Get(RenderbufferStorageMultisample, "glRenderbufferStorageMultisample");
        Get(FramebufferRenderbuffer, "glFramebufferRenderbuffer");
        Get(CheckFramebufferStatus, "glCheckFramebufferStatus");
        Get(DeleteFramebuffers, "glDeleteFramebuffers");
        Get(DeleteRenderbuffers, "glDeleteRenderbuffers");
        Get(Viewport, "glViewport");
        return GenFramebuffers && BindFramebuffer && GenRenderbuffers && BindRenderbuffer &&
               RenderbufferStorageMultisample && FramebufferRenderbuffer && CheckFramebufferStatus &&
               DeleteFramebuffers && DeleteRenderbuffers && Viewport;
    }
    template <typename F>
    void Get(F& f, const char* name) {
        f = reinterpret_cast<F>(eglGetProcAddress(name));
    }
};

constexpr unsigned kFramebuffer = 0x8D40, kRenderbuffer = 0x8D41, kColor0 = 0x8CE0, kDepthStencil = 0x821A,
                   kRgba8 = 0x8058, kDepth24Stencil8 = 0x88F0, kComplete = 0x8CD5;

class EglContext : public GlContext {
public:
    ~EglContext() override {
        if (current_) ReleaseFences();
        if (fbo_ && calls_.DeleteFramebuffers) {
            calls_.BindFramebuffer(kFramebuffer, 0);
            calls_.DeleteFramebuffers(1, &fbo_);
            calls_.DeleteRenderbuffers(2, rbo_);
        }
        if (display_ != EGL_NO_DISPLAY) {
            eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            if (context_ != EGL_NO_CONTEXT) eglDestroyContext(display_, context_);
            eglReleaseThread();
        }
        if (tCurrent == this) tCurrent = nullptr;
    }

    bool Create(const RenderTarget& target, const GlContextRequest& req, std::string* error) {
        auto getPlatformDisplay =
            reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
        const GpuChoice& choice = CurrentGpuChoice();
        if (choice.index > 0) {
            if (!OpenChosenDevice(choice, getPlatformDisplay, error)) return false;
        } else if (getPlatformDisplay) {
            display_ = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        }
        if (display_ == EGL_NO_DISPLAY && choice.index == 0) display_ = eglGetDisplay(EGL_DEFAULT_DISPLAY);
        EGLint major = 0, minor = 0;
        if (display_ == EGL_NO_DISPLAY || !eglInitialize(display_, &major, &minor)) {
            *error = "no EGL display without a window system";
            display_ = EGL_NO_DISPLAY;
            return false;
        }
        if (!eglBindAPI(EGL_OPENGL_API)) {
            *error = "EGL has no desktop OpenGL";
            return false;
        }
        const EGLint configAttribs[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
        EGLConfig config = nullptr;
        EGLint count = 0;
        eglChooseConfig(display_, configAttribs, &config, 1, &count);
        const EGLint contextAttribs[] = {EGL_CONTEXT_MAJOR_VERSION,
                                         req.major,
                                         EGL_CONTEXT_MINOR_VERSION,
                                         req.minor,
                                         EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                         req.core ? EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT
                                                  : EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT,
                                         EGL_NONE};
        // Surfaceless contexts need no config when the driver allows it.
        context_ = eglCreateContext(display_, count > 0 ? config : EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, contextAttribs);
        if (context_ == EGL_NO_CONTEXT) {
            char buf[64];
            std::snprintf(buf, sizeof buf, "EGL context creation failed (0x%04X)", eglGetError());
            *error = buf;
            return false;
        }
        if (!eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context_)) {
            *error = "EGL context cannot be made current without a surface";
            return false;
        }
        current_ = true;
        LoadFences();
        if (!calls_.Load()) {
            *error = "framebuffer objects are not supported";
            return false;
        }
        // The offscreen target that stands in for the window.
        samples_ = req.samples > 1 ? req.samples : 0;
        calls_.GenFramebuffers(1, &fbo_);
        calls_.GenRenderbuffers(2, rbo_);
        calls_.BindFramebuffer(kFramebuffer, fbo_);
        calls_.BindRenderbuffer(kRenderbuffer, rbo_[0]);
        calls_.RenderbufferStorageMultisample(kRenderbuffer, samples_, kRgba8, target.width, target.height);
        calls_.FramebufferRenderbuffer(kFramebuffer, kColor0, kRenderbuffer, rbo_[0]);
        calls_.BindRenderbuffer(kRenderbuffer, rbo_[1]);
        calls_.RenderbufferStorageMultisample(kRenderbuffer, samples_, kDepth24Stencil8, target.width, target.height);
        calls_.FramebufferRenderbuffer(kFramebuffer, kDepthStencil, kRenderbuffer, rbo_[1]);
        if (calls_.CheckFramebufferStatus(kFramebuffer) != kComplete) {
            *error = "the offscreen target is incomplete";
            return false;
        }
        calls_.Viewport(0, 0, target.width, target.height);
        return true;
    }

    void* ProcAddress(const char* name) override { return reinterpret_cast<void*>(eglGetProcAddress(name)); }
    // Nothing to show: the frame stays in the offscreen target, fenced like
    // a window's, so the driver never queues more than a swap chain would.
    void SwapBuffers() override { FencePresentedFrame(); }
    unsigned DefaultFramebuffer() const override { return fbo_; }
    int Samples() const override { return samples_; }
    std::string ChosenDevice() const override { return chosenDevice_; }

private:
    // A DRM device file's PCI identity, from sysfs ("/dev/dri/card1" ->
    // /sys/class/drm/card1/device/vendor and device).
    static void ReadPciIdentity(const char* deviceFile, AdapterIdentity* out) {
        const char* base = std::strrchr(deviceFile, '/');
        const std::string dir = std::string("/sys/class/drm/") + (base ? base + 1 : deviceFile) + "/device/";
        auto hex = [](const std::string& path) {
            std::ifstream in(path);
            std::string text;
            if (!(in >> text)) return -1;
            char* end = nullptr;
            const long v = std::strtol(text.c_str(), &end, 16);
            return end != text.c_str() && v >= 0 && v <= 0xFFFF ? static_cast<int>(v) : -1;
        };
        out->pciVendor = hex(dir + "vendor");
        out->pciDevice = hex(dir + "device");
    }

    // The chosen GPU among the devices EGL enumerates, opened as a display
    // of its own.
    bool OpenChosenDevice(const GpuChoice& choice, PFNEGLGETPLATFORMDISPLAYEXTPROC getPlatformDisplay,
                          std::string* error) {
        auto queryDevices = reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));
        auto queryString =
            reinterpret_cast<PFNEGLQUERYDEVICESTRINGEXTPROC>(eglGetProcAddress("eglQueryDeviceStringEXT"));
        if (!queryDevices || !queryString || !getPlatformDisplay) {
            *error = "EGL cannot list its devices (no EGL_EXT_device_enumeration), so GPU " +
                     std::to_string(choice.index) + " cannot be chosen";
            return false;
        }
        EGLDeviceEXT devices[32];
        EGLint count = 0;
        if (!queryDevices(32, devices, &count) || count <= 0) count = 0;
        std::vector<AdapterIdentity> ids(static_cast<size_t>(count));
        for (EGLint i = 0; i < count; ++i) {
            const char* ext = queryString(devices[i], EGL_EXTENSIONS);
            ids[static_cast<size_t>(i)].software = ext && std::strstr(ext, "EGL_MESA_device_software");
            const char* file = ext && std::strstr(ext, "EGL_EXT_device_drm") ? queryString(devices[i], EGL_DRM_DEVICE_FILE_EXT)
                                                                             : nullptr;
            if (file) ReadPciIdentity(file, &ids[static_cast<size_t>(i)]);
        }
        const int k = PickAdapter(choice, ids);
        if (k < 0) {
            *error = "GPU " + std::to_string(choice.index) + " (" + choice.name + ") is none of the " +
                     std::to_string(count) + " devices EGL lists";
            return false;
        }
        display_ = getPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, devices[k], nullptr);
        if (display_ == EGL_NO_DISPLAY) {
            *error = "EGL device " + std::to_string(k + 1) + " cannot be opened as a display";
            return false;
        }
        chosenDevice_ = "EGL device " + std::to_string(k + 1) + " of " + std::to_string(count);
        return true;
    }

    std::string chosenDevice_;
    EGLDisplay display_ = EGL_NO_DISPLAY;
    EGLContext context_ = EGL_NO_CONTEXT;
    FboCalls calls_{};
    unsigned fbo_ = 0;
    unsigned rbo_[2] = {0, 0};
    int samples_ = 0;
    bool current_ = false;
};

}  // namespace

std::unique_ptr<GlContext> CreateGlContext(const RenderTarget& target, const GlContextRequest& request,
                                           std::string* error) {
    if (!target.headless && target.nativeWindow) return CreateSdlContext(target, request, error);
    auto ctx = std::make_unique<EglContext>();
    if (!ctx->Create(target, request, error)) return nullptr;
    tCurrent = ctx.get();
    return ctx;
}

std::unique_ptr<GlContext> CreateOffscreenGlContext(const GlContextRequest& request, std::string* error) {
    // EGL needs no window at all; the 1x1 target it makes is never drawn on.
    RenderTarget target;
    target.headless = true;
    target.width = 1;
    target.height = 1;
    return CreateGlContext(target, request, error);
}

void* CurrentGlProcAddress(const char* name) { return tCurrent ? tCurrent->ProcAddress(name) : nullptr; }

}  // namespace platform
