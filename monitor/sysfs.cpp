#include "monitor/sysfs.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

#include "monitor/complaints.h"
#include "monitor/pci_id.h"

namespace fs = std::filesystem;

namespace ProbeGPU {
namespace sysfs {

std::string Root() {
    const char* r = std::getenv(kRootVariable);
    return (r && *r) ? std::string(r) : std::string("/sys");
}

bool ReadSmallFile(const std::string& path, std::string* out, size_t maxBytes) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    std::string text;
    char buf[1024];
    bool ok = true;
    for (;;) {
        size_t n = std::fread(buf, 1, sizeof buf, f);
        if (n == 0) break;
        if (text.size() + n > maxBytes) {
            ok = false;
            break;
        }
        text.append(buf, n);
    }
    if (std::ferror(f)) ok = false;
    std::fclose(f);
    if (ok && out) *out = text;
    return ok;
}

namespace {
bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
}  // namespace

bool ParseDecimal(const std::string& text, int64_t* out) {
    size_t i = 0, n = text.size();
    while (i < n && IsSpace(text[i])) ++i;
    bool neg = false;
    if (i < n && (text[i] == '-' || text[i] == '+')) neg = text[i++] == '-';
    size_t digits = 0;
    uint64_t v = 0;
    while (i < n && text[i] >= '0' && text[i] <= '9') {
        if (v > (UINT64_C(1) << 62) / 10) return false;  // far beyond any sensor value
        v = v * 10 + static_cast<uint64_t>(text[i] - '0');
        ++i;
        ++digits;
    }
    if (digits == 0) return false;
    while (i < n && IsSpace(text[i])) ++i;
    if (i != n) return false;
    if (out) *out = neg ? -static_cast<int64_t>(v) : static_cast<int64_t>(v);
    return true;
}

bool ParseHexId(const std::string& text, uint32_t* out) {
    size_t i = 0, n = text.size();
    while (i < n && IsSpace(text[i])) ++i;
    if (i + 2 > n || text[i] != '0' || (text[i + 1] != 'x' && text[i + 1] != 'X')) return false;
    i += 2;
    uint32_t v = 0;
    size_t digits = 0;
    while (i < n && std::isxdigit(static_cast<unsigned char>(text[i]))) {
        if (++digits > 8) return false;
        char c = text[i++];
        v = (v << 4) | static_cast<uint32_t>(std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : (std::tolower(c) - 'a' + 10));
    }
    if (digits == 0) return false;
    while (i < n && IsSpace(text[i])) ++i;
    if (i != n) return false;
    if (out) *out = v;
    return true;
}

bool ParseKeyValue(const std::string& text, const char* key, std::string* out) {
    const size_t klen = std::strlen(key);
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        if (end - pos > klen && text.compare(pos, klen, key) == 0 && text[pos + klen] == '=') {
            std::string v = text.substr(pos + klen + 1, end - pos - klen - 1);
            while (!v.empty() && IsSpace(v.back())) v.pop_back();
            if (out) *out = v;
            return true;
        }
        pos = end + 1;
    }
    return false;
}

bool ParseDpmLevels(const std::string& text, DpmLevels* out) {
    DpmLevels levels;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(pos, end - pos);
        pos = end + 1;
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        // "N: 300Mhz" optionally followed by " *"
        unsigned index = 0, mhz = 0;
        char unit[8] = {0};
        int consumed = 0;
        if (std::sscanf(line.c_str(), "%u: %u%7[A-Za-z]%n", &index, &mhz, unit, &consumed) != 3) return false;
        if (index != levels.mhz.size() || mhz > 100000) return false;
        if (std::strcmp(unit, "Mhz") != 0 && std::strcmp(unit, "MHz") != 0) return false;
        std::string rest = line.substr(static_cast<size_t>(consumed));
        rest.erase(std::remove_if(rest.begin(), rest.end(), [](char c) { return IsSpace(c); }), rest.end());
        if (rest == "*") levels.current = static_cast<int>(index);
        else if (!rest.empty()) return false;
        levels.mhz.push_back(static_cast<int>(mhz));
        if (levels.mhz.size() > 64) return false;
    }
    if (levels.mhz.empty()) return false;
    if (out) *out = levels;
    return true;
}

bool ReadDecimal(const std::string& path, int64_t* out) {
    std::string text;
    return ReadSmallFile(path, &text, 64) && ParseDecimal(text, out);
}

std::string DrmDevice::pnpId() const {
    return FormatPnpIdString(vendor, device, subsystemVendor, subsystemDevice, revision);
}

namespace {

// "card" followed by digits only.
int CardNumber(const std::string& name) {
    if (name.size() < 5 || name.compare(0, 4, "card") != 0) return -1;
    int n = 0;
    for (size_t i = 4; i < name.size(); ++i) {
        if (name[i] < '0' || name[i] > '9' || n > 100000) return -1;
        n = n * 10 + (name[i] - '0');
    }
    return n;
}

bool ReadId(const std::string& dir, const char* file, uint32_t* out) {
    std::string text;
    return ReadSmallFile(dir + "/" + file, &text, 64) && ParseHexId(text, out);
}

std::string FirstHwmon(const std::string& deviceDir) {
    std::error_code ec;
    std::vector<std::pair<int, std::string>> found;
    for (fs::directory_iterator it(deviceDir + "/hwmon", ec), end; !ec && it != end; it.increment(ec)) {
        std::string name = it->path().filename().string();
        if (name.size() > 5 && name.compare(0, 5, "hwmon") == 0 &&
            name.find_first_not_of("0123456789", 5) == std::string::npos && name.size() < 12)
            found.emplace_back(std::atoi(name.c_str() + 5), it->path().string());
    }
    if (found.empty()) return std::string();
    std::sort(found.begin(), found.end());
    return found.front().second;
}

}  // namespace

std::vector<DrmDevice> EnumerateDrmDevices(const std::string& root) {
    std::vector<DrmDevice> devices;
    const std::string drm = root + "/class/drm";
    std::error_code ec;
    std::vector<std::pair<int, std::string>> cards;
    for (fs::directory_iterator it(drm, ec), end; !ec && it != end; it.increment(ec)) {
        std::string name = it->path().filename().string();
        int n = CardNumber(name);
        if (n >= 0) cards.emplace_back(n, drm + "/" + name);
        if (cards.size() > 256) break;  // no machine has that many; a looping tree does
    }
    std::sort(cards.begin(), cards.end());
    std::set<std::string> seen;
    for (const auto& c : cards) {
        DrmDevice d;
        d.card = c.first;
        d.cardDir = c.second;
        d.deviceDir = c.second + "/device";
        if (!ReadId(d.deviceDir, "vendor", &d.vendor) || !ReadId(d.deviceDir, "device", &d.device) || d.vendor > 0xFFFF ||
            d.device > 0xFFFF) {
            // Virtual display drivers have no PCI identity; only a device
            // that claims one and garbles it is worth a message.
            std::error_code e2;
            if (fs::exists(d.deviceDir + "/vendor", e2))
                ComplainOnce("sysfs-id:" + d.deviceDir,
                             "ProbeGPU: %s has no readable PCI vendor/device ID; the device is skipped.",
                             d.deviceDir.c_str());
            continue;
        }
        // Subsystem and revision are optional: kept at 0 when unreadable.
        if (!ReadId(d.deviceDir, "subsystem_vendor", &d.subsystemVendor) || d.subsystemVendor > 0xFFFF) d.subsystemVendor = 0;
        if (!ReadId(d.deviceDir, "subsystem_device", &d.subsystemDevice) || d.subsystemDevice > 0xFFFF) d.subsystemDevice = 0;
        if (!ReadId(d.deviceDir, "revision", &d.revision) || d.revision > 0xFF) d.revision = 0;
        std::string uevent;
        if (ReadSmallFile(d.deviceDir + "/uevent", &uevent)) {
            ParseKeyValue(uevent, "DRIVER", &d.driver);
            ParseKeyValue(uevent, "PCI_SLOT_NAME", &d.pciSlot);
        }
        std::string identity = d.pciSlot;
        if (identity.empty()) {
            std::error_code e3;
            fs::path canon = fs::canonical(d.deviceDir, e3);
            identity = e3 ? d.deviceDir : canon.string();
        }
        if (!seen.insert(identity).second) continue;  // a second card node of the same device
        d.hwmonDir = FirstHwmon(d.deviceDir);
        devices.push_back(d);
    }
    return devices;
}

}  // namespace sysfs

SysfsBackend::SysfsBackend(std::vector<sysfs::DrmDevice> devices)
    : devices_(std::move(devices)), energy_(devices_.size()) {}

const sysfs::DrmDevice* SysfsBackend::Dev(int gpu) const {
    if (gpu < 0 || gpu >= count()) return nullptr;
    return &devices_[static_cast<size_t>(gpu)];
}

namespace {

// Reads a decimal file; a file that exists but holds garbage or a value out
// of range is reported once and counts as a failed read.
bool ReadChecked(const std::string& path, int64_t* out, int64_t lo, int64_t hi) {
    std::string text;
    if (!sysfs::ReadSmallFile(path, &text, 64)) return false;
    int64_t v = 0;
    if (!sysfs::ParseDecimal(text, &v) || v < lo || v > hi) {
        std::string shown = text.substr(0, 32);
        for (char& c : shown)
            if (static_cast<unsigned char>(c) < 32 || static_cast<unsigned char>(c) > 126) c = '?';
        ComplainOnce("sysfs-value:" + path, "ProbeGPU: %s reads \"%s\", not a value in %lld..%lld; the reading is ignored.",
                     path.c_str(), shown.c_str(), static_cast<long long>(lo), static_cast<long long>(hi));
        return false;
    }
    *out = v;
    return true;
}

}  // namespace

bool SysfsBackend::Hwmon(int gpu, const char* file, int64_t* out, int64_t lo, int64_t hi) {
    const sysfs::DrmDevice* d = Dev(gpu);
    if (!d || d->hwmonDir.empty()) return false;
    return ReadChecked(d->hwmonDir + "/" + file, out, lo, hi);
}

bool SysfsBackend::Temperature(int gpu, TemperatureReading* out) {
    // Millidegrees; edge (temp1), junction (temp2) and memory (temp3) on
    // amdgpu. Intel's xe names its package sensor temp2 and has no temp1.
    const int64_t lo = -50000, hi = 200000;
    const sysfs::DrmDevice* d = Dev(gpu);
    if (!d || d->hwmonDir.empty()) return false;
    // The first sensor the driver has is the GPU's; a later one is read
    // only when the earlier ones do not exist, never in place of one that
    // exists but reads badly (the junction is not the edge temperature).
    int first = 0;
    for (int i = 1; i <= 4 && !first; ++i) {
        const std::string name = d->hwmonDir + "/temp" + std::to_string(i) + "_input";
        if (std::FILE* f = std::fopen(name.c_str(), "rb")) {
            std::fclose(f);
            first = i;
        }
    }
    if (!first) return false;
    int64_t edge = 0;
    char firstName[32];
    std::snprintf(firstName, sizeof firstName, "temp%d_input", first);
    if (!Hwmon(gpu, firstName, &edge, lo, hi)) return false;
    TemperatureReading r;
    r.celsius = static_cast<float>(edge) / 1000.0f;
    int64_t v = 0;
    char name[32];
    std::snprintf(name, sizeof name, "temp%d_crit", first);
    if (Hwmon(gpu, name, &v, lo, hi)) r.threshold = static_cast<int>(v / 1000);
    if (first == 1) {
        if (Hwmon(gpu, "temp2_input", &v, lo, hi)) r.hotspot = static_cast<int>(v / 1000);
        if (Hwmon(gpu, "temp3_input", &v, lo, hi)) r.memory = static_cast<int>(v / 1000);
    }
    *out = r;
    return true;
}

bool SysfsBackend::Usage(int gpu, int* load, int* memoryLoad) {
    const sysfs::DrmDevice* d = Dev(gpu);
    if (!d) return false;
    int64_t busy = 0;
    if (!ReadChecked(d->deviceDir + "/gpu_busy_percent", &busy, 0, 100)) return false;
    int64_t mem = -1;
    if (!ReadChecked(d->deviceDir + "/mem_busy_percent", &mem, 0, 100)) mem = -1;
    *load = static_cast<int>(busy);
    *memoryLoad = static_cast<int>(mem);
    return true;
}

bool SysfsBackend::MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) {
    const sysfs::DrmDevice* d = Dev(gpu);
    if (!d) return false;
    const int64_t maxBytes = INT64_C(1) << 50;
    int64_t total = 0, used = 0;
    if (!ReadChecked(d->deviceDir + "/mem_info_vram_total", &total, 1, maxBytes) ||
        !ReadChecked(d->deviceDir + "/mem_info_vram_used", &used, 0, maxBytes))
        return false;
    if (used > total) {
        ComplainOnce("sysfs-vram:" + d->deviceDir, "ProbeGPU: %s reports more video memory used than it has; ignored.",
                     d->deviceDir.c_str());
        return false;
    }
    *totalMB = static_cast<int>(total >> 20);
    *usedMB = static_cast<int>(used >> 20);
    *freeMB = static_cast<int>((total - used) >> 20);
    return true;
}

bool SysfsBackend::Fan(int gpu, int* value, int* isRpm) {
    int64_t v = 0;
    if (Hwmon(gpu, "fan1_input", &v, 0, 30000)) {
        *value = static_cast<int>(v);
        *isRpm = 1;
        return true;
    }
    if (Hwmon(gpu, "pwm1", &v, 0, 255)) {
        *value = static_cast<int>((v * 100 + 127) / 255);
        *isRpm = 0;
        return true;
    }
    return false;
}

bool SysfsBackend::Clocks(int gpu, ClockReading* out) {
    const sysfs::DrmDevice* d = Dev(gpu);
    if (!d) return false;
    ClockReading r;
    bool any = false;
    int64_t v = 0;
    // amdgpu: Hz in hwmon.
    if (Hwmon(gpu, "freq1_input", &v, 0, INT64_C(20000000000))) {
        r.coreMHz = static_cast<float>(v / 1000000.0);
        any = true;
    }
    if (Hwmon(gpu, "freq2_input", &v, 0, INT64_C(50000000000))) r.memoryMHz = static_cast<float>(v / 1000000.0);
    // i915: MHz beside the card; xe: MHz per GT.
    if (!any && ReadChecked(d->cardDir + "/gt_act_freq_mhz", &v, 0, 20000)) {
        r.coreMHz = static_cast<float>(v);
        any = true;
    }
    if (!any && ReadChecked(d->deviceDir + "/tile0/gt0/freq0/act_freq", &v, 0, 20000)) {
        r.coreMHz = static_cast<float>(v);
        any = true;
    }
    if (!any) return false;
    if (Hwmon(gpu, "in0_input", &v, 1, 3000)) r.voltage = static_cast<float>(v) / 1000.0f;
    std::string dpm;
    sysfs::DpmLevels levels;
    if (sysfs::ReadSmallFile(d->deviceDir + "/pp_dpm_sclk", &dpm) && sysfs::ParseDpmLevels(dpm, &levels) &&
        levels.current >= 0)
        // amdgpu counts its levels upward; P-states count the fastest as 0.
        r.performanceState = static_cast<int>(levels.mhz.size()) - 1 - levels.current;
    *out = r;
    return true;
}

bool SysfsBackend::Power(int gpu, int rail, int* percent, int* available) {
    if (rail != 0) return false;
    const int64_t maxMicrowatts = INT64_C(5000000000);  // 5 kW
    int64_t cap = 0;
    int64_t draw = 0;
    bool haveDraw = Hwmon(gpu, "power1_average", &draw, 0, maxMicrowatts) || Hwmon(gpu, "power1_input", &draw, 0, maxMicrowatts);
    if (haveDraw) {
        if (!Hwmon(gpu, "power1_cap", &cap, 1, maxMicrowatts)) return false;
    } else {
        // Intel: an energy counter against the sustained power limit.
        size_t i = static_cast<size_t>(gpu);
        if (i >= energy_.size()) return false;
        int64_t uj = 0;
        if (!Hwmon(gpu, "energy1_input", &uj, 0, INT64_MAX / 2)) return false;
        if (!Hwmon(gpu, "power1_max", &cap, 1, maxMicrowatts)) return false;
        auto now = std::chrono::steady_clock::now();
        EnergySample prev = energy_[i];
        energy_[i] = EnergySample{true, uj, now};
        if (!prev.valid || uj < prev.microjoules) return false;  // first sample, or the counter wrapped
        double seconds = std::chrono::duration<double>(now - prev.when).count();
        if (seconds < 0.01) return false;
        draw = static_cast<int64_t>(static_cast<double>(uj - prev.microjoules) / seconds);
    }
    int64_t pct = (draw * 100 + cap / 2) / cap;
    if (pct > 1000) {
        ComplainOnce("sysfs-power:" + devices_[static_cast<size_t>(gpu)].deviceDir,
                     "ProbeGPU: %s draws %lld uW against a cap of %lld uW; the power reading is ignored.",
                     devices_[static_cast<size_t>(gpu)].deviceDir.c_str(), static_cast<long long>(draw),
                     static_cast<long long>(cap));
        return false;
    }
    *percent = static_cast<int>(pct);
    *available = 1;
    return true;
}

bool SysfsBackend::Voltage(int gpu, float* volts) {
    int64_t mv = 0;
    if (!Hwmon(gpu, "in0_input", &mv, 1, 3000)) return false;
    *volts = static_cast<float>(mv) / 1000.0f;
    return true;
}

std::string SysfsBackend::DriverText(int gpu) {
    const sysfs::DrmDevice* d = Dev(gpu);
    return d ? d->driver : std::string();
}

}  // namespace ProbeGPU
