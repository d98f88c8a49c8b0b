// The launcher's screenshots, for both GUI windows: the frame just drawn is
// read back when one was asked for, before it is presented (after the swap
// the back buffer's contents are undefined), and handed over top row first.
// Include after the platform's OpenGL header.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace platform {

class GuiFrameCapture {
public:
    void Request() {
        want_ = true;
        have_ = false;
    }

    // Drawing area of w x h pixels, on the current context.
    void ReadIfRequested(int w, int h) {
        if (!want_ || w <= 0 || h <= 0) return;
        width_ = w;
        height_ = h;
        frame_.assign(static_cast<size_t>(w) * static_cast<size_t>(h) * 4, '\0');
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glReadPixels(0, 0, w, h, GL_RGBA, GL_UNSIGNED_BYTE, &frame_[0]);
        want_ = false;
        have_ = true;
    }

    bool Take(std::string* rgba, int* width, int* height) {
        if (!have_) return false;
        have_ = false;
        // GL rows start at the bottom.
        const size_t row = static_cast<size_t>(width_) * 4;
        rgba->resize(frame_.size());
        for (int y = 0; y < height_; ++y)
            std::copy_n(frame_.begin() + static_cast<std::ptrdiff_t>(row * static_cast<size_t>(height_ - 1 - y)), row,
                        rgba->begin() + static_cast<std::ptrdiff_t>(row * static_cast<size_t>(y)));
        *width = width_;
        *height = height_;
        return true;
    }

private:
    bool want_ = false;
    bool have_ = false;
    std::string frame_;
    int width_ = 0, height_ = 0;
};

}  // namespace platform
