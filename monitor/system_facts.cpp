#include "monitor/system_facts.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#define ARD_HAVE_CPUID 1
#endif

#include "platform/system_facts.h"

namespace ProbeGPU {

int CpuVendorClass(const std::string& vendor) {
    if (vendor == "GenuineIntel") return 1;
    if (vendor == "AuthenticAMD") return 2;
    return 3;
}

void QueryCpuid(CpuInfo* info) {
#if defined(ARD_HAVE_CPUID)
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(0, &a, &b, &c, &d)) return;
    unsigned maxLeaf = a;
    char vendor[13];
    std::memcpy(vendor, &b, 4);
    std::memcpy(vendor + 4, &d, 4);
    std::memcpy(vendor + 8, &c, 4);
    vendor[12] = '\0';
    info->vendorString = vendor;
    info->vendorClass = CpuVendorClass(info->vendorString);
    unsigned sig = 0;
    if (maxLeaf >= 1 && __get_cpuid(1, &a, &b, &c, &d)) {
        sig = a;
        int family = (a >> 8) & 0xF, model = (a >> 4) & 0xF;
        if (family == 0xF) family += (a >> 20) & 0xFF;
        if (family == 0x6 || family >= 0xF) model += ((a >> 16) & 0xF) << 4;
        info->family = family;
        info->model = model;
        info->stepping = a & 0xF;
        info->mmx = (d >> 23) & 1;
        info->sse = (d >> 25) & 1;
        info->sse2 = (d >> 26) & 1;
        info->sse3 = c & 1;
        info->ecxBit6 = (c >> 6) & 1;
    }
    // Processor serial numbers were switched off after the Pentium III; the
    // text is made from the signature and, where leaf 3 answers, its words.
    unsigned s3c = 0, s3d = 0;
    if (maxLeaf >= 3 && __get_cpuid(3, &a, &b, &c, &d)) {
        s3c = c;
        s3d = d;
    }
    char serial[40];
    std::snprintf(serial, sizeof serial, "%04X-%04X-%04X-%04X-%04X-%04X", sig >> 16, sig & 0xFFFF, s3d >> 16, s3d & 0xFFFF,
                  s3c >> 16, s3c & 0xFFFF);
    info->serial = serial;
    unsigned maxExt = __get_cpuid_max(0x80000000u, nullptr);
    if (maxExt >= 0x80000004u) {
        char brand[49];
        for (unsigned leaf = 0; leaf < 3; ++leaf) {
            __get_cpuid(0x80000002u + leaf, &a, &b, &c, &d);
            std::memcpy(brand + leaf * 16, &a, 4);
            std::memcpy(brand + leaf * 16 + 4, &b, 4);
            std::memcpy(brand + leaf * 16 + 8, &c, 4);
            std::memcpy(brand + leaf * 16 + 12, &d, 4);
        }
        brand[48] = '\0';
        const char* p = brand;
        while (*p == ' ') ++p;
        info->brandName = p;
    }
#else
    (void)info;
#endif
}

CpuInfo QueryCpuInfo() {
    CpuInfo info;
    QueryCpuid(&info);
    unsigned hw = std::thread::hardware_concurrency();
    info.logicalCores = hw > 0 ? static_cast<int>(hw) : 1;
    platform::CpuSystemFacts sys = platform::ReadCpuSystemFacts();
    if (sys.hasBrandName) info.brandName = sys.brandName;
    info.speedMHz = sys.speedMHz;
    info.memoryMB = sys.memoryMB;
    return info;
}

std::string WindowsName(const WindowsVersionFacts& v) {
    char buf[256];
    const char* sp = v.servicePack.empty() ? "No Service Pack" : v.servicePack.c_str();
    if (v.platformId == 1) {  // the 9x line
        if (v.major == 4 && v.minor == 0) {
            if (v.csd == "B") return v.build >= 1212 ? (v.build >= 1214 ? "Windows 95 OSR2.5" : "Windows 95 OSR2.1") : "Windows 95 OSR2";
            if (v.csd == "C") return "Windows 95 OSR2.5";
            return "Windows 95";
        }
        if (v.major == 4 && v.minor == 10) {
            if (v.csd == "A") return "Windows 98 SE";
            return v.build > 1998 ? "Windows 98 SP1" : "Windows 98";
        }
        if (v.major == 4 && v.minor == 90) return "Windows Me";
        return "Windows 3.1";
    }
    if (v.platformId == 0) return "Windows 3.1";
    if (v.major == 3) {
        std::snprintf(buf, sizeof buf, "Windows NT3.x build %u [%s]", v.build, sp);
        return buf;
    }
    if (v.major == 4) {
        std::snprintf(buf, sizeof buf, "Windows NT4.x build %u [%s]", v.build, sp);
        return buf;
    }
    const char* name = nullptr;
    if (v.major == 5 && v.minor == 0) name = "Windows 2000";
    else if (v.major == 5 && v.minor == 1) name = "Windows XP";
    else if (v.major == 5 && v.minor == 2) name = !v.workstation ? (v.serverR2 ? "Windows Server 2003 R2" : "Windows Server 2003") : "Windows XP";
    else if (v.major == 6 && v.minor == 0) name = v.workstation ? "Windows Vista" : "Windows Server 2008";
    else if (v.major == 6 && v.minor == 1) name = v.workstation ? "Windows 7" : "Windows Server 2008 R2";
    else if (v.major == 6 && v.minor == 2) name = v.workstation ? "Windows 8" : "Windows Server 2012";
    if (name) {
        std::snprintf(buf, sizeof buf, "%s %d-bit build %u [%s]", name, v.bits, v.build, sp);
        return buf;
    }
    if (v.major == 6 && v.minor == 3) {
        std::snprintf(buf, sizeof buf, "%s %d-bit build %u", v.workstation ? "Windows 8.1" : "Windows 8.1 Server", v.bits, v.build);
        return buf;
    }
    if (v.major > 6 || (v.major == 6 && v.minor > 3)) {
        std::snprintf(buf, sizeof buf, "Windows post-Win8 %d-bit ver.%u.%u build %u", v.bits, v.major, v.minor, v.build);
        return buf;
    }
    std::snprintf(buf, sizeof buf, "Windows post-XP %d-bit ver.%u.%u build %u [%s]", v.bits, v.major, v.minor, v.build, sp);
    return buf;
}

std::string OperatingSystemName() {
    platform::OsNameFacts f = platform::ReadOsNameFacts();
    if (f.windows) {
        if (!f.versionKnown) return "Windows";
        WindowsVersionFacts v;
        v.major = f.major;
        v.minor = f.minor;
        v.build = f.build;
        v.platformId = f.platformId;
        v.workstation = f.workstation;
        v.serverR2 = f.serverR2;
        v.servicePack = f.servicePack;
        v.bits = f.bits;
        return WindowsName(v);
    }
    std::string pretty = f.prettyName.empty() ? std::string("Linux") : f.prettyName;
    if (f.kernelRelease.empty()) return pretty;
    char buf[512];
    std::snprintf(buf, sizeof buf, "%s %d-bit kernel %s", pretty.c_str(), f.bits, f.kernelRelease.c_str());
    return buf;
}

}  // namespace ProbeGPU
