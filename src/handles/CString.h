#pragma once

#include <string>

namespace Tarnis {

/// Whether a text reaches a C function whole. One with a NUL byte inside would be cut there, and a
/// shorter host name, password or command line is another one.
inline bool fitsCString(const std::string& text) noexcept
{
    return text.find('\0') == std::string::npos;
}

/// libssh takes null for an argument that is left out. Lent for the text's life.
inline const char* nullIfEmpty(const std::string& text) noexcept
{
    return text.empty() ? nullptr : text.c_str();
}

} // namespace Tarnis
