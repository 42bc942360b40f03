// The remote commands that a session hands out and runs.

#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSession.h"
#include "process/CommandRunner.h"

#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>

#include <utility>

namespace Tarnis {

namespace {

SSHExecuteResult notStarted(const char* why)
{
    SSHExecuteResult result;
    result.error = why;
    return result;
}

} // namespace

std::unique_ptr<SSHProcess> SSHSession::createProcess(const std::string& commandLine)
{
    auto channel = SSHHandleChannel::create(*session_);
    if (channel == nullptr) {
        return nullptr;
    }
    return std::make_unique<SSHProcess>(commandLine, std::move(channel));
}

SSHExecuteResult SSHSession::execute(const std::string& commandLine, std::string_view input,
                                     std::chrono::milliseconds timeout)
{
    if (!isAuthenticated()) {
        return notStarted("the session is not logged in");
    }
    try {
        auto channel = SSHHandleChannel::create(*session_);
        if (channel == nullptr) {
            return notStarted("libssh could not create a channel");
        }
        return CommandRunner(std::move(channel), input, timeout).run(commandLine);
    } catch (const FileSystem::handle_fatal_error&) {
        // Another thread disconnected the session before there was a command.
        return notStarted(CommandRunner::sessionEnded);
    }
}

} // namespace Tarnis
