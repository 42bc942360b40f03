#include "Commands.h"
#include "Failure.h"
#include "files/Cancellation.h"
#include "files/Destination.h"
#include "files/FileCommand.h"
#include "files/Paths.h"
#include "terminal/Messages.h"
#include "terminal/ProgressBar.h"

#include <FileSystem/TreeOperations.h>

#include <CLI/CLI.hpp>

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TarnisTool {

namespace {

using FileSystem::TreeEntry;
using FileSystem::TreeMoveOutcome;
using FileType = Utilities::Flags<FileSystem::StorageSystemFileTypeFlag>;

/// Moves one file, link or tree, and says what became of it.
class Move : public FileSystem::TreeObserver
{
public:
    Move(RemoteEndpoint& endpoint, const Cancellation& cancellation, std::string source,
         std::string target)
        : endpoint_(endpoint)
        , cancellation_(cancellation)
        , source_(std::move(source))
        , target_(std::move(target))
    {}

    /// Throws Failure for one that did not come out well.
    void check(const FileSystem::TreeMoveReport& report)
    {
        if (report.isComplete()) {
            return;
        }
        if (bar_) {
            bar_->clear();
        }
        if (!isBegun_) {
            throw Failure(FailureKind::Cancelled, "interrupted before the move of",
                          endpoint_.display(source_), "what was named before it is done");
        }
        if (report.outcome == TreeMoveOutcome::NotRemoved) {
            failToRemove(report);
        }
        fail(report);
    }

private:
    void done(const TreeEntry& entry) override
    {
        if (entry.below.empty()) {
            isCopied_ = true;
            isTree_ = isDirectory(entry.attributes.type.value_or(FileType()));
        }
    }

    bool failed(const TreeEntry& entry, const FileSystem::Failure& why) override
    {
        if (reason_.empty()) {
            reason_ = reasonOf(why);
            failed_ = entry;
        }
        return true;
    }

    bool progress(const FileSystem::TreeProgress& progress) override
    {
        isBegun_ = isBegun_ || !cancellation_.isRequested();
        if (progress.bytesFound != 0) {
            show(progress);
        }
        return !cancellation_.isRequested();
    }

    /// Only what is copied takes so long.
    void show(const FileSystem::TreeProgress& progress)
    {
        if (!bar_) {
            bar_.emplace();
            bar_->setLabel(nameOf(source_));
        }
        WorkProgress all;
        all.bytes = DoneOf{progress.bytesDone, progress.bytesFound};
        all.areTotalsKnown = progress.isAllFound;
        bar_->show(all);
    }

    [[noreturn]] void failToRemove(const FileSystem::TreeMoveReport& report)
    {
        const FailureKind kind = cancellation_.isRequested() ? FailureKind::Cancelled
                                 : isLoss(report.failure)    ? FailureKind::ConnectionLost
                                                             : FailureKind::FileProblem;
        const std::string rest =
            report.rest.empty() ? "" : ", the rest is in " + endpoint_.display(report.rest);
        const std::string why = failed_.below.empty() ? reason_ : failed_.below + ": " + reason_;
        throw Failure(
            kind, "copied but did not remove",
            (isTree_ ? "all of " : "") + endpoint_.display(source_),
            joinReasons("the copy " + endpoint_.display(target_) + " is complete" + rest, why));
    }

    /// Why nothing was moved.
    std::string hint(const FileSystem::Failure& why) const
    {
        const bool isOfRoot = failed_.below.empty();
        if (isCopied_) {
            return joinReasons("it cannot be removed from its place", reason_);
        }
        if (isOfRoot && why.code() == FileSystem::FailureCode::Exists) {
            return "something stands there already";
        }
        const std::string reason =
            isOfRoot ? reason_ : endpoint_.display(failed_.path) + ": " + reason_;
        const bool isOfSource = why.operation() == "list" || why.operation() == "lookUp";
        return isOfSource ? joinReasons("not all of it can be read", reason) : reason;
    }

    [[noreturn]] void fail(const FileSystem::TreeMoveReport& report)
    {
        const std::string left = textOf(report.left);
        if (cancellation_.isRequested()) {
            throw Failure(FailureKind::Cancelled, "interrupted the move of",
                          endpoint_.display(source_),
                          !endpoint_.isAlive() ? joinReasons("the connection was given up", left)
                          : left.empty()       ? "nothing was moved"
                                               : left);
        }
        const auto& why = report.failure;
        if (isLoss(why)) {
            if (!left.empty()) {
                TarnisTool::report(left);
            }
            endpoint_.throwLost(why);
        }
        if (failed_.below.empty() && !isCopied_ && why.operation() == "lookUp") {
            endpoint_.failBecause("cannot find", source_, why);
        }
        endpoint_.refuse("cannot move " + endpoint_.display(source_) + " to", target_,
                         joinReasons(left, hint(why)));
    }

    RemoteEndpoint& endpoint_;
    const Cancellation& cancellation_;
    std::string source_;
    std::string target_;
    std::optional<ProgressBar> bar_;
    bool isBegun_ = false;
    bool isCopied_ = false; ///< All of it.
    bool isTree_ = false;
    std::string reason_; ///< The first one.
    TreeEntry failed_;   ///< What it was of.
};

/// `tarnis mv`: renames and moves files within a server.
class MvCommand : public FileCommand
{
public:
    explicit MvCommand(CLI::App& program);

private:
    int work(const std::vector<std::string>& operands) override;
};

MvCommand::MvCommand(CLI::App& program)
    : FileCommand(program, "mv", "Rename and move files within a server", "host:path... host:path",
                  2)
{
    commandLine().footer(
        "All paths are on one server. Into a directory, files go under their own names. What\n"
        "stands at the new path is never replaced. What the server does not rename, as to another\n"
        "volume, is copied with permissions and times, and then removed.");
}

int MvCommand::work(const std::vector<std::string>& operands)
{
    auto paths = remotePaths(operands);
    const std::string target = paths.back().path;
    paths.pop_back();
    RemoteEndpoint remote(paths.front().target, loginOptions());
    const Destination destination(remote, target, paths.size());
    const Cancellation cancellation(remote.session());
    // They are told, and so stay where they are.
    std::deque<Move> moves;
    std::vector<FileSystem::TreeMovePath> named;
    for (const RemotePath& path : paths) {
        const std::string source = fileIdOf(path.path);
        const std::string newPath = destination.pathFor(source);
        moves.emplace_back(remote, cancellation, source, newPath);
        named.push_back({source, newPath, &moves.back()});
    }
    const auto reports = moveTrees(remote.system(), named);
    int code = ExitCode::success;
    for (std::size_t i = 0; i < reports.size(); ++i) {
        try {
            moves[i].check(reports[i]);
        } catch (const Failure& failure) {
            if (failure.kind() == FailureKind::Cancelled ||
                failure.kind() == FailureKind::ConnectionLost) {
                throw;
            }
            remote.requireAlive();
            report(failure.what());
            code = ExitCode::failure;
        }
    }
    return code;
}

} // namespace

std::unique_ptr<Command> makeMvCommand(CLI::App& program)
{
    return std::make_unique<MvCommand>(program);
}

} // namespace TarnisTool
