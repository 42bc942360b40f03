#pragma once

#include <iostream>
#include <nlohmann/json.hpp>

namespace TarnisTool {

/// Writes a value to standard output, for people to read too. What is no UTF-8 becomes U+FFFD.
inline void printJson(const nlohmann::ordered_json& value)
{
    constexpr int indentation = 2;
    std::cout << value.dump(indentation, ' ', false,
                            nlohmann::ordered_json::error_handler_t::replace)
              << '\n';
}

} // namespace TarnisTool
