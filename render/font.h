// The HUD font: a TrueType face rasterised once into an alpha atlas, and
// lines of text laid out as textured quads (one batch per line).
#pragma once

#include <string>
#include <vector>

// The "Arial" face the HUD asks for: the system's Arial on Windows, the
// metric-compatible Liberation Sans found through fontconfig on Linux, else
// the copy in the program's data folder. Empty when none can be found.
std::string FindHudFontFile(const std::string& dataFolder);

class FontAtlas {
public:
    // Rasterises the Latin-1 characters of the face at the given pixel height.
    bool Build(const std::string& fontFile, float pixelHeight, std::string* error);
    bool Build(const std::vector<unsigned char>& ttf, float pixelHeight, std::string* error);

    int width() const { return width_; }
    int height() const { return height_; }
    const std::vector<unsigned char>& alpha() const { return alpha_; }
    float pixelHeight() const { return pixelHeight_; }

    // Two triangles per printable character: x, y (pixels, y down from the
    // top of the view, the line's top at y) and u, v; 4 floats per vertex.
    // Returns the advance width of the line.
    float Layout(const std::string& text, float x, float y, std::vector<float>* vertices) const;
    // Distance from a line's top to its baseline, in pixels.
    float ascent() const { return ascent_; }
    // The top y at which a line must be laid out for its baseline to sit at
    // `baselineY` (text placed "just above" a point sits on it).
    int TopForBaseline(int baselineY) const { return baselineY - static_cast<int>(ascent_ + 0.5f); }

private:
    struct Glyph {
        unsigned short x0, y0, x1, y1;
        float xoff, yoff, xadvance;
    };
    std::vector<Glyph> glyphs_;  // characters 32..255
    std::vector<unsigned char> alpha_;
    int width_ = 0;
    int height_ = 0;
    float pixelHeight_ = 0.0f;
    float ascent_ = 0.0f;
};
