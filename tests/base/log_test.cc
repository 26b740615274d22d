#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <string>

#include "base/Logger.h"
#include "base/Thread.h"
#include "log_test_support.h"

using VOLUT::Log;
using VOLUT::LogServer;
using volut_test::DefaultServerCapture;

namespace {

// Lines filtered out before a passing marker would have been queued ahead of
// it, so once the marker is written nothing else can still arrive.
std::vector<android_standin::LogRecord> logUntilMarker(DefaultServerCapture& cap) {
    Log::log("VOLUT", VOLUT::LOG_ERROR, "marker");
    auto records = cap.waitForText("marker");
    EXPECT_FALSE(records.empty());
    if (!records.empty())
        records.pop_back();
    return records;
}

}  // namespace

TEST(LogTest, LineFormatPriorityAndTagComeFromTheLine) {
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

    // In push order, with the Android priority of each letter.
    EXPECT_NE(other[0].text.find("[W][Other] - w 1\n"), std::string::npos);
    EXPECT_EQ(other[0].priority, 5);
    EXPECT_NE(other[1].text.find("[I][Other] - i two\n"), std::string::npos);
    EXPECT_EQ(other[1].priority, 4);
    EXPECT_NE(other[2].text.find("[D][Other] - d\n"), std::string::npos);
    EXPECT_EQ(other[2].priority, 3);
}

TEST(LogTest, LevelFilterUsesSignedCompare) {
    DefaultServerCapture cap;
    EXPECT_EQ(Log::getLogLevel(), VOLUT::LOG_DEBUG);
    Log::log("VOLUT", static_cast<VOLUT::LogLevel>(4), "dropped at default level");
    Log::log("VOLUT", VOLUT::LOG_DEBUG, "debug passes");
    Log::setLogLevel(VOLUT::LOG_ERROR);
    Log::log("VOLUT", VOLUT::LOG_WARNING, "dropped warning");
    Log::log("VOLUT", static_cast<VOLUT::LogLevel>(7), "dropped seven");
    Log::setLogLevel(static_cast<VOLUT::LogLevel>(-1));
    Log::log("VOLUT", VOLUT::LOG_ERROR, "dropped by negative level");
    // A negative level given to the call is below any current level.
    Log::log("VOLUT", static_cast<VOLUT::LogLevel>(-5), "negative passes");
    Log::setLogLevel(static_cast<VOLUT::LogLevel>(7));
    Log::log("VOLUT", static_cast<VOLUT::LogLevel>(7), "seven passes");

    auto records = logUntilMarker(cap);
    ASSERT_EQ(records.size(), 3u);
    EXPECT_NE(records[0].text.find("[D][VOLUT] - debug passes"), std::string::npos);
    EXPECT_NE(records[1].text.find("[?][VOLUT] - negative passes"), std::string::npos);
    EXPECT_NE(records[2].text.find("[?][VOLUT] - seven passes"), std::string::npos);
    EXPECT_EQ(records[2].priority, 6);
}

TEST(LogTest, LongMessagesAreCutNotOverflowed) {
    DefaultServerCapture cap;
    const std::string big(20000, 'x');
    Log::log("VOLUT", VOLUT::LOG_ERROR, "%s", big.c_str());
    // Logger on its own: a line keeps at most 10238 characters.
    LogServer server;
    server.start("", 0, 0);
    VOLUT::Logger logger;
    logger.log("Direct", VOLUT::LOG_INFO, big.c_str(), 42, &server);
    auto viaLog = cap.waitFor(1, "VOLUT");
    auto direct = cap.waitFor(1, "Direct");
    server.stop();
    ASSERT_EQ(viaLog.size(), 1u);
    ASSERT_EQ(direct.size(), 1u);
    EXPECT_EQ(viaLog[0].text.size(), 10238u + 1u);  // the written text ends in "\n"
    EXPECT_EQ(direct[0].text.size(), 10238u + 1u);
    EXPECT_EQ(direct[0].text.back(), '\n');
    EXPECT_NE(direct[0].text.find(" 42 [I][Direct] - xxx"), std::string::npos);
}

TEST(LogServerTest, LinesOutsideTheRunningTimeAreLost) {
    android_standin::LogCapture capture;
    LogServer server;
    server.stop();  // never started: nothing happens
    server.pushLog("(1) 2 [E][Early] - before start");
    server.start("", 0, 0);
    server.start("ignored", 1, 2);  // already running
    server.pushLog("(1) 2 [E][Early] - first");
    server.stop();
    server.pushLog("(1) 2 [E][Early] - after stop");
    // Restartable.
    server.start("", 0, 0);
    server.pushLog("(1) 2 [E][Early] - second");
    server.stop();
    auto records = capture.withTag("Early");
    // Lines still queued at stop may be dropped; those written keep order.
    ASSERT_LE(records.size(), 2u);
    for (auto& r : records) {
        EXPECT_EQ(r.text.find("before start"), std::string::npos);
        EXPECT_EQ(r.text.find("after stop"), std::string::npos);
    }
}

TEST(LogServerTest, WriterThreadIsNamed) {
    DefaultServerCapture cap;
    // start() returns after the writer has named itself.
    bool found = false;
    DIR* dir = opendir("/proc/self/task");
    ASSERT_NE(dir, nullptr);
    while (dirent* e = readdir(dir)) {
        std::ifstream comm(std::string("/proc/self/task/") + e->d_name + "/comm");
        std::string name;
        std::getline(comm, name);
        // "UDP logger server" as the kernel keeps it: 15 characters.
        if (name == "UDP logger serv")
            found = true;
    }
    closedir(dir);
    EXPECT_TRUE(found);
}

TEST(LogServerTest, WriteLogParsesBracketsSafely) {
    android_standin::LogCapture capture;
    LogServer server;  // never started: writeLog is called directly
    server.writeLog("no brackets at all");
    server.writeLog("only ] a closing one");
    server.writeLog("(1) 2 [W] one pair only");
    server.writeLog("(1) 2 [I][tag");
    server.writeLog("(1) 2 [D][tag] - ok [E][x]");
    const std::string longLevel = "[" + std::string(100, 'L') + "][" + std::string(100, 'T') + "]";
    server.writeLog(longLevel.c_str());
    auto r = capture.records();
    ASSERT_EQ(r.size(), 6u);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(r[i].priority, 6) << i;
        EXPECT_EQ(r[i].tag, "") << i;
    }
    EXPECT_EQ(r[0].text, "no brackets at all\n");
    EXPECT_EQ(r[4].priority, 3);
    EXPECT_EQ(r[4].tag, "tag");
    EXPECT_EQ(r[5].tag, std::string(63, 'T'));
    EXPECT_EQ(r[5].priority, 6);
}

TEST(LogServerTest, EchoPrintsWrittenLines) {
    android_standin::LogCapture capture;
    LogServer server;
    server.setLogEcho(true);
    testing::internal::CaptureStdout();
    server.writeLog("(5) 6 [I][Echo] - hello");
    server.setLogEcho(false);
    server.writeLog("(5) 6 [I][Echo] - quiet");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "(5) 6 [I][Echo] - hello\n");
}

TEST(LogServerTest, HelpersAndFunctorDescription) {
    EXPECT_EQ(LogServer::getLogFile("app.log", 0), "app.log");
    EXPECT_EQ(LogServer::getLogFile("app.log", 2), "app.log.2");
    EXPECT_EQ(LogServer::nextWord(nullptr), nullptr);
    EXPECT_STREQ(LogServer::nextWord("   word rest"), "word rest");
    EXPECT_STREQ(LogServer::nextWord(""), "");
    LogServer server;
    VOLUT::Functor0<LogServer, void (LogServer::*)()> functor(&server, &LogServer::logServerProc);
    EXPECT_EQ(functor.getObject(), &server);
    EXPECT_EQ(functor.dump(),
              "virtual std::string VOLUT::Functor0<VOLUT::LogServer, void "
              "(VOLUT::LogServer::*)()>::dump() [TClass = VOLUT::LogServer, Func = void "
              "(VOLUT::LogServer::*)()]");
}

class LogRotationTest : public testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/volut_logXXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        base_ = dir_ + "/app.log";
    }
    void TearDown() override {
        for (int i = 0; i < 10; ++i)
            std::remove(LogServer::getLogFile(base_, i).c_str());
        rmdir(dir_.c_str());
    }
    void write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }
    std::string read(const std::string& path) {
        std::ifstream in(path);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    std::string dir_, base_;
};

TEST_F(LogRotationTest, NextLogShiftsNumberedFiles) {
    write(base_, "zero");
    write(base_ + ".1", "one");
    write(base_ + ".2", "two");
    LogServer server;
    server.setLogFiles(base_, 3);
    server.nextLog();
    EXPECT_EQ(read(base_ + ".2"), "one");
    EXPECT_EQ(read(base_ + ".1"), "zero");
    EXPECT_TRUE(LogServer::checkExist(base_));
    EXPECT_EQ(read(base_), "");
    EXPECT_FALSE(LogServer::checkExist(base_ + ".3"));
}

TEST_F(LogRotationTest, NextLogWithoutFilesIsRefused) {
    DefaultServerCapture cap;
    write(base_, "keep");
    LogServer server;
    server.nextLog();  // nothing configured
    server.setLogFiles(base_, 0);
    server.nextLog();
    auto records = cap.waitFor(2);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_NE(records[0].text.find("[W][VOLUT] - [void VOLUT::LogServer::nextLog()] "),
              std::string::npos);
    EXPECT_EQ(read(base_), "keep");
}
