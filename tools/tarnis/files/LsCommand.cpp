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

std::size_t digitsIn(std::uint64_t number)
{
    return std::to_string(number).size();
}

} // namespace

LsCommand::LsCommand(CLI::App& program)
    : PathsCommand(program, "ls", "List remote directories")
{
    commandLine().add_flag("-l", isLong_, "Show permissions, size, time and where links lead");
    commandLine().add_flag("-a,--all", showsHidden_, "Show names that begin with a dot too");
    commandLine().add_flag("-R,--recursive", isRecursive_,
                           "List everything below too; symbolic links are not followed");
    commandLine().add_flag("--json", isJson_, "Print one JSON array of all entries");
    commandLine().footer(
        "The last part of a path may be a pattern: * any bytes, ? one byte, [a-z] one of a set,\n"
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
    if (isDirectory(info.type) || (isFollowed && place.system().directoryExists(id))) {
        listTree(place, path);
    } else {
        show(place, {{info, path, path}});
    }
}

/// Files first, then what the directories among the matches hold.
void LsCommand::listMatches(RemotePlace& place, const std::string& path)
{
    const auto slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    std::vector<Entry> entries;
    std::vector<std::string> directories;
    for (auto& info : expandPattern(place, fileIdOf(path), showsHidden_)) {
        const std::string entryPath = joinPath(directory, info.name);
        if (isDirectory(info.type) && isRecursive_ && isEntryName(info.name)) {
            directories.push_back(entryPath);
        }
        entries.push_back({std::move(info), entryPath, entryPath});
    }
    show(place, entries);
    for (const std::string& each : directories) {
        listTree(place, each);
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
    return entries;
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
        sizeWidth = std::max(sizeWidth, digitsIn(entry.info.size));
    }
    for (const auto& [info, path, shownName] : entries) {
        const bool needsTarget = isLong_ || isJson_;
        const auto target = needsTarget ? linkTargetOf(place, path, info) : std::nullopt;
        if (isJson_) {
            json_.add(info, path, target);
            continue;
        }
        if (isLong_) {
            std::cout << modeText(info) << ' ' << std::setw(static_cast<int>(sizeWidth))
                      << info.size << ' ' << localTime(info.modTime) << ' ';
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
