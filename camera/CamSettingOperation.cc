#include "camera/CamSettingOperation.h"

#include <cstdio>

#include "base/Dictionary.h"
#include "base/Serialization.h"
#include "camera/CamPreset.h"
#include "camera/CamSettingCollection.h"

namespace uvc_client {

using VOLUT::Dictionary;
using VOLUT::Serialization;

CamSettingOperation& CamSettingOperation::Instance() {
    static CamSettingOperation instance;
    return instance;
}

CamSettingOperation::~CamSettingOperation() = default;

void CamSettingOperation::set(const std::string& name, const std::string& value) {
    CamSettingCollection::Instance().setCurrent(name, value);
}

void CamSettingOperation::preset(const std::string& op, int id) {
    CamPreset::Instance().preset(op, id);
}

void CamSettingOperation::setCamParam(int /*type*/, int /*value*/, int /*value2*/) {
    printf("Set the camera parameter: %s\n", "setCamParam");
}

std::string CamSettingOperation::getUvcReport(const std::string& name) {
    CamSettingCollection& table = CamSettingCollection::Instance();
    int value = -1;
    auto it = table.settingsByName.find(name);
    if (it != table.settingsByName.end()) {
        value = it->second->cur;
    } else {
        printf("no setting named: [%s]\n", name.c_str());
    }
    // The value travels as text, never as a JSON number.
    Dictionary response;
    response.setString(name, std::to_string(value));
    Dictionary message;
    message.setString("source", "app");
    message.setObject("response", response);
    return Serialization::serialize(message);
}

std::string CamSettingOperation::generateAIReport(const std::string& name, int value) {
    Dictionary content;
    content.setInteger(name, value);
    Dictionary message;
    message.setString("msg_type", "ai_report");
    message.setObject("content", content);
    return Serialization::serialize(message);
}

std::string CamSettingOperation::generateCameraMuteNtfy() {
    Dictionary message;
    message.setString("operation", "camera_mute");
    message.setString("source", "remote");
    return Serialization::serialize(message);
}

std::string CamSettingOperation::generatePTZMsg(int pan, int tilt, int zoom) {
    Dictionary ptz;
    ptz.setInteger("pan", pan);
    ptz.setInteger("tilt", tilt);
    ptz.setInteger("zoom", zoom);
    Dictionary message;
    message.setString("source", "app");
    message.setObject("ptzSettings", ptz);
    return Serialization::serialize(message);
}

std::string CamSettingOperation::generateSettingMsg(
    const std::string& key, const std::map<std::string, std::string>& settings) {
    Dictionary message;
    message.setString("source", "app");
    Dictionary inner;
    for (const auto& entry : settings) {
        inner.setString(entry.first, entry.second);
    }
    // Stored after "source": a key of "source" replaces that string.
    message.setObject(key, inner);
    return Serialization::serialize(message);
}

std::string CamSettingOperation::generateSettingMsg(
    const std::map<std::string, std::string>& settings) {
    return generateSettingMsg("settings", settings);
}

std::string CamSettingOperation::generateXUSettingMsg(
    const std::map<std::string, std::string>& settings) {
    return generateSettingMsg("extensionSettings", settings);
}

}  // namespace uvc_client
