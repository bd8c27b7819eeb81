#include "tools/kt7/files/inputBytes.h"

#include "tools/kt7/errors.h"
#include "tools/kt7/files/limits.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kt7::tool {
namespace {

[[noreturn]] void refuse(const std::string& path, int error) {
    throw UserError(about(path, "cannot read: " + std::generic_category().message(error)));
}

class Input {
  public:
    explicit Input(const std::string& path)
        : owned_(path != "-"),
          descriptor_(owned_ ? open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY) : STDIN_FILENO) {
        if (descriptor_ < 0 && errno == ENOENT && path.find("://") != std::string::npos)
            throw UserError(about(path, "is an address; only files and pipes are read"));
        if (descriptor_ < 0)
            refuse(path, errno);
    }
    ~Input() {
        if (owned_)
            close(descriptor_);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    int descriptor() const { return descriptor_; }

  private:
    bool owned_;
    int descriptor_;
};

/// Before anything is opened: opening a device may do something.
void checkKind(const std::string& path) {
    struct stat status {};
    if (path == "-" ? fstat(STDIN_FILENO, &status) != 0 : stat(path.c_str(), &status) != 0)
        return; // opening it says why
    if (S_ISDIR(status.st_mode))
        throw UserError(about(path, "is a directory"));
    // Standard input may also be one end of a pair of sockets.
    if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode) && !S_ISSOCK(status.st_mode))
        throw UserError(about(path, "is neither a file nor a pipe"));
}

} // namespace

Bytes readInput(const std::string& path) {
    checkKind(path);
    const Input input(path);
    struct stat status {};
    // One byte more than the size meets the end without another round.
    std::size_t room = std::size_t{1} << 20;
    if (fstat(input.descriptor(), &status) == 0 && S_ISREG(status.st_mode))
        room = static_cast<std::size_t>(status.st_size) + 1;
    const std::uint64_t most = availableMemory() / 2;
    Bytes bytes;
    for (std::size_t filled = 0;;) {
        if (filled == bytes.size()) {
            if (room > most)
                throw UserError(about(path, "is too large for this machine's memory"));
            bytes.resize(room);
            room *= 2;
        }
        const ssize_t n = read(input.descriptor(), bytes.data() + filled, bytes.size() - filled);
        if (n < 0 && errno != EINTR)
            refuse(path, errno);
        if (n == 0) {
            bytes.resize(filled);
            return bytes;
        }
        filled += n > 0 ? static_cast<std::size_t>(n) : 0;
    }
}

} // namespace kt7::tool
