#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>

#include "base/SystemUtil.h"
#include "base/Thread.h"
#include "log_test_support.h"

using VOLUT::Thread;

namespace {

// Records what the thread saw of itself and when it was deleted.
struct Probe {
    std::atomic<int> runs{0};
    std::atomic<int> deleted{0};
    std::atomic<int> tid{0};
    std::atomic<int> nice{99};
    std::string name;  // written by the task before it ends, read after join
};

class ProbeTask : public VOLUT::Runnable {
public:
    explicit ProbeTask(Probe& p, Thread* loopUntilStopped = nullptr)
        : probe_(p), thread_(loopUntilStopped) {}
    ~ProbeTask() override { probe_.deleted++; }
    void run() override {
        char name[32] = {};
        prctl(PR_GET_NAME, name, 0, 0, 0);
        probe_.name = name;
        probe_.tid = Thread::getCurrentThreadID();
        errno = 0;
        probe_.nice = getpriority(PRIO_PROCESS, 0);
        while (thread_ && !thread_->isStopping()) {
            VOLUT::SystemUtil::sleep(2);
        }
        probe_.runs++;
    }

private:
    Probe& probe_;
    Thread* thread_;
};

}  // namespace

TEST(ThreadTest, RunsNamedTaskAndCanBeStartedAgain) {
    Probe p;
    Thread t;
    ASSERT_TRUE(t.start(new ProbeTask(p), "seventeen-chars-x", Thread::PRIORITY_LOW));
    t.waitForStop();
    EXPECT_EQ(p.runs, 1);
    EXPECT_EQ(p.deleted, 1);
    EXPECT_EQ(p.name, "seventeen-chars");  // the kernel keeps 15 characters
    EXPECT_NE(p.tid, Thread::getCurrentThreadID());
    EXPECT_EQ(p.nice, 10);
    EXPECT_EQ(t.getName(), "");
    EXPECT_FALSE(t.isStarted());

    Probe q;
    ASSERT_TRUE(t.start(new ProbeTask(q), "again", Thread::PRIORITY_NORMAL));
    t.waitForStop();
    EXPECT_EQ(q.runs, 1);
    EXPECT_EQ(q.name, "again");
}

TEST(ThreadTest, RestartWithoutJoinReapsTheFinishedThread) {
    Probe p, q;
    Thread t;
    ASSERT_TRUE(t.start(new ProbeTask(p), "first", Thread::PRIORITY_NORMAL));
    while (t.isStarted())
        VOLUT::SystemUtil::sleep(1);
    ASSERT_TRUE(t.start(new ProbeTask(q), "second", Thread::PRIORITY_NORMAL));
    t.waitForStop();
    t.waitForStop();  // nothing left to join
    EXPECT_EQ(p.runs + q.runs, 2);
}

TEST(ThreadTest, SecondStartIsRefusedAndStopIsCooperative) {
    volut_test::DefaultServerCapture cap;
    Probe running, refused;
    Thread t;
    ASSERT_TRUE(t.start(new ProbeTask(running, &t), "runner", Thread::PRIORITY_NORMAL));
    EXPECT_FALSE(t.start(new ProbeTask(refused), "intruder", Thread::PRIORITY_NORMAL));
    EXPECT_EQ(refused.deleted, 1);
    EXPECT_EQ(refused.runs, 0);
    EXPECT_EQ(t.getName(), "runner");
    EXPECT_TRUE(t.isStarted());
    EXPECT_FALSE(t.isStopping());

    t.stop();
    EXPECT_TRUE(t.isStopping() || !t.isStarted());
    t.waitForStop();
    EXPECT_EQ(running.runs, 1);
    EXPECT_FALSE(t.isStopping());  // cleared when the task ended

    auto records = cap.waitFor(1);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].priority, 5);
    EXPECT_NE(records[0].text.find(
                  "[W][VOLUT] - [bool VOLUT::Thread::start(VOLUT::Runnable *, const std::string "
                  "&, VOLUT::Thread::ThreadPriority)] "),
              std::string::npos);
    EXPECT_NE(records[0].text.find(
                  " \"starting thread intruder failed: thread already started as runner\""),
              std::string::npos);
}

TEST(ThreadTest, StopOnIdleThreadSetsNothing) {
    Thread t;
    EXPECT_FALSE(t.start(nullptr, "empty", Thread::PRIORITY_NORMAL));
    t.stop();
    EXPECT_FALSE(t.isStopping());
    EXPECT_FALSE(t.isStarted());
    t.waitForStop();
}

TEST(ThreadTest, DestructorJoinsAFinishingTask) {
    Probe p;
    {
        Thread t;
        ASSERT_TRUE(t.start(new ProbeTask(p, &t), "scoped", Thread::PRIORITY_NORMAL));
        t.stop();
    }
    EXPECT_EQ(p.runs, 1);
    EXPECT_EQ(p.deleted, 1);
}

// A failed priority change is reported with errno and the thread runs on.
// Raising the priority needs privileges, so the check runs in a child that
// gives them up.
TEST(ThreadDeathTest, PriorityFailureIsReportedWithErrno) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            if (geteuid() == 0) {
                passwd* nobody = getpwnam("nobody");
                if (nobody == nullptr || setuid(nobody->pw_uid) != 0)
                    _exit(3);
            }
            volut_test::DefaultServerCapture cap;
            Probe p;
            Thread t;
            if (!t.start(new ProbeTask(p), "high", Thread::PRIORITY_HIGH))
                _exit(4);
            t.waitForStop();
            auto records = cap.waitFor(1);
            if (p.runs != 1 || records.size() != 1)
                _exit(5);
            const std::string want =
                "[W][VOLUT] - [void VOLUT::Thread::setPriority(VOLUT::Thread::ThreadPriority)] ";
            const std::string tail =
                " \"Change the thread priority failed: high, err=" + std::to_string(EACCES) + "\"";
            bool ok = records[0].text.find(want) != std::string::npos &&
                      records[0].text.find(tail) != std::string::npos;
            _exit(ok ? 0 : 6);
        },
        testing::ExitedWithCode(0), "");
}
