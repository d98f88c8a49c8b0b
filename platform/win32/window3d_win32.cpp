// The 3D window on Windows: two window classes (framed and fullscreen), the
// display-mode switch and its restore, and the message loop whose window
// procedure turns keys and menu commands into run control.
#include "platform/window3d.h"

#include <windows.h>

#include <atomic>
#include <mutex>

#include "platform/gui_window.h"
#include "platform/win32/resource_ids.h"
#include "platform/win32/ui_messages.h"

namespace platform {

namespace {


UiEvents* gEvents = nullptr;
DWORD gUiThread = 0;
std::atomic<HWND> gWindow{nullptr};
std::atomic<bool> gModeChanged{false};
bool gWindowedClassRegistered = false;
bool gFullscreenClassRegistered = false;

std::mutex gTitleMutex;
std::string gTitle = "Ardentium";

RunKey Translate(WPARAM vk) {
    switch (vk) {
        case VK_ESCAPE: return RunKey::Escape;
        case VK_SPACE: return RunKey::Space;
        case 'P': return RunKey::P;
        case 'I': return RunKey::I;
        case VK_F5: return RunKey::F5;
        case VK_F6: return RunKey::F6;
        case 'T': return RunKey::T;
        case 'G': return RunKey::G;
        case VK_F1: return RunKey::F1;
        case VK_ADD: return RunKey::NumPlus;
        case VK_SUBTRACT: return RunKey::NumMinus;
        case 'K': return RunKey::K;
        case VK_F2: return RunKey::F2;
        case VK_UP: return RunKey::Up;
        case VK_DOWN: return RunKey::Down;
        case VK_LEFT: return RunKey::Left;
        case VK_RIGHT: return RunKey::Right;
        default: return RunKey::Other;
    }
}

INT_PTR CALLBACK AboutProc(HWND dialog, UINT msg, WPARAM wp, LPARAM) {
    if (msg == WM_INITDIALOG) return TRUE;
    if (msg == WM_COMMAND && (LOWORD(wp) == IDOK || LOWORD(wp) == IDCANCEL)) {
        EndDialog(dialog, LOWORD(wp));
        return TRUE;
    }
    return FALSE;
}

LRESULT CALLBACK WindowProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
    switch (msg) {
        case WM_CREATE: return 0;
        case WM_CLOSE:
            if (gEvents) gEvents->OnClose();
            return 0;
        case WM_CHAR:
            if (wp == VK_ESCAPE) {
                if (gEvents) gEvents->OnKey(RunKey::Escape, nullptr);
                break;
            }
            return 1;
        case WM_COMMAND:
            if (LOWORD(wp) == kMenuAbout) {
                DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(kAboutDialog), hwnd, AboutProc, 0);
                return 0;
            }
            if (LOWORD(wp) == kMenuExit) {
                if (gEvents) gEvents->OnClose();
                return 0;
            }
            break;
        case WM_KEYDOWN: {
            RunKey key = Translate(wp);
            if (key == RunKey::Other) return 1;
            BYTE state[256];
            if (!GetKeyboardState(state)) ZeroMemory(state, sizeof state);
            if (gEvents) gEvents->OnKey(key, state);
            break;
        }
        case kMsgApplyTitle: {
            std::string t;
            {
                std::lock_guard<std::mutex> lock(gTitleMutex);
                t = gTitle;
            }
            SetWindowTextA(hwnd, t.c_str());
            return 0;
        }
        default: break;
    }
    return DefWindowProcW(hwnd, msg, wp, lp);
}

bool RegisterClassOnce(const wchar_t* name, bool fullscreen) {
    bool& done = fullscreen ? gFullscreenClassRegistered : gWindowedClassRegistered;
    if (done) return true;
    HINSTANCE inst = GetModuleHandleW(nullptr);
    WNDCLASSEXW wc = {};
    wc.cbSize = sizeof wc;
    wc.style = CS_HREDRAW | CS_VREDRAW | CS_OWNDC;
    wc.lpfnWndProc = WindowProc;
    wc.hInstance = inst;
    wc.hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512));  // the arrow
    wc.hbrBackground = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
    wc.lpszClassName = name;
    wc.hIcon = LoadIconW(inst, MAKEINTRESOURCEW(kIconLarge));
    wc.hIconSm = LoadIconW(inst, MAKEINTRESOURCEW(fullscreen ? kIconLarge : kIconSmall));
    done = RegisterClassExW(&wc) != 0;
    return done;
}

// The first Ctrl+C stops the run through the kill sequence; a second one
// while that is under way ends the process at once (the event log's lines
// are on disk as soon as they are logged).
LONG gConsoleStops = 0;

BOOL WINAPI ConsoleStop(DWORD type) {
    if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT && type != CTRL_CLOSE_EVENT) return FALSE;
    if (InterlockedIncrement(&gConsoleStops) > 1) {
        static const char kMessage[] = "Interrupted again: ending at once.\r\n";
        DWORD written = 0;
        WriteFile(GetStdHandle(STD_ERROR_HANDLE), kMessage, sizeof kMessage - 1, &written, nullptr);
        TerminateProcess(GetCurrentProcess(), 130);
    }
    PostThreadMessageW(gUiThread, kMsgThreadEscape, 0, 0);
    // A closed console ends the process when this handler returns; holding
    // it lets the kill sequence and shut-down run first (the system allows
    // about five seconds). The program's own exit ends this wait.
    if (type == CTRL_CLOSE_EVENT) Sleep(4500);
    return TRUE;
}

class Win32Window : public Window3D {
public:
    Win32Window(HWND w) : hwnd_(w) {
        RECT r;
        GetClientRect(hwnd_, &r);
        clientWidth_ = r.right - r.left;
        clientHeight_ = r.bottom - r.top;
        gWindow = hwnd_;
    }
    ~Win32Window() override {
        gWindow = nullptr;
        DestroyWindow(hwnd_);
    }
    RenderTarget Target() const override {
        RenderTarget t;
        t.nativeWindow = hwnd_;
        t.width = clientWidth_;
        t.height = clientHeight_;
        return t;
    }
    int ClientWidth() const override { return clientWidth_; }
    int ClientHeight() const override { return clientHeight_; }
    void SetTitle(const char* title) override {
        {
            std::lock_guard<std::mutex> lock(gTitleMutex);
            gTitle = title ? title : "";
        }
        // Applied by the UI thread, so a render thread never waits on it.
        PostMessageW(hwnd_, kMsgApplyTitle, 0, 0);
    }
    std::string Title() const override {
        std::lock_guard<std::mutex> lock(gTitleMutex);
        return gTitle;
    }
    void Update() override { UpdateWindow(hwnd_); }
    void Hide() override {
        ShowWindow(hwnd_, SW_HIDE);
        gWindow = nullptr;
    }

private:
    HWND hwnd_;
    int clientWidth_ = 0;
    int clientHeight_ = 0;
};

}  // namespace

std::unique_ptr<Window3D> CreateWindow3D(const Window3DRequest& req, WindowError* error) {
    *error = WindowError::None;
    HINSTANCE inst = GetModuleHandleW(nullptr);
    {
        std::lock_guard<std::mutex> lock(gTitleMutex);
        gTitle = "Ardentium";
    }
    HWND hwnd = nullptr;
    if (req.fullscreen) {
        if (!req.hidden) {
            DEVMODEW mode = {};
            mode.dmSize = sizeof mode;
            mode.dmPelsWidth = static_cast<DWORD>(req.width);
            mode.dmPelsHeight = static_cast<DWORD>(req.height);
            mode.dmBitsPerPel = 32;
            mode.dmFields = DM_PELSWIDTH | DM_PELSHEIGHT | DM_BITSPERPEL;
            if (ChangeDisplaySettingsW(&mode, CDS_FULLSCREEN) != DISP_CHANGE_SUCCESSFUL) {
                gModeChanged = false;
                *error = WindowError::DisplayModeRefused;
                return nullptr;
            }
            gModeChanged = true;
        }
        if (!RegisterClassOnce(L"Velloxa3DFullscreen", true) ||
            !(hwnd = CreateWindowExW(0, L"Velloxa3DFullscreen", L"", WS_POPUP | WS_VISIBLE | WS_MAXIMIZEBOX, 0, 0,
                                     req.width, req.height, nullptr, nullptr, inst, nullptr))) {
            RestoreDisplayMode();
            *error = WindowError::CreationFailed;
            return nullptr;
        }
    } else {
        gModeChanged = false;
        HMENU menu = req.menuBar ? LoadMenuW(inst, MAKEINTRESOURCEW(kMainMenu)) : nullptr;
        if (!RegisterClassOnce(L"Velloxa3DWindow", false) ||
            !(hwnd = CreateWindowExW(0, L"Velloxa3DWindow", L"Ardentium",
                                     WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX | WS_CLIPCHILDREN | WS_CLIPSIBLINGS, 0,
                                     0, req.width, req.height, nullptr, menu, inst, nullptr))) {
            *error = WindowError::CreationFailed;
            return nullptr;
        }
    }
    auto window = std::make_unique<Win32Window>(hwnd);
    if (req.hidden) {
        ShowWindow(hwnd, SW_HIDE);
        return window;
    }
    if (!req.fullscreen) {
        DEVMODEW current = {};
        current.dmSize = sizeof current;
        RECT r;
        GetWindowRect(hwnd, &r);
        if (EnumDisplaySettingsW(nullptr, ENUM_CURRENT_SETTINGS, &current)) {
            int w = r.right - r.left, h = r.bottom - r.top;
            SetWindowPos(hwnd, nullptr, static_cast<int>(current.dmPelsWidth) / 2 - w / 2,
                         static_cast<int>(current.dmPelsHeight) / 2 - h / 2, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
        }
    }
    UpdateWindow(hwnd);
    ShowWindow(hwnd, SW_SHOW);
    SetForegroundWindow(hwnd);
    SetFocus(hwnd);
    return window;
}

bool RestoreDisplayMode() {
    if (!gModeChanged.exchange(false)) return false;
    ChangeDisplaySettingsW(nullptr, 0);
    return true;
}

bool DisplayModeChanged() { return gModeChanged; }

void PostCloseToUi() {
    HWND w = gWindow.load();
    if (w)
        PostMessageW(w, WM_CLOSE, 0, 0);
    else
        PostThreadMessageW(gUiThread, kMsgThreadClose, 0, 0);
}

void PostQuitToUi() { PostQuitMessage(0); }

void WaitServingSentMessages(unsigned ms) {
    MSG msg;
    // Peeking for sent messages only delivers them; posted ones stay queued.
    PeekMessageA(&msg, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
    MsgWaitForMultipleObjects(0, nullptr, FALSE, ms, QS_SENDMESSAGE);
    PeekMessageA(&msg, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
}

void InstallStopRequestHandlers() {
    gUiThread = GetCurrentThreadId();
    SetConsoleCtrlHandler(ConsoleStop, TRUE);
}

bool TakeStopRequest() {
    // (HWND)-1: only the messages posted to the thread itself.
    MSG msg;
    return PeekMessageW(&msg, reinterpret_cast<HWND>(-1), kMsgThreadEscape, kMsgThreadEscape, PM_REMOVE) != 0;
}

void RunUiLoop(UiEvents& events) {
    gEvents = &events;
    gUiThread = GetCurrentThreadId();
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
        if (msg.hwnd == nullptr && msg.message == kMsgThreadClose) {
            events.OnClose();
            continue;
        }
        if (msg.hwnd == nullptr && msg.message == kMsgThreadEscape) {
            events.OnKey(RunKey::Escape, nullptr);
            continue;
        }
        DispatchMessageW(&msg);
    }
    gEvents = nullptr;
}

}  // namespace platform
