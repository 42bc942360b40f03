#include "failure/FailureWatch.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystem.h>
#include <FileSystem/StorageSystemServices.h>

#include <utility>

namespace FileSystem {

namespace {

/// One kind alone: a socket, for one, can have the flags of a file and of a directory.
Utilities::Flags<StorageSystemFileTypeFlag> kindOf(Utilities::Flags<StorageSystemFileTypeFlag> type)
{
    if (isSymbolicLink(type)) {
        return StorageSystemFileTypeFlag::SymbolicLink;
    }
    return isRegularFile(type) || isDirectory(type) ? type
                                                    : Utilities::Flags<StorageSystemFileTypeFlag>();
}

} // namespace

StorageSystemServices::StorageSystemServices(const StorageSystem& system)
    : system_(system)
{}

StorageSystemServices::~StorageSystemServices() = default;

std::unique_ptr<StorageSystemQueue>
StorageSystemServices::createQueue(const std::shared_ptr<const std::atomic<bool>>& /*isAlive*/,
                                   const std::function<bool()>& /*goesOn*/) const
{
    return nullptr;
}

std::optional<std::vector<StorageSystemFileInfo>>
StorageSystemServices::readDirectory(const std::string& path) const
{
    const FailureWatch watch;
    auto entries = system_.directoryFileInfoList(path);
    const bool isWhole = !watch.noted() && system_.directoryExists(path, true);
    return isWhole ? std::make_optional(std::move(entries)) : std::nullopt;
}

std::optional<std::string> StorageSystemServices::startDirectory() const
{
    return std::nullopt;
}

bool StorageSystemServices::replace(const std::string& /*path*/,
                                    const std::string& /*newPath*/) const
{
    return fail(FailureCode::Unsupported);
}

std::unique_ptr<StorageSystemFile> StorageSystemServices::openItself(const std::string& path,
                                                                     OpenMode mode) const
{
    return system_.fileOpen(path, mode);
}

bool StorageSystemServices::leadsToNoFile(const std::string& /*path*/) const
{
    return false;
}

std::optional<StorageSystemAttributes> StorageSystemServices::look(const std::string& path) const
{
    const auto info = system_.fileInfo(path);
    return info ? std::make_optional(attributesOf(*info)) : std::nullopt;
}

StorageSystemAttributes StorageSystemServices::attributesOf(const StorageSystemFileInfo& info)
{
    StorageSystemAttributes attributes;
    attributes.size = info.size;
    attributes.modTime = info.modTime;
    // A system that tells neither has left them out: what is there has some kind or permissions.
    if (!info.type.isEmpty() || !info.permissions.isEmpty()) {
        attributes.type = kindOf(info.type);
        attributes.permissions = info.permissions;
    }
    return attributes;
}

} // namespace FileSystem
