#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/Serialization.h"
#include "log_test_support.h"

using VOLUT::Serialization;
using volut_test::DefaultServerCapture;

namespace {

// Lines queued before the marker reach the Android log before it, so once it
// shows nothing of ours can still arrive. Returns the "VOLUT" lines ahead of it.
std::vector<android_standin::LogRecord> linesBeforeMarker(DefaultServerCapture& cap) {
    VOLUT::Log::log("VOLUT", VOLUT::LOG_ERROR, "serialization marker");
    auto records = cap.waitForText("serialization marker");
    if (records.empty() || records.back().text.find("serialization marker") == std::string::npos) {
        ADD_FAILURE() << "marker line never arrived";
        return records;
    }
    records.pop_back();
    return records;
}

}  // namespace

TEST(SerializationLog, OneErrorLinePerFailedParse) {
    DefaultServerCapture cap;
    VOLUT::Log::setLogLevel(VOLUT::LOG_DEBUG);
    EXPECT_EQ(0u, Serialization::deserialize("{\"a\": ").size());
    auto lines = linesBeforeMarker(cap);
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(6, lines[0].priority);
    const std::string tail = "[E][VOLUT] - JSON parsing error\n";
    ASSERT_GE(lines[0].text.size(), tail.size());
    EXPECT_EQ(tail, lines[0].text.substr(lines[0].text.size() - tail.size()));

    cap.capture().clear();
    Serialization::deserialize("");
    Serialization::deserialize(std::string(100000, '['));
    EXPECT_EQ(2u, linesBeforeMarker(cap).size());
}

TEST(SerializationLog, OtherFailuresStaySilent) {
    DefaultServerCapture cap;
    VOLUT::Log::setLogLevel(VOLUT::LOG_DEBUG);
    EXPECT_TRUE(Serialization::deserializeArray("{\"a\": ").empty());
    EXPECT_TRUE(Serialization::deserializeArray("{\"a\": 1}").empty());
    EXPECT_EQ(0u, Serialization::deserialize("[1, 2]").size());
    EXPECT_EQ(1u, Serialization::deserialize("{\"n\": null, \"e\": [], \"x\": 1}").size());
    EXPECT_TRUE(linesBeforeMarker(cap).empty());
}

TEST(SerializationLog, RejectedTextNeverReachesTheLog) {
    DefaultServerCapture cap;
    VOLUT::Log::setLogLevel(VOLUT::LOG_DEBUG);
    const std::string secret = "hunter2-Zq9";
    Serialization::deserialize("{\"User\":\"u\",\"Password\":\"" + secret + "\",");
    Serialization::deserialize("{\"Password\":\"" + secret);
    EXPECT_EQ(2u, linesBeforeMarker(cap).size());
    for (const auto& record : cap.capture().records()) {
        EXPECT_EQ(std::string::npos, record.text.find(secret)) << record.text;
        EXPECT_EQ(std::string::npos, record.text.find("Password")) << record.text;
    }
}
