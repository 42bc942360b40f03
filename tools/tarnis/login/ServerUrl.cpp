#include "login/ServerUrl.h"

#include "Failure.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <string_view>

namespace TarnisTool {

namespace {

constexpr std::array<std::string_view, 2> schemes{"ssh://", "sftp://"};

/// Schemes are written in small letters or capitals.
bool beginsWith(const std::string& text, std::string_view scheme)
{
    return text.size() >= scheme.size() &&
           std::equal(scheme.begin(), scheme.end(), text.begin(), [](char wanted, char written) {
               return wanted ==
                      static_cast<char>(std::tolower(static_cast<unsigned char>(written)));
           });
}

/// What follows the scheme.
std::optional<std::string> withoutScheme(const std::string& text)
{
    for (const std::string_view scheme : schemes) {
        if (beginsWith(text, scheme)) {
            return text.substr(scheme.size());
        }
    }
    return std::nullopt;
}

/// The text itself stays unsaid: it is the secret's.
void refusePassword(const std::string& authority)
{
    const auto at = authority.rfind('@');
    if (at != std::string::npos && authority.find(':') < at) {
        throw UsageError("an address takes no password, since others can read the command line: "
                         "see --password-fd and --password-env");
    }
}

/// The byte of two hexadecimal digits.
std::optional<char> byteOf(std::string_view digits)
{
    unsigned int value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, 16);
    const bool isByte = digits.size() == 2 && error == std::errc() && stop == end && value != 0;
    return isByte ? std::optional(static_cast<char>(value)) : std::nullopt;
}

} // namespace

std::optional<std::string> decodePercent(const std::string& text)
{
    constexpr std::size_t digits = 2;
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        const auto byte = byteOf(std::string_view(text).substr(i + 1, digits));
        if (!byte) {
            return std::nullopt;
        }
        decoded += *byte;
        i += digits;
    }
    return decoded;
}

std::optional<ServerUrl> parseServerUrl(const std::string& text)
{
    const auto rest = withoutScheme(text);
    if (!rest) {
        return std::nullopt;
    }
    const auto slash = std::min(rest->find('/'), rest->size());
    ServerUrl url{rest->substr(0, slash), {}};
    refusePassword(url.authority);
    if (rest->find_first_of("?#") != std::string::npos) {
        throw UsageError("\"" + text + R"(" names no server: in an address, "?" and "#" are )" +
                         "written %3F and %23");
    }
    const auto path = decodePercent(rest->substr(slash));
    if (!path) {
        throw UsageError("\"" + text + R"(" names no path: "%" stands before two hexadecimal )" +
                         "digits; a \"%\" itself is written %25");
    }
    url.path = *path;
    return url;
}

} // namespace TarnisTool
