#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <type_traits>

/// Every entry into the kernel, typed, and the only place that reads `errno`.
///
/// Each function makes one system call and returns the kernel's own answer: a value of zero or
/// more, or a negated errno value (-ENOENT).  None of them repeats a call, not even after EINTR.
/// Paths end in a zero byte; relative ones start at the working directory.
///
/// Newer architectures lack the older numbers (arm64 has no poll, fork, rename, unlink,
/// rmdir, mkdir or access; riscv64 has no renameat either); there the same function uses the *at,
/// renameat2, ppoll or clone form.
namespace quorvane::kernel {

namespace detail {

/// A system call takes machine words: integers are widened by their own signedness.
template <typename T> long as_word(T argument) {
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<long>(argument);
    } else {
        return static_cast<long>(argument);
    }
}

template <typename... Arguments> long call(long number, Arguments... arguments) {
    const long result = ::syscall(number, as_word(arguments)...);
    return result == -1 ? -errno : result;
}

}  // namespace detail

/// A system call by its number and the types of its arguments, which are those of its manual page.
template <long kNumber, typename... Arguments> struct Call {
    [[nodiscard]] long operator()(Arguments... arguments) const {
        return detail::call(kNumber, arguments...);
    }
};

/// Runs `operation`, which makes its kernel calls through a foreign library.  Returns its value or,
/// where that is negative, the negated errno value of the call that failed: -EIO if none did.
template <typename Operation> int foreign_call(const Operation& operation) {
    errno = 0;
    const int result = operation();
    if (result >= 0) return result;
    return errno == 0 ? -EIO : -errno;
}

// Files.

[[nodiscard]] inline long open(const char* path, int flags, mode_t mode = 0) {
    return detail::call(SYS_openat, AT_FDCWD, path, flags, mode);
}
inline constexpr Call<SYS_read, int, void*, std::size_t> read;
inline constexpr Call<SYS_write, int, const void*, std::size_t> write;
inline constexpr Call<SYS_fsync, int> fsync;
/// Fills in records of getdents(2), laid out as `dirent` on 64-bit systems; 0 at the end.
inline constexpr Call<SYS_getdents64, int, void*, std::size_t> getdents64;
inline constexpr Call<SYS_close, int> close;
[[nodiscard]] inline long fcntl(int fd, int command, long argument = 0) {
    return detail::call(SYS_fcntl, fd, command, argument);
}
/// Makes `target` a second name of the open file `fd`; O_CLOEXEC is the only flag.
inline constexpr Call<SYS_dup3, int, int, int> dup3;
/// Follows symbolic links unless `flags` is AT_SYMLINK_NOFOLLOW.
[[nodiscard]] inline long stat(const char* path, struct stat* status, int flags = 0) {
    return detail::call(SYS_newfstatat, AT_FDCWD, path, status, flags);
}
#ifdef SYS_mkdir
inline constexpr Call<SYS_mkdir, const char*, mode_t> mkdir;
inline constexpr Call<SYS_rename, const char*, const char*> rename;
inline constexpr Call<SYS_unlink, const char*> unlink;
inline constexpr Call<SYS_rmdir, const char*> rmdir;
/// Tests with the real user and group, as access(2) does; the mode is X_OK, for instance.
inline constexpr Call<SYS_access, const char*, int> access;
/// 0 in the child, the child's process number in the parent.
inline constexpr Call<SYS_fork> fork;
#else
[[nodiscard]] inline long mkdir(const char* path, mode_t mode) {
    return detail::call(SYS_mkdirat, AT_FDCWD, path, mode);
}
[[nodiscard]] inline long rename(const char* from, const char* to) {
    return detail::call(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0);
}
[[nodiscard]] inline long unlink(const char* path) {
    return detail::call(SYS_unlinkat, AT_FDCWD, path, 0);
}
[[nodiscard]] inline long rmdir(const char* path) {
    return detail::call(SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR);
}
[[nodiscard]] inline long access(const char* path, int mode) {
    return detail::call(SYS_faccessat, AT_FDCWD, path, mode);
}
[[nodiscard]] inline long fork() { return detail::call(SYS_clone, SIGCHLD, 0, 0, 0, 0); }
#endif

// The process, its children and its signals.

/// Returns the previous mask.
inline constexpr Call<SYS_umask, mode_t> umask;
inline constexpr Call<SYS_getpid> getpid;
/// Returns only when it failed.
inline constexpr Call<SYS_execve, const char*, char* const*, char* const*> execve;
/// Makes the process the leader of a session of its own, without a terminal.
inline constexpr Call<SYS_setsid> setsid;
/// Ends the process at once: nothing is flushed, no handler runs.
[[noreturn]] inline void exit(int status) {
    for (;;) detail::call(SYS_exit_group, status);
}
/// Sets the disposition of `number` to SIG_IGN or SIG_DFL; handlers are never installed, so no
/// return trampoline is needed.
inline long set_signal(int number, void (*disposition)(int)) {
    // The kernel's own record (sigaction(2), "C library/kernel differences"): a mask of 64 bits.
    struct {
        void (*handler)(int);
        unsigned long flags;
        void (*restorer)();
        std::uint64_t mask;
    } const action = {disposition, 0, nullptr, 0};
    return detail::call(SYS_rt_sigaction, number, &action, 0, sizeof action.mask);
}
/// A set of signals as the kernel has it.
using SignalMask = std::uint64_t;
constexpr SignalMask signal_bit(int number) { return SignalMask{1} << (number - 1); }
/// `how` is SIG_BLOCK or SIG_SETMASK; stores the previous mask in `*previous` unless that is null.
inline long sigprocmask(int how, SignalMask mask, SignalMask* previous) {
    return detail::call(SYS_rt_sigprocmask, how, &mask, previous, sizeof mask);
}

// Memory, randomness and time.

inline constexpr Call<SYS_madvise, void*, std::size_t, int> madvise;

/// May return fewer bytes than asked for.
[[nodiscard]] inline long getrandom(void* bytes, std::size_t size) {
    return detail::call(SYS_getrandom, bytes, size, 0);
}
inline constexpr Call<SYS_clock_gettime, clockid_t, timespec*> clock_gettime;

// Sockets.

inline constexpr Call<SYS_socket, int, int, int> socket;
inline constexpr Call<SYS_connect, int, const void*, std::size_t> connect;
inline constexpr Call<SYS_bind, int, const void*, std::size_t> bind;
inline constexpr Call<SYS_listen, int, int> listen;
/// The peer's address is not asked for.
[[nodiscard]] inline long accept4(int fd, int flags) {
    return detail::call(SYS_accept4, fd, 0, 0, flags);
}
inline constexpr Call<SYS_getsockname, int, void*, socklen_t*> getsockname;
inline constexpr Call<SYS_getsockopt, int, int, int, void*, socklen_t*> getsockopt;
inline constexpr Call<SYS_setsockopt, int, int, int, const void*, std::size_t> setsockopt;
[[nodiscard]] inline long sendto(int fd, const void* bytes, std::size_t size, int flags,
                                 const void* address = nullptr, std::size_t address_size = 0) {
    return detail::call(SYS_sendto, fd, bytes, size, flags, address, address_size);
}
[[nodiscard]] inline long recvfrom(int fd, void* bytes, std::size_t size, int flags,
                                   void* address = nullptr, socklen_t* address_size = nullptr) {
    return detail::call(SYS_recvfrom, fd, bytes, size, flags, address, address_size);
}
inline constexpr Call<SYS_shutdown, int, int> shutdown;
/// `timeout_ms` is 0 or more: an unbounded wait cannot be asked for.
[[nodiscard]] inline long poll(pollfd* fds, std::size_t count, std::int64_t timeout_ms) {
#ifdef SYS_poll
    return detail::call(SYS_poll, fds, count, timeout_ms);
#else
    const timespec limit = {timeout_ms / 1000, timeout_ms % 1000 * 1'000'000};
    return detail::call(SYS_ppoll, fds, count, &limit, 0, 0);
#endif
}

}  // namespace quorvane::kernel
