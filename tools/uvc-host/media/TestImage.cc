#include "media/TestImage.h"

#include <algorithm>
#include <string>

#include "media/DigitPainter.h"

namespace uvc_host {

TestImage::TestImage(FrameSize size, uint64_t number) : size_(size) {
    const int w = int(size.width);
    const int h = int(size.height);
    const int cw = (w + 1) / 2;
    const int ch = (h + 1) / 2;
    planes_[0].resize(size_t(w) * h);
    planes_[1].assign(size_t(cw) * ch, uint8_t(64 + (number * 7) % 128));
    planes_[2].assign(size_t(cw) * ch, uint8_t(192 - (number * 5) % 128));
    // Diagonal luma bands that move by four pixels per frame.
    for (int row = 0; row < h; ++row) {
        for (int col = 0; col < w; ++col) {
            planes_[0][size_t(row) * w + col] = uint8_t(48 + ((row + col + number * 4) % 128));
        }
    }
    std::string digits = std::to_string(number);
    // As large as fits in 80 % of the width and half the height.
    int scale = std::max(1, std::min(w * 4 / 5 / std::max(1, DigitPainter::textWidth(digits, 1)),
                                     h / 2 / DigitPainter::textHeight(1)));
    int tw = DigitPainter::textWidth(digits, scale);
    int th = DigitPainter::textHeight(scale);
    int x = (w - tw) / 2;
    int y = (h - th) / 2;
    DigitPainter painter(planes_[0].data(), w, w, h);
    painter.fillRect(x - scale, y - scale, tw + 2 * scale, th + 2 * scale, 16);
    painter.draw(digits, x, y, scale, 235);
    // Neutral chroma behind the digits keeps them white on black.
    DigitPainter chroma[2] = {{planes_[1].data(), cw, cw, ch}, {planes_[2].data(), cw, cw, ch}};
    for (DigitPainter& p : chroma) {
        p.fillRect((x - scale) / 2, (y - scale) / 2, (tw + 2 * scale + 1) / 2,
                   (th + 2 * scale + 1) / 2, 128);
    }
}

std::vector<uint8_t> TestImage::packed() const {
    std::vector<uint8_t> out;
    for (const std::vector<uint8_t>& p : planes_) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

}  // namespace uvc_host
