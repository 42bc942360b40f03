#pragma once

#include <string>

namespace TarnisTool {

/// Whether a name that a server gave can be that of one entry of a directory. Any other could lead
/// out of the directory.
bool isEntryName(const std::string& name);

/// The path of an entry below a directory, as the user would write it: the name alone below "".
std::string joinPath(const std::string& directory, const std::string& name);

/// The last component of a path; empty for what has no name of its own: "", "/", and paths that
/// end in "." or "..".
std::string nameOf(const std::string& path);

} // namespace TarnisTool
