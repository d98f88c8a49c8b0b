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

// The PCI identity in a Windows device identifier such as
// "PCI\\VEN_10DE&DEV_2684&SUBSYS_16F310DE&REV_A1" (either case). False, and
// nothing written, when it names none.
bool ParsePciDeviceId(const std::string& deviceId, int* vendor, int* device);

// One display device as the window system lists it: its name (such as
// "\\.\DISPLAY1") and the device identifier of the adapter behind it.
struct DisplayDeviceRow {
    std::string name;
    std::string deviceId;
};

// The GPUs an OpenGL GPU-affinity extension enumerates know themselves only
// by the display devices they drive: each GPU (the names of its displays,
// in the extension's order) takes the PCI identity of the first of them
// that `displays` lists with one. A GPU that drives no display, or none
// listed, stays without identity, and PickAdapter then chooses it only as
// the single adapter there is.
std::vector<AdapterIdentity> IdentifyAffinityGpus(const std::vector<std::vector<std::string>>& gpuDisplays,
                                                  const std::vector<DisplayDeviceRow>& displays);

// Which of the GPUs an extension that names them only by renderer string
// lists is the chosen one: of the GPUs whose renderer string is the chosen
// GPU's name (letter case and surrounding blanks aside), the one after
// `sameBefore` of them (boards of one PCI identity carry one name). -1 when
// the choice has no name or none fits.
int PickByRendererName(const GpuChoice& choice, const std::vector<std::string>& renderers);

}  // namespace platform
