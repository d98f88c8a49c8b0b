// An OpenGL context on the 3D window (WGL on Windows, SDL/GLX on Linux) or,
// headless, on no window at all (EGL without a display), drawing into an
// offscreen framebuffer of the run's size.
#pragma once

#include <memory>
#include <string>

#include "platform/gl_fences.h"
#include "platform/render_target.h"

namespace platform {

struct GlContextRequest {
    int major = 2;
    int minor = 0;
    bool core = false;  // core profile (3.2 and later); compatibility otherwise
    int samples = 0;    // multisampling of the drawing target; 0 or 1 for none
};

class GlContext {
public:
    virtual ~GlContext() = default;
    // Entry point lookup for render/gl_api.
    virtual void* ProcAddress(const char* name) = 0;
    // Presents the frame and fences it; returns once no more than
    // kMaxFramesInFlight frames are still being drawn.
    virtual void SwapBuffers() = 0;
    // Frames the driver has finished drawing since the context was made.
    uint64_t FramesFinished() { return pipeline_.Finished(fences_); }
    // Waits until every presented frame has been drawn.
    void FinishFrames() { pipeline_.Drain(fences_); }
    // The framebuffer that stands for the window: 0 on a window, the
    // offscreen target headless. Back-ends bind this instead of 0.
    virtual unsigned DefaultFramebuffer() const = 0;
    // How many samples the drawing target really has.
    virtual int Samples() const = 0;
    // The device the context draws on when a GPU was chosen (/gpu=N): a
    // description such as "EGL device 1 of 2"; empty when this kind of
    // context cannot choose its GPU (a window's context takes the one the
    // window system or driver gives it).
    virtual std::string ChosenDevice() const { return std::string(); }
    // When a GPU was chosen and this context could not take it: why (the
    // driver offers no way to choose, the GPU is not among those it lists).
    // Empty when the context does not say.
    virtual std::string ChoiceFailure() const { return std::string(); }

protected:
    // With the context current, once it exists.
    void LoadFences() {
        fences_.Load([this](const char* name) { return ProcAddress(name); });
    }
    // After each present.
    void FencePresentedFrame() { pipeline_.Presented(fences_); }
    // With the context still current, before it is destroyed.
    void ReleaseFences() { pipeline_.Release(fences_); }

private:
    GlFenceOps fences_;
    FramePipeline pipeline_;
};

// Makes the context current on the calling thread. On failure returns null
// and says why in *error.
std::unique_ptr<GlContext> CreateGlContext(const RenderTarget& target, const GlContextRequest& request,
                                           std::string* error);

// A context for work that shows nothing (compute passes on a worker thread):
// no window appears. Made current on the calling thread; on failure returns
// null and says why in *error.
std::unique_ptr<GlContext> CreateOffscreenGlContext(const GlContextRequest& request, std::string* error);

// The entry point lookup of the current context, usable by gl::LoadFunctions.
void* CurrentGlProcAddress(const char* name);

}  // namespace platform
