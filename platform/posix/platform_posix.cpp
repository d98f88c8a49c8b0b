// Linux implementation of the operating-system seams.
#include "platform/platform.h"

#include <SDL2/SDL.h>
#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#include <sched.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace platform {

SystemInfo GetSystemInfo() {
    SystemInfo info;
#if defined(__x86_64__)
    info.processorArchitecture = 9;  // the x64 value of the Windows numbering
#elif defined(__aarch64__)
    info.processorArchitecture = 12;
#else
    info.processorArchitecture = 0;
#endif
    long n = sysconf(_SC_NPROCESSORS_ONLN);
    info.numberOfProcessors = n > 0 ? static_cast<unsigned>(n) : 1u;
    // The processor level is the CPU family, as Windows reports it.
    if (FILE* f = std::fopen("/proc/cpuinfo", "r")) {
        char line[512];
        while (std::fgets(line, sizeof line, f)) {
            if (std::strncmp(line, "cpu family", 10) == 0) {
                const char* colon = std::strchr(line, ':');
                if (colon) info.processorLevel = std::atoi(colon + 1);
                break;
            }
        }
        std::fclose(f);
    }
    return info;
}

OsVersion GetOsVersion() {
    OsVersion v;
    v.family = "Linux";
    struct utsname u;
    if (uname(&u) == 0) {
        unsigned a = 0, b = 0, c = 0;
        std::sscanf(u.release, "%u.%u.%u", &a, &b, &c);
        v.major = a;
        v.minor = b;
        v.build = c;
    }
    return v;
}

std::string ExecutablePath() {
    std::vector<char> buf(PATH_MAX + 1, '\0');
    ssize_t n = readlink("/proc/self/exe", buf.data(), PATH_MAX);
    if (n <= 0) return std::string();
    return std::string(buf.data(), static_cast<size_t>(n));
}

std::string FolderOf(const std::string& path) {
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return std::string();
    return path.substr(0, slash + 1);
}

std::string ResolvePath(const std::string& base, const std::string& path) {
    if (path.empty() || path[0] == '/' || base.empty()) return path;
    return base.back() == '/' ? base + path : base + "/" + path;
}

bool SetCurrentDir(const std::string& dir) { return !dir.empty() && chdir(dir.c_str()) == 0; }

std::string CurrentDir() {
    std::vector<char> buf(PATH_MAX + 1, '\0');
    if (!getcwd(buf.data(), buf.size())) return std::string();
    return std::string(buf.data());
}

void MakeProcessDpiAware() {}

void TuneMemoryAllocator() {
    // Setting the threshold also stops glibc from raising it each time a
    // large block is freed, which is what lets those blocks pile up.
    mallopt(M_MMAP_THRESHOLD, 64 * 1024);
}
void InitCommonControls() {}

void ReleaseDisplay() {
    if (SDL_WasInit(0)) SDL_Quit();
}

bool UnderWine() { return false; }

bool HasDisplay() {
    const char* x = std::getenv("DISPLAY");
    const char* w = std::getenv("WAYLAND_DISPLAY");
    return (x && *x) || (w && *w);
}

void ShowMessageBox(BoxKind kind, const char* caption, const char* text) {
    if (HasDisplay()) {
        Uint32 flags = kind == BoxKind::Error ? SDL_MESSAGEBOX_ERROR : SDL_MESSAGEBOX_INFORMATION;
        if (SDL_ShowSimpleMessageBox(flags, caption, text, nullptr) == 0) return;
    }
    std::fprintf(stderr, "%s: %s\n", caption, text);
    std::fflush(stderr);
}

void WriteConsole(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void WriteStandardError(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

bool WriteFileReplacing(const std::string& path, const std::string& bytes, std::string* reason) {
    const std::string temp = path + ".tmp-" + std::to_string(getpid());
    const int fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        *reason = std::strerror(errno);
        return false;
    }
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            *reason = n < 0 ? std::strerror(errno) : "nothing written";
            close(fd);
            unlink(temp.c_str());
            return false;
        }
        done += static_cast<size_t>(n);
    }
    // On disk before the rename, so a crash leaves the old file or the whole new one.
    if (fsync(fd) != 0 || close(fd) != 0) {
        *reason = std::strerror(errno);
        unlink(temp.c_str());
        return false;
    }
    if (rename(temp.c_str(), path.c_str()) != 0) {
        *reason = std::strerror(errno);
        unlink(temp.c_str());
        return false;
    }
    return true;
}

LibHandle LoadLib(const char* name) {
    if (!name) return nullptr;
    return dlopen(name, RTLD_NOW | RTLD_LOCAL);
}

void* LibSymbol(LibHandle lib, const char* name) { return lib ? dlsym(lib, name) : nullptr; }

void FreeLib(LibHandle lib) {
    if (lib) dlclose(lib);
}

std::string LibFileName(const char* base) { return std::string("lib") + base + ".so"; }

// Windows names its mappings freely; POSIX names start with one slash.
static std::string ShmName(const char* name) { return std::string("/") + name; }

bool SharedMemoryExists(const char* name) {
    int fd = shm_open(ShmName(name).c_str(), O_RDWR, 0);
    if (fd < 0) return false;
    close(fd);
    return true;
}

SharedMemoryView::~SharedMemoryView() { Close(); }

bool SharedMemoryView::Open(const char* name) {
    Close();
    int fd = shm_open(ShmName(name).c_str(), O_RDONLY, 0);
    if (fd < 0) return false;
    // Read, never map: a read of a block that shrank meanwhile is just short.
    struct stat st;
    if (fstat(fd, &st) == 0 && st.st_size > 0) {
        size_t want = static_cast<size_t>(st.st_size) < kMaxBytes ? static_cast<size_t>(st.st_size) : kMaxBytes;
        bytes_.resize(want);
        size_t got = 0;
        while (got < want) {
            ssize_t n = pread(fd, bytes_.data() + got, want - got, static_cast<off_t>(got));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            got += static_cast<size_t>(n);
        }
        bytes_.resize(got);
    }
    close(fd);
    return !bytes_.empty();
}

void SharedMemoryView::Close() { std::vector<unsigned char>().swap(bytes_); }

bool ReadRegistryDword(const char*, const char*, uint32_t*) { return false; }
bool ReadRegistryString(const char*, const char*, std::string*) { return false; }

bool EnumDisplayMode(int index, DisplayMode* mode) {
    if (!HasDisplay() || !mode || index < 0) return false;
    if (!SDL_WasInit(SDL_INIT_VIDEO) && SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) return false;
    SDL_DisplayMode m;
    if (SDL_GetDisplayMode(0, index, &m) != 0) return false;
    mode->width = m.w;
    mode->height = m.h;
    mode->bitsPerPixel = static_cast<int>(SDL_BITSPERPIXEL(m.format));
    mode->frequency = m.refresh_rate;
    return true;
}

uint32_t TickCountMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
    return static_cast<uint32_t>(static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u);
}

int64_t FineCounter() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC_RAW, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

int64_t FineCounterFrequency() { return 1000000000; }

double ThreadCpuSeconds() {
    struct timespec ts;
    if (clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts) != 0) return -1.0;
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

void SleepMs(unsigned ms) {
    if (ms == 0) {
        sched_yield();
        return;
    }
    SleepPrecise(ms / 1000.0);
}

void SleepPrecise(double seconds) {
    if (!(seconds > 0)) return;
    struct timespec ts;
    ts.tv_sec = static_cast<time_t>(seconds);
    ts.tv_nsec = static_cast<long>((seconds - static_cast<double>(ts.tv_sec)) * 1e9);
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

double SleepResolution() {
    // High-resolution timers: a sleep ends within some tens of microseconds
    // of its time, plus the scheduler's latency.
    return 0.0001;
}

void PinCurrentThreadToCpuMask(uint32_t mask) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int i = 0; i < 32; ++i)
        if (mask & (1u << i)) CPU_SET(i, &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

void NameThisThread(const char* name) {
    char shortName[16];
    std::snprintf(shortName, sizeof shortName, "%s", name);
    pthread_setname_np(pthread_self(), shortName);
}

void RememberUiThread() {}
void AttachInputToUiThread(bool) {}

LineFile::~LineFile() { Close(); }

bool LineFile::OpenTruncate(const char* path, std::string* reason) {
    Close();
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    fd_ = fd;
    if (fd < 0 && reason) *reason = std::strerror(errno);
    return fd >= 0;
}

bool LineFile::IsOpen() const { return fd_ >= 0; }

bool LineFile::Write(const char* data, size_t len, std::string* reason) {
    if (fd_ < 0) {
        if (reason) *reason = "the file is not open";
        return false;
    }
    while (len > 0) {
        ssize_t n = write(static_cast<int>(fd_), data, len);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (reason) *reason = n < 0 ? std::strerror(errno) : "nothing written";
            return false;
        }
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

void LineFile::Close() {
    if (fd_ >= 0) close(static_cast<int>(fd_));
    fd_ = -1;
}

const char* TextNewline() { return "\n"; }

bool FlushFileToDisk(std::FILE* f) {
    if (std::fflush(f) != 0) return false;
    return fsync(fileno(f)) == 0;
}

bool MoveFileOver(const std::string& from, const std::string& to, std::string* error) {
    if (std::rename(from.c_str(), to.c_str()) == 0) return true;
    if (error) *error = std::strerror(errno);
    return false;
}

bool StartProgram(const std::string& program, const std::string& arguments, const std::string& workingDir) {
    pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
        // A second fork leaves no zombie for the caller to reap.
        if (fork() != 0) _exit(0);
        if (!workingDir.empty() && chdir(workingDir.c_str()) != 0) _exit(127);
        execl(program.c_str(), program.c_str(), arguments.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace platform
