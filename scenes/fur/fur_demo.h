// The API-independent half of a fur test object: parameters, dot textures,
// camera, images and meshes, set up before a back-end makes its device, and
// the per-frame values every back-end draws with.
#pragma once

#include <string>

#include <memory>

#include "monitor/temperature.h"
#include "render/image.h"
#include "scenes/fur/indicators.h"
#include "scenes/fur/fur_scene.h"
#include "runner/lm4d_demo.h"

class FurDemoBase : public cLm4DDemo {
public:
    // The scene: parameters, dot set (once per process), camera, default
    // images and logos (each failure logged and skipped), meshes. False only
    // when the object has no mesh.
    bool InitScene(int width, int height);

    // Per frame: sway time and the model matrix.
    void Advance(float frameSeconds);
    m3d::Mat4 ModelMatrix() const { return FurModelMatrix(scene_.furryObject, elapsed_); }

    // Takes the pending custom images (from the settings), each at most
    // once: size-checked, with the messages logged. A picture that passes is
    // returned for upload.
    bool TakeCustomImage(CustomImageKind kind, Image* out);

    // The data folder, with its trailing separator.
    static std::string DataFolder();

    // Once per frame: samples the GPU temperatures when a monitor period has
    // passed, writes them to the temperature log when it is on, and keeps
    // the run's start, end and highest temperature for the scores file.
    void SampleTemperatures();
    // Closes the temperature log (its closing line).
    void CloseTemperatureLog();
    const monitor::TemperatureHistory& TemperatureHistory() const { return history_; }

    // This frame's HUD for a view of the given size, from the monitor's
    // latest readings.
    HudFrame CurrentHud(int width, int height) const;

    // One GPU's temperature graph in view pixels (y down): its frame as the
    // four corners of a closed loop, the history as a strip and the line of
    // the lowest temperature (the last two only when drawLine), and its label.
    struct GraphDraw {
        std::vector<float> frame, line, minimumMark;  // x, y pairs
        float frameColor[4];
        float lineColor[4];
        bool drawLine = false;
        int labelX = 0, labelBaselineY = 0;  // top-down; the text's baseline, not its top
        Color4 labelColor;
        std::string label;
    };
    std::vector<GraphDraw> GraphDraws(const HudFrame& hud, int width, int height);

protected:
    FurScene scene_;
    float elapsed_ = 0.0f;
    Image background_;
    Image furColor_;
    Image makerLogo_;
    Image productLogo_;
    Image apiLogo_;
    Image gpuLogo_;
    monitor::TemperatureHistory history_;
    std::unique_ptr<monitor::TemperatureLog> temperatureLog_;

private:
    // One temperature graph per GPU, made on its first draw.
    static constexpr int kGraphPoints = 300;
    std::vector<monitor::TemperatureGraph> graphs_;
};
