#include "tools/kt7/batch.h"

#include "tools/kt7/commands/commands.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/progressBar.h"
#include "tools/kt7/say.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kt7::tool {
namespace {

namespace fs = std::filesystem;

/// A failure of one photo, which doesn't keep the others waiting.
int failed(const BatchOptions& options, const Job& job, const std::string& message) {
    say(message);
    Json record = recordOf(job);
    record["error"] = message;
    print(options, record);
    return exitFailed;
}

int runOne(const BatchOptions& options, const Job& job, const std::function<void()>& body) {
    try {
        body();
        return exitOk;
    } catch (const std::exception& error) {
        return failed(options, job, describe(job.in, error));
    }
}

/// Done without any work: the file is there.
bool skip(const BatchOptions& options, const Job& job) {
    if (!options.skipExisting || !isTaken(job.out))
        return false;
    say(about(job.out, "is there already, skipped"));
    Json record = recordOf(job);
    record["skipped"] = true;
    print(options, record);
    return true;
}

/// Says what would be done, or what would be in the way.
void rehearse(const BatchOptions& options, const Job& job) {
    if (job.in != "-" && access(job.in.c_str(), R_OK) != 0)
        throw UserError(about(job.in, std::string("cannot read: ") + std::strerror(errno)));
    const std::string& outDir = options.placement.outDir;
    const bool toBeMade = !outDir.empty() && !fs::exists(outDir);
    const bool taken = isTaken(job.out);
    if (!toBeMade)
        checkWritable(job.out, options.existing());
    if (options.json) {
        Json record = recordOf(job);
        record["dryRun"] = true;
        record["replaces"] = taken;
        print(options, record);
    } else {
        std::printf("%s -> %s%s\n", shown(job.in).c_str(), shown(job.out).c_str(),
                    taken ? " (replaced)" : "");
    }
}

void makeDirectory(const std::string& directory) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (!fs::is_directory(directory))
        throw UserError(about(directory, "cannot make the directory: " +
                                             (error ? error.message() : std::strerror(ENOTDIR))));
}

std::string labelOf(const Job& job, std::size_t number, std::size_t jobs) {
    const std::string name = shown(job.in);
    return jobs == 1 ? name : std::to_string(number) + " of " + std::to_string(jobs) + " " + name;
}

int runInTurn(const BatchOptions& options, const std::vector<Job>& jobs, const JobBody& body) {
    int result = exitOk;
    std::size_t number = 0;
    for (const Job& job : jobs) {
        const std::string label = labelOf(job, ++number, jobs.size());
        result = std::max(result, runOne(options, job, [&] {
                              if (!skip(options, job))
                                  body(job, label);
                          }));
    }
    return result;
}

/// The options of this call for one of its jobs.
std::vector<std::string> workerArguments(const CLI::App& command, const BatchOptions& options,
                                         const Job& job) {
    const std::set<std::string> ours = {"--out-dir", "--suffix",  "--jobs", "--skip-existing",
                                        "--dry-run", "--threads", "--quiet"};
    std::vector<std::string> arguments{"kt7", command.get_name()};
    for (const CLI::Option* option : command.get_options()) {
        const std::string name = option->get_name();
        if (option->count() == 0 || option->get_positional() || ours.count(name) > 0)
            continue;
        if (option->get_items_expected_max() == 0)
            arguments.push_back(name);
        else
            for (const std::string& value : option->results())
                arguments.emplace_back(name).append("=").append(value);
    }
    if (options.quiet || options.jobs > 1)
        arguments.emplace_back("--quiet");
    arguments.insert(arguments.end(), {"--", job.in, job.out});
    return arguments;
}

/// Threads of one of several processes. The parallel runtime reads its number when it is loaded.
std::string threadsOf(const BatchOptions& options) {
    const int processors = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    const int threads = options.threads > 0 ? options.threads : processors / options.jobs;
    return std::to_string(std::max(1, threads));
}

/// A kt7 for one photo, which ends when this process does. Raises UserError.
pid_t startWorker(const std::vector<std::string>& arguments, const BatchOptions& options) {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const std::string threads = threadsOf(options);
    const pid_t parent = getpid();
    const pid_t worker = fork();
    if (worker < 0)
        throw UserError(std::string("cannot start a process: ") + std::strerror(errno));
    if (worker > 0)
        return worker;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    setenv("OMP_NUM_THREADS", threads.c_str(), 1);
    if (getppid() == parent)
        execv("/proc/self/exe", argv.data());
    _exit(127);
}

int runSideBySide(const CLI::App& command, const BatchOptions& options,
                  const std::vector<Job>& jobs) {
    ProgressBar bar("", !options.quiet && options.jobs > 1);
    std::map<pid_t, Job> running;
    int result = exitOk;
    std::size_t finished = 0;
    const auto tell = [&] {
        bar.relabel(std::to_string(finished) + " of " + std::to_string(jobs.size()) + " done");
        bar.show(static_cast<double>(finished) / static_cast<double>(jobs.size()));
    };
    const auto finishOne = [&] {
        int status = 0;
        const auto ended = running.find(waitpid(-1, &status, 0));
        if (ended == running.end())
            return;
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (code == exitOk || code == exitFailed) // which it has told itself
            result = std::max(result, code);
        else
            result = failed(options, ended->second, about(ended->second.in, "its process died"));
        running.erase(ended);
        ++finished;
        tell();
    };
    tell();
    for (const Job& job : jobs) {
        result = std::max(
            result, runOne(options, job, [&] {
                if (skip(options, job)) {
                    ++finished;
                    return;
                }
                if (running.size() == static_cast<std::size_t>(options.jobs))
                    finishOne();
                running.emplace(startWorker(workerArguments(command, options, job), options), job);
            }));
    }
    while (!running.empty())
        finishOne();
    return result;
}

} // namespace

Json recordOf(const Job& job) {
    return {{"input", job.in}, {"output", job.out}};
}

void print(const BatchOptions& options, const Json& record) {
    if (!options.json)
        return;
    // The picture itself may be on its way through standard output.
    std::fprintf(record["output"] == "-" ? stderr : stdout, "%s\n", lineOf(record).c_str());
    std::fflush(stdout); // whole lines, also when several processes write
}

void addForceOption(CLI::App& command, bool& force) {
    command.add_flag("--force,-f", force,
                     "Replace a file that is there already, the input too. The new file gets the "
                     "old one's permissions; further hard links of that keep the old picture");
}

void addBatchOptions(CLI::App& command, BatchOptions& options) {
    Placement& placement = options.placement;
    command
        .add_option("files", placement.files,
                    "IN and OUT, or inputs alone with --out-dir or --suffix. - stands for standard "
                    "input and output")
        ->required()
        ->type_name("IN... [OUT]");
    command
        .add_option("--out-dir", placement.outDir,
                    "Write every input into this directory, under its own name; made if missing")
        ->type_name("DIR");
    command
        .add_option("--suffix", placement.suffix,
                    "Write every input under its name with this behind it, such as _denoised: "
                    "beside the input, or into --out-dir")
        ->type_name("TEXT");
    addForceOption(command, options.force);
    command
        .add_flag("--skip-existing", options.skipExisting,
                  "Leave out inputs whose output is there already: goes on where a batch ended")
        ->excludes("--force");
    command.add_flag("--dry-run", options.dryRun,
                     "Say what would be written where, and what is in the way; do nothing");
    command
        .add_option("--jobs,-j", options.jobs,
                    "Photos to work on at once, each in a process of its own. Each needs its "
                    "memory: about 35 bytes a pixel")
        ->check(CLI::Range(1, 256))
        ->type_name("N")
        ->capture_default_str();
    command
        .add_option("--threads", options.threads,
                    "Threads for a photo, at most 4 of them in the denoiser. Default: one for each "
                    "processor, shared by the jobs")
        ->check(CLI::Range(1, 1024))
        ->type_name("N");
    command.add_flag(
        "--json", options.json,
        "Print one line of JSON for each photo: what was written, what was measured, levels used, "
        "seconds of each step, or the error");
    command.add_flag("--quiet,-q", options.quiet, "No progress bar and no summary");
}

int runBatch(const CLI::App& command, const BatchOptions& options, const JobBody& body) {
    const std::vector<Job> jobs = jobsOf(options.placement);
    if (options.dryRun)
        return runInTurn(options, jobs,
                         [&](const Job& job, const std::string&) { rehearse(options, job); });
    if (!options.placement.outDir.empty())
        makeDirectory(options.placement.outDir);
    if ((options.jobs > 1 && jobs.size() > 1) || options.threads > 0)
        return runSideBySide(command, options, jobs);
    return runInTurn(options, jobs, body);
}

} // namespace kt7::tool
