#include "support/ChildProcess.h"

#include "support/ProcessTree.h"
#include "support/SupervisorProtocol.h"
#include "support/SystemError.h"

#include <array>
#include <csignal>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace TarnisTest {

namespace {

constexpr const char* kOutputFile = "output";
constexpr const char* kErrorFile = "errors";

std::vector<std::string> supervisorArguments(const Command& command)
{
    std::vector<std::string> arguments{TARNIS_TEST_SUPERVISOR};
    for (char** it = environ; command.inheritEnvironment && *it != nullptr; ++it) {
        arguments.emplace_back(*it);
    }
    arguments.insert(arguments.end(), command.environment.begin(), command.environment.end());
    arguments.emplace_back("--");
    arguments.insert(arguments.end(), command.arguments.begin(), command.arguments.end());
    return arguments;
}

std::vector<char*> pointersTo(std::vector<std::string>& strings)
{
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (std::string& string : strings) {
        pointers.push_back(string.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// The descriptors and the working directory that a spawned process begins with.
class SpawnActions
{
public:
    SpawnActions() { posix_spawn_file_actions_init(&actions_); }

    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }

    void open(int fd, const std::string& path, int flags)
    {
        posix_spawn_file_actions_addopen(&actions_, fd, path.c_str(), flags, 0600);
    }

    void duplicate(int from, int to) { posix_spawn_file_actions_adddup2(&actions_, from, to); }

    void changeDirectory(const std::string& path)
    {
        posix_spawn_file_actions_addchdir_np(&actions_, path.c_str());
    }

    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

// The message that the supervisor sends next; empty when the limit passes or it has gone.
std::optional<SupervisorMessage> receive(int lifeline, std::chrono::milliseconds limit)
{
    pollfd watched{lifeline, POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&watched, 1, static_cast<int>(limit.count()));
    } while (ready < 0 && errno == EINTR);
    SupervisorMessage message{};
    if (ready <= 0 || ::recv(lifeline, &message, sizeof message, MSG_WAITALL) !=
                          static_cast<ssize_t>(sizeof message)) {
        return std::nullopt;
    }
    return message;
}

ExitStatus toExitStatus(int status)
{
    return WIFSIGNALED(status) ? ExitStatus{0, WTERMSIG(status)}
                               : ExitStatus{WEXITSTATUS(status), 0};
}

} // namespace

ChildProcess::ChildProcess(const Command& command)
{
    if (command.arguments.empty()) {
        throw std::invalid_argument("a command needs a program");
    }
    start(command, files_.write("input", command.input));
    try {
        awaitStart();
    } catch (...) {
        lifeline_.reset();
        reapSupervisor();
        throw;
    }
}

ChildProcess::~ChildProcess()
{
    kill();
}

void ChildProcess::start(const Command& command, const std::string& inputFile)
{
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throwErrno("socketpair");
    }
    lifeline_.reset(ends[0]);
    // Above the descriptors that the actions assign, so that none is overwritten too early.
    const UniqueFd theirs(::fcntl(ends[1], F_DUPFD_CLOEXEC, kLifelineFd + 1));
    ::close(ends[1]);

    SpawnActions actions;
    actions.open(STDIN_FILENO, inputFile, O_RDONLY);
    actions.open(STDOUT_FILENO, files_.file(kOutputFile), O_WRONLY | O_CREAT | O_APPEND);
    actions.open(STDERR_FILENO, files_.file(kErrorFile), O_WRONLY | O_CREAT | O_APPEND);
    actions.duplicate(theirs.get(), kLifelineFd);
    if (!command.workingDirectory.empty()) {
        actions.changeDirectory(command.workingDirectory);
    }
    std::vector<std::string> arguments = supervisorArguments(command);
    const std::vector<char*> pointers = pointersTo(arguments);
    const int rc =
        ::posix_spawn(&supervisor_, pointers[0], actions.get(), nullptr, pointers.data(), environ);
    if (rc != 0) {
        throw std::system_error(rc, std::generic_category(), "cannot start the supervisor");
    }
}

void ChildProcess::awaitStart()
{
    const auto message = receive(lifeline_.get(), kGenerousLimit);
    if (!message) {
        throw std::runtime_error("the supervisor does not answer: " + errorOutput());
    }
    if (message->kind == SupervisorMessage::CouldNotStart) {
        throw std::system_error(message->value, std::generic_category(),
                                "cannot start the command");
    }
    pid_ = message->value;
}

void ChildProcess::reapSupervisor()
{
    while (supervisor_ > 0 && ::waitpid(supervisor_, nullptr, 0) < 0 && errno == EINTR) {
    }
    supervisor_ = -1;
}

std::vector<pid_t> ChildProcess::descendants() const
{
    return status_ ? std::vector<pid_t>{} : descendantsOf(pid_);
}

void ChildProcess::signal(int number)
{
    if (isRunning()) {
        ::kill(pid_, number);
    }
}

void ChildProcess::suspend()
{
    if (isRunning()) {
        signalDescendants(supervisor_, SIGSTOP);
    }
}

void ChildProcess::resume()
{
    if (isRunning()) {
        signalDescendants(supervisor_, SIGCONT);
    }
}

void ChildProcess::killDescendants()
{
    if (isRunning()) {
        // From the supervisor on: it adopts the child of whoever forks as it is killed.
        signalDescendants(supervisor_, SIGKILL, pid_);
    }
}

void ChildProcess::kill()
{
    if (status_) {
        return;
    }
    ::shutdown(lifeline_.get(), SHUT_WR);
    if (!wait(kGenerousLimit)) {
        ::kill(supervisor_, SIGKILL);
        reapSupervisor();
        status_ = ExitStatus{0, SIGKILL};
    }
}

std::optional<ExitStatus> ChildProcess::wait(std::chrono::milliseconds limit)
{
    if (status_) {
        return status_;
    }
    const auto message = receive(lifeline_.get(), limit);
    if (message && message->kind == SupervisorMessage::Ended) {
        status_ = toExitStatus(message->value);
        reapSupervisor();
    }
    return status_;
}

bool ChildProcess::isRunning()
{
    return !wait(std::chrono::milliseconds(0)).has_value();
}

std::string ChildProcess::output() const
{
    return readFile(files_.file(kOutputFile));
}

std::string ChildProcess::errorOutput() const
{
    return readFile(files_.file(kErrorFile));
}

CommandResult runCommand(const Command& command, std::chrono::milliseconds limit)
{
    ChildProcess child(command);
    CommandResult result;
    result.timedOut = !child.wait(limit).has_value();
    child.kill();
    result.status = child.wait().value();
    result.output = child.output();
    result.errorOutput = child.errorOutput();
    return result;
}

std::string mustRun(const Command& command)
{
    const CommandResult result = runCommand(command);
    if (!result.succeeded()) {
        throw std::runtime_error(command.arguments[0] + " failed: " + result.errorOutput +
                                 result.output);
    }
    return result.output;
}

std::string findProgram(const std::vector<std::string>& candidates)
{
    for (const std::string& candidate : candidates) {
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return {};
}

} // namespace TarnisTest
