#include "sftp/SFTPLinkMaker.h"

#include "sftp/SFTPCall.h"
#include "sftp/SFTPLinkTarget.h"
#include "sftp/SFTPLookUp.h"
#include "sftp/SFTPServerKind.h"

#include <string_view>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;

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
    if (sftp_.hasLeftLinks()) {
        return fail(FailureCode::Unsupported, "links come out wrong here and cannot be removed",
                    linkPath);
    }
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
    const Answer answer = tryOrder(first, target, linkPath, targetStood);
    if (answer == Answer::Made) {
        return true;
    }
    const bool isRefused = answer == Answer::Refused && trusted && !targetStood;
    if (isRefused || sftp_.isLost() || sftp_.hasLeftLinks()) {
        return false;
    }
    // Where neither order does, the first one was the better guess, and its failure is the reason.
    const FileSystem::FailureKeeper reason;
    return tryOrder(second, target, linkPath, targetStood) == Answer::Made;
}

SFTPLinkMaker::Answer SFTPLinkMaker::tryOrder(Order order, const std::string& target,
                                              const std::string& linkPath, bool targetStood)
{
    const Answer answer = attempt(order, target, linkPath);
    if (answer == Answer::Made) {
        sftp_.setLinkPathOrder(order);
    } else if (!targetStood) {
        // Where something stood at the target, the wrong order fails at it and leaves nothing.
        removeStray(target, linkPath);
    }
    return answer;
}

SFTPLinkMaker::Guess SFTPLinkMaker::guess() const
{
    const auto guessed = callUnlessLost(sftp_, [](sftp_session sftp) {
        const SFTPServerKind server = sftpServerKindOf(sessionOf(sftp));
        const bool libsshSendsTargetFirst = ssh_get_openssh_version(sessionOf(sftp)) != 0;
        const bool exchange = server != SFTPServerKind::Other && !libsshSendsTargetFirst;
        return Guess{exchange ? Order::Exchanged : Order::AsLibsshSends,
                     server == SFTPServerKind::OpenSsh};
    });
    return guessed.value_or(Guess{Order::AsLibsshSends, false});
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
    const bool isThere = isLink(linkPath);
    if (isThere && readLinkTarget(sftp_, linkPath, SFTPNotes::LossOnly) == target) {
        return Answer::Made;
    }
    if (!sftp_.isLost()) {
        fail(FailureCode::Protocol, "the server made another link than it was asked for", linkPath);
    }
    if (isThere) {
        // Nothing stood here before, so this one is ours.
        remove(linkPath);
    }
    return Answer::NotAsAsked;
}

/// Removes a link that the wrong order has put at the target's path, where nothing stood before.
void SFTPLinkMaker::removeStray(const std::string& target, const std::string& linkPath)
{
    // Some servers put what they take for the root in front of what a link says.
    if (isLink(target) &&
        endsWithPath(readLinkTarget(sftp_, target, SFTPNotes::LossOnly).value_or(""), linkPath)) {
        remove(target);
    }
}

bool SFTPLinkMaker::standsAt(const std::string& path)
{
    return lookUp(sftp_, path, SFTPNotes::LossOnly) != nullptr;
}

bool SFTPLinkMaker::isLink(const std::string& path)
{
    const SFTPAttributes attributes = lookUp(sftp_, path, SFTPNotes::LossOnly);
    if (attributes != nullptr && isLinkMode(attributes->permissions)) {
        return true;
    }
    // A server may describe what a link leads to, or nothing where that is nothing.
    return !callLocked(sftp_, isOpenSshSftpServer) &&
           readLinkTarget(sftp_, path, SFTPNotes::LossOnly).has_value();
}

void SFTPLinkMaker::remove(const std::string& path)
{
    const FileSystem::FailureKeeper reason;
    if (askSftp(sftp_, path, sftp_unlink, path.c_str()) != SSH_OK && isLink(path)) {
        sftp_.markLeftLinks();
    }
}

} // namespace Tarnis
