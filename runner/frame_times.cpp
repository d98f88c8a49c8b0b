#include "runner/frame_times.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kMinMs = 0.01;
constexpr double kMaxMs = 100000.0;
constexpr double kGrowth = 1.005;

int BinCount() { return static_cast<int>(std::ceil(std::log(kMaxMs / kMinMs) / std::log(kGrowth))) + 2; }

}  // namespace

FrameTimeHistogram::FrameTimeHistogram() { Reset(); }

void FrameTimeHistogram::Reset() {
    counts_.assign(BinCount(), 0);
    sums_.assign(BinCount(), 0.0);
    count_ = 0;
}

// Bin 0 holds everything below the smallest edge, the last bin everything
// above the largest.
int FrameTimeHistogram::BinOf(double ms) const {
    if (!(ms > kMinMs)) return 0;
    const int bin = 1 + static_cast<int>(std::log(ms / kMinMs) / std::log(kGrowth));
    return std::min(bin, static_cast<int>(counts_.size()) - 1);
}

void FrameTimeHistogram::Add(double ms) {
    if (!(ms >= 0.0)) return;  // NaN or negative: not a frame time
    const int bin = BinOf(ms);
    counts_[bin] += 1;
    sums_[bin] += ms;
    count_ += 1;
}

double FrameTimeHistogram::Percentile(double share) const {
    if (count_ == 0) return 0.0;
    share = std::clamp(share, 0.0, 1.0);
    const uint64_t rank = std::max<uint64_t>(1, static_cast<uint64_t>(std::ceil(share * count_)));
    uint64_t seen = 0;
    for (size_t b = 0; b < counts_.size(); ++b) {
        seen += counts_[b];
        if (seen >= rank) {
            // The bin's mean stands for its frames: within half a percent of each.
            return sums_[b] / counts_[b];
        }
    }
    return sums_.back() / std::max<uint32_t>(1, counts_.back());
}

double FrameTimeHistogram::LowFps(double share) const {
    if (count_ == 0) return 0.0;
    const uint64_t wanted = std::max<uint64_t>(1, static_cast<uint64_t>(std::ceil(std::clamp(share, 0.0, 1.0) * count_)));
    uint64_t taken = 0;
    double sum = 0.0;
    for (size_t b = counts_.size(); b-- > 0 && taken < wanted;) {
        if (counts_[b] == 0) continue;
        const uint64_t take = std::min<uint64_t>(counts_[b], wanted - taken);
        sum += sums_[b] * (static_cast<double>(take) / counts_[b]);
        taken += take;
    }
    const double mean = sum / static_cast<double>(taken);
    return mean > 0.0 ? 1000.0 / mean : 0.0;
}
