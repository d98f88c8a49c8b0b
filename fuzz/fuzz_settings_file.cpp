// libFuzzer: arbitrary bytes as the settings file. The reader may refuse the
// file but must never crash, and what it accepted must survive a round trip:
// writing the record and reading it back gives the same file again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/settings.h"
#include "core/settings_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    StartupOptionsRecord o;
    InitStartupOptions(o, 4);
    ReadStartupOptionsText(o, std::string_view(reinterpret_cast<const char*>(data), size));
    if (o.width < 1 || o.width > 16384 || o.height < 1 || o.height > 16384) std::abort();
    const std::string once = FormatStartupOptionsFile(o);
    StartupOptionsRecord again;
    InitStartupOptions(again, 4);
    if (!ReadStartupOptionsText(again, once)) std::abort();
    if (FormatStartupOptionsFile(again) != once) std::abort();
    return 0;
}
