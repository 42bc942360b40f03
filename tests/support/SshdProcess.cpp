#include "support/SshdProcess.h"

#include "support/ProcessTree.h"
#include "support/ServerPort.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <stdexcept>

#include <unistd.h>

namespace TarnisTest {

namespace {

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

std::vector<std::uint16_t> pickPorts(std::size_t count)
{
    std::vector<std::uint16_t> ports;
    while (ports.size() < count) {
        const std::uint16_t port = pickPort();
        if (std::find(ports.begin(), ports.end(), port) == ports.end()) {
            ports.push_back(port);
        }
    }
    return ports;
}

} // namespace

SshdProcess::SshdProcess(std::size_t portCount, CommandForPorts command, StartupCheck check)
    : portCount_(portCount)
    , command_(std::move(command))
    , check_(std::move(check))
{}

void SshdProcess::start()
{
    constexpr int kAttempts = 20;
    const bool ranBefore = !ports_.empty();
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const auto ports = ranBefore ? ports_ : pickPorts(portCount_);
        if (tryStart(ports)) {
            ports_ = ports;
            return;
        }
    }
    throw std::runtime_error("the server finds no free port: " + log());
}

bool SshdProcess::tryStart(const std::vector<std::uint16_t>& ports)
{
    process_ = std::make_unique<ChildProcess>(command_(ports));
    Startup state = Startup::Pending;
    const bool decided = waitUntil([&] {
        state = check_(*process_, ports);
        return state != Startup::Pending;
    });
    if (!decided || state == Startup::Failed) {
        throw std::runtime_error("the server does not come up: " + log());
    }
    return state == Startup::Listening;
}

void SshdProcess::stop()
{
    if (isRunning()) {
        process_->resume();
        process_->signal(SIGTERM);
        (void)process_->wait();
    }
}

void SshdProcess::killAll()
{
    if (process_) {
        process_->kill();
    }
}

void SshdProcess::killConnections()
{
    if (process_) {
        process_->killDescendants();
    }
}

void SshdProcess::suspendAll()
{
    if (process_) {
        process_->suspend();
    }
}

void SshdProcess::resumeAll()
{
    if (process_) {
        process_->resume();
    }
}

bool SshdProcess::isRunning() const
{
    return process_ && process_->isRunning();
}

std::size_t SshdProcess::connectionProcessCount() const
{
    return isRunning() ? childrenOf(process_->pid()).size() : 0;
}

std::string SshdProcess::log() const
{
    return process_ ? process_->errorOutput() : std::string();
}

std::string findSshd()
{
    // By absolute path: sshd insists on it, since it starts itself anew for each connection.
    return findProgram({"/usr/sbin/sshd", "/usr/local/sbin/sshd", "/sbin/sshd"});
}

void providePrivilegeSeparationDirectory()
{
    const std::filesystem::path directory = "/run/sshd";
    if (::geteuid() == 0 && !std::filesystem::exists(directory)) {
        std::filesystem::create_directory(directory);
        std::filesystem::permissions(directory, std::filesystem::perms(0755));
    }
}

SshdProcess::Startup checkStartupLog(ChildProcess& process,
                                     const std::function<bool(const std::string& log)>& isListening)
{
    // In this order: the log of a process that has ended is complete.
    const bool running = process.isRunning();
    const std::string log = process.errorOutput();
    if (contains(log, "Address already in use")) {
        return SshdProcess::Startup::PortTaken;
    }
    if (!running) {
        return SshdProcess::Startup::Failed;
    }
    return isListening(log) ? SshdProcess::Startup::Listening : SshdProcess::Startup::Pending;
}

SshdProcess::Startup checkSshdStartup(ChildProcess& process,
                                      const std::vector<std::uint16_t>& ports)
{
    return checkStartupLog(process, [&](const std::string& log) {
        return std::all_of(ports.begin(), ports.end(), [&log](std::uint16_t port) {
            return contains(log, "listening on 127.0.0.1 port " + std::to_string(port) + ".");
        });
    });
}

std::string withoutPenalties()
{
    static const std::string line = [] {
        const std::string setting = "PerSourcePenalties no";
        Command command;
        command.arguments = {findSshd(), "-G", "-f", "/dev/null", "-o", setting};
        return runCommand(command).succeeded() ? setting + "\n" : std::string();
    }();
    return line;
}

Command sshdCommand(const std::string& configurationFile)
{
    Command command;
    command.arguments = {findSshd(), "-D", "-e", "-f", configurationFile};
    return command;
}

} // namespace TarnisTest
