#include "handles/SSHFailure.h"

#include "handles/SSHHandleSession.h"

#include <FileSystem/FailureScope.h>

#include <utility>

namespace Tarnis {

using FileSystem::fail;
using FileSystem::FailureCode;
using FileSystem::FailureSource;

namespace {

std::string textOf(ssh_session session)
{
    const char* const text = ssh_get_error(session);
    return text != nullptr ? text : "";
}

} // namespace

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
                ssh_get_error_code(session), textOf(session), std::move(entry));
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
