#include "render/image.h"

#include <cstring>
#include <string>

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_FAILURE_USERMSG
// A few bytes of header can claim any size; the decoder would allocate it
// before finding the pixels missing. No texture we make is larger than this.
#define STBI_MAX_DIMENSIONS 16384
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#endif
#include <stb_image.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

static_assert(STBI_MAX_DIMENSIONS == kMaxImageSide, "the decoder and the loader refuse the same sides");

Image FlippedRows(const Image& picture) {
    Image out = picture;
    const size_t row = static_cast<size_t>(picture.width) * 4;
    for (int y = 0; y < picture.height; ++y)
        std::memcpy(&out.rgba[static_cast<size_t>(y) * row],
                    &picture.rgba[static_cast<size_t>(picture.height - 1 - y) * row], row);
    return out;
}

bool LoadImageFile(const std::string& path, Image* out, std::string* why) {
    *out = Image();
    int w = 0, h = 0, n = 0;
    // Refuse what the header claims before anything is allocated for it.
    if (stbi_info(path.c_str(), &w, &h, &n) &&
        (w > kMaxImageSide || h > kMaxImageSide ||
         static_cast<long long>(w) * h > kMaxImagePixels)) {
        if (why)
            *why = "image too large (" + std::to_string(w) + "x" + std::to_string(h) +
                   "; at most " + std::to_string(kMaxImageSide) + " per side and " +
                   std::to_string(kMaxImagePixels) + " pixels)";
        return false;
    }
    unsigned char* data = stbi_load(path.c_str(), &w, &h, &n, 4);
    if (!data) {
        if (why) *why = stbi_failure_reason() ? stbi_failure_reason() : "unreadable";
        return false;
    }
    if (w <= 0 || h <= 0) {  // some decoders accept a header with a zero side
        stbi_image_free(data);
        if (why) *why = "image has no pixels (" + std::to_string(w) + "x" + std::to_string(h) + ")";
        return false;
    }
    out->width = w;
    out->height = h;
    out->rgba.assign(data, data + static_cast<size_t>(w) * h * 4);
    stbi_image_free(data);
    return true;
}
