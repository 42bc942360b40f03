#pragma once

#include "files/StreamTarget.h"

#include <FileSystem/FileSystem2.h>

#include <string>
#include <vector>

namespace TarnisTool {

/// A file system that a command works on, together with the way in which it explains failures to
/// the user. The operations here throw Failure with the path, the host and the reason.
class Place
{
public:
    Place() = default;
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    virtual ~Place() = default;

    virtual const FileSystem::FileSystem2& system() const = 0;

    /// The path as messages name it.
    virtual std::string display(const std::string& path) const = 0;

    /// To be called before an operation whose failure is to be explained: what failed earlier is no
    /// reason.
    virtual void forgetFailures() {}

    /// What is known of why the last operation failed; empty for nothing.
    virtual std::string lastReason() { return {}; }

    /// What a path leads to, as far as a copy of one file must know that is to go there.
    virtual TargetKind kindOf(const std::string& path) const;

    /// Throws a Failure when the place is gone altogether, as after a lost connection.
    virtual void requireAlive() {}

    /// Whether it is not.
    virtual bool isAlive() { return true; }

    /// Why what stands at the path cannot be read, or written to; found out by looking. Empty where
    /// nothing speaks against it.
    virtual std::string readingProblem(const std::string& path);
    virtual std::string writingProblem(const std::string& path);

    /// What stands at the path, a link itself included.
    FileSystem::StorageSystemFileInfo find(const std::string& path);

    /// The entries of a directory, in ascending order of the bytes of their names.
    std::vector<FileSystem::StorageSystemFileInfo> list(const std::string& directory);

    /// Throws a Failure "cannot <what> <path>: <reason>".
    /// \param hint what the command knows itself; stands before the system's own words.
    [[noreturn]] void fail(const std::string& what, const std::string& path,
                           const std::string& hint = {});
};

/// The first text, with the second in parentheses where both have something to say.
std::string joinReasons(const std::string& first, const std::string& second);

} // namespace TarnisTool
