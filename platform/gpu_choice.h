// The GPU a run was asked to draw on (/gpu=N), as the hardware monitor's
// inventory knows it, and how each graphics API finds it among the
// adapters it enumerates: by PCI identity, in the inventory's order.
#pragma once

#include <string>
#include <vector>

namespace platform {

struct GpuChoice {
    int index = 0;  // 1-based, as /list_gpus numbers the GPUs; 0: none chosen
    std::string name;
    int pciVendor = -1, pciDevice = -1;  // -1 when the inventory does not know them
    // GPUs with the same PCI identity listed before this one: the choice is
    // the next adapter of that identity after as many.
    int sameBefore = 0;
};

// Set once at start-up, before any run; read by the context and device code.
void SetGpuChoice(const GpuChoice& choice);
const GpuChoice& CurrentGpuChoice();

// One adapter as an API enumerates it.
struct AdapterIdentity {
    int pciVendor = -1, pciDevice = -1;
    bool software = false;  // a software renderer, with no PCI device of its own
};

// Which of `adapters` is the chosen GPU: the adapter with its PCI identity
// that comes after `sameBefore` others of that identity; for a GPU whose
// identity the inventory does not know, the only software adapter, or the
// only adapter at all. -1 when none fits.
int PickAdapter(const GpuChoice& choice, const std::vector<AdapterIdentity>& adapters);

}  // namespace platform
