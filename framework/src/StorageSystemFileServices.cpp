#include <FileSystem/StorageSystemFileServices.h>

namespace FileSystem {

StorageSystemFileServices::~StorageSystemFileServices() = default;

std::optional<bool>
StorageSystemFileServices::readRanges(std::vector<StorageSystemReadRange>& /*ranges*/)
{
    return std::nullopt;
}

std::optional<bool>
StorageSystemFileServices::writeRanges(const std::vector<StorageSystemWriteRange>& /*ranges*/)
{
    return std::nullopt;
}

std::optional<bool> StorageSystemFileServices::close()
{
    return std::nullopt;
}

std::optional<bool> StorageSystemFileServices::own(const StorageSystemOwner& /*owner*/)
{
    return std::nullopt;
}

std::optional<bool> StorageSystemFileServices::set(Permissions /*permissions*/)
{
    return std::nullopt;
}

std::optional<StorageSystemOpenFileState> StorageSystemFileServices::look()
{
    return std::nullopt;
}

std::optional<bool> StorageSystemFileServices::cut(std::uint64_t /*size*/)
{
    return std::nullopt;
}

} // namespace FileSystem
