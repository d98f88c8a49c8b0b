// libFuzzer: arbitrary text as the contents of sysfs files, through every
// parser the sysfs reader uses.
#include <cstddef>
#include <cstdint>
#include <string>

#include "monitor/nvml_backend.h"
#include "monitor/sysfs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    int64_t v = 0;
    ProbeGPU::sysfs::ParseDecimal(text, &v);
    uint32_t id = 0;
    ProbeGPU::sysfs::ParseHexId(text, &id);
    std::string value;
    ProbeGPU::sysfs::ParseKeyValue(text, "DRIVER", &value);
    ProbeGPU::sysfs::ParseKeyValue(text, "PCI_SLOT_NAME", &value);
    ProbeGPU::sysfs::DpmLevels levels;
    ProbeGPU::sysfs::ParseDpmLevels(text, &levels);
    ProbeGPU::NvmlBackend::NormalizeBusId(text.c_str());
    return 0;
}
