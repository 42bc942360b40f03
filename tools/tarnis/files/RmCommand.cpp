#include "Commands.h"
#include "Failure.h"
#include "files/Cancellation.h"
#include "files/FileCommand.h"
#include "files/Inquiry.h"
#include "files/Paths.h"
#include "files/Patterns.h"
#include "terminal/ProgressBar.h"

#include <FileSystem/TreeOperations.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace TarnisTool {

using FileSystem::FailureCode;
using FileSystem::TreeEntry;

namespace {

constexpr const char* whatFails = "cannot remove";

/// What is removed together, and what only after that: of two paths one of which is within the
/// other, each would find things gone that the other removes.
class Plan
{
public:
    /// Adds what the user has named. What was named before, or is within that, comes after it.
    void addNamed(const std::string& path)
    {
        const auto plain = plainPath(path);
        const bool isApart = leadsUp(plain) || overlaps(plain);
        if (steps_.empty() || isApart || isLastApart_) {
            steps_.emplace_back();
        }
        isLastApart_ = leadsUp(plain);
        steps_.back().push_back(path);
        ++count_;
        taken_.insert(plain);
        eachParent(plain, [this](const std::string& parent) {
            above_.insert(parent);
            return false;
        });
    }

    /// Adds what a pattern has found, unless that goes with what was named before.
    void addFound(const std::string& path)
    {
        if (!isTaken(plainPath(path))) {
            addNamed(path);
        }
    }

    const std::vector<std::vector<std::string>>& steps() const noexcept { return steps_; }

    std::size_t count() const noexcept { return count_; }

private:
    /// The path without "." and repeated slashes.
    static std::string plainPath(const std::string& path)
    {
        std::string plain = path.front() == '/' ? "/" : "";
        for (std::size_t next = 0; next < path.size();) {
            const auto end = std::min(path.find('/', next), path.size());
            const auto part = path.substr(next, end - next);
            if (!part.empty() && part != ".") {
                plain = joinPath(plain, part);
            }
            next = end + 1;
        }
        return plain;
    }

    /// Only the server can resolve a path with "..".
    static bool leadsUp(const std::string& plain)
    {
        return ("/" + plain + "/").find("/../") != std::string::npos;
    }

    /// Whether there is a directory that the path is in for which `test` says yes.
    template <class Test>
    static bool eachParent(const std::string& plain, Test test)
    {
        for (auto slash = plain.rfind('/'); slash != std::string::npos && slash > 0;
             slash = plain.rfind('/', slash - 1)) {
            if (test(plain.substr(0, slash))) {
                return true;
            }
        }
        return false;
    }

    bool isTaken(const std::string& plain) const
    {
        const auto isOneOfThem = [this](const std::string& path) {
            return taken_.count(path) != 0;
        };
        return isOneOfThem(plain) || eachParent(plain, isOneOfThem);
    }

    bool overlaps(const std::string& plain) const
    {
        return isTaken(plain) || above_.count(plain) != 0;
    }

    std::vector<std::vector<std::string>> steps_;
    std::unordered_set<std::string> taken_;
    std::unordered_set<std::string> above_;
    std::size_t count_ = 0;
    bool isLastApart_ = false;
};

std::string withoutSlashAtEnd(const std::string& path)
{
    const auto last = path.find_last_not_of('/');
    return last == std::string::npos ? "/" : path.substr(0, last + 1);
}

/// `tarnis rm`: removes remote files.
class RmCommand : public PathsCommand
{
public:
    explicit RmCommand(CLI::App& program);

private:
    class Removal;

    void workOnAll(RemoteEndpoint& endpoint, const std::vector<std::string>& paths) override;

    bool isRecursive_ = false;
    bool isForced_ = false;
};

/// Removes everything that the plan has, and tells of it.
class RmCommand::Removal : public FileSystem::TreeObserver
{
public:
    Removal(RmCommand& command, RemoteEndpoint& endpoint, const Plan& plan)
        : command_(command)
        , endpoint_(endpoint)
        , plan_(plan)
        , cancellation_(endpoint.session())
    {}

    void run()
    {
        if (plan_.count() == 1 && !command_.isRecursive_) {
            removeAlone(plan_.steps().front().front());
            return;
        }
        for (const auto& paths : plan_.steps()) {
            std::vector<std::string> roots;
            for (const std::string& path : paths) {
                roots.push_back(withoutSlashAtEnd(path));
                if (roots.back() != path) {
                    meantAsDirectories_.insert(roots.back());
                }
            }
            const auto report = removeTree(endpoint_.system(), roots, *this);
            removed_ += report.files + report.directories + report.links;
            doneBefore_ = amount_;
            if (cancellation_.isRequested()) {
                endpoint_.requireAlive();
                throwCancelled();
            }
        }
    }

    bool wants(const TreeEntry& entry) override
    {
        const auto why = reasonAgainst(entry);
        if (!why.empty()) {
            note(endpoint_.refusal(whatFails, entry.path, why));
        }
        return why.empty();
    }

    bool failed(const TreeEntry& entry, const FileSystem::Failure& why) override
    {
        const bool isExpected =
            command_.isForced_ && entry.below.empty() && why.code() == FailureCode::NotFound;
        if (!isExpected) {
            note(failureOf(entry, why));
        }
        return true;
    }

    bool progress(const FileSystem::TreeProgress& progress) override
    {
        amount_ = {doneBefore_.done + progress.entriesDone,
                   doneBefore_.total + progress.entriesFound};
        WorkProgress all;
        all.count = amount_;
        all.counted = "entries";
        all.areTotalsKnown = progress.isAllFound;
        if (progress.entry != nullptr) {
            bar_.setLabel(nameOf(progress.entry->path));
        }
        bar_.show(all);
        return !cancellation_.isRequested();
    }

private:
    /// A single file takes fewer round trips by itself than with a queue, which opens a channel
    /// first.
    void removeAlone(const std::string& path)
    {
        TreeEntry root{withoutSlashAtEnd(path), {}, {}};
        if (root.path != path) {
            meantAsDirectories_.insert(root.path);
        }
        Inquiry(endpoint_).lookUp(root.path, [this, &root](const auto& why, const auto& info) {
            root.attributes.type = info.type;
            if (why) {
                static_cast<void>(failed(root, why));
            } else if (wants(root) && !endpoint_.system().fileRemove(root.path)) {
                static_cast<void>(failed(root, FileSystem::Failure::last()));
            }
        });
    }

    /// Empty for what is to be removed.
    std::string reasonAgainst(const TreeEntry& entry) const
    {
        if (entry.path.size() > longestPath) {
            return "it is nested too deep";
        }
        if (!entry.below.empty()) {
            return {};
        }
        const bool passesForDirectory =
            entry.attributes.type && isDirectory(*entry.attributes.type);
        if (!passesForDirectory) {
            return meantAsDirectories_.count(entry.path) != 0 ? "it is no directory" : "";
        }
        return command_.isRecursive_ || !endpoint_.isDirectoryItself(entry.path) ? ""
                                                                                 : needsRecursion;
    }

    Failure failureOf(const TreeEntry& entry, const FileSystem::Failure& why) const
    {
        const auto& operation = why.operation();
        if (why.code() == FailureCode::BadName && operation == "remove") {
            return endpoint_.refusal(whatFails, entry.path,
                                     command_.isRecursive_ ? "it has no name of its own"
                                                           : needsRecursion);
        }
        const bool wasDirectory = entry.attributes.type && isDirectory(*entry.attributes.type);
        if (why.code() == FailureCode::Changed ||
            (wasDirectory && why.code() == FailureCode::NotDirectory)) {
            return endpoint_.refusal(whatFails, entry.path, "it is no directory any more");
        }
        if (why.code() == FailureCode::TooDeep) {
            return endpoint_.refusal(whatFails, entry.path, "it is nested too deep");
        }
        const bool isUnfound = operation == "lookUp" || operation == "fileInfo";
        return endpoint_.failureBecause(isUnfound             ? "cannot find"
                                        : operation == "list" ? "cannot list"
                                                              : whatFails,
                                        entry.path, why);
    }

    void note(const Failure& failure)
    {
        bar_.clear();
        command_.note(failure);
    }

    [[noreturn]] void throwCancelled() const
    {
        const auto others = plan_.count() - 1;
        throw Failure(FailureKind::Cancelled, "interrupted the removal of",
                      endpoint_.display(plan_.steps().front().front()) +
                          (others > 0 ? " and " + std::to_string(others) + " more" : ""),
                      "removed " + std::to_string(removed_) +
                          (removed_ == 1 ? " entry" : " entries"));
    }

    static constexpr const char* needsRecursion =
        "it is a directory; -r removes it and all below it";

    RmCommand& command_;
    RemoteEndpoint& endpoint_;
    const Plan& plan_;
    const Cancellation cancellation_;
    ProgressBar bar_;
    DoneOf amount_;
    DoneOf doneBefore_; ///< Of the steps that are over.
    std::uint64_t removed_ = 0;
    std::unordered_set<std::string> meantAsDirectories_; ///< They have a slash behind them.
};

RmCommand::RmCommand(CLI::App& program)
    : PathsCommand(program, "rm", "Remove remote files")
{
    commandLine().add_flag("-r,--recursive", isRecursive_,
                           "Remove directories with all below them");
    commandLine().add_flag("-f,--force", isForced_, "What is not there is no failure");
    commandLine().footer(
        "A symbolic link is removed itself, never what it leads to. Each part of a path may be a\n"
        "pattern, as with ls; a name that exists is that name.");
}

void RmCommand::workOnAll(RemoteEndpoint& endpoint, const std::vector<std::string>& paths)
{
    const auto each = [&](const Failure& failure) { noteUnlessLost(endpoint, failure); };
    Plan plan;
    for (const std::string& path : paths) {
        const std::string id = fileIdOf(path);
        try {
            const auto found = pathsFor(endpoint, id, whatFails, each);
            const bool isName = found.size() == 1 && found.front() == id;
            for (const std::string& one : found) {
                isName ? plan.addNamed(one) : plan.addFound(one);
            }
        } catch (const Failure& failure) {
            if (!isForced_ || failure.kind() != FailureKind::NothingThere) {
                each(failure);
            }
        }
    }
    Removal(*this, endpoint, plan).run();
}

} // namespace

std::unique_ptr<Command> makeRmCommand(CLI::App& program)
{
    return std::make_unique<RmCommand>(program);
}

} // namespace TarnisTool
