#include "uvc/ControlTable.h"

#include <linux/usb/video.h>

#include <algorithm>
#include <iterator>

namespace uvc_gadget {

namespace {

constexpr Entity CT = Entity::CameraTerminal;
constexpr Entity PU = Entity::ProcessingUnit;
constexpr Entity XU = Entity::ExtensionUnit;

// Ranges and defaults as camera/CamSettingCollection.cc declares them; the
// sizes and signedness are those of the UVC controls. The AE-mode row's
// resolution is the bitmap of modes it supports (manual, auto, shutter
// priority), as GET_RES of that control reports.
const ControlRow kRows[] = {
    {PU, UVC_PU_BACKLIGHT_COMPENSATION_CONTROL, "backlightCompensation", nullptr, 2, false, 0, 1, 1,
     0},
    {PU, UVC_PU_BRIGHTNESS_CONTROL, "brightness", nullptr, 2, true, 0, 255, 1, 128},
    {PU, UVC_PU_CONTRAST_CONTROL, "contrast", nullptr, 2, false, 0, 255, 1, 255},
    {PU, UVC_PU_GAIN_CONTROL, "gain", nullptr, 2, false, 1, 50, 1, 3},
    {PU, UVC_PU_POWER_LINE_FREQUENCY_CONTROL, "powerLineFrequency", nullptr, 1, false, 0, 2, 1, 2},
    {PU, UVC_PU_HUE_CONTROL, "hue", nullptr, 2, true, 0, 270, 1, 90},
    {PU, UVC_PU_SATURATION_CONTROL, "saturation", nullptr, 2, false, 0, 255, 1, 128},
    {PU, UVC_PU_SHARPNESS_CONTROL, "sharpness", nullptr, 2, false, 0, 255, 1, 128},
    {PU, UVC_PU_GAMMA_CONTROL, "gamma", nullptr, 2, false, 1, 500, 1, 1},
    {PU, UVC_PU_WHITE_BALANCE_TEMPERATURE_CONTROL, "whiteBalanceTemp", nullptr, 2, false, 2000,
     7500, 100, 4500},
    {PU, UVC_PU_WHITE_BALANCE_TEMPERATURE_AUTO_CONTROL, "whiteBalanceTempAuto", nullptr, 1, false,
     0, 1, 1, 1},
    {CT, UVC_CT_AE_MODE_CONTROL, "aeMode", nullptr, 1, false, 1, 4, 7, 2},
    {CT, UVC_CT_EXPOSURE_TIME_ABSOLUTE_CONTROL, "exposureTimeAbs", nullptr, 4, false, 64, 1024, 1,
     256},
    {CT, UVC_CT_FOCUS_ABSOLUTE_CONTROL, "focusAbs", nullptr, 2, false, 1, 1000, 1, 150},
    {CT, UVC_CT_FOCUS_AUTO_CONTROL, "focusAuto", nullptr, 1, false, 0, 1, 1, 1},
    {CT, UVC_CT_ZOOM_ABSOLUTE_CONTROL, "zoomAbs", nullptr, 2, false, 100, 2000, 1, 100},
    // Pan and tilt in arc seconds; the library's tilt row is named "tile".
    {CT, UVC_CT_PANTILT_ABSOLUTE_CONTROL, "pan", "tile", 4, true, -360000, 360000, 3600, 0},
    {CT, UVC_CT_PRIVACY_CONTROL, "privacy", nullptr, 1, false, 0, 1, 1, 0},
    // The rest of the table, one selector each; a field as wide as the range
    // needs. Selectors are fixed once a host may have stored a mapping.
    {XU, 1, "osd", nullptr, 1, false, 0, 1, 1, 0},
    {XU, 2, "acoustic_fence", nullptr, 1, false, 0, 3, 1, 0},
    {XU, 3, "noise_block", nullptr, 2, false, 0, 0x1050, 0x1050, 0x10},
    {XU, 4, "stereo_audio", nullptr, 2, false, 0, 0x1050, 0x1050, 0x10},
    {XU, 5, "base_boost", nullptr, 2, false, 0, 0x1050, 0x1050, 0x10},
    {XU, 6, "start_bluetooth_pairing_mode_for_phone", nullptr, 2, false, 0, 0x1050, 0x1050, 0x10},
    {XU, 7, "persist.vendor.talker_tracking", nullptr, 1, false, 0, 4, 1, 1},
    {XU, 8, "persist.vendor.group_framing", nullptr, 1, false, 0, 1, 1, 0},
    {XU, 9, "framing_size", nullptr, 1, false, 0, 2, 1, 1},
    {XU, 10, "tracking_speed", nullptr, 1, false, 0, 2, 1, 1},
};

}  // namespace

const uint8_t kExtensionGuid[16] = {0xeb, 0x69, 0x80, 0x72, 0xe8, 0x37, 0x13, 0x44,
                                    0x88, 0xef, 0xe8, 0x7f, 0x35, 0xd5, 0xc8, 0x34};

const ControlRow* findControl(Entity entity, uint8_t selector) {
    for (const ControlRow& row : kRows) {
        if (row.entity == entity && row.selector == selector)
            return &row;
    }
    return nullptr;
}

const ControlRow* controlRows(size_t& count) {
    count = std::size(kRows);
    return kRows;
}

void encodeField(const ControlRow& row, int32_t value, unsigned field, uint8_t* out) {
    const uint32_t bits = static_cast<uint32_t>(value);
    for (unsigned i = 0; i < row.fieldSize; ++i)
        out[field * row.fieldSize + i] = static_cast<uint8_t>(bits >> (8 * i));
}

int32_t decodeField(const ControlRow& row, const uint8_t* data, unsigned field) {
    uint32_t bits = 0;
    for (unsigned i = 0; i < row.fieldSize; ++i)
        bits |= uint32_t(data[field * row.fieldSize + i]) << (8 * i);
    if (row.isSigned && row.fieldSize < 4) {
        const uint32_t sign = 1u << (8 * row.fieldSize - 1);
        bits = (bits ^ sign) - sign;  // sign-extend without shifting into the sign bit
    }
    return static_cast<int32_t>(bits);
}

int32_t clampToRange(const ControlRow& row, int32_t value) {
    return std::min(std::max(value, row.min), row.max);
}

}  // namespace uvc_gadget
