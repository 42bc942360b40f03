#pragma once

#include <cstddef>
#include <string_view>

namespace TarnisTool {

/// Bytes of the character that the text begins with; 0 where no well-formed one does, or the text
/// is empty.
std::size_t utf8SequenceLength(std::string_view text);

/// Whether all of the text is well-formed UTF-8.
bool isUtf8(std::string_view text);

} // namespace TarnisTool
