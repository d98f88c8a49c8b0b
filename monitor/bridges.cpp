#include "monitor/bridges.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "platform/platform.h"

namespace monitor {

using ProbeGPU::ComplainOnce;

namespace {

class SystemSource : public BlockSource {
public:
    bool Exists(const char* name) override { return platform::SharedMemoryExists(name); }
    bool Open(const char* name) override { return view_.Open(name); }
    void Close() override { view_.Close(); }
    const void* data() const override { return view_.data(); }
    size_t size() const override { return view_.size(); }

private:
    platform::SharedMemoryView view_;
};

uint32_t Word(const unsigned char* p, size_t index) {
    uint32_t w;
    std::memcpy(&w, p + index * 4, 4);
    return w;
}

// A NUL-terminated text of at most `size` bytes; cut at the field's end when
// the terminator is missing.
std::string FieldText(const unsigned char* p, size_t size) {
    size_t n = 0;
    while (n < size && p[n]) ++n;
    if (n == size && n > 0) --n;  // no terminator: the last byte is the one it should have been
    std::string s(reinterpret_cast<const char*>(p), n);
    for (char& c : s)
        if (static_cast<unsigned char>(c) < 32) c = '?';
    return s;
}

}  // namespace

std::unique_ptr<BlockSource> SystemBlockSource() { return std::unique_ptr<BlockSource>(new SystemSource()); }

// ------------------------------------------------------------ GPU-Z

GpuzBridge::GpuzBridge(std::unique_ptr<BlockSource> source, std::string name)
    : source_(std::move(source)), name_(std::move(name)) {
    for (int& s : slots_) s = -1;
}

bool GpuzBridge::OpenGpuzMemory() {
    available_ = false;
    if (!source_->Open(name_.c_str())) return false;
    const size_t size = source_->size();
    if (!source_->data() || size < gpuz::kBlockSize) {
        ComplainOnce("gpuz-size", "GPU-Z: the shared memory \"%s\" has %lu bytes, fewer than its layout's %lu; not read.",
                     name_.c_str(), static_cast<unsigned long>(size), static_cast<unsigned long>(gpuz::kBlockSize));
        source_->Close();
        return false;
    }
    copy_.assign(static_cast<const unsigned char*>(source_->data()),
                 static_cast<const unsigned char*>(source_->data()) + gpuz::kBlockSize);
    source_->Close();
    available_ = true;
    if (!sensorsFound_) {
        FindGpuzSensors();
        sensorsFound_ = true;
    }
    return true;
}

namespace {
// A UTF-16 text of at most `chars` characters as ASCII ('?' for the rest).
std::string Utf16Ascii(const unsigned char* p, size_t chars) {
    std::string s;
    for (size_t k = 0; k < chars; ++k) {
        uint16_t c;
        std::memcpy(&c, p + k * 2, 2);
        if (c == 0) break;
        s += (c >= 32 && c < 127) ? static_cast<char>(c) : '?';
    }
    return s;
}
}  // namespace

std::string GpuzBridge::SensorName(int i) const {
    if (copy_.size() < gpuz::kBlockSize || i < 0 || i >= gpuz::kRecords) return std::string();
    return Utf16Ascii(copy_.data() + gpuz::kSensorsOffset + static_cast<size_t>(i) * gpuz::kSensorRecordSize, gpuz::kKeyChars);
}

std::string GpuzBridge::RecordUnit(int i) const {
    if (copy_.size() < gpuz::kBlockSize || i < 0 || i >= gpuz::kRecords) return std::string();
    return Utf16Ascii(copy_.data() + gpuz::kSensorsOffset + static_cast<size_t>(i) * gpuz::kSensorRecordSize +
                          gpuz::kKeyChars * 2,
                      gpuz::kUnitChars);
}

bool GpuzBridge::RecordValue(int i, double* value) const {
    if (copy_.size() < gpuz::kBlockSize || i < 0 || i >= gpuz::kRecords) return false;
    const unsigned char* rec = copy_.data() + gpuz::kSensorsOffset + static_cast<size_t>(i) * gpuz::kSensorRecordSize;
    double v;
    std::memcpy(&v, rec + gpuz::kKeyChars * 2 + gpuz::kUnitChars * 2 + 4, 8);
    if (!std::isfinite(v)) return false;
    *value = v;
    return true;
}

namespace {
// Whether a UTF-16 field of `chars` characters holds exactly `ascii`,
// compared in place: the search runs over every record on each open.
bool Utf16Equals(const unsigned char* p, size_t chars, const char* ascii) {
    size_t k = 0;
    for (; ascii[k]; ++k) {
        uint16_t c;
        if (k == chars) return false;
        std::memcpy(&c, p + k * 2, 2);
        if (c != static_cast<unsigned char>(ascii[k])) return false;
    }
    uint16_t end = 0;
    if (k < chars) std::memcpy(&end, p + k * 2, 2);
    return end == 0;
}
}  // namespace

void GpuzBridge::FindGpuzSensors() {
    static const char* const kNames[] = {"GPU Core Clock", "GPU Memory Clock", "GPU Temperature", "VDDC Current", "VDDC"};
    for (int slot = 0; slot < 5; ++slot) {
        slots_[slot] = -1;
        if (copy_.size() < gpuz::kBlockSize) continue;
        for (int i = 0; i < gpuz::kRecords && slots_[slot] < 0; ++i)
            if (Utf16Equals(copy_.data() + gpuz::kSensorsOffset + static_cast<size_t>(i) * gpuz::kSensorRecordSize,
                            gpuz::kKeyChars, kNames[slot]))
                slots_[slot] = i;
    }
}

bool GpuzBridge::SensorValue(int slot, double* value) const {
    if (!available_ || slot < 0 || slot >= gpuz::kSlots || slots_[slot] < 0) return false;
    const unsigned char* rec =
        copy_.data() + gpuz::kSensorsOffset + static_cast<size_t>(slots_[slot]) * gpuz::kSensorRecordSize;
    double v;
    std::memcpy(&v, rec + gpuz::kKeyChars * 2 + gpuz::kUnitChars * 2 + 4, 8);
    if (!std::isfinite(v)) return false;
    *value = v;
    return true;
}

// ------------------------------------------------------------ VTHM rules

namespace vthm {

int GpuNumberOf(const std::string& name) {
    for (int g = 1; g <= kMaxGpus; ++g) {
        char key[8];
        std::snprintf(key, sizeof key, "GPU%d", g);
        if (name.find(key) != std::string::npos) return g;
    }
    return 0;
}

int SlotOf(const std::string& n) {
    auto has = [&](const char* s) { return n.find(s) != std::string::npos; };
    if (has("temperature")) {
        if (has("GPU")) return kTemperature;
        if (has("PCB")) return kPcbTemperature;
        return -1;
    }
    if (has("usage")) {
        if (has("emory")) return kMemoryUsage;
        if (has("GPU")) return kUsage;
        return -1;
    }
    if (has("an speed")) return kFanSpeed;
    if (has("ore clock")) return kCoreClock;
    if (has("emory clock")) return kMemoryClock;
    if (has("hader clock")) return kShaderClock;
    return -1;
}

}  // namespace vthm

// ------------------------------------------------------------ VTHM bridge

VthmBridge::VthmBridge(std::unique_ptr<BlockSource> source, std::string name)
    : source_(std::move(source)), name_(std::move(name)) {}

VthmBridge::~VthmBridge() { source_->Close(); }

bool VthmBridge::IsVthmPresent() { return source_->Exists(name_.c_str()); }

bool VthmBridge::ConnectVthm() {
    source_->Close();
    connected_ = source_->Open(name_.c_str()) && source_->data() != nullptr;
    if (!connected_) source_->Close();
    return connected_;
}

bool VthmBridge::CheckAndCollect(std::vector<vthm::Entry>* entries) {
    if (!connected_ || !source_->data()) return false;
    const size_t size = source_->size();
    if (size < 4) {
        EventLine("Failed to read VTHM data. Unknown error...");
        return false;
    }
    auto signature = [&]() { return Word(static_cast<const unsigned char*>(source_->data()), 0); };
    if (signature() == vthm::kDead) {
        EventLine("VTHM: memory is marked as dead. Trying to connect again...");
        if (!ConnectVthm() || source_->size() < 4) {
            EventLine("Failed to connect to VTHM.");
            return false;
        }
    }
    if (signature() != vthm::kSignature) {
        EventLine("Failed to read VTHM data. Unknown error...");
        return false;
    }
    const unsigned char* base = static_cast<const unsigned char*>(source_->data());
    const size_t mapped = source_->size();
    if (mapped < vthm::kHeaderWords * 4) {
        EventLine("Failed to read VTHM data. Unknown error...");
        ComplainOnce("vthm-header", "VTHM: the block has %lu bytes, too few for its header.", static_cast<unsigned long>(mapped));
        return false;
    }
    // Each header word is read once: the tool may rewrite them meanwhile.
    const uint64_t headerSize = Word(base, 2);
    const uint64_t count = Word(base, 3);
    const uint64_t entrySize = Word(base, 4);
    const bool fits = headerSize >= vthm::kHeaderWords * 4 && entrySize >= vthm::kMinEntrySize && headerSize <= mapped &&
                      count <= (mapped - headerSize) / entrySize;
    if (!fits) {
        EventLine("Failed to read VTHM data. Unknown error...");
        ComplainOnce("vthm-bounds", "VTHM: the header states %llu entries of %llu bytes from offset %llu, but the block has %lu bytes.",
                     static_cast<unsigned long long>(count), static_cast<unsigned long long>(entrySize),
                     static_cast<unsigned long long>(headerSize), static_cast<unsigned long>(mapped));
        return false;
    }
    entries->clear();
    for (uint64_t i = 0; i < count; ++i) {
        const unsigned char* e = base + headerSize + i * entrySize;
        float v;
        std::memcpy(&v, e + vthm::kValueOffset, 4);
        if (v == vthm::kNoData || !std::isfinite(v)) continue;
        entries->push_back(vthm::Entry{FieldText(e + vthm::kNameOffset, vthm::kNameSize),
                                       FieldText(e + vthm::kUnitsOffset, vthm::kUnitsSize), v});
    }
    return true;
}

bool VthmBridge::CountVthmGpus() {
    std::vector<vthm::Entry> entries;
    if (!CheckAndCollect(&entries)) return false;
    int count = 1;
    for (const vthm::Entry& e : entries) {
        int g = vthm::GpuNumberOf(e.name);
        if (g < 1) g = 1;
        if (g > count) count = g;
    }
    gpuCount_ = count;
    return true;
}

void VthmBridge::AllocateGpuArray() { values_.assign(static_cast<size_t>(gpuCount_) * vthm::kSlotsPerGpu, 0.0f); }

void VthmBridge::FreeGpuArray() { values_.clear(); }

float VthmBridge::Value(int gpu, int slot) const {
    if (gpu < 0 || slot < 0 || slot >= vthm::kSlotsPerGpu) return 0.0f;
    size_t i = static_cast<size_t>(gpu) * vthm::kSlotsPerGpu + static_cast<size_t>(slot);
    return i < values_.size() ? values_[i] : 0.0f;
}

bool VthmBridge::ReadVthm() {
    std::vector<vthm::Entry> entries;
    if (!CheckAndCollect(&entries)) return false;
    if (values_.empty()) {
        for (size_t i = 0; i < entries.size(); ++i)
            EventLine("VTHM - Source %d: name=%s, units=%s, value=%.3f", static_cast<int>(i), entries[i].name.c_str(),
                      entries[i].units.c_str(), entries[i].value);
        return true;
    }
    const int gpus = static_cast<int>(values_.size() / vthm::kSlotsPerGpu);
    for (const vthm::Entry& e : entries) {
        int g = vthm::GpuNumberOf(e.name);
        int gpu = g > 0 ? g - 1 : 0;
        int slot = vthm::SlotOf(e.name);
        // A GPU the array was not made for (the tool found another since
        // the count) is skipped rather than written past the array.
        if (slot < 0 || gpu >= gpus) continue;
        values_[static_cast<size_t>(gpu) * vthm::kSlotsPerGpu + static_cast<size_t>(slot)] = e.value;
    }
    int best = 0;
    float bestClock = 0.0f;
    for (int g = 0; g < gpuCount_ && g < gpus; ++g) {
        float c = Value(g, vthm::kCoreClock);
        if (c > bestClock) {
            bestClock = c;
            best = g;
        }
    }
    publishedCore_ = Value(best, vthm::kCoreClock);
    publishedMemory_ = Value(best, vthm::kMemoryClock);
    publishedShader_ = Value(best, vthm::kShaderClock);
    return true;
}

bool VthmBridge::StartTachyra() {
    EventLine("VTHM: trying to start VXA Tachyra...");
    std::string path;
    if (!platform::ReadRegistryString("Software\\VXA\\Tachyra", "InstallPath", &path) || path.empty()) {
        EventLine("VTHM: not found in registry.");
        return false;
    }
    if (path.back() != '\\' && path.back() != '/') path += '\\';
    const std::string exe = path + "Tachyra.exe";
    std::FILE* f = std::fopen(exe.c_str(), "rb");
    if (!f) {
        EventLine("VTHM: VXA Tachyra installation path %s holds no Tachyra.exe.", path.c_str());
        return false;
    }
    std::fclose(f);
    EventLine("VTHM: VXA Tachyra installation path validated.");
    return platform::StartProgram(exe, "-propertypage2", path);
}

}  // namespace monitor
