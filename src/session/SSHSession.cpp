#include "handles/SSHCall.h"
#include "handles/SSHHandleSession.h"
#include "handles/SSHSessionOptions.h"
#include "session/SSHSessionConnection.h"
#include "session/SessionStateBits.h"
#include "session/SessionsAtExit.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/SSHDefaultDeleter.h>
#include <Tarnis/SSHFailureCode.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/SessionBlockingGuard.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <chrono>

namespace Tarnis {

namespace {

// What a call of another thread may take before it has to give way to the end of the session. With
// the moment that unsent output is given, well within a second.
constexpr std::chrono::milliseconds patience{300};

} // namespace

SSHSession::SSHSession()
    : session_(std::make_unique<SSHHandleSession>(SessionsAtExit::areOver() ? nullptr : ssh_new()))
    , state_(std::make_shared<std::atomic<RemoteSessionState>>(RemoteSessionState::Disconnected))
    , connection_(std::make_unique<SSHSessionConnection>())
{
    SessionsAtExit::add(this, [this] { endAtExit(); });
}

SSHSession::~SSHSession()
{
    SessionsAtExit::remove(this);
    try {
        const auto lock = lockToEnd();
        retire();
    } catch (...) {
        // A destructor has nobody to tell; the handle frees what is left.
    }
}

/// To be called under the lock.
void SSHSession::retire()
{
    if (do_isConnected()) {
        do_disconnect();
    }
    session_->deleteMe();
}

/// Waits for a call of another thread a moment only: one that is not freed by an interrupt would
/// keep the program from ending.
void SSHSession::endAtExit()
{
    auto lock = session_->getLockWithin(patience);
    if (lock == nullptr) {
        connection_->interrupt();
        lock = session_->getLockWithin(patience);
    }
    if (lock != nullptr) {
        retire();
    }
}

bool SSHSession::do_isConnected() const
{
    return RemoteSession::do_isConnected() && isSessionConnected();
}

bool SSHSession::do_isAuthenticating() const
{
    return RemoteSession::do_isAuthenticating() && isSessionConnected();
}

bool SSHSession::do_isAuthenticated() const
{
    return RemoteSession::do_isAuthenticated() && isSessionConnected();
}

RemoteSessionState SSHSession::do_getState()
{
    if (hasBits(state_->load(), connectedBit)) {
        noticeLostConnection();
    }
    const RemoteSessionState state = state_->load();
    if (state == RemoteSessionState::Disconnected) {
        connection_->noteWhyLost();
    }
    return state;
}

void SSHSession::noticeLostConnection()
{
    // Under the lock, or a connection that another thread makes meanwhile would be taken for lost.
    const auto lock = session_->getLock();
    if (hasBits(state_->load(), connectedBit) && !isSessionConnected()) {
        leaveConnection();
    }
}

/// Whoever connects again has done with what the last connection brought, read or unread.
void SSHSession::leaveEndedConnection()
{
    if (!hasBits(state_->load(), connectedBit)) {
        return;
    }
    const auto lock = session_->getLock();
    if (hasBits(state_->load(), connectedBit) && connection_->isAtEnd(*session_)) {
        leaveConnection();
    }
}

/// To be called under the lock.
void SSHSession::leaveConnection()
{
    connection_->noteLoss(*session_);
    session_->markSftpSessionsLost();
    state_->exchange(RemoteSessionState::Disconnected);
}

bool SSHSession::do_connect()
{
    const auto interruptsBefore = connection_->interruptCount();
    leaveEndedConnection();
    if (state_->load() != RemoteSessionState::Disconnected) {
        return FileSystem::fail(SSHFailureCode::AlreadyConnected);
    }
    const auto lock = session_->getLock();
    if (state_->load() != RemoteSessionState::Disconnected) {
        // Another thread came first; its state stands.
        return FileSystem::fail(SSHFailureCode::AlreadyConnected);
    }
    state_->exchange(RemoteSessionState::Connecting);
    const bool isConnected = runConnect(interruptsBefore) == SSH_OK;
    state_->exchange(isConnected ? RemoteSessionState::HostAuthenticating
                                 : RemoteSessionState::Disconnected);
    return isConnected;
}

/// To be called under the lock. A second attempt finds out why the first one failed, where libssh
/// has forgotten that.
int SSHSession::runConnect(std::uint64_t interruptsBefore)
{
    constexpr int mostAttempts = 2;
    bool isReasonForgotten = true;
    for (int attempt = 0; attempt < mostAttempts && isReasonForgotten; ++attempt) {
        if (!connection_->prepare(*session_, interruptsBefore)) {
            return SSH_ERROR;
        }
        const int result = callUnblocked(
            *session_, [this](ssh_session session) { return connection_->tryConnect(session); });
        if (result == SSH_OK) {
            callLocked(*session_, SSHSessionConnection::tuneSocket);
            return SSH_OK;
        }
        isReasonForgotten = connection_->giveUp(*session_, result);
    }
    return SSH_ERROR;
}

bool SSHSession::do_disconnect()
{
    const auto lock = lockToEnd();
    setBlocking(true);
    if (state_->load() == RemoteSessionState::Disconnected) {
        closeLostConnection();
        return connection_->noteWhyNotConnected();
    }
    state_->exchange(RemoteSessionState::Disconnecting);
    endConnection([](ssh_session session) {
        SSHSessionConnection::flush(session);
        ssh_disconnect(session);
    });
    state_->exchange(RemoteSessionState::Disconnected);
    return true;
}

/// To be called under the lock.
void SSHSession::closeLostConnection()
{
    if (connection_->takeLoss() && ssh_is_connected(session_->getResource()) != 0) {
        endConnection(ssh_silent_disconnect);
    }
}

void SSHSession::silentDisconnect()
{
    FileSystem::FailureScope scope("silentDisconnect");
    const auto lock = lockToEnd();
    setBlocking(true);
    endConnection(ssh_silent_disconnect);
    scope.result(true);
}

/// The session's lock, for ending its connection: a call of another thread that holds it for long,
/// on a server that has stopped answering perhaps, is broken off.
FileSystem::HandleLock SSHSession::lockToEnd()
{
    auto lock = session_->getLockWithin(patience);
    if (lock == nullptr) {
        connection_->interrupt();
        lock = session_->getLock();
    }
    return lock;
}

void SSHSession::endConnection(void (*disconnectCall)(ssh_session_struct*))
{
    // libssh frees every channel together with the connection.
    session_->retireChildren();
    callLocked(*session_, disconnectCall);
    connection_->release();
}

void SSHSession::interrupt() noexcept
{
    connection_->interrupt();
}

bool SSHSession::isSessionConnected() const
{
    return connection_->isAlive(*session_);
}

void SSHSession::setBlocking(bool blocking)
{
    session_->checkFatalError();
    const auto lock = session_->getLock();
    ssh_set_blocking(session_->getResource(), blocking ? 1 : 0);
    session_->checkFatalError();
}

bool SSHSession::isBlocking() const
{
    session_->checkFatalError();
    const auto lock = session_->getLock();
    ssh_session session = session_->getResource();
    const bool blocking = session != nullptr && ssh_is_blocking(session) == 1;
    session_->checkFatalError();
    return blocking;
}

bool SSHSession::do_setHostName(const std::string& hostName)
{
    const bool isSet =
        isHostText(hostName) &&
        callLocked(*session_, ssh_options_set, SSH_OPTIONS_HOST, hostName.c_str()) == SSH_OK;
    return isSet || FileSystem::fail(FileSystem::FailureCode::BadName);
}

bool SSHSession::do_setUserName(const std::string& userName)
{
    return setUserNameOption(*session_, userName) ||
           FileSystem::fail(FileSystem::FailureCode::BadName);
}

bool SSHSession::do_setPortNumber(unsigned short port)
{
    const unsigned int widened = port;
    return callLocked(*session_, ssh_options_set, SSH_OPTIONS_PORT, &widened) == SSH_OK ||
           FileSystem::fail(FileSystem::FailureCode::BadName, "no server has this port");
}

std::string SSHSession::do_getHostName()
{
    char* text = nullptr;
    // The text that libssh has allocated is not freed, and never was: a few bytes for each call.
    const int result = callLocked(*session_, ssh_options_get, SSH_OPTIONS_HOST, &text);
    return result == SSH_OK && text != nullptr ? std::string(text) : std::string();
}

std::string SSHSession::do_getUserName()
{
    return readTextOption(*session_, SSH_OPTIONS_USER);
}

unsigned short SSHSession::do_getPortNumber() const
{
    unsigned int port = 0;
    const int result = callLocked(*session_, ssh_options_get_port, &port);
    return result == SSH_OK ? static_cast<unsigned short>(port) : 0;
}

} // namespace Tarnis
