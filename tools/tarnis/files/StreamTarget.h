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

/// A path of this machine that one file is to go to, or "-" for standard output. Links are
/// followed:
/// "/dev/stdout" is one.
///
/// To be made before the program opens anything of its own: where the path is one of the program's
/// descriptors, it is taken hold of at once. Later its number may be that of the connection.
class StreamTarget
{
public:
    explicit StreamTarget(std::string path);

    TargetKind kind() const;

    const std::string& path() const noexcept { return path_; }

    /// Opens a stream for writing, once. A pipe that nobody reads is waited for. Throws Failure,
    /// also when it is cancelled meanwhile.
    FileDescriptor open(const Cancellation& cancellation);

private:
    std::string path_;
    bool isDescriptor_ = false;
    /// A duplicate of the descriptor, or why there is none.
    FileDescriptor descriptor_;
    int error_ = 0;
};

/// Writes everything to a descriptor, whether or not it blocks.
/// \param goesOn asked while the other side takes nothing; empty for always.
/// \return 0, or errno: ECANCELED where it did not go on.
int writeAll(int descriptor, const char* bytes, std::size_t size,
             const std::function<bool()>& goesOn = {});

} // namespace TarnisTool
