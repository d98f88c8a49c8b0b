#include "runner/frame_verify.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "core/event_log.h"
#include "runner/lm4d_demo.h"

CheckCounters gCheckCounters;

namespace {

double MsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

FrameDifference CompareFrames(const CheckFrame& reference, const CheckFrame& frame, int channelTolerance) {
    FrameDifference d;
    if (reference.width != frame.width || reference.height != frame.height ||
        reference.rgba.size() != frame.rgba.size()) {
        d.pixels = static_cast<uint64_t>(std::max(reference.width * reference.height, frame.width * frame.height));
        d.largest = 255;
        return d;
    }
    const uint8_t* a = reference.rgba.data();
    const uint8_t* b = frame.rgba.data();
    const size_t n = reference.rgba.size() / 4;
    for (size_t i = 0; i < n; ++i, a += 4, b += 4) {
        int worst = 0;
        for (int c = 0; c < 4; ++c) worst = std::max(worst, std::abs(static_cast<int>(a[c]) - static_cast<int>(b[c])));
        if (worst > channelTolerance) ++d.pixels;
        d.largest = std::max(d.largest, worst);
    }
    return d;
}

void InjectFault(CheckFrame* f) {
    const int side = std::min(8, std::min(f->width, f->height));
    const int x0 = (f->width - side) / 2, y0 = (f->height - side) / 2;
    for (int y = y0; y < y0 + side; ++y)
        for (int x = x0; x < x0 + side; ++x)
            for (int c = 0; c < 3; ++c) {
                uint8_t& v = f->rgba[(static_cast<size_t>(y) * f->width + x) * 4 + c];
                v = static_cast<uint8_t>(255 - v);
            }
}

uint32_t ComputeCheckValue(uint32_t index) {
    uint32_t x = index * 2654435761u + 1u;
    for (int k = 0; k < kComputeRounds; ++k) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        x = x * 1664525u + 1013904223u;
    }
    return x;
}

int CountComputeMismatches(const uint32_t* got) {
    static const std::vector<uint32_t> expected = [] {
        std::vector<uint32_t> values(kComputeValues);
        for (int i = 0; i < kComputeValues; ++i) values[static_cast<size_t>(i)] = ComputeCheckValue(static_cast<uint32_t>(i));
        return values;
    }();
    int wrong = 0;
    for (size_t i = 0; i < expected.size(); ++i) wrong += got[i] != expected[i];
    return wrong;
}

FrameVerifier::FrameVerifier(CheckSchedule schedule, unsigned faultCheck) : schedule_(schedule), faultCheck_(faultCheck) {
    gCheckCounters.active = false;
    gCheckCounters.checks = 0;
    gCheckCounters.errors = 0;
}

bool FrameVerifier::TakeReference(cLm4DDemo& demo, uint64_t frame, unsigned nowMs) {
    const auto start = std::chrono::steady_clock::now();
    const bool drawn = demo.DrawCheckFrame(&reference_);
    lastCheckMs_ = MsSince(start);
    checkMs_ += lastCheckMs_;
    if (!drawn || reference_.width <= 0 || reference_.height <= 0 ||
        reference_.rgba.size() != static_cast<size_t>(reference_.width) * reference_.height * 4) {
        gEventLog.Write("Verification: this test cannot draw a check frame; the run goes without picture checks.");
        return false;
    }
    active_ = true;
    gCheckCounters.active = true;
    lastMs_ = nowMs;
    lastFrame_ = frame;
    gEventLog.Write("Verification: reference frame drawn (%dx%d) at frame %llu.", reference_.width, reference_.height,
                    static_cast<unsigned long long>(frame));
    const int wrong = demo.RunComputeCheck();
    computeActive_ = wrong >= 0;
    if (computeActive_)
        gEventLog.Write("Verification: compute check of %d values against the processor's active.", kComputeValues);
    else
        gEventLog.Write("Verification: no compute check (this test or context has no compute shaders).");
    if (wrong > 0) RecordError(frame, FrameDifference(), wrong);
    return true;
}

bool FrameVerifier::Due(uint64_t frame, unsigned nowMs) const {
    return active_ && schedule_.Due(nowMs - lastMs_, frame - lastFrame_, lastCheckMs_);
}

bool FrameVerifier::MaybeCheck(cLm4DDemo& demo, uint64_t frame, unsigned nowMs) {
    if (!Due(frame, nowMs)) return false;
    Check(demo, frame, nowMs);
    return true;
}

void FrameVerifier::Check(cLm4DDemo& demo, uint64_t frame, unsigned nowMs) {
    lastMs_ = nowMs;
    lastFrame_ = frame;
    // The frames still in flight are drawn first: reading the check back
    // would wait for them anyway, and that wait is theirs, not the check's.
    demo.FinishFrames();
    const auto start = std::chrono::steady_clock::now();
    CheckFrame f;
    const bool drawn = demo.DrawCheckFrame(&f);
    ++checks_;
    if (drawn && faultCheck_ == checks_) {
        InjectFault(&f);
        gEventLog.Write("Verification: check %u read-back corrupted on purpose (test setting /verify_fault).", checks_);
    }
    // A check frame the object could not draw this time is an error too:
    // the device stopped doing what it did at the start.
    FrameDifference d;
    if (drawn) {
        d = CompareFrames(reference_, f);
    } else {
        d.pixels = static_cast<uint64_t>(reference_.width) * reference_.height;
        d.largest = 255;
    }
    // A compute check that could not run this time failed in every value.
    int wrong = 0;
    if (computeActive_) {
        wrong = demo.RunComputeCheck();
        if (wrong < 0) wrong = kComputeValues;
    }
    gCheckCounters.checks = checks_;
    lastCheckMs_ = MsSince(start);
    checkMs_ += lastCheckMs_;
    if (IsCheckError(d) || wrong > 0) RecordError(frame, d, wrong);
}

void FrameVerifier::RecordError(uint64_t frame, const FrameDifference& d, int computeWrong) {
    ++errors_;
    gCheckCounters.errors = errors_;
    if (mismatches_.size() < kKeptMismatches) mismatches_.push_back(CheckMismatch{frame, d, computeWrong});
    if (IsCheckError(d))
        gEventLog.Write("Verification error at frame %llu: %llu of %d pixels differ from the reference, largest difference %d.",
                        static_cast<unsigned long long>(frame), static_cast<unsigned long long>(d.pixels),
                        reference_.width * reference_.height, d.largest);
    if (computeWrong > 0)
        gEventLog.Write("Verification error at frame %llu: %d of %d compute results differ from the processor's.",
                        static_cast<unsigned long long>(frame), computeWrong, kComputeValues);
}
