// Atomic output and metadata blocks.
#include "tests/tools/scratchFolder.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/atomicOutput.h"
#include "tools/kt7/files/memoryFile.h"
#include "tools/kt7/files/metadataBlocks.h"
#include "tools/kt7/json.h"

#include <gtest/gtest.h>

#include <csignal>
#include <limits>
#include <sys/resource.h>

namespace kt7::tool {
namespace {

namespace fs = std::filesystem;

TEST(AtomicOutput, ReplacesWholeFilesAndKeepsTheirMode) {
    const ScratchFolder folder;
    MemoryFile bytes;
    bytes.replaceContents("new");
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
    MemoryFile bytes;
    bytes.replaceContents(std::string(300000, 'x'));
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

const std::string jpegFile{"\xFF\xD8"
                           "\xFF\xE0\x00\x04JF"
                           "\xFF\xE1\x00\x0C"
                           "Exif\0\0MAKE"
                           "\xFF\xFE\x00\x05"
                           "old"
                           "\xFF\xDB\x00\x03Q"
                           "\xFF\xDA\x00\x02pixels\xFF\xD9",
                           2 + 6 + 14 + 7 + 5 + 4 + 8};
const std::string pngFile{"\x89PNG\r\n\x1A\n"
                          "\0\0\0\x01IHDRh1234"
                          "\0\0\0\x02pHYsab1234"
                          "\0\0\0\x01IDATi1234"
                          "\0\0\0\0IEND1234",
                          8 + 13 + 14 + 13 + 12};

TEST(MetadataBlocks, MoveBetweenContainersAndStayReadable) {
    const MetadataBlocks jpeg = metadataOf(jpegFile);
    EXPECT_EQ(jpeg.exif, "MAKE");
    EXPECT_EQ(jpeg.blocks.size(), 2u);
    EXPECT_EQ(withMetadata(jpegFile, jpeg), jpegFile);
    EXPECT_EQ(withMetadata(pngFile, metadataOf(pngFile)), pngFile);

    const std::string png = withMetadata(pngFile, jpeg);
    EXPECT_EQ(metadataOf(png).exif, "MAKE");
    EXPECT_EQ(metadataOf(png).blocks.size(), 2u);
    EXPECT_TRUE(png.ends_with(pngFile.substr(8 + 13)));
    // The chunk's checksum, from zlib.
    EXPECT_NE(png.find("eXIfMAKE\xDE\x2B\x4B\xE9"), std::string::npos);
    EXPECT_EQ(metadataOf(withMetadata(jpegFile, metadataOf(png))).exif, "MAKE");

    MetadataBlocks large{"png", std::string(70000, 'x'), {}};
    EXPECT_EQ(withMetadata(jpegFile, large), jpegFile);
}

TEST(MetadataBlocks, FollowNoLengthOutOfTheFile) {
    for (const std::string& file : {jpegFile, pngFile})
        for (std::size_t at = 0; at < file.size(); ++at) {
            // Exact-size copies, so that the address sanitizer sees a step too far.
            const std::string cut(file, 0, at);
            EXPECT_TRUE(withMetadata(cut, metadataOf(cut)).starts_with(cut.substr(0, 3)));
            std::string bent = file;
            bent[at] = '\xFF';
            EXPECT_LE(metadataOf(bent).blocks.size(), 4u);
            withMetadata(bent, metadataOf(jpegFile));
        }
}

TEST(Json, EscapesNamesAndKeepsNumbers) {
    EXPECT_EQ(JsonObject()
                  .add("a\"\\", "tab\t \xC3\xA9 \xFF")
                  .add("n", 0.25)
                  .add("inf", std::numeric_limits<double>::infinity())
                  .add("o", JsonObject().add("b", true).add("i", std::int64_t{-3}))
                  .text(),
              "{\"a\\\"\\\\\": \"tab\\u0009 \xC3\xA9 \\ufffd\", \"n\": 0.25, \"inf\": null, "
              "\"o\": {\"b\": true, \"i\": -3}}");
}

} // namespace
} // namespace kt7::tool
