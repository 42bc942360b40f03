#pragma once

#include "files/Place.h"

#include <functional>
#include <string>
#include <vector>

namespace TarnisTool {

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
bool isPattern(Place& place, const std::string& path);

/// The entries that the patterns in the path stand for, in ascending order of their names. Each
/// part of a path may be one; one that exists as it is written is a name. Hidden ones (".name")
/// only where the pattern itself begins with a dot, or, for the last part, all are wanted. A link
/// is followed where more of the path comes behind it. Throws Failure where there are none.
std::vector<Match> expandPattern(Place& place, const std::string& path, const FailureNote& note,
                                 bool withHidden = false);

/// The path alone, or the paths that it stands for as a pattern. Throws Failure also for a name
/// that would lead elsewhere. \param what what the command would do with them, for the message.
std::vector<std::string> pathsFor(Place& place, const std::string& path, const std::string& what,
                                  const FailureNote& note);

} // namespace TarnisTool
