#pragma once

#include "support/Availability.h"
#include "support/ChildProcess.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace TarnisTest {

/// The process side of an SSH server program that listens on given ports: started again with other
/// ports while one is taken, and signalled together with the processes that serve its connections.
/// What it is told and how it says that it listens is the caller's business.
class SshdProcess
{
public:
    /// The command that serves these ports.
    using CommandForPorts = std::function<Command(const std::vector<std::uint16_t>& ports)>;

    enum class Startup
    {
        Pending,
        Listening,
        PortTaken,
        Failed
    };
    /// Looks at the process and the ports it was given and tells how far it has come.
    using StartupCheck =
        std::function<Startup(ChildProcess& process, const std::vector<std::uint16_t>& ports)>;

    SshdProcess(std::size_t portCount, CommandForPorts command, StartupCheck check);

    /// Starts on fresh ports, or on the former ones when it ran before. Returns when it listens;
    /// throws std::runtime_error, with the log, when it does not.
    void start();
    /// Ends the listener (SIGTERM) and every connection. Nothing when it does not run.
    void stop();
    /// Kills the listener and every process that serves a connection, all at once.
    void killAll();
    /// Kills the processes that serve connections; the listener goes on.
    void killConnections();
    /// Stops the listener and every process that serves a connection in their tracks: sockets stay
    /// open and silent, as when the machine hangs.
    void suspendAll();
    void resumeAll();

    bool isRunning() const;

    const std::vector<std::uint16_t>& ports() const { return ports_; }

    /// Processes that the listener started and that run: one for each connection.
    std::size_t connectionProcessCount() const;
    /// What the server has logged since its last start.
    std::string log() const;

private:
    bool tryStart(const std::vector<std::uint16_t>& ports);

    std::size_t portCount_;
    CommandForPorts command_;
    StartupCheck check_;
    std::vector<std::uint16_t> ports_;
    std::unique_ptr<ChildProcess> process_;
};

/// The sshd of OpenSSH; empty when it is not installed.
std::string findSshd();

/// Makes the directory that sshd, started by root, locks its unprivileged part into. The service's
/// unit file makes it on a machine where the service runs; elsewhere it may be missing.
void providePrivilegeSeparationDirectory();

/// How far a server has come that names a port that is taken in its log.
/// \param isListening whether its log says so.
SshdProcess::Startup
checkStartupLog(ChildProcess& process,
                const std::function<bool(const std::string& log)>& isListening);

/// OpenSSH's way of saying that it listens, or that it cannot.
SshdProcess::Startup checkSshdStartup(ChildProcess& process,
                                      const std::vector<std::uint16_t>& ports);

/// The line of a configuration that allows any number of failures. From 9.8 on sshd turns an
/// address away for a while after failed log-ins and connections that end early, and every test
/// comes from the same one. Empty for an sshd that does not know of it.
std::string withoutPenalties();

/// `sshd` in the foreground, with its log on standard error.
Command sshdCommand(const std::string& configurationFile);

} // namespace TarnisTest
