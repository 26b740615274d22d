#pragma once

#include <string>

namespace uvc_client {

// This system's own numbering of camera controls; these are not UVC selector
// codes. 17 to 19 are unused.
enum uvc_ctrl_t : int {
    BACKLIGHT_COMPENSATION = 0,
    BRIGHTNESS = 1,
    CONTRAST = 2,
    SATURATION = 3,
    SHARPNESS = 4,
    GAIN = 5,
    POWER_LINE_FREQUENCY = 6,
    WHITE_BALANCE_TEMP = 7,
    WHITE_BALANCE_TEMP_AUTO = 8,
    AE_MODE = 9,
    EXPOSURE_TIME_ABS = 10,
    FOCUS_AUTO = 11,
    FOCUS_ABS = 12,
    ZOOM_ABS = 13,
    PAN_TILT = 14,  // pan and tilt together; no row carries it
    GAMMA = 15,
    HUE = 16,
    PRIVACY = 20,
    NO_CONTROL = 21,  // every setting that is not a UVC control
};

// Current value of a setting that was never written.
constexpr int NOT_SET = -255;

// One camera setting. min/max/res/def describe the control; nothing checks a
// written value against them.
class CamSetting {
public:
    // Longest name set_name produces; longer camel-case forms are cut here.
    static constexpr size_t kMaxNameLength = 255;

    // A UVC control: the stored name is the camel-case form of `name`.
    CamSetting(const std::string& name, uvc_ctrl_t ctrl, int min, int max, int res, int def);
    // A device feature that is not a UVC control: `name` is stored unchanged.
    CamSetting(const std::string& name, int min, int max, int res, int def);
    virtual ~CamSetting();

    // Replaces `name` by the camel-case form of `text` ("AE_MODE" -> "aeMode")
    // and prints the conversion.
    void set_name(const char* text);

    std::string name;
    uvc_ctrl_t ctrl;
    int min;
    int max;
    int res;
    int def;
    int cur;
    int cur2;
};

}  // namespace uvc_client
