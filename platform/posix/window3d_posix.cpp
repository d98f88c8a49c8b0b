// The 3D window on Linux: an SDL window (windowed: a fixed-size framed window
// centred on the screen; fullscreen: the display switched to the run's size),
// or no window at all for headless runs. The UI loop polls SDL's events, the
// posted close requests and the stop signals.
#include "platform/window3d.h"

#include <SDL2/SDL.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <mutex>

#include "platform/gui_window.h"
#include "platform/platform.h"

namespace platform {

namespace {

std::atomic<int> gPendingCloses{0};
std::atomic<bool> gQuit{false};
volatile std::sig_atomic_t gStopSignal = 0;
std::atomic<bool> gModeChanged{false};

class TitleBox {
public:
    void Set(const char* t) {
        std::lock_guard<std::mutex> lock(mutex_);
        title_ = t ? t : "";
        dirty_ = true;
    }
    bool TakeDirty(std::string* out) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!dirty_) return false;
        dirty_ = false;
        *out = title_;
        return true;
    }
    std::string Get() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return title_;
    }

private:
    mutable std::mutex mutex_;
    std::string title_;
    bool dirty_ = false;
};

class SdlWindow : public Window3D {
public:
    SdlWindow(SDL_Window* w, bool headless, int width, int height) : window_(w), headless_(headless) {
        if (window_) {
            SDL_GL_GetDrawableSize(window_, &clientWidth_, &clientHeight_);
            if (clientWidth_ <= 0 || clientHeight_ <= 0) SDL_GetWindowSize(window_, &clientWidth_, &clientHeight_);
        } else {
            clientWidth_ = width;
            clientHeight_ = height;
        }
        title_.Set("Ardentium");
        if (window_) SDL_SetWindowData(window_, "ard", this);
    }
    ~SdlWindow() override {
        if (window_) SDL_DestroyWindow(window_);
        if (Live() == this) Live() = nullptr;
    }
    RenderTarget Target() const override {
        RenderTarget t;
        t.nativeWindow = window_;
        t.headless = headless_;
        t.width = clientWidth_;
        t.height = clientHeight_;
        return t;
    }
    int ClientWidth() const override { return clientWidth_; }
    int ClientHeight() const override { return clientHeight_; }
    void SetTitle(const char* title) override { title_.Set(title); }
    std::string Title() const override { return title_.Get(); }
    void Hide() override {
        if (window_) SDL_HideWindow(window_);
        if (Live() == this) Live() = nullptr;
    }

    // Called by the UI loop: SDL's video calls belong on the thread that made the window.
    void ApplyTitle() {
        std::string t;
        if (window_ && title_.TakeDirty(&t)) SDL_SetWindowTitle(window_, t.c_str());
    }

    static SdlWindow*& Live() {
        static SdlWindow* live = nullptr;
        return live;
    }

private:
    SDL_Window* window_;
    bool headless_;
    int clientWidth_ = 0;
    int clientHeight_ = 0;
    TitleBox title_;
};

RunKey Translate(const SDL_Keysym& k) {
    switch (k.sym) {
        case SDLK_ESCAPE: return RunKey::Escape;
        case SDLK_SPACE: return RunKey::Space;
        case SDLK_p: return RunKey::P;
        case SDLK_i: return RunKey::I;
        case SDLK_F5: return RunKey::F5;
        case SDLK_F6: return RunKey::F6;
        case SDLK_t: return RunKey::T;
        case SDLK_g: return RunKey::G;
        case SDLK_F1: return RunKey::F1;
        case SDLK_KP_PLUS: return RunKey::NumPlus;
        case SDLK_KP_MINUS: return RunKey::NumMinus;
        case SDLK_k: return RunKey::K;
        case SDLK_F2: return RunKey::F2;
        case SDLK_UP: return RunKey::Up;
        case SDLK_DOWN: return RunKey::Down;
        case SDLK_LEFT: return RunKey::Left;
        case SDLK_RIGHT: return RunKey::Right;
        default: return RunKey::Other;
    }
}

// The key state in the layout of a Windows key table: virtual-key codes for
// letters and digits are their upper-case ASCII codes; bit 7 marks "down".
void KeyboardState(unsigned char out[256]) {
    for (int i = 0; i < 256; ++i) out[i] = 0;
    int n = 0;
    const Uint8* keys = SDL_GetKeyboardState(&n);
    for (int sc = 0; sc < n; ++sc) {
        if (!keys[sc]) continue;
        SDL_Keycode code = SDL_GetKeyFromScancode(static_cast<SDL_Scancode>(sc));
        if (code >= 'a' && code <= 'z') out[code - 'a' + 'A'] = 0x80;
        else if (code >= '0' && code <= '9') out[code] = 0x80;
        else if (code == SDLK_SPACE) out[0x20] = 0x80;
        else if (code == SDLK_LEFT) out[0x25] = 0x80;
        else if (code == SDLK_UP) out[0x26] = 0x80;
        else if (code == SDLK_RIGHT) out[0x27] = 0x80;
        else if (code == SDLK_DOWN) out[0x28] = 0x80;
    }
}

// The first SIGINT or SIGTERM stops the run through the kill sequence; a
// second one while that is under way ends the process at once (the event
// log's lines are already on disk: each is written when it is logged).
volatile std::sig_atomic_t gStopSignals = 0;

void OnStopSignal(int) {
    if (gStopSignals > 0) {
        static const char kMessage[] = "Interrupted again: ending at once.\n";
        ssize_t ignored = write(2, kMessage, sizeof kMessage - 1);
        (void)ignored;
        _exit(130);
    }
    gStopSignals = 1;
    gStopSignal = 1;
}

bool EnsureVideo() {
    if (SDL_WasInit(SDL_INIT_VIDEO)) return true;
    return SDL_InitSubSystem(SDL_INIT_VIDEO) == 0;
}

// A fullscreen run switches to one of the display's own modes. SDL would
// quietly take the nearest larger one instead and the run would draw, and
// report, a size nobody chose; like a refused mode switch on Windows, a size
// the display lacks is refused.
bool DisplayHasMode(int width, int height) {
    DisplayMode m;
    for (int i = 0; EnumDisplayMode(i, &m); ++i)
        if (m.width == width && m.height == height) return true;
    return false;
}

}  // namespace

std::unique_ptr<Window3D> CreateWindow3D(const Window3DRequest& req, WindowError* error) {
    *error = WindowError::None;
    if (req.headless) {
        auto w = std::make_unique<SdlWindow>(nullptr, true, req.width, req.height);
        SdlWindow::Live() = w.get();
        return w;
    }
    if (!EnsureVideo()) {
        *error = WindowError::CreationFailed;
        return nullptr;
    }
    SDL_GL_SetAttribute(SDL_GL_DOUBLEBUFFER, 1);
    SDL_GL_SetAttribute(SDL_GL_DEPTH_SIZE, 24);
    SDL_GL_SetAttribute(SDL_GL_STENCIL_SIZE, 8);
    SDL_GL_SetAttribute(SDL_GL_MULTISAMPLEBUFFERS, req.samples > 1 ? 1 : 0);
    SDL_GL_SetAttribute(SDL_GL_MULTISAMPLESAMPLES, req.samples > 1 ? req.samples : 0);
    Uint32 flags = SDL_WINDOW_OPENGL | (req.hidden ? SDL_WINDOW_HIDDEN : SDL_WINDOW_SHOWN);
    int x = SDL_WINDOWPOS_CENTERED, y = SDL_WINDOWPOS_CENTERED;
    if (req.fullscreen) {
        if (!DisplayHasMode(req.width, req.height)) {
            *error = WindowError::DisplayModeRefused;
            return nullptr;
        }
        flags |= SDL_WINDOW_FULLSCREEN;
        x = y = 0;
    }
    SDL_Window* window = SDL_CreateWindow("Ardentium", x, y, req.width, req.height, flags);
    if (!window && req.samples > 1) {
        // No multisampled pixel format: the back-end multisamples offscreen instead.
        SDL_GL_SetAttribute(SDL_GL_MULTISAMPLEBUFFERS, 0);
        SDL_GL_SetAttribute(SDL_GL_MULTISAMPLESAMPLES, 0);
        window = SDL_CreateWindow("Ardentium", x, y, req.width, req.height, flags);
    }
    if (!window) {
        *error = req.fullscreen ? WindowError::DisplayModeRefused : WindowError::CreationFailed;
        return nullptr;
    }
    if (req.fullscreen) {
        SDL_DisplayMode mode;
        SDL_GetWindowDisplayMode(window, &mode);
        mode.w = req.width;
        mode.h = req.height;
        mode.refresh_rate = 0;  // the refresh rate is not part of the switch
        if (SDL_SetWindowDisplayMode(window, &mode) != 0) {
            SDL_DestroyWindow(window);
            *error = WindowError::DisplayModeRefused;
            return nullptr;
        }
        gModeChanged = true;
    }
    auto w = std::make_unique<SdlWindow>(window, false, req.width, req.height);
    SdlWindow::Live() = w.get();
    if (!req.hidden) SDL_RaiseWindow(window);
    return w;
}

bool RestoreDisplayMode() {
    // SDL puts the desktop mode back when the fullscreen window goes; this
    // only records that the run's mode is gone.
    return gModeChanged.exchange(false);
}

bool DisplayModeChanged() { return gModeChanged; }

void PostCloseToUi() { gPendingCloses.fetch_add(1); }
void PostQuitToUi() { gQuit = true; }

// No window system call here waits on the UI thread: a plain sleep.
void WaitServingSentMessages(unsigned ms) { SleepMs(ms); }

void InstallStopRequestHandlers() {
    struct sigaction sa {};
    sa.sa_handler = OnStopSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

bool TakeStopRequest() {
    if (!gStopSignal) return false;
    gStopSignal = 0;
    return true;
}

void RunUiLoop(UiEvents& events) {
    unsigned char keyState[256];
    // Each loop ends on the quit posted for it (a launcher runs one loop per run).
    struct ConsumeQuit {
        ~ConsumeQuit() { gQuit = false; }
    } consume;
    while (!gQuit) {
        if (gStopSignal) {
            gStopSignal = 0;
            events.OnKey(RunKey::Escape, nullptr);
            continue;
        }
        if (gPendingCloses.load() > 0) {
            gPendingCloses.fetch_sub(1);
            events.OnClose();
            continue;
        }
        SdlWindow* live = SdlWindow::Live();
        if (live && live->Target().nativeWindow) {
            live->ApplyTitle();
            SDL_Event e;
            if (SDL_WaitEventTimeout(&e, 10)) {
                if (e.type == SDL_QUIT ||
                    (e.type == SDL_WINDOWEVENT && e.window.event == SDL_WINDOWEVENT_CLOSE)) {
                    events.OnClose();
                } else if (e.type == SDL_KEYDOWN) {
                    KeyboardState(keyState);
                    events.OnKey(Translate(e.key.keysym), keyState);
                }
            }
        } else {
            SleepMs(10);
        }
    }
}

}  // namespace platform
