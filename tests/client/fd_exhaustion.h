#pragma once

// Makes every new descriptor fail with EMFILE while alive: lowers the soft
// descriptor limit and fills every free number below it. Only for tests that
// run no other threads opening descriptors at the same time.

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <vector>

class FdExhaustion {
public:
    FdExhaustion() {
        getrlimit(RLIMIT_NOFILE, &saved_);
        int highest = 0;
        for (int fd = 0; fd < 4096; ++fd) {
            if (fcntl(fd, F_GETFD) != -1) {
                highest = fd;
            }
        }
        struct rlimit lowered = saved_;
        lowered.rlim_cur = static_cast<rlim_t>(highest + 1);
        setrlimit(RLIMIT_NOFILE, &lowered);
        for (;;) {
            const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (fd < 0) {
                break;
            }
            fillers_.push_back(fd);
        }
    }
    ~FdExhaustion() {
        for (int fd : fillers_) {
            close(fd);
        }
        setrlimit(RLIMIT_NOFILE, &saved_);
    }
    FdExhaustion(const FdExhaustion&) = delete;
    FdExhaustion& operator=(const FdExhaustion&) = delete;

private:
    struct rlimit saved_;
    std::vector<int> fillers_;
};
