// Many photos, one after the other or several at once, each with a way to fail of its own.
#pragma once

#include "tools/kt7/files/atomicOutput.h"
#include "tools/kt7/jobs.h"
#include "tools/kt7/json.h"

#include <functional>

namespace CLI {
class App;
}

namespace kt7::tool {

struct BatchOptions {
    Placement placement;
    bool force = false;
    bool skipExisting = false;
    bool dryRun = false;
    bool json = false;
    bool quiet = false;
    int jobs = 1;    ///< photos at once
    int threads = 0; ///< of each; 0: what the machine has

    Existing existing() const { return force ? Existing::replace : Existing::refuse; }
};

/// The options of an output that may be there already, for commands that write one file.
void addForceOption(CLI::App& command, bool& force);

/// All of the above but the format.
void addBatchOptions(CLI::App& command, BatchOptions& options);

/// The start of a photo's record, and what prints the whole, if records are wanted.
Json recordOf(const Job& job);
void print(const BatchOptions& options, const Json& record);

/// Runs body(job, label) for each photo, where `label` names it on a progress bar; several at once
/// are processes of their own, started with the same options. A failure is said, with --json as a
/// record too, and the others go on. The result is the exit code.
using JobBody = std::function<void(const Job& job, const std::string& label)>;
int runBatch(const CLI::App& command, const BatchOptions& options, const JobBody& body);

} // namespace kt7::tool
