#include "files/Pattern.h"

#include "Failure.h"
#include "files/EntryNames.h"
#include "files/NameFilter.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace TarnisTool {

namespace {

/// The parts between slashes, and what stands in front of the first one.
struct PathParts
{
    explicit PathParts(const std::string& path)
        : start(path.front() == '/' ? "/" : "")
        , parts(partsOf(path))
        , wantsDirectories(path.back() == '/')
    {}

    std::string start;
    std::vector<std::string> parts;
    /// A slash at the end says so.
    bool wantsDirectories;
};

bool hasPattern(const std::string& part)
{
    return part.find_first_of("*?[;") != std::string::npos;
}

/// Follows one part of a path after the other, from every place that the parts so far lead to.
class Search
{
public:
    Search(Place& place, const FailureNote& note, const PathParts& parts, bool withHidden)
        : place_(place)
        , note_(note)
        , parts_(parts)
        , withHidden_(withHidden)
        , found_{Match{parts.start, {}}}
    {}

    std::vector<Match> run()
    {
        for (std::size_t i = 0; i < parts_.parts.size(); ++i) {
            step(parts_.parts[i], i + 1 == parts_.parts.size());
        }
        return std::move(found_);
    }

private:
    void step(const std::string& part, bool isLast)
    {
        std::vector<Match> next;
        for (const Match& match : found_) {
            const std::string path = joinPath(match.path, part);
            if (!hasPattern(part) || place_.system().fileInfo(path)) {
                takeName(next, path, isLast);
            } else {
                takeMatches(next, match.path, part, isLast);
            }
        }
        isSpread_ = isSpread_ || hasPattern(part);
        found_ = std::move(next);
    }

    /// On the way, what does not exist shows later.
    void takeName(std::vector<Match>& next, const std::string& path, bool isLast)
    {
        auto info = isLast ? place_.system().fileInfo(path)
                           : std::optional(FileSystem::StorageSystemFileInfo());
        if (info) {
            take(next, {path, std::move(*info)}, isLast);
        }
    }

    void takeMatches(std::vector<Match>& next, const std::string& directory,
                     const std::string& pattern, bool isLast)
    {
        const NameFilter filter(pattern, withHidden_ && isLast);
        for (auto& info : entriesOf(directory.empty() ? "." : directory)) {
            std::string path = joinPath(directory, info.name);
            if (filter.takes(info.name) && (isLast || leadsOn(path, info))) {
                take(next, {std::move(path), std::move(info)}, isLast);
            }
        }
    }

    void take(std::vector<Match>& next, Match match, bool isLast) const
    {
        const bool isUnwanted =
            isLast && parts_.wantsDirectories && !place_.system().directoryExists(match.path);
        if (!isUnwanted) {
            next.push_back(std::move(match));
        }
    }

    /// Whether there may be something below an entry; never for a name that would lead elsewhere.
    bool leadsOn(const std::string& path, const FileSystem::StorageSystemFileInfo& info) const
    {
        return isEntryName(info.name) &&
               (isDirectory(info.type) || place_.system().directoryExists(path));
    }

    /// One of several directories that cannot be searched does not keep the others back, and one
    /// that is not there, or is a file, holds no match.
    std::vector<FileSystem::StorageSystemFileInfo> entriesOf(const std::string& directory)
    {
        try {
            return place_.list(directory);
        } catch (const Failure& failure) {
            if (!isSpread_) {
                throw;
            }
            const bool isNoDirectory = failure.kind() == FailureKind::NothingThere ||
                                       place_.system().fileExists(directory, false);
            if (!isNoDirectory) {
                note_(failure);
            }
            return {};
        }
    }

    Place& place_;
    const FailureNote& note_;
    const PathParts& parts_;
    bool withHidden_;
    std::vector<Match> found_;
    bool isSpread_ = false; ///< A part so far was a pattern.
};

} // namespace

bool isPattern(Place& place, const std::string& path)
{
    return hasPattern(path) && !place.system().fileInfo(path);
}

std::vector<Match> expandPattern(Place& place, const std::string& path, const FailureNote& note,
                                 bool withHidden)
{
    const PathParts parts(path);
    auto matches = Search(place, note, parts, withHidden).run();
    if (matches.empty()) {
        throw Failure(FailureKind::NothingThere, "cannot find", place.display(path),
                      "nothing matches");
    }
    return matches;
}

std::vector<std::string> pathsFor(Place& place, const std::string& path, const std::string& what,
                                  const FailureNote& note)
{
    if (!isPattern(place, path)) {
        return {path};
    }
    std::vector<std::string> paths;
    for (auto& match : expandPattern(place, path, note)) {
        if (!isEntryName(nameOf(match.path)) || !isEntryName(match.info.name)) {
            throw Failure(FailureKind::FileProblem, what, place.display(path),
                          "a name there would lead elsewhere: \"" + match.info.name + "\"");
        }
        paths.push_back(std::move(match.path));
    }
    return paths;
}

} // namespace TarnisTool
