#pragma once

#include "files/Cancellation.h"
#include "terminal/FileDescriptor.h"

#include <functional>
#include <string>

namespace TarnisTool {

/// What a path of this machine leads to, as far as a copy must know that is to go there.
enum class TargetKind
{
    Ordinary, ///< A file, a directory or a link to one, or nothing: it is replaced or filled.
    Stream,   ///< A pipe, a terminal or another character device, or an open descriptor of this
              ///< program ("/dev/stdout"): what goes there is written into it.
    Refused,  ///< A disk or a socket: neither is done.
};

/// Follows links: "/dev/stdout" is one.
TargetKind kindOfTarget(const std::string& path);

/// Opens a stream for writing. A pipe that nobody reads is waited for. Throws Failure, also when it
/// is cancelled meanwhile.
FileDescriptor openStream(const std::string& path, const Cancellation& cancellation);

/// Writes everything to a descriptor, whether or not it blocks.
/// \param goesOn asked while the other side takes nothing; empty for always.
/// \return 0, or errno: ECANCELED where it did not go on.
int writeAll(int descriptor, const char* bytes, std::size_t size,
             const std::function<bool()>& goesOn = {});

} // namespace TarnisTool
