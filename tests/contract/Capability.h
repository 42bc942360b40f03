#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace TarnisTest {

/// One point in which storage systems may differ: whether this one does as most do, and if not,
/// why.
class Capability
{
public:
    Capability() = default;

    /// This storage system does not, for a reason that a person can check.
    static Capability lacking(std::string reason) { return Capability(std::move(reason)); }

    bool isPresent() const { return reason_.empty(); }

    /// Empty when present.
    const std::string& reason() const { return reason_; }

private:
    explicit Capability(std::string reason)
        : reason_(std::move(reason))
    {}

    std::string reason_;
};

/// What a storage system can do. Everything is present unless a backend says why it is not.
struct Capabilities
{
    /// Makes, reads and describes symbolic links.
    Capability makesSymbolicLinks;
    /// Keeps and tells what a symbolic link says as it is. Lacking: tells of a relative target as
    /// an absolute one, so that a link to it cannot be made.
    Capability tellsRelativeTargets;
    /// Renames a symbolic link whose target is there. Lacking: refuses to, and to copy one as well,
    /// since what is copied gets its name in the end.
    Capability renamesLinks;
    /// Renaming onto something that stands already fails. Lacking: it is replaced.
    Capability refusesToRenameOntoExisting;
    /// Replaces a file by another in one atomic step. Lacking: there is a moment without either.
    Capability replacesInOneStep;
    /// Tells the room on a volume.
    Capability tellsVolumeFigures;
    /// Keeps modification times to 100 ns. Lacking: to the second.
    Capability keepsSubSecondTimes;
    /// Keeps modification times before 1970.
    Capability keepsTimesBefore1970;
    /// Keeps modification times that 32 bits of seconds cannot hold.
    Capability keepsTimesAfter2106;
    /// Keeps access times, which the interface does not tell.
    Capability keepsAccessTimes;
    /// Setting the modification time of a symbolic link sets the link's own. Lacking: its target's.
    Capability setsTimesOfLinks;
    /// fileSymbolicLinkRemove() leaves alone what is no link. Lacking: it removes any file.
    Capability refusesToRemoveFilesAsLinks;
    /// Opening a directory as a file fails. Lacking: it opens, and reading fails.
    Capability refusesToOpenDirectories;
    /// Opening a pipe fails at once. Lacking: it may wait for the pipe's other end.
    Capability refusesToOpenPipes;
    /// Of several that create the same file exclusively at once, one succeeds.
    Capability createsExclusively;
    /// Names are any bytes but "/" and NUL. Lacking: they are text.
    Capability takesAnyBytesInNames;
    /// Takes permissions that allow nothing at all. Lacking: ignores them.
    Capability takesNoPermissions;
    /// Files may have bits beyond the nine that the interface tells.
    Capability keepsSetIdBits;
    /// Takes its umask off the permissions that a new file is asked for with. Lacking: gives them
    /// as they are.
    Capability takesUmaskOffNewFiles;
    /// Refuses what the permissions forbid.
    Capability enforcesPermissions;
    /// Whatever the position, Append writes at the end.
    Capability appendsWhereverThePositionIs;
    /// A position beyond what the system can have is refused. Lacking: it is taken.
    Capability refusesImpossiblePositions;
    /// A file opened for reading refuses to be written, one for writing to be read.
    Capability enforcesTheOpenMode;
    /// An open file is read to where it ends by now. Lacking: to where it ended when it was opened.
    Capability readsWhatHasBeenAdded;
};

/// To be called first in a test: answers whether it can go on. If not, the test has been marked as
/// skipped and must return at once.
[[nodiscard]] inline bool require(const Capability& capability)
{
    const auto skip = [&] { GTEST_SKIP() << capability.reason(); };
    if (!capability.isPresent()) {
        skip();
    }
    return capability.isPresent();
}

} // namespace TarnisTest
