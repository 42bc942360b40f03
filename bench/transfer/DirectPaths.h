#pragma once

#include "support/BenchServer.h"

#include <cstddef>

namespace TarnisBench {

/// How the plain paths of a remote file compare with libssh's own functions.
struct PlainPaths
{
    std::string name;
    double directBytesPerSecond = 0;
    double tarnisBytesPerSecond = 0;
    /// The middle one of the ratios of the rounds.
    double ratio = 0;
};

/// read() and write() of an open remote file, a package at a time, beside the functions of libssh
/// that they call, in the same pattern and on the same server, in turns.
std::vector<PlainPaths> measurePlainPaths(const BenchServer& server, std::size_t bytes, int rounds);

} // namespace TarnisBench
