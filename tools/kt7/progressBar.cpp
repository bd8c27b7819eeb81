#include "tools/kt7/progressBar.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kt7::tool {
namespace {

constexpr int percentWidth = 8; // " [] 100%"
constexpr int barWidth = 30;

int terminalColumns() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

} // namespace

ProgressBar::ProgressBar(std::string label, bool wanted)
    : label_(std::move(label)), active_(wanted && isatty(STDERR_FILENO)) {}

ProgressBar::~ProgressBar() {
    if (drawn_ >= 0)
        std::fputs("\r\x1b[K", stderr);
}

void ProgressBar::show(double fraction) {
    const int percent = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100.0);
    if (!active_ || percent == drawn_)
        return;
    drawn_ = percent;
    const int room = terminalColumns() - 1 - percentWidth;
    const int bar = std::clamp(room - 10, 0, barWidth);
    const int label = std::max(0, std::min(room - bar, static_cast<int>(label_.size())));
    const int filled = bar * percent / 100;
    std::fprintf(stderr, "\r%.*s [%s%s] %3d%%", label, label_.c_str(),
                 std::string(static_cast<std::size_t>(filled), '#').c_str(),
                 std::string(static_cast<std::size_t>(bar - filled), '.').c_str(), percent);
    std::fflush(stderr);
}

} // namespace kt7::tool
