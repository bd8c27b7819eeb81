// Ctrl-C and its relatives: the first one asks the work to stop, the second one ends the process.
#pragma once

namespace kt7::tool {

/// Installs the handlers of SIGINT, SIGTERM and SIGHUP, and turns a closed pipe into a write error.
void installSignalHandlers();

/// Signal that asked for the end, or 0.
int pendingSignal() noexcept;

/// Throws Cancelled when a signal has come.
void throwIfCancelled();

/// While one lives, a signal ends the process at once: for work that can't be asked to stop, such as
/// decoding, and that leaves nothing behind but the file that setDoomedFile names. Raises Cancelled
/// when one came before.
class EndAtOnce {
  public:
    EndAtOnce();
    ~EndAtOnce();
    EndAtOnce(const EndAtOnce&) = delete;
    EndAtOnce& operator=(const EndAtOnce&) = delete;
};

/// Names a file that must not outlive the process (null: none any more). Paths too long to hold are
/// refused with false. One file at a time.
bool setDoomedFile(const char* path) noexcept;

} // namespace kt7::tool
