// The library's own dummy OpenGL context, made once at start-up to learn
// what the driver offers: renderer and version texts, limits, extensions,
// and (where the driver tells) the size of video memory. The context itself
// is platform code (platform/probe_gl_context.h); here is what is read
// from it.
#pragma once

#include <string>

namespace platform {
class ProbeGlContext;
}

namespace ProbeGPUnm {

// Capability list kept by the render window. Ids 30 and 31 are the two
// checks behind the library's dual-capability flag.
enum GlCapability {
    kCapGL20 = 0,
    kCapGL21,
    kCapGL30,
    kCapGL31,
    kCapGL32,
    kCapGL33,
    kCapGL40,
    kCapGL41,
    kCapGL42,
    kCapGL43,
    kCapGL44,
    kCapGL45,
    kCapGL46,
    kCapTextureFloat,        // GL_ARB_texture_float
    kCapFramebufferObject,   // GL_ARB_framebuffer_object / GL_EXT_framebuffer_object
    kCapMultisample,         // GL_ARB_multisample
    kCapAnisotropic,         // GL_EXT_texture_filter_anisotropic / GL_ARB_texture_filter_anisotropic
    kCapVertexBufferObject,  // GL_ARB_vertex_buffer_object
    kCapGeometryShader,      // GL_ARB_geometry_shader4 or OpenGL 3.2
    kCapS3TC,                // GL_EXT_texture_compression_s3tc
    kCapUniformBuffer,       // GL_ARB_uniform_buffer_object or OpenGL 3.1
    kCapInstancing,          // GL_ARB_draw_instanced or OpenGL 3.1
    kCapTimerQuery,          // GL_ARB_timer_query or OpenGL 3.3
    kCapDebugOutput,         // GL_KHR_debug or GL_ARB_debug_output
    kCapNvMemoryInfo,        // GL_NVX_gpu_memory_info
    kCapAtiMemInfo,          // GL_ATI_meminfo
    kCapShaderStorage,       // GL_ARB_shader_storage_buffer_object or OpenGL 4.3
    kCapDirectStateAccess,   // GL_ARB_direct_state_access or OpenGL 4.5
    kCapSparseTexture,       // GL_ARB_sparse_texture
    kCapBindlessTexture,     // GL_ARB_bindless_texture
    kCapTessellation = 30,   // GL_ARB_tessellation_shader or OpenGL 4.0
    kCapComputeShader = 31,  // GL_ARB_compute_shader or OpenGL 4.3
    kCapCount = 32,
};

struct GlCaps {
    bool valid = false;
    std::string vendor, renderer, version;
    int major = 0, minor = 0;
    // The six figures of the capability block.
    int maxTextureSize = 0;
    int maxViewportWidth = 0;
    int maxViewportHeight = 0;
    int max3DTextureSize = 0;
    int maxTextureImageUnits = 0;
    int maxSamples = 0;
    float maxTessLevel = 0.0f;
    int videoMemoryMB = 0;  // 0 when the driver does not tell
    bool caps[kCapCount] = {};
};

// The GL entry points the probe calls, so the reading of a context can be
// checked with a scripted driver.
struct GlFunctions {
    const unsigned char* (*getString)(unsigned name) = nullptr;
    const unsigned char* (*getStringi)(unsigned name, unsigned index) = nullptr;
    void (*getIntegerv)(unsigned name, int* out) = nullptr;
    void (*getFloatv)(unsigned name, float* out) = nullptr;
    unsigned (*getError)() = nullptr;
};

// Reads everything the probe wants from the current context.
GlCaps ReadGlCaps(const GlFunctions& gl);
// "4.6 (Compatibility Profile) Mesa 23.1.2" -> 4, 6. False when the text
// does not start with a version.
bool ParseGlVersion(const char* text, int* major, int* minor);

class RenderWindow {
public:
    RenderWindow() = default;
    ~RenderWindow();
    RenderWindow(const RenderWindow&) = delete;
    RenderWindow& operator=(const RenderWindow&) = delete;

    // Creates the dummy window (Windows) and the context with 32 colour,
    // 24 depth and 8 stencil bits, no multisampling. opt1/opt2: the OpenGL
    // version to ask for (0, 0: whatever the driver gives by default);
    // opt3 bit 0: a debug context. Reads the capabilities, then releases the
    // context from this thread. False, with nothing left behind, on failure.
    bool Create(int x, int y, int width, int height, int opt1, int opt2, int opt3);
    void Destroy();
    bool created() const { return created_; }
    const GlCaps& caps() const { return caps_; }
    // Why Create failed, for the log.
    const std::string& failure() const { return failure_; }

private:
    bool created_ = false;
    GlCaps caps_;
    std::string failure_;
    platform::ProbeGlContext* context_ = nullptr;
};

}  // namespace ProbeGPUnm
