// Codecs that print what they dislike.
#pragma once

#include <cstdio>

namespace kt7::tool {

/// Some codecs print a line, or several, about a damaged file; the user gets one, which is ours.
/// Only the stream is another one meanwhile, which glibc allows: the descriptor stays as it is for
/// everybody else. Stands before the codec's objects, whose threads may print until they are gone.
class Silence {
  public:
    Silence() : before_(stderr), nowhere_(std::fopen("/dev/null", "we")) {
        if (nowhere_ != nullptr)
            stderr = nowhere_;
    }
    ~Silence() {
        stderr = before_;
        if (nowhere_ != nullptr)
            std::fclose(nowhere_);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

  private:
    std::FILE* before_;
    std::FILE* nowhere_;
};

} // namespace kt7::tool
