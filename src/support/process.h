#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "support/syscall.h"

/// The process itself: its arguments and environment, kept once at start, its streams and signals.
namespace quorvane {

/// Keeps the argument count and vector, and the environment vector, which begins just past the
/// argument vector's terminating null entry (System V ABI, "Process Initialization").
void set_process_vectors(int count, char** arguments);

/// Every argument after the program's name, in order.
[[nodiscard]] std::span<char* const> process_arguments();

/// The environment in its initial order, ended by a null entry, as execve wants it.
[[nodiscard]] char* const* process_environment();

/// The value of the first environment entry named `name`, compared byte for byte; nothing when
/// there is none.  A variable that is set to the empty text is present.
[[nodiscard]] std::optional<std::string_view> lookup_env(std::string_view name);

/// Makes the process independent of how it was started.  Descriptors 0, 1 and 2 that were closed
/// are opened on /dev/null, or else the first file or socket would receive what is printed.
/// SIGPIPE and SIGXFSZ are ignored, so that a peer or reader that went away and a file size limit
/// come back as errors of the system call.
void prepare_process();

/// Holds back the signals by which people and systems end a program (SIGINT, SIGTERM, SIGHUP and
/// SIGQUIT) while it exists.  One that arrives meanwhile has its usual effect when the outermost
/// hold ends.  It is for steps that must not be left half done: nothing that waits for a person or
/// for a peer runs under it, and no child is started under it.  One wait remains possible: a file
/// system that stops responding after it was asked (support/atomic_write.h) keeps the
/// process until it responds or is unmounted.  Where the kernel refuses, the signals are not held.
class SignalHold {
  public:
    SignalHold() : held_(kernel::sigprocmask(SIG_BLOCK, kEndingSignals, &previous_) >= 0) {}
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;
    ~SignalHold() {
        if (held_) kernel::sigprocmask(SIG_SETMASK, previous_, nullptr);
    }

  private:
    static constexpr kernel::SignalMask kEndingSignals =
        kernel::signal_bit(SIGINT) | kernel::signal_bit(SIGTERM) | kernel::signal_bit(SIGHUP) |
        kernel::signal_bit(SIGQUIT);

    kernel::SignalMask previous_ = 0;
    bool held_;
};

}  // namespace quorvane
