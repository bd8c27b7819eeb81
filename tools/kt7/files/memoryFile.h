// A file that lives in memory and still has a path, for libraries that only take paths.
#pragma once

#include <string>

namespace kt7::tool {

/// Anonymous file; gone with the object. Raises UserError when the system gives none.
class MemoryFile {
  public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// Valid in this process while the object lives. It has no extension.
    const std::string& path() const { return path_; }
    int descriptor() const { return descriptor_; }

    /// Takes in everything a descriptor still holds.
    void fillFrom(int descriptor);

    std::string contents() const;
    /// Raises UserError when memory runs out.
    void replaceContents(const std::string& bytes);

  private:
    int descriptor_;
    std::string path_;
};

/// Writes all of the memory file to a descriptor; false with errno set when not everything went.
bool copyAll(const MemoryFile& from, int to);

} // namespace kt7::tool
