#include "handles/SSHFailure.h"

#include "handles/SSHHandleSession.h"

#include <FileSystem/FailureScope.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureSource;

namespace {

/// Whether a socket's connection can end for this reason, in the words of the system or of libssh.
bool isReasonOfLoss(std::string_view text)
{
    constexpr std::array reasons{ECONNRESET,  EPIPE,        ETIMEDOUT, ECONNABORTED, ECONNREFUSED,
                                 ENETUNREACH, EHOSTUNREACH, ENETDOWN,  ENETRESET,    ENOTCONN};
    return text == "disconnected" ||
           std::any_of(reasons.begin(), reasons.end(), [text](int reason) {
               return text == std::generic_category().message(reason);
           });
}

} // namespace

std::string transportText(ssh_session session)
{
    const char* const text = session != nullptr ? ssh_get_error(session) : nullptr;
    return text != nullptr ? text : "";
}

// When a connection ends, libssh tells of whatever errno is at that moment, which may come from a
// call that has nothing to do with it ("Socket error: No such file or directory"), or be none.
std::string transportFailureText(ssh_session session)
{
    constexpr std::string_view prefix = "Socket error: ";
    std::string text = transportText(session);
    const bool isErrnos = std::string_view(text).substr(0, prefix.size()) == prefix;
    const bool isMadeUp = isErrnos && ssh_is_connected(session) == 0 &&
                          !isReasonOfLoss(std::string_view(text).substr(prefix.size()));
    return isMadeUp ? std::string() : text;
}

FailureCode transportFailureCode(ssh_session session, FailureCode otherwise)
{
    if (ssh_is_connected(session) == 0) {
        return FailureCode::ConnectionLost;
    }
    return ssh_get_error_code(session) == SSH_REQUEST_DENIED ? FailureCode::Denied : otherwise;
}

bool noteTransportFailure(ssh_session session, FailureCode otherwise, std::string entry)
{
    if (session == nullptr) {
        return fail(FailureCode::ConnectionLost, {}, std::move(entry));
    }
    return fail(transportFailureCode(session, otherwise), FailureSource::Transport,
                ssh_get_error_code(session), transportFailureText(session), std::move(entry));
}

bool noteTransportFailure(SSHHandleSession& session, FailureCode otherwise, std::string entry)
{
    const auto lock = session.getLock();
    return noteTransportFailure(session.getResource(), otherwise, std::move(entry));
}

bool noteConnectionLost(std::string text)
{
    return fail(FailureCode::ConnectionLost, std::move(text));
}

} // namespace Tarnis
