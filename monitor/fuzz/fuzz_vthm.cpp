// libFuzzer: arbitrary bytes as the overclocking tool's shared memory. The
// bridge may refuse the block but must never read outside it.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "monitor/bridges.h"
#include "monitor/event_sink.h"
#include "monitor/fakes/blocks.h"

namespace {
void Quiet(const char*) {}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    monitor::SetEventSink(&Quiet);
    std::vector<unsigned char> block(data, data + size);
    // Twice: the second open serves a dead block's reconnection.
    monitor::VthmBridge b(std::unique_ptr<monitor::BlockSource>(new fakes::MemoryBlockSource({block, block})));
    if (!b.ConnectVthm()) return 0;
    b.ReadVthm();  // without an array: the listing path
    if (b.CountVthmGpus()) {
        b.AllocateGpuArray();
        b.ReadVthm();
    }
    return 0;
}
