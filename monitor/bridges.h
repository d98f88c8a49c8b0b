// Bridges to two monitoring tools that may run beside the program and
// publish readings in named shared memory: GPU-Z ("GPUZShMem") and the
// maker's overclocking tool Tachyra ("VTHMSharedMemory"). On Linux the same
// names are POSIX shared memory objects.
//
// Both blocks belong to other programs and are untrusted: the size of the
// mapping comes from the system, never from the block, and every offset,
// count and size the block states is checked against it before anything is
// read. The tools may rewrite their block at any moment; each header word is
// read once and each value is copied out whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace monitor {

// Where a bridge gets its block: the system's named shared memory, or (in
// tests) scripted memory.
class BlockSource {
public:
    virtual ~BlockSource() = default;
    virtual bool Exists(const char* name) = 0;
    virtual bool Open(const char* name) = 0;
    virtual void Close() = 0;
    virtual const void* data() const = 0;
    virtual size_t size() const = 0;
};
std::unique_ptr<BlockSource> SystemBlockSource();

// ------------------------------------------------------------ GPU-Z

namespace gpuz {
constexpr const char* kName = "GPUZShMem";
constexpr int kRecords = 128;
constexpr size_t kKeyChars = 256;
constexpr size_t kUnitChars = 8;
// Published layout, packed: header (version, busy, last update), 128 data
// records of two UTF-16 strings of 256 characters, 128 sensor records (name
// of 256 characters, unit of 8, 32-bit digits, 64-bit float value).
constexpr size_t kHeaderSize = 12;
constexpr size_t kDataRecordSize = 2 * kKeyChars * 2;                    // 1024
constexpr size_t kSensorRecordSize = kKeyChars * 2 + kUnitChars * 2 + 4 + 8;  // 540
constexpr size_t kSensorsOffset = kHeaderSize + kRecords * kDataRecordSize;
constexpr size_t kBlockSize = kSensorsOffset + kRecords * kSensorRecordSize;  // 200,204
static_assert(kBlockSize == 200204, "GPU-Z block size");

enum Slot { kCoreClock = 0, kMemoryClock, kTemperature, kVddcCurrent, kVddc, kSlots = 10 };
}  // namespace gpuz

class GpuzBridge {
public:
    // The name is GPU-Z's own unless a test publishes under another.
    explicit GpuzBridge(std::unique_ptr<BlockSource> source = SystemBlockSource(), std::string name = gpuz::kName);
    // Copies the whole block (checked against the mapping's size) and, on
    // the first success, finds the sensors. Any failure clears `available`.
    bool OpenGpuzMemory();
    void FindGpuzSensors();
    bool available() const { return available_; }
    int sensorIndex(int slot) const { return slots_[slot]; }
    // The value of a found sensor; false when not found or not a finite number.
    bool SensorValue(int slot, double* value) const;
    // The name of sensor record i as ASCII ('?' for other characters).
    std::string SensorName(int i) const;
    // Sensor record i's unit (ASCII, as the name) and value; the value is
    // false when the record is out of range or not a finite number.
    std::string RecordUnit(int i) const;
    bool RecordValue(int i, double* value) const;

private:
    std::unique_ptr<BlockSource> source_;
    std::string name_;
    std::vector<unsigned char> copy_;
    bool available_ = false;
    bool sensorsFound_ = false;
    int slots_[gpuz::kSlots];
};

// ------------------------------------------------------------ VTHM

namespace vthm {
constexpr const char* kName = "VTHMSharedMemory";
// 'VTHM' as a 32-bit multi-character constant.
constexpr uint32_t kSignature = (uint32_t('V') << 24) | (uint32_t('T') << 16) | (uint32_t('H') << 8) | uint32_t('M');
constexpr uint32_t kDead = 0xDEAD;
constexpr size_t kHeaderWords = 5;
constexpr size_t kNameOffset = 0, kNameSize = 260;
constexpr size_t kUnitsOffset = 260, kUnitsSize = 260;
constexpr size_t kValueOffset = 1300;
constexpr size_t kMinEntrySize = kValueOffset + 4;
constexpr float kNoData = 3.4028235e38f;
constexpr int kSlotsPerGpu = 60;
constexpr int kMaxGpus = 8;
enum Slot {
    kTemperature = 0,
    kUsage = 3,
    kFanSpeed = 5,
    kCoreClock = 7,
    kShaderClock = 9,
    kMemoryClock = 11,
    kMemoryUsage = 13,
    kPcbTemperature = 15,
};

struct Entry {
    std::string name;
    std::string units;
    float value;
};

// The GPU an entry belongs to: 1-8 for "GPU1".."GPU8", 0 when it names none.
int GpuNumberOf(const std::string& name);
// The slot an entry goes to, -1 for none (the classification rules in order).
int SlotOf(const std::string& name);
}  // namespace vthm

class VthmBridge {
public:
    // The name is the tool's own unless a test publishes under another.
    explicit VthmBridge(std::unique_ptr<BlockSource> source = SystemBlockSource(), std::string name = vthm::kName);
    ~VthmBridge();

    bool IsVthmPresent();
    bool ConnectVthm();
    bool CountVthmGpus();
    bool ReadVthm();
    // Logs "VTHM: trying to start VXA Tachyra..." and starts the tool found
    // through the registry.
    static bool StartTachyra();

    // The per-GPU array (60 floats per GPU), made for the GPU count.
    void AllocateGpuArray();
    void FreeGpuArray();
    bool hasGpuArray() const { return !values_.empty(); }
    float Value(int gpu, int slot) const;
    int gpuCount() const { return gpuCount_; }
    float publishedCoreClock() const { return publishedCore_; }
    float publishedMemoryClock() const { return publishedMemory_; }
    float publishedShaderClock() const { return publishedShader_; }
    bool connected() const { return connected_; }

private:
    // The checks shared by CountVthmGpus and ReadVthm: signature (with one
    // reconnection of a dead block), then the header against the mapping.
    // Fills the valid entries.
    bool CheckAndCollect(std::vector<vthm::Entry>* entries);

    std::unique_ptr<BlockSource> source_;
    std::string name_;
    bool connected_ = false;
    int gpuCount_ = 1;
    std::vector<float> values_;
    float publishedCore_ = 0, publishedMemory_ = 0, publishedShader_ = 0;
};

}  // namespace monitor
