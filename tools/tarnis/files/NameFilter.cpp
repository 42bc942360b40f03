#include "files/NameFilter.h"

#include <FileSystem/DirectoryListing.h>

#include <algorithm>
#include <cstddef>

namespace TarnisTool {

namespace {

bool isHidden(const std::string& name)
{
    return !name.empty() && name.front() == '.';
}

/// Behind the set of bytes that begins there ("[a;b]"), or there where none does.
std::size_t endOfSet(const std::string& pattern, std::size_t start)
{
    const auto inside = start + 1;
    const bool isNegated =
        inside < pattern.size() && (pattern[inside] == '!' || pattern[inside] == '^');
    const auto end =
        pattern[start] == '[' ? pattern.find(']', inside + (isNegated ? 2 : 1)) : std::string::npos;
    return end == std::string::npos ? start : end + 1;
}

/// Those of a pattern's alternatives that begin with a dot, as a pattern; empty for none.
std::string hiddenAlternatives(const std::string& pattern)
{
    std::string found;
    for (std::size_t start = 0, end = 0; start <= pattern.size(); start = ++end) {
        while (end < pattern.size() && pattern[end] != ';') {
            end = std::max(end + 1, endOfSet(pattern, end));
        }
        const std::string alternative = pattern.substr(start, end - start);
        if (isHidden(alternative)) {
            found += (found.empty() ? "" : ";") + alternative;
        }
    }
    return found;
}

} // namespace

NameFilter::NameFilter(const std::string& pattern, bool withHidden)
    : NameFilter(pattern, withHidden ? pattern : hiddenAlternatives(pattern))
{}

NameFilter::NameFilter(const std::string& pattern, const std::string& hidden)
    : filter_(FileSystem::DirectoryListing::createSearchFilter(pattern))
    , hidden_(FileSystem::DirectoryListing::createSearchFilter(hidden))
    , takesHidden_(!hidden.empty())
{}

bool NameFilter::takes(const std::string& name) const
{
    return isHidden(name) ? takesHidden_ && std::regex_match(name, hidden_)
                          : std::regex_match(name, filter_);
}

} // namespace TarnisTool
