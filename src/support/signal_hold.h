#pragma once

#include "support/syscall.h"

namespace quorvane {

/// Holds back the signals by which people and systems end a program (SIGINT, SIGTERM, SIGHUP and
/// SIGQUIT) while it lives.  One that arrives meanwhile takes its usual effect when the outermost
/// hold ends.  Only for steps that must not be left half done: nothing that waits for a person or
/// for the network runs under it, and no child is started under it.  Where the kernel refuses, the
/// signals are not held.
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
