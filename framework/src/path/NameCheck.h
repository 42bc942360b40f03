#pragma once

#include "path/PathText.h"

#include <FileSystem/FailureScope.h>

#include <string>

namespace FileSystem {

// What the operations ask of the texts that they are given, once for all systems; a text that does
// not do is told as the failure.

/// A text with a NUL byte would reach a system cut short, and name something else.
inline bool isPath(const std::string& path)
{
    return PathText::canBePath(path) || fail(FailureCode::BadName);
}

/// The same for the path of what an operation is about: systems take an empty one for nothing or
/// for their start directory, which whoever passes an empty variable does not mean. The directory
/// that a name is joined to may be empty.
inline bool namesEntry(const std::string& path)
{
    return isPath(path) && (!path.empty() || fail(FailureCode::BadName));
}

/// Whether it names an entry of a directory and nothing else.
inline bool isName(const std::string& name)
{
    return PathText::isEntryName(name) || fail(FailureCode::BadName, {}, name);
}

} // namespace FileSystem
