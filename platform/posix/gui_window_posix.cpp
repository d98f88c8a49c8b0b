// The GUI window on Linux: an SDL window with an OpenGL 3 context, driven by
// the GUI library's SDL2 and OpenGL 3 back-ends.
#include "platform/gui_window.h"

#include <GL/gl.h>
#include <SDL2/SDL.h>
#include <SDL2/SDL_syswm.h>
#include <imgui.h>
#include <backends/imgui_impl_opengl3.h>
#include <backends/imgui_impl_sdl.h>

#include "platform/gui_frame_capture.h"

#include <algorithm>
#include <vector>

#include "platform/platform.h"

namespace platform {

namespace {

class SdlGuiWindow : public GuiWindow {
public:
    SdlGuiWindow(SDL_Window* window, SDL_GLContext context) : window_(window), context_(context) {}
    ~SdlGuiWindow() override {
        SDL_GL_MakeCurrent(window_, context_);
        ImGui_ImplOpenGL3_Shutdown();
        ImGui_ImplSDL2_Shutdown();
        SDL_GL_MakeCurrent(window_, nullptr);
        SDL_GL_DeleteContext(context_);
        SDL_DestroyWindow(window_);
    }

    bool BeginFrame() override {
        bool open = true;
        SDL_Event e;
        // This GUI library reads a key as held or not once per frame, so a
        // key pressed and released between two frames (a quick tap while a
        // frame was slow) would never be seen: its release waits for the
        // next frame.
        std::vector<SDL_Event> releases;
        releases.swap(deferredReleases_);
        std::vector<SDL_Keycode> pressed;
        for (SDL_Event& r : releases) ImGui_ImplSDL2_ProcessEvent(&r);
        // Idle: wait a little for input rather than spin; the sensors move
        // once a second, the GUI needs no more than a steady trickle of frames.
        if (SDL_WaitEventTimeout(&e, 30)) {
            do {
                if (e.type == SDL_KEYDOWN) pressed.push_back(e.key.keysym.sym);
                if (e.type == SDL_KEYUP &&
                    std::find(pressed.begin(), pressed.end(), e.key.keysym.sym) != pressed.end()) {
                    deferredReleases_.push_back(e);
                    continue;
                }
                ImGui_ImplSDL2_ProcessEvent(&e);
                TrackPointer(e);
                if (e.type == SDL_QUIT) open = false;
                if (e.type == SDL_WINDOWEVENT && e.window.event == SDL_WINDOWEVENT_CLOSE &&
                    e.window.windowID == SDL_GetWindowID(window_))
                    open = false;
            } while (SDL_PollEvent(&e));
        }
        if (TakeStopRequest()) open = false;
        SDL_GL_MakeCurrent(window_, context_);
        ImGui_ImplOpenGL3_NewFrame();
        ImGui_ImplSDL2_NewFrame();
        // The back-end reads the pointer only while the window has the
        // keyboard focus, which a display without a window manager never
        // gives it: the pointer's own events say where it is.
        if (pointerInside_) ImGui::GetIO().MousePos = pointer_;
        ImGui::NewFrame();
        return open;
    }

    void EndFrame() override {
        ImGui::Render();
        int w = 0, h = 0;
        SDL_GL_GetDrawableSize(window_, &w, &h);
        glViewport(0, 0, w, h);
        glClearColor(0.08f, 0.09f, 0.11f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        ImGui_ImplOpenGL3_RenderDrawData(ImGui::GetDrawData());
        capture_.ReadIfRequested(w, h);
        SDL_GL_SwapWindow(window_);
    }

    void SetClientSize(int width, int height) override {
        SDL_Rect screen;
        if (SDL_GetDisplayUsableBounds(std::max(0, SDL_GetWindowDisplayIndex(window_)), &screen) == 0) {
            width = std::min(width, screen.w);
            height = std::min(height, screen.h);
        }
        SDL_SetWindowSize(window_, width, height);
        SDL_SetWindowPosition(window_, SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED);
    }

    void Show() override {
        SDL_ShowWindow(window_);
        SDL_RaiseWindow(window_);
    }
    void Hide() override { SDL_HideWindow(window_); }

    void CaptureNextFrame() override { capture_.Request(); }

    bool TakeCapturedFrame(std::string* rgba, int* width, int* height) override {
        return capture_.Take(rgba, width, height);
    }

    void ClientOrigin(int* x, int* y) const override { SDL_GetWindowPosition(window_, x, y); }

    float DpiScale() const override {
        float ddpi = 0, hdpi = 0, vdpi = 0;
        int display = SDL_GetWindowDisplayIndex(window_);
        if (SDL_GetDisplayDPI(display < 0 ? 0 : display, &ddpi, &hdpi, &vdpi) != 0 || vdpi <= 0) vdpi = X11ScreenDpi();
        if (vdpi <= 0) return 1.0f;
        float scale = vdpi / 96.0f;
        // Virtual displays report whatever their made-up size gives; text
        // never shrinks below its design size and never grows past 3x.
        if (scale < 1.0f) scale = 1.0f;
        if (scale > 3.0f) scale = 3.0f;
        return scale;
    }

private:
    // SDL knows the density only from the outputs' sizes, which some X
    // servers leave out; the screen's own size in millimetres then says it.
    float X11ScreenDpi() const {
        SDL_SysWMinfo info;
        SDL_VERSION(&info.version);
        if (!SDL_GetWindowWMInfo(window_, &info) || info.subsystem != SDL_SYSWM_X11 || !info.info.x11.display)
            return 0.0f;
        Display* d = info.info.x11.display;
        const int screen = DefaultScreen(d);
        const int mm = DisplayHeightMM(d, screen);
        return mm > 0 ? static_cast<float>(DisplayHeight(d, screen)) * 25.4f / static_cast<float>(mm) : 0.0f;
    }

    void TrackPointer(const SDL_Event& e) {
        const Uint32 id = SDL_GetWindowID(window_);
        if (e.type == SDL_MOUSEMOTION && e.motion.windowID == id) {
            pointer_ = ImVec2(static_cast<float>(e.motion.x), static_cast<float>(e.motion.y));
            pointerInside_ = true;
        } else if ((e.type == SDL_MOUSEBUTTONDOWN || e.type == SDL_MOUSEBUTTONUP) && e.button.windowID == id) {
            pointer_ = ImVec2(static_cast<float>(e.button.x), static_cast<float>(e.button.y));
            pointerInside_ = true;
        } else if (e.type == SDL_WINDOWEVENT && e.window.windowID == id && e.window.event == SDL_WINDOWEVENT_LEAVE) {
            pointerInside_ = false;
        }
    }

    SDL_Window* window_;
    ImVec2 pointer_;
    bool pointerInside_ = false;
    std::vector<SDL_Event> deferredReleases_;
    SDL_GLContext context_;
    GuiFrameCapture capture_;
};

}  // namespace

std::unique_ptr<GuiWindow> CreateGuiWindow(const char* title, int width, int height, std::string* error) {
    if (!HasDisplay()) {
        *error = "there is no display (neither DISPLAY nor WAYLAND_DISPLAY is set)";
        return nullptr;
    }
    if (!SDL_WasInit(SDL_INIT_VIDEO) && SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) {
        *error = std::string("the display cannot be opened: ") + SDL_GetError();
        return nullptr;
    }
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 3);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 0);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, 0);
    SDL_GL_SetAttribute(SDL_GL_DOUBLEBUFFER, 1);
    SDL_GL_SetAttribute(SDL_GL_MULTISAMPLEBUFFERS, 0);
    SDL_GL_SetAttribute(SDL_GL_MULTISAMPLESAMPLES, 0);
    SDL_Window* window = SDL_CreateWindow(title, SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, width, height,
                                          SDL_WINDOW_OPENGL | SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI);
    if (!window) {
        *error = std::string("the window cannot be created: ") + SDL_GetError();
        return nullptr;
    }
    SDL_GLContext context = SDL_GL_CreateContext(window);
    if (!context) {
        *error = std::string("no OpenGL 3 context: ") + SDL_GetError();
        SDL_DestroyWindow(window);
        return nullptr;
    }
    SDL_GL_MakeCurrent(window, context);
    SDL_GL_SetSwapInterval(1);
    const bool platformUp = ImGui_ImplSDL2_InitForOpenGL(window, context);
    if (!platformUp || !ImGui_ImplOpenGL3_Init("#version 130")) {
        *error = "the GUI cannot draw with this OpenGL context";
        if (platformUp) ImGui_ImplSDL2_Shutdown();
        SDL_GL_MakeCurrent(window, nullptr);
        SDL_GL_DeleteContext(context);
        SDL_DestroyWindow(window);
        return nullptr;
    }
    return std::make_unique<SdlGuiWindow>(window, context);
}

}  // namespace platform
