#include "login/Connecting.h"

#include "Failure.h"

#include <Tarnis/SSHFailureCode.h>

#include <array>
#include <system_error>

#include <sys/stat.h>

namespace TarnisTool {

Watchdog::Watchdog(Tarnis::SSHSession& session, std::chrono::milliseconds limit)
    : session_(session)
{
    if (limit > std::chrono::milliseconds::zero()) {
        thread_ = std::thread([this, limit] { watch(limit); });
    }
}

Watchdog::~Watchdog()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isOver_ = true;
    }
    condition_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool Watchdog::hasBitten() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return hasBitten_;
}

void Watchdog::watch(std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (!condition_.wait_for(lock, limit, [this] { return isOver_; })) {
        hasBitten_ = true;
        session_.interrupt();
    }
}

namespace {

struct KnownReason
{
    Tarnis::SSHFailureCode code;
    FailureKind kind;
};

constexpr std::array<KnownReason, 6> knownReasons{{
    {Tarnis::SSHFailureCode::NameNotResolved, FailureKind::UnknownHostName},
    {Tarnis::SSHFailureCode::Refused, FailureKind::ConnectionRefused},
    {Tarnis::SSHFailureCode::TimedOut, FailureKind::ConnectionTimedOut},
    {Tarnis::SSHFailureCode::Unreachable, FailureKind::HostUnreachable},
    {Tarnis::SSHFailureCode::NoCommonAlgorithm, FailureKind::NoCommonAlgorithm},
    {Tarnis::SSHFailureCode::NoSshServer, FailureKind::NotAnSshServer},
}};

FailureKind kindOf(const std::error_code& code)
{
    for (const KnownReason& known : knownReasons) {
        if (code == known.code) {
            return known.kind;
        }
    }
    // A connection that ends before the keys are exchanged may be to any kind of server.
    const bool isHangUp = code == std::errc::connection_reset ||
                          code == FileSystem::FailureCode::Protocol ||
                          code == FileSystem::FailureCode::Other;
    return isHangUp ? FailureKind::NotAnSshServer : FailureKind::LocalProblem;
}

/// The file with exactly this name: the library takes percent signs for the beginning of an escape.
std::string withEscapedPercentSigns(const std::string& path)
{
    std::string escaped;
    for (const char character : path) {
        escaped += character == '%' ? std::string("%%") : std::string(1, character);
    }
    return escaped;
}

void configure(Tarnis::SSHSession& session, const Target& target, const ReachOptions& options)
{
    const bool accepted = session.setHostName(target.host) && session.setPortNumber(target.port) &&
                          (target.user.empty() || session.setUserName(target.user));
    if (!accepted) {
        throw UsageError("\"" + target.display() + "\" names no target: it has characters that a " +
                         "host or user name cannot have");
    }
    const std::string& file = options.knownHostsFile;
    struct stat status = {};
    if (::stat(file.c_str(), &status) == 0 && S_ISFIFO(status.st_mode)) {
        // libssh opens the file more than once, and each time would wait for a writer.
        throw UsageError("\"" + file + "\" cannot be a known-hosts file: it is a pipe");
    }
    if (!file.empty() && !session.setKnownHostsFile(withEscapedPercentSigns(file))) {
        throw UsageError("\"" + file + "\" cannot be a known-hosts file");
    }
}

[[noreturn]] void throwTimedOut(const Target& target, std::chrono::seconds limit)
{
    throw Failure(FailureKind::ConnectionTimedOut, "cannot connect to", target.display(),
                  "no answer within " + std::to_string(limit.count()) + " seconds");
}

} // namespace

void connectTo(Tarnis::SSHSession& session, Target& target, const ReachOptions& options)
{
    configure(session, target, options);
    const Watchdog watchdog(session, options.connectTimeout);
    if (!session.connect()) {
        const auto why = FileSystem::Failure::last();
        if (watchdog.hasBitten()) {
            throwTimedOut(target, options.connectTimeout);
        }
        throw Failure(kindOf(why.code()), "cannot connect to", target.display(), why.cause());
    }
    if (target.user.empty()) {
        target.user = session.getUserName();
    }
}

void throwConnectionLost(const Target& target, const std::string& what,
                         const FileSystem::Failure& why)
{
    throw Failure(FailureKind::ConnectionLost, what, target.display(),
                  why ? why.cause() : "the connection is lost");
}

} // namespace TarnisTool
