#pragma once

#include <cstdint>
#include <string>

namespace uvc_host {

// Draws decimal numbers into an 8-bit plane with a 5 x 7 dot font, each dot
// a square of `scale` pixels, one dot of space between digits. Everything
// outside the plane is clipped.
class DigitPainter {
public:
    DigitPainter(uint8_t* plane, int stride, int width, int height);

    // Width and height in pixels of a number drawn at this scale.
    static int textWidth(const std::string& digits, int scale);
    static int textHeight(int scale) { return 7 * scale; }

    // Top-left corner at (x, y); non-digit characters are left blank.
    void draw(const std::string& digits, int x, int y, int scale, uint8_t value);
    void fillRect(int x, int y, int w, int h, uint8_t value);

private:
    uint8_t* plane_;
    int stride_;
    int width_;
    int height_;
};

}  // namespace uvc_host
