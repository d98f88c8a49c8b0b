// What a test object draws on.
#pragma once

// A window of the platform's window system, or (headless) nothing but an
// offscreen target of the run's size.
struct RenderTarget {
    void* nativeWindow = nullptr;  // HWND on Windows, SDL_Window* on Linux, null headless
    bool headless = false;
    int width = 0;
    int height = 0;
};

// RGBA colour, components 0..1.
struct Color4 {
    float r, g, b, a;
};
