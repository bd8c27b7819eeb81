// kt7_reference FOLDER DATE: writes the manual pages and completions of kt7; runs in the build.
#include "tools/kt7/application.h"
#include "tools/kt7/reference/reference.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <fstream>

using namespace kt7::tool;

namespace {

void write(const std::filesystem::path& file, const std::string& text) {
    std::ofstream out(file, std::ios::binary);
    out << text;
    out.exceptions(std::ios::failbit | std::ios::badbit);
    out.close();
}

} // namespace

int main(int argc, char** argv) try {
    if (argc != 3) {
        std::fprintf(stderr, "usage: kt7_reference FOLDER DATE\n");
        return exitUsage;
    }
    const std::filesystem::path folder(argv[1]);
    std::filesystem::create_directories(folder);
    const Application program;
    const std::vector<CommandText> texts = textsOf(*program.options);
    for (const CommandText& text : texts)
        write(folder / ("kt7" + (text.name.empty() ? "" : "-" + text.name) + ".1"),
              manualPage(texts, text, argv[2]));
    write(folder / "kt7", bashCompletion(texts));
    write(folder / "_kt7", zshCompletion(texts));
    write(folder / "kt7.fish", fishCompletion(texts));
    return exitOk;
} catch (const std::exception& error) {
    std::fprintf(stderr, "kt7_reference: %s\n", error.what());
    return exitFailed;
}
