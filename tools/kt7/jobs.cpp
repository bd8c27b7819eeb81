#include "tools/kt7/jobs.h"

#include "tools/kt7/errors.h"

#include <filesystem>
#include <map>

namespace kt7::tool {
namespace {

namespace fs = std::filesystem;

fs::path outputFor(const std::string& file, const Placement& placement) {
    const fs::path in = file;
    fs::path name = in.stem();
    name += placement.suffix;
    name += placement.format.empty() ? in.extension() : fs::path("." + placement.format);
    return (placement.outDir.empty() ? in.parent_path() : fs::path(placement.outDir)) / name;
}

/// One spelling for a place, whether or not there is a file yet.
fs::path placeOf(const std::string& path) {
    std::error_code ignored;
    const fs::path place = fs::weakly_canonical(path, ignored);
    return place.empty() ? fs::absolute(path).lexically_normal() : place;
}

} // namespace

std::vector<Job> jobsOf(const Placement& placement) {
    const auto& files = placement.files;
    if (placement.outDir.empty() && placement.suffix.empty()) {
        if (files.size() == 1)
            throw UsageError("the output is missing: kt7 denoise IN OUT");
        if (files.size() > 2)
            throw UsageError("several inputs need --out-dir DIR or --suffix TEXT");
        return {{files[0], files[1]}};
    }
    if (placement.suffix.find('/') != std::string::npos)
        throw UsageError("a suffix is part of a name and has no /");
    std::vector<Job> jobs;
    std::map<fs::path, std::string> inputAt, inputOfOutputAt;
    for (const std::string& file : files) {
        if (file == "-")
            throw UsageError("standard input has no name for --out-dir or --suffix");
        jobs.push_back({file, outputFor(file, placement).string()});
        inputAt.emplace(placeOf(file), file);
    }
    for (const Job& job : jobs) {
        const fs::path place = placeOf(job.out);
        const auto [other, isNew] = inputOfOutputAt.emplace(place, job.in);
        if (!isNew)
            throw UserError(
                about(job.out, "would be made of " + other->second + " and of " + job.in));
        const auto input = inputAt.find(place);
        if (input != inputAt.end() && input->second != job.in)
            throw UserError(about(job.out, "is an input, and would be made of " + job.in));
    }
    return jobs;
}

} // namespace kt7::tool
