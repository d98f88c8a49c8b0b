// Windows implementation of the operating-system seams.
#include "platform/platform.h"

#include <windows.h>
#include <commctrl.h>

#include <cstdio>
#include <cstring>

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
    // Drive plus directory, as _splitpath gives them.
    char drive[128] = {0};
    char dir[128] = {0};
    if (_splitpath_s(path.c_str(), drive, sizeof drive, dir, sizeof dir, nullptr, 0, nullptr, 0) != 0) return std::string();
    return std::string(drive) + dir;
}

bool SetCurrentDir(const std::string& dir) { return !dir.empty() && SetCurrentDirectoryA(dir.c_str()) != 0; }

std::string CurrentDir() {
    char buf[MAX_PATH + 1] = {0};
    DWORD n = GetCurrentDirectoryA(MAX_PATH, buf);
    if (n == 0 || n > MAX_PATH) return std::string();
    return std::string(buf, n);
}

void MakeProcessDpiAware() {
    HMODULE user32 = LoadLibraryA("user32.dll");
    if (!user32) return;
    typedef BOOL(WINAPI * SetDpiFn)();
    SetDpiFn fn = reinterpret_cast<SetDpiFn>(reinterpret_cast<void*>(GetProcAddress(user32, "SetProcessDPIAware")));
    if (fn) fn();
    FreeLibrary(user32);
}

void InitCommonControls() {
    INITCOMMONCONTROLSEX icc;
    icc.dwSize = sizeof icc;
    icc.dwICC = ICC_WIN95_CLASSES;
    InitCommonControlsEx(&icc);
}

bool HasDisplay() {
    // A desktop always exists on Windows; under Wine without an X display the
    // window station has no visible desktop and boxes cannot be answered.
    const char* x = std::getenv("DISPLAY");
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    bool underWine = ntdll && GetProcAddress(ntdll, "wine_get_version") != nullptr;
    if (underWine) return x && *x;
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

void WriteConsole(const std::string& text) {
    // A GUI program has no console of its own: borrow the one it was started from.
    HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    if (out == nullptr || out == INVALID_HANDLE_VALUE) {
        if (AttachConsole(ATTACH_PARENT_PROCESS)) out = GetStdHandle(STD_OUTPUT_HANDLE);
    }
    if (out == nullptr || out == INVALID_HANDLE_VALUE) return;
    DWORD written = 0;
    WriteFile(out, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
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
    void* p = MapViewOfFile(h, FILE_MAP_READ, 0, 0, 0);
    if (!p) {
        CloseHandle(h);
        return false;
    }
    MEMORY_BASIC_INFORMATION mbi;
    if (VirtualQuery(p, &mbi, sizeof mbi) == 0) {
        UnmapViewOfFile(p);
        CloseHandle(h);
        return false;
    }
    data_ = p;
    size_ = mbi.RegionSize;
    handle_ = h;
    return true;
}

void SharedMemoryView::Close() {
    if (data_) UnmapViewOfFile(data_);
    if (handle_) CloseHandle(reinterpret_cast<HANDLE>(handle_));
    data_ = nullptr;
    size_ = 0;
    handle_ = nullptr;
}

bool ReadRegistryDword(const char* key, const char* value, uint32_t* out) {
    HKEY k;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key, 0, KEY_READ, &k) != ERROR_SUCCESS) return false;
    DWORD type = 0, data = 0, size = sizeof data;
    bool ok = RegQueryValueExA(k, value, nullptr, &type, reinterpret_cast<BYTE*>(&data), &size) == ERROR_SUCCESS && size == 4;
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

void SleepMs(unsigned ms) { Sleep(ms); }

LineFile::~LineFile() { Close(); }

bool LineFile::OpenTruncate(const char* path) {
    Close();
    HANDLE h = CreateFileA(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return false;
    fd_ = reinterpret_cast<intptr_t>(h);
    return true;
}

bool LineFile::IsOpen() const { return fd_ != -1; }

void LineFile::Write(const char* data, size_t len) {
    if (fd_ == -1) return;
    DWORD written = 0;
    WriteFile(reinterpret_cast<HANDLE>(fd_), data, static_cast<DWORD>(len), &written, nullptr);
}

void LineFile::Close() {
    if (fd_ != -1) CloseHandle(reinterpret_cast<HANDLE>(fd_));
    fd_ = -1;
}

const char* TextNewline() { return "\r\n"; }

}  // namespace platform
