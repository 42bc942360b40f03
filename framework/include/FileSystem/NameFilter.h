#pragma once

#include <FileSystem/DirectoryListing.h>
#include <FileSystem/StorageSystemFlags.h>

#include <cstddef>
#include <optional>
#include <regex>
#include <string>
#include <string_view>

namespace FileSystem {

/// Which names of a directory are listed: for storage systems, which are given a filter with each
/// listing. Several threads may ask one object.
class NameFilter
{
public:
    /// Every name is listed.
    NameFilter() = default;

    /// An empty filter takes every name. Throws std::regex_error for a regular expression that is
    /// none; a search pattern is never wrong.
    NameFilter(const std::string& filter, StorageSystemDirectoryFilterType type)
    {
        if (!filter.empty()) {
            expression_ = type == StorageSystemDirectoryFilterType::SearchPattern
                              ? DirectoryListing::createSearchFilter(filter)
                              : std::regex(filter, std::regex::ECMAScript);
        }
    }

    /// Whether the whole name matches. One of more than 1,024 bytes matches no filter but the empty
    /// one.
    bool passes(std::string_view name) const
    {
        return !expression_ || (name.size() <= longestName &&
                                std::regex_match(name.begin(), name.end(), *expression_));
    }

private:
    // Longer than any file system has them. Matching needs stack for every byte of a name, and a
    // hostile server sends longer ones.
    static constexpr std::size_t longestName = 1024;

    std::optional<std::regex> expression_;
};

} // namespace FileSystem
