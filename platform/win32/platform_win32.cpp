// Windows implementation of the operating-system seams.
#include "platform/platform.h"

#include <windows.h>
#include <commctrl.h>

// windows.h maps WriteConsole to WriteConsoleA; without this the function
// below would be defined as platform::WriteConsoleA, and callers that do not
// include windows.h would find no platform::WriteConsole to link with.
#undef WriteConsole

#include <io.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace platform {

SystemInfo GetSystemInfo() {
    SYSTEM_INFO si;
    ::GetSystemInfo(&si);
    SystemInfo info;
    info.processorArchitecture = si.wProcessorArchitecture;
    info.processorLevel = si.wProcessorLevel;
    info.numberOfProcessors = si.dwNumberOfProcessors;
    return info;
}

OsVersion GetOsVersion() {
    // GetVersionEx lies to programs without a manifest; RtlGetVersion does not.
    OsVersion v;
    v.family = "Windows";
    typedef LONG(WINAPI * RtlGetVersionFn)(OSVERSIONINFOW*);
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    RtlGetVersionFn fn = ntdll ? reinterpret_cast<RtlGetVersionFn>(reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlGetVersion"))) : nullptr;
    OSVERSIONINFOW info;
    std::memset(&info, 0, sizeof info);
    info.dwOSVersionInfoSize = sizeof info;
    if (fn && fn(&info) == 0) {
        v.build = info.dwBuildNumber;
        v.major = info.dwMajorVersion;
        v.minor = info.dwMinorVersion;
    }
    return v;
}

std::string ExecutablePath() {
    char buf[MAX_PATH + 1] = {0};
    DWORD n = GetModuleFileNameA(nullptr, buf, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) return std::string();
    return std::string(buf, n);
}

std::string FolderOf(const std::string& path) {
    // Drive plus directory, as _splitpath gives them, but without its fixed
    // buffers: a folder longer than those must not come back empty.
    size_t sep = path.find_last_of("\\/");
    if (sep != std::string::npos) return path.substr(0, sep + 1);
    if (path.size() >= 2 && path[1] == ':') return path.substr(0, 2);
    return std::string();
}

std::string ResolvePath(const std::string& base, const std::string& path) {
    bool absolute = (path.size() >= 2 && path[1] == ':') || (!path.empty() && (path[0] == '\\' || path[0] == '/'));
    if (path.empty() || absolute || base.empty()) return path;
    char last = base.back();
    return (last == '\\' || last == '/') ? base + path : base + "\\" + path;
}

bool SetCurrentDir(const std::string& dir) { return !dir.empty() && SetCurrentDirectoryA(dir.c_str()) != 0; }

std::string CurrentDir() {
    char buf[MAX_PATH + 1] = {0};
    DWORD n = GetCurrentDirectoryA(MAX_PATH, buf);
    if (n == 0 || n > MAX_PATH) return std::string();
    return std::string(buf, n);
}

// The Windows heap returns large blocks to the system by itself.
void TuneMemoryAllocator() {}

void MakeProcessDpiAware() {
    HMODULE user32 = LoadLibraryA("user32.dll");
    if (!user32) return;
    typedef BOOL(WINAPI * SetDpiFn)();
    SetDpiFn fn = reinterpret_cast<SetDpiFn>(reinterpret_cast<void*>(GetProcAddress(user32, "SetProcessDPIAware")));
    if (fn) fn();
    FreeLibrary(user32);
}

void ReleaseDisplay() {}

void InitCommonControls() {
    INITCOMMONCONTROLSEX icc;
    icc.dwSize = sizeof icc;
    icc.dwICC = ICC_WIN95_CLASSES;
    InitCommonControlsEx(&icc);
}

bool UnderWine() {
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

bool HasDisplay() {
    // A desktop always exists on Windows; under Wine without an X display the
    // window station has no visible desktop and boxes cannot be answered.
    const char* x = std::getenv("DISPLAY");
    if (UnderWine()) return x && *x;
    return GetSystemMetrics(SM_CXSCREEN) > 0;
}

void ShowMessageBox(BoxKind kind, const char* caption, const char* text) {
    if (HasDisplay()) {
        UINT icon = kind == BoxKind::Error ? MB_ICONERROR : MB_ICONINFORMATION;
        if (MessageBoxA(nullptr, text, caption, MB_OK | icon) != 0) return;
    }
    std::fprintf(stderr, "%s: %s\n", caption, text);
    std::fflush(stderr);
}

namespace {

HANDLE ConsoleHandle(DWORD which) {
    HANDLE h = GetStdHandle(which);
    if (h == nullptr || h == INVALID_HANDLE_VALUE) {
        if (AttachConsole(ATTACH_PARENT_PROCESS)) h = GetStdHandle(which);
    }
    return h == INVALID_HANDLE_VALUE ? nullptr : h;
}

std::string SystemReason(DWORD code) {
    char buf[256] = {};
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, buf,
                             sizeof buf - 1, nullptr);
    while (n > 0 && (buf[n - 1] == '\n' || buf[n - 1] == '\r' || buf[n - 1] == '.' || buf[n - 1] == ' ')) buf[--n] = 0;
    if (n == 0) std::snprintf(buf, sizeof buf, "system error %lu", static_cast<unsigned long>(code));
    return buf;
}

}  // namespace

void WriteConsole(const std::string& text) {
    // A GUI program has no console of its own: borrow the one it was started from.
    HANDLE out = ConsoleHandle(STD_OUTPUT_HANDLE);
    if (!out) return;
    DWORD written = 0;
    WriteFile(out, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

void WriteStandardError(const std::string& text) {
    HANDLE err = ConsoleHandle(STD_ERROR_HANDLE);
    if (!err) return;
    DWORD written = 0;
    WriteFile(err, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

bool StandardErrorIsTerminal() {
    HANDLE err = ConsoleHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    return err && GetFileType(err) == FILE_TYPE_CHAR && GetConsoleMode(err, &mode);
}

bool WriteFileReplacing(const std::string& path, const std::string& bytes, std::string* reason) {
    const std::string temp = path + ".tmp-" + std::to_string(GetCurrentProcessId());
    HANDLE f = CreateFileA(temp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f == INVALID_HANDLE_VALUE) {
        *reason = SystemReason(GetLastError());
        return false;
    }
    DWORD written = 0;
    const bool wrote = WriteFile(f, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
                       written == bytes.size();
    const DWORD writeError = GetLastError();
    const bool flushed = wrote && FlushFileBuffers(f);
    const DWORD flushError = GetLastError();
    CloseHandle(f);
    if (!wrote || !flushed) {
        // A short write without an error code is a full disk.
        *reason = SystemReason(wrote ? flushError : (writeError ? writeError : ERROR_DISK_FULL));
        DeleteFileA(temp.c_str());
        return false;
    }
    if (!MoveFileExA(temp.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        *reason = SystemReason(GetLastError());
        DeleteFileA(temp.c_str());
        return false;
    }
    return true;
}

LibHandle LoadLib(const char* name) { return name ? reinterpret_cast<LibHandle>(LoadLibraryA(name)) : nullptr; }

void* LibSymbol(LibHandle lib, const char* name) {
    return lib ? reinterpret_cast<void*>(GetProcAddress(reinterpret_cast<HMODULE>(lib), name)) : nullptr;
}

void FreeLib(LibHandle lib) {
    if (lib) FreeLibrary(reinterpret_cast<HMODULE>(lib));
}

std::string LibFileName(const char* base) { return std::string(base) + ".dll"; }

bool SharedMemoryExists(const char* name) {
    HANDLE h = OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, name);
    if (!h) return false;
    CloseHandle(h);
    return true;
}

SharedMemoryView::~SharedMemoryView() { Close(); }

bool SharedMemoryView::Open(const char* name) {
    Close();
    HANDLE h = OpenFileMappingA(FILE_MAP_READ, FALSE, name);
    if (!h) return false;
    // A section keeps its size while any view of it exists, so copying from
    // a view is safe here; the copy keeps both platforms alike.
    void* p = MapViewOfFile(h, FILE_MAP_READ, 0, 0, 0);
    MEMORY_BASIC_INFORMATION mbi;
    if (p && VirtualQuery(p, &mbi, sizeof mbi) != 0) {
        size_t n = mbi.RegionSize < kMaxBytes ? mbi.RegionSize : kMaxBytes;
        const unsigned char* from = static_cast<const unsigned char*>(p);
        bytes_.assign(from, from + n);
    }
    if (p) UnmapViewOfFile(p);
    CloseHandle(h);
    return !bytes_.empty();
}

void SharedMemoryView::Close() { std::vector<unsigned char>().swap(bytes_); }

bool ReadRegistryDword(const char* key, const char* value, uint32_t* out) {
    HKEY k;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key, 0, KEY_READ, &k) != ERROR_SUCCESS) return false;
    DWORD type = 0, data = 0, size = sizeof data;
    // The type decides: a three-letter text value is four bytes long too.
    bool ok = RegQueryValueExA(k, value, nullptr, &type, reinterpret_cast<BYTE*>(&data), &size) == ERROR_SUCCESS &&
              type == REG_DWORD && size == sizeof data;
    RegCloseKey(k);
    if (ok && out) *out = data;
    return ok;
}

bool ReadRegistryString(const char* key, const char* value, std::string* out) {
    HKEY k;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key, 0, KEY_READ, &k) != ERROR_SUCCESS) return false;
    char buf[1024] = {0};
    DWORD type = 0, size = sizeof buf - 1;
    bool ok = RegQueryValueExA(k, value, nullptr, &type, reinterpret_cast<BYTE*>(buf), &size) == ERROR_SUCCESS &&
              (type == REG_SZ || type == REG_EXPAND_SZ);
    RegCloseKey(k);
    if (ok && out) *out = std::string(buf);
    return ok;
}

bool EnumDisplayMode(int index, DisplayMode* mode) {
    if (!mode || index < 0) return false;
    DEVMODEA dm;
    std::memset(&dm, 0, sizeof dm);
    dm.dmSize = sizeof dm;
    if (!EnumDisplaySettingsA(nullptr, static_cast<DWORD>(index), &dm)) return false;
    mode->width = static_cast<int>(dm.dmPelsWidth);
    mode->height = static_cast<int>(dm.dmPelsHeight);
    mode->bitsPerPixel = static_cast<int>(dm.dmBitsPerPel);
    mode->frequency = static_cast<int>(dm.dmDisplayFrequency);
    return true;
}

uint32_t TickCountMs() { return GetTickCount(); }

int64_t FineCounter() {
    LARGE_INTEGER c;
    QueryPerformanceCounter(&c);
    return c.QuadPart;
}

int64_t FineCounterFrequency() {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return f.QuadPart;
}

double ThreadCpuSeconds() {
    FILETIME created, exited, kernel, user;
    if (!GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user)) return -1.0;
    auto ticks = [](const FILETIME& f) {
        return static_cast<double>((static_cast<uint64_t>(f.dwHighDateTime) << 32) | f.dwLowDateTime);
    };
    return (ticks(kernel) + ticks(user)) * 1e-7;  // 100 ns units
}

void SleepMs(unsigned ms) { Sleep(ms); }

namespace {
// A high-resolution waitable timer (Windows 10 1803 on) per thread; null
// where the system has none, and Sleep's ticks are all there is.
HANDLE PreciseTimer() {
    constexpr DWORD kHighResolution = 0x00000002;  // CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
    thread_local struct Timer {
        HANDLE handle = CreateWaitableTimerExW(nullptr, nullptr, kHighResolution, TIMER_ALL_ACCESS);
        ~Timer() {
            if (handle) CloseHandle(handle);
        }
    } timer;
    return timer.handle;
}
}  // namespace

void SleepPrecise(double seconds) {
    if (!(seconds > 0)) return;
    if (HANDLE timer = PreciseTimer()) {
        LARGE_INTEGER due;
        due.QuadPart = -static_cast<LONGLONG>(seconds * 1e7);  // relative, in 100 ns units
        if (SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE)) {
            WaitForSingleObject(timer, INFINITE);
            return;
        }
    }
    Sleep(static_cast<DWORD>(seconds * 1000.0));
}

double SleepResolution() {
    // Without the high-resolution timer a sleep lasts whole ticks of the
    // system clock (15.6 ms unless a program asked for finer ones).
    return PreciseTimer() ? 0.0005 : 0.016;
}

void PinCurrentThreadToCpuMask(uint32_t mask) { SetThreadAffinityMask(GetCurrentThread(), mask); }

void NameThisThread(const char* name) {
    // SetThreadDescription exists from Windows 10 1607 on; looked up so the
    // program still starts on older systems.
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    HMODULE kernel = GetModuleHandleA("kernel32.dll");
    auto set = kernel ? reinterpret_cast<SetDescription>(
                            reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")))
                      : nullptr;
    if (!set) return;
    wchar_t wide[64];
    int n = MultiByteToWideChar(CP_UTF8, 0, name, -1, wide, 64);
    if (n <= 0) return;
    wide[63] = 0;
    set(GetCurrentThread(), wide);
}

namespace {
DWORD gUiThreadId = 0;
}

void RememberUiThread() { gUiThreadId = GetCurrentThreadId(); }

void AttachInputToUiThread(bool attach) {
    if (gUiThreadId && gUiThreadId != GetCurrentThreadId())
        AttachThreadInput(GetCurrentThreadId(), gUiThreadId, attach ? TRUE : FALSE);
}

LineFile::~LineFile() { Close(); }

bool LineFile::OpenTruncate(const char* path, std::string* reason) {
    Close();
    HANDLE h = CreateFileA(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        if (reason) *reason = SystemReason(GetLastError());
        return false;
    }
    fd_ = reinterpret_cast<intptr_t>(h);
    return true;
}

bool LineFile::IsOpen() const { return fd_ != -1; }

// Windows serialises writes on a synchronous handle, so each append lands
// whole at the end. Wine does not: threads appending through one handle at
// once can write at the same end offset, and lines vanish. One lock for the
// log files of this process keeps every line whole there too.
static SRWLOCK lineFileLock = SRWLOCK_INIT;

bool LineFile::Write(const char* data, size_t len, std::string* reason) {
    if (fd_ == -1) {
        if (reason) *reason = "the file is not open";
        return false;
    }
    DWORD written = 0;
    AcquireSRWLockExclusive(&lineFileLock);
    BOOL ok = WriteFile(reinterpret_cast<HANDLE>(fd_), data, static_cast<DWORD>(len), &written, nullptr);
    DWORD error = ok ? 0 : GetLastError();
    ReleaseSRWLockExclusive(&lineFileLock);
    if (ok && written == len) return true;
    if (reason) *reason = SystemReason(ok ? ERROR_DISK_FULL : error);
    return false;
}

void LineFile::Close() {
    if (fd_ != -1) CloseHandle(reinterpret_cast<HANDLE>(fd_));
    fd_ = -1;
}

const char* TextNewline() { return "\r\n"; }

bool FlushFileToDisk(std::FILE* f) {
    if (std::fflush(f) != 0) return false;
    return _commit(_fileno(f)) == 0;
}

bool MoveFileOver(const std::string& from, const std::string& to, std::string* error) {
    if (MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return true;
    if (error) {
        char text[256] = "";
        DWORD code = GetLastError();
        FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, text,
                       sizeof text, nullptr);
        size_t n = std::strlen(text);
        while (n > 0 && (text[n - 1] == '\r' || text[n - 1] == '\n' || text[n - 1] == ' ')) text[--n] = 0;
        *error = n ? text : "error " + std::to_string(code);
    }
    return false;
}

bool StartProgram(const std::string& program, const std::string& arguments, const std::string& workingDir) {
    std::string commandLine = "\"" + program + "\" " + arguments;
    std::vector<char> buf(commandLine.begin(), commandLine.end());
    buf.push_back('\0');
    STARTUPINFOA si;
    std::memset(&si, 0, sizeof si);
    si.cb = sizeof si;
    PROCESS_INFORMATION pi;
    std::memset(&pi, 0, sizeof pi);
    if (!CreateProcessA(program.c_str(), buf.data(), nullptr, nullptr, FALSE, 0, nullptr,
                        workingDir.empty() ? nullptr : workingDir.c_str(), &si, &pi))
        return false;
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    return true;
}

}  // namespace platform
