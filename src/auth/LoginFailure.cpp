#include "auth/LoginFailure.h"

#include "handles/SSHFailure.h"
#include "handles/SSHHandleSession.h"

#include <FileSystem/FailureScope.h>
#include <Tarnis/SSHFailureCode.h>

#include <array>
#include <system_error>
#include <utility>

namespace Tarnis {

using FileSystem::FailureCode;

namespace {

struct Method
{
    int flag;
    const char* name;
};

constexpr std::array<Method, 6> methods{{
    {SSH_AUTH_METHOD_NONE, "none"},
    {SSH_AUTH_METHOD_PASSWORD, "password"},
    {SSH_AUTH_METHOD_PUBLICKEY, "publickey"},
    {SSH_AUTH_METHOD_HOSTBASED, "hostbased"},
    {SSH_AUTH_METHOD_INTERACTIVE, "keyboard-interactive"},
    {SSH_AUTH_METHOD_GSSAPI_MIC, "gssapi-with-mic"},
}};

std::string listOf(const std::set<std::string>& names)
{
    std::string list;
    for (const auto& name : names) {
        list += (list.empty() ? "" : ", ") + name;
    }
    return list;
}

std::error_code codeOf(ssh_session session, int answer)
{
    switch (answer) {
    case SSH_AUTH_PARTIAL:
        return SSHFailureCode::MoreRequired;
    case SSH_AUTH_AGAIN:
        return SSHFailureCode::TimedOut;
    case SSH_AUTH_ERROR:
        return canNeverAnswer(session) ? make_error_code(SSHFailureCode::Lost)
                                       : make_error_code(FailureCode::Other);
    default:
        return SSHFailureCode::Denied;
    }
}

} // namespace

std::set<std::string> offeredMethods(ssh_session session)
{
    const int flags = ssh_userauth_list(session, nullptr);
    std::set<std::string> names;
    for (const auto& method : methods) {
        if ((flags & method.flag) != 0) {
            names.insert(method.name);
        }
    }
    return names;
}

bool canNeverAnswer(ssh_session session)
{
    return ssh_is_connected(session) == 0 || (ssh_get_status(session) & SSH_CLOSED_ERROR) != 0;
}

void noteLoginFailure(SSHHandleSession& session, int answer)
{
    ssh_session asked = session.getResource();
    const auto code = codeOf(asked, answer);
    // What libssh has to say after a partial success, or when the time is up, is older.
    const bool isLibsshs = code != SSHFailureCode::MoreRequired && code != SSHFailureCode::TimedOut;
    if (isLibsshs) {
        FileSystem::fail(code, FileSystem::FailureSource::Transport, ssh_get_error_code(asked),
                         transportFailureText(asked));
    } else {
        FileSystem::fail(code, code == SSHFailureCode::MoreRequired ? listOf(offeredMethods(asked))
                                                                    : std::string());
    }
}

} // namespace Tarnis
