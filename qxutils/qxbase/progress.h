// The one operation through which progress moves.
#pragma once

#include <cstdint>

#include "include/kt7lib/kt7types.h"

namespace kt7 {

/// Value of complete progress.
inline constexpr std::int32_t progressTotal = 100000;

/// What leaves the host's callback becomes this, so that no int of the host's is taken for a code.
struct HostThrew {};

/// Moves progress by delta, held at its total, and tells the host. Returns 0 when the host cancels,
/// else what the callback gave, or 1 when p is null or no callback is set. Raises HostThrew.
std::int32_t qxProgressAdvance(QxProgress* p, std::int32_t delta);

} // namespace kt7
