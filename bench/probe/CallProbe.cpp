#include "support/DeprecatedLibssh.h"
#include "support/DirectSession.h"
#include "support/Probe.h"
#include "support/Require.h"
#include "support/TarnisSession.h"

#include <thread>

namespace TarnisBench {

namespace {

// Leaves something to read, and runs on.
constexpr const char* command = "echo text; cat";
constexpr int pollTimeoutMilliseconds = 1;

/// The function whose instructions are counted.
template <class Call>
[[gnu::noinline]] void measuredCalls(int count, Call call)
{
    for (int done = 0; done < count; ++done) {
        call();
        // Keeps a call without effects from being taken out of the loop.
        asm volatile("" ::: "memory");
    }
}

void measureDirectly(const Login& login, const std::string& call, int count)
{
    const auto session = logInDirectly(login);
    const auto owned = startDirectly(session.get(), command);
    ssh_channel channel = owned.get();
    require(ssh_channel_poll_timeout(channel, -1, 0) > 0, "waiting for output");
    if (call == "libssh-isOpen") {
        measuredCalls(count, [=] { static_cast<void>(ssh_channel_is_open(channel)); });
    } else if (call == "libssh-bytesAvailable") {
        measuredCalls(count, [=] {
            static_cast<void>(ssh_channel_poll_timeout(channel, pollTimeoutMilliseconds, 0));
        });
    } else {
        require(call == "libssh-getExitCode", "finding the call " + call);
        ssh_set_blocking(session.get(), 0);
        // The library asks whether the channel is open too: no code is not yet no code ever.
        measuredCalls(count, [=] {
            static_cast<void>(TarnisTest::Deprecated::exitStatus(channel));
            static_cast<void>(ssh_channel_is_open(channel));
        });
    }
}

void measureWithTarnis(const Login& login, const std::string& call, int count)
{
    const auto session = logInWithTarnis(login);
    const auto process = session->createProcess(command);
    require(process->start(), "starting a command");
    while (process->bytesAvailable(false) == 0) {
        std::this_thread::yield();
    }
    if (call == "tarnis-isOpen") {
        measuredCalls(count, [&] { static_cast<void>(process->isOpen()); });
    } else if (call == "tarnis-bytesAvailable") {
        measuredCalls(count, [&] { static_cast<void>(process->bytesAvailable(false)); });
    } else {
        require(call == "tarnis-getExitCode", "finding the call " + call);
        measuredCalls(count, [&] { static_cast<void>(process->getExitCode()); });
    }
}

} // namespace

std::string probeCalls(const Login& login, const std::vector<std::string>& arguments)
{
    require(arguments.size() == 2, "reading the arguments: CALL COUNT");
    const std::string& call = arguments[0];
    const int count = std::stoi(arguments[1]);
    if (call == "empty") {
        measuredCalls(count, [] {});
    } else if (call.rfind("libssh-", 0) == 0) {
        measureDirectly(login, call, count);
    } else {
        measureWithTarnis(login, call, count);
    }
    return arguments[1];
}

} // namespace TarnisBench
