// libFuzzer: arbitrary text as a display device's PnP ID and description.
#include <cstddef>
#include <cstdint>
#include <string>

#include "monitor/pci_id.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    ProbeGPU::PciIdFields f = ProbeGPU::ParsePnpIdString(text.c_str());
    (void)f.subsystemVendor();
    ProbeGPU::AdapterTable t;
    for (int i = 0; i < 30; ++i) t.Add(ProbeGPU::DisplayDeviceRecord{text, text.substr(0, static_cast<size_t>(i) * 7), text, text});
    return 0;
}
