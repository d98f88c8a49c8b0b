// libFuzzer: arbitrary bytes as the program's command line. Every switch is
// parsed into the settings record; whatever the input, the numbers that size
// windows and textures stay inside the limits the table gives them.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "core/settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string line(reinterpret_cast<const char*>(data), size);  // cut at the first NUL, as argv would be
    StartupOptionsRecord o;
    InitStartupOptions(o, 4);
    ParseCommandLine(o, line.c_str());
    ParseRunExtras(line.c_str());
    WantsUsage(line.c_str());
    if (o.width < 1 || o.width > 16384 || o.height < 1 || o.height > 16384) std::abort();
    FormatSettings(o);
    return 0;
}
