#include "tools/kt7/signals.h"

#include "tools/kt7/errors.h"

#include <atomic>
#include <csignal>
#include <cstring>
#include <unistd.h>

namespace kt7::tool {
namespace {

volatile std::sig_atomic_t received = 0;
volatile std::sig_atomic_t doomedSet = 0;
char doomedPath[4096];
std::atomic<int> endingAtOnce{0};
static_assert(std::atomic<int>::is_always_lock_free);

// Only calls that are safe inside a handler.
void onSignal(int number) {
    if (received != 0 || endingAtOnce.load() > 0) {
        if (doomedSet != 0)
            unlink(doomedPath);
        _exit(128 + number);
    }
    received = number;
}

} // namespace

void installSignalHandlers() {
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    // A signal that is ignored on entry (nohup) stays ignored.
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before = {};
        sigaction(number, nullptr, &before);
        if (before.sa_handler != SIG_IGN)
            sigaction(number, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

int pendingSignal() noexcept {
    return received;
}

void throwIfCancelled() {
    if (received != 0)
        throw Cancelled{};
}

EndAtOnce::EndAtOnce() {
    endingAtOnce.fetch_add(1);
    if (received == 0)
        return;
    endingAtOnce.fetch_sub(1);
    throw Cancelled{};
}

EndAtOnce::~EndAtOnce() {
    endingAtOnce.fetch_sub(1);
}

bool setDoomedFile(const char* path) noexcept {
    doomedSet = 0;
    if (path == nullptr)
        return true;
    const std::size_t bytes = std::strlen(path) + 1;
    if (bytes > sizeof doomedPath)
        return false;
    std::memcpy(doomedPath, path, bytes);
    doomedSet = 1;
    return true;
}

} // namespace kt7::tool
