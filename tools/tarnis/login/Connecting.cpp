#include "login/Connecting.h"

#include "Failure.h"
#include "login/Watchdog.h"

#include <array>
#include <string_view>

namespace TarnisTool {

namespace {

struct KnownReason
{
    std::string_view text;
    FailureKind kind;
};

// The library hands on libssh's words, and libssh those of the system: there is nothing else to
// tell the reasons apart by. A reason that is not recognised costs a piece of advice, no more.
constexpr std::array<KnownReason, 12> knownReasons{{
    {"Failed to resolve hostname", FailureKind::UnknownHostName},
    {"Connection refused", FailureKind::ConnectionRefused},
    {"imeout", FailureKind::ConnectionTimedOut},
    {"timed out", FailureKind::ConnectionTimedOut},
    {"No route to host", FailureKind::HostUnreachable},
    {"unreachable", FailureKind::HostUnreachable},
    {"no match for method", FailureKind::NoCommonAlgorithm},
    {"banner", FailureKind::NotAnSshServer},
    {"protocol version", FailureKind::NotAnSshServer},
    {"Protocol version", FailureKind::NotAnSshServer},
    {"disconnected", FailureKind::NotAnSshServer},
    {"Connection reset", FailureKind::NotAnSshServer},
}};

FailureKind kindOf(std::string_view reason)
{
    for (const KnownReason& known : knownReasons) {
        if (reason.find(known.text) != std::string_view::npos) {
            return known.kind;
        }
    }
    return FailureKind::ConnectionLost;
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
    if (!file.empty() && !session.setKnownHostsFile(withEscapedPercentSigns(file))) {
        throw UsageError("\"" + file + "\" cannot be a known-hosts file");
    }
}

[[noreturn]] void throwTimedOut(const Target& target, std::chrono::seconds limit)
{
    const std::string within = limit > std::chrono::seconds::zero()
                                   ? " within " + std::to_string(limit.count()) + " seconds"
                                   : "";
    throw Failure(FailureKind::ConnectionTimedOut, "cannot connect to", target.display(),
                  "no answer" + within);
}

} // namespace

void connectTo(Tarnis::SSHSession& session, Target& target, const ReachOptions& options)
{
    configure(session, target, options);
    const Watchdog watchdog(session, options.connectTimeout);
    if (!session.connect()) {
        const std::string reason = session.getLastError();
        if (watchdog.hasBitten() || reason.empty()) {
            throwTimedOut(target, options.connectTimeout);
        }
        throw Failure(kindOf(reason), "cannot connect to", target.display(), reason);
    }
    if (target.user.empty()) {
        target.user = session.getUserName();
    }
}

std::string forgetLastError(Tarnis::SSHSession& session)
{
    // This port is refused and changes nothing but the message.
    static_cast<void>(session.setPortNumber(0));
    return session.getLastError();
}

void throwConnectionLost(const Tarnis::SSHSession& session, const Target& target,
                         const std::string& what)
{
    const std::string reason = session.getLastError();
    throw Failure(FailureKind::ConnectionLost, what, target.display(),
                  reason.empty() ? "the connection is lost" : reason);
}

} // namespace TarnisTool
