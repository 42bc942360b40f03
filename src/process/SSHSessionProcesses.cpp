// The remote commands that a session hands out and runs.

#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSession.h"
#include "process/CommandRunner.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>

#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureScope;

namespace {

constexpr const char* noChannel = "libssh could not create a channel";
constexpr const char* notLoggedIn = "the session is not logged in";

SSHExecuteResult notStarted(FailureCode code, const char* why)
{
    fail(code, why);
    SSHExecuteResult result;
    result.error = why;
    return result;
}

} // namespace

std::unique_ptr<SSHProcess> SSHSession::createProcess(const std::string& commandLine)
{
    FailureScope scope("createProcess");
    // Also while it is found out why there is none: another thread may be connecting again.
    const auto lock = session_->getLock();
    auto channel = SSHHandleChannel::create(*session_);
    if (channel == nullptr) {
        noteWhyNoChannel();
        return scope.result(std::unique_ptr<SSHProcess>());
    }
    return scope.result(std::make_unique<SSHProcess>(commandLine, std::move(channel)));
}

/// Why there is no channel: before the log-in libssh has none to give.
FailureCode SSHSession::codeWithoutChannel() const
{
    if (!isSessionConnected()) {
        return FailureCode::ConnectionLost;
    }
    return isAuthenticated() ? FailureCode::NoResources : FailureCode::Denied;
}

/// Notes it.
void SSHSession::noteWhyNoChannel() const
{
    const FailureCode code = codeWithoutChannel();
    fail(code, code == FailureCode::Denied ? notLoggedIn : noChannel);
}

SSHExecuteResult SSHSession::execute(const std::string& commandLine, std::string_view input,
                                     std::chrono::milliseconds timeout)
{
    FailureScope scope("execute");
    auto result = executeCommand(commandLine, input, timeout);
    static_cast<void>(scope.result(result.outcome == SSHExecuteResult::Outcome::Completed));
    return result;
}

SSHExecuteResult SSHSession::executeCommand(const std::string& commandLine, std::string_view input,
                                            std::chrono::milliseconds timeout)
{
    try {
        // Also while it is found out why there is no channel, as above; not while the command runs.
        auto lock = session_->getLock();
        if (!isAuthenticated()) {
            return notStarted(codeWithoutChannel(), notLoggedIn);
        }
        auto channel = SSHHandleChannel::create(*session_);
        if (channel == nullptr) {
            return notStarted(codeWithoutChannel(), noChannel);
        }
        lock.reset();
        return CommandRunner(std::move(channel), input, timeout).run(commandLine);
    } catch (const FileSystem::handle_fatal_error&) {
        // Another thread disconnected the session before there was a command.
        return notStarted(FailureCode::ConnectionLost, CommandRunner::sessionEnded);
    }
}

} // namespace Tarnis
