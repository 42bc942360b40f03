#include "session/SSHSessionOptions.h"

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

std::string readTextOption(SSHHandleSession& session, ssh_options_e option)
{
    char* rawText = nullptr;
    const int result = callLocked(session, ssh_options_get, option, &rawText);
    const std::unique_ptr<char, ssh_default_deleter<char>> text(rawText);
    return result == SSH_OK && text != nullptr ? std::string(text.get()) : std::string();
}

} // namespace Tarnis
