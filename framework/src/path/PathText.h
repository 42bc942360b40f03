#pragma once

#include <string>
#include <vector>

/// Paths as text: components with "/" between them. No system is asked, nothing is resolved.
namespace FileSystem::PathText {

/// Without repeated and trailing slashes and "." components; ".." stays. "." alone stays.
std::string canonize(const std::string& path);

/// The last component, trailing slashes ignored; "" for the root.
std::string fileName(const std::string& path);

/// Without the last component: "/a/b" gives "/a", "/a" gives "/"; "/", "a" and "" give "".
std::string parentId(const std::string& path);

/// With the names below it; onto "" it is relative. Empty names add nothing.
std::string childId(const std::string& path, const std::vector<std::string>& names);

/// Whether the last component is a search pattern.
bool hasFilter(const std::string& path);

bool isAbsolute(const std::string& path);

/// What follows the last dot of the name, or with `complete` the first one. A dot in front does
/// not count.
std::string fileExtension(const std::string& path, bool complete);

/// Without the extension and the dot before it.
std::string stripExtension(const std::string& path);

std::string ensureLeadingSlash(const std::string& path);
std::string removeLeadingSlash(const std::string& path);
std::string ensureTrailingSlash(const std::string& path);

/// Without slashes at the end; "/" stays.
std::string removeTrailingSlash(const std::string& path);

/// Whether systems, which take paths as null-terminated text, see all of it, and none can have
/// longer ones: at a path of hundreds of kilobytes an SFTP server ends its session.
bool canBePath(const std::string& text);

/// Whether a name, joined to a directory, names an entry of that directory and nothing else: it is
/// not "", "." or "..", and holds neither a slash nor a NUL byte.
bool isEntryName(const std::string& name);

/// An entry of the directory that a path is in.
std::string sibling(const std::string& path, const std::string& name);

/// Whether `inner` is `outer` or something below it, as far as the texts tell.
bool isWithin(const std::string& outer, const std::string& inner);

} // namespace FileSystem::PathText
