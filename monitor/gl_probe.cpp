#include "monitor/gl_probe.h"

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#if defined(_WIN32)
#include <windows.h>
#include <GL/gl.h>
#else
#include <dlfcn.h>
#endif

namespace ProbeGPUnm {

namespace {

constexpr unsigned GL_NO_ERROR_ = 0;
constexpr unsigned GL_VENDOR_ = 0x1F00;
constexpr unsigned GL_RENDERER_ = 0x1F01;
constexpr unsigned GL_VERSION_ = 0x1F02;
constexpr unsigned GL_EXTENSIONS_ = 0x1F03;
constexpr unsigned GL_MAX_TEXTURE_SIZE_ = 0x0D33;
constexpr unsigned GL_MAX_VIEWPORT_DIMS_ = 0x0D3A;
constexpr unsigned GL_MAX_3D_TEXTURE_SIZE_ = 0x8073;
constexpr unsigned GL_MAX_TEXTURE_IMAGE_UNITS_ = 0x8872;
constexpr unsigned GL_MAX_SAMPLES_ = 0x8D57;
constexpr unsigned GL_MAX_TESS_GEN_LEVEL_ = 0x8E7E;
constexpr unsigned GL_NUM_EXTENSIONS_ = 0x821D;
constexpr unsigned GPU_MEMORY_INFO_DEDICATED_VIDMEM_NVX_ = 0x9047;
constexpr unsigned TEXTURE_FREE_MEMORY_ATI_ = 0x87FC;

std::string Text(const unsigned char* s) {
    if (!s) return std::string();
    std::string out;
    for (size_t i = 0; s[i] && i < 4096; ++i) out += static_cast<char>(s[i] < 32 ? '?' : s[i]);
    return out;
}

// Drains the error flag; true when the last call raised no error.
bool Clean(const GlFunctions& gl) {
    if (!gl.getError) return true;
    bool clean = true;
    for (int i = 0; i < 16; ++i) {
        unsigned e = gl.getError();
        if (e == GL_NO_ERROR_) break;
        clean = false;
    }
    return clean;
}

int Int(const GlFunctions& gl, unsigned name, int lo, int hi) {
    int v[4] = {0, 0, 0, 0};
    gl.getIntegerv(name, v);
    if (!Clean(gl) || v[0] < lo || v[0] > hi) return 0;
    return v[0];
}

}  // namespace

bool ParseGlVersion(const char* text, int* major, int* minor) {
    if (!text) return false;
    int a = 0, b = 0;
    if (std::sscanf(text, "%d.%d", &a, &b) != 2 || a < 1 || a > 99 || b < 0 || b > 99) return false;
    *major = a;
    *minor = b;
    return true;
}

GlCaps ReadGlCaps(const GlFunctions& gl) {
    GlCaps c;
    if (!gl.getString || !gl.getIntegerv) return c;
    Clean(gl);
    c.vendor = Text(gl.getString(GL_VENDOR_));
    c.renderer = Text(gl.getString(GL_RENDERER_));
    c.version = Text(gl.getString(GL_VERSION_));
    if (!ParseGlVersion(c.version.c_str(), &c.major, &c.minor)) return c;
    c.valid = true;

    std::set<std::string> ext;
    if (c.major >= 3 && gl.getStringi) {
        int n = Int(gl, GL_NUM_EXTENSIONS_, 0, 10000);
        for (int i = 0; i < n; ++i) ext.insert(Text(gl.getStringi(GL_EXTENSIONS_, static_cast<unsigned>(i))));
    } else {
        std::string all = Text(gl.getString(GL_EXTENSIONS_));
        size_t pos = 0;
        while (pos < all.size()) {
            size_t end = all.find(' ', pos);
            if (end == std::string::npos) end = all.size();
            if (end > pos) ext.insert(all.substr(pos, end - pos));
            pos = end + 1;
        }
    }
    Clean(gl);
    auto has = [&](const char* e) { return ext.count(e) != 0; };
    const int v = c.major * 10 + c.minor;
    c.caps[kCapGL20] = v >= 20;
    c.caps[kCapGL21] = v >= 21;
    c.caps[kCapGL30] = v >= 30;
    c.caps[kCapGL31] = v >= 31;
    c.caps[kCapGL32] = v >= 32;
    c.caps[kCapGL33] = v >= 33;
    c.caps[kCapGL40] = v >= 40;
    c.caps[kCapGL41] = v >= 41;
    c.caps[kCapGL42] = v >= 42;
    c.caps[kCapGL43] = v >= 43;
    c.caps[kCapGL44] = v >= 44;
    c.caps[kCapGL45] = v >= 45;
    c.caps[kCapGL46] = v >= 46;
    c.caps[kCapTextureFloat] = v >= 30 || has("GL_ARB_texture_float");
    c.caps[kCapFramebufferObject] = v >= 30 || has("GL_ARB_framebuffer_object") || has("GL_EXT_framebuffer_object");
    c.caps[kCapMultisample] = v >= 13 || has("GL_ARB_multisample");
    c.caps[kCapAnisotropic] = has("GL_EXT_texture_filter_anisotropic") || has("GL_ARB_texture_filter_anisotropic");
    c.caps[kCapVertexBufferObject] = v >= 15 || has("GL_ARB_vertex_buffer_object");
    c.caps[kCapGeometryShader] = v >= 32 || has("GL_ARB_geometry_shader4");
    c.caps[kCapS3TC] = has("GL_EXT_texture_compression_s3tc");
    c.caps[kCapUniformBuffer] = v >= 31 || has("GL_ARB_uniform_buffer_object");
    c.caps[kCapInstancing] = v >= 31 || has("GL_ARB_draw_instanced");
    c.caps[kCapTimerQuery] = v >= 33 || has("GL_ARB_timer_query");
    c.caps[kCapDebugOutput] = has("GL_KHR_debug") || has("GL_ARB_debug_output");
    c.caps[kCapNvMemoryInfo] = has("GL_NVX_gpu_memory_info");
    c.caps[kCapAtiMemInfo] = has("GL_ATI_meminfo");
    c.caps[kCapShaderStorage] = v >= 43 || has("GL_ARB_shader_storage_buffer_object");
    c.caps[kCapDirectStateAccess] = v >= 45 || has("GL_ARB_direct_state_access");
    c.caps[kCapSparseTexture] = has("GL_ARB_sparse_texture");
    c.caps[kCapBindlessTexture] = has("GL_ARB_bindless_texture");
    c.caps[kCapTessellation] = v >= 40 || has("GL_ARB_tessellation_shader");
    c.caps[kCapComputeShader] = v >= 43 || has("GL_ARB_compute_shader");

    c.maxTextureSize = Int(gl, GL_MAX_TEXTURE_SIZE_, 1, 1 << 20);
    int vp[4] = {0, 0, 0, 0};
    gl.getIntegerv(GL_MAX_VIEWPORT_DIMS_, vp);
    if (Clean(gl) && vp[0] > 0 && vp[1] > 0 && vp[0] <= (1 << 20) && vp[1] <= (1 << 20)) {
        c.maxViewportWidth = vp[0];
        c.maxViewportHeight = vp[1];
    }
    c.max3DTextureSize = Int(gl, GL_MAX_3D_TEXTURE_SIZE_, 1, 1 << 20);
    c.maxTextureImageUnits = Int(gl, GL_MAX_TEXTURE_IMAGE_UNITS_, 1, 4096);
    if (v >= 30) c.maxSamples = Int(gl, GL_MAX_SAMPLES_, 0, 1024);
    if (c.caps[kCapTessellation]) {
        if (gl.getFloatv) {
            float f = 0.0f;
            gl.getFloatv(GL_MAX_TESS_GEN_LEVEL_, &f);
            if (Clean(gl) && f >= 0.0f && f <= 65536.0f) c.maxTessLevel = f;
        } else {
            c.maxTessLevel = static_cast<float>(Int(gl, GL_MAX_TESS_GEN_LEVEL_, 0, 65536));
        }
    }
    if (c.caps[kCapNvMemoryInfo]) {
        int kb = Int(gl, GPU_MEMORY_INFO_DEDICATED_VIDMEM_NVX_, 1, 1 << 30);
        c.videoMemoryMB = kb >> 10;
    } else if (c.caps[kCapAtiMemInfo]) {
        // Free texture memory is the nearest the extension comes to a size.
        int kb = Int(gl, TEXTURE_FREE_MEMORY_ATI_, 1, 1 << 30);
        c.videoMemoryMB = kb >> 10;
    }
    return c;
}

RenderWindow::~RenderWindow() { Destroy(); }

#if defined(_WIN32)

struct RenderWindow::Native {
    HWND hwnd = nullptr;
    HDC hdc = nullptr;
    HGLRC hglrc = nullptr;
    bool classRegistered = false;
};

namespace {
constexpr const char* kClassName = "ProbeGPU_DummyW";

const unsigned char* WglGetString(unsigned name) { return glGetString(name); }
void WglGetIntegerv(unsigned name, int* out) { glGetIntegerv(name, reinterpret_cast<GLint*>(out)); }
void WglGetFloatv(unsigned name, float* out) { glGetFloatv(name, out); }
unsigned WglGetError() { return glGetError(); }
using GetStringiFn = const unsigned char*(WINAPI*)(unsigned, unsigned);
GetStringiFn gGetStringi = nullptr;
const unsigned char* WglGetStringi(unsigned name, unsigned i) { return gGetStringi ? gGetStringi(name, i) : nullptr; }
}  // namespace

bool RenderWindow::Create(int x, int y, int width, int height, int opt1, int opt2, int opt3) {
    Destroy();
    failure_.clear();
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
            failure_ = "RegisterClassExA failed";
            Destroy();
            return false;
        }
        native_->classRegistered = true;
    }
    native_->hwnd = CreateWindowExA(0, kClassName, "ProbeGPU Dummy Win", WS_POPUP | WS_CLIPSIBLINGS | WS_CLIPCHILDREN, x, y,
                                    width, height, nullptr, nullptr, inst, nullptr);
    if (!native_->hwnd) {
        failure_ = "CreateWindowExA failed";
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
        failure_ = "no pixel format with 32 colour, 24 depth and 8 stencil bits";
        Destroy();
        return false;
    }
    native_->hglrc = wglCreateContext(native_->hdc);
    if (!native_->hglrc || !wglMakeCurrent(native_->hdc, native_->hglrc)) {
        failure_ = "wglCreateContext failed";
        Destroy();
        return false;
    }
    if (opt1 > 0 || (opt3 & 1)) {
        // A versioned (or debug) context needs the ARB entry point, which
        // only a current legacy context can hand out.
        using CreateAttribsFn = HGLRC(WINAPI*)(HDC, HGLRC, const int*);
        auto createAttribs = reinterpret_cast<CreateAttribsFn>(
            reinterpret_cast<void*>(wglGetProcAddress("wglCreateContextAttribsARB")));
        if (createAttribs) {
            const int attribs[] = {0x2091, opt1 > 0 ? opt1 : 1, 0x2092, opt1 > 0 ? opt2 : 0, 0x2094, (opt3 & 1) ? 1 : 0, 0};
            HGLRC versioned = createAttribs(native_->hdc, nullptr, attribs);
            if (versioned) {
                wglMakeCurrent(nullptr, nullptr);
                wglDeleteContext(native_->hglrc);
                native_->hglrc = versioned;
                wglMakeCurrent(native_->hdc, versioned);
            }
        }
    }
    gGetStringi = reinterpret_cast<GetStringiFn>(reinterpret_cast<void*>(wglGetProcAddress("glGetStringi")));
    GlFunctions gl;
    gl.getString = &WglGetString;
    gl.getStringi = &WglGetStringi;
    gl.getIntegerv = &WglGetIntegerv;
    gl.getFloatv = &WglGetFloatv;
    gl.getError = &WglGetError;
    caps_ = ReadGlCaps(gl);
    // The render thread makes its own context current later.
    wglMakeCurrent(nullptr, nullptr);
    created_ = true;
    return true;
}

void RenderWindow::Destroy() {
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
    created_ = false;
    caps_ = GlCaps();
}

#else  // EGL

struct RenderWindow::Native {
    void* lib = nullptr;
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
void Load(void* lib, const char* name, T* out) {
    *out = reinterpret_cast<T>(dlsym(lib, name));
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

using GetStringFn = const unsigned char* (*)(unsigned);
using GetStringiFn = const unsigned char* (*)(unsigned, unsigned);
using GetIntegervFn = void (*)(unsigned, int*);
using GetFloatvFn = void (*)(unsigned, float*);
using GetErrorFn = unsigned (*)();

}  // namespace

bool RenderWindow::Create(int x, int y, int width, int height, int opt1, int opt2, int opt3) {
    Destroy();
    failure_.clear();
    native_ = new Native();
    native_->lib = dlopen("libEGL.so.1", RTLD_NOW | RTLD_LOCAL);
    if (!native_->lib) {
        failure_ = "libEGL.so.1 not found";
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
        failure_ = "libEGL.so.1 lacks EGL 1.4 entry points";
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
        failure_ = "no EGL display";
        Destroy();
        return false;
    }
    native_->display = dpy;
    if (!egl.bindAPI(EGL_OPENGL_API_)) {
        failure_ = "EGL offers no desktop OpenGL";
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
        failure_ = "no EGL config with 32 colour, 24 depth and 8 stencil bits";
        Destroy();
        return false;
    }
    EGLint contextAttribs[9];
    int n = 0;
    if (opt1 > 0) {
        contextAttribs[n++] = EGL_CONTEXT_MAJOR_VERSION_;
        contextAttribs[n++] = opt1;
        contextAttribs[n++] = EGL_CONTEXT_MINOR_VERSION_;
        contextAttribs[n++] = opt2;
    }
    if (opt3 & 1) {
        contextAttribs[n++] = EGL_CONTEXT_OPENGL_DEBUG_;
        contextAttribs[n++] = 1;
    }
    contextAttribs[n] = EGL_NONE_;
    native_->context = egl.createContext(dpy, config, nullptr, contextAttribs);
    if (!native_->context) {
        failure_ = "eglCreateContext failed";
        Destroy();
        return false;
    }
    if (!surfaceless && egl.createPbufferSurface) {
        const EGLint pbuffer[] = {EGL_WIDTH_, width > 0 ? width : 1, EGL_HEIGHT_, height > 0 ? height : 1, EGL_NONE_};
        native_->surface = egl.createPbufferSurface(dpy, config, pbuffer);
    }
    if (!native_->makeCurrent(dpy, native_->surface, native_->surface, native_->context)) {
        failure_ = "eglMakeCurrent failed";
        Destroy();
        return false;
    }
    GlFunctions gl;
    gl.getString = reinterpret_cast<GetStringFn>(egl.getProcAddress("glGetString"));
    gl.getStringi = reinterpret_cast<GetStringiFn>(egl.getProcAddress("glGetStringi"));
    gl.getIntegerv = reinterpret_cast<GetIntegervFn>(egl.getProcAddress("glGetIntegerv"));
    gl.getFloatv = reinterpret_cast<GetFloatvFn>(egl.getProcAddress("glGetFloatv"));
    gl.getError = reinterpret_cast<GetErrorFn>(egl.getProcAddress("glGetError"));
    caps_ = ReadGlCaps(gl);
    // The renderer makes its own context current on its own thread later.
    native_->makeCurrent(dpy, nullptr, nullptr, nullptr);
    (void)x;
    (void)y;
    created_ = true;
    return true;
}

void RenderWindow::Destroy() {
    if (native_) {
        if (native_->display) {
            if (native_->makeCurrent) native_->makeCurrent(native_->display, nullptr, nullptr, nullptr);
            if (native_->context) native_->destroyContext(native_->display, native_->context);
            if (native_->surface && native_->destroySurface) native_->destroySurface(native_->display, native_->surface);
            // The display is not terminated: EGL hands the same display to
            // every caller in the process, and the renderer may be using it.
        }
        // libEGL stays loaded for the same reason (dlclose would be a no-op
        // at best while the renderer holds it).
        delete native_;
        native_ = nullptr;
    }
    created_ = false;
    caps_ = GlCaps();
}

#endif

}  // namespace ProbeGPUnm
