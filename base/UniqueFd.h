#pragma once

#include <unistd.h>

namespace VOLUT {

// Owns one file descriptor and closes it when destroyed. Move-only; -1 means
// none. Not thread-safe: one owner at a time.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    // Gives the descriptor up without closing it.
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    // Closes the held descriptor, if any, and takes `fd`.
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace VOLUT
