// Runs a fuzz target over files: its corpus as an ordinary test.
//   TARGET FILE-OR-FOLDER..
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> text{std::istreambuf_iterator<char>(stream), {}};
    std::printf("%s, %zu bytes\n", file.c_str(), text.size());
    std::fflush(stdout);
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[text.size()]);
    std::copy(text.begin(), text.end(), exact.get());
    LLVMFuzzerTestOneInput(exact.get(), text.size());
}

} // namespace

int main(int argc, char** argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            replay(argv[i]);
            ++files;
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            replay(entry.path());
            ++files;
        }
    }
    return files > 0 ? 0 : 1;
}
