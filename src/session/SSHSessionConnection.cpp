#include "session/SSHSessionConnection.h"

#include "handles/SSHCall.h"
#include "handles/SSHFailure.h"
#include "handles/SSHHandleSession.h"
#include "handles/SSHSessionOptions.h"
#include "session/AlgorithmMismatch.h"
#include "session/CipherOrder.h"
#include "session/ProcessorAes.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/SSHDefaultDeleter.h>
#include <Tarnis/SSHFailureCode.h>
#include <Tarnis/SessionBlockingGuard.h>

#include <memory>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace Tarnis {

namespace {

using OwnedSession = std::unique_ptr<ssh_session_struct, ssh_default_deleter<ssh_session_struct>>;

// A peer that vanished answers neither probes nor data. Together at most 105 seconds of silence on
// an idle connection, 110 with data in flight.
constexpr int idleSecondsBeforeProbes = 45;
constexpr int secondsBetweenProbes = 15;
constexpr int unansweredProbes = 4;
constexpr unsigned int unacknowledgedMilliseconds = 110'000;

constexpr int flushMilliseconds = 500;

template <class Value>
void setSocketOption(int socket, int level, int name, Value value)
{
    // A platform that refuses one of these still has a connection that works.
    static_cast<void>(::setsockopt(socket, level, name, &value, sizeof value));
}

void keepAlive(int socket)
{
    setSocketOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    setSocketOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, idleSecondsBeforeProbes);
    setSocketOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, secondsBetweenProbes);
    setSocketOption(socket, IPPROTO_TCP, TCP_KEEPCNT, unansweredProbes);
    setSocketOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, unacknowledgedMilliseconds);
}

std::string withEscapedPercentSigns(const std::string& path)
{
    std::string escaped;
    for (const char c : path) {
        escaped += c;
        if (c == '%') {
            escaped += c;
        }
    }
    return escaped;
}

/// libssh has a text for an attempt that took too long, but only in blocking mode.
void explainTimeOut(ssh_session session)
{
    constexpr long oneMillisecond = 1000;
    constexpr long none = 0;
    const SessionBlockingGuard guard(session, 1);
    static_cast<void>(ssh_options_set(session, SSH_OPTIONS_TIMEOUT_USEC, &oneMillisecond));
    static_cast<void>(ssh_connect(session));
    static_cast<void>(ssh_options_set(session, SSH_OPTIONS_TIMEOUT_USEC, &none));
}

/// The host and the port that an attempt goes to, for people.
std::string placeOf(SSHHandleSession& session)
{
    std::string host = readTextOption(session, SSH_OPTIONS_HOST);
    unsigned int port = 0;
    if (host.empty() || callLocked(session, ssh_options_get_port, &port) != SSH_OK) {
        return host;
    }
    const bool hasColons = host.find(':') != std::string::npos;
    return (hasColons ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

bool setFlag(ssh_session session, ssh_options_e option, int value)
{
    return ssh_options_set(session, option, &value) == SSH_OK;
}

/// A fresh libssh session with the options of a used one.
OwnedSession copyOf(ssh_session used)
{
    ssh_session copy = nullptr;
    if (ssh_options_copy(used, &copy) != SSH_OK) {
        return nullptr;
    }
    ssh_set_blocking(copy, ssh_is_blocking(used));
    return OwnedSession(copy);
}

} // namespace

bool SSHSessionConnection::prepare(SSHHandleSession& session, std::uint64_t interruptsBefore)
{
    socket_.expect(interruptsBefore);
    loss_.clear();
    mismatch_.reset();
    lost_ = false;
    endedHere_ = false;
    hasSocket_ = false;
    return makeReady(session) || FileSystem::fail(FileSystem::FailureCode::NoResources);
}

bool SSHSessionConnection::makeReady(SSHHandleSession& session)
{
    if (used_ && !renew(session)) {
        return false;
    }
    used_ = true;
    return callLocked(session, [](ssh_session s) {
        const bool processConfig = false;
        return ssh_options_set(s, SSH_OPTIONS_PROCESS_CONFIG, &processConfig) == SSH_OK &&
               setFlag(s, SSH_OPTIONS_NODELAY, 1) &&
               (!hasAesInstructions() || proposeAesGcmFirst(s));
    });
}

bool SSHSessionConnection::renew(SSHHandleSession& session)
{
    OwnedSession fresh = callLocked(session, copyOf);
    if (fresh == nullptr) {
        return false;
    }
    const auto knownHostsFile = knownHostsFileOf(session);
    if (knownHostsFile.has_value() &&
        ssh_options_set(fresh.get(), SSH_OPTIONS_KNOWNHOSTS, knownHostsFile->c_str()) != SSH_OK) {
        return false;
    }
    session.replaceSession(fresh.release());
    return true;
}

/// The known-hosts path with its escapes: as the caller gave it, or else the default that libssh
/// has worked out, which may have a percent sign of its own.
std::optional<std::string> SSHSessionConnection::knownHostsFileOf(SSHHandleSession& used) const
{
    if (knownHostsFile_.has_value()) {
        return knownHostsFile_;
    }
    const std::string expanded = readTextOption(used, SSH_OPTIONS_KNOWNHOSTS);
    if (expanded.empty()) {
        return std::nullopt;
    }
    return withEscapedPercentSigns(expanded);
}

int SSHSessionConnection::tryConnect(ssh_session session)
{
    // Once there is a socket, libssh finds it shut down and says so.
    if (socket_.isInterrupted() && ssh_get_fd(session) < 0) {
        return SSH_ERROR;
    }
    const int result = ssh_connect(session);
    const int socket = ssh_get_fd(session);
    hasSocket_ = hasSocket_ || socket >= 0;
    socket_.attach(socket);
    return result == SSH_OK && socket_.isInterrupted() ? SSH_ERROR : result;
}

bool SSHSessionConnection::giveUp(SSHHandleSession& session, int result)
{
    if (result == SSH_AGAIN) {
        callLocked(session, explainTimeOut);
    }
    const ConnectFacts facts = factsOf(session, result);
    mismatch_ = readAlgorithmMismatch(facts.text);
    noteConnectFailure(facts,
                       callLocked(session, [](ssh_session s) { return ssh_get_error_code(s); }),
                       placeOf(session));
    callLocked(session, ssh_silent_disconnect);
    socket_.detach();
    return isReasonForgotten(facts);
}

ConnectFacts SSHSessionConnection::factsOf(SSHHandleSession& session, int result) const
{
    ConnectFacts facts;
    facts.hasHostName = !readTextOption(session, SSH_OPTIONS_HOST).empty();
    facts.wasInterrupted = socket_.isInterrupted();
    facts.isTimeUp = result == SSH_AGAIN;
    facts.hasSocket = hasSocket_;
    const char* const identification = callLocked(session, ssh_get_serverbanner);
    facts.serverIdentification = identification != nullptr ? identification : "";
    facts.text = callLocked(session, transportText);
    facts.shownText = callLocked(session, transportFailureText);
    return facts;
}

void SSHSessionConnection::tuneSocket(ssh_session session)
{
    const int socket = ssh_get_fd(session);
    keepAlive(socket);
    // libssh sends only after the socket was found ready, but leaves it in blocking mode, where
    // sending more than fits waits for a server that may have stopped reading.
    const int flags = ::fcntl(socket, F_GETFL);
    if (flags >= 0) {
        static_cast<void>(::fcntl(socket, F_SETFL, flags | O_NONBLOCK));
    }
}

bool SSHSessionConnection::isAtEnd(SSHHandleSession& session) const
{
    return callLocked(session, ssh_is_connected) != 1 || socket_.isInterrupted() ||
           socket_.isAtEnd();
}

bool SSHSessionConnection::isAlive(SSHHandleSession& session) const
{
    const auto lock = session.getLock();
    if (callLocked(session, ssh_is_connected) != 1 || socket_.isInterrupted()) {
        return false;
    }
    return !socket_.isAtEnd() || (socket_.hasUnread() && session.mayHaveUnreadOutput());
}

void SSHSessionConnection::noteLoss(SSHHandleSession& session)
{
    if (!endedHere_) {
        keepReasonOfLoss(session);
    }
    socket_.detach();
    lost_ = true;
}

bool SSHSessionConnection::noteWhyNotConnected() const
{
    return !noteWhyLost() && FileSystem::fail(SSHFailureCode::NotConnected);
}

void SSHSessionConnection::keepReasonOfLoss(SSHHandleSession& session)
{
    using FileSystem::FailureSource;
    if (socket_.isInterrupted()) {
        loss_.set(SSHFailureCode::Interrupted, FailureSource::Library, 0, {});
        return;
    }
    ssh_session lost = session.getResource();
    if (ssh_is_connected(lost) == 0) {
        loss_.set(SSHFailureCode::Lost, FailureSource::Transport, ssh_get_error_code(lost),
                  transportFailureText(lost));
        return;
    }
    // libssh has not read since, so its flag is old: the socket is asked.
    const int error = socket_.takeError();
    if (error != 0) {
        loss_.set(SSHFailureCode::Lost, FailureSource::System, error,
                  std::generic_category().message(error));
    } else {
        loss_.set(SSHFailureCode::Lost, FailureSource::Library, 0,
                  "the server closed the connection");
    }
}

void SSHSessionConnection::flush(ssh_session session)
{
    if (ssh_is_connected(session) != 0) {
        static_cast<void>(ssh_blocking_flush(session, flushMilliseconds));
    }
}

} // namespace Tarnis
