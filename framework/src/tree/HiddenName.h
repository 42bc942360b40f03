#pragma once

#include <string>

namespace FileSystem {

// The names that stand beside a file or a directory for a while. All begin with "." and end with
// ".tarnis-" and a word, and none is longer than systems take names to be: what is left of a copy
// that had no time to remove it can be told by them.

/// What stands under such a name that nobody else has.
enum class HiddenNameUse
{
    Unfinished, ///< A copy in the making: ".name.1a2b3c4d.tarnis-part".
    SetAside,   ///< What is to be replaced or removed: ".name.1a2b3c4d.tarnis-old".
};

/// A name beside `name` that nobody else has taken, to the best of chance.
std::string hiddenName(const std::string& name, HiddenNameUse use);

/// The path of such a name beside what stands at a path.
std::string hiddenPath(const std::string& path, HiddenNameUse use);

/// The name that a file gathers under where a later copy is to go on from it, ".name.tarnis-part":
/// the same every time, and in every version.
/// \param number from 1: for one that is taken there is a second name, ".name.tarnis-part2", and so
///               on.
std::string partName(const std::string& name, int number);

/// Whether it may be such a name.
bool isPartName(const std::string& name);

} // namespace FileSystem
