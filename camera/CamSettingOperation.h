#pragma once

#include <map>
#include <string>

#include "uvc_export.h"

namespace uvc_client {

// The one way host camera messages act on the settings table, and the builder
// of the JSON messages the device sends to the host. It has no state of its
// own and sends nothing: every builder returns the JSON text.
class CamSettingOperation {
public:
    UVC_EXPORT static CamSettingOperation& Instance();

    virtual ~CamSettingOperation();

    CamSettingOperation(const CamSettingOperation&) = delete;
    CamSettingOperation& operator=(const CamSettingOperation&) = delete;

    // Stores the atoi value of `value` as the named setting's current value.
    void set(const std::string& name, const std::string& value);
    void preset(const std::string& op, int id);
    // Parameter messages are only acknowledged; the table is not changed.
    void setCamParam(int type, int value, int value2);

    // {"source":"app","response":{"<name>":"<cur>"}}; "-1" for an unknown name.
    UVC_EXPORT std::string getUvcReport(const std::string& name);

    // {"msg_type":"ai_report","content":{"<name>":<value>}}
    UVC_EXPORT std::string generateAIReport(const std::string& name, int value);
    // {"operation":"camera_mute","source":"remote"}
    UVC_EXPORT std::string generateCameraMuteNtfy();
    // {"source":"app","ptzSettings":{"pan":..,"tilt":..,"zoom":..}}
    UVC_EXPORT std::string generatePTZMsg(int pan, int tilt, int zoom);
    // {"source":"app","<key>":{"<entry>":"<value>",...}}
    UVC_EXPORT std::string generateSettingMsg(const std::string& key,
                                              const std::map<std::string, std::string>& settings);
    // generateSettingMsg("settings", settings)
    UVC_EXPORT std::string generateSettingMsg(const std::map<std::string, std::string>& settings);
    // generateSettingMsg("extensionSettings", settings)
    UVC_EXPORT std::string generateXUSettingMsg(const std::map<std::string, std::string>& settings);

private:
    CamSettingOperation() = default;
};

}  // namespace uvc_client
