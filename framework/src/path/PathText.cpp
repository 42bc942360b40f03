#include "path/PathText.h"

#include <algorithm>
#include <cstddef>

namespace FileSystem::PathText {

namespace {

constexpr char separator = '/';
// Linux takes 4,096 bytes, Windows 32,767 characters.
constexpr std::size_t longestPath = 100'000;

/// Where the last component starts in a path without trailing slashes.
std::size_t nameStart(const std::string& path)
{
    const auto slash = path.find_last_of(separator);
    return slash == std::string::npos ? 0 : slash + 1;
}

std::vector<std::string> components(const std::string& path)
{
    std::vector<std::string> found;
    std::size_t start = 0;
    while (start < path.size()) {
        const auto end = std::min(path.find(separator, start), path.size());
        if (end > start) {
            found.push_back(path.substr(start, end - start));
        }
        start = end + 1;
    }
    return found;
}

/// Where the dot before the extension stands in a name; npos without one.
std::size_t extensionDot(const std::string& name, bool complete)
{
    if (name.empty() || name == "..") {
        return std::string::npos;
    }
    const auto dot = complete ? name.find('.', 1) : name.find_last_of('.');
    return dot == 0 ? std::string::npos : dot;
}

} // namespace

std::string canonize(const std::string& path)
{
    auto names = components(path);
    names.erase(std::remove(names.begin(), names.end(), "."), names.end());
    if (names.empty() && !path.empty() && !isAbsolute(path)) {
        return ".";
    }
    return childId(isAbsolute(path) ? "/" : "", names);
}

std::string fileName(const std::string& path)
{
    const auto trimmed = removeTrailingSlash(path);
    return trimmed.substr(nameStart(trimmed));
}

std::string parentId(const std::string& path)
{
    const auto trimmed = removeTrailingSlash(path);
    const auto start = nameStart(trimmed);
    return start == trimmed.size() ? std::string() : removeTrailingSlash(trimmed.substr(0, start));
}

std::string childId(const std::string& path, const std::vector<std::string>& names)
{
    std::string child = path;
    for (const auto& name : names) {
        if (!child.empty() && !name.empty()) {
            child = ensureTrailingSlash(child);
        }
        child += name;
    }
    return child;
}

bool hasFilter(const std::string& path)
{
    return fileName(path).find_first_of("*?[;") != std::string::npos;
}

bool isAbsolute(const std::string& path)
{
    return !path.empty() && path.front() == separator;
}

std::string fileExtension(const std::string& path, bool complete)
{
    const auto name = fileName(path);
    const auto dot = extensionDot(name, complete);
    return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

std::string stripExtension(const std::string& path)
{
    const auto trimmed = removeTrailingSlash(path);
    const auto start = nameStart(trimmed);
    const auto dot = extensionDot(trimmed.substr(start), false);
    return dot == std::string::npos ? trimmed : trimmed.substr(0, start + dot);
}

std::string ensureLeadingSlash(const std::string& path)
{
    return isAbsolute(path) ? path : separator + path;
}

std::string removeLeadingSlash(const std::string& path)
{
    const auto start = std::min(path.find_first_not_of(separator), path.size());
    return path.substr(start);
}

std::string ensureTrailingSlash(const std::string& path)
{
    return !path.empty() && path.back() == separator ? path : path + separator;
}

std::string removeTrailingSlash(const std::string& path)
{
    const auto last = path.find_last_not_of(separator);
    if (last == std::string::npos) {
        return path.empty() ? path : std::string(1, separator);
    }
    return path.substr(0, last + 1);
}

bool canBePath(const std::string& text)
{
    return text.size() <= longestPath && text.find('\0') == std::string::npos;
}

bool isEntryName(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." &&
           name.find(separator) == std::string::npos && canBePath(name);
}

std::string sibling(const std::string& path, const std::string& name)
{
    return childId(parentId(path), {name});
}

bool isWithin(const std::string& outer, const std::string& inner)
{
    const auto path = canonize(inner);
    const auto directory = canonize(outer);
    const auto prefix = ensureTrailingSlash(directory);
    return path == directory || path.compare(0, prefix.size(), prefix) == 0;
}

} // namespace FileSystem::PathText
