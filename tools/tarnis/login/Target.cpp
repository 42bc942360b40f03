#include "login/Target.h"

#include "Failure.h"
#include "login/ServerUrl.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace TarnisTool {

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

/// What a text says of a server: a port that was written is told from none.
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
