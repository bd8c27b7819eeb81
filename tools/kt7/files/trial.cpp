#include "tools/kt7/files/trial.h"

#include <cerrno>
#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kt7::tool {
namespace {

// Another thread may have held a lock when the process was forked; nobody would wait for ever.
constexpr unsigned mostSeconds = 10;

[[noreturn]] void runAndEnd(const std::function<void()>& work) {
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM})
        std::signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    alarm(mostSeconds);
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    try {
        work();
    } catch (...) {
        // The parent will meet it, too.
    }
    _exit(0);
}

} // namespace

bool survives(const std::function<void()>& work) {
    // Where whoever started us ignores the end of children, we would be told of none.
    std::signal(SIGCHLD, SIG_DFL);
    const pid_t child = fork();
    if (child == 0)
        runAndEnd(work);
    int status = 0;
    pid_t ended = child;
    if (child > 0)
        while ((ended = waitpid(child, &status, 0)) < 0 && errno == EINTR) {
        }
    // Without an answer the work is most likely harmless.
    const bool silent = ended < 0 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM);
    return silent || (WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

} // namespace kt7::tool
