// The seams to the operating system. Everything that differs between Windows
// and Linux is reached through these functions; the rest of the program is
// portable C++. Each function has one implementation in platform/win32 and one
// in platform/posix.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace platform {

// ---------------------------------------------------------------- system facts

struct SystemInfo {
    int processorArchitecture = 0;  // Windows PROCESSOR_ARCHITECTURE_* numbering (9 = x64)
    int processorLevel = 0;         // CPU family
    unsigned numberOfProcessors = 1;
};
SystemInfo GetSystemInfo();

struct OsVersion {
    const char* family = "";  // "Windows" or "Linux"
    unsigned build = 0;
    unsigned major = 0;
    unsigned minor = 0;
};
OsVersion GetOsVersion();

// Full path of the running executable ("" when it cannot be found).
std::string ExecutablePath();
// Splits an executable path into its folder, with a trailing separator.
std::string FolderOf(const std::string& path);
bool SetCurrentDir(const std::string& dir);
// path itself when absolute, else path taken relative to the folder base.
std::string ResolvePath(const std::string& base, const std::string& path);
std::string CurrentDir();

// Asks the system not to scale the program's windows (no-op where there is no such thing).
void MakeProcessDpiAware();
// Large blocks go straight back to the system when freed. The software
// renderer's per-frame buffers otherwise stay in the heap, fragmented, and a
// headless run's memory grows far past a windowed one's.
void TuneMemoryAllocator();
// Prepares the common controls library (Windows only).
void InitCommonControls();

// Is there a display to show windows and boxes on?
bool HasDisplay();

// Is this the Windows build running under Wine? (Never on Linux.) Wine's
// Direct3D draws through the system's OpenGL driver, so what is known about
// that driver holds for Direct3D too.
bool UnderWine();
// Lets go of the windowing system at exit, once every window is closed.
void ReleaseDisplay();

// ------------------------------------------------------------ message boxes

enum class BoxKind { Error, Information };
// Shows a modal box where there is a display; writes "caption: text" to
// standard error otherwise. Logging is the caller's business.
void ShowMessageBox(BoxKind kind, const char* caption, const char* text);

// Writes text to the console the program was started from (standard output),
// attaching to the parent's console on Windows when needed.
void WriteConsole(const std::string& text);
// Standard error, and whether it is a terminal (progress lines go there only then).
void WriteStandardError(const std::string& text);
bool StandardErrorIsTerminal();

// -------------------------------------------------------- dynamic libraries

using LibHandle = void*;
LibHandle LoadLib(const char* name);
void* LibSymbol(LibHandle lib, const char* name);
void FreeLib(LibHandle lib);
// The file name of a library with the given base name ("adata" ->
// "adata.dll" on Windows, "libadata.so" elsewhere).
std::string LibFileName(const char* base);

// ------------------------------------------------------------ shared memory

// True when a named shared memory block of another program exists and can be
// opened with full access; the handle is closed again at once.
bool SharedMemoryExists(const char* name);

// A copy of another program's named shared memory block, taken when it is
// opened. Never a live mapping: the other program may shrink or drop its
// block at any moment, and reading through a mapping past the block's new
// end kills the reader (SIGBUS). Open again to read newer values.
class SharedMemoryView {
public:
    // The most a block is copied: larger ones are cut here.
    static constexpr size_t kMaxBytes = 64u << 20;

    SharedMemoryView() = default;
    ~SharedMemoryView();
    SharedMemoryView(const SharedMemoryView&) = delete;
    SharedMemoryView& operator=(const SharedMemoryView&) = delete;
    // False when the block does not exist, cannot be read or is empty.
    bool Open(const char* name);
    void Close();
    const void* data() const { return bytes_.empty() ? nullptr : bytes_.data(); }
    // The bytes the block held when it was copied (never trust its own word).
    size_t size() const { return bytes_.size(); }

private:
    std::vector<unsigned char> bytes_;
};

// ----------------------------------------------------------------- registry

// Reads a 32-bit value under HKEY_LOCAL_MACHINE. Always false where there is
// no registry.
bool ReadRegistryDword(const char* key, const char* value, uint32_t* out);
// Reads a text value under HKEY_LOCAL_MACHINE.
bool ReadRegistryString(const char* key, const char* value, std::string* out);

// ------------------------------------------------------------ display modes

struct DisplayMode {
    int width = 0;
    int height = 0;
    int bitsPerPixel = 0;
    int frequency = 0;
};
// Mode number `index` of the primary display; false past the last one or when
// there is no display.
bool EnumDisplayMode(int index, DisplayMode* mode);

// ------------------------------------------------------------------- clocks

// Milliseconds since some fixed point, coarse (GetTickCount-like).
uint32_t TickCountMs();
// A fine monotonic counter and its counts per second.
int64_t FineCounter();
int64_t FineCounterFrequency();
// Gives up the processor for at least `ms` milliseconds; 0 yields the rest of
// the time slice.
void SleepMs(unsigned ms);
// Sleeps for about `seconds`, as finely as the system's timers allow, and
// says how much a sleep may overshoot (the timer resolution).
void SleepPrecise(double seconds);
double SleepResolution();
// Processor time the calling thread has used, in seconds (user and system);
// -1 when the system cannot tell.
double ThreadCpuSeconds();

// ------------------------------------------------------------------ threads

// Pins the calling thread to the processors of the mask (bit 0: the first).
void PinCurrentThreadToCpuMask(uint32_t mask);
// Names the calling thread for debuggers, crash reports and process lists
// (at most 15 characters are kept on Linux).
void NameThisThread(const char* name);
// Remembers the calling thread as the UI thread (start-up does this).
void RememberUiThread();
// Shares key state and focus between the calling thread and the UI thread
// (Windows input queues); nothing to do elsewhere.
void AttachInputToUiThread(bool attach);

// ------------------------------------------------------------- log files

// A file that is written in whole lines, each line in one system call, and
// that other processes may read and write while it is open.
class LineFile {
public:
    LineFile() = default;
    ~LineFile();
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;
    // False with the system's reason when the file could not be made.
    bool OpenTruncate(const char* path, std::string* reason = nullptr);
    bool IsOpen() const;
    // False (with the reason) when not all bytes reached the file.
    bool Write(const char* data, size_t len, std::string* reason = nullptr);
    void Close();

private:
    intptr_t fd_ = -1;
};

// Writes a whole file so that readers see either the old file or the new
// one, never a part: the bytes go to a temporary file beside it, which is
// flushed to disk and then renamed over the old one. False, with the
// system's reason, when any step failed; the old file is then untouched.
bool WriteFileReplacing(const std::string& path, const std::string& bytes, std::string* reason);

// The end-of-line sequence of text files on this platform.
const char* TextNewline();

// Writes a stdio file's buffered data and asks the system to put it on disk;
// false when either fails (errno tells why).
bool FlushFileToDisk(std::FILE* f);
// Puts the file `from` in the place of `to` in one step, replacing an
// existing `to`; on failure `to` is untouched and *error says why.
bool MoveFileOver(const std::string& from, const std::string& to, std::string* error);

// ------------------------------------------------------------- processes

// Starts another program (the full path of its executable) with one
// argument string, in the given working folder, and does not wait for it.
bool StartProgram(const std::string& program, const std::string& arguments, const std::string& workingDir);

}  // namespace platform
