// The OpenGL 4 benchmark's bookkeeping, apart from any drawing: the presets,
// the five stages and their records, the stage sequencing and the scores.
// Everything here is plain arithmetic so it can be checked without a GPU.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace amark {

constexpr int kStageCount = 5;
enum StageIndex { kFurStage = 0, kTessellationStage = 1, kPhysxStage = 2, kInstancingStage = 3, kCombinedStage = 4 };

extern const char* const kStageNames[kStageCount];
extern const float kStageDurations[kStageCount];

// One preset's parameter set. Each column is read by the stage that draws
// it; valueW is set by every preset and read by none.
struct Preset {
    int number = 0;
    const char* logName = "";
    float groundTessellation = 0.0f;
    float sphereTessellationA = 0.0f, sphereTessellationB = 0.0f;
    float valueW = 0.0f;
    int instanceCount = 0;
    int flagSupportValue = 0;
    float particleValue = 0.0f;
    int particleCount = 0;
    int furShells = 0;
    float furLength = 0.0f;
    // Presets 4 and 5 score the simulation stages by frames alone.
    bool competition = false;
};

// The preset for a number and the view height (4 and 5 depend on it).
Preset SelectPreset(int number, int viewHeight);

struct StageRecord {
    bool active = true;
    float duration = 0.0f;
    float startTime = 0.0f;
    int32_t frames = 0;
    int32_t clothSimulations = 0;
    int32_t fluidSimulations = 0;
    int32_t averageFps = 0;
    int32_t kind = 0;
    bool simulated = false;  // a stage with simulation (its log line names the steps)
};

// The five records as built: all active, planned durations (or the one
// length a test asked for when stageSeconds > 0).
void InitStages(StageRecord stages[kStageCount], float stageSeconds = -1.0f);

// frames / truncate(duration), an integer division (0 for a stage shorter
// than a second).
int32_t StageAverageFps(const StageRecord& s);

// Walks the stages as the benchmark's time passes; Update is called every
// frame once the warm-up is over.
class StageSequencer {
public:
    explicit StageSequencer(StageRecord* stages) : stages_(stages) {}
    // The first active stage starts at `elapsed`; false when none is active
    // (the benchmark then finishes at once).
    bool Start(float elapsed);
    // True when the current stage changed (its average FPS was stored).
    bool Update(float elapsed);
    int Current() const { return current_; }
    bool Finished() const { return finished_; }
    // Seconds left in the current stage.
    float TimeLeft(float elapsed) const;

private:
    StageRecord* stages_;
    int current_ = 0;
    bool finished_ = false;
};

struct Scores {
    float graphxScore = 0.0f, graphxAvgFps = 0.0f;
    float physxScore = 0.0f, physxAvgFps = 0.0f, physxAvgSps = 0.0f;
    float combinedScore = 0.0f, combinedAvgFps = 0.0f, combinedAvgSps = 0.0f;
    float ascore = 0.0f;
};

// The three sub-scores and the AScore from the stage records; each figure
// is also handed to `log` as its finished log line.
Scores ComputeScores(const StageRecord stages[kStageCount], bool competitionPreset,
                     const std::function<void(const std::string&)>& log = nullptr);

// The per-stage lines and the total simulations line.
void LogStageLines(const StageRecord stages[kStageCount], int32_t totalCloth, int32_t totalFluid,
                   const std::function<void(const std::string&)>& log);

// The scores of the last finished benchmark, kept for the rest of the
// process (score dialog, results file). Written once by the render thread
// before it marks the run finished.
struct ScoresRecord {
    bool valid = false;
    Scores scores;
};
extern ScoresRecord gLastScores;

}  // namespace amark
