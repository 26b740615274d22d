#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>

#include "base/Logger.h"
#include "base/Thread.h"
#include "log_test_support.h"
#include "support/TempDir.h"

using VOLUT::Log;
using VOLUT::LogServer;
using volut_test::DefaultServerCapture;
using volut_test::Has;

TEST(LogTest, LineFormatAndPriorityAndTagFromTheLineInPushOrder) {
    DefaultServerCapture cap;
    Log::log("VOLUT", VOLUT::LOG_ERROR, "JSON parsing error");
    Log::log("Other", VOLUT::LOG_WARNING, "w %d", 1);
    Log::log2("Other", VOLUT::LOG_INFO, "i %s", "two");
    VOLUT::LOG_MPC("Other", VOLUT::LOG_DEBUG, "d");
    auto volut = cap.waitFor(1, "VOLUT");
    auto other = cap.waitFor(3, "Other");
    ASSERT_EQ(volut.size(), 1u);
    ASSERT_EQ(other.size(), 3u);

    std::smatch m;
    const std::regex line(R"(\((\d+)\) (\d+) \[E\]\[VOLUT\] - JSON parsing error\n)");
    ASSERT_TRUE(std::regex_match(volut[0].text, m, line)) << volut[0].text;
    EXPECT_EQ(std::stol(m[2]), VOLUT::Thread::getCurrentThreadID());
    EXPECT_EQ(volut[0].priority, 6);
    const std::pair<const char*, int> want[] = {
        {"[W][Other] - w 1\n", 5}, {"[I][Other] - i two\n", 4}, {"[D][Other] - d\n", 3}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(Has(other[i].text, want[i].first));
        EXPECT_EQ(other[i].priority, want[i].second) << i;
    }
}

TEST(LogTest, LevelFilterUsesSignedCompare) {
    DefaultServerCapture cap;
    auto level = [](int n) { return static_cast<VOLUT::LogLevel>(n); };
    Log::log("VOLUT", level(4), "dropped at default level");
    Log::log("VOLUT", VOLUT::LOG_DEBUG, "debug passes");
    Log::setLogLevel(VOLUT::LOG_ERROR);
    Log::log("VOLUT", VOLUT::LOG_WARNING, "dropped warning");
    Log::log("VOLUT", level(7), "dropped seven");
    Log::setLogLevel(level(-1));
    Log::log("VOLUT", VOLUT::LOG_ERROR, "dropped by negative level");
    Log::log("VOLUT", level(-5), "negative passes");  // below any current level
    Log::setLogLevel(level(7));
    Log::log("VOLUT", level(7), "seven passes");

    auto records = cap.untilMarker();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_TRUE(Has(records[0].text, "[D][VOLUT] - debug passes"));
    EXPECT_TRUE(Has(records[1].text, "[?][VOLUT] - negative passes"));
    EXPECT_TRUE(Has(records[2].text, "[?][VOLUT] - seven passes"));
    EXPECT_EQ(records[2].priority, 6);
}

TEST(LogTest, LongMessagesAreCutNotOverflowed) {
    DefaultServerCapture cap;
    const std::string big(20000, 'x');
    Log::log("VOLUT", VOLUT::LOG_ERROR, "%s", big.c_str());
    // Logger on its own: a line keeps at most 10238 characters.
    LogServer server;
    server.start("", 0, 0);
    VOLUT::Logger().log("Direct", VOLUT::LOG_INFO, big.c_str(), 42, &server);
    auto viaLog = cap.waitFor(1, "VOLUT");
    auto direct = cap.waitFor(1, "Direct");
    server.stop();
    ASSERT_EQ(viaLog.size(), 1u);
    ASSERT_EQ(direct.size(), 1u);
    EXPECT_EQ(viaLog[0].text.size(), 10238u + 1u);  // the written text ends in "\n"
    EXPECT_EQ(direct[0].text.size(), 10238u + 1u);
    EXPECT_TRUE(Has(direct[0].text, " 42 [I][Direct] - xxx"));
}

TEST(LogServerTest, OnlyLinesPushedWhileRunningAreWritten) {
    android_standin::LogCapture capture;
    LogServer server;
    server.stop();  // never started: nothing happens
    server.pushLog("(1) 2 [E][Early] - before start");
    server.start("", 0, 0);
    server.start("ignored", 1, 2);  // already running
    server.pushLog("(1) 2 [E][Early] - first");
    server.stop();
    server.pushLog("(1) 2 [E][Early] - after stop");
    server.start("", 0, 0);  // restartable
    server.pushLog("(1) 2 [E][Early] - second");
    server.stop();
    // Lines still queued at stop may be dropped.
    auto records = capture.withTag("Early");
    EXPECT_LE(records.size(), 2u);
    for (auto& r : records)
        EXPECT_TRUE(Has(r.text, " - first") || Has(r.text, " - second")) << r.text;
}

TEST(LogServerTest, WriteLogWithoutBracketsGivesPriority6AndNoTag) {
    android_standin::LogCapture capture;
    LogServer server;  // never started: writeLog is called directly
    const std::string longPair = "[" + std::string(100, 'L') + "][" + std::string(100, 'T') + "]";
    for (const char* line :
         {"no brackets at all", "only ] a closing one", "(1) 2 [W] one pair only", "(1) 2 [I][tag",
          "(1) 2 [D][tag] - ok [E][x]", longPair.c_str()})
        server.writeLog(line);
    auto r = capture.records();
    ASSERT_EQ(r.size(), 6u);
    const std::pair<int, std::string> want[] = {{6, ""}, {6, ""},    {6, ""},
                                                {6, ""}, {3, "tag"}, {6, std::string(63, 'T')}};
    for (size_t i = 0; i < r.size(); ++i) {
        EXPECT_EQ(r[i].priority, want[i].first) << i;
        EXPECT_EQ(r[i].tag, want[i].second) << i;
    }
    EXPECT_EQ(r[0].text, "no brackets at all\n");
}

TEST(LogServerTest, NextLogShiftsFilesAndIsRefusedWithZeroFiles) {
    uvc_test::TempDir dir;
    const std::string base = dir.file("app.log");
    const char* contents[] = {"zero", "one", "two"};
    for (int i = 0; i < 3; ++i)
        std::ofstream(LogServer::getLogFile(base, i)) << contents[i];
    {
        DefaultServerCapture cap;
        LogServer server;
        server.nextLog();  // nothing configured
        server.setLogFiles(base, 0);
        server.nextLog();
        auto records = cap.waitFor(2);
        ASSERT_EQ(records.size(), 2u);
        EXPECT_TRUE(Has(records[1].text, "[W][VOLUT] - [void VOLUT::LogServer::nextLog()] "));
        EXPECT_EQ(dir.text("app.log"), "zero");
    }
    LogServer server;
    server.setLogFiles(base, 3);
    server.nextLog();
    EXPECT_EQ(dir.text("app.log.2"), "one");
    EXPECT_EQ(dir.text("app.log.1"), "zero");
    EXPECT_TRUE(LogServer::checkExist(base));
    EXPECT_EQ(dir.text("app.log"), "");
    EXPECT_FALSE(LogServer::checkExist(base + ".3"));
}
