// Tests of the operating-system seams. The same file runs natively on Linux
// and, built for Windows, under Wine; expectations that differ between the two
// are spelled out per platform.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#undef WriteConsole  // windows.h's alias would hide platform::WriteConsole
#else
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace {

#ifdef _WIN32
const char kSep = '\\';
unsigned long ProcessId() { return GetCurrentProcessId(); }
#else
const char kSep = '/';
unsigned long ProcessId() { return static_cast<unsigned long>(getpid()); }
#endif

// A name no other process uses: tests of one build may run side by side.
std::string UniqueName(const char* what) {
    std::ostringstream s;
    s << "ardentium-test-" << what << '-' << ProcessId();
    return s.str();
}

std::string TempPath(const char* what) {
#ifdef _WIN32
    char dir[MAX_PATH + 1] = {0};
    DWORD n = GetTempPathA(MAX_PATH, dir);
    std::string base = (n > 0 && n <= MAX_PATH) ? std::string(dir, n) : std::string(".\\");
#else
    const char* env = std::getenv("TMPDIR");
    std::string base = (env && *env) ? std::string(env) + "/" : std::string("/tmp/");
#endif
    return base + UniqueName(what) + ".txt";
}

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string StripTrailingSeparator(std::string path) {
    while (path.size() > 1 && (path.back() == '/' || path.back() == '\\')) {
#ifdef _WIN32
        if (path.size() == 3 && path[1] == ':') break;  // "C:\" is a folder of its own
#endif
        path.pop_back();
    }
    return path;
}

// Restores the working folder whatever a test does to it.
class CurrentDirGuard {
public:
    CurrentDirGuard() : saved_(platform::CurrentDir()) {}
    ~CurrentDirGuard() { platform::SetCurrentDir(saved_); }
    const std::string& saved() const { return saved_; }

private:
    std::string saved_;
};

// ------------------------------------------------------------------ paths

TEST(FolderOf, KeepsTheFolderWithItsSeparator) {
#ifdef _WIN32
    EXPECT_EQ("C:\\Program Files\\Ardentium\\", platform::FolderOf("C:\\Program Files\\Ardentium\\ardentium.exe"));
    EXPECT_EQ("C:/games/ardentium/", platform::FolderOf("C:/games/ardentium/ardentium.exe"));
    EXPECT_EQ("Z:\\work\\build-win\\", platform::FolderOf("Z:\\work\\build-win\\platform_tests.exe"));
    EXPECT_EQ("C:\\", platform::FolderOf("C:\\ardentium.exe"));
    EXPECT_EQ("\\\\server\\share\\bin\\", platform::FolderOf("\\\\server\\share\\bin\\ardentium.exe"));
    EXPECT_EQ("C:", platform::FolderOf("C:ardentium.exe"));
#else
    EXPECT_EQ("/usr/local/bin/", platform::FolderOf("/usr/local/bin/ardentium"));
    EXPECT_EQ("/", platform::FolderOf("/ardentium"));
    EXPECT_EQ("build/bin/", platform::FolderOf("build/bin/ardentium"));
    EXPECT_EQ("/opt/Ardentium 2.6/", platform::FolderOf("/opt/Ardentium 2.6/ardentium"));
#endif
    EXPECT_EQ("", platform::FolderOf("ardentium"));
    EXPECT_EQ("", platform::FolderOf(""));
}

TEST(FolderOf, HandlesFoldersOfAnyLength) {
    // Installations in deep folders must still find their data.
    std::string folder;
#ifdef _WIN32
    folder = "C:";
#endif
    for (int i = 0; i < 12; ++i) folder += std::string(1, kSep) + "a-rather-long-folder-name";
    folder += kSep;
    ASSERT_GT(folder.size(), 300u);
    EXPECT_EQ(folder, platform::FolderOf(folder + "ardentium.exe"));
}

TEST(ExecutablePath, NamesThisTestProgram) {
    std::string exe = platform::ExecutablePath();
    ASSERT_FALSE(exe.empty());
    EXPECT_NE(std::string::npos, exe.find("platform_tests"));
    std::string folder = platform::FolderOf(exe);
    ASSERT_FALSE(folder.empty());
    EXPECT_EQ(0u, exe.compare(0, folder.size(), folder));
#ifdef _WIN32
    EXPECT_EQ(':', exe[1]) << exe;
#else
    EXPECT_EQ('/', exe[0]) << exe;
#endif
    std::ifstream in(exe, std::ios::binary);
    EXPECT_TRUE(in.good()) << "the executable path does not open: " << exe;
}

TEST(CurrentDir, RoundTripsThroughSetCurrentDir) {
    CurrentDirGuard guard;
    ASSERT_FALSE(guard.saved().empty());

    std::string folder = platform::FolderOf(platform::ExecutablePath());
    ASSERT_TRUE(platform::SetCurrentDir(folder)) << folder;
    EXPECT_EQ(StripTrailingSeparator(folder), StripTrailingSeparator(platform::CurrentDir()));

    ASSERT_TRUE(platform::SetCurrentDir(guard.saved()));
    EXPECT_EQ(guard.saved(), platform::CurrentDir());
}

TEST(CurrentDir, RefusesMissingFolders) {
    CurrentDirGuard guard;
    EXPECT_FALSE(platform::SetCurrentDir(""));
    EXPECT_FALSE(platform::SetCurrentDir(guard.saved() + kSep + UniqueName("missing-folder")));
    EXPECT_EQ(guard.saved(), platform::CurrentDir());
}

// -------------------------------------------------------------- log files

class LineFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
        path_ = TempPath(info->name());
        std::remove(path_.c_str());
    }
    void TearDown() override { std::remove(path_.c_str()); }
    void Put(platform::LineFile& f, const std::string& line) { f.Write(line.data(), line.size()); }
    std::string path_;
};

TEST_F(LineFileTest, WritesWholeLines) {
    platform::LineFile f;
    EXPECT_FALSE(f.IsOpen());
    ASSERT_TRUE(f.OpenTruncate(path_.c_str()));
    EXPECT_TRUE(f.IsOpen());
    Put(f, "first line\n");
    Put(f, "second line\n");
    f.Close();
    EXPECT_FALSE(f.IsOpen());
    EXPECT_EQ("first line\nsecond line\n", ReadAll(path_));
}

TEST_F(LineFileTest, ReopeningTruncates) {
    {
        platform::LineFile f;
        ASSERT_TRUE(f.OpenTruncate(path_.c_str()));
        Put(f, "from the last run, which was much longer\n");
    }
    platform::LineFile f;
    ASSERT_TRUE(f.OpenTruncate(path_.c_str()));
    EXPECT_EQ("", ReadAll(path_));
    Put(f, "new\n");
    f.Close();
    EXPECT_EQ("new\n", ReadAll(path_));
}

TEST_F(LineFileTest, OthersReadWhileItIsOpen) {
    platform::LineFile f;
    ASSERT_TRUE(f.OpenTruncate(path_.c_str()));
    Put(f, "visible at once\n");
    // No buffering in the program: a reader sees each line as soon as it is written.
    EXPECT_EQ("visible at once\n", ReadAll(path_));
    Put(f, "and the next\n");
    EXPECT_EQ("visible at once\nand the next\n", ReadAll(path_));
}

TEST_F(LineFileTest, LinesOfOtherWritersAreNotOverwritten) {
    platform::LineFile f;
    ASSERT_TRUE(f.OpenTruncate(path_.c_str()));
    Put(f, "ours 1\n");
    {
        std::FILE* other = std::fopen(path_.c_str(), "ab");
        ASSERT_NE(nullptr, other) << "the file cannot be opened for writing while open";
        std::fputs("theirs\n", other);
        std::fclose(other);
    }
    Put(f, "ours 2\n");
    f.Close();
    EXPECT_EQ("ours 1\ntheirs\nours 2\n", ReadAll(path_));
}

TEST_F(LineFileTest, ThreadsWritingAtOnceLoseNoLine) {
    const int kThreads = 4, kLines = 500;
    {
        platform::LineFile f;
        ASSERT_TRUE(f.OpenTruncate(path_.c_str()));
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&f, t] {
                char line[64];
                for (int i = 0; i < kLines; ++i) {
                    int n = std::snprintf(line, sizeof line, "thread %d line %03d end\n", t, i);
                    f.Write(line, static_cast<size_t>(n));
                }
            });
        }
        for (std::thread& th : threads) th.join();
    }
    std::istringstream in(ReadAll(path_));
    std::set<std::string> seen;
    std::string line;
    while (std::getline(in, line)) {
        ASSERT_EQ(0u, line.find("thread ")) << "torn line: " << line;
        ASSERT_EQ(line.size() - 4, line.rfind(" end")) << "torn line: " << line;
        seen.insert(line);
    }
    EXPECT_EQ(static_cast<size_t>(kThreads * kLines), seen.size());
}

TEST_F(LineFileTest, FailsQuietlyWhereItCannotOpen) {
    std::string bad = TempPath("no-such-folder") + kSep + "log.txt";
    platform::LineFile f;
    EXPECT_FALSE(f.OpenTruncate(bad.c_str()));
    EXPECT_FALSE(f.IsOpen());
    Put(f, "dropped\n");  // writing to a closed file does nothing
    f.Close();
}

TEST(TextNewline, MatchesThePlatform) {
#ifdef _WIN32
    EXPECT_STREQ("\r\n", platform::TextNewline());
#else
    EXPECT_STREQ("\n", platform::TextNewline());
#endif
}

// ------------------------------------------------------ dynamic libraries

TEST(LoadLib, MissingLibraryGivesNull) {
    std::string name = platform::LibFileName(UniqueName("missing-library").c_str());
    platform::LibHandle lib = platform::LoadLib(name.c_str());
    EXPECT_EQ(nullptr, lib);
    EXPECT_EQ(nullptr, platform::LibSymbol(lib, "anything"));
    platform::FreeLib(lib);  // harmless
    EXPECT_EQ(nullptr, platform::LoadLib(nullptr));
}

TEST(LoadLib, FindsSymbolsOfASystemLibrary) {
#ifdef _WIN32
    const char* libc = "msvcrt.dll";
#else
    const char* libc = "libc.so.6";
#endif
    platform::LibHandle lib = platform::LoadLib(libc);
    ASSERT_NE(nullptr, lib) << libc;
    void* sym = platform::LibSymbol(lib, "strlen");
    ASSERT_NE(nullptr, sym);
    // It is the real function, not just some address.
    typedef size_t (*StrlenFn)(const char*);
    StrlenFn fn = reinterpret_cast<StrlenFn>(sym);
    EXPECT_EQ(9u, fn("ardentium"));
    EXPECT_EQ(nullptr, platform::LibSymbol(lib, "ardentium_no_such_symbol"));
    platform::FreeLib(lib);
}

TEST(LibFileName, UsesThePlatformConvention) {
#ifdef _WIN32
    EXPECT_EQ("adata.dll", platform::LibFileName("adata"));
#else
    EXPECT_EQ("libadata.so", platform::LibFileName("adata"));
#endif
}

// ----------------------------------------------------------- shared memory

// A named block as another program would publish it.
class OwnBlock {
public:
    OwnBlock(const std::string& name, size_t size) : name_(name), size_(size) {
#ifdef _WIN32
        handle_ = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(size),
                                     name.c_str());
        if (handle_) data_ = MapViewOfFile(handle_, FILE_MAP_ALL_ACCESS, 0, 0, size);
#else
        std::string shm = "/" + name;
        int fd = shm_open(shm.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600);
        if (fd >= 0) {
            if (ftruncate(fd, static_cast<off_t>(size)) == 0) {
                void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
                if (p != MAP_FAILED) data_ = p;
            }
            close(fd);
        }
#endif
    }
    ~OwnBlock() {
#ifdef _WIN32
        if (data_) UnmapViewOfFile(data_);
        if (handle_) CloseHandle(handle_);
#else
        if (data_) munmap(data_, size_);
        shm_unlink(("/" + name_).c_str());
#endif
    }
    unsigned char* data() { return static_cast<unsigned char*>(data_); }

private:
    std::string name_;
    size_t size_;
    void* data_ = nullptr;
#ifdef _WIN32
    HANDLE handle_ = nullptr;
#endif
};

TEST(SharedMemory, MissingBlock) {
    std::string name = UniqueName("missing-block");
    EXPECT_FALSE(platform::SharedMemoryExists(name.c_str()));
    platform::SharedMemoryView view;
    EXPECT_FALSE(view.Open(name.c_str()));
    EXPECT_EQ(nullptr, view.data());
    EXPECT_EQ(0u, view.size());
}

TEST(SharedMemory, ViewsABlockOfAnotherProgram) {
    // Not a multiple of the page size: the view may be larger, never smaller.
    const size_t size = 10000;
    std::string name = UniqueName("block");
    platform::SharedMemoryView view;
    {
        OwnBlock block(name, size);
        ASSERT_NE(nullptr, block.data());
        for (size_t i = 0; i < size; ++i) block.data()[i] = static_cast<unsigned char>(i * 7 + 1);

        EXPECT_TRUE(platform::SharedMemoryExists(name.c_str()));
        ASSERT_TRUE(view.Open(name.c_str()));
        ASSERT_NE(nullptr, view.data());
        EXPECT_GE(view.size(), size);
        const unsigned char* seen = static_cast<const unsigned char*>(view.data());
        EXPECT_EQ(0, std::memcmp(seen, block.data(), size));

        // A copy, not a live view: later writes show only after opening again.
        const unsigned char before = seen[size - 1];
        block.data()[size - 1] = static_cast<unsigned char>(before + 1);
        EXPECT_EQ(before, seen[size - 1]);
        ASSERT_TRUE(view.Open(name.c_str()));
        EXPECT_EQ(static_cast<unsigned char>(before + 1), static_cast<const unsigned char*>(view.data())[size - 1]);

        view.Close();
        EXPECT_EQ(nullptr, view.data());
        EXPECT_EQ(0u, view.size());
        ASSERT_TRUE(view.Open(name.c_str())) << "a view can be opened again after Close";
    }
    // The copy outlives the owner's block...
    EXPECT_GE(view.size(), size);
    view.Close();
    // ...and once nobody holds the block, it is gone by name.
    EXPECT_FALSE(platform::SharedMemoryExists(name.c_str()));
}

#ifndef _WIN32
// Another program may shrink its block at any time (POSIX allows it; a
// Windows section keeps its size). Reading what was copied before must not
// fault, and the next copy holds what is left.
TEST(SharedMemory, BlockThatShrinksIsNeverReadPastItsEnd) {
    const size_t size = 3 * 4096;
    std::string name = UniqueName("shrinking");
    OwnBlock block(name, size);
    ASSERT_NE(nullptr, block.data());
    std::memset(block.data(), 0x5A, size);
    platform::SharedMemoryView view;
    ASSERT_TRUE(view.Open(name.c_str()));
    ASSERT_EQ(size, view.size());

    int fd = shm_open(("/" + name).c_str(), O_RDWR, 0);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(0, ftruncate(fd, 100));
    EXPECT_EQ(0x5A, static_cast<const unsigned char*>(view.data())[size - 1]);  // a mapping would fault here
    ASSERT_TRUE(view.Open(name.c_str()));
    EXPECT_EQ(100u, view.size());
    ASSERT_EQ(0, ftruncate(fd, 0));
    EXPECT_FALSE(view.Open(name.c_str())) << "an emptied block reads as not present";
    EXPECT_EQ(nullptr, view.data());
    close(fd);
}
#endif

// ----------------------------------------------------------------- clocks

TEST(TickCountMs, NeverGoesBackwards) {
    uint32_t last = platform::TickCountMs();
    for (int i = 0; i < 100000; ++i) {
        uint32_t now = platform::TickCountMs();
        // Differences are taken modulo 2^32: the counter may wrap.
        ASSERT_LT(now - last, 0x80000000u) << "went back from " << last << " to " << now;
        last = now;
    }
}

TEST(TickCountMs, FollowsRealTime) {
    uint32_t start = platform::TickCountMs();
    std::this_thread::sleep_for(std::chrono::milliseconds(120));
    uint32_t elapsed = platform::TickCountMs() - start;
    // The counter is coarse (up to ~16 ms a step on Windows).
    EXPECT_GE(elapsed, 100u);
    EXPECT_LT(elapsed, 10000u);
}

TEST(FineCounter, MeasuresASleep) {
    const int64_t frequency = platform::FineCounterFrequency();
    ASSERT_GE(frequency, 1000) << "finer than milliseconds";
    int64_t start = platform::FineCounter();
    platform::SleepMs(50);
    int64_t elapsed = platform::FineCounter() - start;
    EXPECT_GE(elapsed * 1000 / frequency, 49) << "SleepMs(50) slept less than asked";
    EXPECT_LT(elapsed * 1000 / frequency, 10000);

    int64_t before = platform::FineCounter();
    platform::SleepMs(0);  // yields, returns
    EXPECT_GE(platform::FineCounter(), before);
}

// --------------------------------------------------------------- registry

TEST(Registry, MissingKeyOrValueReadsFalse) {
    uint32_t value = 12345;
    std::string key = "SOFTWARE\\Ardentium\\" + UniqueName("missing-key");
    EXPECT_FALSE(platform::ReadRegistryDword(key.c_str(), "Value", &value));
    EXPECT_EQ(12345u, value) << "the output must stay untouched";
    std::string text = "untouched";
    EXPECT_FALSE(platform::ReadRegistryString(key.c_str(), "Value", &text));
    EXPECT_EQ("untouched", text);
    EXPECT_FALSE(platform::ReadRegistryDword("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion",
                                             "ArdentiumNoSuchValue", &value));
    EXPECT_EQ(12345u, value);
}

#ifdef _WIN32
TEST(Registry, ReadsValuesOfTheRightType) {
    std::string product;
    EXPECT_TRUE(platform::ReadRegistryString("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "ProductName", &product));
    EXPECT_FALSE(product.empty());

    uint32_t value = 0;
    EXPECT_TRUE(platform::ReadRegistryDword("SYSTEM\\CurrentControlSet\\Control\\Windows", "CSDVersion", &value));

    // A short text value ("6.1" or "6.3": four bytes with its terminator) is
    // no number, however well it fits.
    value = 12345;
    EXPECT_FALSE(platform::ReadRegistryDword("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "CurrentVersion", &value));
    EXPECT_EQ(12345u, value);
}
#else
TEST(Registry, NeverReadsWithoutARegistry) {
    uint32_t value = 7;
    EXPECT_FALSE(platform::ReadRegistryDword("SYSTEM\\CurrentControlSet\\Control\\Windows", "CSDVersion", &value));
    EXPECT_EQ(7u, value);
    std::string text = "kept";
    EXPECT_FALSE(platform::ReadRegistryString("SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "ProductName", &text));
    EXPECT_EQ("kept", text);
}
#endif

// ---------------------------------------------------------- display modes

TEST(EnumDisplayMode, NegativeIndexIsNoMode) {
    // -1 is also the system's "current settings" request; it must not leak through.
    platform::DisplayMode mode;
    mode.width = 1;
    EXPECT_FALSE(platform::EnumDisplayMode(-1, &mode));
    EXPECT_EQ(1, mode.width);
    EXPECT_FALSE(platform::EnumDisplayMode(0, nullptr));
}

TEST(EnumDisplayMode, ModesThatExistArePlausible) {
    platform::DisplayMode mode;
    if (!platform::EnumDisplayMode(0, &mode)) {
#ifndef _WIN32
        EXPECT_FALSE(platform::HasDisplay()) << "a display without a single mode";
#endif
        GTEST_SKIP() << "no display modes here";
    }
    EXPECT_GT(mode.width, 0);
    EXPECT_GT(mode.height, 0);
    EXPECT_GT(mode.bitsPerPixel, 0);
}

// ------------------------------------------------------------ system facts

TEST(SystemInfo, DescribesThisMachine) {
    platform::SystemInfo info = platform::GetSystemInfo();
    EXPECT_GE(info.numberOfProcessors, 1u);
#if defined(__x86_64__) || defined(_M_X64)
    EXPECT_EQ(9, info.processorArchitecture);
#endif
    platform::OsVersion v = platform::GetOsVersion();
    EXPECT_GT(v.major, 0u);
}

TEST(WriteConsole, WritesToStandardOutput) {
    ::testing::internal::CaptureStdout();
    platform::WriteConsole("usage: ardentium [options]\n");
    std::fflush(stdout);
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, out.find("usage: ardentium [options]")) << out;
}

TEST(ShowMessageBox, WithoutADisplayGoesToStandardError) {
    if (platform::HasDisplay()) GTEST_SKIP() << "a display is present; a box would wait for a click";
    ::testing::internal::CaptureStderr();
    platform::ShowMessageBox(platform::BoxKind::Error, "Ardentium", "no display here");
    std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, err.find("Ardentium: no display here")) << err;
}

}  // namespace
