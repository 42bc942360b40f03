#include "files/EntryFilter.h"

#include "Failure.h"
#include "files/EntryNames.h"

#include <algorithm>
#include <utility>

namespace TarnisTool {

void EntryFilter::add(const std::string& pattern, bool isIncluded)
{
    Rule rule;
    rule.isForDirectories = !pattern.empty() && pattern.back() == '/';
    const auto slash = pattern.find('/');
    rule.isPath = slash != std::string::npos && slash + 1 < pattern.size();
    rule.isIncluded = isIncluded;
    for (const std::string& part : partsOf(pattern)) {
        rule.parts.emplace_back(part, true);
    }
    if (rule.parts.empty()) {
        throw UsageError("\"" + pattern + "\" is no pattern for names");
    }
    rules_.push_back(std::move(rule));
}

bool EntryFilter::takes(const std::string& below, bool isDirectory) const
{
    const auto parts = partsOf(below);
    const auto decides = [&](const Rule& rule) {
        return (isDirectory || !rule.isForDirectories) && matches(rule, parts);
    };
    const auto rule = std::find_if(rules_.begin(), rules_.end(), decides);
    return rule == rules_.end() || rule->isIncluded;
}

bool EntryFilter::matches(const Rule& rule, const std::vector<std::string>& parts)
{
    if (!rule.isPath) {
        return rule.parts.front().takes(parts.back());
    }
    return std::equal(
        rule.parts.begin(), rule.parts.end(), parts.begin(), parts.end(),
        [](const NameFilter& filter, const std::string& part) { return filter.takes(part); });
}

} // namespace TarnisTool
