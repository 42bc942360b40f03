#pragma once

#include <cstddef>

namespace FileSystem {

/// Deeper than any path that a system takes goes: only a server that makes its tree up gets there.
constexpr std::size_t maximumTreeDepth = 2'048;

} // namespace FileSystem
