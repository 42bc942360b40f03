#pragma once

#include "terminal/Descriptors.h"

#include <FileSystem/Failure.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

namespace Tarnis {
class SSHProcess;
}

namespace TarnisTool {

/// Hands our standard input on to a remote command, and its end too, in a thread of its own:
/// standard input may be silent for ever while the command ends, and the command may stop reading
/// while its output goes on.
class InputForwarder
{
public:
    /// \param process started; must outlive this object.
    explicit InputForwarder(Tarnis::SSHProcess& process);
    InputForwarder(const InputForwarder&) = delete;
    InputForwarder& operator=(const InputForwarder&) = delete;

    /// Stops, whatever there is left to forward.
    ~InputForwarder();

private:
    void run();
    bool waitForInput() const;
    /// False at the end of the input.
    bool readInput(std::size_t& count);
    /// False when the command takes no more.
    bool forward(std::size_t count);

    Tarnis::SSHProcess& process_;
    Pipe stop_;
    std::atomic<bool> stopping_{false};
    std::vector<char> buffer_;
    std::thread thread_;
};

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
