#include "support/sftp/RuleBook.h"

namespace TarnisTest {

namespace {

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool isFor(const SftpOccasion& occasion, const SftpEvent& request)
{
    const bool kind = occasion.request == SftpPacket::Any || occasion.request == request.request;
    return kind && endsWith(request.path, occasion.pathEnd);
}

} // namespace

std::vector<SftpAction> RuleBook::actionsFor(const SftpEvent& request)
{
    std::vector<SftpAction> actions;
    for (std::size_t i = 0; i < rules_.size(); ++i) {
        const SftpOccasion& occasion = rules_[i].occasion;
        if (!isFor(occasion, request)) {
            continue;
        }
        const std::uint64_t number = ++counts_[i];
        if (number >= occasion.first && number - occasion.first < occasion.count) {
            actions.push_back(rules_[i].action);
        }
    }
    return actions;
}

} // namespace TarnisTest
