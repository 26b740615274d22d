#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <new>
#include <string>
#include <thread>

#include "base/BlockingQueue.h"
#include "base/Semaphore.h"
#include "base/SystemUtil.h"
#include "base/Thread.h"
#include "log_test_support.h"

using Clock = std::chrono::steady_clock;
using VOLUT::Thread;

namespace {

// Records what the last run saw (read after the thread ended) and counts
// deletions; with a thread given, runs until it is asked to stop.
struct Probe : VOLUT::Runnable {
    explicit Probe(Thread* loop = nullptr) : loop(loop) {}
    ~Probe() override { deleted++; }
    void run() override {
        char n[32] = {};
        prctl(PR_GET_NAME, n, 0, 0, 0);
        name = n;
        nice = getpriority(PRIO_PROCESS, 0);
        while (loop && !loop->isStopping())
            VOLUT::SystemUtil::sleep(2);
    }
    Thread* loop;
    static std::atomic<int> deleted;
    static std::string name;
    static int nice;
};
std::atomic<int> Probe::deleted{0};
std::string Probe::name;
int Probe::nice = 99;

long long msSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

}  // namespace

// A task that throws ends with one error line; the process lives on and the
// Thread runs the next task.
TEST(ThreadTest, RunsNamedTaskAndStartsAgainAfterJoinEndOrThrow) {
    struct Throwing : VOLUT::Runnable {
        void run() override { throw std::bad_alloc(); }
    };
    volut_test::DefaultServerCapture cap;
    Probe::deleted = 0;
    Thread t;
    ASSERT_TRUE(t.start(new Probe(), "seventeen-chars-x", Thread::PRIORITY_LOW));
    t.waitForStop();
    EXPECT_EQ(Probe::deleted, 1);
    EXPECT_EQ(Probe::name, "seventeen-chars");  // the kernel keeps 15 characters
    EXPECT_EQ(Probe::nice, 10);
    EXPECT_EQ(t.getName(), "");
    EXPECT_FALSE(t.isStarted());

    ASSERT_TRUE(t.start(new Throwing(), "throws", Thread::PRIORITY_NORMAL));
    t.waitForStop();
    EXPECT_TRUE(volut_test::Has(cap.onlyLine(), "ended by an exception: std::bad_alloc\"\n"));
    EXPECT_FALSE(t.isStarted());

    ASSERT_TRUE(t.start(new Probe(), "again", Thread::PRIORITY_NORMAL));
    // Restart without an explicit join reaps the finished thread.
    while (t.isStarted())
        VOLUT::SystemUtil::sleep(1);
    EXPECT_EQ(Probe::name, "again");
    ASSERT_TRUE(t.start(new Probe(), "third", Thread::PRIORITY_NORMAL));
    t.waitForStop();
    t.waitForStop();  // nothing left to join
    EXPECT_EQ(Probe::deleted, 3);
    EXPECT_EQ(Probe::name, "third");
}

TEST(ThreadTest, SecondStartIsRefusedAndStopIsCooperative) {
    volut_test::DefaultServerCapture cap;
    Probe::deleted = 0;
    Thread t;
    ASSERT_TRUE(t.start(new Probe(&t), "runner", Thread::PRIORITY_NORMAL));
    EXPECT_FALSE(t.start(new Probe(), "intruder", Thread::PRIORITY_NORMAL));
    EXPECT_EQ(Probe::deleted, 1);  // the refused task
    EXPECT_EQ(t.getName(), "runner");
    EXPECT_TRUE(t.isStarted());
    EXPECT_FALSE(t.isStopping());
    t.stop();
    t.waitForStop();
    EXPECT_EQ(Probe::deleted, 2);
    EXPECT_FALSE(t.isStopping());  // cleared when the task ended

    const std::string line = cap.onlyLine();
    EXPECT_TRUE(volut_test::Has(line,
                                "[W][VOLUT] - [bool VOLUT::Thread::start(VOLUT::Runnable *, const "
                                "std::string &, VOLUT::Thread::ThreadPriority)] "));
    EXPECT_TRUE(volut_test::Has(
        line, " \"starting thread intruder failed: thread already started as runner\""));

    {
        Thread scoped;  // the destructor joins a stopping task
        ASSERT_TRUE(scoped.start(new Probe(&scoped), "scoped", Thread::PRIORITY_NORMAL));
        scoped.stop();
    }
    EXPECT_EQ(Probe::deleted, 3);
    Thread idle;
    EXPECT_FALSE(idle.start(nullptr, "empty", Thread::PRIORITY_NORMAL));
    idle.stop();
    EXPECT_FALSE(idle.isStopping() || idle.isStarted());
}

// A failed priority change is reported with errno and the thread runs on.
// Raising the priority needs privileges, so a child gives them up; it first
// takes nice 0, so that the log server's normal priority stays within reach
// when the tests run under nice.
TEST(ThreadDeathTest, PriorityFailureIsReportedWithErrno) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            passwd* nobody = getpwnam("nobody");
            if (geteuid() == 0 && (setpriority(PRIO_PROCESS, 0, 0) != 0 || nobody == nullptr ||
                                   setuid(nobody->pw_uid) != 0))
                _exit(3);
            volut_test::DefaultServerCapture cap;
            Probe::deleted = 0;
            Thread t;
            if (!t.start(new Probe(), "high", Thread::PRIORITY_HIGH))
                _exit(4);
            t.waitForStop();
            const std::string line = cap.onlyLine();
            const std::string sig =
                "[W][VOLUT] - [void VOLUT::Thread::setPriority(VOLUT::Thread::"
                "ThreadPriority)] ";
            const std::string err =
                " \"Change the thread priority failed: high, err=" + std::to_string(EACCES) + "\"";
            bool ok = volut_test::Has(line, sig) && volut_test::Has(line, err);
            _exit(ok && Probe::deleted == 1 ? 0 : 5);
        },
        testing::ExitedWithCode(0), "");
}

// Time-outs are measured on the monotonic clock; upper bounds are generous.
TEST(SemaphoreTest, TimeOutsAndNotifyAlsoForTheQueue) {
    VOLUT::Semaphore s;
    for (unsigned int ms : {0u, 1u, 30u, 120u}) {
        auto start = Clock::now();
        EXPECT_EQ(s.wait(ms), 1);
        EXPECT_GE(msSince(start), static_cast<long long>(ms));
        EXPECT_LT(msSince(start), ms + 2000);
    }
    EXPECT_EQ(s.notify(), 0);
    EXPECT_EQ(s.wait(0), 0);
    EXPECT_EQ(s.wait(0), 1);

    int timed = -2, untimed = -2;
    std::thread a([&] { timed = s.wait(60000); });
    std::thread b([&] { untimed = s.wait(); });
    s.notify();
    s.notify();
    a.join();
    b.join();
    EXPECT_EQ(timed, 0);  // woken, not timed out
    EXPECT_EQ(untimed, 0);
    EXPECT_EQ(s.wait(0), 1);  // both units taken

    // A queue waits the same way and hands items over in order.
    VOLUT::BlockingQueue<int> q;
    int value = -1;
    auto start = Clock::now();
    EXPECT_FALSE(q.get(100, value));
    EXPECT_GE(msSince(start), 100);
    EXPECT_EQ(value, -1);

    constexpr int kItems = 2000;
    std::thread producer([&] {
        for (int i = 0; i < kItems; ++i)
            q.put(i);
    });
    int expected = 0;
    while (expected < kItems && q.get(10000, value) && value == expected)
        ++expected;
    producer.join();
    EXPECT_EQ(expected, kItems);
    EXPECT_EQ(q.size(), 0u);
    EXPECT_FALSE(q.get(0, value));
}
