// kt7 estimate: the noise levels of photographs.
#include "tools/kt7/batch.h"
#include "tools/kt7/commands/commands.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/atomicOutput.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/json.h"
#include "tools/kt7/noisePlot.h"
#include "tools/kt7/photoLibrary.h"
#include "tools/kt7/say.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace kt7::tool {
namespace {

struct Options {
    std::vector<std::string> files;
    std::string plot;
    bool force = false;
    bool json = false;
};

void printRow(const std::string& file, const QxNoiseLevels& levels, int nameWidth) {
    std::printf("%-*s", nameWidth, shown(file).c_str());
    for (const float level : {levels.lumaMid, levels.chromaU, levels.chromaV, levels.lumaLow,
                              levels.lumaHigh, levels.noiseGrain})
        std::printf("  %10.6f", static_cast<double>(level));
    std::printf("\n");
}

int run(const Options& options) {
    const Existing existing = options.force ? Existing::replace : Existing::refuse;
    if (!options.plot.empty()) {
        if (options.files.size() > 1)
            throw UsageError("--plot takes one photo");
        checkWritable(options.plot, existing);
    }
    std::size_t longest = 4;
    for (const std::string& file : options.files)
        longest = std::max(longest, shown(file).size());
    const int nameWidth = static_cast<int>(longest);
    bool headed = options.json;
    int result = exitOk;
    for (const std::string& file : options.files) {
        try {
            Photo photo = readPhoto(file);
            const Kt7PhotoNoise noise = LentPhoto(photo).measure([](double) {});
            if (!options.plot.empty()) {
                const std::string drawing = noisePlot(noise, file == "-" ? "a photo" : file);
                publish(Bytes(drawing.begin(), drawing.end()), options.plot, existing);
            }
            if (!headed)
                std::printf("%-*s  %10s  %10s  %10s  %10s  %10s  %10s\n", nameWidth, "file",
                            "lumaMid", "chromaU", "chromaV", "lumaLow", "lumaHigh", "noiseGrain");
            headed = true;
            if (options.json)
                std::printf("%s\n", lineOf({{"input", file},
                                            {"width", photo.width},
                                            {"height", photo.height},
                                            {"measured", jsonOf(noise)},
                                            {"spectrum", spectrumOf(noise)}})
                                        .c_str());
            else
                printRow(file, noise.levels, nameWidth);
        } catch (const std::exception& error) {
            const std::string message = describe(file, error);
            say(message);
            if (options.json)
                std::printf("%s\n", lineOf({{"input", file}, {"error", message}}).c_str());
            result = exitFailed;
        }
    }
    return result;
}

} // namespace

Command addEstimateCommand(CLI::App& application) {
    CLI::App* command = application.add_subcommand("estimate", "Measure the noise of photos");
    command->footer("The levels are those that kt7 denoise takes out at strength 1, chosen by rule "
                    "from what was measured; --json tells all of that. They are standard "
                    "deviations where 1 is full scale: luma in the midtones, the two colour "
                    "differences, luma at black and at white; the noise grain is a shape from 0 "
                    "to 2. Joined with commas they fit kt7 denoise --noise.");
    const auto options = std::make_shared<Options>();
    command->add_option("files", options->files, "Photos; - stands for standard input")
        ->required()
        ->type_name("IN...");
    command
        ->add_option("--plot", options->plot,
                     "Draw the noise of one photo: its standard deviation against intensity, and "
                     "against frequency")
        ->type_name("FILE.svg");
    addForceOption(*command, options->force);
    command->add_flag("--json", options->json, "Print one line of JSON for each photo");
    return {command, [options] { return run(*options); }};
}

} // namespace kt7::tool
