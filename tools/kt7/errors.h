// What ends a command early.
#pragma once

#include <new>
#include <stdexcept>
#include <string>

namespace kt7::tool {

/// A failure the user can do something about; what() is the one line that is shown.
class UserError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Arguments that make no sense; shown with how the command is used.
class UsageError : public UserError {
  public:
    using UserError::UserError;
};

/// "path: text", with "-" spelled out.
inline std::string about(const std::string& path, const std::string& text) {
    return (path == "-" ? std::string("standard input or output") : path) + ": " + text;
}

/// What is said about a failure while working on one file.
inline std::string describe(const std::string& path, const std::exception& failure) {
    return dynamic_cast<const std::bad_alloc*>(&failure) != nullptr
               ? about(path, "not enough memory")
               : failure.what();
}

} // namespace kt7::tool
