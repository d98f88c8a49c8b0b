// The text block every back-end draws in the top-left corner of each frame,
// computed once here (lines, positions, colours) and drawn by each back-end
// with its own text primitive.
#pragma once

#include <string>
#include <vector>

#include "runner/lm4d_demo.h"

namespace textcolors {
constexpr Color4 kWarningRed{1.0f, 0.0f, 0.0f, 1.0f};
constexpr Color4 kWarmupOrange{1.0f, 0.4f, 0.1f, 1.0f};
constexpr Color4 kHeadingYellow{1.0f, 1.0f, 0.0f, 1.0f};
constexpr Color4 kWhite{1.0f, 1.0f, 1.0f, 1.0f};
constexpr Color4 kHelpYellow{1.0f, 1.0f, 0.1f, 1.0f};
}  // namespace textcolors

struct TextLine {
    int x;
    int y;  // from the top of the view
    Color4 color;
    std::string text;
};

struct TextBlockInput {
    bool benchmark = true;
    bool warmupDone = false;
    bool xtremeBurnIn = false;
    std::string testName;
    int width = 0, height = 0;  // requested size
    int clientWidth = 0;
    std::string aaMode;
    std::string adapterText;
    int currentFps = 0, minFps = 10000, maxFps = 0, avgFps = 0;
    unsigned frames = 0;
    unsigned elapsedMs = 0;
    bool timeBased = true;
    unsigned maxTime = 0, maxFrames = 0;
    bool showHelp = false;
    int toneDownDelayMs = 0;
};

// The lines of one frame's block, in drawing order.
std::vector<TextLine> BuildTextBlock(const TextBlockInput& in);

// The input for the current run, read from the settings, the run statistics
// and the test object.
TextBlockInput CurrentTextBlockInput(const cLm4DDemo& demo, int clientWidth, const std::string& adapterText);

// Top of the on-screen indicators while the help is shown (they move below it).
int IndicatorTopWithHelp(bool benchmark, bool xtremeBurnIn);
