#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace TarnisTool {

// No system takes longer paths: only a server that makes its tree up gets there.
constexpr std::size_t longestPath = 16'384;

/// Whether a name that a server gave can be that of one entry of a directory. Any other could lead
/// out of the directory.
bool isEntryName(const std::string& name);

/// A path as a file system takes it: never empty, and always with a directory in front that
/// operations on parents can name ("./a" for "a", "." for "").
std::string fileIdOf(const std::string& path);

/// The same without what fileIdOf() put in front, for messages.
std::string textOf(const std::string& fileId);

/// The path of an entry below a directory, as the user would write it: the name alone below "".
std::string joinPath(const std::string& directory, const std::string& name);

/// What stands between the slashes of a path.
std::vector<std::string> partsOf(const std::string& path);

/// The last component of a path; empty for what has no name of its own: "", "/", and paths that
/// end in "." or "..".
std::string nameOf(const std::string& path);

} // namespace TarnisTool
