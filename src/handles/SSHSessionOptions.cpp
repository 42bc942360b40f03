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

bool isUserName(std::string_view name)
{
    constexpr auto npos = std::string_view::npos;
    constexpr std::string_view shellCharacters = "'`\";&<>|(){}$\\,";
    constexpr std::string_view spaces = " \t\n\v\f\r";
    if (name.empty() || name.front() == '-' || name.find_first_of(shellCharacters) != npos) {
        return false;
    }
    // A command that the name comes into could take it for an option.
    for (auto dash = name.find('-'); dash != npos; dash = name.find('-', dash + 1)) {
        if (spaces.find(name[dash - 1]) != npos) {
            return false;
        }
    }
    return true;
}

bool isHostText(const std::string& text)
{
    const auto at = text.rfind('@');
    return isOptionText(text) &&
           (at == std::string::npos || isUserName(std::string_view(text).substr(0, at)));
}

bool setUserNameOption(SSHHandleSession& session, const std::string& userName)
{
    if (!isOptionText(userName) || !isUserName(userName)) {
        return false;
    }
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
