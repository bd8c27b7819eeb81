// Atomic output and metadata blocks.
#include "tools/kt7/files/atomicOutput.h"
#include "tests/tools/scratchFolder.h"
#include "tools/kt7/errors.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>
#include <vector>

namespace kt7::tool {
namespace {

namespace fs = std::filesystem;

TEST(AtomicOutput, ReplacesWholeFilesAndKeepsTheirMode) {
    const ScratchFolder folder;
    constexpr std::uint8_t bytes[] = {'n', 'e', 'w'};
    publish(bytes, folder / "fresh");
    EXPECT_EQ(bytesOf(folder / "fresh"), "new");

    writeBytes(folder / "old", "something longer than before");
    fs::permissions(folder / "old", fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("old", folder / "link");
    publish(bytes, folder / "link");
    EXPECT_EQ(bytesOf(folder / "old"), "new");
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(fs::status(folder / "old").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(folder.count(), 3u);
}

TEST(AtomicOutput, AFailedWriteLeavesNothing) {
    const ScratchFolder folder;
    writeBytes(folder / "old", "old");
    const std::vector<std::uint8_t> bytes(300000, 'x');
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    // A size limit of the process fails in the middle of the file, as a full disk does.
    rlimit small = before;
    small.rlim_cur = 100000;
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_THROW(publish(bytes, folder / "old"), UserError);
    EXPECT_THROW(publish(bytes, folder / "fresh"), UserError);
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(bytesOf(folder / "old"), "old");
    EXPECT_EQ(folder.count(), 1u);
    EXPECT_THROW(publish(bytes, "/dev/full"), UserError);
    EXPECT_THROW(checkWritable(folder / "missing/out.png"), UserError);
    EXPECT_THROW(checkWritable(folder / ""), UserError);
}

} // namespace
} // namespace kt7::tool
