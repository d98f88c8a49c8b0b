// Builders of synthetic GPU-Z and VTHM shared-memory blocks, for the tests
// and for the publisher program. They write the layouts the bridges read,
// and can be told to lie (a header that claims more than the block holds).
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "monitor/bridges.h"

namespace fakes {

struct VthmSource {
    std::string name;
    std::string units;
    float value;
};

struct VthmLayout {
    uint32_t signature = monitor::vthm::kSignature;
    uint32_t headerSize = 32;
    uint32_t entrySize = 1324;
    // What the header states, when it lies; -1: the truth.
    int64_t statedCount = -1;
    int64_t statedHeaderSize = -1;
    int64_t statedEntrySize = -1;
    // Bytes cut off the end of the block (a block shorter than it says).
    size_t truncate = 0;
};

inline std::vector<unsigned char> MakeVthmBlock(const std::vector<VthmSource>& sources, const VthmLayout& layout = VthmLayout()) {
    const size_t entrySize = layout.entrySize;
    std::vector<unsigned char> block(layout.headerSize + sources.size() * entrySize, 0);
    auto word = [&](size_t i, uint32_t v) {
        if (i * 4 + 4 <= block.size()) std::memcpy(block.data() + i * 4, &v, 4);
    };
    word(0, layout.signature);
    word(1, 2);  // the tool's version word; not read
    word(2, layout.statedHeaderSize >= 0 ? static_cast<uint32_t>(layout.statedHeaderSize) : layout.headerSize);
    word(3, layout.statedCount >= 0 ? static_cast<uint32_t>(layout.statedCount) : static_cast<uint32_t>(sources.size()));
    word(4, layout.statedEntrySize >= 0 ? static_cast<uint32_t>(layout.statedEntrySize) : layout.entrySize);
    for (size_t i = 0; i < sources.size(); ++i) {
        unsigned char* e = block.data() + layout.headerSize + i * entrySize;
        if (entrySize >= monitor::vthm::kMinEntrySize) {
            std::strncpy(reinterpret_cast<char*>(e), sources[i].name.c_str(), 259);
            std::strncpy(reinterpret_cast<char*>(e + 260), sources[i].units.c_str(), 259);
            std::memcpy(e + 1300, &sources[i].value, 4);
        }
    }
    if (layout.truncate) block.resize(block.size() > layout.truncate ? block.size() - layout.truncate : 0);
    return block;
}

struct GpuzSensor {
    std::string name;
    std::string unit;
    double value;
};

inline std::vector<unsigned char> MakeGpuzBlock(const std::vector<GpuzSensor>& sensors) {
    namespace g = monitor::gpuz;
    std::vector<unsigned char> block(g::kBlockSize, 0);
    uint32_t version = 1, lastUpdate = 12345;
    std::memcpy(block.data(), &version, 4);
    std::memcpy(block.data() + 8, &lastUpdate, 4);
    auto wide = [](unsigned char* p, const std::string& s, size_t chars) {
        for (size_t k = 0; k < s.size() && k + 1 < chars; ++k) {
            uint16_t c = static_cast<unsigned char>(s[k]);
            std::memcpy(p + k * 2, &c, 2);
        }
    };
    for (size_t i = 0; i < sensors.size() && i < static_cast<size_t>(g::kRecords); ++i) {
        unsigned char* rec = block.data() + g::kSensorsOffset + i * g::kSensorRecordSize;
        wide(rec, sensors[i].name, g::kKeyChars);
        wide(rec + g::kKeyChars * 2, sensors[i].unit, g::kUnitChars);
        uint32_t digits = 1;
        std::memcpy(rec + g::kKeyChars * 2 + g::kUnitChars * 2, &digits, 4);
        std::memcpy(rec + g::kKeyChars * 2 + g::kUnitChars * 2 + 4, &sensors[i].value, 8);
    }
    return block;
}

// A block source over memory the test owns; each Open takes the next block
// of the script (the last one stays), so a test can make a block die and
// come back.
class MemoryBlockSource : public monitor::BlockSource {
public:
    explicit MemoryBlockSource(std::vector<std::vector<unsigned char>> script) : script_(std::move(script)) {}
    bool Exists(const char*) override { return !script_.empty(); }
    bool Open(const char*) override {
        if (script_.empty()) return false;
        current_ = script_[next_ < script_.size() ? next_ : script_.size() - 1];
        if (next_ < script_.size()) ++next_;
        open_ = true;
        ++opens_;
        return true;
    }
    void Close() override { open_ = false; }
    const void* data() const override { return open_ && !current_.empty() ? current_.data() : nullptr; }
    size_t size() const override { return open_ ? current_.size() : 0; }
    int opens() const { return opens_; }

private:
    std::vector<std::vector<unsigned char>> script_;
    std::vector<unsigned char> current_;
    size_t next_ = 0;
    bool open_ = false;
    int opens_ = 0;
};

}  // namespace fakes
