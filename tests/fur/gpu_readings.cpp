#include "tests/fur/gpu_readings.h"

namespace {
GpuReadingSource& Source() {
    static GpuReadingSource source;
    return source;
}
}  // namespace

void SetGpuReadingSource(GpuReadingSource source) { Source() = std::move(source); }

bool CurrentGpuReadings(std::vector<GpuReading>* out) {
    out->clear();
    return Source() && Source()(out);
}
