// Libraries that may take the process down with them.
#pragma once

#include <functional>

namespace kt7::tool {

/// Runs `work` in a child of this process; false when that dies of it. Nothing of what it does in
/// memory comes back, exceptions neither. Work that takes ten seconds counts as survived.
bool survives(const std::function<void()>& work);

} // namespace kt7::tool
