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
    // Images whose header claims more than a megapixel are refused before
    // decoding: a 30-byte file can claim 8192x8192, and decoding it takes a
    // second, which would leave few inputs for everything else. The refusal
    // path is the same one the full limit takes.
    if (LoadImageFile(path, &picture, &why, 1024 * 1024)) {
        if (picture.width <= 0 || picture.height <= 0 ||
            picture.rgba.size() != static_cast<size_t>(picture.width) * picture.height * 4 ||
            static_cast<long long>(picture.width) * picture.height > 1024 * 1024)
            std::abort();
    }
    return 0;
}
