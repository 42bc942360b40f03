#pragma once

#include <FileSystem/FileSystem2.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace TarnisTool {

/// Copies one file so that it can go on after an interruption.
///
/// What is copied gathers in a hidden file of a fixed name beside the target, and takes the
/// target's name when it is complete. What an earlier attempt left there, or under the target's own
/// name, is compared byte for byte with the source before anything is put behind it; where it
/// differs, the copy begins anew. So it does where the server empties a file that is opened to be
/// written.
class ResumedCopy
{
public:
    /// Told how many bytes are in place; false stops the copy, which can go on later.
    using Progress = std::function<bool(std::uint64_t)>;

    ResumedCopy(const FileSystem::FileSystem2& from, const FileSystem::FileSystem2& to,
                Utilities::Flags<FileSystem::StorageSystemCopyOptionFlag> options,
                Progress progress);

    /// False: a failure, or it was stopped. What cannot be preserved is none.
    bool run(const std::string& source, const std::string& target);

    /// Whether there is something to go on from.
    bool hasPart() const;

    /// Where it is.
    const std::string& part() const noexcept { return part_; }

    /// What kept the copy from going on, where that is no failure of a system; empty otherwise.
    const std::string& problem() const noexcept { return problem_; }

    /// What could not be preserved, and why; empty for nothing.
    const std::string& lost() const noexcept { return lost_; }

private:
    using File = std::unique_ptr<FileSystem::StorageSystemFile>;
    using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;

    bool hasRegularFile(const std::string& path, std::uint64_t smallest,
                        std::uint64_t largest) const;
    std::optional<bool> isComplete();
    std::optional<std::uint64_t> findStart();
    std::optional<bool> beginsAlike(const std::string& path);
    bool lookAtTarget();
    bool fillAndCheck(std::uint64_t start);
    bool fill(std::uint64_t start);
    File openPart(std::uint64_t start);
    File createPart();
    void hide(const std::string& path, Permissions permissions);
    std::optional<bool> isWholeBefore(std::uint64_t start);
    bool append(FileSystem::StorageSystemFile& part, std::uint64_t start);
    Permissions permissionsOfPart() const;
    void setAttributes(const std::string& path);
    void note(const char* what);
    bool publish();

    const FileSystem::FileSystem2& from_;
    const FileSystem::FileSystem2& to_;
    Utilities::Flags<FileSystem::StorageSystemCopyOptionFlag> options_;
    Progress progress_;
    std::string source_;
    std::string target_;
    std::string part_;
    std::string problem_;
    std::string lost_;
    FileSystem::StorageSystemFileInfo info_;
    /// Of the file that stands at the target; empty for none.
    std::optional<Permissions> standing_;
};

} // namespace TarnisTool
