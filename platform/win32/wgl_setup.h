// The WGL steps every OpenGL context of the program starts with: the start-up
// probe's, the 3D window's and the launcher's. A window gets a double-buffered
// RGBA pixel format once, and a legacy context made current on it is what
// hands out the extension entry points (versioned contexts, swap interval,
// GPU affinity).
#pragma once

#include <windows.h>

namespace platform {
namespace wgl {

// A double-buffered RGBA window format of 32 colour bits with the alpha,
// depth and stencil bits given (0 for none).
PIXELFORMATDESCRIPTOR WindowFormat(BYTE alphaBits, BYTE depthBits, BYTE stencilBits);

// Gives `dc` the closest format to `pfd`; false where the driver has none or
// the window already has another.
bool SetFormat(HDC dc, const PIXELFORMATDESCRIPTOR& pfd);

// Sets the format and makes a legacy context current on `dc`. Null, with
// `failure` naming the step, when either fails; nothing is left current then.
HGLRC MakeCurrentLegacyContext(HDC dc, const PIXELFORMATDESCRIPTOR& pfd, const char** failure);

// An entry point of the current context. wglGetProcAddress knows only what
// came after OpenGL 1.1; the rest is exported by opengl32 itself. Some
// drivers answer 1, 2, 3 or -1 for "not found".
void* ProcAddress(const char* name);

template <typename F>
F Function(const char* name) {
    return reinterpret_cast<F>(ProcAddress(name));
}

}  // namespace wgl
}  // namespace platform
