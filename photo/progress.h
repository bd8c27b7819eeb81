// What a call tells its host, and whether the host wants it to go on.
#pragma once

#include <cstdint>

#include "include/kt7photo/kt7photo.h"

namespace kt7::photo {

/// Belongs to the thread that the host called on; only that thread reports.
class Progress {
  public:
    Progress(Kt7PhotoProgress callback, void* userData) noexcept
        : callback_(callback), userData_(userData) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Tells the host that `done` (0 to 1) of the running part is finished. Raises kt7PhotoCancelled
    /// when the host wants no more, or kt7PhotoFailed when its callback threw.
    void report(double done);
    /// The same without raising: false when the call is to end.
    bool goesOn(double done) noexcept;

    /// Makes later reports cover `from` to `to` of the whole call.
    void enterPart(double from, double to) noexcept {
        from_ = from;
        to_ = to;
    }

    double from() const noexcept { return from_; }
    double to() const noexcept { return to_; }

    /// True while a callback of this library runs on this thread.
    static bool insideCallback() noexcept;

  private:
    Kt7PhotoProgress callback_;
    void* userData_;
    double from_ = 0.0, to_ = 1.0, last_ = 0.0;
    std::int32_t ended_ = kt7PhotoDone; // why the host ended the call
};

} // namespace kt7::photo
