#include "files/Patterns.h"

#include "Failure.h"
#include "files/Inquiry.h"
#include "files/Paths.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <utility>

namespace TarnisTool {

namespace {

constexpr auto searchPattern = FileSystem::StorageSystemDirectoryFilterType::SearchPattern;

bool isHidden(const std::string& name)
{
    return !name.empty() && name.front() == '.';
}

/// The position behind the set of bytes that begins at `start` ("[a;b]"); `start` itself where none
/// does.
std::size_t endOfSet(const std::string& pattern, std::size_t start)
{
    const auto inside = start + 1;
    const bool isNegated =
        inside < pattern.size() && (pattern[inside] == '!' || pattern[inside] == '^');
    const auto end =
        pattern[start] == '[' ? pattern.find(']', inside + (isNegated ? 2 : 1)) : std::string::npos;
    return end == std::string::npos ? start : end + 1;
}

/// Those of a pattern's alternatives that begin with a dot, as a pattern; empty for none.
std::string hiddenAlternatives(const std::string& pattern)
{
    std::string found;
    for (std::size_t start = 0, end = 0; start <= pattern.size(); start = ++end) {
        while (end < pattern.size() && pattern[end] != ';') {
            end = std::max(end + 1, endOfSet(pattern, end));
        }
        const std::string alternative = pattern.substr(start, end - start);
        if (isHidden(alternative)) {
            found += (found.empty() ? "" : ";") + alternative;
        }
    }
    return found;
}

} // namespace

PatternPart::PatternPart(const std::string& pattern, bool withHidden)
    : all_(pattern, searchPattern)
{
    const std::string hidden = withHidden ? pattern : hiddenAlternatives(pattern);
    if (!hidden.empty()) {
        hidden_.emplace(hidden, searchPattern);
    }
}

bool PatternPart::takes(const std::string& name) const
{
    return isHidden(name) ? hidden_ && hidden_->passes(name) : all_.passes(name);
}

void EntryFilter::add(const std::string& pattern, bool isIncluded)
{
    Rule rule;
    rule.isForDirectories = !pattern.empty() && pattern.back() == '/';
    const auto slash = pattern.find('/');
    rule.isPath = slash != std::string::npos && slash + 1 < pattern.size();
    rule.isIncluded = isIncluded;
    for (const std::string& part : partsOf(pattern)) {
        rule.parts.emplace_back(part, true);
    }
    if (rule.parts.empty()) {
        throw UsageError("\"" + pattern + "\" is no pattern for names");
    }
    rules_.push_back(std::move(rule));
}

bool EntryFilter::takes(const std::string& below, bool isDirectory) const
{
    const auto parts = partsOf(below);
    const auto decides = [&](const Rule& rule) {
        return (isDirectory || !rule.isForDirectories) && matches(rule, parts);
    };
    const auto rule = std::find_if(rules_.begin(), rules_.end(), decides);
    return rule == rules_.end() || rule->isIncluded;
}

bool EntryFilter::matches(const Rule& rule, const std::vector<std::string>& parts)
{
    if (!rule.isPath) {
        return rule.parts.front().takes(parts.back());
    }
    return std::equal(
        rule.parts.begin(), rule.parts.end(), parts.begin(), parts.end(),
        [](const PatternPart& one, const std::string& part) { return one.takes(part); });
}

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
    /// Set by a slash at the end.
    bool wantsDirectories;
};

// With fewer, a queue takes longer to be had than the answers.
constexpr std::size_t fewPaths = 4;

bool hasPattern(const std::string& part)
{
    return part.find_first_of("*?[;") != std::string::npos;
}

/// Follows one part of a path after the other, from every place that the parts so far lead to.
class Search
{
public:
    Search(Endpoint& endpoint, const FailureNote& note, const PathParts& parts, bool withHidden)
        : endpoint_(endpoint)
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
    /// What a part may lead to, unless it has to be a directory and is none.
    struct Candidate
    {
        Match match;
        bool isDoubtful = false;
    };

    using Info = FileSystem::StorageSystemFileInfo;

    /// A name in the middle of the path is not looked up: if it does not exist, the next part finds
    /// nothing.
    void step(const std::string& part, bool isLast)
    {
        std::vector<std::string> paths;
        for (const Match& match : found_) {
            paths.push_back(joinPath(match.path, part));
        }
        const auto infos = isLast || hasPattern(part)
                               ? infosOf(paths)
                               : std::vector<std::optional<Info>>(paths.size(), Info());
        const bool isWanted = !isLast || !parts_.wantsDirectories;
        std::vector<Candidate> candidates;
        for (std::size_t i = 0; i < paths.size(); ++i) {
            if (infos[i]) {
                candidates.push_back({{paths[i], *infos[i]}, !isWanted});
            } else if (hasPattern(part)) {
                addMatches(candidates, found_[i].path, part, isLast);
            }
        }
        isSpread_ = isSpread_ || hasPattern(part);
        found_ = chosen(std::move(candidates));
    }

    /// What stands at each path; empty for nothing. They are asked for together.
    std::vector<std::optional<Info>> infosOf(const std::vector<std::string>& paths) const
    {
        std::vector<std::optional<Info>> infos(paths.size());
        if (paths.size() < fewPaths) {
            std::transform(paths.begin(), paths.end(), infos.begin(),
                           [this](const auto& path) { return endpoint_.system().fileInfo(path); });
            return infos;
        }
        Inquiry inquiry(endpoint_);
        inquiry.expect(paths.size());
        for (std::size_t i = 0; i < paths.size(); ++i) {
            inquiry.lookUp(paths[i], [&infos, i](const auto& why, const Info& info) {
                infos[i] = why ? std::nullopt : std::make_optional(info);
            });
        }
        inquiry.finish();
        return infos;
    }

    void addMatches(std::vector<Candidate>& candidates, const std::string& directory,
                    const std::string& pattern, bool isLast)
    {
        const PatternPart wanted(pattern, withHidden_ && isLast);
        for (auto& info : entriesOf(directory.empty() ? "." : directory)) {
            std::string path = joinPath(directory, info.name);
            if (wanted.takes(info.name) && (isLast || mayLeadOn(info))) {
                const bool isDoubtful = isLast ? parts_.wantsDirectories : !isDirectory(info.type);
                candidates.push_back({{std::move(path), std::move(info)}, isDoubtful});
            }
        }
    }

    /// Whether there may be something below an entry; never for a name that would lead elsewhere.
    static bool mayLeadOn(const Info& info)
    {
        return isEntryName(info.name) && !FileSystem::isRegularFile(info.type);
    }

    /// Those of which the doubtful ones are, or lead to, directories.
    std::vector<Match> chosen(std::vector<Candidate> candidates) const
    {
        const auto isDoubtful = [](const Candidate& candidate) { return candidate.isDoubtful; };
        Inquiry inquiry(endpoint_);
        inquiry.expect(static_cast<std::size_t>(
            std::count_if(candidates.begin(), candidates.end(), isDoubtful)));
        for (Candidate& candidate : candidates) {
            if (candidate.isDoubtful) {
                inquiry.leadsToDirectory(candidate.match.path, [&candidate](bool isDirectory) {
                    candidate.isDoubtful = !isDirectory;
                });
            }
        }
        inquiry.finish();
        std::vector<Match> found;
        for (Candidate& candidate : candidates) {
            if (!candidate.isDoubtful) {
                found.push_back(std::move(candidate.match));
            }
        }
        return found;
    }

    /// One of several directories that cannot be searched does not keep the others back, and one
    /// that is not there, or is a file, holds no match.
    std::vector<FileSystem::StorageSystemFileInfo> entriesOf(const std::string& directory)
    {
        try {
            return endpoint_.list(directory);
        } catch (const Failure& failure) {
            if (!isSpread_) {
                throw;
            }
            const bool isNoDirectory = failure.kind() == FailureKind::NothingThere ||
                                       endpoint_.system().fileExists(directory, false);
            if (!isNoDirectory) {
                note_(failure);
            }
            return {};
        }
    }

    Endpoint& endpoint_;
    const FailureNote& note_;
    const PathParts& parts_;
    bool withHidden_;
    std::vector<Match> found_;
    bool isSpread_ = false; ///< A part so far was a pattern.
};

} // namespace

bool isPattern(Endpoint& endpoint, const std::string& path)
{
    return hasPattern(path) && !endpoint.system().fileInfo(path);
}

std::vector<Match> expandPattern(Endpoint& endpoint, const std::string& path,
                                 const FailureNote& note, bool withHidden)
{
    const PathParts parts(path);
    auto matches = Search(endpoint, note, parts, withHidden).run();
    if (matches.empty()) {
        throw Failure(FailureKind::NothingThere, "cannot find", endpoint.display(path),
                      "nothing matches");
    }
    return matches;
}

std::vector<std::string> pathsFor(Endpoint& endpoint, const std::string& path,
                                  const std::string& what, const FailureNote& note)
{
    if (!isPattern(endpoint, path)) {
        return {path};
    }
    std::vector<std::string> paths;
    for (auto& match : expandPattern(endpoint, path, note)) {
        if (!isEntryName(nameOf(match.path)) || !isEntryName(match.info.name)) {
            throw Failure(FailureKind::FileProblem, what, endpoint.display(path),
                          "a name there would lead elsewhere: \"" + match.info.name + "\"");
        }
        paths.push_back(std::move(match.path));
    }
    return paths;
}

} // namespace TarnisTool
