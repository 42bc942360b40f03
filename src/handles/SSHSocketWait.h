#pragma once

#include <chrono>

namespace Tarnis {

class SSHHandleChannel;
class SSHHandleSFTPSessionFile;

/// Paces a loop that tries something on a channel again and again without holding the session's
/// lock in between: waits for the connection to have something to do.
///
/// The wait is bounded and grows while nothing happens, because whatever arrives for this channel
/// may be read off the connection by another thread, which wakes nobody here.
class SSHSocketWait
{
public:
    using Clock = std::chrono::steady_clock;

    explicit SSHSocketWait(Clock::time_point deadline)
        : deadline_(deadline)
    {}

    /// The deadline `timeout` from now, or the end of time when that is beyond it.
    static Clock::time_point deadlineAfter(std::chrono::milliseconds timeout);

    /// Tells that the loop got something done: the next wait is a short one.
    void progressed() noexcept { pause_ = shortestPause; }

    /// Waits, not past the deadline. False: the deadline was over already; nothing was waited for.
    /// Throws handle_fatal_error("invalid") when the handle is invalid.
    bool wait(SSHHandleChannel& channel);

    /// The same for the SFTP session of an open file.
    bool wait(SSHHandleSFTPSessionFile& file);

private:
    template <class Handle>
    bool waitFor(Handle& handle);

    static constexpr std::chrono::milliseconds shortestPause{1};
    static constexpr std::chrono::milliseconds longestPause{10};

    Clock::time_point deadline_;
    std::chrono::milliseconds pause_ = shortestPause;
};

} // namespace Tarnis
