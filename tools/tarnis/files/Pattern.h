#pragma once

#include "files/Place.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// Whether the last component of the path is a search pattern rather than a name: it has characters
/// of one, and nothing stands there under that very name.
bool isPattern(Place& place, const std::string& path);

/// The entries that the pattern at the end of the path stands for, in ascending order of their
/// names. Hidden ones (".name") only where the pattern itself begins with a dot, or all are wanted.
/// Throws Failure where there are none.
std::vector<FileSystem::StorageSystemFileInfo> expandPattern(Place& place, const std::string& path,
                                                             bool withHidden = false);

} // namespace TarnisTool
