#include "render/image.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_FAILURE_USERMSG
// A few bytes of header can claim any size; the decoder would allocate it
// before finding the pixels missing. No texture we make is larger than this.
#define STBI_MAX_DIMENSIONS 16384
// Only the formats the program takes; the others' readers are code no user
// needs and hostile files could still reach.
#define STBI_NO_PNM
#define STBI_NO_PSD
#define STBI_NO_PIC
// Some decoders leave the pixels of a short file unwritten (an uncompressed
// file read from memory copies nothing of its last, incomplete row). Zeroed
// allocations make those pixels black instead of whatever the memory held.
#define STBI_MALLOC(size) std::calloc(1, (size))
#define STBI_REALLOC(p, size) std::realloc((p), (size))
#define STBI_FREE(p) std::free(p)
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

namespace {

// The largest file read: an uncompressed picture at the pixel limit, in
// floating-point channels, and room for its headers.
constexpr long long kMaxImageFileBytes = kMaxImagePixels * 16 + (1 << 20);

bool ReadWholeFile(const std::string& path, std::vector<unsigned char>* bytes, std::string* why) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        *why = std::string("cannot open the file (") + std::strerror(errno) + ")";
        return false;
    }
    bool ok = std::fseek(f, 0, SEEK_END) == 0;
    const long size = ok ? std::ftell(f) : -1;
    ok = ok && size >= 0 && std::fseek(f, 0, SEEK_SET) == 0;
    if (!ok) {
        *why = "cannot read the file";
    } else if (size > kMaxImageFileBytes) {
        *why = "file too large for an image (" + std::to_string(size) + " bytes)";
        ok = false;
    } else {
        bytes->resize(static_cast<size_t>(size));
        ok = std::fread(bytes->data(), 1, bytes->size(), f) == bytes->size();
        if (!ok) *why = "cannot read the file";
    }
    std::fclose(f);
    return ok;
}

uint32_t BigEndian32(const unsigned char* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

// The decoder trusts a PNG chunk's length and reserves room for the chunk
// before reading it, so a file of a hundred bytes could make it allocate
// gigabytes. A chunk that runs past the end of the file is refused first.
bool PngChunksFit(const std::vector<unsigned char>& bytes, std::string* why) {
    static const unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (bytes.size() < 8 || std::memcmp(bytes.data(), kSignature, 8) != 0) return true;  // not a PNG
    size_t at = 8;
    while (bytes.size() - at >= 8) {
        const uint32_t length = BigEndian32(&bytes[at]);
        const bool end = std::memcmp(&bytes[at + 4], "IEND", 4) == 0;
        if (length > bytes.size() - at - 8) {
            *why = "damaged or truncated PNG (a chunk of " + std::to_string(length) +
                   " bytes runs past the end of the file)";
            return false;
        }
        if (end) break;
        at += 8 + static_cast<size_t>(length);
        at += std::min<size_t>(4, bytes.size() - at);  // the chunk's check sum
    }
    return true;  // what is missing at the end, the decoder reports
}

// The decoder builds each JPEG Huffman table from its 16 code counts without
// checking that they add up to at most 256 codes, and writes past the table
// when they do. The markers are walked as the decoder walks them (reading
// zeros past the end, as it does) and every table it would build is checked.
bool JpegTablesFit(const std::vector<unsigned char>& b, std::string* why) {
    size_t p = 0;
    while (p < b.size() && b[p] == 0xFF) ++p;  // the start marker, after any fill bytes
    if (p == 0 || p >= b.size() || b[p] != 0xD8) return true;  // not a JPEG
    ++p;
    auto byte = [&b](size_t i) -> unsigned { return i < b.size() ? b[i] : 0u; };
    for (;;) {
        while (p < b.size() && b[p] != 0xFF) ++p;  // the decoder skips what is not a marker
        while (p < b.size() && b[p] == 0xFF) ++p;  // and fill bytes
        if (p >= b.size()) return true;
        const unsigned marker = b[p++];
        if (marker == 0xD9) return true;  // end of image
        if (marker == 0x00 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) continue;  // no length
        const size_t length = (byte(p) << 8) | byte(p + 1);
        if (marker == 0xC4) {
            long left = static_cast<long>(length) - 2;
            size_t table = p + 2;
            while (left > 0) {
                const unsigned kind = byte(table);
                if ((kind >> 4) > 1 || (kind & 15) > 3) break;  // the decoder refuses it there
                unsigned codes = 0;
                for (size_t i = 1; i <= 16; ++i) codes += byte(table + i);
                if (codes > 256) {
                    *why = "damaged JPEG (a Huffman table of " + std::to_string(codes) + " codes; at most 256)";
                    return false;
                }
                table += 17 + codes;
                left -= 17 + static_cast<long>(codes);
            }
        }
        p += length;
        if (marker == 0xDA) {  // coded data, up to the next marker that is neither a stuffed byte nor a restart
            while (p + 1 < b.size() && !(b[p] == 0xFF && b[p + 1] != 0x00 && (b[p + 1] < 0xD0 || b[p + 1] > 0xD7)))
                ++p;
        }
    }
}

}  // namespace

bool LoadImageFile(const std::string& path, Image* out, std::string* why, long long maxPixels) {
    maxPixels = std::min(maxPixels, kMaxImagePixels);
    *out = Image();
    std::string reason;
    if (!why) why = &reason;
    // The file is read once; every check and the decoding see the same bytes.
    std::vector<unsigned char> bytes;
    if (!ReadWholeFile(path, &bytes, why) || !PngChunksFit(bytes, why) || !JpegTablesFit(bytes, why)) return false;
    if (bytes.empty() || bytes.size() > static_cast<size_t>(std::numeric_limits<int>::max())) {
        *why = bytes.empty() ? "empty file" : "file too large for an image";
        return false;
    }
    const int length = static_cast<int>(bytes.size());
    int w = 0, h = 0, n = 0;
    auto tooLarge = [&](long long width, long long height) {
        if (width <= kMaxImageSide && height <= kMaxImageSide && width * height <= maxPixels) return false;
        *why = "image too large (" + std::to_string(width) + "x" + std::to_string(height) + "; at most " +
               std::to_string(kMaxImageSide) + " per side and " + std::to_string(maxPixels) + " pixels)";
        return true;
    };
    // Refuse what the header claims before anything is allocated for it. A
    // bitmap stored top row first gives its height as a negative number,
    // which the decoder's size query passes on as it is.
    if (stbi_info_from_memory(bytes.data(), length, &w, &h, &n) && tooLarge(std::llabs(w), std::llabs(h)))
        return false;
    unsigned char* data = stbi_load_from_memory(bytes.data(), length, &w, &h, &n, 4);
    if (!data) {
        *why = stbi_failure_reason() ? stbi_failure_reason() : "unreadable";
        return false;
    }
    if (tooLarge(w, h)) {  // a header the size query read otherwise than the decoder
        stbi_image_free(data);
        return false;
    }
    if (w <= 0 || h <= 0) {  // some decoders accept a header with a zero side
        stbi_image_free(data);
        *why = "image has no pixels (" + std::to_string(w) + "x" + std::to_string(h) + ")";
        return false;
    }
    out->width = w;
    out->height = h;
    out->rgba.assign(data, data + static_cast<size_t>(w) * h * 4);
    stbi_image_free(data);
    return true;
}
