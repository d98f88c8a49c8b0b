#include "render/image.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

// An uncompressed true-colour TGA header (18 bytes) for a picture of w x h,
// 32 bits per pixel, top row first, followed by `pixels` (BGRA).
std::vector<uint8_t> Tga(int w, int h, const std::vector<uint8_t>& pixels) {
    std::vector<uint8_t> file(18 + pixels.size(), 0);
    file[2] = 2;
    file[12] = static_cast<uint8_t>(w & 0xff);
    file[13] = static_cast<uint8_t>(w >> 8);
    file[14] = static_cast<uint8_t>(h & 0xff);
    file[15] = static_cast<uint8_t>(h >> 8);
    file[16] = 32;
    file[17] = 0x28;
    for (size_t i = 0; i < pixels.size(); ++i) file[18 + i] = pixels[i];
    return file;
}

std::string Write(const std::string& name, const std::vector<uint8_t>& bytes) {
    const std::string path = ::testing::TempDir() + name;
    FILE* f = std::fopen(path.c_str(), "wb");
    EXPECT_NE(f, nullptr);
    if (f) {
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }
    return path;
}

TEST(LoadImageFile, DecodesPixelsTopRowFirstAndFlipsRows) {
    // 2x2: red, green / blue, white (stored as BGRA).
    const std::string path = Write("image-ok.tga", Tga(2, 2, {0, 0, 255, 255, 0, 255, 0, 255,  //
                                                              255, 0, 0, 255, 255, 255, 255, 128}));
    Image picture;
    std::string why;
    ASSERT_TRUE(LoadImageFile(path, &picture, &why)) << why;
    EXPECT_EQ(picture.width, 2);
    EXPECT_EQ(picture.height, 2);
    const std::vector<unsigned char> rgba = {255, 0, 0, 255, 0, 255, 0, 255,  //
                                             0, 0, 255, 255, 255, 255, 255, 128};
    EXPECT_EQ(picture.rgba, rgba);
    const Image flipped = FlippedRows(picture);
    EXPECT_EQ(std::vector<unsigned char>(flipped.rgba.begin(), flipped.rgba.begin() + 8),
              std::vector<unsigned char>(rgba.begin() + 8, rgba.end()));
}

TEST(LoadImageFile, RefusesHeadersClaimingHugePicturesBeforeAllocating) {
    // A few bytes that claim gigabytes of pixels: each is refused, with a
    // reason for the log, and leaves an empty image behind.
    struct Case {
        int w, h;
    };
    for (const Case c : {Case{16000, 16000}, Case{65535, 2}, Case{8193, 8193}}) {
        Image picture;
        picture.width = 7;
        std::string why;
        EXPECT_FALSE(LoadImageFile(Write("image-huge.tga", Tga(c.w, c.h, {1, 2, 3, 4})), &picture, &why))
            << c.w << "x" << c.h;
        EXPECT_NE(why.find("large"), std::string::npos) << why;
        EXPECT_TRUE(picture.empty());
        EXPECT_EQ(picture.width, 0);
    }
    // The longest accepted side still loads (the decoder pads a short
    // uncompressed file with black).
    Image picture;
    std::string why;
    ASSERT_TRUE(LoadImageFile(Write("image-strip.tga", Tga(kMaxImageSide, 1, {1, 2, 3, 4})), &picture, &why))
        << why;
    EXPECT_EQ(picture.width, kMaxImageSide);
    EXPECT_EQ(picture.rgba.size(), static_cast<size_t>(kMaxImageSide) * 4);
    EXPECT_EQ(picture.rgba[0], 3);
}

TEST(LoadImageFile, MissingAndGarbageFilesSayWhy) {
    Image picture;
    std::string why;
    EXPECT_FALSE(LoadImageFile(::testing::TempDir() + "no-such-image.png", &picture, &why));
    EXPECT_FALSE(why.empty());
    why.clear();
    EXPECT_FALSE(LoadImageFile(Write("image-garbage.png", {'n', 'o', 't', ' ', 'a', 'n'}), &picture, &why));
    EXPECT_FALSE(why.empty());
    // A bitmap header with no columns: the decoder hands back a picture of
    // zero width, which no texture can be made of.
    const std::vector<uint8_t> emptyBmp = {
        0x42, 0x4d, 0x46, 0, 0, 0x80, 0, 0, 0, 0, 0x36, 0, 0, 0, 0x28, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 1, 0,
        0x18, 0,    0,    0, 0, 0,    0x10, 0, 0, 0, 0x13, 0xb, 0xff, 0, 0xff, 0, 0, 0, 0, 0, 0xff, 0, 0xff, 0, 0, 0};
    why.clear();
    EXPECT_FALSE(LoadImageFile(Write("image-no-columns.bmp", emptyBmp), &picture, &why));
    EXPECT_NE(why.find("no pixels"), std::string::npos) << why;
    EXPECT_TRUE(picture.empty());
}

}  // namespace
