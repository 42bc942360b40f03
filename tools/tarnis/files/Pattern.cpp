#include "files/Pattern.h"

#include "Failure.h"

#include <FileSystem/DirectoryListing.h>

#include <algorithm>
#include <regex>

namespace TarnisTool {

bool isPattern(Place& place, const std::string& path)
{
    return place.system().pathHasFilterPath(path) && !place.system().fileInfo(path);
}

std::vector<FileSystem::StorageSystemFileInfo> expandPattern(Place& place, const std::string& path,
                                                             bool withHidden)
{
    const std::string pattern = place.system().pathFileName(path);
    const auto filter = FileSystem::DirectoryListing::createSearchFilter(pattern);
    const bool showsHidden = withHidden || pattern.front() == '.';
    auto entries = place.list(place.system().pathParentId(path));
    const auto isUnwanted = [&](const auto& entry) {
        const bool isHidden = !entry.name.empty() && entry.name.front() == '.';
        return (isHidden && !showsHidden) || !std::regex_match(entry.name, filter);
    };
    entries.erase(std::remove_if(entries.begin(), entries.end(), isUnwanted), entries.end());
    if (entries.empty()) {
        throw Failure(FailureKind::FileProblem, "cannot find", place.display(path),
                      "nothing matches");
    }
    return entries;
}

} // namespace TarnisTool
