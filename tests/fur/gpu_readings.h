// Where the HUD gets its per-GPU figures: the hardware monitor's snapshot,
// through a source the monitor installs when it starts. Without one there is
// no snapshot and the HUD draws no meters.
#pragma once

#include <functional>
#include <vector>

#include "tests/fur/indicators.h"

using GpuReadingSource = std::function<bool(std::vector<GpuReading>*)>;
void SetGpuReadingSource(GpuReadingSource source);
// False when no monitor runs or it has no snapshot yet.
bool CurrentGpuReadings(std::vector<GpuReading>* out);
