#pragma once

#include <string>

namespace TarnisTest {

// Entries of this machine's file system that no storage system makes. False: it is not made.

bool makeLocalPipe(const std::string& path);
bool makeLocalSocket(const std::string& path);

/// With the numbers of /dev/null. As the superuser, where the process may be.
bool makeLocalCharacterDevice(const std::string& path);

/// With the numbers of a disk that is not there. As the superuser, where the process may be.
bool makeLocalBlockDevice(const std::string& path);

bool makeLocalHardLink(const std::string& path, const std::string& newPath);
bool makeLocalSymbolicLink(const std::string& target, const std::string& path);

} // namespace TarnisTest
