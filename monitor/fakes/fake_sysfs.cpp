#include "monitor/fakes/fake_sysfs.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#if defined(_WIN32)
#include <process.h>
#define ARD_GETPID _getpid
#else
#include <unistd.h>
#define ARD_GETPID getpid
#endif

#include "monitor/fakes/test_env.h"
#include "monitor/sysfs.h"

namespace fs = std::filesystem;

namespace fakes {

namespace {
std::atomic<int> gCounter{0};

std::string Hex(uint32_t v, int digits) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%0*x\n", digits, v);
    return buf;
}
}  // namespace

FakeSysfs::FakeSysfs() {
    fs::path p = fs::temp_directory_path() /
                 ("ardentium-sysfs-" + std::to_string(ARD_GETPID()) + "-" + std::to_string(gCounter.fetch_add(1)));
    std::error_code ec;
    fs::remove_all(p, ec);
    fs::create_directories(p / "class" / "drm", ec);
    root_ = p.string();
    if (const char* prev = std::getenv(ProbeGPU::sysfs::kRootVariable)) {
        previousRoot_ = prev;
        hadPrevious_ = true;
    }
    SetEnv(ProbeGPU::sysfs::kRootVariable, root_.c_str());
}

FakeSysfs::~FakeSysfs() {
    SetEnv(ProbeGPU::sysfs::kRootVariable, hadPrevious_ ? previousRoot_.c_str() : nullptr);
    std::error_code ec;
    fs::remove_all(root_, ec);
}

void FakeSysfs::Write(const std::string& relative, const std::string& text) {
    fs::path p = fs::path(root_) / relative;
    std::error_code ec;
    fs::create_directories(p.parent_path(), ec);
    // Written beside and renamed over: a reader on the monitor thread sees
    // the old or the new value, never a half-written file (as with sysfs).
    fs::path tmp = p;
    tmp += ".new";
    {
        std::ofstream f(tmp, std::ios::binary | std::ios::trunc);
        f << text;
    }
    fs::rename(tmp, p, ec);
}

void FakeSysfs::Remove(const std::string& relative) {
    std::error_code ec;
    fs::remove_all(fs::path(root_) / relative, ec);
}

void FakeSysfs::WriteDevice(int card, const std::string& file, const std::string& text) {
    Write("class/drm/card" + std::to_string(card) + "/device/" + file, text);
}

void FakeSysfs::WriteHwmon(int card, const std::string& file, const std::string& text) {
    WriteDevice(card, "hwmon/hwmon" + std::to_string(card + 2) + "/" + file, text);
}

void FakeSysfs::AddCard(const FakeCard& c) {
    const int n = c.card;
    WriteDevice(n, "vendor", Hex(c.vendor, 4));
    WriteDevice(n, "device", Hex(c.device, 4));
    WriteDevice(n, "subsystem_vendor", Hex(c.subsystemVendor, 4));
    WriteDevice(n, "subsystem_device", Hex(c.subsystemDevice, 4));
    WriteDevice(n, "revision", Hex(c.revision, 2));
    std::string uevent;
    if (!c.driver.empty()) uevent += "DRIVER=" + c.driver + "\n";
    uevent += "PCI_CLASS=30000\n";
    if (!c.pciSlot.empty()) uevent += "PCI_SLOT_NAME=" + c.pciSlot + "\n";
    WriteDevice(n, "uevent", uevent);
    WriteDevice(n, "boot_vga", c.bootVga ? "1\n" : "0\n");
    if (c.hwmon) WriteHwmon(n, "name", c.driver + "\n");
    // The connector entries beside the card are not devices of their own.
    Write("class/drm/card" + std::to_string(n) + "-DP-1/status", "disconnected\n");
}

void FakeSysfs::FillAmdgpu(int card, int celsius, int busyPercent) {
    WriteDevice(card, "gpu_busy_percent", std::to_string(busyPercent) + "\n");
    WriteDevice(card, "mem_busy_percent", "12\n");
    WriteDevice(card, "mem_info_vram_total", "17163091968\n");
    WriteDevice(card, "mem_info_vram_used", "1073741824\n");
    WriteDevice(card, "pp_dpm_sclk", "0: 500Mhz\n1: 1500Mhz\n2: 2250Mhz *\n");
    WriteHwmon(card, "temp1_input", std::to_string(celsius * 1000) + "\n");
    WriteHwmon(card, "temp1_crit", "100000\n");
    WriteHwmon(card, "temp2_input", std::to_string((celsius + 12) * 1000) + "\n");
    WriteHwmon(card, "temp3_input", std::to_string((celsius + 6) * 1000) + "\n");
    WriteHwmon(card, "freq1_input", "2250000000\n");
    WriteHwmon(card, "freq2_input", "1000000000\n");
    WriteHwmon(card, "in0_input", "1150\n");
    WriteHwmon(card, "power1_average", "150000000\n");
    WriteHwmon(card, "power1_cap", "300000000\n");
    WriteHwmon(card, "fan1_input", "1450\n");
}

void FakeSysfs::FillI915(int card, int celsius, int mhz) {
    Write("class/drm/card" + std::to_string(card) + "/gt_act_freq_mhz", std::to_string(mhz) + "\n");
    WriteHwmon(card, "temp1_input", std::to_string(celsius * 1000) + "\n");
    WriteHwmon(card, "in0_input", "880\n");
    WriteHwmon(card, "energy1_input", "1000000\n");
    WriteHwmon(card, "power1_max", "190000000\n");
}

void FakeSysfs::FillNvidiaHwmon(int card, int celsius) {
    WriteHwmon(card, "name", "nouveau\n");
    WriteHwmon(card, "temp1_input", std::to_string(celsius * 1000) + "\n");
    WriteHwmon(card, "temp1_crit", "105000\n");
    WriteHwmon(card, "fan1_input", "1320\n");
    WriteHwmon(card, "power1_input", "95000000\n");
    WriteHwmon(card, "power1_cap", "190000000\n");
}

}  // namespace fakes

namespace fakes {

bool WriteTextFile(const std::string& path, const std::string& text) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f << text;
    return static_cast<bool>(f);
}

std::string ReadTextFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

std::string TempPath(const std::string& stem) {
    return (fs::temp_directory_path() /
            (stem + "-" + std::to_string(ARD_GETPID()) + "-" + std::to_string(gCounter.fetch_add(1))))
        .string();
}

}  // namespace fakes
