#pragma once

#include "files/NameFilter.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// Which entries of a tree are copied: the first rule whose pattern matches one decides, and
/// without any it is copied.
class EntryFilter
{
public:
    /// Adds a rule. A pattern without a slash matches a name at any depth; one with a slash the
    /// path below the root, part by part. One that ends in a slash matches directories alone.
    /// Throws UsageError.
    void add(const std::string& pattern, bool isIncluded);

    bool isEmpty() const noexcept { return rules_.empty(); }

    /// \param below the path from the root of the tree; not the root itself.
    bool takes(const std::string& below, bool isDirectory) const;

private:
    struct Rule
    {
        std::vector<NameFilter> parts;
        bool isPath = false; ///< The parts are those of the whole path.
        bool isForDirectories = false;
        bool isIncluded = false;
    };

    static bool matches(const Rule& rule, const std::vector<std::string>& parts);

    std::vector<Rule> rules_;
};

} // namespace TarnisTool
