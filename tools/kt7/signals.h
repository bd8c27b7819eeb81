// Ctrl-C and its relatives end the process at once, and nothing half-made stays behind.
#pragma once

namespace kt7::tool {

/// Installs the handlers of SIGINT, SIGTERM and SIGHUP, and turns a closed pipe into a write error.
/// Whatever runs is left where it is: a codec or a denoiser can't be asked to hurry.
void installSignalHandlers();

/// Names a file that must not outlive the process, and lives while that file is being made: a
/// signal waits for it. One file at a time; paths of up to 4095 bytes, which is all that the system
/// takes.
class DoomedFileMaking {
  public:
    explicit DoomedFileMaking(const char* path) noexcept;
    ~DoomedFileMaking();
    DoomedFileMaking(const DoomedFileMaking&) = delete;
    DoomedFileMaking& operator=(const DoomedFileMaking&) = delete;
};

/// The file is gone, or has its place.
void forgetDoomedFile() noexcept;

/// Tells that the last line of the terminal is a progress bar, which a signal wipes.
void setBarDrawn(bool drawn) noexcept;

} // namespace kt7::tool
