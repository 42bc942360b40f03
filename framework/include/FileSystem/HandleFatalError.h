#pragma once

#include <FileSystem/Export.h>

#include <stdexcept>

namespace FileSystem {

/// Thrown by an operation whose handle is no longer valid: the object it worked on was closed, or
/// the session above it was disconnected or destroyed. Nothing was done. The text is "invalid".
///
/// The object stays invalid for good; make a new one. Catchable as std::runtime_error.
class FILESYSTEM_EXPORT handle_fatal_error : public std::runtime_error
{
public:
    /// \param text null-terminated; copied.
    explicit handle_fatal_error(const char* text);
    handle_fatal_error(const handle_fatal_error&) = default;
    handle_fatal_error& operator=(const handle_fatal_error&) = default;
    ~handle_fatal_error() override;
};

} // namespace FileSystem
