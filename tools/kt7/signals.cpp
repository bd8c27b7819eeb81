#include "tools/kt7/signals.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <sched.h>
#include <unistd.h>

namespace kt7::tool {
namespace {

constexpr int endingSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::array<char, 4096> doomedPath;
std::atomic<bool> doomedSet{false}, beingMade{false}, barDrawn{false};
static_assert(std::atomic<bool>::is_always_lock_free);
sigset_t maskBefore;

// Only calls that are safe inside a handler. It may run on any thread, but never on one that is
// making the file.
void onSignal(int number) {
    for (int patience = 0; beingMade && patience < 1000000; ++patience)
        sched_yield();
    if (doomedSet)
        unlink(doomedPath.data());
    constexpr char wipe[] = "\r\x1b[K";
    if (barDrawn && write(STDERR_FILENO, wipe, sizeof wipe - 1) < 0)
        barDrawn = false;
    raise(number); // which now ends the process as if nobody had listened
}

} // namespace

void installSignalHandlers() {
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    sigemptyset(&action.sa_mask);
    for (const int number : endingSignals) {
        // A signal that is ignored on entry (nohup) stays ignored.
        struct sigaction before = {};
        sigaction(number, nullptr, &before);
        if (before.sa_handler != SIG_IGN)
            sigaction(number, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

DoomedFileMaking::DoomedFileMaking(const char* path) noexcept {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : endingSignals)
        sigaddset(&ending, number);
    pthread_sigmask(SIG_BLOCK, &ending, &maskBefore);
    doomedSet = false;
    beingMade = true;
    std::snprintf(doomedPath.data(), doomedPath.size(), "%s", path);
    doomedSet = true;
}

DoomedFileMaking::~DoomedFileMaking() {
    beingMade = false;
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
}

void forgetDoomedFile() noexcept {
    doomedSet = false;
}

void setBarDrawn(bool drawn) noexcept {
    barDrawn = drawn;
}

} // namespace kt7::tool
