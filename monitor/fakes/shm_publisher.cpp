// Publishes synthetic GPU-Z ("GPUZShMem") and VTHM ("VTHMSharedMemory")
// blocks the way those tools do, for tests and for trying the bridges by
// hand:
//
//   monitor_shm_publisher [--vthm] [--gpuz] [--gpus N] [--seconds S]
//                         [--lie] [--dead] [--ready FILE]
//
//   --vthm / --gpuz  which blocks to publish (both when neither is named)
//   --gpus N         GPUs in the VTHM block (1-8, default 2)
//   --seconds S      how long to keep them (default 30); the readings move
//                    every second: temperatures rise, clocks alternate
//   --lie            the VTHM header claims more entries than the block holds
//   --dead           the VTHM signature reads 0xDEAD (the tool marked it dead)
//   --ready FILE     writes FILE once the blocks exist
//   --suffix TEXT    appends TEXT to both names (tests that run side by side)
//
// Windows: named file mappings. Linux: POSIX shared memory objects of the
// same names, removed again at exit.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

#include "monitor/fakes/blocks.h"

namespace {

class Published {
public:
    bool Create(const char* name, size_t size) {
        size_ = size;
#if defined(_WIN32)
        handle_ = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(size), name);
        if (!handle_) return false;
        data_ = MapViewOfFile(handle_, FILE_MAP_ALL_ACCESS, 0, 0, size);
        return data_ != nullptr;
#else
        name_ = std::string("/") + name;
        shm_unlink(name_.c_str());
        int fd = shm_open(name_.c_str(), O_CREAT | O_RDWR, 0600);
        if (fd < 0) return false;
        if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
            close(fd);
            return false;
        }
        void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        if (p == MAP_FAILED) return false;
        data_ = p;
        return true;
#endif
    }
    void Store(const std::vector<unsigned char>& bytes) {
        if (data_) std::memcpy(data_, bytes.data(), bytes.size() < size_ ? bytes.size() : size_);
    }
    ~Published() {
#if defined(_WIN32)
        if (data_) UnmapViewOfFile(data_);
        if (handle_) CloseHandle(handle_);
#else
        if (data_) munmap(data_, size_);
        if (!name_.empty()) shm_unlink(name_.c_str());
#endif
    }

private:
    void* data_ = nullptr;
    size_t size_ = 0;
#if defined(_WIN32)
    HANDLE handle_ = nullptr;
#else
    std::string name_;
#endif
};

std::vector<fakes::VthmSource> VthmSources(int gpus, int tick) {
    std::vector<fakes::VthmSource> s;
    for (int g = 1; g <= gpus; ++g) {
        const std::string p = "GPU" + std::to_string(g) + " ";
        s.push_back({p + "temperature", "C", 50.0f + g + static_cast<float>(tick)});
        s.push_back({p + "usage", "%", 90.0f});
        s.push_back({p + "memory usage", "MB", 2048.0f});
        s.push_back({p + "fan speed", "%", 40.0f + g});
        s.push_back({p + "core clock", "MHz", (tick % 2 ? 1800.0f : 1750.0f) + 10.0f * g});
        s.push_back({p + "memory clock", "MHz", 7000.0f});
        s.push_back({p + "shader clock", "MHz", 3500.0f});
    }
    // The board's own sensor names no GPU: it goes to the first.
    s.push_back({"PCB temperature", "C", 45.0f});
    s.push_back({"CPU temperature", "C", monitor::vthm::kNoData});  // a source without data
    return s;
}

}  // namespace

int main(int argc, char** argv) {
    bool vthm = false, gpuz = false, lie = false, dead = false;
    int gpus = 2, seconds = 30;
    std::string ready, suffix;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--vthm") vthm = true;
        else if (a == "--gpuz") gpuz = true;
        else if (a == "--lie") lie = true;
        else if (a == "--dead") dead = true;
        else if (a == "--gpus" && i + 1 < argc) gpus = std::atoi(argv[++i]);
        else if (a == "--seconds" && i + 1 < argc) seconds = std::atoi(argv[++i]);
        else if (a == "--ready" && i + 1 < argc) ready = argv[++i];
        else if (a == "--suffix" && i + 1 < argc) suffix = argv[++i];
        else {
            std::fprintf(stderr, "usage: %s [--vthm] [--gpuz] [--gpus N] [--seconds S] [--lie] [--dead] [--ready FILE] [--suffix TEXT]\n", argv[0]);
            return 2;
        }
    }
    if (!vthm && !gpuz) vthm = gpuz = true;
    if (gpus < 1) gpus = 1;
    if (gpus > 8) gpus = 8;

    fakes::VthmLayout layout;
    if (dead) layout.signature = monitor::vthm::kDead;
    // The block is made for the real entries; a lying header claims more.
    const size_t vthmSize = fakes::MakeVthmBlock(VthmSources(gpus, 0), layout).size();
    if (lie) layout.statedCount = static_cast<int64_t>(VthmSources(gpus, 0).size()) + 1000;

    Published vthmBlock, gpuzBlock;
    const std::string vthmName = std::string(monitor::vthm::kName) + suffix;
    const std::string gpuzName = std::string(monitor::gpuz::kName) + suffix;
    if (vthm && !vthmBlock.Create(vthmName.c_str(), vthmSize)) {
        std::fprintf(stderr, "cannot create %s\n", vthmName.c_str());
        return 1;
    }
    if (gpuz && !gpuzBlock.Create(gpuzName.c_str(), monitor::gpuz::kBlockSize)) {
        std::fprintf(stderr, "cannot create %s\n", gpuzName.c_str());
        return 1;
    }
    for (int tick = 0; tick <= seconds; ++tick) {
        if (vthm) vthmBlock.Store(fakes::MakeVthmBlock(VthmSources(gpus, tick), layout));
        if (gpuz)
            gpuzBlock.Store(fakes::MakeGpuzBlock({{"GPU Core Clock", "MHz", 1500.0 + tick},
                                                 {"GPU Memory Clock", "MHz", 1750.0},
                                                 {"GPU Temperature", "C", 60.0 + tick},
                                                 {"VDDC", "V", 1.05}}));
        if (tick == 0 && !ready.empty()) {
            if (std::FILE* f = std::fopen(ready.c_str(), "w")) std::fclose(f);
        }
        if (tick < seconds) std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    return 0;
}
