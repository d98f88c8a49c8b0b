// The GUI window on Windows: a Win32 window with a WGL context, driven by
// the GUI library's Win32 and OpenGL 3 back-ends.
#include "platform/gui_window.h"

#include <windows.h>
#include <GL/gl.h>
#include <imgui.h>
#include <backends/imgui_impl_opengl3.h>
#include <backends/imgui_impl_win32.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/gui_frame_capture.h"
#include "platform/win32/ui_messages.h"
#include "platform/win32/wgl_setup.h"

// Declared by the back-end's header only for code that asks for it.
extern IMGUI_IMPL_API LRESULT ImGui_ImplWin32_WndProcHandler(HWND hWnd, UINT msg, WPARAM wParam, LPARAM lParam);

namespace platform {

namespace {

constexpr wchar_t kClassName[] = L"ArdentiumLauncher";
bool gCloseAsked = false;

LRESULT CALLBACK GuiProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
    if (ImGui_ImplWin32_WndProcHandler(hwnd, msg, wp, lp)) return 1;
    switch (msg) {
        case WM_CLOSE: gCloseAsked = true; return 0;
        case WM_SYSCOMMAND:
            if ((wp & 0xfff0) == SC_KEYMENU) return 0;  // Alt alone must not freeze the GUI in a menu loop
            break;
        default: break;
    }
    return DefWindowProcW(hwnd, msg, wp, lp);
}

class Win32GuiWindow : public GuiWindow {
public:
    Win32GuiWindow(HWND hwnd, HDC dc, HGLRC rc) : hwnd_(hwnd), dc_(dc), rc_(rc) {}
    ~Win32GuiWindow() override {
        wglMakeCurrent(dc_, rc_);
        ImGui_ImplOpenGL3_Shutdown();
        ImGui_ImplWin32_Shutdown();
        wglMakeCurrent(nullptr, nullptr);
        wglDeleteContext(rc_);
        ReleaseDC(hwnd_, dc_);
        DestroyWindow(hwnd_);
    }

    bool BeginFrame() override {
        bool open = true;
        if (TakeStopRequest()) open = false;
        // Idle: wait a little for input rather than spin.
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 30, QS_ALLINPUT);
        MSG msg;
        // This GUI library reads a key as held or not once per frame, so a
        // key pressed and released between two frames (a quick tap while a
        // frame was slow) would never be seen: its release stays queued for
        // the next frame.
        std::vector<WPARAM> pressed;
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE)) {
            if ((msg.message == WM_KEYUP || msg.message == WM_SYSKEYUP) &&
                std::find(pressed.begin(), pressed.end(), msg.wParam) != pressed.end())
                break;
            if (!PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) break;
            if (msg.message == WM_KEYDOWN || msg.message == WM_SYSKEYDOWN) pressed.push_back(msg.wParam);
            if (msg.message == WM_QUIT || (msg.hwnd == nullptr && msg.message == kMsgThreadEscape)) open = false;
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
        if (TakeStopRequest()) open = false;
        if (gCloseAsked) {
            gCloseAsked = false;
            open = false;
        }
        wglMakeCurrent(dc_, rc_);
        ImGui_ImplOpenGL3_NewFrame();
        ImGui_ImplWin32_NewFrame();
        ImGui::NewFrame();
        return open;
    }

    void EndFrame() override {
        ImGui::Render();
        RECT r;
        GetClientRect(hwnd_, &r);
        const int w = r.right - r.left, h = r.bottom - r.top;
        glViewport(0, 0, w, h);
        glClearColor(0.08f, 0.09f, 0.11f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        ImGui_ImplOpenGL3_RenderDrawData(ImGui::GetDrawData());
        // Read before the swap: the back buffer is undefined after it.
        capture_.ReadIfRequested(w, h);
        SwapBuffers(dc_);
    }

    void SetClientSize(int width, int height) override {
        const DWORD style = static_cast<DWORD>(GetWindowLongW(hwnd_, GWL_STYLE));
        RECT r = {0, 0, width, height};
        AdjustWindowRect(&r, style, FALSE);
        const int sw = GetSystemMetrics(SM_CXSCREEN), sh = GetSystemMetrics(SM_CYSCREEN);
        const int w = std::min<int>(r.right - r.left, sw), h = std::min<int>(r.bottom - r.top, sh);
        SetWindowPos(hwnd_, nullptr, std::max(0, (sw - w) / 2), std::max(0, (sh - h) / 2), w, h,
                     SWP_NOZORDER | SWP_NOACTIVATE);
    }

    void Show() override {
        ShowWindow(hwnd_, SW_SHOW);
        SetForegroundWindow(hwnd_);
    }
    void Hide() override {
        ShowWindow(hwnd_, SW_HIDE);
        // A run starts next: the UI thread holds no GL context of its own
        // while the run makes its device (the next frame makes it current).
        wglMakeCurrent(nullptr, nullptr);
    }

    void CaptureNextFrame() override { capture_.Request(); }

    bool TakeCapturedFrame(std::string* rgba, int* width, int* height) override {
        return capture_.Take(rgba, width, height);
    }

    void ClientOrigin(int* x, int* y) const override {
        POINT p = {0, 0};
        ClientToScreen(hwnd_, &p);
        *x = p.x;
        *y = p.y;
    }

    float DpiScale() const override {
        const int dpi = GetDeviceCaps(dc_, LOGPIXELSY);
        float scale = dpi > 0 ? static_cast<float>(dpi) / 96.0f : 1.0f;
        return std::max(1.0f, std::min(scale, 3.0f));
    }

private:
    HWND hwnd_;
    HDC dc_;
    HGLRC rc_;
    GuiFrameCapture capture_;
};

}  // namespace

std::unique_ptr<GuiWindow> CreateGuiWindow(const char* title, int width, int height, std::string* error) {
    HINSTANCE inst = GetModuleHandleW(nullptr);
    static bool registered = false;
    if (!registered) {
        WNDCLASSEXW wc = {};
        wc.cbSize = sizeof wc;
        wc.style = CS_OWNDC;
        wc.lpfnWndProc = GuiProc;
        wc.hInstance = inst;
        wc.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
        wc.lpszClassName = kClassName;
        registered = RegisterClassExW(&wc) != 0;
        if (!registered) {
            *error = "the launcher's window class cannot be registered";
            return nullptr;
        }
    }
    RECT r = {0, 0, width, height};
    const DWORD style = WS_OVERLAPPEDWINDOW;
    AdjustWindowRect(&r, style, FALSE);
    wchar_t wideTitle[256];
    MultiByteToWideChar(CP_UTF8, 0, title, -1, wideTitle, 256);
    const int w = r.right - r.left, h = r.bottom - r.top;
    const int x = std::max(0, (GetSystemMetrics(SM_CXSCREEN) - w) / 2);
    const int y = std::max(0, (GetSystemMetrics(SM_CYSCREEN) - h) / 2);
    HWND hwnd = CreateWindowExW(0, kClassName, wideTitle, style, x, y, w, h, nullptr, nullptr, inst, nullptr);
    if (!hwnd) {
        *error = "the launcher's window cannot be created";
        return nullptr;
    }
    HDC dc = GetDC(hwnd);
    const char* step = nullptr;
    HGLRC rc = wgl::MakeCurrentLegacyContext(dc, wgl::WindowFormat(8, 0, 0), &step);
    if (!rc) {
        *error = std::string("no OpenGL context for the launcher's window (") + step + ")";
        ReleaseDC(hwnd, dc);
        DestroyWindow(hwnd);
        return nullptr;
    }
    const bool platformUp = ImGui_ImplWin32_Init(hwnd);
    if (!platformUp || !ImGui_ImplOpenGL3_Init("#version 130")) {
        *error = "the GUI cannot draw with this OpenGL context";
        if (platformUp) ImGui_ImplWin32_Shutdown();
        wglMakeCurrent(nullptr, nullptr);
        wglDeleteContext(rc);
        ReleaseDC(hwnd, dc);
        DestroyWindow(hwnd);
        return nullptr;
    }
    ShowWindow(hwnd, SW_SHOW);
    UpdateWindow(hwnd);
    return std::make_unique<Win32GuiWindow>(hwnd, dc, rc);
}

}  // namespace platform
