// Runs one command on behalf of a test and sees to it that nothing of it stays behind.
//
//     tarnis_test_supervisor [NAME=VALUE]... -- COMMAND [ARGUMENT]...
//
// The command gets exactly the environment given. Processes whose own parent ends are adopted here
// (a "subreaper"), so that everything that descends from the command can be found. All of it is
// killed when the command ends, when the test process asks for it by closing its end of the
// lifeline, and when the test process dies in whatever way, which closes that end too. Stopped
// processes are no exception. When the supervisor itself is killed, the command goes with it.

#include "support/ProcessTree.h"
#include "support/SupervisorProtocol.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace TarnisTest;

void tell(SupervisorMessage::Kind kind, int value)
{
    const SupervisorMessage message{kind, value};
    // The test process may be gone; there is nobody else to tell.
    (void)::send(kLifelineFd, &message, sizeof message, MSG_NOSIGNAL);
}

int openChildSignals()
{
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGCHLD);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    return ::signalfd(-1, &mask, SFD_CLOEXEC);
}

void resetSignals()
{
    for (int number = 1; number < NSIG; ++number) {
        (void)std::signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Returns only when the command cannot be run.
void becomeCommand(pid_t supervisor, char** command, char** environment)
{
    // When even this process is killed, nobody else is left to end the command.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != supervisor) {
        return;
    }
    ::setpgid(0, 0);
    resetSignals();
    ::execvpe(command[0], command, environment);
}

// Zero on success, errno otherwise.
int spawnCommand(char** command, char** environment, pid_t& pid)
{
    std::array<int, 2> failure{};
    if (::pipe2(failure.data(), O_CLOEXEC) != 0) {
        return errno;
    }
    const pid_t supervisor = ::getpid();
    pid = ::fork();
    if (pid == 0) {
        becomeCommand(supervisor, command, environment);
        [[maybe_unused]] const ssize_t written = ::write(failure[1], &errno, sizeof errno);
        ::_exit(127);
    }
    int error = pid < 0 ? errno : 0;
    ::close(failure[1]);
    // Nothing but the end comes once the command runs.
    [[maybe_unused]] const ssize_t count = ::read(failure[0], &error, sizeof error);
    ::close(failure[0]);
    return error;
}

// Reaps whatever has ended; true once the command itself has, with its status.
bool reap(pid_t command, int& commandStatus)
{
    bool commandEnded = false;
    int status = 0;
    for (pid_t pid = 0; (pid = ::waitpid(-1, &status, WNOHANG)) > 0;) {
        if (pid == command) {
            commandStatus = status;
            commandEnded = true;
        }
    }
    return commandEnded;
}

// Returns when the command has ended (true) or the lifeline is closed (false).
bool waitForCommand(pid_t command, int childSignals, int& status)
{
    std::array<pollfd, 2> watched{{{kLifelineFd, POLLIN, 0}, {childSignals, POLLIN, 0}}};
    while (true) {
        if (::poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) {
            return false;
        }
        if (watched[1].revents != 0) {
            signalfd_siginfo ignored;
            (void)::read(childSignals, &ignored, sizeof ignored);
            if (reap(command, status)) {
                return true;
            }
        }
        if (watched[0].revents != 0) {
            return false;
        }
    }
}

void killEverything(pid_t command, int& status)
{
    signalDescendants(::getpid(), SIGKILL);
    int ended = 0;
    for (pid_t pid = 0; (pid = ::waitpid(-1, &ended, 0)) > 0 || errno == EINTR;) {
        if (pid == command) {
            status = ended;
        }
        // Orphans of what was killed arrive here only now.
        signalDescendants(::getpid(), SIGKILL);
    }
}

int supervise(char** command, char** environment)
{
    // Sockets of the test process that came along would keep its connections open.
    ::closefrom(kLifelineFd + 1);
    ::fcntl(kLifelineFd, F_SETFD, FD_CLOEXEC);
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    const int childSignals = openChildSignals();
    pid_t pid = -1;
    if (const int error = spawnCommand(command, environment, pid); error != 0) {
        tell(SupervisorMessage::CouldNotStart, error);
        return 1;
    }
    tell(SupervisorMessage::Started, pid);
    int status = 0;
    (void)waitForCommand(pid, childSignals, status);
    killEverything(pid, status);
    tell(SupervisorMessage::Ended, status);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    char** const environment = argv + 1;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0) {
            argv[i] = nullptr; // ends the list of variables
            return supervise(argv + i + 1, environment);
        }
    }
    tell(SupervisorMessage::CouldNotStart, EINVAL);
    return 2;
}
