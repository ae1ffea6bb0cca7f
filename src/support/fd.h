#pragma once

#include "support/syscall.h"

namespace quorvane {

/// Owns one descriptor, or none (-1), and is the only code that closes one.  Errors of the close
/// are ignored, except through `close`, whose answer a writer of files needs.
class FdHandle {
  public:
    FdHandle() = default;
    explicit FdHandle(int fd) : fd_(fd) {}
    explicit FdHandle(long fd) : fd_(static_cast<int>(fd)) {}
    FdHandle(FdHandle&& other) noexcept : fd_(other.release()) {}
    FdHandle& operator=(FdHandle&& other) noexcept {
        if (this != &other) {
            close();
            fd_ = other.release();
        }
        return *this;
    }
    FdHandle(const FdHandle&) = delete;
    FdHandle& operator=(const FdHandle&) = delete;
    ~FdHandle() { close(); }

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool valid() const { return fd_ >= 0; }

    /// Gives the descriptor away; the handle is empty afterwards.
    [[nodiscard]] int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

    /// Closes the descriptor, if there is one.  0, or a negated errno value; the descriptor is
    /// gone either way (close(2): it must not be closed again, not even after EINTR).
    long close() { return valid() ? kernel::close(release()) : 0; }

  private:
    int fd_ = -1;
};

}  // namespace quorvane
