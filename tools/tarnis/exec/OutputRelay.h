#pragma once

#include <FileSystem/Failure.h>

#include <chrono>
#include <cstddef>
#include <vector>

namespace Tarnis {
class SSHProcess;
}

namespace TarnisTool {

/// Hands one of a remote command's two output streams on to a local descriptor, without ever
/// waiting for the local reader: while it is slow, the other stream must go on.
class OutputRelay
{
public:
    /// \param process must outlive this object.
    OutputRelay(const Tarnis::SSHProcess& process, bool isStderr, int descriptor);

    /// Moves what can be moved now, waiting up to `patience` for something to arrive. False:
    /// nothing was moved.
    bool advance(std::chrono::milliseconds patience);

    /// Whether the stream has ended and all of it was handed on.
    bool isFinished() const noexcept { return hasEnded_ && !hasPending(); }

    /// Whether there is data that the local reader has yet to take.
    bool hasPending() const noexcept { return begin_ < end_; }

    /// Whether the remote stream may still bring something.
    bool isOpen() const noexcept { return !hasEnded_; }

    /// Whether the connection broke before the end of the stream.
    bool isIncomplete() const noexcept { return isIncomplete_; }

    /// Why it broke.
    const FileSystem::Failure& failure() const noexcept { return failure_; }

    /// Whether the local reader is gone. Found out by writing, or by asking here.
    bool isReaderGone();

    /// From now on the stream is read and thrown away.
    void discard() noexcept { isDiscarding_ = true; }

    int descriptor() const noexcept { return descriptor_; }

private:
    bool fetch(std::chrono::milliseconds patience);
    bool flush();

    const Tarnis::SSHProcess& process_;
    bool isStderr_;
    int descriptor_;
    std::size_t largestWrite_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool hasEnded_ = false;
    bool isIncomplete_ = false;
    FileSystem::Failure failure_;
    bool isReaderGone_ = false;
    bool isDiscarding_ = false;
};

} // namespace TarnisTool
