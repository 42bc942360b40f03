#pragma once

#include <FileSystem/StorageSystemFlags.h>

#include <optional>
#include <regex>
#include <string>

namespace Tarnis {

/// Decides which names of a directory are listed.
class SFTPNameFilter
{
public:
    /// An empty filter lets every name through. Throws std::regex_error for a regular expression
    /// that is none.
    SFTPNameFilter(const std::string& filter, FileSystem::StorageSystemDirectoryFilterType type);

    /// Whether the whole name matches.
    bool matches(const std::string& name) const;

private:
    std::optional<std::basic_regex<char>> expression_;
};

} // namespace Tarnis
