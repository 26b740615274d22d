#pragma once

#include <map>
#include <memory>
#include <string>

#include "camera/CamSetting.h"
#include "uvc_export.h"

namespace uvc_client {

// The process-wide table of camera settings. It only records values: writes
// are not range-checked, not sent to the camera and not persisted. It has no
// lock; it is used on the thread that delivers camera messages.
class CamSettingCollection {
public:
    // Exported so that tools can list the rows (names, ranges, defaults).
    UVC_EXPORT static CamSettingCollection& Instance();

    // Builds the fixed 29 rows; prints one "Camel back style" line for each of
    // the 17 UVC-control rows.
    CamSettingCollection();
    virtual ~CamSettingCollection();

    CamSettingCollection(const CamSettingCollection&) = delete;
    CamSettingCollection& operator=(const CamSettingCollection&) = delete;

    // `cur` of the setting stored under `name`, or -1 (with a printed line)
    // when there is none.
    int getCurrent(const std::string& name);
    // Stores the atoi value of `value` as `cur` of the named setting.
    void setCurrent(const std::string& name, const std::string& value);
    // Writes `cur`/`cur2` by control number; PAN_TILT writes the "pan" and
    // "tile" rows.
    void setCamParam(int type, int value, int value2);

    // Every setting by its stored name (case-sensitive).
    std::map<std::string, std::shared_ptr<CamSetting>> settingsByName;
    // The UVC-control settings by control number; shares records with
    // settingsByName.
    std::map<int, std::shared_ptr<CamSetting>> settingsByCtrl;

private:
    void addControl(const std::string& name, uvc_ctrl_t ctrl, int min, int max, int res, int def);
    void addFeature(const std::string& name, int min, int max, int res, int def);
};

}  // namespace uvc_client
