// The generated pictures of the Graphics folder, read back through the
// image decoder the program uses: every file decodes at its size, the
// encoder reproduces a known pattern, and each picture has the look its
// pass relies on (a dark backdrop, warm tiling fur, logos that are clear
// where nothing is drawn).
#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#include <stb_image.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct Picture {
    int width = 0, height = 0, channels = 0;  // channels as stored in the file
    std::vector<uint8_t> rgba;

    const uint8_t* At(int x, int y) const { return &rgba[(static_cast<size_t>(y) * width + x) * 4]; }
};

bool Decode(const std::string& path, Picture* out) {
    int w = 0, h = 0, n = 0;
    unsigned char* p = stbi_load(path.c_str(), &w, &h, &n, 4);
    if (!p) return false;
    out->width = w;
    out->height = h;
    out->channels = n;
    out->rgba.assign(p, p + static_cast<size_t>(w) * h * 4);
    stbi_image_free(p);
    return true;
}

// The build folder's absolute path, else (a Windows build under Wine may
// not see it) the data folder below the working directory, which is the
// build folder when the tests run.
Picture Load(const std::string& name) {
    Picture pic;
    if (!Decode(std::string(ARD_GRAPHICS_DIR) + name, &pic)) Decode("data/Graphics/" + name, &pic);
    return pic;
}

double Luma(const uint8_t* p) { return 0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2]; }

// Mean of one channel (0..2) or the luma (3) over a rectangle.
double Mean(const Picture& pic, int channel, int x0, int y0, int x1, int y1) {
    double sum = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) sum += channel == 3 ? Luma(pic.At(x, y)) : pic.At(x, y)[channel];
    return sum / (static_cast<double>(x1 - x0) * (y1 - y0));
}

// Mean absolute luma step between column a and column b, over all rows.
double ColumnStep(const Picture& pic, int a, int b) {
    double sum = 0;
    for (int y = 0; y < pic.height; ++y) sum += std::fabs(Luma(pic.At(a, y)) - Luma(pic.At(b, y)));
    return sum / pic.height;
}

double RowStep(const Picture& pic, int a, int b) {
    double sum = 0;
    for (int x = 0; x < pic.width; ++x) sum += std::fabs(Luma(pic.At(x, a)) - Luma(pic.At(x, b)));
    return sum / pic.width;
}

TEST(GraphicsFiles, EveryPictureDecodesAtItsSize) {
    const struct {
        const char* name;
        int width, height, channels;
    } files[] = {
        {"bg.jpg", 1024, 1024, 3},         {"fur.jpg", 512, 512, 3},
        {"logo_vxa.png", 160, 43, 4},      {"logo_a.png", 512, 128, 4},
        {"logo_opengl.png", 128, 64, 4},   {"logo_direct3d.png", 128, 64, 4},
        {"logo_gpu.png", 150, 100, 4},
    };
    for (const auto& f : files) {
        SCOPED_TRACE(f.name);
        const Picture pic = Load(f.name);
        ASSERT_FALSE(pic.rgba.empty()) << stbi_failure_reason();
        EXPECT_EQ(pic.width, f.width);
        EXPECT_EQ(pic.height, f.height);
        EXPECT_EQ(pic.channels, f.channels);
    }
}

TEST(GraphicsJpeg, EncoderReproducesThePattern) {
    Picture pic;
    if (!Decode(ARD_JPEG_PATTERN, &pic)) {
        ASSERT_TRUE(Decode("data/jpeg_test_pattern.jpg", &pic));
    }
    ASSERT_EQ(pic.width, 100);
    ASSERT_EQ(pic.height, 75);
    EXPECT_EQ(pic.channels, 3);
    double err[3] = {0, 0, 0};
    int worst = 0;
    for (int y = 0; y < pic.height; ++y) {
        for (int x = 0; x < pic.width; ++x) {
            const int want[3] = {x * 255 / 99, y * 255 / 74,
                                 static_cast<int>(128 + 100 * std::sin(x / 9.0) * std::cos(y / 7.0))};
            for (int c = 0; c < 3; ++c) {
                const int d = std::abs(pic.At(x, y)[c] - want[c]);
                err[c] += d;
                worst = std::max(worst, d);
            }
        }
    }
    for (int c = 0; c < 3; ++c) EXPECT_LT(err[c] / (100 * 75), 2.5) << "channel " << c;
    EXPECT_LT(worst, 24);
}

TEST(GraphicsBackdrop, DarkCoolAndSmooth) {
    const Picture bg = Load("bg.jpg");
    ASSERT_EQ(bg.width, 1024);
    const int w = bg.width, h = bg.height;
    const double luma = Mean(bg, 3, 0, 0, w, h);
    EXPECT_LT(luma, 50.0);
    EXPECT_GT(luma, 5.0);
    EXPECT_GT(Mean(bg, 2, 0, 0, w, h), Mean(bg, 0, 0, 0, w, h));  // blue over red
    // Lighter at the top than at the bottom, glowing behind the object's
    // place, darker in the corners.
    EXPECT_GT(Mean(bg, 3, 0, 0, w, h / 3), Mean(bg, 3, 0, 2 * h / 3, w, h) + 5);
    const double glow = Mean(bg, 3, w / 2 - 64, 2 * h / 5 - 64, w / 2 + 64, 2 * h / 5 + 64);
    EXPECT_GT(glow, 2 * Mean(bg, 3, 0, 0, 64, 64));
    EXPECT_GT(glow, 2 * Mean(bg, 3, w - 64, h - 64, w, h));
    // A gradient, not noise: neighbouring pixels differ very little.
    EXPECT_LT(ColumnStep(bg, w / 2, w / 2 + 1), 2.5);
}

TEST(GraphicsFur, WarmStrandyAndTiling) {
    const Picture fur = Load("fur.jpg");
    ASSERT_EQ(fur.width, 512);
    const int w = fur.width, h = fur.height;
    const double r = Mean(fur, 0, 0, 0, w, h), g = Mean(fur, 1, 0, 0, w, h), b = Mean(fur, 2, 0, 0, w, h);
    EXPECT_GT(r, g + 20);
    EXPECT_GT(g, b + 20);
    EXPECT_GT(r, 90.0);
    // Strands: neighbouring columns differ clearly.
    const double inner = (ColumnStep(fur, 100, 101) + ColumnStep(fur, 300, 301)) / 2;
    EXPECT_GT(inner, 4.0);
    // Tiling: across the wrap the step is like any other step, not a seam.
    EXPECT_LT(ColumnStep(fur, w - 1, 0), 1.5 * inner + 2.0);
    const double innerRows = (RowStep(fur, 100, 101) + RowStep(fur, 300, 301)) / 2;
    EXPECT_LT(RowStep(fur, h - 1, 0), 1.5 * innerRows + 2.0);
}

// Fraction of pixels whose alpha is at least `minAlpha`.
double Covered(const Picture& pic, int minAlpha) {
    size_t n = 0;
    for (int y = 0; y < pic.height; ++y)
        for (int x = 0; x < pic.width; ++x) n += pic.At(x, y)[3] >= minAlpha;
    return static_cast<double>(n) / (static_cast<double>(pic.width) * pic.height);
}

TEST(GraphicsLogos, MakerLogoIsLightInkOnClear) {
    const Picture logo = Load("logo_vxa.png");
    ASSERT_EQ(logo.width, 160);
    EXPECT_EQ(logo.At(0, 0)[3], 0);
    EXPECT_EQ(logo.At(159, 42)[3], 0);
    const double ink = Covered(logo, 255);
    EXPECT_GT(ink, 0.15);
    EXPECT_LT(ink, 0.6);
    // The letters are light: the middle of the V's left stroke.
    const uint8_t* v = logo.At(30, 12);
    EXPECT_EQ(v[3], 255);
    EXPECT_GT(Luma(v), 180.0);
    // The hole of the A is clear.
    EXPECT_LT(logo.At(123, 20)[3], 64);
}

TEST(GraphicsLogos, AddedLogosAreBlackWhereEmpty) {
    for (const char* name : {"logo_a.png", "logo_opengl.png", "logo_direct3d.png"}) {
        SCOPED_TRACE(name);
        const Picture logo = Load(name);
        ASSERT_FALSE(logo.rgba.empty());
        int lit = 0;
        for (int y = 0; y < logo.height; ++y) {
            for (int x = 0; x < logo.width; ++x) {
                const uint8_t* p = logo.At(x, y);
                // Stored premultiplied: no colour brighter than its coverage.
                ASSERT_LE(std::max({p[0], p[1], p[2]}), p[3] + 1) << x << "," << y;
                lit += p[3] > 0;
            }
        }
        const uint8_t* corner = logo.At(0, 0);
        EXPECT_EQ(corner[0] + corner[1] + corner[2] + corner[3], 0);
        EXPECT_GT(lit, logo.width * logo.height / 50);
    }
    // The product initial glows orange in its middle.
    const Picture a = Load("logo_a.png");
    const uint8_t* leg = a.At(256 - 35, 90);
    EXPECT_GT(leg[0], 200);
    EXPECT_GT(leg[0], leg[1]);
    EXPECT_GT(leg[1], leg[2]);
    // The API names are mid tones (the scene adds colour * (1 - colour)),
    // and the two logos say different things.
    const Picture gl = Load("logo_opengl.png"), d3d = Load("logo_direct3d.png");
    int differing = 0;
    for (size_t i = 0; i < gl.rgba.size() && i < d3d.rgba.size(); i += 4) {
        differing += gl.rgba[i + 3] != d3d.rgba[i + 3];
        if (gl.rgba[i + 3] == 255) {
            EXPECT_GT(gl.rgba[i + 1], 80);
            EXPECT_LT(gl.rgba[i + 1], 200);
        }
    }
    EXPECT_GT(differing, 200);
}

TEST(GraphicsLogos, GpuPanelIsHalfTransparent) {
    const Picture panel = Load("logo_gpu.png");
    ASSERT_EQ(panel.width, 150);
    EXPECT_EQ(panel.At(0, 0)[3], 0);  // rounded corner
    const uint8_t* middle = panel.At(50, 60);
    EXPECT_GT(middle[3], 100);
    EXPECT_LT(middle[3], 180);
    EXPECT_LT(Luma(middle), 40.0);
    EXPECT_GT(panel.At(75, 1)[3], 150);  // the edge line
}

}  // namespace
