#include "tools/kt7/files/quietStderr.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace kt7::tool {

QuietStderr::QuietStderr() {
    std::fflush(stderr);
    saved_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved_ >= 0 && nowhere >= 0)
        dup2(nowhere, STDERR_FILENO);
    if (nowhere >= 0)
        close(nowhere);
}

QuietStderr::~QuietStderr() {
    if (saved_ < 0)
        return;
    std::fflush(stderr);
    dup2(saved_, STDERR_FILENO);
    close(saved_);
}

} // namespace kt7::tool
