#include "tools/kt7/progressBar.h"

#include "tools/kt7/signals.h"

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
    setBarDrawn(false);
}

void ProgressBar::relabel(std::string label) {
    label_ = std::move(label);
    drawn_ = -1;
}

void ProgressBar::show(double fraction) {
    const int percent = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100.0);
    if (!active_ || percent == drawn_)
        return;
    drawn_ = percent;
    setBarDrawn(true);
    const int room = terminalColumns() - 1 - percentWidth;
    const int bar = std::clamp(room - 10, 0, barWidth);
    int label = std::max(0, std::min(room - bar, static_cast<int>(label_.size())));
    const auto isInsideCharacter = [&] { // of UTF-8
        const auto at = static_cast<std::size_t>(label);
        return label > 0 && at < label_.size() && (label_[at] & 0xC0) == 0x80;
    };
    while (isInsideCharacter())
        --label;
    const int filled = bar * percent / 100;
    std::fprintf(stderr, "\r%.*s [%s%s] %3d%%", label, label_.c_str(),
                 std::string(static_cast<std::size_t>(filled), '#').c_str(),
                 std::string(static_cast<std::size_t>(bar - filled), '.').c_str(), percent);
    std::fflush(stderr);
}

} // namespace kt7::tool
