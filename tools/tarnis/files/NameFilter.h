#pragma once

#include <regex>
#include <string>

namespace TarnisTool {

/// The names that a part of a path takes, as a pattern. Hidden ones only for an alternative that
/// begins with a dot itself, unless all are wanted.
class NameFilter
{
public:
    NameFilter(const std::string& pattern, bool withHidden);

    bool takes(const std::string& name) const;

private:
    NameFilter(const std::string& pattern, const std::string& hidden);

    std::regex filter_;
    std::regex hidden_;
    bool takesHidden_;
};

} // namespace TarnisTool
