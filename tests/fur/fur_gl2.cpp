#include "tests/fur/fur_gl2.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "app/event_log.h"
#include "app/settings.h"
#include "app/shell.h"
#include "render/gl_api.h"
#include "runner/run_facts.h"
#include "runner/text_block.h"

namespace {

const char* GlText(GLenum name) {
    const GLubyte* s = gl::GetString(name);
    return s ? reinterpret_cast<const char*>(s) : "n.a.";
}

}  // namespace

cLm4DDemo_OpenGL_2::cLm4DDemo_OpenGL_2() { api_id = 2; }

cLm4DDemo_OpenGL_2::~cLm4DDemo_OpenGL_2() { Terminate(); }

bool cLm4DDemo_OpenGL_2::Init(const RenderTarget& target, int width, int height) {
    target_ = target;
    width_ = width;
    height_ = height;

    platform::GlContextRequest req;
    req.major = 2;
    req.minor = 0;
    req.samples = AaSampleCount(StartupOptions.aa_mode);
    std::string error;
    context_ = platform::CreateGlContext(target, req, &error);
    if (!context_) {
        gEventLog.Write(target.headless ? "OpenGL initialization failed!" : "OpenGL 2 window creation failed!");
        gEventLog.Write("OpenGL: %s", error.c_str());
        return false;
    }
    const char* missing = gl::LoadFunctions(platform::CurrentGlProcAddress);
    GLint major = 0, minor = 0;
    if (gl::GetString) std::sscanf(GlText(gl::VERSION), "%d.%d", &major, &minor);
    if (major < 2) {
        gEventLog.Write("This test requires at least an OpenGL 2.0 support.");
        return false;
    }
    if (*missing) {
        gEventLog.Write("OpenGL initialization failed!");
        gEventLog.Write("OpenGL: missing entry points: %s", missing);
        return false;
    }
    gEventLog.Write("OpenGL version: %s", GlText(gl::VERSION));
    gEventLog.Write("OpenGL vendor: %s", GlText(gl::VENDOR));
    gEventLog.Write("OpenGL renderer: %s", GlText(gl::RENDERER));
    renderer_ = GlText(gl::RENDERER);
    RunFacts.renderer = renderer_;
    RunFacts.driver = GlText(gl::VERSION);
    RunFacts.msaaSamples = context_->Samples();
    RunFacts.clientWidth = width;
    RunFacts.clientHeight = height;

    // The HUD font; without it the run goes on with no text.
    std::string fontFile = FindHudFontFile(gShell.programFolder + "data/");
    if (fontFile.empty() || !font_.Build(fontFile, 15.0f, &error)) {
        gEventLog.Write("HUD font \"Arial\" not available: %s", fontFile.empty() ? "no font file found" : error.c_str());
    } else {
        gl::GenTextures(1, &fontTexture_);
        gl::BindTexture(gl::TEXTURE_2D, fontTexture_);
        gl::PixelStorei(gl::UNPACK_ALIGNMENT, 1);
        gl::TexImage2D(gl::TEXTURE_2D, 0, gl::ALPHA, font_.width(), font_.height(), 0, gl::ALPHA, gl::UNSIGNED_BYTE,
                       font_.alpha().data());
        gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MIN_FILTER, gl::LINEAR);
        gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MAG_FILTER, gl::LINEAR);
        gl::BindTexture(gl::TEXTURE_2D, 0);
    }

    gEventLog.Write("OpenGL 2 (%d.%d) context init ok.", major, minor);
    return true;
}

void cLm4DDemo_OpenGL_2::Terminate() {
    if (!context_) return;
    if (fontTexture_) gl::DeleteTextures(1, &fontTexture_);
    fontTexture_ = 0;
    context_.reset();
}

void cLm4DDemo_OpenGL_2::ClearScreen() {
    gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
    gl::Viewport(0, 0, width_, height_);
    gl::ClearColor(0.0f, 0.0f, 0.1f, 1.0f);
    gl::Clear(gl::COLOR_BUFFER_BIT);
    Present();
}

void cLm4DDemo_OpenGL_2::Frame(float frameSeconds) {
    elapsed_ += frameSeconds;
    Draw();
    Present();
}

void cLm4DDemo_OpenGL_2::Draw() {
    if (context_->Samples() > 1) gl::Enable(gl::MULTISAMPLE);
    gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
    gl::Viewport(0, 0, width_, height_);
    gl::ClearColor(0.0f, 0.0f, 0.0f, 1.0f);
    gl::ClearDepth(1.0);
    gl::Enable(gl::DEPTH_TEST);
    gl::Clear(gl::COLOR_BUFFER_BIT | gl::DEPTH_BUFFER_BIT);
    // The fur scene is drawn here once it exists; until then the view stays
    // cleared and the text block tells what runs.
    DrawTextBlock();
}

void cLm4DDemo_OpenGL_2::Present() { context_->SwapBuffers(); }

void cLm4DDemo_OpenGL_2::BeginOverlay() {
    gl::PushAttrib(gl::ALL_ATTRIB_BITS);
    gl::MatrixMode(gl::PROJECTION);
    gl::PushMatrix();
    gl::LoadIdentity();
    gl::Ortho(0.0, width_, height_, 0.0, -1.0, 1.0);
    gl::MatrixMode(gl::MODELVIEW);
    gl::PushMatrix();
    gl::LoadIdentity();
    gl::Disable(gl::DEPTH_TEST);
    gl::Disable(gl::LIGHTING);
    gl::Disable(gl::CULL_FACE);
    gl::Enable(gl::BLEND);
    gl::BlendFunc(gl::SRC_ALPHA, gl::ONE_MINUS_SRC_ALPHA);
}

void cLm4DDemo_OpenGL_2::EndOverlay() {
    gl::MatrixMode(gl::MODELVIEW);
    gl::PopMatrix();
    gl::MatrixMode(gl::PROJECTION);
    gl::PopMatrix();
    gl::PopAttrib();
    gl::Enable(gl::DEPTH_TEST);
}

void cLm4DDemo_OpenGL_2::DrawText(int x, int y, const Color4& color, const char* text) {
    if (!fontTexture_ || !text) return;
    // One batch per line: every glyph's quad in one array, one draw call.
    std::vector<float> v;
    font_.Layout(text, static_cast<float>(x), static_cast<float>(y), &v);
    if (v.empty()) return;
    gl::Enable(gl::TEXTURE_2D);
    gl::BindTexture(gl::TEXTURE_2D, fontTexture_);
    gl::Color4f(color.r, color.g, color.b, color.a);
    gl::EnableClientState(gl::VERTEX_ARRAY);
    gl::EnableClientState(gl::TEXTURE_COORD_ARRAY);
    gl::VertexPointer(2, gl::FLOAT, 4 * sizeof(float), v.data());
    gl::TexCoordPointer(2, gl::FLOAT, 4 * sizeof(float), v.data() + 2);
    gl::DrawArrays(gl::TRIANGLES, 0, static_cast<GLsizei>(v.size() / 4));
    gl::DisableClientState(gl::TEXTURE_COORD_ARRAY);
    gl::DisableClientState(gl::VERTEX_ARRAY);
    gl::BindTexture(gl::TEXTURE_2D, 0);
    gl::Disable(gl::TEXTURE_2D);
}

void cLm4DDemo_OpenGL_2::DrawQuad(int x, int y, int w, int h, const Color4& color, unsigned short stipple) {
    const float fx = static_cast<float>(x), fy = static_cast<float>(y);
    const float fw = static_cast<float>(w), fh = static_cast<float>(h);
    gl::Color4f(color.r, color.g, color.b, color.a);
    gl::EnableClientState(gl::VERTEX_ARRAY);
    if (stipple != 0xFFFF) {
        const float outline[8] = {fx, fy, fx + fw, fy, fx + fw, fy + fh, fx, fy + fh};
        gl::Enable(gl::LINE_STIPPLE);
        gl::LineStipple(1, stipple);
        gl::VertexPointer(2, gl::FLOAT, 0, outline);
        gl::DrawArrays(gl::LINE_LOOP, 0, 4);
        gl::Disable(gl::LINE_STIPPLE);
    } else {
        const float quad[12] = {fx, fy, fx + fw, fy, fx + fw, fy + fh, fx, fy, fx + fw, fy + fh, fx, fy + fh};
        gl::VertexPointer(2, gl::FLOAT, 0, quad);
        gl::DrawArrays(gl::TRIANGLES, 0, 6);
    }
    gl::DisableClientState(gl::VERTEX_ARRAY);
}

void cLm4DDemo_OpenGL_2::DrawTextBlock() {
    BeginOverlay();
    for (const TextLine& line : BuildTextBlock(CurrentTextBlockInput(*this, width_, renderer_)))
        DrawText(line.x, line.y, line.color, line.text.c_str());
    EndOverlay();
}

bool cLm4DDemo_OpenGL_2::ReadBackFrame(std::string* rgba, int* width, int* height) {
    if (!context_) return false;
    GLuint source = context_->DefaultFramebuffer();
    GLuint resolve = 0, color = 0;
    if (context_->Samples() > 1 && source != 0) {
        // A multisampled target is resolved into a plain one before reading.
        gl::GenFramebuffers(1, &resolve);
        gl::GenRenderbuffers(1, &color);
        gl::BindRenderbuffer(gl::RENDERBUFFER, color);
        gl::RenderbufferStorage(gl::RENDERBUFFER, gl::RGBA8, width_, height_);
        gl::BindFramebuffer(gl::FRAMEBUFFER, resolve);
        gl::FramebufferRenderbuffer(gl::FRAMEBUFFER, gl::COLOR_ATTACHMENT0, gl::RENDERBUFFER, color);
        gl::BindFramebuffer(gl::READ_FRAMEBUFFER, source);
        gl::BindFramebuffer(gl::DRAW_FRAMEBUFFER, resolve);
        gl::BlitFramebuffer(0, 0, width_, height_, 0, 0, width_, height_, gl::COLOR_BUFFER_BIT, gl::NEAREST);
        source = resolve;
    }
    gl::BindFramebuffer(gl::FRAMEBUFFER, source);
    if (source == 0) {
        // A window's shown frame cannot be read back reliably once it was
        // swapped: the same frame is drawn again into the back buffer.
        Draw();
        gl::ReadBuffer(gl::BACK);
    }
    std::string pixels(static_cast<size_t>(width_) * height_ * 4, '\0');
    gl::PixelStorei(gl::PACK_ALIGNMENT, 1);
    gl::ReadPixels(0, 0, width_, height_, gl::RGBA, gl::UNSIGNED_BYTE, &pixels[0]);
    if (resolve) {
        gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
        gl::DeleteFramebuffers(1, &resolve);
        gl::DeleteRenderbuffers(1, &color);
    }
    // OpenGL reads bottom-up; images are stored top row first.
    const size_t row = static_cast<size_t>(width_) * 4;
    rgba->assign(pixels.size(), '\0');
    for (int y = 0; y < height_; ++y)
        std::memcpy(&(*rgba)[static_cast<size_t>(y) * row], &pixels[static_cast<size_t>(height_ - 1 - y) * row], row);
    // A screenshot is what the screen showed: opaque, whatever the target's
    // alpha channel held.
    for (size_t i = 3; i < rgba->size(); i += 4) (*rgba)[i] = static_cast<char>(0xFF);
    *width = width_;
    *height = height_;
    return true;
}
