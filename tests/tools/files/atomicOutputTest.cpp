// Atomic output and metadata blocks.
#include "tools/kt7/files/atomicOutput.h"
#include "tests/tools/scratchFolder.h"
#include "tools/kt7/errors.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/xattr.h>
#include <vector>

namespace kt7::tool {
namespace {

namespace fs = std::filesystem;

TEST(AtomicOutput, ReplacesWholeFilesAndKeepsTheirMode) {
    const ScratchFolder folder;
    constexpr std::uint8_t bytes[] = {'n', 'e', 'w'};
    publish(bytes, folder / "fresh", Existing::refuse);
    EXPECT_EQ(bytesOf(folder / "fresh"), "new");

    writeBytes(folder / "old", "something longer than before");
    fs::permissions(folder / "old", fs::perms::owner_read | fs::perms::owner_write);
    // Not every file system has them.
    const bool attributes =
        setxattr((folder / "old").c_str(), "user.rating", "5", 1, XATTR_CREATE) == 0;
    fs::create_symlink("old", folder / "link");
    EXPECT_THROW(publish(bytes, folder / "link", Existing::refuse), UserError);
    EXPECT_EQ(bytesOf(folder / "old"), "something longer than before");
    publish(bytes, folder / "link", Existing::replace);
    EXPECT_EQ(bytesOf(folder / "old"), "new");
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(fs::status(folder / "old").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    char rating = 0;
    EXPECT_TRUE(
        !attributes ||
        (getxattr((folder / "old").c_str(), "user.rating", &rating, 1) == 1 && rating == '5'));
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
    EXPECT_THROW(publish(bytes, folder / "old", Existing::replace), UserError);
    EXPECT_THROW(publish(bytes, folder / "fresh", Existing::refuse), UserError);
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(bytesOf(folder / "old"), "old");
    EXPECT_EQ(folder.count(), 1u);
    EXPECT_THROW(publish(bytes, "/dev/full", Existing::refuse), UserError);
    EXPECT_THROW(checkWritable(folder / "missing/out.png", Existing::refuse), UserError);
    EXPECT_THROW(checkWritable(folder / "", Existing::replace), UserError);
}

} // namespace
} // namespace kt7::tool
