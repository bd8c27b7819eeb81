#include "tools/kt7/files/atomicOutput.h"

#include "tools/kt7/errors.h"
#include "tools/kt7/signals.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace kt7::tool {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& path, int error) {
    throw UserError(about(path, std::string("cannot write: ") + std::strerror(error)));
}

bool writeAll(std::span<const std::uint8_t> bytes, int descriptor) {
    constexpr std::size_t most = std::size_t{1} << 20; // a signal is answered in between
    while (!bytes.empty()) {
        const ssize_t n = write(descriptor, bytes.data(), std::min(bytes.size(), most));
        throwIfCancelled();
        if (n < 0 && errno != EINTR)
            return false;
        bytes = bytes.subspan(n > 0 ? static_cast<std::size_t>(n) : 0);
    }
    return true;
}

/// Where the bytes really go: the end of a chain of links.
fs::path finalPath(const std::string& path) {
    std::error_code ignored;
    fs::path target = path;
    for (int links = 0; links < 40 && fs::is_symlink(target, ignored); ++links) {
        const fs::path next = fs::read_symlink(target, ignored);
        target = next.is_absolute() ? next : target.parent_path() / next;
    }
    return target;
}

fs::path directoryOf(const fs::path& target) {
    return target.has_parent_path() ? target.parent_path() : fs::path(".");
}

bool isDirectSink(const fs::path& target) {
    std::error_code ignored;
    const fs::file_status status = fs::status(target, ignored);
    return fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status);
}

mode_t modeFor(const fs::path& target) {
    struct stat old = {};
    if (stat(target.c_str(), &old) == 0)
        return old.st_mode & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

/// The temporary file: removed unless it was renamed.
class TemporaryFile {
  public:
    explicit TemporaryFile(const fs::path& target)
        : name_((directoryOf(target) / ".kt7-XXXXXX").string()) {
        // No signal may come between the making of the file and the handler's knowing of it.
        sigset_t all, before;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before);
        descriptor_ = mkostemp(name_.data(), O_CLOEXEC);
        named_ = descriptor_ >= 0;
        if (named_)
            setDoomedFile(name_.c_str());
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    ~TemporaryFile() {
        if (descriptor_ >= 0)
            close(descriptor_);
        if (named_)
            unlink(name_.c_str());
        setDoomedFile(nullptr);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int descriptor() const { return descriptor_; }

    bool finish(const fs::path& target, mode_t mode) {
        // A file system may report a full disk no earlier than here.
        if (fchmod(descriptor_, mode) != 0 || fsync(descriptor_) != 0)
            return false;
        const int closing = descriptor_;
        descriptor_ = -1;
        if (close(closing) != 0)
            return false;
        throwIfCancelled();
        if (std::rename(name_.c_str(), target.c_str()) != 0)
            return false;
        named_ = false;
        return true;
    }

  private:
    std::string name_;
    int descriptor_ = -1;
    bool named_ = false;
};

void writeDirectly(std::span<const std::uint8_t> bytes, const std::string& path, int descriptor) {
    if (!writeAll(bytes, descriptor))
        fail(path, errno);
}

} // namespace

void checkWritable(const std::string& path) {
    if (path == "-") {
        if (isatty(STDOUT_FILENO))
            throw UserError("will not write a picture to a terminal; redirect it or name a file");
        return;
    }
    const fs::path target = finalPath(path);
    std::error_code ignored;
    if (fs::is_directory(target, ignored))
        throw UserError(about(path, "is a directory; name a file, or use --out-dir"));
    if (isDirectSink(target))
        return;
    const fs::path directory = directoryOf(target);
    if (!fs::is_directory(directory, ignored))
        throw UserError(about(path, "there is no directory " + directory.string()));
    if (access(directory.c_str(), W_OK | X_OK) != 0)
        fail(path, errno);
}

void publish(std::span<const std::uint8_t> bytes, const std::string& path) {
    if (path == "-")
        return writeDirectly(bytes, path, STDOUT_FILENO);
    const fs::path target = finalPath(path);
    if (isDirectSink(target)) {
        const int descriptor = open(target.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor < 0)
            fail(path, errno);
        const bool written = writeAll(bytes, descriptor);
        const int error = errno;
        if ((close(descriptor) != 0 && written) || !written)
            fail(path, written ? errno : error);
        return;
    }
    TemporaryFile file(target);
    if (file.descriptor() < 0 || !writeAll(bytes, file.descriptor()) ||
        !file.finish(target, modeFor(target)))
        fail(path, errno);
}

} // namespace kt7::tool
