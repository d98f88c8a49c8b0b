#include "platform/system_facts.h"

#include <windows.h>

#include <cstring>

#include "platform/platform.h"

namespace platform {

CpuSystemFacts ReadCpuSystemFacts() {
    CpuSystemFacts out;
    std::string name;
    if (ReadRegistryString("HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", "ProcessorNameString", &name)) {
        size_t start = name.find_first_not_of(' ');
        out.hasBrandName = true;
        out.brandName = start == std::string::npos ? std::string() : name.substr(start);
    }
    uint32_t mhz = 0;
    if (ReadRegistryDword("HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", "~MHz", &mhz) && mhz < 100000)
        out.speedMHz = static_cast<int>(mhz);
    // Looked up at run time: older systems lack it.
    LibHandle k32 = LoadLib("kernel32.dll");
    using InstalledFn = BOOL(WINAPI*)(PULONGLONG);
    auto installed = reinterpret_cast<InstalledFn>(LibSymbol(k32, "GetPhysicallyInstalledSystemMemory"));
    ULONGLONG kb = 0;
    if (installed && installed(&kb) && kb > 0) {
        out.memoryMB = kb >> 10;
    } else {
        MEMORYSTATUSEX ms;
        ms.dwLength = sizeof ms;
        if (GlobalMemoryStatusEx(&ms)) out.memoryMB = ms.ullTotalPhys >> 20;
    }
    FreeLib(k32);
    return out;
}

OsNameFacts ReadOsNameFacts() {
    OsNameFacts out;
    out.windows = true;
    struct OsVersionInfoExW {
        ULONG size, major, minor, build, platform;
        WCHAR csd[128];
        USHORT spMajor, spMinor, suiteMask;
        UCHAR productType, reserved;
    } osv;
    std::memset(&osv, 0, sizeof osv);
    osv.size = sizeof osv;
    LibHandle ntdll = LoadLib("ntdll.dll");
    using RtlGetVersionFn = LONG(WINAPI*)(OsVersionInfoExW*);
    auto rtl = reinterpret_cast<RtlGetVersionFn>(LibSymbol(ntdll, "RtlGetVersion"));
    bool known = rtl && rtl(&osv) == 0;
    FreeLib(ntdll);
    if (!known) return out;
    out.versionKnown = true;
    out.major = osv.major;
    out.minor = osv.minor;
    out.build = osv.build;
    out.platformId = osv.platform;
    out.workstation = osv.productType == 1;
    out.serverR2 = GetSystemMetrics(89 /* SM_SERVERR2 */) != 0;
    char sp[128] = {0};
    WideCharToMultiByte(CP_ACP, 0, osv.csd, -1, sp, sizeof sp - 1, nullptr, nullptr);
    out.servicePack = sp;
    out.bits = sizeof(void*) == 8 ? 64 : 32;
    if (out.bits == 32) {
        using IsWow64Fn = BOOL(WINAPI*)(HANDLE, PBOOL);
        LibHandle k32 = LoadLib("kernel32.dll");
        auto isWow64 = reinterpret_cast<IsWow64Fn>(LibSymbol(k32, "IsWow64Process"));
        BOOL wow = FALSE;
        if (isWow64 && isWow64(GetCurrentProcess(), &wow) && wow) out.bits = 64;
        FreeLib(k32);
    }
    return out;
}

bool EnumDisplayAdapter(int index, DisplayAdapterFacts* out) {
    DISPLAY_DEVICEA dd;
    std::memset(&dd, 0, sizeof dd);
    dd.cb = sizeof dd;
    if (!EnumDisplayDevicesA(nullptr, static_cast<DWORD>(index), &dd, 0)) return false;
    out->name = dd.DeviceName;
    out->description = dd.DeviceString;
    out->id = dd.DeviceID;
    out->key = dd.DeviceKey;
    return true;
}

std::string KernelRelease() { return std::string(); }

}  // namespace platform
