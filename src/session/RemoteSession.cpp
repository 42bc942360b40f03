#include "session/SessionStateBits.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/RemoteSession.h>
#include <Tarnis/UserAuthenticatorResponse.h>

namespace Tarnis {

using FileSystem::FailureScope;

bool RemoteSession::connect()
{
    FailureScope scope("connect");
    return scope.result(do_connect());
}

bool RemoteSession::disconnect()
{
    FailureScope scope("disconnect");
    return scope.result(do_disconnect());
}

RemoteSessionState RemoteSession::getState()
{
    FailureScope scope("getState");
    return scope.asNoted(do_getState());
}

bool RemoteSession::isConnected() const
{
    FailureScope scope("isConnected");
    return scope.answer(do_isConnected());
}

bool RemoteSession::isAuthenticating() const
{
    FailureScope scope("isAuthenticating");
    return scope.answer(do_isAuthenticating());
}

bool RemoteSession::isAuthenticated() const
{
    FailureScope scope("isAuthenticated");
    return scope.answer(do_isAuthenticated());
}

bool RemoteSession::setHostName(const std::string& hostName)
{
    FailureScope scope("setHostName", hostName);
    return scope.result(do_setHostName(hostName));
}

std::string RemoteSession::getHostName()
{
    FailureScope scope("getHostName");
    return scope.asNoted(do_getHostName());
}

bool RemoteSession::setUserName(const std::string& userName)
{
    FailureScope scope("setUserName", userName);
    return scope.result(do_setUserName(userName));
}

std::string RemoteSession::getUserName()
{
    FailureScope scope("getUserName");
    return scope.asNoted(do_getUserName());
}

bool RemoteSession::setPortNumber(unsigned short port)
{
    FailureScope scope("setPortNumber");
    return scope.result(do_setPortNumber(port));
}

unsigned short RemoteSession::getPortNumber() const
{
    FailureScope scope("getPortNumber");
    return scope.asNoted(do_getPortNumber());
}

std::unique_ptr<HostAuthenticatorResponse>
RemoteSession::hostAuthenticate(const HostAuthenticator& authenticator)
{
    FailureScope scope("hostAuthenticate");
    auto response = do_hostAuthenticate(authenticator);
    scope.result(response != nullptr && response->getResult() == AuthenticateHostResult::Accepted);
    return response;
}

std::unique_ptr<UserAuthenticatorResponse>
RemoteSession::userAuthenticate(const UserAuthenticator& authenticator)
{
    FailureScope scope("userAuthenticate");
    auto response = do_userAuthenticate(authenticator);
    scope.result(response != nullptr && response->getResult() == AuthenticateUserResult::Success);
    return response;
}

// Not getState(), which is an operation of its own: a destructor that asks would take from
// Failure::last() what its owner wants to tell.

bool RemoteSession::do_isConnected() const
{
    return hasBits(stateNow(), connectedBit);
}

bool RemoteSession::do_isAuthenticating() const
{
    return hasBits(stateNow(), connectedBit | authenticatingBit);
}

bool RemoteSession::do_isAuthenticated() const
{
    return stateNow() == RemoteSessionState::Authenticated;
}

/// The queries do not change the session for their caller, but they may be what notices that the
/// connection was lost.
RemoteSessionState RemoteSession::stateNow() const
{
    return const_cast<RemoteSession*>(this)->do_getState();
}

} // namespace Tarnis
