// The window the launcher and the score dialog draw their GUI into: a
// window of its own with an OpenGL 3 context and the GUI library's platform
// and renderer back-ends (SDL2 on Linux, Win32 on Windows). The GUI's
// widgets themselves are portable and live above.
#pragma once

#include <memory>
#include <string>

namespace platform {

class GuiWindow {
public:
    virtual ~GuiWindow() = default;
    // UI thread. Hands the window's pending events to the GUI and starts a
    // GUI frame. False once the user asked to close the window (its close
    // button, Ctrl+C or SIGTERM); the frame is started all the same.
    virtual bool BeginFrame() = 0;
    // Draws the GUI frame and shows it.
    virtual void EndFrame() = 0;
    // Resizes the drawing area (kept within the screen) and centres the window.
    virtual void SetClientSize(int width, int height) = 0;
    virtual void Show() = 0;
    virtual void Hide() = 0;
    // Screenshots of the launcher: the next EndFrame keeps a copy of what it
    // drew, which TakeCapturedFrame then hands over (RGBA, top row first).
    virtual void CaptureNextFrame() = 0;
    virtual bool TakeCapturedFrame(std::string* rgba, int* width, int* height) = 0;
    // Where the window's drawing area starts on the screen (tests click there).
    virtual void ClientOrigin(int* x, int* y) const = 0;
    // How much larger than at 96 DPI text should be on this display.
    virtual float DpiScale() const = 0;
};

// UI thread, with the GUI's context already made. Null, with the reason,
// when there is no display or the window or its context cannot be made.
std::unique_ptr<GuiWindow> CreateGuiWindow(const char* title, int width, int height, std::string* error);

// Takes a pending stop request (Ctrl+C, SIGINT, SIGTERM) that arrived while
// no run was going on; true when there was one.
bool TakeStopRequest();

}  // namespace platform
