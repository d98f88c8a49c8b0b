// OpenGL sync objects as frame fences, for every context of the platform
// layer (WGL, SDL/GLX, EGL). Loaded through the context's own entry point
// lookup, so the platform layer stays below the renderer's function list.
#pragma once

#include <functional>

#include "platform/frame_pipeline.h"

namespace platform {

class GlFenceOps : public FenceOps {
public:
    // With the context current. Contexts without sync objects (before 3.2 and
    // without ARB_sync) fall back to waiting for each frame with glFinish.
    void Load(const std::function<void*(const char*)>& lookup);

    void* Insert() override;
    bool Done(void* fence, bool wait) override;
    void Free(void* fence) override;
    void FinishAll() override;

private:
    void* (*fenceSync_)(unsigned, unsigned) = nullptr;
    unsigned (*clientWaitSync_)(void*, unsigned, unsigned long long) = nullptr;
    void (*deleteSync_)(void*) = nullptr;
    void (*flush_)() = nullptr;
    void (*finish_)() = nullptr;
};

}  // namespace platform
