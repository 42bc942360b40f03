#pragma once

#include <string>
#include <vector>

namespace TarnisTool {

/// What a private key file looks like from outside. Whether it holds a good key is found out when
/// it is used.
struct IdentityFile
{
    /// Reads the file at `path`.
    static IdentityFile inspect(const std::string& path);

    /// Why the file cannot be used; empty where it can.
    std::string problem;
    /// Whether its key needs a pass phrase.
    bool isEncrypted = false;
};

/// The paths of those default keys of the user that need a pass phrase, in the order in which
/// libssh tries them.
std::vector<std::string> encryptedDefaultKeys();

} // namespace TarnisTool
