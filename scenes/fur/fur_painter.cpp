#include "scenes/fur/fur_painter.h"

#include <cmath>
#include <cstring>

#include "core/event_log.h"
#include "core/settings.h"
#include "monitor/monitor_shell.h"
#include "platform/compiler.h"
#include "runner/run_facts.h"
#include "scenes/fur/gpu_readings.h"
#include "scenes/fur/indicators.h"

std::vector<Image> MipChain(const Image& base) {
    std::vector<Image> levels;
    if (base.empty() || base.width <= 0 || base.height <= 0) return levels;
    levels.push_back(base);
    while (levels.back().width > 1 || levels.back().height > 1) {
        const Image& a = levels.back();
        Image b;
        b.width = a.width > 1 ? a.width / 2 : 1;
        b.height = a.height > 1 ? a.height / 2 : 1;
        b.rgba.resize(static_cast<size_t>(b.width) * b.height * 4);
        for (int y = 0; y < b.height; ++y) {
            for (int x = 0; x < b.width; ++x) {
                // The 2x2 block below (a 1-wide side repeats its one texel).
                const int x0 = a.width > 1 ? 2 * x : x, x1 = a.width > 1 ? 2 * x + 1 : x;
                const int y0 = a.height > 1 ? 2 * y : y, y1 = a.height > 1 ? 2 * y + 1 : y;
                for (int c = 0; c < 4; ++c) {
                    auto at = [&](int xx, int yy) {
                        return static_cast<unsigned>(a.rgba[(static_cast<size_t>(yy) * a.width + xx) * 4 + c]);
                    };
                    const unsigned sum = at(x0, y0) + at(x1, y0) + at(x0, y1) + at(x1, y1);
                    b.rgba[(static_cast<size_t>(y) * b.width + x) * 4 + c] = static_cast<unsigned char>((sum + 2) / 4);
                }
            }
        }
        levels.push_back(std::move(b));
    }
    return levels;
}

namespace {

// A font atlas as a white picture whose alpha is the coverage: text is the
// textured HUD program with the text's colour.
Image CoveragePicture(const FontAtlas& font) {
    Image out;
    out.width = font.width();
    out.height = font.height();
    out.rgba.assign(static_cast<size_t>(out.width) * out.height * 4, 255);
    for (size_t i = 0; i < font.alpha().size() && i * 4 + 3 < out.rgba.size(); ++i) out.rgba[i * 4 + 3] = font.alpha()[i];
    return out;
}

PaintVertex Pixel(float x, float y, float u, float v) { return PaintVertex{x, y, 0.0f, 0.0f, 0.0f, 0.0f, u, v}; }

const float kWhite[4] = {1.0f, 1.0f, 1.0f, 1.0f};

}  // namespace

FurPainter::~FurPainter() = default;

FurPainter::TextureId FurPainter::Upload(const Image& picture, bool mipmapped) {
    if (picture.empty()) return 0;
    // Pictures are stored top row first; textures get them bottom row
    // first, as the OpenGL back-ends upload them, so v = 1 is the top.
    Image flipped = FlippedRows(picture);
    if (mipmapped) return CreateTexture(MipChain(flipped));
    return CreateTexture({flipped});
}

bool FurPainter::Init(const RenderTarget& target, int width, int height) {
    width_ = width;
    height_ = height;
    if (!InitScene(width, height)) return false;
    if (!CreateDevice(target, width, height)) return false;
    RunFacts.msaaSamples = Samples();
    RunFacts.clientWidth = width;
    RunFacts.clientHeight = height;
    if (!CreatePrograms(scene_.params.radialBlurSamples)) return false;

    furMesh_ = CreateMesh(scene_.meshes.fur);
    skinMesh_ = CreateMesh(scene_.meshes.skin);
    quad_ = CreateMesh(UnitSquare());

    bgTexture_ = Upload(background_, true);
    furTexture_ = Upload(furColor_, true);
    if (!bgTexture_) gEventLog.Write("Bkg texture loading failed (see the log file for more details).");
    if (!furTexture_) {
        gEventLog.Write("Fur texture loading failed (see the log file for more details).");
        // Without its picture the fur is drawn in plain light grey, not black.
        Image grey;
        grey.width = grey.height = 1;
        grey.rgba = {200, 200, 200, 255};
        furTexture_ = CreateTexture({grey});
    }
    makerLogoTex_ = Upload(makerLogo_, false);
    productLogoTex_ = Upload(productLogo_, false);
    apiLogoTex_ = Upload(apiLogo_, false);
    gpuLogoTex_ = Upload(gpuLogo_, false);
    if (!UploadDotTextures()) return false;
    postActive_ = CreatePostTarget();

    std::string error;
    std::string fontFile = FindHudFontFile(DataFolder());
    if (fontFile.empty() || !font_.Build(fontFile, 15.0f, &error) || !smallFont_.Build(fontFile, 11.0f, &error)) {
        gEventLog.Write("HUD font \"Arial\" not available: %s", fontFile.empty() ? "no font file found" : error.c_str());
    } else {
        fontTexture_ = CreateTexture({CoveragePicture(font_)});
        smallFontTexture_ = CreateTexture({CoveragePicture(smallFont_)});
    }
    gEventLog.Write("%s", InitLine().c_str());
    return true;
}

void FurPainter::Terminate() {
    CloseTemperatureLog();
    if (platform::FenceOps* fences = FrameFences()) pipeline_.Release(*fences);
    if (!HasDevice()) return;
    // The device owns every texture and buffer; ids are forgotten with it.
    DestroyDevice();
    dotTextures_.clear();
    furMesh_ = skinMesh_ = quad_ = 0;
    bgTexture_ = furTexture_ = makerLogoTex_ = productLogoTex_ = apiLogoTex_ = gpuLogoTex_ = 0;
    fontTexture_ = smallFontTexture_ = 0;
    postActive_ = false;
}

bool FurPainter::UploadDotTextures() {
    const DotSet* set = scene_.params.layerTextures;
    if (!set) return false;
    ReleaseDotTextures();
    for (const std::vector<uint8_t>& layer : set->layers) {
        Image dots;
        dots.width = dots.height = set->size;
        dots.rgba = layer;
        dotTextures_.push_back(CreateTexture(MipChain(dots)));
    }
    return true;
}

void FurPainter::ReleaseDotTextures() {
    for (TextureId t : dotTextures_) FreeTexture(t);
    dotTextures_.clear();
}

void FurPainter::ClearScreen() {
    const float blue[4] = {0.0f, 0.0f, 0.1f, 1.0f};
    ClearBackBuffer(blue);
    PresentBackBuffer();
}

void FurPainter::Frame(float frameSeconds) {
    Advance(frameSeconds);
    SampleTemperatures();
    DrawFrame();
    Present();
}

void FurPainter::Present() {
    PresentBackBuffer();
    if (platform::FenceOps* fences = FrameFences()) pipeline_.Presented(*fences);
}

uint64_t FurPainter::FramesFinished() {
    platform::FenceOps* fences = FrameFences();
    return fences ? pipeline_.Finished(*fences) : kFramesNotTracked;
}

void FurPainter::FinishFrames() {
    if (platform::FenceOps* fences = FrameFences()) pipeline_.Drain(*fences);
}

void FurPainter::PendingCustomImages() {
    Image image;
    if (TakeCustomImage(CustomImageKind::kFur, &image)) {
        if (TextureId t = Upload(image, true)) {
            FreeTexture(furTexture_);
            furTexture_ = t;
        } else {
            gEventLog.Write("%s - Unable to load fur color image [%s]", ImagePrefix(), StartupOptions.fur_custom_diffuse_map);
        }
    }
    if (TakeCustomImage(CustomImageKind::kBackground, &image)) {
        if (TextureId t = Upload(image, true)) {
            FreeTexture(bgTexture_);
            bgTexture_ = t;
        } else {
            gEventLog.Write("%s - Unable to load bkg image [%s]", ImagePrefix(), StartupOptions.fur_custom_bkg_map);
        }
    }
}

bool FurPainter::BeginCheckScene(int* width, int* height) {
    if (!postActive_) return false;
    BeginScene(true);
    *width = width_;
    *height = height_;
    return true;
}

bool FurPainter::DrawCheckFrame(CheckFrame* out) {
    if (!HasDevice()) return false;
    int width = 0, height = 0;
    if (!BeginCheckScene(&width, &height)) return false;
    const float elapsed = elapsed_;
    const int binds = lastBinds_;
    elapsed_ = kCheckAnimationSeconds;
    drawingCheck_ = true;
    DrawCheckScene();
    std::string rgba;
    const bool ok = ReadCheckScene(&rgba);
    drawingCheck_ = false;
    elapsed_ = elapsed;
    lastBinds_ = binds;
    if (!ok || rgba.size() != static_cast<size_t>(width) * height * 4) return false;
    out->width = width;
    out->height = height;
    out->rgba.assign(rgba.begin(), rgba.end());
    return true;
}

void FurPainter::DrawCheckScene() {
    DrawFurBackground();
    DrawFurryObject();
}

void FurPainter::DrawScene() {
    DrawFurBackground();
    DrawFurryObject();
}

void FurPainter::DrawFurBackground() {
    if (bgTexture_) {
        // Over the whole view, the picture's top at the top.
        UseProgram(PaintProgram::kBackground, PaintBlend::kOpaque, false, false);
        SetColor(kWhite);
        BindTexture(kStageColor, bgTexture_);
        const float w = static_cast<float>(width_), h = static_cast<float>(height_);
        DrawPixels({0, 0, 0, 1, w, 0, 1, 1, w, h, 1, 0, 0, 0, 0, 1, w, h, 1, 0, 0, h, 0, 0}, PaintPrimitive::kTriangles);
    }
}

void FurPainter::DrawFurryObject() {
    lastBinds_ = 0;
    if (!render_furry_object && !drawingCheck_) return;

    SurfaceConstants c;
    c.world = ModelMatrix();
    c.view = scene_.camera.view;
    c.projection = scene_.camera.projection;
    c.modelView = c.view * c.world;
    c.worldViewProjection = c.projection * c.modelView;
    c.uvScale = kFurUvScale;

    // The skin, once, opaque.
    UseProgram(PaintProgram::kSkin, PaintBlend::kOpaque, true, true);
    BindTexture(kStageColor, furTexture_);
    SetSurfaceConstants(c);
    DrawMesh(skinMesh_);

    // The shells, innermost first; a dot texture is bound only when the
    // shell's index changes.
    UseProgram(PaintProgram::kFur, PaintBlend::kAlpha, true, true);
    SetElapsedTime(elapsed_);
    int bound = -1;
    for (int i = 0; i < scene_.params.numShells; ++i) {
        const FurShell s = FurShellAt(scene_.params, i);
        c.furLength = s.furLength;
        c.layer = s.layer;
        c.furFade = HairFade(s.layer);
        SetSurfaceConstants(c);
        if (s.texture != bound && s.texture < static_cast<int>(dotTextures_.size())) {
            BindTexture(kStageDots, dotTextures_[static_cast<size_t>(s.texture)]);
            bound = s.texture;
            ++lastBinds_;
        }
        DrawMesh(furMesh_);
    }
    BindTexture(kStageDots, 0);
}

void FurPainter::DrawPixels(const std::vector<float>& xyuv, PaintPrimitive primitive) {
    std::vector<PaintVertex> v;
    v.reserve(xyuv.size() / 4);
    for (size_t i = 0; i + 3 < xyuv.size(); i += 4) v.push_back(Pixel(xyuv[i], xyuv[i + 1], xyuv[i + 2], xyuv[i + 3]));
    if (!v.empty()) DrawVertices(v, primitive);
}

void FurPainter::DrawLogos() {
    struct Logo {
        TextureId texture;
        bool shown;
        int x, y, w, h;  // y from the bottom of the view
        PaintBlend blend;
    };
    const Logo logos[] = {
        {makerLogoTex_, AtomicLoad(StartupOptions.render_vxa_logo), 5, 20, 160, 43, PaintBlend::kAlpha},
        {productLogoTex_, AtomicLoad(StartupOptions.render_a_logo), width_ / 2 - 256, height_ - 128, 512, 128,
         PaintBlend::kAdditive},
        {apiLogoTex_, true, width_ - 128, 15, 128, 64, PaintBlend::kInverseColorAdd},
    };
    for (const Logo& l : logos) {
        if (!l.texture || !l.shown) continue;
        UseProgram(PaintProgram::kHudTextured, l.blend, false, false);
        SetColor(kWhite);
        BindTexture(kStageColor, l.texture);
        const float x0 = static_cast<float>(l.x), x1 = static_cast<float>(l.x + l.w);
        const float y0 = static_cast<float>(height_ - l.y - l.h), y1 = static_cast<float>(height_ - l.y);
        DrawPixels({x0, y0, 0, 1, x1, y0, 1, 1, x1, y1, 1, 0, x0, y0, 0, 1, x1, y1, 1, 0, x0, y1, 0, 0},
                   PaintPrimitive::kTriangles);
    }
}

void FurPainter::BeginOverlay() { UseProgram(PaintProgram::kHudFlat, PaintBlend::kAlpha, false, false); }

void FurPainter::EndOverlay() {}

void FurPainter::DrawText(int x, int y, const Color4& color, const char* text) {
    const FontAtlas& font = smallText_ ? smallFont_ : font_;
    TextureId texture = smallText_ ? smallFontTexture_ : fontTexture_;
    if (!texture || !text) return;
    std::vector<float> v;
    font.Layout(text, static_cast<float>(x), static_cast<float>(y), &v);
    UseProgram(PaintProgram::kHudTextured, PaintBlend::kAlpha, false, false);
    const float rgba[4] = {color.r, color.g, color.b, color.a};
    SetColor(rgba);
    BindTexture(kStageColor, texture);
    DrawPixels(v, PaintPrimitive::kTriangles);
}

void FurPainter::DrawQuad(int x, int y, int w, int h, const Color4& color, unsigned short stipple) {
    const float x0 = static_cast<float>(x), y0 = static_cast<float>(y);
    const float x1 = x0 + static_cast<float>(w), y1 = y0 + static_cast<float>(h);
    const float rgba[4] = {color.r, color.g, color.b, color.a};
    if (stipple != 0xFFFF) {
        // The Direct3D pipelines have no line stipple: the outline is drawn
        // in dashes of the pattern's set bits, one bit per pixel.
        std::vector<float> dashes;
        const float corners[5][2] = {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}, {x0, y0}};
        int bit = 0;
        for (int side = 0; side < 4; ++side) {
            const float ax = corners[side][0], ay = corners[side][1];
            const float bx = corners[side + 1][0], by = corners[side + 1][1];
            const int length = static_cast<int>(std::fabs(bx - ax) + std::fabs(by - ay));
            for (int p = 0; p < length; ++p, bit = (bit + 1) % 16) {
                if (!(stipple & (1u << bit))) continue;
                const float t0 = static_cast<float>(p) / length, t1 = static_cast<float>(p + 1) / length;
                dashes.insert(dashes.end(), {ax + (bx - ax) * t0, ay + (by - ay) * t0, ax + (bx - ax) * t1, ay + (by - ay) * t1});
            }
        }
        DrawLines(dashes, PaintPrimitive::kLines, rgba);
        return;
    }
    UseProgram(PaintProgram::kHudFlat, PaintBlend::kAlpha, false, false);
    SetColor(rgba);
    DrawPixels({x0, y0, 0, 0, x1, y0, 0, 0, x1, y1, 0, 0, x0, y0, 0, 0, x1, y1, 0, 0, x0, y1, 0, 0},
               PaintPrimitive::kTriangles);
}

void FurPainter::DrawLines(const std::vector<float>& xy, PaintPrimitive primitive, const float* color) {
    if (xy.size() < 4) return;
    std::vector<float> v;
    for (size_t i = 0; i + 1 < xy.size(); i += 2) v.insert(v.end(), {xy[i], xy[i + 1], 0.0f, 0.0f});
    UseProgram(PaintProgram::kHudFlat, PaintBlend::kAlpha, false, false);
    SetColor(color);
    DrawPixels(v, primitive);
}

void FurPainter::DrawTemperatureGraphs(const HudFrame& hud) {
    for (const GraphDraw& g : GraphDraws(hud, width_, height_)) {
        std::vector<float> frame = g.frame;  // closed: back to the first corner
        frame.insert(frame.end(), {g.frame[0], g.frame[1]});
        DrawLines(frame, PaintPrimitive::kLineStrip, g.frameColor);
        if (g.drawLine) {
            DrawLines(g.line, PaintPrimitive::kLineStrip, g.lineColor);
            DrawLines(g.minimumMark, PaintPrimitive::kLines, g.frameColor);
        }
        // The label sits on its baseline just above the last point; the
        // text call places a line's top.
        DrawText(g.labelX, font_.TopForBaseline(g.labelBaselineY), g.labelColor, g.label.c_str());
    }
}

void FurPainter::DrawHud() {
    HudFrame hud = CurrentHud(width_, height_);
    BeginOverlay();
    for (const HudRect& r : hud.bars) DrawQuad(r.x, r.y, r.w, r.h, r.color);
    if (gpuLogoTex_) {
        UseProgram(PaintProgram::kHudTextured, PaintBlend::kAlpha, false, false);
        SetColor(kWhite);
        BindTexture(kStageColor, gpuLogoTex_);
        for (const HudRect& p : hud.panels) {
            const float x0 = static_cast<float>(p.x), y0 = static_cast<float>(p.y);
            const float x1 = x0 + static_cast<float>(p.w), y1 = y0 + static_cast<float>(p.h);
            DrawPixels({x0, y0, 0, 1, x1, y0, 1, 1, x1, y1, 1, 0, x0, y0, 0, 1, x1, y1, 1, 0, x0, y1, 0, 0},
                       PaintPrimitive::kTriangles);
        }
    }
    DrawTemperatureGraphs(hud);
    for (const HudText& t : hud.labels) DrawText(t.x, t.y, t.color, t.text.c_str());
    smallText_ = true;
    for (const HudText& t : hud.gpuText) DrawText(t.x, t.y, t.color, t.text.c_str());
    smallText_ = false;
    for (const TextLine& l : hud.textBlock) DrawText(l.x, l.y, l.color, l.text.c_str());
    if (!hud.checkLine.text.empty())
        DrawText(hud.checkLine.x, hud.checkLine.y, hud.checkLine.color, hud.checkLine.text.c_str());
    DrawOverlayExtras();
    EndOverlay();
}

void FurPainter::DrawFrame() {
    PendingCustomImages();
    const bool post = postActive_ && AtomicLoad(StartupOptions.render_post_fx);
    BeginScene(post);
    DrawScene();
    if (post) {
        BeginPostPass();
        UseProgram(PaintProgram::kPostFx, PaintBlend::kOpaque, false, false);
        SetElapsedTime(elapsed_);
        BindTexture(kStageDots, dotTextures_.empty() ? 0 : dotTextures_[0]);
        DrawMesh(quad_);
        BindTexture(kStageColor, 0);
        BindTexture(kStageDots, 0);
    }
    DrawLogos();
    DrawHud();
}

bool FurPainter::ReadBackFrame(std::string* rgba, int* width, int* height) {
    if (!HasDevice()) return false;
    // A presented frame cannot be read back reliably: the same frame is
    // drawn again and read before it would be presented.
    DrawFrame();
    if (!ReadBackBuffer(rgba)) return false;
    for (size_t i = 3; i < rgba->size(); i += 4) (*rgba)[i] = static_cast<char>(0xFF);
    *width = width_;
    *height = height_;
    return true;
}
