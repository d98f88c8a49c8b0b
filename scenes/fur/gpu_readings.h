// What the HUD reads of the hardware monitor's per-GPU snapshot.
#pragma once

#include <vector>

#include "scenes/fur/indicators.h"

// False when the monitor has no sensor snapshot (not started, no GPU).
bool CurrentGpuReadings(std::vector<GpuReading>* out);
