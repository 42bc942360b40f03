#pragma once

#include <FileSystem/Failure.h>
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
/// differs, the copy begins anew, in a new file. So it does where the server empties a file that is
/// opened to be written. On this machine it never goes on from somebody else's file.
///
/// A target that is the beginning of the source is copied into the part, where that is on this
/// machine. On a server that would be to begin anew: it is renamed, and back when the copy fails,
/// unless the server has lost what it held.
class ResumedCopy
{
public:
    /// Told how many bytes are in place; false stops the copy, which can go on later.
    using Progress = std::function<bool(std::uint64_t)>;

    /// Told the path that the target is about to be renamed to.
    using Renaming = std::function<void(const std::string& part)>;

    /// Where that is which stood at the target.
    enum class StandingAt
    {
        Target, ///< It has not been renamed, or what was copied has replaced it.
        Part,
        TargetAgain,
        Nowhere, ///< The server has emptied it; the part has what was copied since.
    };

    ResumedCopy(const FileSystem::FileSystem2& from, const FileSystem::FileSystem2& to,
                Utilities::Flags<FileSystem::StorageSystemCopyOptionFlag> options,
                Progress progress, Renaming renaming);

    /// What a path beside the target is to others.
    enum class PathUse
    {
        None,
        Doubtful, ///< What stands there may be a part all the same: where it begins as the source.
        Taken,
    };

    using UseOfPath = std::function<PathUse(const std::string& path)>;

    /// False: a failure, or it was stopped. What cannot be preserved is none.
    bool run(const std::string& source, const std::string& target, const UseOfPath& useOfPath);

    /// Why it was false.
    const FileSystem::Failure& failure() const noexcept { return failure_; }

    /// Where something is to go on from; empty for nothing.
    std::string keptAt() const;

    StandingAt standingAt() const noexcept { return standingAt_; }

    /// What kept the copy from going on, where that is no failure of a system; empty otherwise.
    const std::string& problem() const noexcept { return problem_; }

    /// What it has not done though the file is complete, as lossOf(); empty for nothing.
    const std::string& lost() const noexcept { return lost_; }

private:
    using File = std::unique_ptr<FileSystem::StorageSystemFile>;
    using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;

    /// What the part was before it was written to.
    struct Beginning
    {
        std::uint64_t size = 0;
        std::string ends; ///< Its first bytes and its last ones.
    };

    bool attempt(const UseOfPath& useOfPath);
    std::optional<bool> hasUntoldContents() const;
    bool copyWhole();
    bool choosePart(const UseOfPath& useOfPath);
    bool isOfSomebodyElse() const;
    bool isToLocal() const;
    bool startPart();
    void giveBack();
    std::optional<bool> hasBeginning();
    Permissions permissionsOfTargetAgain(std::uint64_t size) const;
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
    bool hide(Permissions permissions);
    bool append(FileSystem::StorageSystemFile& part, std::uint64_t start);
    Permissions permissionsOfPart() const;
    Permissions permissionsOfReplaced() const;
    void setAttributes(const std::string& path);
    void note(const char* what);
    bool publish();

    const FileSystem::FileSystem2& from_;
    const FileSystem::FileSystem2& to_;
    Utilities::Flags<FileSystem::StorageSystemCopyOptionFlag> options_;
    Progress progress_;
    Renaming renaming_;
    std::string source_;
    std::string target_;
    std::string part_;
    std::string problem_;
    std::string lost_;
    FileSystem::Failure failure_;
    StandingAt standingAt_ = StandingAt::Target;
    bool isPartNew_ = false;
    bool isUnusable_ = false; ///< The part, for it is open to others or theirs.
    std::optional<Beginning> beginning_;
    FileSystem::StorageSystemFileInfo info_;
    /// Of the file that stands at the target; empty for none.
    std::optional<Permissions> standing_;
};

} // namespace TarnisTool
