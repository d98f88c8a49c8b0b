// The head-up display every fur back-end draws over the scene: load meter
// and thermometer bars, their labels, per-GPU panels, the places of the
// temperature graphs and the text block. Computed here once, portably, in
// top-down pixel coordinates; each back-end only draws what this lists.
#pragma once

#include <string>
#include <vector>

#include "core/settings.h"
#include "runner/text_block.h"

// What the HUD reads of one GPU in the sensor snapshot.
struct GpuReading {
    // Whether an interface supplies the load and the temperature; a reading
    // none supplies is shown as "n.a." with an empty bar, never as 0.
    bool hasLoad = false, hasTemperature = false;
    float load = 0.0f;         // percent
    float temperature = 0.0f;  // degrees Celsius
    std::string name;
    bool powerAvailable = false;
    float powerPercent = 0.0f;  // of the board's power limit
    int coreClock = 0, coreClockOverride = 0;  // MHz; the override wins when positive
    int throttlingMhz = 0;
    int memoryClock = 0, memoryClockOverride = 0;
    float vddc = 0.0f, vddcOverride = 0.0f;
    bool hasHistory = false;  // a temperature history whose first sample is above 0
};

struct HudRect {
    int x, y, w, h;  // top-down
    Color4 color;
};

struct HudText {
    int x, y;  // top-down, the line's top
    Color4 color;
    std::string text;
};

struct HudInput {
    int viewWidth = 0, viewHeight = 0;
    bool benchmark = true;
    bool xtremeBurnIn = false;
    bool showHelp = false;
    bool hasSnapshot = false;
    std::vector<GpuReading> gpus;
    // Settings read every frame.
    bool allIndicators = true;      // display_visual_indicators (I)
    bool generalIndicators = true;  // render_general_indicators
    bool gpuMonitor = false;        // render_gpu_monitor (G)
    bool tempGraphs = false;        // render_temp_graphs (T)
    GraphDescriptor loadMeter{};    // x, y offset, height fraction, label step; shown (F5)
    GraphDescriptor thermometer{};  // x, y offset, height fraction, bar step; shown (F6)
    TextBlockInput textBlock;
    // The GPU the run was asked to draw on (0-based; -1 when none was chosen).
    int gpuUnderTest = -1;
    // The picture checks of error detection, when the run has them.
    bool checksActive = false;
    unsigned checks = 0, checkErrors = 0;
};

struct HudFrame {
    std::vector<HudRect> bars;      // load bars, then temperature bars
    std::vector<HudRect> panels;    // the per-GPU panel images, 150 x 100
    std::vector<int> graphs;        // GPU indices whose temperature graph is drawn
    int graphOffsetPerGpu = 200;
    std::vector<HudText> labels;    // meter titles, values, GPU numbers (normal font)
    std::vector<HudText> gpuText;   // panel lines (small font)
    std::vector<TextLine> textBlock;
    // The picture checks' line at the bottom left (empty text when none).
    HudText checkLine{0, 0, Color4{1, 1, 1, 1}, ""};
};

HudFrame BuildHud(const HudInput& in);

// The input for the running fur test, from the settings, the run statistics
// and the given readings.
HudInput CurrentHudInput(const cLm4DDemo& demo, int viewWidth, int viewHeight, const std::string& adapterText,
                         bool hasSnapshot, const std::vector<GpuReading>& gpus);
