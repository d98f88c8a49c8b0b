#include "monitor/gpu_listing.h"

#include <cmath>

#include "monitor/gpu_db.h"
#include "monitor/pci_id.h"
#include "monitor/probe_gpu.h"
#include "platform/str_format.h"

namespace monitor {

namespace {

const char* const kNa = "n.a.";

std::string Id(int vendor, int device) {
    return StrFormat("%04X:%04X", static_cast<unsigned>(vendor) & 0xFFFFu, static_cast<unsigned>(device) & 0xFFFFu);
}

void Line(std::string* out, const char* label, const std::string& value) { *out += StrFormat("  %s: %s\n", label, value.c_str()); }

void ListReadings(std::string* out, int i, SensorSource& source) {
    ProbeGPU::TemperatureReading t;
    if (source.Temperature(i, &t)) {
        std::string v = StrFormat("%.1f C", static_cast<double>(t.celsius));
        Line(out, "Temperature", v);
        Line(out, "Hot spot temperature", t.hotspot >= 0 ? StrFormat("%d C", t.hotspot) : kNa);
        Line(out, "Memory temperature", t.memory >= 0 ? StrFormat("%d C", t.memory) : kNa);
        Line(out, "Slowdown temperature", t.threshold >= 0 ? StrFormat("%d C", t.threshold) : kNa);
    } else {
        Line(out, "Temperature", kNa);
    }
    int load = 0, memoryLoad = -1;
    if (source.Usage(i, &load, &memoryLoad)) {
        Line(out, "GPU load", StrFormat("%d %%", load));
        Line(out, "Memory controller load", memoryLoad >= 0 ? StrFormat("%d %%", memoryLoad) : kNa);
    } else {
        Line(out, "GPU load", kNa);
    }
    int total = 0, used = 0, freeMB = 0;
    Line(out, "Video memory", source.MemoryUsage(i, &total, &used, &freeMB) ? StrFormat("%d MB used of %d MB", used, total)
                                                                              : std::string(kNa));
    int fan = 0, rpm = 0;
    Line(out, "Fan", source.Fan(i, &fan, &rpm) ? StrFormat(rpm ? "%d RPM" : "%d %%", fan) : std::string(kNa));
    ProbeGPU::ClockReading c;
    std::vector<ProbeGPU::PerfLevel> levels;
    if (source.Clocks(i, &c)) {
        Line(out, "Core clock", c.coreMHz > 0 ? StrFormat("%d MHz", static_cast<int>(c.coreMHz + 0.5f)) : kNa);
        Line(out, "Memory clock", c.memoryMHz > 0 ? StrFormat("%d MHz", static_cast<int>(c.memoryMHz + 0.5f)) : kNa);
        Line(out, "Performance state", c.performanceState >= 0 ? StrFormat("P%d", c.performanceState) : kNa);
    } else if (source.PerfLevels(i, &levels) && !levels.empty()) {
        const ProbeGPU::PerfLevel& top = levels.back();
        Line(out, "Core clock", StrFormat("%d MHz (highest level)", static_cast<int>(top.coreMHz + 0.5f)));
        Line(out, "Memory clock", StrFormat("%d MHz (highest level)", static_cast<int>(top.memoryMHz + 0.5f)));
        Line(out, "Performance state", kNa);
    } else {
        Line(out, "Core clock", kNa);
        Line(out, "Memory clock", kNa);
        Line(out, "Performance state", kNa);
    }
    float volts = 0;
    if (!(source.Voltage(i, &volts) && volts > 0)) volts = c.voltage;
    Line(out, "Core voltage", volts > 0 ? StrFormat("%.3f V", static_cast<double>(volts)) : kNa);
    int percent = 0, available = 0;
    Line(out, "Power", source.Power(i, 0, &percent, &available) && available ? StrFormat("%d %% of the board limit", percent)
                                                                              : std::string(kNa));
    float ceiling = 0, bound = 0;
    if (source.ClockCeiling(i, &ceiling, &bound) && bound > 0 && ceiling > 0)
        Line(out, "Clock ceiling", StrFormat("%d MHz of %d MHz", static_cast<int>(ceiling), static_cast<int>(bound)));
}

}  // namespace

std::string FormatGpuListing(const std::vector<ListedGpu>& gpus, SensorSource& source, GpuzBridge* gpuz) {
    std::string out = StrFormat("GPUs: %d\n", static_cast<int>(gpus.size()));
    for (size_t k = 0; k < gpus.size(); ++k) {
        const ListedGpu& g = gpus[k];
        const int i = static_cast<int>(k);
        out += StrFormat("GPU %d: %s\n", i + 1, g.name.empty() ? "Unknown" : g.name.c_str());
        Line(&out, "PCI ID", g.pciVendor >= 0 && g.pciDevice >= 0 ? Id(g.pciVendor, g.pciDevice) : kNa);
        Line(&out, "Subsystem ID",
             g.subsystemVendor > 0 || g.subsystemDevice > 0 ? Id(g.subsystemVendor, g.subsystemDevice) : kNa);
        Line(&out, "Code name", g.codeName.empty() ? kNa : g.codeName);
        Line(&out, "Driver", g.driver.empty() ? kNa : g.driver);
        Line(&out, "Sensor interface", g.interfaceName.empty() ? "none" : g.interfaceName);
        ListReadings(&out, i, source);
    }
    if (gpuz && gpuz->OpenGpuzMemory()) {
        std::string sensors;
        int count = 0;
        for (int r = 0; r < gpuz::kRecords; ++r) {
            const std::string name = gpuz->SensorName(r);
            double v = 0;
            if (name.empty() || !gpuz->RecordValue(r, &v)) continue;
            sensors += StrFormat("  %s: %.3f %s\n", name.c_str(), v, gpuz->RecordUnit(r).c_str());
            ++count;
        }
        out += StrFormat("GPU-Z: %d sensors\n", count) + sensors;
    }
    return out;
}

std::string GpuListing() {
    std::vector<ListedGpu> gpus;
    for (int i = 0; i < ProbeGPU::getGpuCount(); ++i) {
        ListedGpu g;
        if (const ProbeGPU::GpuSlot* s = ProbeGPU::getGpu(i)) {
            g.name = s->name;
            g.pciVendor = s->pciVendor;
            g.pciDevice = s->pciDevice;
            g.subsystemVendor = s->subsystemVendor;
            g.subsystemDevice = s->subsystemDevice;
            g.interfaceName = s->backend ? s->backend->Name() : "";
            g.driver = s->driverVersion;
            const int cls = ProbeGPU::VendorClassOf(s->pciVendor);
            if (const ProbeGPU::GpuDatabaseEntry* row =
                    ProbeGPU::DatabaseRow(cls, ProbeGPU::DatabaseLookup(cls, s->pciDevice, s->subsystemVendor, s->subsystemDevice)))
                g.codeName = row->codeName;
        } else {
            g.name = ProbeGPU::getGpuName();
        }
        gpus.push_back(g);
    }
    ProbeGpuSource source;
    GpuzBridge gpuz;
    return FormatGpuListing(gpus, source, &gpuz);
}

}  // namespace monitor
