#include "media/DigitPainter.h"

#include <algorithm>

namespace uvc_host {

namespace {

// Rows of each digit, top first; bit 4 is the leftmost dot.
const uint8_t kFont[10][7] = {
    {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}, {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E},
    {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}, {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E},
    {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}, {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E},
    {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}, {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},
    {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}, {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C},
};

}  // namespace

DigitPainter::DigitPainter(uint8_t* plane, int stride, int width, int height)
    : plane_(plane), stride_(stride), width_(width), height_(height) {}

int DigitPainter::textWidth(const std::string& digits, int scale) {
    return digits.empty() ? 0 : int(digits.size()) * 6 * scale - scale;
}

void DigitPainter::fillRect(int x, int y, int w, int h, uint8_t value) {
    int x0 = std::max(x, 0);
    int y0 = std::max(y, 0);
    int x1 = std::min(x + w, width_);
    int y1 = std::min(y + h, height_);
    for (int row = y0; row < y1; ++row) {
        for (int col = x0; col < x1; ++col) {
            plane_[row * stride_ + col] = value;
        }
    }
}

void DigitPainter::draw(const std::string& digits, int x, int y, int scale, uint8_t value) {
    for (size_t i = 0; i < digits.size(); ++i) {
        char c = digits[i];
        if (c < '0' || c > '9') {
            continue;
        }
        int left = x + int(i) * 6 * scale;
        for (int row = 0; row < 7; ++row) {
            for (int dot = 0; dot < 5; ++dot) {
                if (kFont[c - '0'][row] & (0x10 >> dot)) {
                    fillRect(left + dot * scale, y + row * scale, scale, scale, value);
                }
            }
        }
    }
}

}  // namespace uvc_host
