#pragma once

#include "login/Secret.h"

#include <optional>
#include <string>
#include <vector>

namespace TarnisTool {

/// What a private key file looks like from outside. Whether it holds a good key is found out when
/// it is used.
struct IdentityFile
{
    /// Reads the file at `path`. Of a pipe all, waiting for whoever has it open for writing; never
    /// for somebody to open it.
    static IdentityFile inspect(const std::string& path);

    /// Why the file cannot be used; empty where it can.
    std::string problem;
    /// Whether its key needs a pass phrase.
    bool isEncrypted = false;
    /// What a pipe held, which cannot be read again.
    std::optional<Secret> content;
};

/// The paths of those default keys of the user that need a pass phrase, in the order in which
/// libssh tries them.
std::vector<std::string> encryptedDefaultKeys();

} // namespace TarnisTool
