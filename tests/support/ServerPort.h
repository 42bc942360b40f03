#pragma once

#include <cstdint>

namespace TarnisTest {

/// A port for a server that cannot choose one by itself. It was free a moment ago and lies outside
/// the range that outgoing connections use, but another process may take it first: the server's
/// start must be tried again with another one then.
std::uint16_t pickPort();

} // namespace TarnisTest
