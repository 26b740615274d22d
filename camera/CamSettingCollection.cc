#include "camera/CamSettingCollection.h"

#include <climits>
#include <cstdio>
#include <cstdlib>

namespace uvc_client {

namespace {

// atoi of `text`, but defined for every input: a number beyond the range of
// int is clamped to INT_MIN or INT_MAX, as atoi behaves where long is 32 bits
// (the device). strtoll saturates at its own limits, so nothing overflows.
int atoiClamped(const std::string& text) {
    const long long value = strtoll(text.c_str(), nullptr, 10);
    if (value > INT_MAX) {
        return INT_MAX;
    }
    if (value < INT_MIN) {
        return INT_MIN;
    }
    return static_cast<int>(value);
}

}  // namespace

CamSettingCollection& CamSettingCollection::Instance() {
    static CamSettingCollection instance;
    return instance;
}

CamSettingCollection::CamSettingCollection() {
    addControl("BRIGHTNESS", BRIGHTNESS, 0, 255, 1, 128);
    addControl("CONTRAST", CONTRAST, 0, 255, 1, 255);
    addControl("POWER_LINE_FREQUENCY", POWER_LINE_FREQUENCY, 0, 2, 1, 2);
    addControl("SATURATION", SATURATION, 0, 255, 1, 128);
    addControl("SHARPNESS", SHARPNESS, 0, 255, 1, 128);
    addControl("WHITE_BALANCE_TEMP_AUTO", WHITE_BALANCE_TEMP_AUTO, 0, 1, 1, 1);
    addControl("WHITE_BALANCE_TEMP", WHITE_BALANCE_TEMP, 2000, 7500, 100, 4500);
    addControl("BACKLIGHT_COMPENSATION", BACKLIGHT_COMPENSATION, 0, 1, 1, 0);
    addControl("HUE", HUE, 0, 270, 1, 90);
    addControl("GAMMA", GAMMA, 1, 500, 1, 1);
    addControl("GAIN", GAIN, 1, 50, 1, 3);
    // The step column of AE_MODE holds the supported modes 1, 2 and 4 as bits,
    // the way the UVC AE-mode control reports its resolution.
    addControl("AE_MODE", AE_MODE, 1, 4, 7, 2);
    addControl("EXPOSURE_TIME_ABS", EXPOSURE_TIME_ABS, 64, 1024, 1, 256);
    addControl("ZOOM_ABS", ZOOM_ABS, 100, 2000, 1, 100);
    addControl("PRIVACY", PRIVACY, 0, 1, 1, 0);
    addControl("FOCUS_AUTO", FOCUS_AUTO, 0, 1, 1, 1);
    addControl("FOCUS_ABS", FOCUS_ABS, 1, 1000, 1, 150);

    // Pan and tilt in arc seconds: +-100 degrees in steps of one degree. The
    // tilt row is named "tile"; hosts address it by that name.
    addFeature("pan", -360000, 360000, 3600, 0);
    addFeature("tile", -360000, 360000, 3600, 0);
    addFeature("osd", 0, 1, 1, 0);
    addFeature("acoustic_fence", 0, 3, 1, 0);
    addFeature("noise_block", 0, 0x1050, 0x1050, 0x10);
    addFeature("stereo_audio", 0, 0x1050, 0x1050, 0x10);
    addFeature("base_boost", 0, 0x1050, 0x1050, 0x10);
    addFeature("start_bluetooth_pairing_mode_for_phone", 0, 0x1050, 0x1050, 0x10);
    // Only row names in the form of system properties; no property is touched.
    addFeature("persist.vendor.talker_tracking", 0, 4, 1, 1);
    addFeature("persist.vendor.group_framing", 0, 1, 1, 0);
    addFeature("framing_size", 0, 2, 1, 1);
    addFeature("tracking_speed", 0, 2, 1, 1);
}

CamSettingCollection::~CamSettingCollection() = default;

void CamSettingCollection::addControl(const std::string& name, uvc_ctrl_t ctrl, int min, int max,
                                      int res, int def) {
    auto setting = std::make_shared<CamSetting>(name, ctrl, min, max, res, def);
    settingsByName[setting->name] = setting;
    settingsByCtrl[ctrl] = setting;
}

void CamSettingCollection::addFeature(const std::string& name, int min, int max, int res, int def) {
    auto setting = std::make_shared<CamSetting>(name, min, max, res, def);
    settingsByName[setting->name] = setting;
}

int CamSettingCollection::getCurrent(const std::string& name) {
    auto it = settingsByName.find(name);
    if (it == settingsByName.end()) {
        printf("no setting named: [%s]\n", name.c_str());
        return -1;
    }
    return it->second->cur;
}

void CamSettingCollection::setCurrent(const std::string& name, const std::string& value) {
    auto it = settingsByName.find(name);
    if (it == settingsByName.end()) {
        printf("no setting named: [%s]\n", name.c_str());
        return;
    }
    it->second->cur = atoiClamped(value);
}

void CamSettingCollection::setCamParam(int type, int value, int value2) {
    auto it = settingsByCtrl.find(type);
    if (it != settingsByCtrl.end()) {
        it->second->cur = value;
        it->second->cur2 = value2;
        return;
    }
    if (type == PAN_TILT) {
        auto pan = settingsByName.find("pan");
        if (pan != settingsByName.end()) {
            pan->second->cur = value;
        }
        auto tilt = settingsByName.find("tile");
        if (tilt != settingsByName.end()) {
            tilt->second->cur = value2;
        }
        return;
    }
    printf("no setting named: [%d]\n", type);
}

}  // namespace uvc_client
