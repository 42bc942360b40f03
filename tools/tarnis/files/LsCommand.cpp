#include "files/LsCommand.h"

#include "Failure.h"
#include "files/EntryNames.h"
#include "files/EntryText.h"
#include "files/Pattern.h"
#include "terminal/Units.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <optional>

namespace TarnisTool {

namespace {

std::optional<std::string> linkTargetOf(const RemotePlace& place, const std::string& path,
                                        const FileSystem::StorageSystemFileInfo& info)
{
    return isSymbolicLink(info.type) ? place.system().fileSymbolicLinkTarget(fileIdOf(path))
                                     : std::nullopt;
}

} // namespace

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

void LsCommand::workOn(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    if (isPattern(place, id)) {
        listMatches(place, path);
        return;
    }
    const auto info = place.find(id);
    const bool isFollowed = !isLong_ && isSymbolicLink(info.type);
    if (showsItself_) {
        show(place, {{info, path, path.empty() ? "." : path}});
    } else if (isDirectory(info.type) || (isFollowed && place.system().directoryExists(id))) {
        listTree(place, path);
    } else {
        show(place, {{info, path, path}});
    }
}

/// Files first, then what the directories among the matches hold.
void LsCommand::listMatches(RemotePlace& place, const std::string& path)
{
    const std::string id = fileIdOf(path);
    const auto each = [&](const Failure& failure) { note(place, failure); };
    std::vector<Entry> entries;
    for (auto& match : expandPattern(place, id, each, showsHidden_)) {
        // As the user began it.
        const std::string shown = id == path ? match.path : textOf(match.path);
        entries.push_back({std::move(match.info), shown, shown});
    }
    sort(entries);
    show(place, entries);
    for (const Entry& entry : entries) {
        if (isDirectory(entry.info.type) && isRecursive_ && !showsItself_ &&
            isEntryName(entry.info.name)) {
            listTree(place, entry.path);
        }
    }
}

void LsCommand::listTree(RemotePlace& place, const std::string& path)
{
    // The next one stands last.
    std::vector<std::string> waiting{path};
    while (!waiting.empty()) {
        const std::string next = std::move(waiting.back());
        waiting.pop_back();
        try {
            const auto below = listDirectory(place, next);
            waiting.insert(waiting.end(), below.rbegin(), below.rend());
        } catch (const Failure& failure) {
            note(place, failure);
        }
    }
}

/// Returns the directories that are to be listed after this one.
std::vector<std::string> LsCommand::listDirectory(RemotePlace& place, const std::string& path)
{
    const std::vector<Entry> entries = entriesOf(place, path);
    heading(path);
    show(place, entries);
    std::vector<std::string> below;
    for (const Entry& entry : entries) {
        if (isRecursive_ && isDirectory(entry.info.type) && isEntryName(entry.info.name)) {
            below.push_back(entry.path);
        }
    }
    return below;
}

std::vector<LsCommand::Entry> LsCommand::entriesOf(RemotePlace& place,
                                                   const std::string& path) const
{
    std::vector<Entry> entries;
    for (auto& info : place.list(fileIdOf(path))) {
        if (!showsHidden_ && !info.name.empty() && info.name.front() == '.') {
            continue;
        }
        std::string name = info.name;
        entries.push_back({std::move(info), joinPath(path, name), std::move(name)});
    }
    sort(entries);
    return entries;
}

/// What is equal stays in the order of the names, in which the entries come.
void LsCommand::sort(std::vector<Entry>& entries) const
{
    const auto comesFirst = [this](const Entry& left, const Entry& right) {
        return order_ == Order::Time ? left.info.modTime > right.info.modTime
                                     : left.info.size > right.info.size;
    };
    if (order_ != Order::Name) {
        std::stable_sort(entries.begin(), entries.end(), comesFirst);
    }
    if (isReversed_) {
        std::reverse(entries.begin(), entries.end());
    }
}

std::string LsCommand::sizeText(std::uint64_t size) const
{
    return hasReadableSizes_ ? humanSize(size) : std::to_string(size);
}

void LsCommand::heading(const std::string& path)
{
    if (isJson_ || (pathCount() == 1 && !isRecursive_)) {
        return;
    }
    std::cout << (hasListed_ ? "\n" : "") << forOutput(path.empty() ? "." : path) << ":\n";
}

void LsCommand::show(RemotePlace& place, const std::vector<Entry>& entries)
{
    hasListed_ = true;
    std::size_t sizeWidth = 0;
    for (const Entry& entry : entries) {
        sizeWidth = std::max(sizeWidth, sizeText(entry.info.size).size());
    }
    for (const auto& [info, path, shownName] : entries) {
        const bool needsTarget = isLong_ || isJson_;
        const auto target = needsTarget ? linkTargetOf(place, path, info) : std::nullopt;
        if (isJson_) {
            json_.add(info, path, target);
            continue;
        }
        if (isLong_) {
            std::cout << modeText(info, info.permissions.raw()) << ' '
                      << std::setw(static_cast<int>(sizeWidth)) << sizeText(info.size) << ' '
                      << localTime(info.modTime) << ' ';
        }
        std::cout << forOutput(shownName) << (target ? " -> " + forOutput(*target) : "") << '\n';
    }
}

void LsCommand::finish()
{
    if (isJson_) {
        json_.print();
    }
}

} // namespace TarnisTool
