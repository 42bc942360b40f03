#pragma once

#include <libssh/libssh.h>

#include <string>

std::string takes(ssh_session session);
