// The Linux kernel's view of display devices and their sensors:
// /sys/class/drm/card*/device (PCI identity, driver, amdgpu load counters)
// and its hwmon folder (temperatures, clocks, voltage, power, fan).
//
// The root ("/sys") can be moved with the environment variable
// ARDENTIUM_SYSFS_ROOT, which only tests set: they build a fake tree and
// script its readings by rewriting the files between refreshes.
//
// Everything read here is untrusted text: a file that is missing, empty,
// too long or not a number is a failed read, never a crash.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "monitor/sensor_backend.h"

namespace ProbeGPU {
namespace sysfs {

constexpr const char* kRootVariable = "ARDENTIUM_SYSFS_ROOT";
// "/sys", or the test tree named by ARDENTIUM_SYSFS_ROOT.
std::string Root();

// Reads a small text file whole (sysfs files are at most a page). False when
// it cannot be opened or is larger than maxBytes.
bool ReadSmallFile(const std::string& path, std::string* out, size_t maxBytes = 4096);

// A whole text that is one decimal integer, with optional sign and trailing
// white space. Nothing else is accepted.
bool ParseDecimal(const std::string& text, int64_t* out);
// "0x10de" (optionally followed by white space), at most 8 hex digits.
bool ParseHexId(const std::string& text, uint32_t* out);
// The value of "KEY=value" lines such as the kernel's uevent files.
bool ParseKeyValue(const std::string& text, const char* key, std::string* out);

// The clock levels of amdgpu's pp_dpm_sclk / pp_dpm_mclk: lines "N: 300Mhz"
// with "*" after the active one.
struct DpmLevels {
    std::vector<int> mhz;
    int current = -1;
};
bool ParseDpmLevels(const std::string& text, DpmLevels* out);

bool ReadDecimal(const std::string& path, int64_t* out);

struct DrmDevice {
    int card = -1;           // N of cardN
    std::string cardDir;     // <root>/class/drm/cardN
    std::string deviceDir;   // <root>/class/drm/cardN/device
    std::string hwmonDir;    // <deviceDir>/hwmon/hwmonM, empty when none
    uint32_t vendor = 0, device = 0, subsystemVendor = 0, subsystemDevice = 0, revision = 0;
    std::string driver;      // "amdgpu", "i915", "xe", "nvidia", ... ("" unknown)
    std::string pciSlot;     // "0000:03:00.0", "" unknown
    std::string pnpId() const;
};

// The display devices under <root>/class/drm, one per distinct PCI device
// (connector entries "card0-DP-1" and render nodes are skipped), ordered by
// card number. Devices whose identity files are missing or garbage are left
// out with a message in the event log.
std::vector<DrmDevice> EnumerateDrmDevices(const std::string& root);

}  // namespace sysfs

// Sensors of any DRM device from sysfs and hwmon: amdgpu, radeon, i915, xe,
// nouveau, an NVIDIA board without its vendor library.
// What a driver does not offer is simply not read.
class SysfsBackend : public GpuSensorBackend {
public:
    explicit SysfsBackend(std::vector<sysfs::DrmDevice> devices);
    const char* Name() const override { return "sysfs"; }
    int count() const { return static_cast<int>(devices_.size()); }
    const sysfs::DrmDevice& device(int i) const { return devices_[static_cast<size_t>(i)]; }

    bool Temperature(int gpu, TemperatureReading* out) override;
    bool Usage(int gpu, int* load, int* memoryLoad) override;
    bool MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) override;
    bool Fan(int gpu, int* value, int* isRpm) override;
    bool Clocks(int gpu, ClockReading* out) override;
    bool Power(int gpu, int rail, int* percent, int* available) override;
    bool Voltage(int gpu, float* volts) override;
    std::string DriverText(int gpu) override;

private:
    struct EnergySample {
        bool valid = false;
        int64_t microjoules = 0;
        std::chrono::steady_clock::time_point when;
    };
    const sysfs::DrmDevice* Dev(int gpu) const;
    bool Hwmon(int gpu, const char* file, int64_t* out, int64_t lo, int64_t hi);
    std::vector<sysfs::DrmDevice> devices_;
    std::vector<EnergySample> energy_;
};

}  // namespace ProbeGPU
