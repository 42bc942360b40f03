#pragma once

#include <string>

namespace FileSystem {

class FileSystem2;

/// Removes a directory with everything below it, depth first, never through a symbolic link. Ends
/// at the first refusal, or at an entry whose name would lead elsewhere; what was removed before is
/// gone. False also when no directory is there, and for a path that names none by itself ("/",
/// "." and "..").
bool removeTree(const FileSystem2& system, const std::string& path);

} // namespace FileSystem
