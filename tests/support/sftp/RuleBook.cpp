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

bool isItsTurn(const SftpOccasion& occasion, std::uint64_t number)
{
    if (number < occasion.first) {
        return false;
    }
    const std::uint64_t since = number - occasion.first;
    return since % occasion.step == 0 && since / occasion.step < occasion.count;
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
        if (isItsTurn(occasion, ++counts_[i])) {
            actions.push_back(rules_[i].action);
        }
    }
    return actions;
}

} // namespace TarnisTest
