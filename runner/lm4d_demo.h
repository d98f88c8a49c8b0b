// The polymorphic base of the fur and benchmark test objects. The render
// thread creates one per run and calls, in this order only: Init, Frame any
// number of times, Terminate, then deletes it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/render_target.h"
#include "platform/window3d.h"
#include "runner/frame_verify.h"
#include "runner/run_results.h"

// <windows.h> renames DrawText to DrawTextA; the operation keeps its name
// whichever header came first.
#ifdef DrawText
#undef DrawText
#endif

class cLm4DDemo {
public:
    cLm4DDemo() = default;
    cLm4DDemo(const cLm4DDemo&) = delete;
    cLm4DDemo& operator=(const cLm4DDemo&) = delete;

    // The twelve operations, in slot order.
    virtual ~cLm4DDemo() = default;
    virtual bool Init(const RenderTarget& target, int width, int height) = 0;
    virtual void Terminate() = 0;
    virtual void ClearScreen() = 0;
    virtual void Frame(float frameSeconds) = 0;
    // Turns the CPU dot textures into API textures; false when no set exists.
    virtual bool UploadDotTextures() { return true; }
    virtual void ReleaseDotTextures() {}
    virtual void Present() = 0;
    virtual void BeginOverlay() = 0;
    virtual void EndOverlay() = 0;
    virtual void DrawText(int x, int y, const Color4& color, const char* text) = 0;
    // With a stipple pattern other than 0xFFFF the outline is drawn stippled.
    virtual void DrawQuad(int x, int y, int w, int h, const Color4& color, unsigned short stipple = 0xFFFF) = 0;

    // After the twelve: reads the last drawn frame back as RGBA rows, top row
    // first. False when the back-end cannot.
    virtual bool ReadBackFrame(std::string* rgba, int* width, int* height) { return false; }

    // Draws the scene from a fixed state (animation time, camera; no HUD)
    // into a target of its own, reads it back and leaves the run's drawing
    // as it was. The same device must give the same picture every time: the
    // render thread compares each with the reference taken at the start.
    // False when the object cannot.
    virtual bool DrawCheckFrame(CheckFrame* out) { return false; }
    // Runs the compute check (ComputeCheckValue for each index on the GPU)
    // and returns how many results differ from the CPU's; -1 when the
    // object or its context has no compute shaders.
    virtual int RunComputeCheck() { return -1; }

    // Frames the device has finished drawing since Init (its fences have
    // signalled); kFramesNotTracked when the object cannot tell, and every
    // Frame then counts as drawn when it returns.
    static constexpr uint64_t kFramesNotTracked = ~0ull;
    virtual uint64_t FramesFinished() { return kFramesNotTracked; }
    // Waits until every frame handed to the device has been drawn.
    virtual void FinishFrames() {}

    // True once the device was lost (the back-end has logged why): the run
    // ends instead of drawing into a device that is gone.
    virtual bool DeviceLost() const { return false; }

    // The benchmark object's end and results; the fur objects never finish
    // by themselves.
    virtual bool AmarkFinished() const { return false; }
    virtual void LogStageResults() {}
    virtual double FinalScore() const { return 0.0; }
    // The finished benchmark's sub-scores and rates, by name, for the
    // results file and the summary line.
    virtual std::vector<std::pair<std::string, double>> ScoreBreakdown() const { return {}; }
    // A staged benchmark's stages, for the results file.
    virtual std::vector<StageResult> StageResults() const { return {}; }
    // The P key hands the benchmark object the keyboard state (256 bytes).
    virtual void CopyKeyboardState(const unsigned char* state) {}
    // A key the run's own controls do not use, offered to an object with a
    // parameter panel of its own (UI thread). True when it was used.
    virtual bool PanelKey(RunKey key) { return false; }

    int api_id = 0;
    bool amark_mode = false;
    // Written by the UI thread's keys, read by the render thread each frame.
    std::atomic<bool> render_furry_object{true};
    std::atomic<bool> show_help{false};
    float frame_seconds = 0.0f;
    std::string display_name;
    // What the run draws with, as the device names it (the OpenGL renderer
    // and version, the Direct3D adapter and driver); set by Init.
    std::string renderer_text;
    std::string driver_text;
};
