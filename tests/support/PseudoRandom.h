#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace TarnisTest {

/// Bytes that look random (every value occurs, NUL and newline too; they do not compress) and are
/// the same for the same seed on every machine. A longer result begins with the shorter one.
std::string pseudoRandomBytes(std::uint64_t seed, std::size_t size);

} // namespace TarnisTest
