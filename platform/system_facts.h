// What the operating system tells about the machine, for the monitor's
// inventory: the CPU's name and speed and the installed memory as the
// system knows them, and the facts the operating-system name is made of.
// The monitor turns them into its texts (monitor/system_facts.h); only the
// asking is platform code.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

struct CpuSystemFacts {
    bool hasBrandName = false;  // the system names the CPU (else CPUID's brand string stands)
    std::string brandName;      // leading blanks removed
    int speedMHz = 0;           // rated where known, 0 unknown
    uint64_t memoryMB = 0;      // installed memory, 0 unknown
};
// Windows: the registry's description of processor 0 and the installed
// memory; Linux: /proc/cpuinfo (first processor), cpufreq's rated maximum,
// /proc/meminfo.
CpuSystemFacts ReadCpuSystemFacts();

struct OsNameFacts {
    bool windows = false;
    // Windows, as RtlGetVersion tells them (GetVersionEx lies to programs
    // without a manifest); versionKnown false when it could not be asked.
    bool versionKnown = false;
    unsigned major = 0, minor = 0, build = 0;
    unsigned platformId = 2;  // 1: the 9x line, 2: NT
    bool workstation = true;
    bool serverR2 = false;
    int bits = 32;  // 64 for a 64-bit program or a 32-bit one under Wow64
    std::string servicePack;
    // Linux: /etc/os-release's PRETTY_NAME ("" when missing) and the
    // kernel release ("" when uname fails).
    std::string prettyName;
    std::string kernelRelease;
};
OsNameFacts ReadOsNameFacts();

// A display device as the window system lists it (EnumDisplayDevices).
struct DisplayAdapterFacts {
    std::string name;         // "\\.\DISPLAY1"
    std::string description;  // the adapter's description
    std::string id;           // PnP device ID
    std::string key;          // the driver's registry key
};
// Display device number `index`; false past the last one, and always where
// the system keeps no such list (Linux: the monitor reads the kernel's view).
bool EnumDisplayAdapter(int index, DisplayAdapterFacts* out);

// The running kernel's release text ("6.1.0-18-amd64"); "" on Windows.
std::string KernelRelease();

}  // namespace platform
