// libFuzzer: arbitrary bytes as GPU-Z's shared memory.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "monitor/bridges.h"
#include "monitor/event_sink.h"
#include "monitor/fakes/blocks.h"

namespace {
void Quiet(const char*) {}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    monitor::SetEventSink(&Quiet);
    // Small inputs are stretched to the layout's size so that the record
    // parsing, not only the size check, is exercised.
    std::vector<unsigned char> block(data, data + size);
    if (size > 0 && size < monitor::gpuz::kBlockSize && (data[0] & 1)) {
        // Repeated by doubling copies: a byte loop over 200 KB would take
        // most of each input's time.
        block.resize(monitor::gpuz::kBlockSize);
        for (size_t have = size; have < block.size(); have *= 2)
            std::memcpy(block.data() + have, block.data(), std::min(have, block.size() - have));
    }
    monitor::GpuzBridge g(std::unique_ptr<monitor::BlockSource>(new fakes::MemoryBlockSource({block})));
    if (g.OpenGpuzMemory()) {
        double v = 0;
        for (int s = 0; s < monitor::gpuz::kSlots; ++s) g.SensorValue(s, &v);
        for (int i = 0; i < monitor::gpuz::kRecords; ++i) g.SensorName(i);
    }
    return 0;
}
