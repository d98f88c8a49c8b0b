// A fake /sys tree for the tests: display devices under class/drm with
// their PCI identity, driver, amdgpu counters and hwmon files. The tree's
// root is given to the monitor through ARDENTIUM_SYSFS_ROOT while the object
// lives; a test scripts readings by rewriting files between refreshes.
#pragma once

#include <cstdint>
#include <string>

namespace fakes {

struct FakeCard {
    int card = 0;
    uint32_t vendor = 0x1002, device = 0x73BF, subsystemVendor = 0x1002, subsystemDevice = 0x0E3A, revision = 0xC1;
    std::string driver = "amdgpu";
    std::string pciSlot;  // "0000:03:00.0"; empty: no PCI_SLOT_NAME line
    bool hwmon = true;
    bool bootVga = false;
};

class FakeSysfs {
public:
    FakeSysfs();
    ~FakeSysfs();
    FakeSysfs(const FakeSysfs&) = delete;
    FakeSysfs& operator=(const FakeSysfs&) = delete;

    const std::string& root() const { return root_; }
    void AddCard(const FakeCard& c);
    // Writes a file (folders made as needed), relative to the root.
    void Write(const std::string& relative, const std::string& text);
    void Remove(const std::string& relative);
    // Relative to class/drm/cardN/device, and to its hwmon folder.
    void WriteDevice(int card, const std::string& file, const std::string& text);
    void WriteHwmon(int card, const std::string& file, const std::string& text);
    // A typical amdgpu board: load, VRAM, temperatures, clocks, voltage,
    // power against its cap, fan, and the clock levels.
    void FillAmdgpu(int card, int celsius, int busyPercent);
    // An Intel i915 device: a temperature where hwmon has one, the actual
    // GT clock, voltage, energy counter and power limit.
    void FillI915(int card, int celsius, int mhz);
    // An NVIDIA board under a driver that offers hwmon but no vendor library
    // (nouveau, or the open kernel module without its user-space library):
    // temperature with its critical point, fan, power draw against its cap.
    void FillNvidiaHwmon(int card, int celsius);

private:
    std::string root_;
    std::string previousRoot_;
    bool hadPrevious_ = false;
};

}  // namespace fakes
