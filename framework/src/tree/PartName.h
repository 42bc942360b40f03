#pragma once

#include <string>

namespace FileSystem {

/// The hidden name that a file gathers under where a later copy is to go on from it: the same every
/// time, and no longer than systems take names to be.
/// \param number from 1: for one that is taken there is a second name, and so on.
std::string partName(const std::string& name, int number);

/// Whether it may be such a name.
bool isPartName(const std::string& name);

} // namespace FileSystem
