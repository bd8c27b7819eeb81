// The built kt7, from outside.
#include "tests/support/iccProfiles.h"
#include "tests/tools/scratchFolder.h"

#include "tests/tools/files/samplePhoto.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/json.h"
#include "tools/kt7/scene/demoScene.h"
#include "tools/kt7/screen.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <vector>

extern char** environ;

namespace kt7 {
namespace {

using Arguments = std::vector<std::string>;
using tool::Bytes;
using tool::Photo;

struct Settings {
    std::string in = "/dev/null";
    std::string out = {};                      ///< empty: kept in the result
    std::vector<std::string> environment = {}; ///< on top of our own
    int signal = 0;                            ///< sent after the first byte on standard output
};

struct Result {
    int code; ///< exit code
    std::string out, err;
    long lines() const { return std::count(err.begin(), err.end(), '\n'); }
};

/// Runs kt7 with standard output and error in pipes or files.
Result run(const Arguments& arguments, const Settings& settings = {}) {
    const ScratchFolder folder;
    int pipeEnds[2];
    EXPECT_EQ(pipe(pipeEnds), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, settings.in.c_str(), O_RDONLY, 0);
    if (settings.out.empty())
        posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
    else
        posix_spawn_file_actions_addopen(&actions, 1, settings.out.c_str(), O_WRONLY | O_CREAT,
                                         0666);
    posix_spawn_file_actions_addopen(&actions, 2, (folder / "err").c_str(), O_WRONLY | O_CREAT,
                                     0666);
    posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
    posix_spawn_file_actions_addclose(&actions, pipeEnds[1]);

    std::vector<char*> argv{const_cast<char*>("kt7")};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> env;
    // Ours first: the first of two counts.
    for (const std::string& entry : settings.environment)
        env.push_back(const_cast<char*>(entry.c_str()));
    for (char** entry = environ; *entry != nullptr; ++entry)
        env.push_back(*entry);
    env.push_back(nullptr);

    pid_t child = 0;
    EXPECT_EQ(posix_spawn(&child, KT7_PROGRAM, &actions, nullptr, argv.data(), env.data()), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeEnds[1]);
    Result result{};
    char chunk[4096];
    for (ssize_t n; (n = read(pipeEnds[0], chunk, sizeof chunk)) > 0;) {
        if (settings.signal != 0 && result.out.empty())
            kill(child, settings.signal);
        result.out.append(chunk, static_cast<std::size_t>(n));
    }
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    result.err = bytesOf(folder / "err");
    return result;
}

Bytes pixelsOf(const std::string& path) {
    return screenRgb(tool::readPhoto(path));
}

class CommandLine : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(run({"demo", folder / "demo", "--size", "64x48", "--fast"}).code, 0);
        photo = folder / "demo/noisy.png";
    }
    /// Levels by hand: the picture is too small to be measured.
    Arguments denoise(Arguments rest) const {
        rest.insert(rest.begin(), {"denoise", "--fast", "--noise", "0.03,0.03,0.03,0.02,0.03,0"});
        return rest;
    }

    ScratchFolder folder;
    std::string photo;
};

TEST_F(CommandLine, WritesFilesAndStreams) {
    EXPECT_EQ(run(denoise({photo, folder / "out.jpg"})).code, 0);
    const Result quiet = run(denoise({photo, photo, "-f"}));
    EXPECT_EQ(quiet.code, 0);
    EXPECT_EQ(quiet.out + quiet.err, "");

    const Result piped = run(denoise({"-", "-", "--format", "tif"}), {.in = photo});
    EXPECT_EQ(piped.code, 0) << piped.err;
    EXPECT_TRUE(piped.out.starts_with("II*"));
}

TEST_F(CommandLine, MeasuresTheNoiseByItself) {
    const Result demo = run({"demo", folder / "scene", "--size", "512x384", "--fast", "--json"});
    EXPECT_NE(demo.out.find("\"psnrDenoised\":"), std::string::npos) << demo.out;
    const std::string noisy = folder / "scene/noisy.png";
    const auto clean = pixelsOf(folder / "scene/clean.png");
    const auto quality = [&](const Arguments& rest) {
        Arguments arguments{"denoise", noisy, folder / "out.png", "-f"};
        arguments.insert(arguments.end(), rest.begin(), rest.end());
        EXPECT_EQ(run(arguments).err, "");
        return psnr8(pixelsOf(folder / "out.png"), clean);
    };
    const double fast = quality({"--fast"}), best = quality({});
    EXPECT_GT(fast, psnr8(pixelsOf(noisy), clean) + 2.0);
    EXPECT_GT(best, fast + 1.0);

    const Result report = run({"denoise", noisy, folder / "out.png", "--json", "-f"});
    const Result row = run({"estimate", noisy, photo}), object = run({"estimate", noisy, "--json"});
    EXPECT_EQ(row.code, 0);
    EXPECT_EQ(std::count(row.out.begin(), row.out.end(), '\n'), 3) << row.out;
    const auto lumaOf = [](const std::string& json) {
        return tool::Json::parse(json)["measured"]["levels"]["lumaMid"].get<float>();
    };
    const auto spectrum = tool::Json::parse(object.out)["spectrum"];
    EXPECT_EQ(spectrum["power"][2][7].size(), 8u);
    EXPECT_EQ(spectrum["gain"][2].size(), spectrum["intensity"].size());
    // But for the spread of the measurement's own search.
    const float luma = lumaOf(object.out);
    EXPECT_GT(luma, 0.005f);
    EXPECT_NEAR(lumaOf(report.out), luma, 0.02f * luma);
    const auto line = row.out.find(noisy);
    ASSERT_NE(line, std::string::npos);
    EXPECT_NEAR(std::stof(row.out.substr(line + noisy.size())), luma, 0.02f * luma);
}

TEST_F(CommandLine, TakesNothingOutAtStrengthZero) {
    for (const std::int32_t bits : {8, 16})
        for (const std::int32_t channels : {1, 3})
            for (const Arguments& rest : {Arguments{"-s", "0"}, Arguments{"--blend", "0"},
                                          Arguments{"--luma", "0", "--colour", "0"}}) {
                const Photo before = tool::samplePhoto(channels, bits, true);
                writePhoto(before, folder / "in.png", tool::pngFormat, 0, tool::Existing::replace);
                Arguments arguments{"denoise", folder / "in.png", folder / "out.png", "-f"};
                arguments.insert(arguments.end(), rest.begin(), rest.end());
                ASSERT_EQ(run(arguments).code, 0);
                const Photo after = tool::readPhoto(folder / "out.png");
                EXPECT_EQ(after.samples, before.samples) << bits << ' ' << channels << rest[0];
                EXPECT_EQ(after.alpha, before.alpha);
            }
}

TEST_F(CommandLine, QualityIsANameOrANumberOrBoth) {
    const struct {
        Arguments rest;
        const char* name;
        int number;
    } cases[] = {{{}, "best", 95},
                 {{"--fast", "--quality=40"}, "fast", 40},
                 {{"--quality", "full"}, "full", 95},
                 {{"--quality", "7", "--quality", "fast"}, "fast", 7}};
    for (const auto& [rest, name, number] : cases)
        for (const bool inAProcess : {false, true}) {
            Arguments arguments{"denoise", photo, folder / "o.jpg", "-f", "--json"};
            arguments.insert(arguments.end(), rest.begin(), rest.end());
            if (inAProcess)
                arguments.insert(arguments.end(), {"--threads", "1"});
            const auto report = tool::Json::parse(run(arguments).out);
            EXPECT_EQ(report["quality"], name);
            EXPECT_EQ(report["written"]["quality"], number);
        }
}

TEST_F(CommandLine, DenoisesWhereTheMaskIsWhite) {
    const Photo before = tool::readPhoto(photo);
    const auto masked = [&](const Photo& mask) {
        writePhoto(mask, folder / "m.png", tool::pngFormat, 0, tool::Existing::replace);
        const Result result =
            run(denoise({photo, folder / "o.png", "-f", "--mask", folder / "m.png"}));
        EXPECT_EQ(result.code, 0) << result.err;
        return tool::readPhoto(folder / "o.png").samples;
    };
    ASSERT_EQ(run(denoise({photo, folder / "whole.png"})).code, 0);
    const auto whole = tool::readPhoto(folder / "whole.png").samples;
    Photo mask = tool::samplePhoto(1, 16, false, 64, 48); // white left, black right
    for (std::size_t i = 0; i < mask.samples.size(); ++i)
        mask.samples[i] = i % 64 < 32 ? 65535 : 0;
    const auto half = masked(mask);
    Photo threeChannels = tool::samplePhoto(3, 8, false, 64, 48);
    std::ranges::fill(threeChannels.samples, std::uint16_t{255});
    const auto everywhere = masked(threeChannels);
    double apart = 0.0, moved = 0.0, added = 0.0;
    for (std::size_t i = 0; i < half.size(); ++i) {
        const bool white = i / 3 % 64 < 32;
        ASSERT_TRUE(white || half[i] == before.samples[i]) << i;
        apart += white ? std::abs(half[i] - whole[i]) : 0;
        moved += white ? std::abs(before.samples[i] - whole[i]) : 0;
        added += std::abs(everywhere[i] - whole[i]);
    }
    // Two runs differ by the search's spread, a mask that is not heeded by all that is moved.
    EXPECT_LT(apart, 0.4 * moved);
    EXPECT_LT(added, 0.4 * 2.0 * moved);
}

TEST_F(CommandLine, StrengthsOfBrightnessAndColourAreApart) {
    const Bytes before = pixelsOf(photo);
    struct Case {
        const char* quality;
        double luma[3]; // the weights of red, green and blue in the luma that it keeps apart
    };
    for (const Case& c :
         {Case{"fast", {0.299, 0.587, 0.114}}, Case{"best", {1.0 / 3.0, 1.0 / 3.0, 1.0 / 3.0}}}) {
        // Change of luma, and of blue minus red.
        const auto changes = [&](const char* luma, const char* colour) {
            EXPECT_EQ(run({"denoise", photo, folder / "o.png", "-f", "--quality", c.quality,
                           "--luma", luma, "--colour", colour})
                          .code,
                      0);
            const Bytes after = pixelsOf(folder / "o.png");
            std::pair<double, double> sum;
            for (std::size_t i = 0; i < after.size(); i += 3) {
                double change[3];
                for (std::size_t k = 0; k < 3; ++k)
                    change[k] = after[i + k] - before[i + k];
                sum.first +=
                    std::abs(c.luma[0] * change[0] + c.luma[1] * change[1] + c.luma[2] * change[2]);
                sum.second += std::abs(change[2] - change[0]);
            }
            return sum;
        };
        const auto both = changes("1", "1"), luma = changes("1", "0"), colour = changes("0", "1");
        EXPECT_GT(luma.first, 0.8 * both.first) << c.quality;
        EXPECT_LT(luma.second, 0.1 * both.second) << c.quality;
        EXPECT_LT(colour.first, 0.1 * both.first) << c.quality;
        EXPECT_GT(colour.second, 0.6 * both.second) << c.quality;
    }
}

TEST_F(CommandLine, ComparesStrengthsSideBySide) {
    const Result said = run({"compare", photo, folder / "c.png", "--fast", "--strengths", "0,2",
                             "--crop", "24x16+40+32", "--amplify", "3", "--json"});
    ASSERT_EQ(said.code, 0) << said.err;
    EXPECT_EQ(tool::Json::parse(said.out)["columns"], tool::Json::array({"before", 0.0, 2.0}));
    const Photo before = tool::readPhoto(photo), picture = tool::readPhoto(folder / "c.png");
    ASSERT_EQ(picture.width, 3 * 24 + 2 * 8);
    ASSERT_EQ(picture.height, 2 * 16 + 8);
    // The sample of a panel, which is 24 by 16 with 8 of paper between.
    const auto at = [&](int column, int row, int x, int y) {
        return static_cast<int>(picture.samples[static_cast<std::size_t>(
            3 * ((row * 24 + y) * picture.width + column * 32 + x / 3) + x % 3)]);
    };
    int changed = 0;
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 3 * 24; ++x) {
            const int was = before.samples[static_cast<std::size_t>(3 * (64 * (y + 32) + 40) + x)];
            ASSERT_EQ(at(0, 0, x, y), was);
            ASSERT_EQ(at(1, 0, x, y), was); // strength 0
            ASSERT_NEAR(at(1, 1, x, y), 128, 1);
            const int removed = was - at(2, 0, x, y);
            changed += removed != 0;
            ASSERT_NEAR(at(2, 1, x, y), std::clamp(127.5 + 3 * removed, 0.0, 255.0), 1);
        }
    EXPECT_GT(changed, 500);
}

TEST_F(CommandLine, EveryFailureIsOneLineAndLeavesNothing) {
    writeBytes(folder / "text.jpg", "no picture");
    writeBytes(folder / "cut.png", bytesOf(photo).substr(0, 3000));
    writePhoto(tool::samplePhoto(1, 8, false), folder / "small.png", tool::pngFormat, 0,
               tool::Existing::refuse);
    std::filesystem::create_directory(folder / "out");
    const std::string out = folder / "out/o.png";
    struct Case {
        Arguments arguments;
        int code;
    };
    std::vector<Case> cases = {
        {denoise({folder / "text.jpg", out}), 1},
        {denoise({folder / "cut.png", out}), 1},
        {denoise({folder / "nothing.png", out}), 1},
        {denoise({photo, folder / "out/o.doc"}), 1},
        {denoise({folder / "out", out}), 1},
        {denoise({photo, out, "--mask", photo}), 1},
        {denoise({photo, out, "--mask", folder / "nothing.png"}), 1},
        {denoise({photo, out, "--mask", folder / "small.png"}), 1},
        {{"estimate", folder / "text.jpg"}, 1},
        {{"compare", photo, out, "--crop", "32x32+33+0"}, 1},
        {{"compare", folder / "text.jpg", out}, 1},
        {{"demo", folder / "none/demo"}, 1},
        {{"preview", photo, out, "--profile", folder / "text.jpg"}, 1},
        {{"levels", folder / "text.jpg", out, "--view", "luma"}, 1},
    };
    for (const char* name : {"avif", "jxl"}) { // whose codecs like to print
        const tool::FileFormat* const format = tool::formatNamed(name);
        if (format == nullptr)
            continue;
        Bytes bytes = encode(tool::samplePhoto(3, 8, false), *format, 90).bytes;
        const auto data = std::ranges::search(bytes, std::string_view("mdat")).end();
        std::for_each(data == bytes.end() ? bytes.end() - 40 : data, bytes.end(),
                      [](std::uint8_t& byte) { byte ^= 0x55; });
        const std::string path = folder / (std::string("damaged.") + name);
        writeBytes(path, {bytes.begin(), bytes.end()});
        cases.push_back({denoise({path, out}), 1});
    }
    for (const auto& [arguments, code] : cases) {
        const Result result = run(arguments);
        EXPECT_EQ(result.code, code) << testing::PrintToString(arguments);
        EXPECT_EQ(result.lines(), 1) << testing::PrintToString(arguments) << result.err;
        EXPECT_TRUE(result.err.starts_with("kt7: ")) << result.err;
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder / "out"));
}

TEST_F(CommandLine, ShowsPhotosAtScreenSizeInScreenColours) {
    const Photo before = tool::readPhoto(photo);
    for (const std::int32_t width : {1, 7, 63, 64, 65, 128}) {
        const Result result =
            run({"preview", photo, folder / "p.png", "-f", "--width", std::to_string(width)});
        EXPECT_EQ(result.code, width == 1 ? 1 : 0) << result.err; // no row is left of 64 x 48
        if (result.code != 0)
            continue;
        const Photo shown = tool::readPhoto(folder / "p.png");
        EXPECT_EQ(shown.width, width);
        EXPECT_EQ(shown.height, width * 48 / 64);
        // Corners stay corners.
        EXPECT_EQ(shown.samples.front(), before.samples.front());
        // Unless a fraction of a row or column is cut off.
        EXPECT_TRUE(width % 64 != 0 || shown.samples.back() == before.samples.back());
    }
    // A screen whose first channel shows green: the colours go there and come back by the profile
    // that the picture carries.
    const auto screen =
        test::blockOf(test::matrixProfile(2.2, {0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}));
    writeBytes(folder / "screen.icc", {screen.begin(), screen.end()});
    ASSERT_EQ(
        run({"preview", photo, folder / "p.png", "-f", "--profile", folder / "screen.icc"}).code,
        0);
    ASSERT_EQ(run({"preview", folder / "p.png", folder / "back.png"}).code, 0);
    const Photo there = tool::readPhoto(folder / "p.png"),
                back = tool::readPhoto(folder / "back.png");
    EXPECT_EQ(screen.size(), there.metadata.icc.size());
    EXPECT_NE(before.samples, there.samples);
    for (std::size_t i = 0; i < before.samples.size(); ++i)
        EXPECT_NEAR(before.samples[i], back.samples[i], 8);
}

TEST_F(CommandLine, EveryLevelsViewShowsWhatItSays) {
    const Photo before = tool::readPhoto(photo);
    const auto seen = [&](const char* view, const char* target) {
        EXPECT_EQ(
            run({"levels", photo, folder / "v.png", "-f", "--view", view, "--target", target}).code,
            0);
        return pixelsOf(folder / "v.png");
    };
    std::set<std::string> different;
    for (const char* view :
         {"red", "green", "blue", "luma", "chroma", "cb", "cr", "differences", "db", "dr"}) {
        const auto rgb = seen(view, "0");
        different.insert({rgb.begin(), rgb.end()});
    }
    EXPECT_EQ(different.size(), 10u);
    for (const char* view : {"picture", "rgb", "ycbcr", "gdbdr"}) {
        EXPECT_EQ(seen(view, "0"), screenRgb(before));
        EXPECT_NE(seen(view, "255"), screenRgb(before));
    }
    EXPECT_EQ(seen("base", "0"), seen("green", "0"));
    const auto blue = seen("blue", "0");
    for (std::size_t i = 0; i < blue.size(); ++i)
        ASSERT_EQ(blue[i], before.samples[i - i % 3 + 2]);
}

// The pipe ends when the last process that could write into it is gone.
TEST_F(CommandLine, ASignalEndsTheWorkAndLeavesNothing) {
    const std::string before = bytesOf(photo), out = folder / "out";
    std::filesystem::create_directory(out);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        for (const Arguments& rest :
             {Arguments{photo, photo, "-f"}, Arguments{photo, out + "/o.png"},
              Arguments{photo, folder / "demo/clean.png", "-j", "2", "--out-dir", out}}) {
            const Result result =
                run(denoise(rest),
                    {.environment = {"LD_LIBRARY_PATH=" KT7_STAND_IN}, .signal = number});
            EXPECT_EQ(result.code, -number) << result.err;
            EXPECT_EQ(result.err, "");
        }
    EXPECT_EQ(bytesOf(photo), before);
    EXPECT_TRUE(std::filesystem::is_empty(out));
}

TEST_F(CommandLine, TellsWhyTheLibraryFailed) {
    const struct {
        const char* result;
        const char* told;
    } cases[] = {{"-892", "memory"},
                 {"-1000", "memory"},
                 {"-884", "internal failure"},
                 {"0", "internal failure"}};
    for (const auto& [result, told] : cases) {
        const Result failed = run(denoise({photo, folder / "out.png"}),
                                  {.environment = {"LD_LIBRARY_PATH=" KT7_STAND_IN,
                                                   std::string("KT7_STAND_IN_RESULT=") + result}});
        EXPECT_EQ(failed.code, 1);
        EXPECT_EQ(failed.lines(), 1);
        EXPECT_NE(failed.err.find(told), std::string::npos) << failed.err;
        EXPECT_FALSE(std::filesystem::exists(folder / "out.png"));
    }
}

} // namespace
} // namespace kt7
