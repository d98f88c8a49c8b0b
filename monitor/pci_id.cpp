#include "monitor/pci_id.h"

#include <cstdio>
#include <cstring>

namespace ProbeGPU {

GpuVendorClass VendorClassOf(int pciVendorId) {
    switch (pciVendorId) {
        case -1: return kVendorNone;
        case kPciVendorNvidia: return kVendorNvidia;
        case kPciVendorAmd: return kVendorAmd;
        case kPciVendorS3: return kVendorS3;
        case kPciVendorIntel: return kVendorIntel;
        default: return kVendorOther;
    }
}

namespace {

// Copies `len` characters from position `pos` (fewer when the text ends
// first) into `out` and parses them as hexadecimal.
int32_t CutHex(const char* id, size_t idLen, size_t pos, size_t len, char* out) {
    out[0] = '\0';
    if (pos >= idLen) return -1;
    size_t n = idLen - pos < len ? idLen - pos : len;
    std::memcpy(out, id + pos, n);
    out[n] = '\0';
    if (n == 0) return -1;
    uint32_t v = 0;
    for (size_t i = 0; i < n; ++i) {
        char c = out[i];
        uint32_t digit;
        if (c >= '0' && c <= '9') digit = static_cast<uint32_t>(c - '0');
        else if (c >= 'a' && c <= 'f') digit = static_cast<uint32_t>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F') digit = static_cast<uint32_t>(c - 'A' + 10);
        else return -1;
        v = (v << 4) | digit;
    }
    return static_cast<int32_t>(v);
}

}  // namespace

PciIdFields ParsePnpIdString(const char* id) {
    PciIdFields f;
    if (!id) return f;
    size_t len = std::strlen(id);
    f.vendor = CutHex(id, len, 8, 4, f.vendorHex);
    f.device = CutHex(id, len, 17, 4, f.deviceHex);
    f.subsystem = CutHex(id, len, 29, 8, f.subsystemHex);
    f.revision = CutHex(id, len, 42, 2, f.revisionHex);
    return f;
}

std::string FormatPnpIdString(unsigned vendor, unsigned device, unsigned subsystemVendor, unsigned subsystemDevice,
                              unsigned revision) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "PCI\\VEN_%04X&DEV_%04X&SUBSYS_%04X%04X&REV_%02X", vendor & 0xFFFFu, device & 0xFFFFu,
                  subsystemDevice & 0xFFFFu, subsystemVendor & 0xFFFFu, revision & 0xFFu);
    return buf;
}

void CopyFixed(char* dst, size_t dstSize, const char* src) {
    if (!dst || dstSize == 0) return;
    if (!src) src = "";
    size_t n = std::strlen(src);
    if (n >= dstSize) n = dstSize - 1;
    std::memcpy(dst, src, n);
    dst[n] = '\0';
}

bool AdapterTable::Add(const DisplayDeviceRecord& d) {
    if (count_ > 0 && std::strncmp(rows_[count_ - 1].deviceString, d.string.c_str(), 127) == 0) return false;
    return Append(d);
}

bool AdapterTable::Append(const DisplayDeviceRecord& d) {
    if (count_ >= kMaxRows) return false;
    DisplayAdapterEntry& e = rows_[count_++];
    std::memset(&e, 0, sizeof e);
    CopyFixed(e.deviceName, sizeof e.deviceName, d.name.c_str());
    CopyFixed(e.deviceString, sizeof e.deviceString, d.string.c_str());
    CopyFixed(e.deviceId, sizeof e.deviceId, d.id.c_str());
    CopyFixed(e.deviceKey, sizeof e.deviceKey, d.key.c_str());
    return true;
}

}  // namespace ProbeGPU
