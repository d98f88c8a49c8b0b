// The display adapter as the system names it: the PnP device ID string
// "PCI\VEN_vvvv&DEV_dddd&SUBSYS_ssssssss&REV_rr", the vendor classes, and the
// table of distinct adapters seen while enumerating display devices.
#pragma once

#include <cstdint>
#include <string>

namespace ProbeGPU {

enum GpuVendorClass : int {
    kVendorNone = 0,    // no PCI vendor found (-1)
    kVendorNvidia = 1,  // 0x10DE
    kVendorAmd = 2,     // 0x1002
    kVendorS3 = 3,      // 0x5333
    kVendorIntel = 4,   // 0x8086
    kVendorOther = 5,
};

constexpr int kPciVendorNvidia = 0x10DE;
constexpr int kPciVendorAmd = 0x1002;
constexpr int kPciVendorS3 = 0x5333;
constexpr int kPciVendorIntel = 0x8086;

GpuVendorClass VendorClassOf(int pciVendorId);

// The four fields of an ID string, cut at fixed character positions (8, 17,
// 29 and 42) and parsed as hexadecimal. A field whose text is missing or is
// not hexadecimal stays -1.
struct PciIdFields {
    char vendorHex[5] = {0};
    char deviceHex[5] = {0};
    char subsystemHex[9] = {0};
    char revisionHex[3] = {0};
    int32_t vendor = -1;
    int32_t device = -1;
    int32_t subsystem = -1;  // SUBSYS_ssssvvvv: subsystem device in the high word, subsystem vendor in the low word
    int32_t revision = -1;

    int subsystemVendor() const { return subsystem < 0 ? -1 : (subsystem & 0xFFFF); }
    int subsystemDevice() const { return subsystem < 0 ? -1 : ((subsystem >> 16) & 0xFFFF); }
};
PciIdFields ParsePnpIdString(const char* id);

// The ID string Windows would show for these numbers; Linux builds it from the
// kernel's PCI view so that one parser serves both.
std::string FormatPnpIdString(unsigned vendor, unsigned device, unsigned subsystemVendor, unsigned subsystemDevice,
                              unsigned revision);

// One display device as the system enumerates it (several per adapter: one per output).
struct DisplayDeviceRecord {
    std::string name;    // "\\.\DISPLAY1"
    std::string string;  // adapter description
    std::string id;      // PnP device ID
    std::string key;     // the driver's registry key
};

struct DisplayAdapterEntry {
    char deviceName[32];
    char deviceString[128];
    char deviceId[128];
    char deviceKey[128];
    char reserved[96];  // rows are 512 bytes
};
static_assert(sizeof(DisplayAdapterEntry) == 512, "adapter rows are 512 bytes");

class AdapterTable {
public:
    static constexpr int kMaxRows = 25;

    // Adds a row unless its description equals (first 127 characters) the
    // last row added: the outputs of one adapter give one row. False when
    // not added (same adapter, or the table is full).
    bool Add(const DisplayDeviceRecord& d);
    // Adds a row without comparing descriptions (a source that already lists
    // each device once, such as the kernel's). False when the table is full.
    bool Append(const DisplayDeviceRecord& d);
    int count() const { return count_; }
    const DisplayAdapterEntry& row(int i) const { return rows_[i]; }
    DisplayAdapterEntry& mutableRow(int i) { return rows_[i]; }
    void Clear() { count_ = 0; }

private:
    DisplayAdapterEntry rows_[kMaxRows] = {};
    int count_ = 0;
};

// Enumerates display devices with `next(i, &record)` for i = 0, 1, ... while
// it succeeds and i <= 24, adding each to the table.
template <typename NextFn>
void EnumerateDisplayDevices(NextFn next, AdapterTable* table) {
    for (int i = 0; i <= 24; ++i) {
        DisplayDeviceRecord d;
        if (!next(i, &d)) break;
        table->Add(d);
    }
}

// Copies text into a fixed, NUL-terminated buffer, cutting it to fit.
void CopyFixed(char* dst, size_t dstSize, const char* src);

}  // namespace ProbeGPU
