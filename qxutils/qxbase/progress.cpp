#include "qxutils/qxbase/progress.h"

#include <algorithm>

#include "qxutils/floatMode.h"

namespace kt7 {

std::int32_t qxProgressAdvance(QxProgress* p, std::int32_t delta) {
    if (p == nullptr)
        return 1;
    // In 64 bits, as the record is the host's: whatever it wrote there, the sum can't overflow.
    p->done =
        static_cast<std::int32_t>(std::min(std::int64_t{p->total}, std::int64_t{p->done} + delta));
    if (p->callback == nullptr || p->userData == nullptr)
        return 1;
    const FloatModeScope againstChanges;
    try {
        return p->callback(p->done, p->total, p->userData);
    } catch (...) {
        throw HostThrew();
    }
}

} // namespace kt7
