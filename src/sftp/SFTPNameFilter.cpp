#include "sftp/SFTPNameFilter.h"

#include <FileSystem/DirectoryListing.h>

namespace Tarnis {

using FileSystem::StorageSystemDirectoryFilterType;

namespace {

// Far beyond what any file system takes. Matching needs stack for every byte of a name, and a
// hostile server has longer ones.
constexpr std::size_t longestName = 1024;

std::basic_regex<char> compile(const std::string& filter, StorageSystemDirectoryFilterType type)
{
    return type == StorageSystemDirectoryFilterType::SearchPattern
               ? FileSystem::DirectoryListing::createSearchFilter(filter)
               : std::basic_regex<char>(filter, std::regex_constants::ECMAScript);
}

} // namespace

SFTPNameFilter::SFTPNameFilter(const std::string& filter, StorageSystemDirectoryFilterType type)
{
    if (!filter.empty()) {
        expression_ = compile(filter, type);
    }
}

bool SFTPNameFilter::matches(const std::string& name) const
{
    return !expression_.has_value() ||
           (name.size() <= longestName && std::regex_match(name, *expression_));
}

} // namespace Tarnis
