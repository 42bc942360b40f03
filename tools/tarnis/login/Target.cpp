#include "login/Target.h"

#include "Failure.h"

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

/// "[address]" or "[address]:port".
void parseBracketed(std::string_view place, std::string_view text, Target& target)
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
void parsePlain(std::string_view place, std::string_view text, Target& target)
{
    const auto colon = place.find(':');
    const bool hasPort =
        colon != std::string_view::npos && place.find(':', colon + 1) == std::string_view::npos;
    target.host = hasPort ? place.substr(0, colon) : place;
    if (hasPort) {
        target.port = parsePort(place.substr(colon + 1), text);
    }
}

bool isUnfit(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return byte <= ' ' || byte == 0x7F;
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

Target parseTarget(const std::string& text)
{
    Target target;
    std::string_view place = text;
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
    if (target.host.empty()) {
        refuse(text, "the host name is empty");
    }
    if (std::any_of(text.begin(), text.end(), isUnfit)) {
        refuse(text, "it contains blanks or control characters");
    }
    return target;
}

} // namespace TarnisTool
