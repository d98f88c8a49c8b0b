#include "render/font.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#define STB_TRUETYPE_IMPLEMENTATION
#define STBTT_STATIC
#include <stb_truetype.h>

#if !defined(_WIN32)
#include <fontconfig/fontconfig.h>
#endif

namespace {

bool FileExists(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return f.good();
}

}  // namespace

std::string FindHudFontFile(const std::string& dataFolder) {
#if defined(_WIN32)
    const char* windir = std::getenv("WINDIR");
    if (windir) {
        std::string arial = std::string(windir) + "\\Fonts\\arial.ttf";
        if (FileExists(arial)) return arial;
    }
#else
    if (FcInit()) {
        FcPattern* pattern = FcNameParse(reinterpret_cast<const FcChar8*>("Arial"));
        FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
        FcDefaultSubstitute(pattern);
        FcResult result;
        FcPattern* match = FcFontMatch(nullptr, pattern, &result);
        std::string found;
        FcChar8* file = nullptr;
        if (match && FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch) found = reinterpret_cast<char*>(file);
        if (match) FcPatternDestroy(match);
        FcPatternDestroy(pattern);
        // Only a TrueType face will do for the rasteriser.
        if (!found.empty() && found.size() > 4 && (found.compare(found.size() - 4, 4, ".ttf") == 0)) return found;
    }
#endif
    std::string shipped = dataFolder + "Fonts/LiberationSans-Regular.ttf";
    if (FileExists(shipped)) return shipped;
    return std::string();
}

bool FontAtlas::Build(const std::string& fontFile, float pixelHeight, std::string* error) {
    std::ifstream f(fontFile, std::ios::binary);
    if (!f) {
        *error = "cannot read " + fontFile;
        return false;
    }
    std::vector<unsigned char> ttf((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    return Build(ttf, pixelHeight, error);
}

bool FontAtlas::Build(const std::vector<unsigned char>& ttf, float pixelHeight, std::string* error) {
    stbtt_fontinfo info;
    if (ttf.size() < 12 || stbtt_GetNumberOfFonts(ttf.data()) < 1 ||
        !stbtt_InitFont(&info, ttf.data(), stbtt_GetFontOffsetForIndex(ttf.data(), 0))) {
        *error = "not a TrueType font";
        return false;
    }
    width_ = 512;
    height_ = pixelHeight > 20 ? 512 : 256;
    alpha_.assign(static_cast<size_t>(width_) * height_, 0);
    std::vector<stbtt_bakedchar> baked(224);
    int rows = stbtt_BakeFontBitmap(ttf.data(), stbtt_GetFontOffsetForIndex(ttf.data(), 0), pixelHeight, alpha_.data(),
                                    width_, height_, 32, 224, baked.data());
    if (rows <= 0) {
        *error = "the atlas is too small for the face";
        return false;
    }
    glyphs_.resize(224);
    for (int i = 0; i < 224; ++i)
        glyphs_[i] = Glyph{baked[i].x0, baked[i].y0, baked[i].x1, baked[i].y1, baked[i].xoff, baked[i].yoff,
                           baked[i].xadvance};
    int ascent = 0, descent = 0, gap = 0;
    stbtt_GetFontVMetrics(&info, &ascent, &descent, &gap);
    ascent_ = ascent * stbtt_ScaleForPixelHeight(&info, pixelHeight);
    pixelHeight_ = pixelHeight;
    return true;
}

float FontAtlas::Layout(const std::string& text, float x, float y, std::vector<float>* v) const {
    const float startX = x;
    const float baseline = y + ascent_;
    for (unsigned char c : text) {
        if (c < 32 || glyphs_.empty()) continue;
        const Glyph& g = glyphs_[c - 32];
        float x0 = x + g.xoff, y0 = baseline + g.yoff;
        float x1 = x0 + (g.x1 - g.x0), y1 = y0 + (g.y1 - g.y0);
        float u0 = g.x0 / static_cast<float>(width_), v0 = g.y0 / static_cast<float>(height_);
        float u1 = g.x1 / static_cast<float>(width_), v1 = g.y1 / static_cast<float>(height_);
        if (x1 > x0 && y1 > y0) {
            const float quad[6][4] = {{x0, y0, u0, v0}, {x1, y0, u1, v0}, {x1, y1, u1, v1},
                                      {x0, y0, u0, v0}, {x1, y1, u1, v1}, {x0, y1, u0, v1}};
            for (const auto& q : quad) v->insert(v->end(), q, q + 4);
        }
        x += g.xadvance;
    }
    return x - startX;
}
