#include "files/RemotePath.h"

#include "Failure.h"

#include <algorithm>
#include <string_view>

namespace TarnisTool {

namespace {

[[noreturn]] void refuse(const std::string& text, const std::string& why)
{
    throw UsageError("\"" + text + "\" names no remote path: " + why);
}

/// The colon after the host.
std::size_t endOfHost(const std::string& text)
{
    const auto colon = text.find(':');
    const auto bracket = text.find('[');
    const bool isBracketed = bracket < colon && (bracket == 0 || text[bracket - 1] == '@');
    if (!isBracketed) {
        return colon;
    }
    const auto close = text.find("]:", bracket);
    return close == std::string::npos ? close : close + 1;
}

bool isNumber(std::string_view text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

RemotePath parseRemotePath(const std::string& text)
{
    const auto colon = endOfHost(text);
    if (colon == std::string::npos || text.find('/') < colon) {
        refuse(text, "write [user@]host:path (\"host:\" is the login directory)");
    }
    std::string place = text.substr(0, colon);
    std::string path = text.substr(colon + 1);
    const auto second = path.find(':');
    if (second == 0) {
        refuse(text, "an IPv6 address stands in brackets, and a path that begins with a colon "
                     "is written with \"./\" in front");
    }
    if (second != std::string::npos && isNumber(std::string_view(path).substr(0, second))) {
        place += ":" + path.substr(0, second);
        path.erase(0, second + 1);
    }
    return {parseTarget(place), std::move(path)};
}

std::string displayRemote(const Target& target, const std::string& path)
{
    const bool isIPv6 = target.host.find(':') != std::string::npos;
    if (!isIPv6 || target.port != Target::defaultPort) {
        return target.display() + ":" + path;
    }
    const std::string who = target.user.empty() ? std::string() : target.user + "@";
    return who + "[" + target.host + "]:" + path;
}

} // namespace TarnisTool
