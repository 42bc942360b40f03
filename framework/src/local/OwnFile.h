#pragma once

#include <string>

namespace FileSystem {

/// Whether a regular file of this machine is this user's, and has no other name: nobody else can
/// have put it there with something of ours behind it.
bool isOwnFile(const std::string& path);

} // namespace FileSystem
