// Images from files (JPEG, PNG, BMP, TGA, GIF, HDR), decoded to RGBA8.
#pragma once

#include <string>
#include <vector>

struct Image {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> rgba;  // top row first
    bool empty() const { return rgba.empty(); }
};

// The same picture with its rows in the opposite order: OpenGL-style
// textures start with the bottom row.
Image FlippedRows(const Image& picture);

// The largest image the loader accepts: a header may claim any size, and the
// decoder allocates what it claims before it finds the pixels missing.
constexpr int kMaxImageSide = 16384;
constexpr long long kMaxImagePixels = 8192LL * 8192;

// False (and an empty image) when the file cannot be read or decoded; *why
// says which, for the log. `maxPixels` lowers the pixel limit (the fuzzing
// harness keeps each input cheap with it).
bool LoadImageFile(const std::string& path, Image* out, std::string* why = nullptr,
                   long long maxPixels = kMaxImagePixels);
