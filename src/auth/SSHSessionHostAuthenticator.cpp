#include "auth/SSHSessionHostAuthenticator.h"

#include "handles/FileProbe.h"
#include "handles/SSHCall.h"
#include "handles/SSHFailure.h"
#include "handles/SSHHandleSession.h"
#include "handles/SSHServerKey.h"
#include "handles/SSHSessionOptions.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/SSHFailureCode.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

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

/// Whether nothing that can know a server is where the file should be.
bool holdsNothing(int errorOfFile)
{
    return errorOfFile == ENOENT || errorOfFile == ENOTDIR || errorOfFile == EISDIR;
}

/// Whether the policy does not go by what a file says of a server.
bool canDoWithoutFile(const HostAuthenticatorKnownHostFile& authenticator)
{
    const AutoMode mode = authenticator.getAutoMode();
    return mode == AutoMode::Ask ||
           (mode == AutoMode::AcceptAll && !authenticator.getUpdateKnownHostFile());
}

SSHFailureCode codeOf(Reason reason)
{
    return reason == Reason::HostKeyChanged ? SSHFailureCode::HostKeyChanged
                                            : SSHFailureCode::HostUnknown;
}

const char* textOf(Reason reason)
{
    return reason == Reason::HostKeyTypeOther ? "only a key of another type is known" : "";
}

} // namespace

/// What there is to know of the server.
struct SSHSessionHostAuthenticator::LookUp
{
    /// As libssh tells it.
    Reason reason;
    std::string file;
    /// Why the file cannot be read, a value of errno; 0 when it can, or holds nothing.
    int fileError = 0;
};

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
    const LookUp found = lookUp();
    const bool isUnchecked = found.fileError != 0 && !canDoWithoutFile(authenticator);
    const Reason reason = isUnchecked ? Reason::CheckFailed : found.reason;
    const AuthenticateHostResult result = decide(authenticator.getAutoMode(), reason);
    const bool vouchedFor = reason == Reason::Known;
    const bool showsKey = !vouchedFor && reason != Reason::CheckFailed;

    if (result != AuthenticateHostResult::Accepted) {
        noteRefusal(found);
    }
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
    if (!accepted) {
        FileSystem::fail(key.empty() ? SSHFailureCode::NotConnected
                                     : SSHFailureCode::HostKeyRefused);
    }
    response_ = std::make_unique<HostAuthenticatorResponseHostKey>(
        accepted ? AuthenticateHostResult::Accepted : AuthenticateHostResult::Rejected);
}

void SSHSessionHostAuthenticator::visit(const HostAuthenticatorNone& /*authenticator*/)
{
    response_ = std::make_unique<HostAuthenticatorResponseNone>(AuthenticateHostResult::Accepted);
}

/// libssh takes a file that it may not read for one that does not know the server. Whoever trusts
/// new servers would then trust one whose key has changed.
SSHSessionHostAuthenticator::LookUp SSHSessionHostAuthenticator::lookUp()
{
    LookUp found{reasonOf(callLocked(*session_, ssh_session_is_known_server)),
                 readTextOption(*session_, SSH_OPTIONS_KNOWNHOSTS)};
    if (isNew(found.reason)) {
        const int error = errorOfReading(found.file);
        found.fileError = holdsNothing(error) ? 0 : error;
    }
    return found;
}

void SSHSessionHostAuthenticator::noteRefusal(const LookUp& found)
{
    using FileSystem::FailureSource;
    if (found.fileError != 0) {
        FileSystem::fail(SSHFailureCode::KnownHostsUnreadable, FailureSource::System,
                         found.fileError, std::generic_category().message(found.fileError),
                         found.file);
    } else if (found.reason == Reason::CheckFailed) {
        noteTransportFailure(*session_);
    } else {
        FileSystem::fail(codeOf(found.reason), textOf(found.reason), found.file);
    }
}

void SSHSessionHostAuthenticator::updateKnownHosts()
{
    // The server is trusted either way; a file that cannot be written is no reason to refuse it.
    static_cast<void>(callLocked(*session_, ssh_session_update_known_hosts));
}

} // namespace Tarnis
