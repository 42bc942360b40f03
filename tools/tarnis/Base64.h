#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace TarnisTool {

/// Base64 with padding.
std::string encodeBase64(std::string_view bytes);

/// What base64 text stands for; empty where it is no base64.
std::optional<std::string> decodeBase64(std::string_view text);

} // namespace TarnisTool
