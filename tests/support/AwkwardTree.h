#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include <sys/types.h>

namespace TarnisTest {

/// Makes a directory that has so many files below it, of which few have a name, a place, a time or
/// permissions that a careless program would get right: spaces, quotes, line ends, bytes that are
/// no UTF-8, dashes in front, names as long as they may be, 30 levels, empty directories, links of
/// every kind. The same tree each time. Throws std::system_error when it cannot be made.
void makeAwkwardTree(const std::string& root, std::size_t fileCount);

/// What is to be the same of a file, a directory or a link after it was copied.
struct TreeEntry
{
    /// 'f', 'd', 'l', or '?' for all else.
    char kind = '?';
    /// Of a link none: nobody asks for them.
    mode_t permissions = 0;
    /// In seconds since 1970; of a link none.
    std::int64_t modificationTime = 0;
    /// The digest of a file's bytes, or a link's text.
    std::string content{};

    bool operator==(const TreeEntry& other) const;
};

/// Everything in a tree by its path below the root; the root itself is "".
using TreeSnapshot = std::map<std::string, TreeEntry>;

/// Throws std::system_error when something cannot be read.
TreeSnapshot snapshotOf(const std::string& root);

/// What is different, a few lines at most; empty for nothing.
std::string differencesBetween(const TreeSnapshot& expected, const TreeSnapshot& actual);

} // namespace TarnisTest
