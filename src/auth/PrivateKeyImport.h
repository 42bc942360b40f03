#pragma once

#include <Tarnis/SSHDefaultDeleter.h>

#include <cstddef>
#include <memory>
#include <string>

namespace Tarnis {

/// A private key as libssh holds it.
using PrivateKey = std::unique_ptr<ssh_key_struct, ssh_default_deleter<ssh_key_struct>>;

/// Reads a private key from its text, or from the file at a path; an empty pass phrase stands for
/// none. Asks nobody for a pass phrase. Null when there is no such file, the text is no key, or the
/// pass phrase does not fit. Needs no session and no lock.
PrivateKey importPrivateKey(const std::string& text, const std::string& passPhrase);
PrivateKey importPrivateKeyFile(const std::string& path, const std::string& passPhrase);

/// A pass phrase prompt for libssh that gives none.
int refusePrompt(const char* prompt, char* buffer, std::size_t length, int echo, int verify,
                 void* userData);

} // namespace Tarnis
