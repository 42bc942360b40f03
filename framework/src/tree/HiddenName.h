#pragma once

#include <string>

namespace FileSystem {

/// What stands under a hidden name for a while.
enum class HiddenNameUse
{
    Unfinished, ///< A copy in the making: ".name.1a2b3c4d.part".
    SetAside,   ///< What is to be replaced or removed: ".name.1a2b3c4d.old".
};

/// A name beside `name` that nobody else has taken, to the best of chance; no longer than systems
/// take names to be.
std::string hiddenName(const std::string& name, HiddenNameUse use);

/// The path of such a name beside what stands at a path.
std::string hiddenPath(const std::string& path, HiddenNameUse use);

} // namespace FileSystem
