#pragma once

#include "support/Login.h"

#include <Tarnis/Tarnis.h>

#include <memory>

namespace TarnisBench {

/// The same steps as logInDirectly, with the library. Throws std::runtime_error when one fails.
std::unique_ptr<Tarnis::SSHSession> logInWithTarnis(const Login& login);

} // namespace TarnisBench
