#include "login/Secret.h"

#include "Failure.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace TarnisTool {

namespace {

[[noreturn]] void refuse(const std::string& what, const std::string& why)
{
    throw UsageError("cannot read the " + what + ": " + why);
}

void take(Secret& secret, char character, const std::string& what)
{
    if (!secret.append(character)) {
        refuse(what, "it is longer than " + std::to_string(Secret::longest) + " bytes");
    }
}

/// Byte by byte: what follows the line is somebody else's, a second secret or a command's input.
Secret readLine(int descriptor, const std::string& what)
{
    Secret secret;
    for (;;) {
        char character = 0;
        const ssize_t count = ::read(descriptor, &character, 1);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            refuse(what, "descriptor " + std::to_string(descriptor) + ": " + std::strerror(errno));
        }
        if (count == 0 || character == '\n') {
            return secret;
        }
        take(secret, character, what);
    }
}

Secret readVariable(const std::string& name, const std::string& what)
{
    const char* const value = std::getenv(name.c_str());
    if (value == nullptr) {
        refuse(what, "the environment variable " + name + " is not set");
    }
    Secret secret;
    for (const char* next = value; *next != '\0'; ++next) {
        take(secret, *next, what);
    }
    return secret;
}

} // namespace

std::optional<Secret> SecretSource::read(const std::string& what) const
{
    if (descriptor) {
        return readLine(*descriptor, what);
    }
    if (!variable.empty()) {
        return readVariable(variable, what);
    }
    return std::nullopt;
}

} // namespace TarnisTool
