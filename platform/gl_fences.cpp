#include "platform/gl_fences.h"

namespace platform {

namespace {

constexpr unsigned kSyncGpuCommandsComplete = 0x9117, kSyncFlushCommandsBit = 0x1, kTimeoutExpired = 0x911B;
constexpr unsigned long long kWaitSliceNs = 1000000000ull;

template <typename F>
void Get(F& f, const std::function<void*(const char*)>& lookup, const char* name) {
    f = reinterpret_cast<F>(lookup(name));
}

}  // namespace

void GlFenceOps::Load(const std::function<void*(const char*)>& lookup) {
    Get(fenceSync_, lookup, "glFenceSync");
    Get(clientWaitSync_, lookup, "glClientWaitSync");
    Get(deleteSync_, lookup, "glDeleteSync");
    Get(flush_, lookup, "glFlush");
    Get(finish_, lookup, "glFinish");
    if (!fenceSync_ || !clientWaitSync_ || !deleteSync_) fenceSync_ = nullptr;
}

void* GlFenceOps::Insert() {
    if (!fenceSync_) return nullptr;
    void* sync = fenceSync_(kSyncGpuCommandsComplete, 0);
    // The fence must reach the driver's queue before anyone waits on it.
    if (sync && flush_) flush_();
    return sync;
}

bool GlFenceOps::Done(void* fence, bool wait) {
    if (!wait) {
        unsigned r = clientWaitSync_(fence, 0, 0);
        return r != kTimeoutExpired;
    }
    // Signalled, or the wait failed (the device is gone): either way the
    // frame will not become any more finished.
    while (clientWaitSync_(fence, kSyncFlushCommandsBit, kWaitSliceNs) == kTimeoutExpired) {
    }
    return true;
}

void GlFenceOps::Free(void* fence) {
    if (deleteSync_ && fence) deleteSync_(fence);
}

void GlFenceOps::FinishAll() {
    if (finish_) finish_();
}

}  // namespace platform
