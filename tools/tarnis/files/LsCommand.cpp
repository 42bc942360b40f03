#include "Commands.h"
#include "Failure.h"
#include "files/EntryOutput.h"
#include "files/FileCommand.h"
#include "files/Inquiry.h"
#include "files/Paths.h"
#include "files/Patterns.h"
#include "terminal/Sizes.h"
#include "terminal/Times.h"

#include <FileSystem/TreeOperations.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <deque>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace TarnisTool {

using FileSystem::FailureCode;
using FileSystem::TreeEntry;

namespace {

/// An entry, with its path as the user would write it.
struct Entry
{
    FileSystem::StorageSystemFileInfo info;
    std::string path;
    /// What is printed: the path of an operand, the name of what a directory holds.
    std::string shownName;
};

/// What is printed together, as soon as it is known where its links lead.
struct Block
{
    std::optional<std::string> heading;
    std::vector<Entry> entries;
    std::vector<std::optional<std::string>> targets; ///< Each in the place of its entry.
    std::size_t unanswered = 0;
};

// The limit bounds the memory that entries take while they wait.
constexpr std::size_t mostBlocks = 1'000;

bool isHidden(const std::string& name)
{
    return !name.empty() && name.front() == '.';
}

FileSystem::StorageSystemFileInfo infoOfEntry(const TreeEntry& entry)
{
    return infoOf(entry.path, entry.below.substr(entry.below.rfind('/') + 1), entry.attributes);
}

/// `tarnis ls`: lists directories.
class LsCommand : public PathsCommand
{
public:
    explicit LsCommand(CLI::App& program);

private:
    class Listing;

    enum class Order
    {
        Name,
        Time, ///< The newest first.
        Size, ///< The largest first.
    };

    void workOnAll(RemoteEndpoint& endpoint, const std::vector<std::string>& paths) override;
    void finish() override;

    bool isLong_ = false;
    bool showsHidden_ = false;
    bool isRecursive_ = false;
    bool isJson_ = false;
    bool showsItself_ = false;
    bool hasReadableSizes_ = false;
    bool isReversed_ = false;
    Order order_ = Order::Name;
    JsonList json_;
};

/// Walks what is to be listed, and shows it on the way.
class LsCommand::Listing : public FileSystem::TreeObserver
{
public:
    Listing(LsCommand& command, RemoteEndpoint& endpoint, std::size_t pathCount)
        : command_(command)
        , endpoint_(endpoint)
        , inquiry_(endpoint)
        , hasHeadings_(!command.isJson_ && (pathCount > 1 || command.isRecursive_))
    {}

    /// Lists operands, none of which is a pattern.
    void list(const std::vector<std::string>& paths)
    {
        if (paths.empty()) {
            return;
        }
        std::vector<std::string> ids;
        std::transform(paths.begin(), paths.end(), std::back_inserter(ids), fileIdOf);
        walk(paths, ids);
    }

    /// Files first, then what the directories among the matches hold.
    void listMatches(const std::string& path)
    {
        const std::string id = fileIdOf(path);
        std::vector<Entry> entries;
        const auto each = [this](const Failure& failure) {
            command_.noteUnlessLost(endpoint_, failure);
        };
        for (auto& match : expandPattern(endpoint_, id, each, command_.showsHidden_)) {
            // As the user began it.
            const std::string shown = id == path ? match.path : textOf(match.path);
            entries.push_back({std::move(match.info), shown, shown});
        }
        sort(entries);
        show(entries);
        std::vector<std::string> directories;
        for (const Entry& entry : entries) {
            if (isDirectory(entry.info.type) && command_.isRecursive_ && !command_.showsItself_ &&
                isEntryName(entry.info.name)) {
                directories.push_back(entry.path);
            }
        }
        list(directories);
    }

    bool wants(const TreeEntry& entry) override
    {
        if (entry.below.empty()) {
            ++root_;
            return wantsRoot(entry);
        }
        auto info = infoOfEntry(entry);
        if (isHidden(info.name) && !command_.showsHidden_) {
            return false;
        }
        const bool isWanted = command_.isRecursive_ && isDirectory(info.type);
        std::string name = info.name;
        entries_.push_back({std::move(info), pathOf(entry), std::move(name)});
        return isWanted;
    }

    bool comesFirst(const TreeEntry& one, const TreeEntry& other) override
    {
        return command_.isReversed_ ? isBefore(other, one) : isBefore(one, other);
    }

    void done(const TreeEntry& directory) override
    {
        auto entries = std::exchange(entries_, {});
        sort(entries);
        show(std::move(entries), pathOf(directory));
    }

    bool failed(const TreeEntry& entry, const FileSystem::Failure& why) override
    {
        const bool isUnfound = why.operation() == "lookUp";
        if (entry.below.empty() && !entry.attributes.type) {
            ++root_;
        } else if (!isUnfound) {
            // The directory could not be read to its end.
            entries_.clear();
        }
        const std::string id = fileIdOf(pathOf(entry));
        if (why.code() == FailureCode::Changed) {
            command_.note(endpoint_.refusal("cannot list", id, "it is no directory any more"));
        } else {
            command_.note(
                endpoint_.failureBecause(isUnfound ? "cannot find" : "cannot list", id, why));
        }
        return true;
    }

    bool progress(const FileSystem::TreeProgress& /*progress*/) override
    {
        const bool waitsForMany = blocks_.size() > mostBlocks;
        inquiry_.wait(waitsForMany ? std::chrono::milliseconds::max()
                                   : std::chrono::milliseconds(0));
        print();
        return true;
    }

    /// Prints what still waits for an answer.
    void finish()
    {
        inquiry_.finish();
        print();
    }

private:
    /// \param paths as the user would write them.
    /// \param ids   where they are.
    void walk(const std::vector<std::string>& paths, const std::vector<std::string>& ids)
    {
        const auto before = std::make_pair(paths_, root_);
        paths_ = &paths;
        root_ = -1;
        static_cast<void>(walkTree(endpoint_.system(), ids, *this));
        std::tie(paths_, root_) = before;
    }

    /// The path as the user would write it.
    std::string pathOf(const TreeEntry& entry) const
    {
        const auto& root = paths_->at(static_cast<std::size_t>(root_));
        return entry.below.empty() ? root : joinPath(root, entry.below);
    }

    bool wantsRoot(const TreeEntry& root)
    {
        const std::string path = pathOf(root);
        const auto info =
            infoOf(root.path, endpoint_.system().pathFileName(root.path), root.attributes);
        const bool isFollowed =
            !command_.isLong_ && !command_.showsItself_ && isSymbolicLink(info.type);
        if (command_.showsItself_) {
            const std::string shown = path.empty() ? "." : path;
            show({{info, path, shown}});
        } else if (isDirectory(info.type)) {
            return true;
        } else if (isFollowed && endpoint_.system().directoryExists(root.path)) {
            walk({path}, {joinPath(root.path, ".")});
        } else {
            show({{info, path, path}});
        }
        return false;
    }

    /// Of two directories of one directory, none of which has a size.
    bool isBefore(const TreeEntry& left, const TreeEntry& right) const
    {
        const auto leftTime = left.attributes.modTime;
        const auto rightTime = right.attributes.modTime;
        return command_.order_ == Order::Time && leftTime != rightTime ? leftTime > rightTime
                                                                       : left.path < right.path;
    }

    /// What is equal stays in the order of the names, in which the entries come.
    void sort(std::vector<Entry>& entries) const
    {
        const auto comesFirst = [this](const Entry& left, const Entry& right) {
            return command_.order_ == Order::Time ? left.info.modTime > right.info.modTime
                                                  : left.info.size > right.info.size;
        };
        if (command_.order_ != Order::Name) {
            std::stable_sort(entries.begin(), entries.end(), comesFirst);
        }
        if (command_.isReversed_) {
            std::reverse(entries.begin(), entries.end());
        }
    }

    std::string sizeText(std::uint64_t size) const
    {
        return command_.hasReadableSizes_ ? humanSize(size) : std::to_string(size);
    }

    /// Prints entries in their turn.
    /// \param directory that the entries are in; empty for operands.
    void show(std::vector<Entry> entries, const std::optional<std::string>& directory = {})
    {
        Block& block = blocks_.emplace_back();
        block.entries = std::move(entries);
        if (directory && hasHeadings_) {
            block.heading = directory->empty() ? "." : *directory;
        }
        if (command_.isLong_ || command_.isJson_) {
            askTargets(block);
        }
        print();
    }

    void askTargets(Block& block)
    {
        const auto isLink = [](const Entry& entry) { return isSymbolicLink(entry.info.type); };
        const auto links = std::count_if(block.entries.begin(), block.entries.end(), isLink);
        linkCount_ += static_cast<std::size_t>(links);
        inquiry_.expect(linkCount_);
        block.targets.resize(block.entries.size());
        for (std::size_t i = 0; i < block.entries.size(); ++i) {
            if (isLink(block.entries[i])) {
                ++block.unanswered;
                inquiry_.readLink(fileIdOf(block.entries[i].path),
                                  [this, &block, i](const auto& why, const auto& target) {
                                      takeTarget(block, i, why, target);
                                  });
            }
        }
    }

    /// A link that cannot be read is shown without where it leads.
    void takeTarget(Block& block, std::size_t index, const FileSystem::Failure& why,
                    const std::string& target)
    {
        if (isLoss(why)) {
            endpoint_.throwLost(why);
        }
        --block.unanswered;
        block.targets[index] = why ? std::nullopt : std::make_optional(target);
    }

    void print()
    {
        for (; !blocks_.empty() && blocks_.front().unanswered == 0; blocks_.pop_front()) {
            print(blocks_.front());
        }
    }

    void print(const Block& block)
    {
        if (block.heading) {
            std::cout << (hasListed_ ? "\n" : "") << forOutput(*block.heading) << ":\n";
        }
        hasListed_ = true;
        std::size_t sizeWidth = 0;
        for (const Entry& entry : block.entries) {
            sizeWidth = std::max(sizeWidth, sizeText(entry.info.size).size());
        }
        for (std::size_t i = 0; i < block.entries.size(); ++i) {
            print(block.entries[i], i < block.targets.size() ? block.targets[i] : std::nullopt,
                  static_cast<int>(sizeWidth));
        }
    }

    void print(const Entry& entry, const std::optional<std::string>& target, int sizeWidth)
    {
        const auto& [info, path, shownName] = entry;
        if (command_.isJson_) {
            command_.json_.add(info, path, target);
            return;
        }
        if (command_.isLong_) {
            std::cout << modeText(info, info.permissions.raw()) << ' ' << std::setw(sizeWidth)
                      << sizeText(info.size) << ' ' << localTime(info.modTime) << ' ';
        }
        std::cout << forOutput(shownName) << (target ? " -> " + forOutput(*target) : "") << '\n';
    }

    LsCommand& command_;
    RemoteEndpoint& endpoint_;
    Inquiry inquiry_;
    bool hasHeadings_;
    bool hasListed_ = false;
    const std::vector<std::string>* paths_ = nullptr; ///< The roots of the walk.
    std::ptrdiff_t root_ = -1;                        ///< Which of them is walked.
    std::vector<Entry> entries_;                      ///< Of the directory that is being told.
    std::deque<Block> blocks_;                        ///< To be printed, in their order.
    std::size_t linkCount_ = 0;
};

LsCommand::LsCommand(CLI::App& program)
    : PathsCommand(program, "ls", "List remote directories")
{
    commandLine().add_flag("-l", isLong_, "Show permissions, size, time and where links lead");
    commandLine().add_flag("-a,--all", showsHidden_, "Show names that begin with a dot too");
    commandLine().add_flag("-R,--recursive", isRecursive_,
                           "List everything below too; symbolic links are not followed");
    commandLine().add_flag("-d,--directory", showsItself_,
                           "List directories themselves, not what they hold");
    keepShortHForItself();
    commandLine().add_flag("-h,--human-readable", hasReadableSizes_,
                           "With -l: sizes for people, such as 1.2 MB");
    const auto orderBy = [this](Order order) { return [this, order] { order_ = order; }; };
    commandLine()
        .add_flag_callback("-t", orderBy(Order::Time), "The newest first")
        ->trigger_on_parse();
    commandLine()
        .add_flag_callback("-S", orderBy(Order::Size), "The largest first")
        ->trigger_on_parse();
    commandLine().add_flag("-r,--reverse", isReversed_, "The other way round");
    commandLine().add_flag("-1", "One name in a line, as it always is");
    commandLine().add_flag("--json", isJson_, "Print one JSON array of all entries");
    commandLine().footer(
        "Each part of a path may be a pattern: * any bytes, ? one byte, [a-z] one of a set,\n"
        "; between alternatives. A name that exists is that name, whatever it looks like.\n"
        "At a terminal, control characters in names appear as \"?\"; elsewhere names are printed\n"
        "byte for byte. In JSON, a name that is no UTF-8 has its bytes in nameBase64.\n\n"
        "Example: tarnis ls -l 'alice@example.org:/var/log/*.log'");
}

/// Runs of names are walked together.
void LsCommand::workOnAll(RemoteEndpoint& endpoint, const std::vector<std::string>& paths)
{
    Listing listing(*this, endpoint, paths.size());
    std::vector<std::string> names;
    const auto listNames = [&] { listing.list(std::exchange(names, {})); };
    for (const std::string& path : paths) {
        try {
            if (!isPattern(endpoint, fileIdOf(path))) {
                names.push_back(path);
                continue;
            }
            listNames();
            listing.listMatches(path);
        } catch (const Failure& failure) {
            noteUnlessLost(endpoint, failure);
        }
    }
    listNames();
    listing.finish();
}

void LsCommand::finish()
{
    if (isJson_) {
        json_.print();
    }
}

} // namespace

std::unique_ptr<Command> makeLsCommand(CLI::App& program)
{
    return std::make_unique<LsCommand>(program);
}

} // namespace TarnisTool
