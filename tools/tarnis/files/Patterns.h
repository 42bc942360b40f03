#pragma once

#include "files/Endpoint.h"

#include <FileSystem/NameFilter.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TarnisTool {

/// The names that a part of a path takes, as a pattern. Hidden ones only for an alternative that
/// begins with a dot itself, unless all are wanted.
class PatternPart
{
public:
    PatternPart(const std::string& pattern, bool withHidden);

    bool takes(const std::string& name) const;

private:
    FileSystem::NameFilter all_;
    std::optional<FileSystem::NameFilter> hidden_;
};

/// Which entries of a tree are copied: the first rule whose pattern matches one decides, and
/// without any it is copied.
class EntryFilter
{
public:
    /// Adds a rule. A pattern without a slash matches a name at any depth; one with a slash the
    /// path below the root, part by part. One that ends in a slash matches directories alone.
    /// Throws UsageError.
    void add(const std::string& pattern, bool isIncluded);

    bool isEmpty() const noexcept { return rules_.empty(); }

    /// \param below the path from the root of the tree; not the root itself.
    bool takes(const std::string& below, bool isDirectory) const;

private:
    struct Rule
    {
        std::vector<PatternPart> parts;
        bool isPath = false; ///< The parts are those of the whole path.
        bool isForDirectories = false;
        bool isIncluded = false;
    };

    static bool matches(const Rule& rule, const std::vector<std::string>& parts);

    std::vector<Rule> rules_;
};

class Failure;

/// What a pattern stands for.
struct Match
{
    /// Beginning like the pattern itself.
    std::string path;
    FileSystem::StorageSystemFileInfo info;
};

/// Hears of a directory that cannot be searched. What it throws ends the search.
using FailureNote = std::function<void(const Failure&)>;

/// Whether a part of the path is a search pattern rather than a name: it has characters of one, and
/// nothing stands there under that very name.
bool isPattern(Endpoint& endpoint, const std::string& path);

/// The entries that the patterns in the path stand for, in ascending order of their names. Each
/// part of a path may be one; one that exists as it is written is a name. Hidden ones (".name")
/// only where the pattern itself begins with a dot, or, for the last part, all are wanted. A link
/// is followed where more of the path comes behind it. Throws Failure where there are none.
std::vector<Match> expandPattern(Endpoint& endpoint, const std::string& path,
                                 const FailureNote& note, bool withHidden = false);

/// The path alone, or the paths that it stands for as a pattern. Throws Failure also for a name
/// that would lead elsewhere. \param what what the command would do with them, for the message.
std::vector<std::string> pathsFor(Endpoint& endpoint, const std::string& path,
                                  const std::string& what, const FailureNote& note);

} // namespace TarnisTool
