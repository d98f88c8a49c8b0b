#include "monitor/bridges.h"

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <cmath>
#include <limits>
#include <thread>

#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "monitor/fakes/blocks.h"
#include "monitor/fakes/test_env.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace monitor {
namespace {

using fakes::MakeGpuzBlock;
using fakes::MakeVthmBlock;
using fakes::MemoryBlockSource;
using fakes::VthmLayout;
using fakes::VthmSource;

std::unique_ptr<BlockSource> Blocks(std::vector<std::vector<unsigned char>> script) {
    return std::unique_ptr<BlockSource>(new MemoryBlockSource(std::move(script)));
}

TEST(VthmRules, GpuNumbers) {
    EXPECT_EQ(vthm::GpuNumberOf("GPU1 temperature"), 1);
    EXPECT_EQ(vthm::GpuNumberOf("GPU8 core clock"), 8);
    EXPECT_EQ(vthm::GpuNumberOf("GPU9 core clock"), 0);
    EXPECT_EQ(vthm::GpuNumberOf("CPU temperature"), 0);
    // Tested in order: "GPU1" is found before "GPU2".
    EXPECT_EQ(vthm::GpuNumberOf("GPU2 minus GPU1"), 1);
}

TEST(VthmRules, ClassificationInOrder) {
    EXPECT_EQ(vthm::SlotOf("GPU1 temperature"), vthm::kTemperature);
    EXPECT_EQ(vthm::SlotOf("PCB temperature"), vthm::kPcbTemperature);
    EXPECT_EQ(vthm::SlotOf("CPU temperature"), -1);
    EXPECT_EQ(vthm::SlotOf("GPU2 usage"), vthm::kUsage);
    EXPECT_EQ(vthm::SlotOf("GPU2 memory usage"), vthm::kMemoryUsage);
    EXPECT_EQ(vthm::SlotOf("Memory usage"), vthm::kMemoryUsage);
    EXPECT_EQ(vthm::SlotOf("CPU usage"), -1);
    EXPECT_EQ(vthm::SlotOf("Fan speed"), vthm::kFanSpeed);
    EXPECT_EQ(vthm::SlotOf("fan speed"), vthm::kFanSpeed);
    EXPECT_EQ(vthm::SlotOf("Core clock"), vthm::kCoreClock);
    EXPECT_EQ(vthm::SlotOf("core clock"), vthm::kCoreClock);
    EXPECT_EQ(vthm::SlotOf("Memory clock"), vthm::kMemoryClock);
    EXPECT_EQ(vthm::SlotOf("Shader clock"), vthm::kShaderClock);
    EXPECT_EQ(vthm::SlotOf("Framerate"), -1);
    // A memory usage entry is caught by the usage rule before the memory clock rule.
    EXPECT_EQ(vthm::SlotOf("Memory clock usage"), vthm::kMemoryUsage);
}

class Vthm : public ::testing::Test {
protected:
    void SetUp() override { ProbeGPU::ResetComplaints(); }
    CapturedEvents events;
};

TEST_F(Vthm, CountsAndReadsTwoGpus) {
    auto block = MakeVthmBlock({{"GPU1 temperature", "C", 61.0f},
                                {"GPU2 temperature", "C", 55.0f},
                                {"GPU2 usage", "%", 97.0f},
                                {"GPU2 memory usage", "MB", 2048.0f},
                                {"GPU1 core clock", "MHz", 1050.0f},
                                {"GPU2 core clock", "MHz", 1100.0f},
                                {"GPU2 memory clock", "MHz", 1500.0f},
                                {"GPU2 shader clock", "MHz", 2200.0f},
                                {"GPU1 fan speed", "%", 45.0f},
                                {"PCB temperature", "C", 48.0f},
                                {"GPU3 core clock", "MHz", vthm::kNoData}});
    VthmBridge b(Blocks({block}));
    ASSERT_TRUE(b.ConnectVthm());
    ASSERT_TRUE(b.CountVthmGpus());
    EXPECT_EQ(b.gpuCount(), 2);  // the GPU3 entry has no data and does not count
    b.AllocateGpuArray();
    ASSERT_TRUE(b.ReadVthm());
    EXPECT_FLOAT_EQ(b.Value(0, vthm::kTemperature), 61.0f);
    EXPECT_FLOAT_EQ(b.Value(1, vthm::kTemperature), 55.0f);
    EXPECT_FLOAT_EQ(b.Value(1, vthm::kUsage), 97.0f);
    EXPECT_FLOAT_EQ(b.Value(1, vthm::kMemoryUsage), 2048.0f);
    EXPECT_FLOAT_EQ(b.Value(1, vthm::kMemoryClock), 1500.0f);  // not overwritten by the memory usage entry
    EXPECT_FLOAT_EQ(b.Value(0, vthm::kFanSpeed), 45.0f);
    EXPECT_FLOAT_EQ(b.Value(0, vthm::kPcbTemperature), 48.0f);  // no GPU named: index 0
    EXPECT_FLOAT_EQ(b.publishedCoreClock(), 1100.0f);
    EXPECT_FLOAT_EQ(b.publishedMemoryClock(), 1500.0f);
    EXPECT_FLOAT_EQ(b.publishedShaderClock(), 2200.0f);
    EXPECT_TRUE(events.lines().empty());
}

TEST_F(Vthm, ATieOfCoreClocksPublishesTheFirstGpu) {
    auto block = MakeVthmBlock({{"GPU1 core clock", "MHz", 1000.0f},
                                {"GPU1 memory clock", "MHz", 1200.0f},
                                {"GPU2 core clock", "MHz", 1000.0f},
                                {"GPU2 memory clock", "MHz", 1400.0f}});
    VthmBridge b(Blocks({block}));
    ASSERT_TRUE(b.ConnectVthm());
    ASSERT_TRUE(b.CountVthmGpus());
    b.AllocateGpuArray();
    ASSERT_TRUE(b.ReadVthm());
    EXPECT_FLOAT_EQ(b.publishedMemoryClock(), 1200.0f);
}

TEST_F(Vthm, NoPositiveClockPublishesGpu0) {
    auto block = MakeVthmBlock({{"GPU1 memory clock", "MHz", 900.0f}, {"GPU2 memory clock", "MHz", 1400.0f}});
    VthmBridge b(Blocks({block}));
    ASSERT_TRUE(b.ConnectVthm());
    ASSERT_TRUE(b.CountVthmGpus());
    b.AllocateGpuArray();
    ASSERT_TRUE(b.ReadVthm());
    EXPECT_FLOAT_EQ(b.publishedCoreClock(), 0.0f);
    EXPECT_FLOAT_EQ(b.publishedMemoryClock(), 900.0f);
}

TEST_F(Vthm, WithoutAnArrayTheEntriesAreListed) {
    auto block = MakeVthmBlock({{"GPU1 temperature", "C", 61.5f}, {"Framerate", "FPS", vthm::kNoData}, {"Framerate", "FPS", 144.0f}});
    VthmBridge b(Blocks({block}));
    ASSERT_TRUE(b.ConnectVthm());
    ASSERT_TRUE(b.ReadVthm());
    ASSERT_EQ(events.lines().size(), 2u);
    EXPECT_EQ(events.lines()[0], "VTHM - Source 0: name=GPU1 temperature, units=C, value=61.500");
    EXPECT_EQ(events.lines()[1], "VTHM - Source 1: name=Framerate, units=FPS, value=144.000");
}

TEST_F(Vthm, NoViewNoRead) {
    VthmBridge b(Blocks({}));
    EXPECT_FALSE(b.IsVthmPresent());
    EXPECT_FALSE(b.ConnectVthm());
    EXPECT_FALSE(b.CountVthmGpus());
    EXPECT_FALSE(b.ReadVthm());
    EXPECT_TRUE(events.lines().empty());
}

TEST_F(Vthm, ADeadBlockIsReconnectedOnce) {
    VthmLayout dead;
    dead.signature = vthm::kDead;
    auto good = MakeVthmBlock({{"GPU1 core clock", "MHz", 900.0f}});
    auto deadBlock = MakeVthmBlock({{"GPU1 core clock", "MHz", 900.0f}}, dead);
    auto* source = new MemoryBlockSource({deadBlock, good});
    VthmBridge b{std::unique_ptr<BlockSource>(source)};
    ASSERT_TRUE(b.ConnectVthm());
    ASSERT_TRUE(b.CountVthmGpus());
    EXPECT_EQ(source->opens(), 2);
    EXPECT_EQ(events.lines(), std::vector<std::string>{"VTHM: memory is marked as dead. Trying to connect again..."});
}

TEST_F(Vthm, AStillDeadBlockFailsTheSignatureTest) {
    VthmLayout dead;
    dead.signature = vthm::kDead;
    auto deadBlock = MakeVthmBlock({{"GPU1 core clock", "MHz", 900.0f}}, dead);
    VthmBridge b(Blocks({deadBlock, deadBlock}));
    ASSERT_TRUE(b.ConnectVthm());
    EXPECT_FALSE(b.ReadVthm());
    EXPECT_EQ(events.lines(), (std::vector<std::string>{"VTHM: memory is marked as dead. Trying to connect again...",
                                                        "Failed to read VTHM data. Unknown error..."}));
}

TEST_F(Vthm, ADeadBlockThatCannotBeReopened) {
    struct OnceSource : MemoryBlockSource {
        using MemoryBlockSource::MemoryBlockSource;
        bool Open(const char* n) override { return ++calls == 1 && MemoryBlockSource::Open(n); }
        int calls = 0;
    };
    VthmLayout dead;
    dead.signature = vthm::kDead;
    VthmBridge b{std::unique_ptr<BlockSource>(new OnceSource(std::vector<std::vector<unsigned char>>{MakeVthmBlock({}, dead)}))};
    ASSERT_TRUE(b.ConnectVthm());
    EXPECT_FALSE(b.CountVthmGpus());
    EXPECT_EQ(events.lines(), (std::vector<std::string>{"VTHM: memory is marked as dead. Trying to connect again...",
                                                        "Failed to connect to VTHM."}));
    EXPECT_FALSE(b.connected());
}

TEST_F(Vthm, AForeignSignatureIsRefused) {
    VthmLayout other;
    other.signature = 0x12345678;
    VthmBridge b(Blocks({MakeVthmBlock({{"GPU1 core clock", "MHz", 900.0f}}, other)}));
    ASSERT_TRUE(b.ConnectVthm());
    EXPECT_FALSE(b.CountVthmGpus());
    EXPECT_EQ(events.lines(), std::vector<std::string>{"Failed to read VTHM data. Unknown error..."});
}

// Blocks whose header lies about what they hold: never read past the mapping.
struct Lie {
    const char* what;
    VthmLayout layout;
};

class VthmLies : public Vthm, public ::testing::WithParamInterface<Lie> {};

TEST_P(VthmLies, AreRejectedWithTheErrorLine) {
    std::vector<VthmSource> sources = {{"GPU1 core clock", "MHz", 900.0f}, {"GPU1 memory clock", "MHz", 1200.0f}};
    VthmBridge b(Blocks({MakeVthmBlock(sources, GetParam().layout)}));
    ASSERT_TRUE(b.ConnectVthm());
    EXPECT_FALSE(b.CountVthmGpus());
    b.AllocateGpuArray();
    EXPECT_FALSE(b.ReadVthm());
    ASSERT_GE(events.lines().size(), 2u);
    EXPECT_EQ(events.lines()[0], "Failed to read VTHM data. Unknown error...");
    EXPECT_EQ(events.lines().back(), "Failed to read VTHM data. Unknown error...");
    EXPECT_FLOAT_EQ(b.Value(0, vthm::kCoreClock), 0.0f);
}

Lie MakeLie(const char* what, int64_t headerSize, int64_t entrySize, int64_t count, size_t truncate) {
    Lie l;
    l.what = what;
    l.layout.statedHeaderSize = headerSize;
    l.layout.statedEntrySize = entrySize;
    l.layout.statedCount = count;
    l.layout.truncate = truncate;
    return l;
}

INSTANTIATE_TEST_SUITE_P(
    Headers, VthmLies,
    ::testing::Values(MakeLie("more entries than fit", -1, -1, 3, 0), MakeLie("a huge entry count", -1, -1, 0xFFFFFFFF, 0),
                      MakeLie("a block cut short", -1, -1, -1, 100),
                      MakeLie("entries too small for their value", -1, 1000, -1, 0),
                      MakeLie("a header past the block", 0x7FFFFFF0, -1, -1, 0),
                      MakeLie("a header smaller than itself", 8, -1, -1, 0),
                      MakeLie("count times size overflowing", -1, 0x80000000LL, 2, 0),
                      MakeLie("a header at the very end", 32 + 2 * 1324, -1, -1, 0)),
    [](const ::testing::TestParamInfo<Lie>& info) {
        std::string n = info.param.what;
        for (char& c : n)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return n;
    });

TEST_F(Vthm, ATooShortMappingIsRefused) {
    VthmBridge b(Blocks({std::vector<unsigned char>{'M', 'H', 'T', 'V', 0, 0}}));
    ASSERT_TRUE(b.ConnectVthm());
    EXPECT_FALSE(b.CountVthmGpus());
    EXPECT_EQ(events.lines()[0], "Failed to read VTHM data. Unknown error...");
}

TEST_F(Vthm, TextsWithoutTerminatorsAndNonsenseValues) {
    std::vector<unsigned char> block = MakeVthmBlock({{"GPU1 core clock", "MHz", 900.0f}, {"GPU1 fan speed", "%", 0.0f}});
    // Fill the first name and units with no terminator at all.
    std::memset(block.data() + 32, 'A', 260);
    std::memset(block.data() + 32 + 260, 'B', 260);
    float nan = std::numeric_limits<float>::quiet_NaN();
    std::memcpy(block.data() + 32 + 1324 + 1300, &nan, 4);
    VthmBridge b(Blocks({block}));
    ASSERT_TRUE(b.ConnectVthm());
    ASSERT_TRUE(b.ReadVthm());
    ASSERT_EQ(events.lines().size(), 1u);  // the NaN entry is skipped
    EXPECT_EQ(events.lines()[0], "VTHM - Source 0: name=" + std::string(259, 'A') + ", units=" + std::string(259, 'B') + ", value=900.000");
}

TEST(Gpuz, FindsItsSensorsAndReadsThem) {
    // Names that only start like, or are the start of, a sought one come
    // first and must not match.
    auto block = MakeGpuzBlock({{"VDDC Current (in)", "A", 9.0},
                                {"GPU Temperatur", "C", 1.0},
                                {"GPU Temperature", "C", 64.5},
                                {"GPU Core Clock", "MHz", 1215.0},
                                {"GPU Core Clock", "MHz", 999.0},
                                {"VDDC", "V", 1.187},
                                {"GPU Memory Clock", "MHz", 1752.0}});
    GpuzBridge g(Blocks({block}));
    ASSERT_TRUE(g.OpenGpuzMemory());
    EXPECT_TRUE(g.available());
    EXPECT_EQ(g.sensorIndex(gpuz::kTemperature), 2);
    EXPECT_EQ(g.sensorIndex(gpuz::kCoreClock), 3);  // the first match is kept
    EXPECT_EQ(g.sensorIndex(gpuz::kVddc), 5);
    EXPECT_EQ(g.sensorIndex(gpuz::kVddcCurrent), -1);
    double v = 0;
    ASSERT_TRUE(g.SensorValue(gpuz::kCoreClock, &v));
    EXPECT_DOUBLE_EQ(v, 1215.0);
    ASSERT_TRUE(g.SensorValue(gpuz::kMemoryClock, &v));
    EXPECT_DOUBLE_EQ(v, 1752.0);
    EXPECT_FALSE(g.SensorValue(gpuz::kVddcCurrent, &v));
    EXPECT_EQ(g.SensorName(5), "VDDC");
}

TEST(Gpuz, SmallOrMissingBlocksClearTheFlag) {
    ProbeGPU::ResetComplaints();
    CapturedEvents events;
    auto small = MakeGpuzBlock({{"GPU Core Clock", "MHz", 1215.0}});
    small.resize(gpuz::kBlockSize - 1);
    GpuzBridge g(Blocks({MakeGpuzBlock({{"GPU Core Clock", "MHz", 1215.0}}), small}));
    ASSERT_TRUE(g.OpenGpuzMemory());
    EXPECT_FALSE(g.OpenGpuzMemory());
    EXPECT_FALSE(g.available());
    double v = 0;
    EXPECT_FALSE(g.SensorValue(gpuz::kCoreClock, &v));
    EXPECT_EQ(events.lines().size(), 1u);
    GpuzBridge none(Blocks({}));
    EXPECT_FALSE(none.OpenGpuzMemory());
}

TEST(Gpuz, NonFiniteValuesAndUnterminatedNamesAreHarmless) {
    auto block = MakeGpuzBlock({{"GPU Core Clock", "MHz", std::numeric_limits<double>::infinity()}});
    // A name that fills its whole field with no terminator.
    for (size_t k = 0; k < gpuz::kKeyChars; ++k) {
        uint16_t c = 'Z';
        std::memcpy(block.data() + gpuz::kSensorsOffset + gpuz::kSensorRecordSize + k * 2, &c, 2);
    }
    GpuzBridge g(Blocks({block}));
    ASSERT_TRUE(g.OpenGpuzMemory());
    double v = 0;
    EXPECT_FALSE(g.SensorValue(gpuz::kCoreClock, &v));
    EXPECT_EQ(g.SensorName(1), std::string(gpuz::kKeyChars, 'Z'));
    EXPECT_EQ(g.SensorName(128), "");
}

TEST(Tachyra, WithoutItsRegistryKeyNothingIsStarted) {
    CapturedEvents events;
    EXPECT_FALSE(VthmBridge::StartTachyra());
    EXPECT_EQ(events.lines(), (std::vector<std::string>{"VTHM: trying to start VXA Tachyra...", "VTHM: not found in registry."}));
}

// The system's own shared memory, as the tools publish it.
class SystemSharedMemory : public ::testing::Test {
protected:
    // Names of this test run only: ctest runs tests side by side.
    std::string vthmName = "ArdTestVTHM" + std::to_string(static_cast<unsigned long>(std::hash<std::string>()(fakes::TempPath("n"))));
    std::string gpuzName = vthmName + "GPUZ";
    bool Publish(const char* name, const std::vector<unsigned char>& bytes) {
#if defined(_WIN32)
        handle_ = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(bytes.size()), name);
        if (!handle_) return false;
        void* p = MapViewOfFile(handle_, FILE_MAP_ALL_ACCESS, 0, 0, bytes.size());
        if (!p) return false;
        std::memcpy(p, bytes.data(), bytes.size());
        UnmapViewOfFile(p);
        return true;
#else
        name_ = std::string("/") + name;
        int fd = shm_open(name_.c_str(), O_CREAT | O_RDWR, 0600);
        if (fd < 0) return false;
        bool ok = ftruncate(fd, static_cast<off_t>(bytes.size())) == 0 &&
                  write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
        close(fd);
        return ok;
#endif
    }
    void TearDown() override {
#if defined(_WIN32)
        if (handle_) CloseHandle(handle_);
#else
        if (!name_.empty()) shm_unlink(name_.c_str());
#endif
    }
#if defined(_WIN32)
    HANDLE handle_ = nullptr;
#else
    std::string name_;
#endif
};

TEST_F(SystemSharedMemory, TheVthmBridgeReadsTheRealMapping) {
    ProbeGPU::ResetComplaints();
    CapturedEvents events;
    VthmBridge b(SystemBlockSource(), vthmName);
    EXPECT_FALSE(b.IsVthmPresent());
    ASSERT_TRUE(Publish(vthmName.c_str(), MakeVthmBlock({{"GPU1 core clock", "MHz", 1234.0f}, {"GPU1 temperature", "C", 70.0f}})));
    EXPECT_TRUE(b.IsVthmPresent());
    ASSERT_TRUE(b.ConnectVthm());
    ASSERT_TRUE(b.CountVthmGpus());
    b.AllocateGpuArray();
    ASSERT_TRUE(b.ReadVthm());
    EXPECT_FLOAT_EQ(b.Value(0, vthm::kCoreClock), 1234.0f);
    EXPECT_FLOAT_EQ(b.Value(0, vthm::kTemperature), 70.0f);
}

TEST_F(SystemSharedMemory, ALyingRealBlockIsRefused) {
    ProbeGPU::ResetComplaints();
    CapturedEvents events;
    VthmBridge b(SystemBlockSource(), vthmName);
    VthmLayout lie;
    lie.statedCount = 5000;
    ASSERT_TRUE(Publish(vthmName.c_str(), MakeVthmBlock({{"GPU1 core clock", "MHz", 1234.0f}}, lie)));
    ASSERT_TRUE(b.ConnectVthm());
    EXPECT_FALSE(b.ReadVthm());
    EXPECT_EQ(events.lines()[0], "Failed to read VTHM data. Unknown error...");
}

TEST_F(SystemSharedMemory, TheGpuzBridgeCopiesTheRealMapping) {
    ASSERT_TRUE(Publish(gpuzName.c_str(), MakeGpuzBlock({{"GPU Temperature", "C", 58.0}})));
    GpuzBridge g(SystemBlockSource(), gpuzName);
    ASSERT_TRUE(g.OpenGpuzMemory());
    double v = 0;
    ASSERT_TRUE(g.SensorValue(gpuz::kTemperature, &v));
    EXPECT_DOUBLE_EQ(v, 58.0);
}

// The publisher program the build makes, run as the tools would run. Every
// step can take seconds on a loaded machine, and more under Wine (starting a
// process above all), so the publisher is given far longer than the reads
// need and is stopped when they are done, never left to run out first.
class PublisherProcess {
public:
    PublisherProcess(std::string vthmName, std::string gpuzName)
        : vthmName_(std::move(vthmName)), gpuzName_(std::move(gpuzName)) {}
    PublisherProcess(const PublisherProcess&) = delete;
    PublisherProcess& operator=(const PublisherProcess&) = delete;
    ~PublisherProcess() { Stop(); }

    bool Start(const std::vector<std::string>& args) {
#if defined(_WIN32)
        std::string cmd;
        for (const std::string& a : args) cmd += (cmd.empty() ? "\"" : " \"") + a + "\"";
        STARTUPINFOA si;
        std::memset(&si, 0, sizeof si);
        si.cb = sizeof si;
        std::vector<char> line(cmd.begin(), cmd.end());
        line.push_back('\0');
        if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi_)) return false;
        started_ = true;
        return true;
#else
        std::vector<std::string> copy = args;
        std::vector<char*> argv;
        for (auto& a : copy) argv.push_back(&a[0]);
        argv.push_back(nullptr);
        started_ = posix_spawn(&pid_, copy[0].c_str(), nullptr, nullptr, argv.data(), environ) == 0;
        return started_;
#endif
    }

    // True while it runs (and so still publishes).
    bool Running() {
        if (!started_) return false;
#if defined(_WIN32)
        return WaitForSingleObject(pi_.hProcess, 0) == WAIT_TIMEOUT;
#else
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) != pid_) return true;
        started_ = false;  // reaped: it ended by itself
        return false;
#endif
    }

    void Stop() {
        if (!started_) return;
        started_ = false;
#if defined(_WIN32)
        TerminateProcess(pi_.hProcess, 0);
        WaitForSingleObject(pi_.hProcess, 30000);
        CloseHandle(pi_.hThread);
        CloseHandle(pi_.hProcess);
#else
        kill(pid_, SIGTERM);
        int status = 0;
        waitpid(pid_, &status, 0);
        // Stopped by a signal, it could not remove its blocks itself.
        shm_unlink(("/" + vthmName_).c_str());
        shm_unlink(("/" + gpuzName_).c_str());
#endif
    }

private:
    std::string vthmName_, gpuzName_;
    bool started_ = false;
#if defined(_WIN32)
    PROCESS_INFORMATION pi_{};
#else
    pid_t pid_ = 0;
#endif
};

TEST(ShmPublisher, PublishesBlocksTheBridgesRead) {
    const std::string ready = fakes::TempPath("publisher-ready");
    // The path's process number repeats between runs under Wine: a ready
    // file left by an earlier run would let the reads start before the
    // publisher is up.
    std::remove(ready.c_str());
    ASSERT_FALSE(std::ifstream(ready)) << ready;
    const std::string exe = std::string(ARD_FAKES_DIR) + "/monitor_shm_publisher" +
#if defined(_WIN32)
                            ".exe";
#else
                            "";
#endif
    // Names of this run only, for the same reason.
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    const std::string suffix =
        "Test" + std::to_string(static_cast<unsigned long>(std::hash<std::string>()(ready + std::to_string(now))));
    const std::string vthmName = std::string(vthm::kName) + suffix;
    const std::string gpuzName = std::string(gpuz::kName) + suffix;
    PublisherProcess publisher(vthmName, gpuzName);
    ASSERT_TRUE(publisher.Start({exe, "--seconds", "120", "--gpus", "2", "--suffix", suffix, "--ready", ready}));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!std::ifstream(ready) && publisher.Running() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(std::ifstream(ready)) << "the publisher did not say it was ready within 60 s"
                                      << (publisher.Running() ? "" : "; it has ended");
    std::remove(ready.c_str());

    VthmBridge b(SystemBlockSource(), vthmName);
    ASSERT_TRUE(b.ConnectVthm());
    ASSERT_TRUE(b.CountVthmGpus());
    EXPECT_EQ(b.gpuCount(), 2);
    b.AllocateGpuArray();
    ASSERT_TRUE(b.ReadVthm());
    EXPECT_GE(b.Value(1, vthm::kTemperature), 52.0f);
    EXPECT_GT(b.publishedCoreClock(), 1700.0f);
    GpuzBridge g(SystemBlockSource(), gpuzName);
    ASSERT_TRUE(g.OpenGpuzMemory());
    double v = 0;
    EXPECT_TRUE(g.SensorValue(gpuz::kCoreClock, &v));
    EXPECT_GE(v, 1500.0);
    // It published all along: nothing above read a block it had left.
    EXPECT_TRUE(publisher.Running());
}

}  // namespace
}  // namespace monitor
