#include "render/image.h"

#include <gtest/gtest.h>

#include <algorithm>
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
    // The longest accepted side still loads; the pixels the short file
    // lacks are black, not whatever the memory held.
    Image picture;
    std::string why;
    ASSERT_TRUE(LoadImageFile(Write("image-strip.tga", Tga(kMaxImageSide, 1, {1, 2, 3, 4})), &picture, &why))
        << why;
    EXPECT_EQ(picture.width, kMaxImageSide);
    EXPECT_EQ(picture.rgba.size(), static_cast<size_t>(kMaxImageSide) * 4);
    EXPECT_EQ(std::count(picture.rgba.begin(), picture.rgba.end(), 0), kMaxImageSide * 4);
    // A bitmap stored top row first gives a negative height: its size is
    // checked all the same (found by the image harness: 8960x228 passed a
    // one-megapixel limit).
    const std::vector<uint8_t> topDown = {0x42, 0x4d, 0x46, 0, 0, 0, 0x17, 0, 0, 0, 0x5b, 0, 0, 0, 0x28,
                                          0,    0,    0,    0, 0x23, 0, 0, 0x1c, 0xff, 0xff, 0xff, 1, 0, 4};
    EXPECT_FALSE(LoadImageFile(Write("image-top-down.bmp", topDown), &picture, &why, 1000 * 1000));
    EXPECT_NE(why.find("image too large (8960x228;"), std::string::npos) << why;
    ASSERT_TRUE(LoadImageFile(::testing::TempDir() + "image-top-down.bmp", &picture, &why)) << why;
    EXPECT_EQ(picture.width, 8960);
    EXPECT_EQ(picture.height, 228);
    // A lower limit refuses what the full one accepts, with its own figure;
    // a higher one is no higher than the full limit.
    EXPECT_FALSE(LoadImageFile(::testing::TempDir() + "image-strip.tga", &picture, &why, 1000));
    EXPECT_NE(why.find("at most 16384 per side and 1000 pixels"), std::string::npos) << why;
    EXPECT_FALSE(
        LoadImageFile(Write("image-huge.tga", Tga(8193, 8193, {1, 2, 3, 4})), &picture, &why, kMaxImagePixels * 4));
}

TEST(LoadImageFile, MissingAndGarbageFilesSayWhy) {
    Image picture;
    std::string why;
    EXPECT_FALSE(LoadImageFile(::testing::TempDir() + "no-such-image.png", &picture, &why));
    EXPECT_FALSE(why.empty());
    why.clear();
    EXPECT_FALSE(LoadImageFile(Write("image-garbage.png", {'n', 'o', 't', ' ', 'a', 'n'}), &picture, &why));
    EXPECT_FALSE(why.empty());
    // Formats the program does not take are refused, however well formed
    // (here a 1x1 portable pixmap).
    why.clear();
    EXPECT_FALSE(LoadImageFile(Write("image.ppm", {'P', '6', ' ', '1', ' ', '1', ' ', '2', '5', '5', '\n', 255, 0, 0}),
                               &picture, &why));
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

TEST(LoadImageFile, PngChunksRunningPastTheFileAreRefusedBeforeTheDecoderReservesThem) {
    // A 4x3 picture, whole.
    std::vector<uint8_t> png = {
        0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44, 0x52,
        0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x03, 0x08, 0x06, 0x00, 0x00, 0x00, 0xb4, 0xf4, 0xae,
        0xc6, 0x00, 0x00, 0x00, 0x29, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9c, 0x15, 0xc8, 0x31, 0x01, 0x00,
        0x30, 0x0c, 0xc3, 0x30, 0xc3, 0x19, 0x88, 0x82, 0x08, 0x9c, 0x9c, 0x63, 0xbe, 0x7a, 0x87, 0x1e,
        0x01, 0xf7, 0x1d, 0x45, 0x15, 0x8c, 0xa1, 0xa8, 0xf3, 0xa3, 0x86, 0xa2, 0x6a, 0x01, 0x21, 0x01,
        0x17, 0x95, 0xe6, 0x41, 0xa7, 0x74, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42,
        0x60, 0x82,
    };
    Image picture;
    std::string why;
    ASSERT_TRUE(LoadImageFile(Write("image-small.png", png), &picture, &why)) << why;
    EXPECT_EQ(picture.width, 4);
    EXPECT_EQ(picture.height, 3);
    // Its data chunk claiming 2 GB (the decoder would have reserved it), and
    // the file cut inside that chunk: both refused with the same reason.
    std::vector<uint8_t> claims = png;
    claims[33] = 0x7f, claims[34] = 0xff, claims[35] = 0xff, claims[36] = 0x00;
    std::vector<uint8_t> cut(png.begin(), png.begin() + 60);
    for (const auto& bytes : {claims, cut}) {
        why.clear();
        EXPECT_FALSE(LoadImageFile(Write("image-damaged.png", bytes), &picture, &why));
        EXPECT_NE(why.find("runs past the end of the file"), std::string::npos) << why;
        EXPECT_TRUE(picture.empty());
    }
    // Cut after the last data chunk, the end is missing: the decoder's own
    // reason, and no picture.
    why.clear();
    EXPECT_FALSE(LoadImageFile(Write("image-no-end.png", {png.begin(), png.begin() + 86}), &picture, &why));
    EXPECT_FALSE(why.empty());
    why.clear();
    EXPECT_FALSE(LoadImageFile(Write("image-empty.png", {}), &picture, &why));
    EXPECT_NE(why.find("empty"), std::string::npos) << why;
}

TEST(LoadImageFile, JpegHuffmanTablesOfMoreThan256CodesAreRefusedWhereverTheDecoderMeetsThem) {
    // Found by the image harness: the decoder wrote past its table on this.
    const std::vector<uint8_t> found = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xd8, 0xff, 0xff, 0xff, 0xff, 0xc4,
                                        0xff, 0x22, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xfd, 0xff, 0xff,
                                        0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x21, 0x00, 0xdd, 0x50};
    // A table of 16 x 17 codes, as a segment of its own.
    std::vector<uint8_t> table = {0xff, 0xc4, 0x00, 0x13, 0x10};
    table.insert(table.end(), 16, 17);
    const std::vector<uint8_t> start = {0xff, 0xd8};
    // Between two scans: after coded data holding a stuffed 0xff and a restart.
    std::vector<uint8_t> betweenScans = {0xff, 0xd8, 0xff, 0xda, 0x00, 0x08, 1, 1, 0, 0, 63, 0,
                                         0x12, 0xff, 0x00, 0x34, 0xff, 0xd0, 0x56};
    betweenScans.insert(betweenScans.end(), table.begin(), table.end());
    std::vector<uint8_t> first = start;
    first.insert(first.end(), table.begin(), table.end());
    Image picture;
    std::string why;
    for (const auto& bytes : {found, first, betweenScans}) {
        why.clear();
        EXPECT_FALSE(LoadImageFile(Write("image-bad-table.jpg", bytes), &picture, &why));
        EXPECT_NE(why.find("Huffman table of"), std::string::npos) << why;
    }
    // The same bytes inside a comment are skipped with it, as the decoder
    // skips them: the file is refused for what the decoder finds instead.
    std::vector<uint8_t> inComment = {0xff, 0xd8, 0xff, 0xfe, 0x00, static_cast<uint8_t>(2 + table.size())};
    inComment.insert(inComment.end(), table.begin(), table.end());
    inComment.insert(inComment.end(), {0xff, 0xd9});
    why.clear();
    EXPECT_FALSE(LoadImageFile(Write("image-comment.jpg", inComment), &picture, &why));
    EXPECT_EQ(why.find("Huffman"), std::string::npos) << why;
    EXPECT_FALSE(why.empty());
}

}  // namespace
