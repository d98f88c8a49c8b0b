#include "scenes/amark/amark_bench.h"

#include <cstdio>

namespace amark {

const char* const kStageNames[kStageCount] = {
    "GRAPHICS TEST 1 (fur rendering)", "GRAPHICS TEST 2 (tessellation)", "PHYSX TEST (particles + clothes)",
    "GRAPHICS TEST 3 (geometry instancing)", "COMBINED TEST"};
const float kStageDurations[kStageCount] = {20.0f, 20.0f, 20.0f, 20.0f, 50.0f};

ScoresRecord gLastScores;

Preset SelectPreset(int number, int viewHeight) {
    Preset p;
    p.number = number;
    switch (number) {
        case 1:
            p = Preset{1, "AMark Entry preset", 6.0f, 6.0f, 8.0f, 2.0f, 10000, 30, 4.0f, 2000, 40, 2.0f, false};
            break;
        case 2:
            p = Preset{2, "AMark Normal preset", 8.0f, 8.0f, 16.0f, 2.0f, 40000, 50, 5.0f, 3000, 70, 2.0f, false};
            break;
        case 3:
            p = Preset{3, "AMark Extreme preset", 16.0f, 16.0f, 32.0f, 4.0f, 80000, 80, 8.0f, 4000, 100, 2.0f, false};
            break;
        case 4:
        case 5:
            if (viewHeight == 720)
                p = Preset{number, "VXA Ardentium Competition Dec 2011 preset", 8.0f, 8.0f, 8.0f, 2.0f, 40000, 50, 5.0f,
                           3000, 70, 2.0f, true};
            else
                p = Preset{number, "VXA Ardentium Competition Dec 2011 preset", 16.0f, 16.0f, 16.0f, 4.0f, 80000, 80,
                           6.0f, 4000, 100, 2.0f, true};
            break;
        default:
            p = Preset{number, "AMark demo mode", 8.0f, 8.0f, 16.0f, 2.0f, 40000, 80, 7.0f, 4000, 70, 2.0f, false};
            break;
    }
    return p;
}

void InitStages(StageRecord stages[kStageCount], float stageSeconds) {
    for (int i = 0; i < kStageCount; ++i) {
        StageRecord s;
        s.active = true;
        s.duration = stageSeconds > 0.0f ? stageSeconds : kStageDurations[i];
        s.kind = i;
        s.simulated = i == kPhysxStage || i == kCombinedStage;
        stages[i] = s;
    }
}

int32_t StageAverageFps(const StageRecord& s) {
    const int32_t whole = static_cast<int32_t>(s.duration);
    return whole > 0 ? s.frames / whole : 0;
}

bool StageSequencer::Start(float elapsed) {
    current_ = 0;
    finished_ = false;
    while (current_ < kStageCount && !stages_[current_].active) ++current_;
    if (current_ >= kStageCount) {
        current_ = 0;
        finished_ = true;
        return false;
    }
    stages_[current_].startTime = elapsed;
    return true;
}

bool StageSequencer::Update(float elapsed) {
    if (finished_) return false;
    StageRecord& s = stages_[current_];
    if (elapsed - s.startTime < s.duration) return false;
    s.averageFps = StageAverageFps(s);
    ++current_;
    while (current_ < kStageCount && !stages_[current_].active) ++current_;
    if (current_ >= kStageCount) {
        current_ = 0;
        finished_ = true;
    } else {
        stages_[current_].startTime = elapsed;
    }
    return true;
}

float StageSequencer::TimeLeft(float elapsed) const {
    const StageRecord& s = stages_[current_];
    const float left = s.duration - (elapsed - s.startTime);
    return left > 0.0f ? left : 0.0f;
}

namespace {

std::string Format(const char* format, double v) {
    char line[128];
    std::snprintf(line, sizeof line, format, v);
    return line;
}

}  // namespace

Scores ComputeScores(const StageRecord stages[kStageCount], bool competitionPreset,
                     const std::function<void(const std::string&)>& log) {
    auto emit = [&](const char* format, float v) {
        if (log) log(Format(format, static_cast<double>(v)));
    };
    Scores r;

    // GraphX: three times the harmonic mean of the graphics stages' frame counts.
    int n = 0;
    double inverseSum = 0.0, frames = 0.0, duration = 0.0;
    for (int i : {kFurStage, kTessellationStage, kInstancingStage}) {
        if (stages[i].frames <= 0) continue;
        ++n;
        inverseSum += 1.0 / stages[i].frames;
        frames += stages[i].frames;
        duration += stages[i].duration;
    }
    if (n > 0) r.graphxScore = static_cast<float>(n / inverseSum * 3.0);
    if (duration > 0.0) r.graphxAvgFps = static_cast<float>(frames / duration);
    emit("GraphX score: %.1f points", r.graphxScore);
    emit("GraphX avg FPS: %.1f", r.graphxAvgFps);

    // The two simulation stages weigh steps against frames differently, and
    // the competition presets count frames only.
    auto simulated = [&](const StageRecord& s, double stepWeight, double frameWeight, float* score, float* fps,
                         float* sps) {
        const double p = s.frames, steps = static_cast<double>(s.clothSimulations) + s.fluidSimulations;
        *score = static_cast<float>(competitionPreset ? p : steps * stepWeight + p * frameWeight);
        if (s.duration > 0.0f) {
            *fps = static_cast<float>(p / s.duration);
            *sps = competitionPreset ? *fps : static_cast<float>(steps / s.duration);
        }
    };
    simulated(stages[kPhysxStage], 0.8, 0.2, &r.physxScore, &r.physxAvgFps, &r.physxAvgSps);
    emit("PhysX score: %.1f points", r.physxScore);
    emit("PhysX avg FPS: %.1f", r.physxAvgFps);
    emit("PhysX avg SPS: %.1f", r.physxAvgSps);
    simulated(stages[kCombinedStage], 0.3, 0.7, &r.combinedScore, &r.combinedAvgFps, &r.combinedAvgSps);
    emit("Combined score: %.1f points", r.combinedScore);
    emit("Combined avg FPS: %.1f", r.combinedAvgFps);
    emit("Combined avg SPS: %.1f", r.combinedAvgSps);

    // Weighted harmonic mean; a sub-score of 0 adds no term, and with no
    // term at all the quotient is left as the division gives it.
    float terms = 0.0f;
    if (r.graphxScore > 0.0f) terms += 0.6f / r.graphxScore;
    if (r.physxScore > 0.0f) terms += 0.15f / r.physxScore;
    if (r.combinedScore > 0.0f) terms += 0.25f / r.combinedScore;
    volatile float one = 1.0f;  // the division by zero is meant: +inf
    r.ascore = one / terms;
    emit("AScore: %.1f points", r.ascore);
    return r;
}

void LogStageLines(const StageRecord stages[kStageCount], int32_t totalCloth, int32_t totalFluid,
                   const std::function<void(const std::string&)>& log) {
    char line[256];
    for (int i = 0; i < kStageCount; ++i) {
        const StageRecord& s = stages[i];
        if (!s.active)
            std::snprintf(line, sizeof line, "%s - not active", kStageNames[i]);
        else if (s.simulated)
            std::snprintf(line, sizeof line, "%s - %d frames, %d avg FPS, %d sim cloth, %d sim fluid", kStageNames[i],
                          s.frames, s.averageFps, s.clothSimulations, s.fluidSimulations);
        else
            std::snprintf(line, sizeof line, "%s - %d frames, %d avg FPS", kStageNames[i], s.frames, s.averageFps);
        log(line);
    }
    std::snprintf(line, sizeof line, "PhysX total simulations: %d sim cloth, %d sim fluid", totalCloth, totalFluid);
    log(line);
}

}  // namespace amark
