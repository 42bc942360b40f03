#pragma once

#include <string>

namespace FileSystem {

/// Removes a directory of this machine with everything below it. Goes from directory to directory
/// by descriptors and never by a path, so that nobody who may write to the tree can lead it out by
/// putting a link in a directory's place. Ends at the first refusal; what was removed before is
/// gone. False: that, nothing there, something else (a link to a directory included).
///
/// It stands beside TreeRemover, which works by paths on the queue of this machine and is as safe
/// there, for what that cannot do: a tree may be deeper than maximumTreeDepth, and what is in it
/// farther down than a path may be long. One directory is open at a time, however deep.
bool removeLocalTree(const std::string& path);

} // namespace FileSystem
