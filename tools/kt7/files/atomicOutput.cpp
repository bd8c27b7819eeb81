#include "tools/kt7/files/atomicOutput.h"

#include "tools/kt7/errors.h"
#include "tools/kt7/signals.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <random>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace kt7::tool {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& path, int error) {
    throw UserError(about(path, std::string("cannot write: ") + std::strerror(error)));
}

[[noreturn]] void failTaken(const std::string& path) {
    throw UserError(about(path, "is there already; --force replaces it"));
}

/// Closes what it opened, not what it was lent.
class Descriptor {
  public:
    Descriptor(int number, bool owned) : number_(number), owned_(owned) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return number_; }
    bool close() {
        const bool closing = owned_ && number_ >= 0;
        owned_ = false;
        return !closing || ::close(number_) == 0;
    }

  private:
    int number_;
    bool owned_;
};

bool writeAll(std::span<const std::uint8_t> bytes, int descriptor) {
    while (!bytes.empty()) {
        const ssize_t n = write(descriptor, bytes.data(), bytes.size());
        if (n < 0 && errno != EINTR)
            return false;
        bytes = bytes.subspan(n > 0 ? static_cast<std::size_t>(n) : 0);
    }
    return true;
}

/// Where bytes for a path go.
struct Target {
    enum class Kind { descriptor, stream, file };
    Kind kind = Kind::file;
    int descriptor = -1;     ///< for Kind::descriptor
    fs::path path;           ///< for the others, at the end of all links
    bool exists = false;     ///< of a file
    struct stat status = {}; ///< of what exists
};

/// Number of one of our own open descriptors that the path stands for, as /dev/stdout does.
std::optional<int> descriptorOf(const fs::path& path) {
    std::error_code ignored;
    const fs::path directory = fs::canonical(path.parent_path(), ignored);
    if (directory != "/proc/" + std::to_string(getpid()) + "/fd")
        return {};
    const std::string name = path.filename().string();
    int number = -1;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error != std::errc() || end != name.data() + name.size())
        return {};
    return number;
}

Target targetOf(const std::string& path) {
    Target target;
    target.path = path;
    if (path == "-") {
        target.kind = Target::Kind::descriptor;
        target.descriptor = STDOUT_FILENO;
        return target;
    }
    constexpr int mostLinks = 40; // as many as the system follows
    std::error_code ignored;
    for (int links = 0;; ++links) {
        if (const auto number = descriptorOf(target.path)) {
            target.kind = Target::Kind::descriptor;
            target.descriptor = *number;
            return target;
        }
        if (!fs::is_symlink(target.path, ignored))
            break;
        if (links == mostLinks)
            fail(path, ELOOP);
        const fs::path next = fs::read_symlink(target.path, ignored);
        target.path = next.is_absolute() ? next : target.path.parent_path() / next;
    }
    target.exists = stat(target.path.c_str(), &target.status) == 0;
    if (!target.exists && errno != ENOENT)
        fail(path, errno);
    if (target.exists && (S_ISFIFO(target.status.st_mode) || S_ISCHR(target.status.st_mode)))
        target.kind = Target::Kind::stream;
    return target;
}

fs::path directoryOf(const fs::path& file) {
    return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

mode_t modeOfNewFiles() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

/// Everything about the replaced file that a program looks at before it opens a file. What the
/// process may not set is left, without a word: the picture matters more.
bool takeOver(int descriptor, const Target& old) {
    mode_t mode =
        old.status.st_mode & 0777; // who may write the file chose its bytes, not its owner
    if (fchown(descriptor, old.status.st_uid, old.status.st_gid) != 0 &&
        fchown(descriptor, static_cast<uid_t>(-1), old.status.st_gid) != 0)
        mode = (mode & ~mode_t{070}) | ((mode & 07) << 3); // another group: as all others
    std::vector<char> names(65536), value(65536);
    const ssize_t length = listxattr(old.path.c_str(), names.data(), names.size());
    for (ssize_t at = 0; at < length;) {
        const std::string_view name = names.data() + at;
        at += static_cast<ssize_t>(name.size()) + 1;
        const ssize_t bytes = getxattr(old.path.c_str(), name.data(), value.data(), value.size());
        if (bytes >= 0 && name != "security.capability")
            (void)fsetxattr(descriptor, name.data(), value.data(), static_cast<std::size_t>(bytes),
                            0);
    }
    return fchmod(descriptor, mode) == 0;
}

/// Removed unless it was given its place.
class TemporaryFile {
  public:
    explicit TemporaryFile(const fs::path& target) {
        std::random_device random;
        do {
            char name[32];
            std::snprintf(name, sizeof name, ".kt7-%08x%08x", random(), random());
            name_ = (directoryOf(target) / name).string();
            const DoomedFileMaking quick(name_.c_str());
            number_ = open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        } while (number_ < 0 && errno == EEXIST);
        named_ = number_ >= 0;
    }
    ~TemporaryFile() {
        const int error = errno;
        if (number_ >= 0)
            close(number_);
        if (named_)
            unlink(name_.c_str());
        forgetDoomedFile();
        errno = error;
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int descriptor() const { return number_; }

    /// Gives the file its place; false with errno otherwise, EEXIST when the place is taken.
    bool finish(const fs::path& target, Existing existing) {
        // A file system may report a full disk no earlier than here.
        if (fsync(number_) != 0)
            return false;
        const int closing = number_;
        number_ = -1;
        if (close(closing) != 0)
            return false;
        if (existing == Existing::replace) {
            named_ = std::rename(name_.c_str(), target.c_str()) != 0;
            return !named_;
        }
        named_ =
            renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) != 0;
        if (!named_ || errno == EEXIST)
            return !named_;
        return link(name_.c_str(), target.c_str()) == 0; // file systems that can't rename so
    }

  private:
    std::string name_;
    int number_ = -1;
    bool named_ = false;
};

void checkStream(const std::string& path, int descriptor) {
    struct stat status = {};
    if (fstat(descriptor, &status) != 0)
        fail(path, errno);
    if (isatty(descriptor))
        throw UserError("will not write a picture to a terminal; redirect it or name a file");
}

} // namespace

bool isTaken(const std::string& path) {
    const Target target = targetOf(path);
    return target.kind == Target::Kind::file && target.exists;
}

void checkWritable(const std::string& path, Existing existing) {
    const Target target = targetOf(path);
    if (target.kind == Target::Kind::descriptor)
        return checkStream(path, target.descriptor);
    if (target.kind == Target::Kind::stream)
        return;
    if (target.exists && S_ISDIR(target.status.st_mode))
        throw UserError(about(path, "is a directory; name a file, or use --out-dir"));
    if (target.exists && !S_ISREG(target.status.st_mode))
        throw UserError(about(path, "is neither a file nor a pipe"));
    if (target.exists && existing == Existing::refuse)
        failTaken(path);
    std::error_code ignored;
    const fs::path directory = directoryOf(target.path);
    if (!fs::is_directory(directory, ignored))
        throw UserError(about(path, "there is no directory " + directory.string()));
    if (access(directory.c_str(), W_OK | X_OK) != 0)
        fail(path, errno);
}

void publish(std::span<const std::uint8_t> bytes, const std::string& path, Existing existing) {
    const Target target = targetOf(path);
    if (target.kind != Target::Kind::file) {
        const bool owned = target.kind == Target::Kind::stream;
        Descriptor sink(owned ? open(target.path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY)
                              : target.descriptor,
                        owned);
        if (sink.number() < 0 || !writeAll(bytes, sink.number()) || !sink.close())
            fail(path, errno);
        return;
    }
    checkWritable(path, existing);
    TemporaryFile file(target.path);
    const auto isReady = [&] {
        return target.exists ? takeOver(file.descriptor(), target)
                             : fchmod(file.descriptor(), modeOfNewFiles()) == 0;
    };
    if (file.descriptor() < 0 || !writeAll(bytes, file.descriptor()) || !isReady() ||
        !file.finish(target.path, existing)) {
        if (errno == EEXIST)
            failTaken(path);
        fail(path, errno);
    }
}

} // namespace kt7::tool
