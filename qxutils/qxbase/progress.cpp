#include "qxutils/qxbase/progress.h"

#include <algorithm>

namespace kt7 {

std::int32_t qxProgressAdvance(QxProgress* p, std::int32_t delta) {
    if (p == nullptr)
        return 1;
    // `done` and the deltas are far below 2^31, so the 32-bit sum can't overflow.
    p->done = std::min(p->total, p->done + delta);
    if (p->callback == nullptr || p->userData == nullptr)
        return 1;
    return p->callback(p->done, p->total, p->userData);
}

} // namespace kt7
