// Which photo becomes which file.
#pragma once

#include <string>
#include <vector>

namespace kt7::tool {

struct Job {
    std::string in;
    std::string out;
};

/// As given: IN and OUT, or inputs alone with a place for all outputs.
struct Placement {
    std::vector<std::string> files;
    std::string outDir; ///< every input under its own name in this directory
    std::string suffix; ///< appended to each name, beside the input when there is no directory
    std::string format; ///< also the extension of such names
};

/// Raises UsageError when the arguments make no sense together, UserError when one output would go
/// over another one or over the input of another job.
std::vector<Job> jobsOf(const Placement& placement);

} // namespace kt7::tool
