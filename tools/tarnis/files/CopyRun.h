#pragma once

#include "Failure.h"
#include "files/Cancellation.h"
#include "files/Endpoint.h"
#include "files/Patterns.h"
#include "terminal/ProgressBar.h"

#include <FileSystem/TreeOperations.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace TarnisTool {

/// How files are copied.
struct CopyOptions
{
    /// Directories are copied too, with everything below them.
    bool isRecursive = false;
    /// Permissions and times are kept.
    bool preserves = false;
    /// A copy that was interrupted goes on.
    bool resumes = false;
    /// What is written goes into the file that is there.
    bool isInPlace = false;
    /// Files that look the same at the target are left out, and times are kept to tell by.
    bool updates = false;
    /// Files that are there are left out.
    bool keepsStanding = false;
    /// What the source does not have is removed from directories that are copied into.
    bool removesOthers = false;
    /// Nothing is done, only told.
    bool isDryRun = false;
    /// Each entry is told.
    bool isVerbose = false;
    /// Files at the same time; 0 for as many as pay.
    std::size_t inFlight = 0;
    /// What is copied of that which is below a directory.
    EntryFilter filter;
};

/// Copies files and trees from one endpoint to another, many at a time, and tells the user of it.
///
/// Without CopyOptions::isRecursive a link is followed to the file that it leads to; with it, links
/// are copied as links and nothing is reached through one, on either side. What fails is reported
/// and does not keep the rest from being copied. Each file takes its name when it is complete.
class CopyRun : public FileSystem::TreeObserver
{
public:
    using Paths = std::vector<FileSystem::TreeCopyPath>;

    /// \param options must outlive this object.
    /// \param remote the server that one of the endpoints, or both, are on.
    CopyRun(RemoteEndpoint& remote, Endpoint& from, Endpoint& to, const CopyOptions& options,
            const Cancellation& cancellation);

    /// Throws Failure when the connection is lost, and when it was cancelled.
    /// \return whether everything was copied.
    bool run(const Paths& paths);

    bool wants(const FileSystem::TreeEntry& entry) override;
    void done(const FileSystem::TreeEntry& entry) override;
    void skipped(const FileSystem::TreeEntry& entry) override;
    void kept(const FileSystem::TreeEntry& entry, const std::string& path,
              FileSystem::TreePart part) override;
    bool removes(const FileSystem::TreeEntry& entry) override;
    void removed(const FileSystem::TreeEntry& entry) override;
    bool failed(const FileSystem::TreeEntry& entry, const FileSystem::Failure& why) override;
    bool progress(const FileSystem::TreeProgress& progress) override;

private:
    Paths followed(const Paths& paths);
    std::string fileAt(const std::string& path, const FileSystem::Failure& why,
                       const FileSystem::StorageSystemFileInfo& info);
    FileSystem::TreeCopyOptions engineOptions() const;
    Failure failureOf(const FileSystem::TreeEntry& entry, const FileSystem::Failure& why);
    Failure directoryFailure(const FileSystem::TreeEntry& entry, const FileSystem::Failure& why);
    void leaveOut(const FileSystem::TreeEntry& entry);
    void tell(const char* what, const std::string& path);
    void sumUp(const FileSystem::TreeReport& report);
    void note(const std::string& failure);
    void noteTaken(const std::string& target, const std::string& part);
    void noteSettled(const std::string& target);
    void sayLast();
    void throwIfCancelled(const FileSystem::TreeReport& report);
    std::string whatIsHalfWritten() const;

    RemoteEndpoint& remote_;
    Endpoint& from_;
    Endpoint& to_;
    const CopyOptions& options_;
    const Cancellation& cancellation_;
    ProgressBar bar_;
    std::uint64_t leftFiles_ = 0; ///< Those that were left out or have failed.
    std::uint64_t leftBytes_ = 0; ///< Of them.
    /// The targets of files that are written in place and are not complete.
    std::set<std::string> unfinished_;
    /// Those that stood there before a part of the rest was added.
    std::set<std::string> returned_;
    /// Where that is which stood at a target, while it has another name.
    std::map<std::string, std::string> taken_;
    std::optional<LastWords> lastWords_;
    std::string losses_;                      ///< Of the entry that is about to be done.
    std::optional<FileSystem::Failure> lost_; ///< How the connection was lost.
    std::uint64_t failed_ = 0;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace TarnisTool
