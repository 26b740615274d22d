// Demo of the exported base library: a typed record and its JSON text, the
// log pipeline with its writer thread, dates and the local address list.

#include <cstdio>
#include <string>
#include <vector>

#include "base/Date.h"
#include "base/Dictionary.h"
#include "base/Log.h"
#include "base/LogServer.h"
#include "base/Serialization.h"
#include "base/SystemUtil.h"

namespace {

VOLUT::Dictionary makeRecord() {
    VOLUT::Dictionary lens;
    lens.setString("mount", "C");
    lens.setDecimal("focalLength", 4.5);

    VOLUT::Dictionary record;
    record.setString("type", "camera");
    record.setInteger("zoom", 120);
    record.setDecimal("exposure", 0.25);
    record.setBoolean("autoFocus", true);
    record.setObject("lens", lens);
    record.setIntegerArray("panRange", {-170, 170});
    record.setStringArray("modes", {"single", "group"});
    return record;
}

}  // namespace

int main() {
    const std::string text = VOLUT::Serialization::serialize(makeRecord());
    std::printf("serialized:  %s\n", text.c_str());
    const VOLUT::Dictionary parsed = VOLUT::Serialization::deserialize(text);
    std::printf("parsed back: %s\n", VOLUT::Serialization::serialize(parsed).c_str());
    std::printf("lens mount of the parsed record: %s\n",
                parsed.getObject("lens").getString("mount").c_str());

    VOLUT::LogServer* server = VOLUT::LogServer::defaultLogServer();
    server->setLogEcho(true);
    server->start("", 0, 0);
    VOLUT::Log::setLogLevel(VOLUT::LOG_INFO);
    VOLUT::Log::log("Demo", VOLUT::LOG_ERROR, "an error line (%d)", 1);
    VOLUT::Log::log("Demo", VOLUT::LOG_WARNING, "a warning line (%d)", 2);
    VOLUT::Log::log("Demo", VOLUT::LOG_INFO, "an info line (%d)", 3);
    VOLUT::Log::log("Demo", VOLUT::LOG_DEBUG, "a debug line, filtered out at level %d",
                    VOLUT::Log::getLogLevel());

    const int zone = VOLUT::Date::currentTimeZone();
    const VOLUT::Date now = VOLUT::Date::now();
    std::printf("now: %s (UTC%+d), in UTC: %s\n", now.toString(static_cast<short>(zone)).c_str(),
                zone, now.toString(0).c_str());

    // Also writes its info lines through the log pipeline.
    std::vector<VOLUT::LocalIPInfo> addresses = VOLUT::SystemUtil::getLocalIPList();
    for (const VOLUT::LocalIPInfo& info : addresses) {
        std::printf("address: %-8s %s\n", info.interfaceName.c_str(), info.ipAddress.c_str());
    }

    // Lines still queued at stop are dropped; give the writer time to drain.
    VOLUT::SystemUtil::sleep(300);
    server->stop();
    return 0;
}
