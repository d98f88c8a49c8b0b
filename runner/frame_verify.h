// Error detection under load: at a fixed interval the test object draws a
// check frame from a fixed state (animation time, camera) into a target of
// its own and reads it back; the render thread compares it with the
// reference the object drew the same way at the start of the run. A card
// that computes wrong under heat or an overclock draws a different picture;
// a healthy one draws the same bytes every time.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

class cLm4DDemo;

// A read-back check frame: RGBA rows, top row first.
struct CheckFrame {
    std::vector<uint8_t> rgba;
    int width = 0, height = 0;
};

// How far a check frame is from the reference: the pixels with a channel
// more than the tolerance off, and the largest channel difference seen.
struct FrameDifference {
    uint64_t pixels = 0;
    int largest = 0;
};

// Per channel, what a pixel may differ by and still count as the same. The
// same device drawing the same state gives the same bytes; the margin only
// absorbs rounding a driver may do differently between two submissions.
constexpr int kCheckChannelTolerance = 2;

// Frames of different sizes differ in every pixel of the larger one.
FrameDifference CompareFrames(const CheckFrame& reference, const CheckFrame& frame,
                              int channelTolerance = kCheckChannelTolerance);
// A check fails when any pixel is off by more than the tolerance.
inline bool IsCheckError(const FrameDifference& d) { return d.pixels > 0; }
// Corrupts a read-back the way a faulty card might (a block of inverted
// pixels in the middle), for the tests of the whole path.
void InjectFault(CheckFrame* frame);

// The compute check: where compute shaders exist, the GPU runs this integer
// arithmetic (shifts, exclusive or, multiply and add, wrapping at 32 bits)
// for each of kComputeValues indices and the CPU checks every result. An
// integer result has one right answer on every card.
constexpr int kComputeValues = 4096;
constexpr int kComputeRounds = 64;
uint32_t ComputeCheckValue(uint32_t index);
// How many of the kComputeValues results read back from the GPU differ from
// ComputeCheckValue of their index (the CPU's values are made once).
int CountComputeMismatches(const uint32_t* got);

// When the next check is due: after `minMs` of run time and `minFrames`
// frames since the last, and long enough after it that checks take at most
// kCheckTimeShare of the run (a check that took 200 ms waits 9.8 s): a
// slow device or a heavy check frame checks less often instead of costing
// more. For tests, every `everyFrames` frames.
constexpr double kCheckTimeShare = 0.02;

struct CheckSchedule {
    unsigned minMs = 5000;
    unsigned minFrames = 200;
    unsigned everyFrames = 0;
    // `lastCheckMs`: how long the last check (or the reference) took.
    bool Due(unsigned msSinceLast, uint64_t framesSinceLast, double lastCheckMs = 0.0) const {
        if (everyFrames > 0) return framesSinceLast >= everyFrames;
        const double share = lastCheckMs * (1.0 / kCheckTimeShare - 1.0);
        return msSinceLast >= minMs && msSinceLast >= share && framesSinceLast >= minFrames;
    }
};

// One failed check.
struct CheckMismatch {
    uint64_t frame = 0;  // the run's frame count when the check was drawn
    FrameDifference difference;
    int computeWrong = 0;  // compute results that differed from the CPU's
};

// What the HUD shows while the run goes on (render thread writes, any reads).
struct CheckCounters {
    std::atomic<bool> active{false};
    std::atomic<unsigned> checks{0};
    std::atomic<unsigned> errors{0};
};
extern CheckCounters gCheckCounters;

// The checks of one run, on the render thread.
class FrameVerifier {
public:
    // `faultCheck` > 0 corrupts the read-back of that check (1 = the first
    // after the reference).
    FrameVerifier(CheckSchedule schedule, unsigned faultCheck);
    // Draws the reference; false (logged) when the object cannot draw a
    // check frame, and the run then goes without checks.
    bool TakeReference(cLm4DDemo& demo, uint64_t frame, unsigned nowMs);
    // Whether a check is due at this frame and time.
    bool Due(uint64_t frame, unsigned nowMs) const;
    // Draws and compares a check frame when one is due. True when a check ran.
    bool MaybeCheck(cLm4DDemo& demo, uint64_t frame, unsigned nowMs);
    // Draws and compares one check frame now.
    void Check(cLm4DDemo& demo, uint64_t frame, unsigned nowMs);

    bool active() const { return active_; }
    bool computeActive() const { return computeActive_; }
    unsigned checks() const { return checks_; }
    unsigned errors() const { return errors_; }
    const std::vector<CheckMismatch>& mismatches() const { return mismatches_; }
    // Wall time the checks took (drawing, read-back, comparison), the
    // reference included; each check first waits for the frames in flight,
    // outside this time.
    double checkMs() const { return checkMs_; }

    // At most this many mismatches are kept for the results (all are counted).
    static constexpr size_t kKeptMismatches = 100;

private:
    void RecordError(uint64_t frame, const FrameDifference& d, int computeWrong);

    CheckSchedule schedule_;
    unsigned faultCheck_;
    CheckFrame reference_;
    bool active_ = false;
    bool computeActive_ = false;
    unsigned checks_ = 0, errors_ = 0;
    unsigned lastMs_ = 0;
    uint64_t lastFrame_ = 0;
    std::vector<CheckMismatch> mismatches_;
    double checkMs_ = 0.0;
    double lastCheckMs_ = 0.0;  // the last check's (or the reference's) own time
};
