#include "files/EntryNames.h"

#include <algorithm>

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

} // namespace TarnisTool
