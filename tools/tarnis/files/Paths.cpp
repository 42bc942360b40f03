#include "files/Paths.h"

#include "Failure.h"
#include "login/Target.h"

#include <algorithm>
#include <string_view>

#include <sys/stat.h>

namespace TarnisTool {

bool isEntryName(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

std::string fileIdOf(const std::string& path)
{
    if (path.empty() || path == ".") {
        return ".";
    }
    const bool needsDirectory = path.front() != '/' && path.compare(0, 2, "./") != 0;
    return needsDirectory ? "./" + path : path;
}

std::string textOf(const std::string& fileId)
{
    const bool hasDirectory = fileId.size() > 2 && fileId.compare(0, 2, "./") == 0;
    return hasDirectory ? fileId.substr(2) : fileId;
}

std::string joinPath(const std::string& directory, const std::string& name)
{
    const bool needsSlash = !directory.empty() && directory.back() != '/';
    return directory + (needsSlash ? "/" : "") + name;
}

std::vector<std::string> partsOf(const std::string& path)
{
    std::vector<std::string> parts;
    for (std::size_t next = 0; next < path.size();) {
        const std::size_t slash = std::min(path.find('/', next), path.size());
        if (slash > next) {
            parts.push_back(path.substr(next, slash - next));
        }
        next = slash + 1;
    }
    return parts;
}

std::string nameOf(const std::string& path)
{
    const auto last = path.find_last_not_of('/');
    if (last == std::string::npos) {
        return {};
    }
    const std::string trimmed = path.substr(0, last + 1);
    const auto slash = trimmed.rfind('/');
    std::string name = slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
    return isEntryName(name) ? name : std::string();
}

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

[[noreturn]] void refuseNumber(const std::string& text, const std::string& place,
                               const std::string& number)
{
    refuse(text, "is " + number + " a port or a file? Write " + place + ":" + number + ": (or -P " +
                     number + ") for the port, " + place + ":./" + number + " for the file");
}

/// "/~" and what is below it: the login directory.
std::string pathOfUrl(const std::string& path)
{
    constexpr std::string_view home = "/~/";
    if (path == "/~") {
        return {};
    }
    return path.compare(0, home.size(), home) == 0 ? path.substr(home.size()) : path;
}

} // namespace

RemotePath parseRemotePath(const std::string& text, std::optional<std::uint16_t> port)
{
    if (const auto url = parseServerUrl(text)) {
        return {parseAuthority(url->authority, text, port), pathOfUrl(url->path)};
    }
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
    if (isNumber(path)) {
        refuseNumber(text, place, path);
    }
    if (second != std::string::npos && isNumber(std::string_view(path).substr(0, second))) {
        place += ":" + path.substr(0, second);
        path.erase(0, second + 1);
    }
    return {parseTarget(place, port), std::move(path)};
}

bool looksRemote(const std::string& text)
{
    const auto colon = endOfHost(text);
    return colon != std::string::npos && colon > 0 &&
           (text.find('/') > colon || parseServerUrl(text));
}

void requireLocalPath(const std::string& text, const std::string& rule)
{
    struct stat status = {};
    if (looksRemote(text) && ::lstat(text.c_str(), &status) != 0) {
        throw UsageError("\"" + text + "\" is a remote path: " + rule +
                         " (a local name like that has \"./\" in front)");
    }
}

std::string displayRemote(const Target& target, const std::string& path)
{
    // The text is one that could be typed again.
    const std::string shown = (isNumber(path) ? "./" : "") + path;
    const bool isIPv6 = target.host.find(':') != std::string::npos;
    if (!isIPv6 || target.port != Target::defaultPort) {
        return target.display() + ":" + shown;
    }
    const std::string who = target.user.empty() ? std::string() : target.user + "@";
    return who + "[" + target.host + "]:" + shown;
}

} // namespace TarnisTool
