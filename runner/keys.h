// The run-control keys of the 3D window, one portable function that the
// Windows window procedure and the Linux event loop both call.
#pragma once

#include "platform/window3d.h"  // RunKey

enum class KeyResult {
    Close,    // end the run (the caller runs its close sequence)
    Handled,  // a toggle or setting changed
    Ignored,  // no effect (benchmark key lock, no test object, key without meaning)
};

// keyboardState: the 256-byte key state copied to the benchmark object on P
// (may be null where the platform has none).
KeyResult HandleRunKey(RunKey key, const unsigned char* keyboardState);
