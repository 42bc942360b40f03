#pragma once

#include <chrono>
#include <cstddef>

namespace Tarnis {

class SSHHandleChannel;

/// For who opens a channel with the lock held all the time, and is refused: those who have several
/// channels of the session can give one back only while the lock is free.
class ChannelsOfOthers
{
public:
    /// \param channel outlives this.
    explicit ChannelsOfOthers(SSHHandleChannel& channel) noexcept;

    /// Asks them, the first time, and waits until opening the channel is worth another try: the
    /// server counts one that was given back until whatever ran on it has ended. To be called
    /// without the lock. False: it is not, as the channel was opened, nobody has one to give, or
    /// none was given in time.
    bool awaitOne();

private:
    using Clock = std::chrono::steady_clock;

    bool ask();
    bool isWorthATry() const;

    SSHHandleChannel& channel_;
    bool areAsked_ = false;
    std::size_t before_ = 0; ///< What they had then.
    Clock::time_point nextTry_;
    Clock::time_point deadline_;
};

} // namespace Tarnis
