#include "session/ConnectFailure.h"

#include "session/AlgorithmMismatch.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FailureScope.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureSource;

namespace {

bool beginsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

bool endsWith(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// The messages below are those of libssh 0.10.6, 0.11.5 and 0.12.2. It resolves the name, connects
// and reads the socket's error by itself, and keeps neither number: its message is all that is
// left.

constexpr std::string_view nameNotResolved = "Failed to resolve hostname ";
constexpr std::string_view badOptions = "Couldn't apply options";
constexpr std::string_view socketError = "Socket error: ";
constexpr std::string_view disconnectedByServer = "Received SSH_MSG_DISCONNECT";

struct ErrnoCode
{
    int number;
    std::error_code code;
};

/// What a failed connect() of the system means.
std::optional<std::error_code> codeOfSystemsText(std::string_view text)
{
    // In an order in which none is the end of another.
    static const std::array<ErrnoCode, 13> known{{
        {ECONNREFUSED, SSHFailureCode::Refused},
        {EHOSTUNREACH, SSHFailureCode::Unreachable},
        {ENETUNREACH, SSHFailureCode::Unreachable},
        {EHOSTDOWN, SSHFailureCode::Unreachable},
        {ENETDOWN, SSHFailureCode::Unreachable},
        {EADDRNOTAVAIL, SSHFailureCode::Unreachable},
        {ETIMEDOUT, SSHFailureCode::TimedOut},
        // Before it has said what it is, as one that just hangs up.
        {ECONNRESET, SSHFailureCode::NoSshServer},
        {EACCES, FailureCode::Denied},
        {EPERM, FailureCode::Denied},
        {EMFILE, FailureCode::NoResources},
        {ENFILE, FailureCode::NoResources},
        {ENOBUFS, FailureCode::NoResources},
    }};
    for (const auto& each : known) {
        // libssh ends its message by the system's text, which is in the language of the process.
        if (endsWith(text, std::generic_category().message(each.number))) {
            return each.code;
        }
    }
    return std::nullopt;
}

bool isOfToday(std::string_view identification)
{
    return beginsWith(identification, "SSH-2.") || beginsWith(identification, "SSH-1.99-");
}

/// The server has said that it is one.
std::error_code classifyKeyExchange(const ConnectFacts& facts)
{
    if (!isOfToday(facts.serverIdentification)) {
        return SSHFailureCode::NoSshServer;
    }
    if (readAlgorithmMismatch(facts.text).has_value()) {
        return SSHFailureCode::NoCommonAlgorithm;
    }
    const bool isLost =
        beginsWith(facts.text, socketError) || beginsWith(facts.text, disconnectedByServer);
    return isLost ? make_error_code(SSHFailureCode::Lost) : make_error_code(FailureCode::Protocol);
}

std::error_code classifyReaching(const ConnectFacts& facts)
{
    if (const auto code = codeOfSystemsText(facts.text)) {
        return *code;
    }
    if (facts.hasSocket) {
        return SSHFailureCode::NoSshServer;
    }
    if (beginsWith(facts.text, nameNotResolved)) {
        return SSHFailureCode::NameNotResolved;
    }
    return beginsWith(facts.text, badOptions) ? FailureCode::BadName : FailureCode::Other;
}

} // namespace

std::error_code classifyConnectFailure(const ConnectFacts& facts)
{
    if (facts.wasInterrupted) {
        return SSHFailureCode::Interrupted;
    }
    if (facts.isTimeUp) {
        return SSHFailureCode::TimedOut;
    }
    if (!facts.hasHostName) {
        return FailureCode::BadName;
    }
    return facts.serverIdentification.empty() ? classifyReaching(facts)
                                              : classifyKeyExchange(facts);
}

bool isReasonForgotten(const ConnectFacts& facts)
{
    return !facts.wasInterrupted && !facts.isTimeUp && !facts.serverIdentification.empty() &&
           beginsWith(facts.text, socketError) && facts.shownText.empty();
}

void noteConnectFailure(const ConnectFacts& facts, int number, std::string where)
{
    const auto code = classifyConnectFailure(facts);
    if (code == SSHFailureCode::Interrupted) {
        // What libssh says of a socket that was shut down under it is no reason.
        fail(code, {}, std::move(where));
    } else {
        fail(code, FailureSource::Transport, number, facts.shownText, std::move(where));
    }
}

} // namespace Tarnis
