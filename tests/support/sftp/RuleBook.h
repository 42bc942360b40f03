#pragma once

#include "support/sftp/SftpLog.h"
#include "support/sftp/SftpRule.h"

#include <vector>

namespace TarnisTest {

/// Counts requests against the rules of a script.
class RuleBook
{
public:
    explicit RuleBook(std::vector<SftpRule> rules)
        : rules_(std::move(rules))
        , counts_(rules_.size(), 0)
    {}

    /// What is to happen with this request, in the order of the rules.
    std::vector<SftpAction> actionsFor(const SftpEvent& request);

private:
    std::vector<SftpRule> rules_;
    std::vector<std::uint64_t> counts_;
};

} // namespace TarnisTest
