#pragma once

#include "files/Cancellation.h"
#include "files/Endpoint.h"
#include "files/KeepAlive.h"
#include "terminal/Descriptors.h"
#include "terminal/ProgressBar.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
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
    Posix::FileDescriptor open(const Cancellation& cancellation, KeepAlive& keepAlive);

private:
    std::string path_;
    bool isDescriptor_ = false;
    /// A duplicate of the descriptor, or why there is none.
    Posix::FileDescriptor descriptor_;
    int error_ = 0;
};

/// Writes everything to a descriptor, whether or not it blocks.
/// \param goesOn asked while the other side takes nothing; empty for always.
/// \return 0, or errno: ECANCELED where it did not go on.
int writeAll(int descriptor, const char* bytes, std::size_t size,
             const std::function<bool()>& goesOn = {});

/// Where a file is written to that is not to become a file.
struct Stream
{
    int descriptor;
    /// As messages name it.
    std::string name;
};

/// Writes a file of an endpoint to a stream.
/// \param goesOn told how far it is; false stops it. Empty for always.
/// \return false: it was stopped. Throws Failure for everything else that keeps it from being
///         written whole.
bool streamFile(Endpoint& endpoint, const std::string& id, const Stream& stream,
                const std::function<bool(std::uint64_t done)>& goesOn = {});

/// Copies one file into a stream of this machine.
class StreamedCopy
{
public:
    StreamedCopy(Endpoint& from, std::string source, StreamTarget& target,
                 const Cancellation& cancellation);

    /// Throws Failure.
    void run();

private:
    void followLinks();

    Endpoint& from_;
    std::string source_;
    StreamTarget& target_;
    const Cancellation& cancellation_;
};

/// Copies standard input, to its end, into a file of a server, which appears complete or not at
/// all.
class InputCopy
{
public:
    InputCopy(RemoteEndpoint& to, std::string target, bool isInPlace,
              const Cancellation& cancellation);

    /// Throws Failure.
    /// \return false: it is there, but for what was reported.
    bool run();

private:
    std::optional<std::size_t> read(char* buffer, std::size_t size);
    bool show(std::uint64_t done);

    RemoteEndpoint& to_;
    std::string target_;
    bool isInPlace_;
    const Cancellation& cancellation_;
    ProgressBar bar_;
    KeepAlive keepAlive_;
    std::uint64_t done_ = 0;
};

} // namespace TarnisTool
