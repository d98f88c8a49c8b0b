// Frame times of a run, kept as a fine histogram so an hour-long burn-in
// costs the same memory as a short benchmark: bins grow by 0.5 % from
// 0.01 ms to 100 s, and each bin keeps the sum of its times, so the means
// of the slow frames are exact and percentiles are good to half a percent.
#pragma once

#include <cstdint>
#include <vector>

class FrameTimeHistogram {
public:
    FrameTimeHistogram();
    void Reset();
    void Add(double milliseconds);
    uint64_t count() const { return count_; }

    // The frame time (ms) that the given share of frames (0..1) do not
    // exceed: Percentile(0.99) is the 99th percentile. 0 without frames.
    double Percentile(double share) const;
    // The frame rate of the slowest share of frames: 1000 divided by their
    // mean frame time. LowFps(0.01) is the "1 % low". 0 without frames.
    double LowFps(double share) const;

private:
    int BinOf(double ms) const;

    std::vector<uint32_t> counts_;
    std::vector<double> sums_;
    uint64_t count_ = 0;
};
