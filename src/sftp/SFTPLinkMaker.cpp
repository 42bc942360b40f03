#include "sftp/SFTPLinkMaker.h"

#include "sftp/SFTPCall.h"
#include "sftp/SFTPLinkTarget.h"
#include "sftp/SFTPLookUp.h"
#include "sftp/SFTPServerKind.h"

#include <string_view>

namespace Tarnis {

namespace {

/// Whether one text is the other, or ends with it as a path does.
bool endsWithPath(std::string_view text, std::string_view path)
{
    if (text.size() < path.size() || text.substr(text.size() - path.size()) != path) {
        return false;
    }
    return text.size() == path.size() || path.front() == '/' ||
           text[text.size() - path.size() - 1] == '/';
}

} // namespace

bool SFTPLinkMaker::make(const std::string& target, const std::string& linkPath)
{
    const Order known = sftp_.getLinkPathOrder();
    return known != Order::Unknown ? makeInKnownOrder(known, target, linkPath)
                                   : findOrder(target, linkPath);
}

bool SFTPLinkMaker::makeInKnownOrder(Order order, const std::string& target,
                                     const std::string& linkPath)
{
    return attempt(order, target, linkPath) == Answer::Made;
}

bool SFTPLinkMaker::findOrder(const std::string& target, const std::string& linkPath)
{
    const auto [first, trusted] = guess();
    const Order second = first == Order::Exchanged ? Order::AsLibsshSends : Order::Exchanged;
    const bool targetStood = standsAt(target);
    for (const Order order : {first, second}) {
        const Answer answer = attempt(order, target, linkPath);
        if (answer == Answer::Made) {
            sftp_.setLinkPathOrder(order);
            return true;
        }
        if (targetStood) {
            // Whichever order is the wrong one fails at what stands there, so trying is harmless.
            continue;
        }
        removeStray(target, linkPath);
        if (answer == Answer::Refused && trusted) {
            return false;
        }
    }
    return false;
}

SFTPLinkMaker::Guess SFTPLinkMaker::guess() const
{
    return callLocked(sftp_, [](sftp_session sftp) {
        const SFTPServerKind server = sftpServerKindOf(sftp->session);
        const bool libsshSendsTargetFirst = ssh_get_openssh_version(sftp->session) != 0;
        const bool exchange = server != SFTPServerKind::Other && !libsshSendsTargetFirst;
        return Guess{exchange ? Order::Exchanged : Order::AsLibsshSends,
                     server == SFTPServerKind::OpenSsh};
    });
}

SFTPLinkMaker::Answer SFTPLinkMaker::attempt(Order order, const std::string& target,
                                             const std::string& linkPath)
{
    const bool exchanged = order == Order::Exchanged;
    const char* const first = exchanged ? linkPath.c_str() : target.c_str();
    const char* const second = exchanged ? target.c_str() : linkPath.c_str();
    if (callSftp(sftp_, linkPath, sftp_symlink, first, second) != SSH_OK) {
        return Answer::Refused;
    }
    if (!isLink(linkPath)) {
        return Answer::NotAsAsked;
    }
    if (readLinkTarget(sftp_, linkPath) == target) {
        return Answer::Made;
    }
    // Nothing stood here before, so this one is ours.
    remove(linkPath);
    return Answer::NotAsAsked;
}

/// Removes a link that the wrong order has put at the target's path, where nothing stood before.
void SFTPLinkMaker::removeStray(const std::string& target, const std::string& linkPath)
{
    // Some servers put what they take for the root in front of what a link says.
    if (isLink(target) && endsWithPath(readLinkTarget(sftp_, target).value_or(""), linkPath)) {
        remove(target);
    }
}

bool SFTPLinkMaker::standsAt(const std::string& path)
{
    return lookUp(sftp_, path) != nullptr;
}

bool SFTPLinkMaker::isLink(const std::string& path)
{
    const SFTPAttributes attributes = lookUp(sftp_, path);
    return attributes != nullptr && isLinkMode(attributes->permissions);
}

void SFTPLinkMaker::remove(const std::string& path)
{
    static_cast<void>(callSftp(sftp_, path, sftp_unlink, path.c_str()));
}

} // namespace Tarnis
