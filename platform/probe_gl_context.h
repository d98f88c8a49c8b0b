// The extra OpenGL context the monitor opens once at start-up to read what
// the driver offers (monitor/gl_probe.h reads it). It is not the renderer's
// context (platform/gl_context.h): it exists before any window of the
// program, draws nothing, and is released from the thread at once.
//
// Windows: a hidden popup window of the class "ProbeGPU_DummyW", titled
// "ProbeGPU Dummy Win", with a WGL context. Linux: an EGL context with no
// window at all (Mesa's surfaceless platform, else the default display with
// a surfaceless or 1x1 pbuffer context); libEGL is loaded at run time, so a
// machine without it simply has no context.
#pragma once

#include <string>

namespace platform {

class ProbeGlContext {
public:
    ProbeGlContext() = default;
    ~ProbeGlContext();
    ProbeGlContext(const ProbeGlContext&) = delete;
    ProbeGlContext& operator=(const ProbeGlContext&) = delete;

    // Makes the context with 32 colour, 24 depth and 8 stencil bits, no
    // multisampling, and makes it current on the calling thread. major,
    // minor: the OpenGL version to ask for (0, 0: whatever the driver gives
    // by default); debug: a debug context. False, with the reason in
    // *failure and nothing left behind, when it cannot be made.
    bool Create(int x, int y, int width, int height, int major, int minor, bool debug, std::string* failure);
    // An entry point of the current context, OpenGL 1.1 functions included;
    // null when the driver has none.
    void* ProcAddress(const char* name) const;
    // Releases the context from the calling thread: the renderer makes its
    // own context current later.
    void Release();
    void Destroy();

private:
    struct Native;
    Native* native_ = nullptr;
};

}  // namespace platform
