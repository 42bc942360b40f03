#include "Commands.h"
#include "Failure.h"
#include "doctor/Advice.h"
#include "doctor/Report.h"
#include "files/Endpoint.h"
#include "login/Connecting.h"
#include "login/ConnectionOptions.h"
#include "login/HostKeyCheck.h"
#include "login/Login.h"
#include "login/Target.h"
#include "terminal/Messages.h"
#include "terminal/Sizes.h"
#include "terminal/StandardStreams.h"

#include <FileSystem/Failure.h>
#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHSession.h>

#include <CLI/CLI.hpp>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

/// Goes the way to a server step by step and says what each of them found, on standard output.
class Doctor
{
public:
    /// \param writes whether a small file may be written on the server, and removed again.
    Doctor(Target target, const LoginOptions& options, LoginSecrets secrets, bool writes);

    /// True: every step went well.
    bool run(Report& report);

private:
    struct Step
    {
        const char* name;
        /// Whether the later ones make no sense without it.
        bool isOnTheWay;
        /// Returns what it found; throws Failure.
        std::string (Doctor::*examine)();
    };

    static const std::vector<Step>& steps();

    bool take(Report& report, const Step& step);
    std::string resolve();
    std::string connect();
    std::string checkHostKey();
    std::string logIn();
    std::string runCommand();
    std::string lookAtFiles();
    std::string lookAtFilesAnew();
    std::string lookAtFilesOn(Tarnis::SSHSession& session) const;
    std::string writeFile(const Tarnis::SSHFileSystemSFTP& files) const;

    Target target_;
    const LoginOptions& options_;
    LoginSecrets secrets_;
    bool writes_;
    Tarnis::SSHSession session_;
};

using AddressList = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

// Longer than any shell takes to start.
constexpr std::chrono::seconds commandLimit{30};
constexpr const char* probeCommand = "echo tarnis";
constexpr const char* probeOutput = "tarnis";

std::string numericAddress(const addrinfo& address)
{
    std::array<char, NI_MAXHOST> text{};
    const int result = ::getnameinfo(address.ai_addr, address.ai_addrlen, text.data(), text.size(),
                                     nullptr, 0, NI_NUMERICHOST);
    return result == 0 ? text.data() : "?";
}

/// Some servers end lines with CR LF, and add an empty line at the end of a command.
std::string withoutLineEnd(const std::string& text)
{
    return text.substr(0, text.find_last_not_of(" \r\n") + 1);
}

std::string describeEnd(const Tarnis::SSHExecuteResult& result)
{
    if (!result.exitSignal.empty()) {
        return "the signal " + printable(result.exitSignal) + " ended it";
    }
    return result.exitCode ? "exit code " + std::to_string(*result.exitCode) : "no exit code";
}

/// Says how the command ended; throws Failure where it did not succeed.
std::string judge(const Tarnis::SSHExecuteResult& result, const Target& target)
{
    if (result.exitCode != 0) {
        throw Failure(FailureKind::CommandRefused, "cannot run a command on", target.display(),
                      describeEnd(result) + ", it says \"" +
                          printable(result.output + result.errorOutput) + "\"");
    }
    if (withoutLineEnd(result.output) == probeOutput) {
        return "the shell runs commands";
    }
    return "the shell runs commands, but its start-up files, or a command that the server forces, "
           "write to standard output, which disturbs file transfer: \"" +
           printable(result.output) + "\"";
}

std::size_t countEntries(const Tarnis::SSHFileSystemSFTP& files, const Target& target)
{
    const auto entries = files.directoryReadFully(".");
    if (!entries) {
        throw Failure(FailureKind::FileProblem, "cannot list the login directory on",
                      target.display(), FileSystem::Failure::last().cause());
    }
    return entries->size();
}

using Mode = FileSystem::StorageSystemFileOpenModeFlag;

/// Why the text cannot be written; empty where it can.
std::string problemOfWriting(FileSystem::StorageSystemFile& file, const std::string& text)
{
    const bool isWritten = file.writeFully(text.data(), text.size()) && file.close();
    return isWritten ? std::string() : FileSystem::Failure::last().cause();
}

/// Why the file does not have this text; empty where it does.
std::string problemOfReading(const Tarnis::SSHFileSystemSFTP& files, const std::string& path,
                             const std::string& text)
{
    const auto file = files.fileOpen(path, Mode::Read);
    std::string back(text.size(), '\0');
    const bool isRead = file != nullptr && file->readFully(back.data(), back.size()).count > 0;
    if (isRead && back != text) {
        return "what was read back is not what was written";
    }
    return isRead ? std::string() : FileSystem::Failure::last().cause();
}

Doctor::Doctor(Target target, const LoginOptions& options, LoginSecrets secrets, bool writes)
    : target_(std::move(target))
    , options_(options)
    , secrets_(std::move(secrets))
    , writes_(writes)
{}

/// In the order in which they build on one another. A server may well run no commands and transfer
/// files.
const std::vector<Doctor::Step>& Doctor::steps()
{
    static const std::vector<Step> all{
        {"name", true, &Doctor::resolve},          {"connect", true, &Doctor::connect},
        {"host key", true, &Doctor::checkHostKey}, {"login", true, &Doctor::logIn},
        {"command", false, &Doctor::runCommand},   {"files", false, &Doctor::lookAtFiles},
    };
    return all;
}

bool Doctor::run(Report& report)
{
    report.heading(target_);
    bool isWell = true;
    bool leadsOn = true;
    for (const Step& step : steps()) {
        if (!leadsOn) {
            report.skipped(step.name);
        } else if (!take(report, step)) {
            isWell = false;
            leadsOn = !step.isOnTheWay;
        }
    }
    report.finish(isWell);
    return isWell;
}

bool Doctor::take(Report& report, const Step& step)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    try {
        const std::string finding = (this->*step.examine)();
        report.good(step.name, Clock::now() - start, finding);
        return true;
    } catch (const Failure& failure) {
        report.bad(step.name, Clock::now() - start, failure.what(),
                   adviceFor(failure, target_, options_, session_.getOfferedMethods()));
        return false;
    }
}

std::string Doctor::resolve()
{
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int result = ::getaddrinfo(target_.host.c_str(), nullptr, &hints, &found);
    if (result != 0) {
        throw Failure(FailureKind::UnknownHostName, "cannot resolve", target_.host,
                      ::gai_strerror(result));
    }
    const AddressList addresses(found, ::freeaddrinfo);
    std::string list = numericAddress(*addresses);
    for (const addrinfo* next = addresses->ai_next; next != nullptr; next = next->ai_next) {
        list += ", " + numericAddress(*next);
    }
    return list;
}

std::string Doctor::connect()
{
    connectTo(session_, target_, options_.reach);
    return "port " + std::to_string(target_.port) + " speaks SSH, keys are exchanged";
}

std::string Doctor::checkHostKey()
{
    HostKeyCheck check(session_, target_, options_);
    check.run();
    return check.finding();
}

std::string Doctor::logIn()
{
    Login login(session_, target_, options_, secrets_);
    login.run();
    return target_.user + "; " + login.history();
}

std::string Doctor::runCommand()
{
    using Outcome = Tarnis::SSHExecuteResult::Outcome;
    const auto result = session_.execute(probeCommand, {}, commandLimit);
    switch (result.outcome) {
    case Outcome::Completed:
        return judge(result, target_);
    case Outcome::TimedOut:
        throw Failure(FailureKind::CommandTimedOut, "gave up a command on", target_.display(),
                      "it did not end within " + std::to_string(commandLimit.count()) + " seconds");
    case Outcome::NotStarted:
        throw Failure(FailureKind::CommandRefused, "cannot run a command on", target_.display(),
                      result.error);
    case Outcome::ConnectionLost:
        break;
    }
    throw Failure(FailureKind::ConnectionLost, "lost the connection to", target_.display(),
                  result.error);
}

/// Some servers allow one session per connection, or end the connection with the command.
std::string Doctor::lookAtFiles()
{
    if (!session_.isConnected()) {
        return lookAtFilesAnew();
    }
    try {
        return lookAtFilesOn(session_);
    } catch (const Failure& failure) {
        if (failure.kind() != FailureKind::FileTransferRefused &&
            failure.kind() != FailureKind::SessionRefused &&
            failure.kind() != FailureKind::ConnectionLost) {
            throw;
        }
    }
    return lookAtFilesAnew();
}

std::string Doctor::lookAtFilesAnew()
{
    Tarnis::SSHSession session;
    openSession(session, target_, options_, secrets_);
    return lookAtFilesOn(session) +
           "; on a connection of its own, since the one with the command had room for nothing else";
}

/// Reads only, unless the user has allowed more.
std::string Doctor::lookAtFilesOn(Tarnis::SSHSession& session) const
{
    const Watchdog watchdog(session, commandLimit);
    try {
        const auto files = startFileTransfer(session, target_);
        const std::string count = std::to_string(countEntries(*files, target_));
        const auto room = files->fileStorageInfo(".");
        return "SFTP; the login directory has " + count + " entries" +
               (room ? ", " + humanSize(room->available) + " free of " + humanSize(room->capacity)
                     : ", the server tells no free room") +
               (writes_ ? "; " + writeFile(*files) : "");
    } catch (const Failure&) {
        if (!watchdog.hasBitten()) {
            throw;
        }
        throw Failure(FailureKind::CommandTimedOut, "gave up file transfer with", target_.display(),
                      "no answer within " + std::to_string(commandLimit.count()) + " seconds");
    }
}

/// The file is closed before it is read back: some servers let nobody read what is open for
/// writing.
std::string Doctor::writeFile(const Tarnis::SSHFileSystemSFTP& files) const
{
    const std::string path = "./.tarnis-doctor-" + std::to_string(::getpid());
    const std::string text = "written by tarnis doctor, to be removed\n";
    auto file = files.fileOpen(path, Mode::Write | Mode::Create | Mode::Exclusive);
    if (file == nullptr) {
        throw Failure(FailureKind::FileProblem, "cannot write a file on", target_.display(),
                      FileSystem::Failure::last().cause());
    }
    std::string problem = problemOfWriting(*file, text);
    file.reset();
    if (problem.empty()) {
        problem = problemOfReading(files, path, text);
    }
    const bool isRemoved = files.fileRemove(path);
    const std::string reason = FileSystem::Failure::last().cause();
    if (!problem.empty()) {
        throw Failure(FailureKind::FileProblem, "cannot write a file on", target_.display(),
                      problem);
    }
    if (!isRemoved) {
        throw Failure(FailureKind::FileProblem, "cannot remove " + path + " on", target_.display(),
                      reason);
    }
    return "a file was written, read back and removed";
}

/// `tarnis doctor`: finds out where the way to a server is blocked, and what to do about it.
class DoctorCommand : public Command
{
public:
    explicit DoctorCommand(CLI::App& program);

    int run(const std::vector<std::string>& words) override;

private:
    std::string targetText_;
    LoginOptions options_;
    bool writes_ = false;
    bool isJson_ = false;
};

std::unique_ptr<Report> makeReport(bool isJson)
{
    if (isJson) {
        return std::make_unique<JsonReport>();
    }
    return std::make_unique<TextReport>();
}

DoctorCommand::DoctorCommand(CLI::App& program)
    : Command(program, "doctor", "Find out what keeps you from a server")
{
    commandLine()
        .add_option("target", targetText_, "The server: [user@]host[:port]")
        ->required()
        ->type_name("");
    commandLine().add_flag("--write", writes_,
                           "Also write a small hidden file to the login directory, read it back "
                           "and remove it; without this, nothing on the server is changed");
    commandLine().add_flag("--json", isJson_, "Print one JSON object instead of lines");
    declareLoginOptions(commandLine(), options_);
    commandLine().footer(
        "Goes the way to the server step by step (name, connection, host key, login, command,\n"
        "files), and says what each step found and how long it took; where one fails, also what\n"
        "to do.\n"
        "Exit code 0 when all is well, 1 when a step failed.");
}

int DoctorCommand::run(const std::vector<std::string>& words)
{
    if (!words.empty()) {
        throw UsageError("doctor takes no command line");
    }
    Target target = parseTarget(targetText_, options_.reach.port);
    LoginSecrets secrets = LoginSecrets::fetch(options_);
    const std::unique_ptr<Report> report = makeReport(isJson_);
    Doctor doctor(std::move(target), options_, std::move(secrets), writes_);
    const bool isWell = doctor.run(*report);
    flushOutput();
    return isWell ? ExitCode::success : ExitCode::failure;
}

} // namespace

std::unique_ptr<Command> makeDoctorCommand(CLI::App& program)
{
    return std::make_unique<DoctorCommand>(program);
}

} // namespace TarnisTool
