// Codec libraries that print on their own.
#pragma once

namespace kt7::tool {

/// Sends standard error to nowhere while it lives: libpng and others print there, beside the error
/// that they return. One at a time, in a single thread.
class QuietStderr {
  public:
    QuietStderr();
    ~QuietStderr();
    QuietStderr(const QuietStderr&) = delete;
    QuietStderr& operator=(const QuietStderr&) = delete;

  private:
    int saved_;
};

} // namespace kt7::tool
