#include "LinkResolution.h"

#include <FileSystem/StorageSystem.h>

namespace FileSystem {

std::optional<LinkEnd> followLinks(const StorageSystem& system, const std::string& link)
{
    constexpr int maximumLinks = 40;
    LinkEnd end{link, std::nullopt};
    for (int links = 0; links < maximumLinks; ++links) {
        auto target = system.fileSymbolicLinkTargetFileId(end.path, false);
        if (!target) {
            return std::nullopt;
        }
        end.path = *std::move(target);
        end.type = system.fileType(end.path);
        if (!end.type || !isSymbolicLink(*end.type)) {
            return end;
        }
    }
    return std::nullopt;
}

} // namespace FileSystem
