// libFuzzer: arbitrary bytes as a custom fur or background image. The loader
// may refuse the file; what it accepts has the pixels its size says.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "render/image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The loader reads files, as the program does with the user's images.
    static const std::string path = "fuzz-image-" + std::to_string(getpid()) + ".img";
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) std::abort();
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    Image picture;
    std::string why;
    if (LoadImageFile(path, &picture, &why)) {
        if (picture.width <= 0 || picture.height <= 0 ||
            picture.rgba.size() != static_cast<size_t>(picture.width) * picture.height * 4)
            std::abort();
    }
    return 0;
}
