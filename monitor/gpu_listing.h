// The one-shot listing of `/list_gpus`: every GPU the monitor found, how it
// is read, and one reading of every sensor its interface offers, as plain
// "Name: value" lines on standard output for people and scripts. A reading
// the interface does not offer says "n.a."; nothing is shown as 0 that was
// not measured as 0.
#pragma once

#include <string>
#include <vector>

#include "monitor/bridges.h"
#include "monitor/sensors.h"

namespace monitor {

struct ListedGpu {
    std::string name;
    int pciVendor = -1, pciDevice = -1, subsystemVendor = -1, subsystemDevice = -1;
    std::string codeName;       // "" when the database does not know the device
    std::string interfaceName;  // "" when no interface reads the GPU
    std::string driver;         // "" unknown
};

// The listing of `gpus`, reading each through `source` once (GPU i of the
// list is index i of the source). A GPU-Z block that is present is listed
// after the GPUs with every sensor it carries.
std::string FormatGpuListing(const std::vector<ListedGpu>& gpus, SensorSource& source, GpuzBridge* gpuz);

// The listing of the started monitor (ProbeGPU), read now.
std::string GpuListing();

}  // namespace monitor
