#include "platform/system_facts.h"

#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace platform {

CpuSystemFacts ReadCpuSystemFacts() {
    CpuSystemFacts out;
    if (std::FILE* f = std::fopen("/proc/cpuinfo", "r")) {
        char line[512];
        while (std::fgets(line, sizeof line, f)) {
            const char* colon = std::strchr(line, ':');
            if (!colon) continue;
            std::string value = colon + 1;
            size_t s = value.find_first_not_of(" \t");
            value = s == std::string::npos ? std::string() : value.substr(s);
            while (!value.empty() && (value.back() == '\n' || value.back() == ' ')) value.pop_back();
            if (std::strncmp(line, "model name", 10) == 0 && !value.empty()) {
                out.hasBrandName = true;
                out.brandName = value;
            }
            if (std::strncmp(line, "cpu MHz", 7) == 0 && out.speedMHz == 0) {
                double mhz = std::atof(value.c_str());
                if (mhz > 0 && mhz < 100000) out.speedMHz = static_cast<int>(mhz + 0.5);
            }
            if (line[0] == '\n') break;  // first processor only
        }
        std::fclose(f);
    }
    // The rated speed where the kernel knows it: the current one drifts.
    if (std::FILE* f = std::fopen("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", "r")) {
        long khz = 0;
        if (std::fscanf(f, "%ld", &khz) == 1 && khz > 0 && khz < 100000000) out.speedMHz = static_cast<int>(khz / 1000);
        std::fclose(f);
    }
    if (std::FILE* f = std::fopen("/proc/meminfo", "r")) {
        char line[256];
        while (std::fgets(line, sizeof line, f)) {
            unsigned long long kb = 0;
            if (std::sscanf(line, "MemTotal: %llu kB", &kb) == 1) {
                out.memoryMB = kb >> 10;
                break;
            }
        }
        std::fclose(f);
    }
    return out;
}

OsNameFacts ReadOsNameFacts() {
    OsNameFacts out;
    if (std::FILE* f = std::fopen("/etc/os-release", "r")) {
        char line[512];
        while (std::fgets(line, sizeof line, f)) {
            if (std::strncmp(line, "PRETTY_NAME=", 12) == 0) {
                std::string pretty = line + 12;
                while (!pretty.empty() && (pretty.back() == '\n' || pretty.back() == '"')) pretty.pop_back();
                if (!pretty.empty() && pretty.front() == '"') pretty.erase(0, 1);
                out.prettyName = pretty;
                break;
            }
        }
        std::fclose(f);
    }
    out.kernelRelease = KernelRelease();
    out.bits = static_cast<int>(sizeof(void*) * 8);
    return out;
}

bool EnumDisplayAdapter(int, DisplayAdapterFacts*) { return false; }

std::string KernelRelease() {
    struct utsname u;
    return uname(&u) == 0 ? std::string(u.release) : std::string();
}

}  // namespace platform
