#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace TarnisBench {

/// Where every contestant logs in, and with what.
struct Login
{
    std::string host;
    std::uint16_t port = 0;
    std::string user;
    std::string keyFile;
    std::string knownHostsFile;
};

/// As arguments of a program that is told where to log in.
std::vector<std::string> toArguments(const Login& login);

/// The reverse. Throws std::runtime_error unless there are as many as toArguments() gives.
Login loginFromArguments(const std::vector<std::string>& arguments);

} // namespace TarnisBench
