#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace TarnisTest {

// What has to hold whatever a server sends. Each throws std::logic_error where it does not.

/// The packets of a stream are the same in pieces of these lengths, used in turn, as in one piece;
/// put together they are the stream, up to where a packet is cut off or wrong.
void checkSplitting(std::string_view stream, const std::vector<std::size_t>& lengths,
                    std::uint32_t limit);

/// What any decoder makes of these fields lies within them, and is the same again once it is
/// encoded and decoded.
void checkDecoders(std::string_view fields);

/// Requests that hold this text are taken apart again as they were put together.
void checkRequests(std::string_view text);

/// Throws std::logic_error unless the condition holds.
void require(bool condition, const char* what);

} // namespace TarnisTest
