#pragma once

#include <utility>

#include "support/syscall.h"

namespace quorvane {

/// Closes a descriptor that is not negative.  Returns 0 or a negated errno value; the descriptor is
/// free either way (close(2): it must not be closed again, not even after EINTR).
inline long close_fd(int fd) { return fd < 0 ? 0 : kernel::close(fd); }

/// Owns one descriptor, or none (negative).  No other code closes descriptors.  The destructor
/// ignores errors; code that writes files calls `close` and looks at its result.
class FdHandle {
  public:
    FdHandle() = default;
    explicit FdHandle(long fd) : fd_(static_cast<int>(fd)) {}
    FdHandle(FdHandle&& other) noexcept : fd_(other.release()) {}
    FdHandle& operator=(FdHandle&& other) noexcept {
        FdHandle moved(std::move(other));
        std::swap(fd_, moved.fd_);
        return *this;
    }
    FdHandle(const FdHandle&) = delete;
    FdHandle& operator=(const FdHandle&) = delete;
    ~FdHandle() { close_fd(fd_); }

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool valid() const { return fd_ >= 0; }

    /// Gives the descriptor away; the handle is empty afterwards.
    [[nodiscard]] int release() { return std::exchange(fd_, -1); }

    /// Closes the descriptor, if there is one, and returns the result of `close_fd`.
    long close() { return close_fd(release()); }

  private:
    int fd_ = -1;
};

}  // namespace quorvane
