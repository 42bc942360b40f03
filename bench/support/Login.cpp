#include "support/Login.h"

#include "support/Require.h"

namespace TarnisBench {

std::vector<std::string> toArguments(const Login& login)
{
    return {login.host, std::to_string(login.port), login.user, login.keyFile,
            login.knownHostsFile};
}

Login loginFromArguments(const std::vector<std::string>& arguments)
{
    require(arguments.size() == 5, "reading where to log in");
    return {arguments[0], static_cast<std::uint16_t>(std::stoul(arguments[1])), arguments[2],
            arguments[3], arguments[4]};
}

} // namespace TarnisBench
