#pragma once

#include <FileSystem/DirectoryListing.h>
#include <FileSystem/StorageSystemFlags.h>

#include <optional>
#include <regex>
#include <string>

namespace FileSystem {

/// Which names of a listing are wanted.
class NameFilter
{
public:
    static NameFilter all() { return {std::string(), {}}; }

    /// Throws std::regex_error when a regular expression is none.
    NameFilter(const std::string& filter, StorageSystemDirectoryFilterType type)
    {
        if (filter.empty()) {
            return;
        }
        expression_ = type == StorageSystemDirectoryFilterType::SearchPattern
                          ? DirectoryListing::createSearchFilter(filter)
                          : std::regex(filter, std::regex::ECMAScript);
    }

    bool passes(const char* name) const
    {
        return !expression_ || std::regex_match(name, *expression_);
    }

private:
    std::optional<std::regex> expression_;
};

} // namespace FileSystem
