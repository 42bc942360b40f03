// What a session offers beyond connecting: known hosts, why something failed, the server's key,
// and the two authentications.

#include "auth/LoginFailure.h"
#include "auth/SSHSessionHostAuthenticator.h"
#include "auth/SSHSessionUserAuthenticator.h"
#include "handles/SSHCall.h"
#include "handles/SSHFailure.h"
#include "handles/SSHHandleSession.h"
#include "handles/SSHServerKey.h"
#include "handles/SSHSessionOptions.h"
#include "session/SSHSessionConnection.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/SSHFailureCode.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <utility>

namespace Tarnis {

using FileSystem::FailureScope;

namespace {

/// Notes why a step cannot be taken in this state.
void noteOutOfTurn(RemoteSessionState state, const SSHSessionConnection& connection)
{
    if (state == RemoteSessionState::Disconnected) {
        connection.noteWhyNotConnected();
    } else {
        FileSystem::fail(SSHFailureCode::OutOfTurn, state == RemoteSessionState::HostAuthenticating
                                                        ? "the server is to be trusted first"
                                                        : "");
    }
}

} // namespace

bool SSHSession::setKnownHostsFile(const std::string& path)
{
    FailureScope scope("setKnownHostsFile", path);
    const auto lock = session_->getLock();
    if (!isOptionText(path) ||
        callLocked(*session_, ssh_options_set, SSH_OPTIONS_KNOWNHOSTS, path.c_str()) != SSH_OK) {
        return scope.result(FileSystem::fail(FileSystem::FailureCode::BadName));
    }
    connection_->setKnownHostsFile(path);
    return scope.result(true);
}

std::string SSHSession::getKnownHostsFile() const
{
    FailureScope scope("getKnownHostsFile");
    return scope.asNoted(readTextOption(*session_, SSH_OPTIONS_KNOWNHOSTS));
}

std::string SSHSession::getLastError() const
{
    return transportText(session_->getResource());
}

std::string SSHSession::getPublicServerKeyB64() const
{
    return tellServerKey("getPublicServerKeyB64", serverKeyBase64);
}

std::string SSHSession::getPublicServerKeyFingerprint() const
{
    return tellServerKey("getPublicServerKeyFingerprint", serverKeyFingerprint);
}

std::string SSHSession::tellServerKey(const char* operation,
                                      std::string (*read)(SSHHandleSession&)) const
{
    FailureScope scope(operation);
    std::string key = read(*session_);
    if (key.empty()) {
        connection_->noteWhyNotConnected();
    }
    return scope.asNoted(std::move(key));
}

std::set<std::string> SSHSession::getOfferedMethods() const
{
    return callLocked(*session_, offeredMethods);
}

std::optional<SSHAlgorithmMismatch> SSHSession::getAlgorithmMismatch() const
{
    const auto lock = session_->getLock();
    return connection_->algorithmMismatch();
}

void SSHSession::attachSSHSessionInterface(SSHSessionInterface* sessionInterface)
{
    if (session_ != nullptr) {
        session_->setSessionInterface(sessionInterface);
    }
}

std::unique_ptr<HostAuthenticatorResponse>
SSHSession::do_hostAuthenticate(const HostAuthenticator& authenticator)
{
    const RemoteSessionState state = state_->load();
    if (state != RemoteSessionState::HostAuthenticating) {
        noteOutOfTurn(state, *connection_);
        return nullptr;
    }
    auto response = SSHSessionHostAuthenticator::run(*session_, state_, authenticator);
    if (response != nullptr && response->getResult() == AuthenticateHostResult::Accepted) {
        state_->exchange(RemoteSessionState::UserAuthenticating);
    }
    return response;
}

std::unique_ptr<UserAuthenticatorResponse>
SSHSession::do_userAuthenticate(const UserAuthenticator& authenticator)
{
    const RemoteSessionState state = state_->load();
    if (state != RemoteSessionState::UserAuthenticating) {
        noteOutOfTurn(state, *connection_);
        return nullptr;
    }
    auto response = SSHSessionUserAuthenticator::run(*session_, state_, authenticator);
    if (response != nullptr && response->getResult() == AuthenticateUserResult::Success) {
        state_->exchange(RemoteSessionState::Authenticated);
    } else if (connection_->isInterrupted()) {
        FileSystem::fail(SSHFailureCode::Interrupted);
    }
    return response;
}

} // namespace Tarnis
