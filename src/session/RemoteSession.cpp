#include "session/SessionStateBits.h"

#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/RemoteSession.h>
#include <Tarnis/UserAuthenticatorResponse.h>

namespace Tarnis {

namespace {

/// The queries do not change the session for their caller, but they may be what notices that the
/// connection was lost.
RemoteSessionState stateOf(const RemoteSession& session)
{
    return const_cast<RemoteSession&>(session).getState();
}

} // namespace

bool RemoteSession::connect()
{
    return do_connect();
}

bool RemoteSession::disconnect()
{
    return do_disconnect();
}

RemoteSessionState RemoteSession::getState()
{
    return do_getState();
}

bool RemoteSession::isConnected() const
{
    return do_isConnected();
}

bool RemoteSession::isAuthenticating() const
{
    return do_isAuthenticating();
}

bool RemoteSession::isAuthenticated() const
{
    return do_isAuthenticated();
}

bool RemoteSession::setHostName(const std::string& hostName)
{
    return do_setHostName(hostName);
}

std::string RemoteSession::getHostName()
{
    return do_getHostName();
}

bool RemoteSession::setUserName(const std::string& userName)
{
    return do_setUserName(userName);
}

std::string RemoteSession::getUserName()
{
    return do_getUserName();
}

bool RemoteSession::setPortNumber(unsigned short port)
{
    return do_setPortNumber(port);
}

unsigned short RemoteSession::getPortNumber() const
{
    return do_getPortNumber();
}

std::unique_ptr<HostAuthenticatorResponse>
RemoteSession::hostAuthenticate(const HostAuthenticator& authenticator)
{
    return do_hostAuthenticate(authenticator);
}

std::unique_ptr<UserAuthenticatorResponse>
RemoteSession::userAuthenticate(const UserAuthenticator& authenticator)
{
    return do_userAuthenticate(authenticator);
}

bool RemoteSession::do_isConnected() const
{
    return hasBits(stateOf(*this), connectedBit);
}

bool RemoteSession::do_isAuthenticating() const
{
    return hasBits(stateOf(*this), connectedBit | authenticatingBit);
}

bool RemoteSession::do_isAuthenticated() const
{
    return stateOf(*this) == RemoteSessionState::Authenticated;
}

} // namespace Tarnis
