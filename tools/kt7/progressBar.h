// A progress bar on a terminal, nothing anywhere else.
#pragma once

#include <string>

namespace kt7::tool {

/// Draws on standard error when that is a terminal and `wanted` is set. The line is wiped when the
/// object goes.
class ProgressBar {
  public:
    /// The label is cut to what the terminal holds; it must be free of control characters.
    ProgressBar(std::string label, bool wanted);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void relabel(std::string label);

    /// `fraction` is 0..1.
    void show(double fraction);

  private:
    std::string label_;
    bool active_;
    int drawn_ = -1;
};

} // namespace kt7::tool
