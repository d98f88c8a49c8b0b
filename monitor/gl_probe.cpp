#include "monitor/gl_probe.h"

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "platform/probe_gl_context.h"

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

namespace {
using GetStringFn = const unsigned char* (*)(unsigned);
using GetStringiFn = const unsigned char* (*)(unsigned, unsigned);
using GetIntegervFn = void (*)(unsigned, int*);
using GetFloatvFn = void (*)(unsigned, float*);
using GetErrorFn = unsigned (*)();

// Entry points as the platform's context hands them out. The build is
// 64-bit only, where WINAPI and the default calling convention are one.
template <typename Fn>
Fn Entry(const platform::ProbeGlContext& context, const char* name) {
    return reinterpret_cast<Fn>(context.ProcAddress(name));
}
}  // namespace

bool RenderWindow::Create(int x, int y, int width, int height, int opt1, int opt2, int opt3) {
    Destroy();
    failure_.clear();
    context_ = new platform::ProbeGlContext();
    if (!context_->Create(x, y, width, height, opt1, opt2, (opt3 & 1) != 0, &failure_)) {
        Destroy();
        return false;
    }
    GlFunctions gl;
    gl.getString = Entry<GetStringFn>(*context_, "glGetString");
    gl.getStringi = Entry<GetStringiFn>(*context_, "glGetStringi");
    gl.getIntegerv = Entry<GetIntegervFn>(*context_, "glGetIntegerv");
    gl.getFloatv = Entry<GetFloatvFn>(*context_, "glGetFloatv");
    gl.getError = Entry<GetErrorFn>(*context_, "glGetError");
    caps_ = ReadGlCaps(gl);
    // The renderer makes its own context current on its own thread later.
    context_->Release();
    created_ = true;
    return true;
}

void RenderWindow::Destroy() {
    delete context_;
    context_ = nullptr;
    created_ = false;
    caps_ = GlCaps();
}

}  // namespace ProbeGPUnm
