// The 3D window of a run and the UI thread's event loop. On Windows a Win32
// window with its message loop; on Linux an SDL window, or no window at all
// for headless runs. Keys and close requests reach the rest of the program
// through UiEvents, on the UI thread.
#pragma once

#include <memory>
#include <string>

#include "platform/render_target.h"

// The keys that control a run.
enum class RunKey { Escape, Space, P, I, F5, F6, T, G, F1, NumPlus, NumMinus, K, Other, F2, Up, Down, Left, Right };

namespace platform {

struct Window3DRequest {
    bool fullscreen = false;
    bool headless = false;
    bool hidden = false;  // created but not shown (the benchmark object presents its own way)
    bool menuBar = true;
    int width = 640;
    int height = 480;
    int samples = 0;  // window-system multisampling, where the pixel format carries it
};

class Window3D {
public:
    virtual ~Window3D() = default;
    virtual RenderTarget Target() const = 0;
    virtual int ClientWidth() const = 0;
    virtual int ClientHeight() const = 0;
    // May be called from any thread; applied by the UI thread.
    virtual void SetTitle(const char* title) = 0;
    virtual std::string Title() const = 0;
    virtual void Update() {}
    // Takes the window off the screen without destroying it (a render
    // thread that is still drawing into it keeps a valid target).
    virtual void Hide() {}
};

enum class WindowError { None, DisplayModeRefused, CreationFailed };

// Creates the window (switching the display mode for a fullscreen run).
std::unique_ptr<Window3D> CreateWindow3D(const Window3DRequest& request, WindowError* error);
// Puts the display back in the mode it had before the run; true when a mode
// had been changed.
bool RestoreDisplayMode();

// Is the display in a mode set for the run?
bool DisplayModeChanged();

class UiEvents {
public:
    virtual ~UiEvents() = default;
    // keyboardState: 256 bytes of key state where the platform has them, else null.
    virtual void OnKey(RunKey key, const unsigned char* keyboardState) = 0;
    // The close request (the window's close button, a posted close).
    virtual void OnClose() = 0;
};

// From any thread: asks the UI thread to close the 3D window.
void PostCloseToUi();
// Ends the UI loop (PostQuitMessage).
void PostQuitToUi();
// For the UI thread while it waits for the render thread: handles the
// messages other threads send to its windows and wait on (a graphics driver
// presenting into the window may), and nothing posted, so no key or close
// request is acted on inside the wait. Then sleeps for ms.
void WaitServingSentMessages(unsigned ms);
// Runs the UI thread's loop until PostQuitToUi.
void RunUiLoop(UiEvents& events);
// Interrupt and termination (Ctrl+C, SIGINT, SIGTERM) act like the Escape key.
void InstallStopRequestHandlers();

// Wait for the headless loop's tick, for tests: how often the loop looks for work.
constexpr int kUiPollMs = 10;

}  // namespace platform
