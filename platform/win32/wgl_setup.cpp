#include "platform/win32/wgl_setup.h"

#include <cstdint>

namespace platform {
namespace wgl {

PIXELFORMATDESCRIPTOR WindowFormat(BYTE alphaBits, BYTE depthBits, BYTE stencilBits) {
    PIXELFORMATDESCRIPTOR pfd = {};
    pfd.nSize = sizeof pfd;
    pfd.nVersion = 1;
    pfd.dwFlags = PFD_DRAW_TO_WINDOW | PFD_SUPPORT_OPENGL | PFD_DOUBLEBUFFER;
    pfd.iPixelType = PFD_TYPE_RGBA;
    pfd.cColorBits = 32;
    pfd.cAlphaBits = alphaBits;
    pfd.cDepthBits = depthBits;
    pfd.cStencilBits = stencilBits;
    pfd.iLayerType = PFD_MAIN_PLANE;
    return pfd;
}

bool SetFormat(HDC dc, const PIXELFORMATDESCRIPTOR& pfd) {
    const int format = dc ? ChoosePixelFormat(dc, &pfd) : 0;
    return format != 0 && SetPixelFormat(dc, format, &pfd) != FALSE;
}

HGLRC MakeCurrentLegacyContext(HDC dc, const PIXELFORMATDESCRIPTOR& pfd, const char** failure) {
    if (!SetFormat(dc, pfd)) {
        *failure = "no suitable pixel format";
        return nullptr;
    }
    HGLRC rc = wglCreateContext(dc);
    if (!rc || !wglMakeCurrent(dc, rc)) {
        if (rc) wglDeleteContext(rc);
        *failure = "wglCreateContext failed";
        return nullptr;
    }
    return rc;
}

void* ProcAddress(const char* name) {
    static HMODULE opengl32 = LoadLibraryA("opengl32.dll");
    PROC p = wglGetProcAddress(name);
    const intptr_t v = reinterpret_cast<intptr_t>(p);
    if (v == 0 || v == 1 || v == 2 || v == 3 || v == -1) p = opengl32 ? GetProcAddress(opengl32, name) : nullptr;
    return reinterpret_cast<void*>(p);
}

}  // namespace wgl
}  // namespace platform
