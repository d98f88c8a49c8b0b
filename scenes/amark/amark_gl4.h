// The OpenGL 4 benchmark object: the fur back-end on an OpenGL 4 core
// context, with four more stages of its own (tessellation, simulation,
// instancing, all combined), the stage sequencing and the scores.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "audio/music_player.h"
#include "render/gl4_api.h"
#include "render/math3d.h"
#include "scenes/amark/amark_bench.h"
#include "scenes/fur/fur_gl.h"
#include "sim/simulation.h"

class cLm4DDemo_OpenGL_4 : public cLm4DDemo_GL {
public:
    cLm4DDemo_OpenGL_4() { api_id = 4; }
    ~cLm4DDemo_OpenGL_4() override;

    bool Init(const RenderTarget& target, int width, int height) override;
    void Terminate() override;
    void Frame(float frameSeconds) override;

    bool AmarkFinished() const override { return finished_; }
    void LogStageResults() override;
    double FinalScore() const override { return scores_.ascore; }
    std::vector<std::pair<std::string, double>> ScoreBreakdown() const override;
    std::vector<StageResult> StageResults() const override;
    // The picture and compute checks; their time is kept out of the
    // stages' per-frame costs.
    bool DrawCheckFrame(CheckFrame* out) override;
    int RunComputeCheck() override;

    // What the run has counted so far (tests and the bench read them).
    const amark::StageRecord* Stages() const { return stages_; }
    int CurrentStage() const { return sequencer_.Current(); }

protected:
    Dialect ChooseDialect() const override;
    const char* WindowFailureLine() const override { return "OpenGL 4 window creation failed!"; }
    const char* MinimumLine() const override { return "This test requires at least an OpenGL 4.0 support."; }
    std::string SuccessLine(int major, int minor) const override;
    const char* ImageFailurePrefix() const override { return "GL4"; }
    void DrawScene() override;
    void DrawOverlayExtras() override;
    // The tessellation stage at the check moment: ground, spheres and sky
    // are functions of time and the preset alone, unlike the stages the
    // simulation threads move.
    void DrawCheckScene() override;

private:
    struct Buffers {
        GLuint vao = 0, vbo = 0, ibo = 0, nbo = 0;
        GLsizei count = 0;
    };
    bool InitGl4();
    void StartSimulation();
    void UpdateStages();
    void CountDrawnFrames();
    void UpdateFlagBuffers();
    void UpdateParticleBuffer();

    void DrawStage(int stage);
    void SetCamera(int stage);
    void ShadowPass(int stage);
    void DrawSky();
    void DrawGround(bool shadow);
    void DrawSpheres(bool shadow, bool simulationSpheres);
    void DrawFlag(bool shadow);
    void DrawParticles();
    void DrawAsteroids(bool shadow, int count);
    void SetLighting(GLuint program, bool shadow);

    gl4::Api gl4_;
    amark::Preset preset_;
    amark::StageRecord stages_[amark::kStageCount];
    amark::StageSequencer sequencer_{stages_};
    amark::Scores scores_;
    bool benchmark_ = false;
    bool started_ = false;
    bool finished_ = false;
    float benchmarkTime_ = 0.0f;
    int drawStage_ = 0;  // the stage this frame draws

    // Frames handed to the device, oldest first, with the stage each was
    // drawn for (-1: not counted); popped as their fences signal.
    std::deque<int> inFlight_;
    // Per stage: frames handed over, the render thread's processor time and
    // the wall time spent on them.
    struct StageCost {
        int submitted = 0;
        double cpuSeconds = 0.0, wallSeconds = 0.0;
    };
    StageCost cost_[amark::kStageCount];
    // Moves the start of the next frame's cost past a check that began at
    // these readings.
    void LeaveOutOfFrameCost(double cpuBefore, int64_t wallBefore);
    bool checkSceneLogged_ = false;
    double lastCpu_ = -1.0;
    int64_t lastWall_ = 0;
    uint64_t finishedSeen_ = 0;

    sim::Simulation physics_;
    bool physicsUp_ = false;
    audio::BenchmarkMusic music_;

    GLuint skyProgram_ = 0, groundProgram_ = 0, sphereProgram_ = 0, meshProgram_ = 0, particleProgram_ = 0;
    GLuint emptyVao_ = 0;
    Buffers ground_, sphere_, flag_, pole_, asteroid_, particles_;
    GLuint instanceVbo_ = 0;
    int instanceCount_ = 0;
    int particleCount_ = 0;
    int64_t flagStep_ = -1, fluidStep_ = -1;
    GLuint shadowFbo_ = 0, shadowTex_ = 0;
    int shadowSize_ = 0;
    std::vector<sim::Sphere> simSpheres_;

    m3d::Mat4 viewProj_, lightViewProj_;
    m3d::Vec3 eye_{0, 0, 0};
};
