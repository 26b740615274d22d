#include <gtest/gtest.h>

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "io/EventLoop.h"
#include "io/UniqueFd.h"

using namespace uvc_gadget;

namespace {

// The read end of a pipe; each readiness drains it and counts once.
class PipeSource : public PollSource {
public:
    PipeSource() {
        int fds[2];
        if (pipe(fds) == 0) {
            read_.reset(fds[0]);
            write_.reset(fds[1]);
        }
    }
    int pollFd() const override { return ignored ? -1 : read_.get(); }
    short pollEvents() const override { return POLLIN; }
    void onPoll(short revents) override {
        char buffer[16];
        if ((revents & POLLIN) != 0 && read(read_.get(), buffer, sizeof(buffer)) > 0) {
            onLoop = loop != nullptr && loop->onLoopThread();
            ++calls;
        }
    }
    void poke() { ASSERT_EQ(write(write_.get(), "x", 1), 1); }
    bool waitCalls(int n) {
        for (int i = 0; i < 500 && calls < n; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return calls >= n;
    }

    UniqueFd read_, write_;
    std::atomic<int> calls{0};
    std::atomic<bool> onLoop{false};
    bool ignored = false;  // set before the loop starts
    EventLoop* loop = nullptr;
};

}  // namespace

// Sources are served on the loop's own thread; a source with no descriptor
// (a lost node) is skipped; the tick runs about every interval; after stop()
// nothing is called any more.
TEST(EventLoop, ServesSourcesOnItsThreadUntilStopped) {
    PipeSource live, lost;
    lost.ignored = true;
    std::atomic<int> ticks{0};
    EventLoop loop(
        [&] {
            return std::vector<PollSource*>{&lost, &live};
        },
        [&] { ++ticks; }, std::chrono::milliseconds(5));
    live.loop = &loop;
    std::string error;
    ASSERT_TRUE(loop.start(error)) << error;
    EXPECT_FALSE(loop.onLoopThread());

    live.poke();
    lost.poke();
    ASSERT_TRUE(live.waitCalls(1));
    EXPECT_TRUE(live.onLoop);

    // The tick comes with or without events.
    for (int i = 0; i < 500 && ticks < 3; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_GE(ticks, 3);

    loop.stop();
    const int ticksAtStop = ticks;
    live.poke();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(live.calls, 1);
    EXPECT_EQ(lost.calls, 0);
    EXPECT_EQ(ticks, ticksAtStop);
    loop.stop();  // a second stop does nothing
}
