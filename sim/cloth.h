// Position-based (XPBD) cloth: distance constraints for stretch, shear and
// bending, pinned vertices, collisions with the ground and spheres, and wind.
// The constraints are "cooked" once into colour groups in which no two share
// a vertex, so a group can be solved in any order, or all at once on the GPU,
// with the same result.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/simulation.h"
#include "sim/stream.h"

namespace sim {

constexpr float kGravityY = -9.8f;
constexpr float kSubStep = 0.004f;  // fixed sub-step of every simulate call
constexpr int kMaxSubSteps = 4;
constexpr float kFreeStep = 0.005f;  // simulated time of a free-running step
constexpr float kFriction = 0.2f;    // dynamic and static
constexpr float kRestitution = 0.5f;

// Turns the time handed to simulate into whole fixed sub-steps; the rest
// waits for the next call, and time past the sub-step limit is dropped so a
// slow frame cannot snowball.
class FixedStepper {
public:
    int Advance(float dt);
    // Simulated time at the first sub-step of the last Advance.
    float StartTime() const { return start_; }

private:
    float carry_ = 0.0f;
    float time_ = 0.0f;
    float start_ = 0.0f;
};

struct ClothMesh {
    int columns = 0, rows = 0;
    std::vector<float> positions;  // xyz
    std::vector<float> invMass;    // 0: pinned
    std::vector<uint32_t> indices;
};

// The flag: columns x rows vertices in a vertical plane, pinned along the
// edge at the pole.
ClothMesh BuildFlagMesh(const SceneDesc& desc);
// The pole: a capped cylinder with flagSupportValue sides. False for fewer than 3.
bool BuildSupportMesh(const SceneDesc& desc, StaticMeshes* out);

struct CookedCloth {
    uint32_t vertexCount = 0;
    std::vector<uint32_t> pairs;  // i, j per constraint, grouped by colour
    std::vector<float> restLength;
    std::vector<float> compliance;
    std::vector<uint32_t> colorStart;  // colours + 1 offsets into the constraints

    size_t ConstraintCount() const { return restLength.size(); }
    bool operator==(const CookedCloth& o) const;
};

// Builds and colours the constraints of a grid mesh; false with *why on a
// mesh it cannot use.
bool CookCloth(const ClothMesh& mesh, CookedCloth* out, std::string* why);
void WriteCooked(const CookedCloth& cooked, Stream& out);
// Reads back what WriteCooked wrote: header, version, sizes and checksum must
// all agree or nothing is returned.
bool ReadCooked(Stream& in, CookedCloth* out, std::string* why);
// Cooked data that fits the mesh: every index in range, colours disjoint.
bool ValidateCooked(const CookedCloth& cooked, const ClothMesh& mesh, std::string* why);

struct ClothParams {
    float wind[3] = {0, 0, 0};
    float groundHeight = 0.0f;
    std::vector<Sphere> spheres;
    float thickness = 0.02f;  // collision margin
    float damping = 0.05f;    // per second
    int iterations = 2;       // constraint passes per sub-step
};

// The CPU solver. The GPU path runs the same passes (see gpu_cloth.cpp).
class ClothSolver {
public:
    bool Init(const ClothMesh& mesh, const CookedCloth& cooked, const ClothParams& params, std::string* why);
    // One simulate call: whole fixed sub-steps of `dt`; returns how many ran.
    int Simulate(float dt);

    // xyz per vertex, as of the end of the last simulate call.
    const std::vector<float>& Positions() const { return x_; }
    const std::vector<float>& Velocities() const { return v_; }
    const std::vector<float>& InvMass() const { return w_; }
    const CookedCloth& Cooked() const { return cooked_; }
    const ClothParams& Params() const { return params_; }
    FixedStepper& Stepper() { return stepper_; }

private:
    static constexpr uint32_t kGustPhases = 97;  // WindGust repeats every 97 vertices

    void SubStep(float h, float t);
    void SolveConstraints(uint32_t first, uint32_t end, float invH2);

    // The solver works on four floats a vertex (x, y, z, inverse mass; the
    // velocity's fourth is 0) so one load fetches a whole end of a constraint
    // and one operation moves a whole vertex; x_ and v_ are the xyz copies
    // handed out.
    std::vector<float> xw_, prevw_, vw_;
    std::vector<float> x_, v_, w_, lambda_;
    CookedCloth cooked_;
    ClothParams params_;
    FixedStepper stepper_;
};

// Wind acceleration scale of vertex i at time t: gusts that run across the flag.
float WindGust(uint32_t i, float t);
// Area-weighted vertex normals of a triangle list.
void ComputeNormals(const std::vector<float>& positions, const std::vector<uint32_t>& indices,
                    std::vector<float>* normals);

}  // namespace sim
