#include "auth/SSHSessionHostAuthenticator.h"

#include "handles/SSHCall.h"
#include "handles/SSHHandleSession.h"
#include "handles/SSHServerKey.h"
#include "handles/SSHSessionOptions.h"

#include <cerrno>
#include <string>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace Tarnis {

namespace {

using AutoMode = HostAuthenticatorKnownHostFile::AutoMode;
using Reason = HostAuthenticatorResponseKnownHostFile::Reason;

Reason reasonOf(ssh_known_hosts_e answer)
{
    switch (answer) {
    case SSH_KNOWN_HOSTS_OK:
        return Reason::Known;
    case SSH_KNOWN_HOSTS_NOT_FOUND:
        return Reason::KnownHostFileMissing;
    case SSH_KNOWN_HOSTS_UNKNOWN:
        return Reason::HostUnknown;
    case SSH_KNOWN_HOSTS_CHANGED:
        return Reason::HostKeyChanged;
    case SSH_KNOWN_HOSTS_OTHER:
        return Reason::HostKeyTypeOther;
    case SSH_KNOWN_HOSTS_ERROR:
        break;
    }
    return Reason::CheckFailed;
}

bool isNew(Reason reason)
{
    return reason == Reason::KnownHostFileMissing || reason == Reason::HostUnknown;
}

/// Whether there is something at the path that cannot be read.
bool isKeptFromUs(const std::string& path)
{
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file >= 0) {
        ::close(file);
        return false;
    }
    return errno != ENOENT && errno != ENOTDIR;
}

/// What the policy says of a server that the file neither vouches for nor failed to check.
AuthenticateHostResult decideByPolicy(AutoMode mode, Reason reason)
{
    switch (mode) {
    case AutoMode::Ask:
        return AuthenticateHostResult::Undecided;
    case AutoMode::AcceptAll:
        return AuthenticateHostResult::Accepted;
    case AutoMode::KnownOnly:
        return AuthenticateHostResult::Rejected;
    case AutoMode::AcceptNew:
        break;
    }
    return isNew(reason) ? AuthenticateHostResult::Accepted : AuthenticateHostResult::Rejected;
}

AuthenticateHostResult decide(AutoMode mode, Reason reason)
{
    switch (reason) {
    case Reason::Known:
        return AuthenticateHostResult::Accepted;
    case Reason::CheckFailed:
        return AuthenticateHostResult::Rejected;
    default:
        return decideByPolicy(mode, reason);
    }
}

} // namespace

std::unique_ptr<HostAuthenticatorResponse>
SSHSessionHostAuthenticator::run(SSHHandleSession& session, SharedState state,
                                 const HostAuthenticator& authenticator)
{
    SSHSessionHostAuthenticator procedure(session, std::move(state));
    authenticator.accept(procedure);
    return std::move(procedure.response_);
}

SSHSessionHostAuthenticator::SSHSessionHostAuthenticator(SSHHandleSession& session,
                                                         SharedState state)
    : session_(&session)
    , state_(std::move(state))
{}

void SSHSessionHostAuthenticator::visit(const HostAuthenticatorKnownHostFile& authenticator)
{
    const Reason reason = lookUp();
    const AuthenticateHostResult result = decide(authenticator.getAutoMode(), reason);
    const bool vouchedFor = reason == Reason::Known;
    const bool showsKey = !vouchedFor && reason != Reason::CheckFailed;

    response_ = std::make_unique<HostAuthenticatorResponseKnownHostFile>(
        result, reason, showsKey ? serverKeyBase64(*session_) : std::string());
    if (result == AuthenticateHostResult::Accepted && !vouchedFor &&
        authenticator.getUpdateKnownHostFile()) {
        updateKnownHosts();
    }
}

void SSHSessionHostAuthenticator::visit(const HostAuthenticatorHostKey& authenticator)
{
    const std::string key = serverKeyBase64(*session_);
    const bool accepted = !key.empty() && authenticator.isValidHostKey(key);
    response_ = std::make_unique<HostAuthenticatorResponseHostKey>(
        accepted ? AuthenticateHostResult::Accepted : AuthenticateHostResult::Rejected);
}

void SSHSessionHostAuthenticator::visit(const HostAuthenticatorNone& /*authenticator*/)
{
    response_ = std::make_unique<HostAuthenticatorResponseNone>(AuthenticateHostResult::Accepted);
}

/// libssh takes a file that it may not read for one that does not know the server. Whoever trusts
/// new servers would then trust one whose key has changed.
Reason SSHSessionHostAuthenticator::lookUp()
{
    const Reason reason = reasonOf(callLocked(*session_, ssh_session_is_known_server));
    return isNew(reason) && isKeptFromUs(readTextOption(*session_, SSH_OPTIONS_KNOWNHOSTS))
               ? Reason::CheckFailed
               : reason;
}

void SSHSessionHostAuthenticator::updateKnownHosts()
{
    // The server is trusted either way; a file that cannot be written is no reason to refuse it.
    static_cast<void>(callLocked(*session_, ssh_session_update_known_hosts));
}

} // namespace Tarnis
