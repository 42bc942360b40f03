#include "handles/SSHSessionOptions.h"

#include "handles/CString.h"
#include "handles/SSHCall.h"
#include "handles/SSHHandleSession.h"

#include <Tarnis/SSHDefaultDeleter.h>

#include <memory>

namespace Tarnis {

bool isOptionText(const std::string& text)
{
    return !text.empty() && fitsCString(text);
}

bool setUserNameOption(SSHHandleSession& session, const std::string& userName)
{
    const auto lock = session.getLock();
    const std::string former = readTextOption(session, SSH_OPTIONS_USER);
    if (callLocked(session, ssh_options_set, SSH_OPTIONS_USER, userName.c_str()) == SSH_OK) {
        return true;
    }
    // libssh looks at a name after it has taken it. Null is the local user's, as without any.
    static_cast<void>(callLocked(session, ssh_options_set, SSH_OPTIONS_USER, nullIfEmpty(former)));
    return false;
}

std::string readTextOption(SSHHandleSession& session, ssh_options_e option)
{
    char* rawText = nullptr;
    const int result = callLocked(session, ssh_options_get, option, &rawText);
    const std::unique_ptr<char, ssh_default_deleter<char>> text(rawText);
    return result == SSH_OK && text != nullptr ? std::string(text.get()) : std::string();
}

} // namespace Tarnis
