#include "tools/kt7/stepTimes.h"

#include <cstdio>

namespace kt7::tool {

std::string StepTimes::text() const {
    std::string line;
    for (const auto& [step, seconds] : steps_) {
        char part[64];
        std::snprintf(part, sizeof part, "%s%s %.2f s", line.empty() ? "" : ", ", step.c_str(),
                      seconds);
        line += part;
    }
    return line;
}

} // namespace kt7::tool
