// CPU, memory and operating-system facts of the inventory.
#pragma once

#include <cstdint>
#include <string>

namespace ProbeGPU {

struct CpuInfo {
    int vendorClass = 3;  // 1 "GenuineIntel", 2 "AuthenticAMD", 3 other
    std::string vendorString;
    int family = 0, model = 0, stepping = 0;
    bool mmx = false, sse = false, sse2 = false, sse3 = false, ecxBit6 = false;
    std::string serial;  // "%04X-%04X-%04X-%04X-%04X-%04X"
    std::string brandName;
    int speedMHz = 0;
    int logicalCores = 1;
    uint64_t memoryMB = 0;  // installed system memory, 0 unknown
};

// CPUID, then the name and speed as the system knows them (registry on
// Windows, /proc/cpuinfo on Linux), then the installed memory; the asking
// is platform code (platform/system_facts.h).
CpuInfo QueryCpuInfo();
// Reads the CPUID part only (vendor, family, flags, serial, brand string).
void QueryCpuid(CpuInfo* info);

// The CPU vendor class of a CPUID vendor string.
int CpuVendorClass(const std::string& vendor);

struct WindowsVersionFacts {
    unsigned major = 0, minor = 0, build = 0;
    unsigned platformId = 2;  // 1: the 9x line, 2: NT
    bool workstation = true;  // VER_NT_WORKSTATION
    bool serverR2 = false;    // GetSystemMetrics(SM_SERVERR2)
    int bits = 32;
    std::string servicePack;  // "Service Pack 1", or empty
    std::string csd;          // the 9x line's CSD letter ("A", "B", "C")
};
// The operating-system name from the naming table.
std::string WindowsName(const WindowsVersionFacts& v);

// The operating-system name of this machine, made from the facts the
// platform reads.
std::string OperatingSystemName();

}  // namespace ProbeGPU
