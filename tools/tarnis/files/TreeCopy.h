#pragma once

#include "Failure.h"
#include "files/Cancellation.h"
#include "files/CopyOptions.h"
#include "files/Place.h"
#include "files/ResumedCopy.h"
#include "terminal/ProgressBar.h"

#include <FileSystem/Failure.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace TarnisTool {

/// Copies files and trees from one place to another so that an interrupted copy can go on: one file
/// after the other.
///
/// Without isRecursive a link is followed to the file that it leads to; with it, links are copied
/// as links and nothing is reached through one, on either side. What fails is reported and does not
/// keep the rest from being copied. Each file takes its name when it is complete.
class TreeCopy
{
public:
    TreeCopy(Place& from, Place& to, CopyOptions options, const Cancellation& cancellation);

    /// Adds what stands at `source`. Throws Failure when it cannot be copied, also where another
    /// source goes to the same target: directories are merged, and files do not replace each other.
    void add(const std::string& source, const std::string& target);

    /// Copies what was added. Throws Failure when the connection is lost, and when it was
    /// cancelled.
    /// \return whether everything was copied.
    bool run();

private:
    using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;

    struct Job
    {
        std::string source;
        std::string target;
        /// The target of the directory that this one is in; empty for what was added itself.
        std::string parentTarget;
        FileSystem::StorageSystemFileInfo info;
    };

    /// A directory that is copied into.
    struct MadeDirectory
    {
        const Job* job;
        /// What it is to have in the end, if not what it has.
        std::optional<Permissions> permissions;
    };

    std::string followLink(const std::string& source);
    void addTree(const Job& root);
    void addJob(Job job);
    bool claim(const Job& job);
    void copy(const Job& job);
    void makeDirectory(const Job& job);
    void closeStanding(const Job& job, Permissions inTheEnd);
    MadeDirectory makeNew(const Job& job);
    void copyLink(const Job& job);
    void copyFile(const Job& job);
    void resumeFile(const Job& job);
    void noteWhatIsKept(const Job& job, const ResumedCopy& copy);
    bool mustBeNew(const Job& job) const;
    void copyWhole(const Job& job);
    bool noteProgress(std::uint64_t done);
    Failure failureOf(const Job& job, const FileSystem::Failure& why, const std::string& hint,
                      const std::string& said);
    ResumedCopy::PathUse useOf(const Job& job, const std::string& path) const;
    void noteLoss(const Job& job, const std::string& what);
    Utilities::Flags<FileSystem::StorageSystemCopyOptionFlag> copyFlags() const;
    void checkDirectories();
    void finishDirectories();
    void finish(const MadeDirectory& made);
    void note(const std::string& failure);
    void throwIfCancelled() const;

    Place& from_;
    Place& to_;
    CopyOptions options_;
    const Cancellation& cancellation_;
    std::vector<Job> jobs_;
    /// Where each file or link goes, and where it comes from.
    std::map<std::string, std::string> claims_;
    /// The targets in small letters, as many times as there are spellings.
    std::multiset<std::string> foldedClaims_;
    std::vector<MadeDirectory> madeDirectories_;
    std::set<std::string> newDirectories_;
    std::set<std::string> failedDirectories_;
    std::set<std::string> filledDirectories_;
    std::unique_ptr<ProgressBar> bar_;
    std::uint64_t totalBytes_ = 0;
    std::uint64_t doneBytes_ = 0;
    std::size_t doneFiles_ = 0;
    /// Said of the file that failed last, where it may be half-written under its own name.
    std::string halfWritten_;
    bool hasFailed_ = false;
};

} // namespace TarnisTool
