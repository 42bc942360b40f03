#pragma once

#include <string>

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

} // namespace TarnisTool
