#pragma once

#include <string>

namespace FileSystem {

class FileSystem2;

// Moves for what cannot be renamed, as between volumes: a copy with permissions and times, then the
// removal of the original. Nothing is removed that was not copied, or that has changed since.

/// Moves a file, or a link itself, to a path where nothing stands. False: the file is where it was,
/// and nothing is at the new path.
bool moveFileByCopy(const FileSystem2& system, const std::string& path, const std::string& newPath);

/// Moves a directory to a path where nothing stands. False: it could not be copied or may not be
/// removed from its place, and is where it was; or something in it was changed, was added or could
/// not be removed after it was copied: this is where it was, and the copy is complete.
bool moveTreeByCopy(const FileSystem2& system, const std::string& path, const std::string& newPath);

} // namespace FileSystem
