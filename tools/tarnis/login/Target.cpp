#include "login/Target.h"

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

/// The message does not repeat the text, which contains a password.
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

namespace {

[[noreturn]] void refuse(std::string_view text, std::string_view why)
{
    throw UsageError("\"" + std::string(text) + "\" names no target: " + std::string(why));
}

std::uint16_t parsePort(std::string_view digits, std::string_view text)
{
    std::uint16_t port = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, port);
    if (error != std::errc() || stop != end || port == 0) {
        refuse(text, "the port must be a number from 1 to 65535");
    }
    return port;
}

/// What a text says of a server. The port is empty where none was written.
struct WrittenTarget
{
    std::string user;
    std::string host;
    std::optional<std::uint16_t> port;
};

/// "[address]" or "[address]:port".
void parseBracketed(std::string_view place, std::string_view text, WrittenTarget& target)
{
    const auto close = place.find(']');
    if (close == std::string_view::npos) {
        refuse(text, R"("]" is missing)");
    }
    target.host = place.substr(1, close - 1);
    const auto rest = place.substr(close + 1);
    if (rest.empty()) {
        return;
    }
    if (rest.front() != ':') {
        refuse(text, R"(only ":port" may follow "]")");
    }
    target.port = parsePort(rest.substr(1), text);
}

/// "host", "host:port", or an IPv6 address, which is known by its second colon.
void parsePlain(std::string_view place, std::string_view text, WrittenTarget& target)
{
    const auto colon = place.find(':');
    const bool hasPort =
        colon != std::string_view::npos && place.find(':', colon + 1) == std::string_view::npos;
    target.host = hasPort ? place.substr(0, colon) : place;
    if (hasPort) {
        target.port = parsePort(place.substr(colon + 1), text);
    }
}

WrittenTarget parseWritten(std::string_view place, std::string_view text)
{
    WrittenTarget target;
    // The last one: directory services have users such as "name@realm".
    const auto at = place.rfind('@');
    if (at != std::string_view::npos) {
        target.user = place.substr(0, at);
        place.remove_prefix(at + 1);
        if (target.user.empty()) {
            refuse(text, "the user name before \"@\" is empty");
        }
    }
    if (!place.empty() && place.front() == '[') {
        parseBracketed(place, text, target);
    } else {
        parsePlain(place, text, target);
    }
    return target;
}

bool isUnfit(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte <= ' ' || byte == 0x7F;
}

Target checkedTarget(const WrittenTarget& written, std::string_view text,
                     std::optional<std::uint16_t> port)
{
    if (written.host.empty()) {
        refuse(text, "the host name is empty");
    }
    const std::string names = written.user + written.host;
    if (std::any_of(names.begin(), names.end(), isUnfit)) {
        refuse(text, "it contains blanks or control characters");
    }
    if (port && written.port && *port != *written.port) {
        refuse(text, "--port says " + std::to_string(*port));
    }
    return {written.user, written.host, port.value_or(written.port.value_or(Target::defaultPort))};
}

std::string decoded(const std::string& name, std::string_view text)
{
    auto result = decodePercent(name);
    if (!result) {
        refuse(text, "\"%\" stands before two hexadecimal digits");
    }
    return *std::move(result);
}

} // namespace

std::string Target::display() const
{
    const std::string who = user.empty() ? std::string() : user + "@";
    if (port == defaultPort) {
        return who + host;
    }
    const bool isIPv6 = host.find(':') != std::string::npos;
    return who + (isIPv6 ? knownHostsName() : host + ":" + std::to_string(port));
}

std::string Target::knownHostsName() const
{
    return port == defaultPort ? host : "[" + host + "]:" + std::to_string(port);
}

Target parseAuthority(const std::string& authority, const std::string& text,
                      std::optional<std::uint16_t> port)
{
    WrittenTarget written = parseWritten(authority, text);
    if (authority.find('[') == std::string::npos && written.host.find(':') != std::string::npos) {
        refuse(text, "an IPv6 address stands in brackets");
    }
    written.user = decoded(written.user, text);
    written.host = decoded(written.host, text);
    return checkedTarget(written, text, port);
}

Target parseTarget(const std::string& text, std::optional<std::uint16_t> port)
{
    const auto url = parseServerUrl(text);
    if (!url) {
        return checkedTarget(parseWritten(text, text), text, port);
    }
    if (url->path.size() > 1) {
        refuse(text, "it names a path; here a server is meant");
    }
    return parseAuthority(url->authority, text, port);
}

} // namespace TarnisTool
