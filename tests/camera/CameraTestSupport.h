#pragma once

#include <gtest/gtest.h>

#include <string>

#include "camera/CamSettingCollection.h"

namespace camera_test {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

// The process-wide table with every value unset again, so that tests do not
// depend on their order. Its 17 construction lines are kept out of the tests.
inline uvc_client::CamSettingCollection& freshTable() {
    CaptureStdout();
    auto& table = uvc_client::CamSettingCollection::Instance();
    GetCapturedStdout();
    for (auto& entry : table.settingsByName) {
        entry.second->cur = entry.second->cur2 = uvc_client::NOT_SET;
    }
    return table;
}

// "name=cur/cur2 " for each row of `table` that is not unset, in key order.
inline std::string writtenRows(
    const uvc_client::CamSettingCollection& table = uvc_client::CamSettingCollection::Instance()) {
    std::string out;
    for (const auto& entry : table.settingsByName) {
        const uvc_client::CamSetting& s = *entry.second;
        if (s.cur != uvc_client::NOT_SET || s.cur2 != uvc_client::NOT_SET) {
            out += entry.first + "=" + std::to_string(s.cur) + "/" + std::to_string(s.cur2) + " ";
        }
    }
    return out;
}

}  // namespace camera_test
