#include "camera/UvcCamMsgHandler.h"

#include <cstdint>
#include <cstdio>
#include <exception>

#include "base/Dictionary.h"
#include "base/Serialization.h"
#include "camera/CamSettingOperation.h"
#include "camera/MessageLimits.h"
#include "trevo/CompositorBridge.h"

namespace uvc_client {

using VOLUT::Dictionary;

namespace {

const char kReportType[] = "uvc_report";
const char kPasswordKey[] = "Password";
const char kHidden[] = "*";

bool hasReportContent(const Dictionary& message, const std::string& type) {
    return type == kReportType && message.hasKey("content");
}

// -1 when the member is absent; 0 when it is present but not an integer.
long long integerOr(const Dictionary& message, const std::string& key, long long absent) {
    return message.hasKey(key) ? message.getInteger(key) : absent;
}

// Control numbers and values are ints further on; wider numbers from the
// message keep their low 32 bits (two's complement), as a plain narrowing does.
int narrow(long long value) {
    return static_cast<int>(static_cast<uint32_t>(value));
}

// A "set" of Password carries the new password in "value", the member every
// "set" of the message reads.
bool valueMemberIsSecret(const Dictionary& content) {
    return content.getString(kPasswordKey) == "set";
}

// The text to print for an entry's value: a password never reaches a line.
std::string printable(const Dictionary& content, const std::string& key, const std::string& value) {
    const bool secret = key == kPasswordKey || (key == "value" && valueMemberIsSecret(content));
    return secret ? kHidden : value;
}

void printEntry(const Dictionary& content, const std::string& key) {
    printf("content key = [%s]\n", key.c_str());
    printf("content val = [%s]\n", printable(content, key, content.getString(key)).c_str());
}

}  // namespace

UvcCamMsgHandler::~UvcCamMsgHandler() = default;

void UvcCamMsgHandler::handleMessage(const std::string& message, trevo::CompositorBridge& bridge) {
    printf("Handle message: %s\n", "handleMessage");
    // Refused before parsing: a message beyond the limits could take far more
    // memory than its size.
    const std::string refusal = messageRefusal(message);
    if (!refusal.empty()) {
        puts(refusal.c_str());
        return;
    }
    // The limits bound the memory, but the process may still be short of it;
    // the entries handled so far stay handled.
    try {
        // Text that does not parse gives an empty record and ends as unknown.
        const Dictionary parsed = VOLUT::Serialization::deserialize(message);
        if (parsed.hasKey("msg_type")) {
            handleReport(parsed, bridge);
        } else if (parsed.hasKey("type")) {
            handleParam(parsed);
        } else {
            puts("===== No known msg");
        }
    } catch (const std::exception& e) {
        printf("handleMessage: message dropped: %s\n", e.what());
    } catch (...) {
        puts("handleMessage: message dropped: unknown exception");
    }
}

void UvcCamMsgHandler::handleReport(const Dictionary& message, trevo::CompositorBridge& bridge) {
    const std::string type = message.getString("msg_type");
    printf("msg_type = [%s]\n", type.c_str());
    if (!hasReportContent(message, type)) {
        puts("No content");
        return;
    }
    // A "content" that is not an object reads as an empty record.
    const Dictionary content = message.getObject("content");
    for (const std::string& key : content.allKeys()) {
        handleContentEntry(content, key, bridge);
    }
    // The entries are listed once more after all of them were handled.
    for (const std::string& key : content.allKeys()) {
        printEntry(content, key);
    }
}

void UvcCamMsgHandler::handleContentEntry(const Dictionary& content, const std::string& key,
                                          trevo::CompositorBridge& bridge) {
    CamSettingOperation& operation = CamSettingOperation::Instance();
    printEntry(content, key);
    // Values of any other kind (numbers, objects) read as the empty text.
    const std::string value = content.getString(key);
    const std::string shown = printable(content, key, value);
    // "get"/"set" are tested before the preset keys: {"preset":"get"} asks
    // for a setting named "preset".
    if (value == "get") {
        const std::string reply = operation.getUvcReport(key);
        printf("==== Get value for [%s]\n", shown.c_str());
        bridge.onAppMessage(reply);
    } else if (value == "set") {
        const std::string newValue = content.getString("value");
        printf("==== Set value for [%s: %s]\n", shown.c_str(),
               printable(content, "value", newValue).c_str());
        operation.set(key, newValue);
    } else if (key == "preset" || key == "presetID") {
        const std::string op = content.getString("preset");
        const long long id = content.getInteger("presetID");
        printf("==== Preset Op [%s: %lld]\n", op.c_str(), id);
        operation.preset(op, narrow(id));
    } else {
        printf("==== key, val = [%s: %s]\n", key.c_str(), shown.c_str());
        operation.set(key, value);
    }
}

void UvcCamMsgHandler::handleParam(const Dictionary& message) {
    printf("%s: handle param message\n", "handleMessage");
    const long long param = integerOr(message, "param", -1);
    const long long value = integerOr(message, "value", -1);
    const long long value2 = integerOr(message, "value2", -1);
    printf("type = [%lld] | value = [%lld] | value2 = [%lld]\n", param, value, value2);
    CamSettingOperation::Instance().setCamParam(narrow(param), narrow(value), narrow(value2));
}

}  // namespace uvc_client
