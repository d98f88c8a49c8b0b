// The OpenGL 2 back-end of the fur test.
#pragma once

#include <memory>
#include <string>

#include "platform/gl_context.h"
#include "render/font.h"
#include "tests/fur/lm4d_demo.h"

class cLm4DDemo_OpenGL_2 : public cLm4DDemo {
public:
    cLm4DDemo_OpenGL_2();
    ~cLm4DDemo_OpenGL_2() override;

    bool Init(const RenderTarget& target, int width, int height) override;
    void Terminate() override;
    void ClearScreen() override;
    void Frame(float frameSeconds) override;
    void Present() override;
    void BeginOverlay() override;
    void EndOverlay() override;
    void DrawText(int x, int y, const Color4& color, const char* text) override;
    void DrawQuad(int x, int y, int w, int h, const Color4& color, unsigned short stipple) override;
    bool ReadBackFrame(std::string* rgba, int* width, int* height) override;

    // The renderer's own words, for the HUD heading and the scores file.
    const std::string& Renderer() const { return renderer_; }

private:
    // The whole frame, without presenting it.
    void Draw();
    void DrawTextBlock();

    std::unique_ptr<platform::GlContext> context_;
    RenderTarget target_;
    int width_ = 0;
    int height_ = 0;
    FontAtlas font_;
    unsigned fontTexture_ = 0;
    std::string renderer_;
    float elapsed_ = 0.0f;
};
