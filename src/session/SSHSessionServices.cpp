// What a session offers beyond connecting: known hosts, the last error, the server's key, and the
// two authentications.

#include "auth/SSHSessionHostAuthenticator.h"
#include "auth/SSHSessionUserAuthenticator.h"
#include "handles/SSHCall.h"
#include "handles/SSHHandleSession.h"
#include "handles/SSHServerKey.h"
#include "handles/SSHSessionOptions.h"
#include "session/SSHSessionConnection.h"

#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

namespace Tarnis {

bool SSHSession::setKnownHostsFile(const std::string& path)
{
    const auto lock = session_->getLock();
    if (!isOptionText(path) ||
        callLocked(*session_, ssh_options_set, SSH_OPTIONS_KNOWNHOSTS, path.c_str()) != SSH_OK) {
        return false;
    }
    connection_->setKnownHostsFile(path);
    return true;
}

std::string SSHSession::getKnownHostsFile() const
{
    return readTextOption(*session_, SSH_OPTIONS_KNOWNHOSTS);
}

std::string SSHSession::getLastError() const
{
    ssh_session session = session_->getResource();
    const char* const text = session != nullptr ? ssh_get_error(session) : nullptr;
    return text != nullptr ? std::string(text) : std::string();
}

std::string SSHSession::getPublicServerKeyB64() const
{
    return serverKeyBase64(*session_);
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
    if (state_->load() != RemoteSessionState::HostAuthenticating) {
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
    if (state_->load() != RemoteSessionState::UserAuthenticating) {
        return nullptr;
    }
    auto response = SSHSessionUserAuthenticator::run(*session_, state_, authenticator);
    if (response != nullptr && response->getResult() == AuthenticateUserResult::Success) {
        state_->exchange(RemoteSessionState::Authenticated);
    }
    return response;
}

} // namespace Tarnis
