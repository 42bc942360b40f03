#include "path/LinkResolution.h"

#include "path/PathText.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystem.h>

#include <utility>

namespace FileSystem {

namespace {

constexpr int maximumLinks = 40;

/// Splits the first component off a path without a slash in front.
std::string takeComponent(std::string& path)
{
    const auto slash = path.find('/');
    std::string component = path.substr(0, slash);
    path = slash == std::string::npos ? std::string() : path.substr(slash + 1);
    return component;
}

/// Where a path that holds no links is after one step.
std::string step(const std::string& from, const std::string& component)
{
    const bool cannotGoUp = from.empty() || PathText::fileName(from) == "..";
    if (component == ".." && (from == "/" || !cannotGoUp)) {
        return from == "/" ? from : PathText::parentId(from);
    }
    return PathText::childId(from, {component});
}

} // namespace

std::optional<LinkEnd> followLinks(const StorageSystem& system, const std::string& link)
{
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
    fail(FailureCode::LinkLoop, {}, link);
    return std::nullopt;
}

std::optional<std::string> resolveLinks(const StorageSystem& system, const std::string& path)
{
    std::string resolved = PathText::isAbsolute(path) ? "/" : "";
    std::string left = PathText::removeLeadingSlash(PathText::canonize(path));
    for (int links = 0; !left.empty();) {
        std::string next = step(resolved, takeComponent(left));
        const auto target = system.fileIsSymbolicLink(next) ? system.fileSymbolicLinkTarget(next)
                                                            : std::optional<std::string>("");
        if (target && !target->empty() && ++links > maximumLinks) {
            fail(FailureCode::LinkLoop, {}, path);
            return std::nullopt;
        }
        if (!target) {
            return std::nullopt;
        }
        if (target->empty()) {
            resolved = std::move(next);
            continue;
        }
        resolved = PathText::isAbsolute(*target) ? "/" : resolved;
        left = PathText::removeLeadingSlash(PathText::canonize(PathText::childId(*target, {left})));
    }
    return resolved;
}

std::optional<std::string> placeOf(const StorageSystem& system, const std::string& path)
{
    auto place = resolveLinks(system, system.absolutePath(path).value_or(path));
    const bool isKnown =
        place && !place->empty() && *place != "." && !PathText::isWithin("..", *place);
    return isKnown ? place : std::nullopt;
}

std::optional<bool> isOnePlace(const StorageSystem& system, const std::string& path,
                               const std::string& otherPath)
{
    const auto place = placeOf(system, path);
    const auto other = placeOf(system, otherPath);
    const bool isKnown =
        place && other && PathText::isAbsolute(*place) == PathText::isAbsolute(*other);
    return isKnown ? std::make_optional(*place == *other) : std::nullopt;
}

} // namespace FileSystem
