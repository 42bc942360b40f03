#pragma once

#include <libssh/libssh.h>

#include <chrono>
#include <cstdint>
#include <optional>

namespace Tarnis {

/// Tells when a command that has ended has nothing more to say though its channel stays open, as a
/// background child that inherited its streams makes it.
///
/// The exit code overtakes output that the server has yet to read from the command's pipes, so
/// silence alone proves nothing on a slow line. After a moment of it, the server is asked something
/// harmless that it must answer: servers look at the pipes between two requests, so two answers in
/// a row without data in between mean that the pipes were empty. A server that does not answer gets
/// a few seconds.
///
/// A child that writes on is heard out for a while, and then until the pipes are empty for once.
/// One that never lets them run empty ends at the last limit: the command's own output was no more
/// than what its pipes hold, for which that is ample.
class DrainDetector
{
public:
    using Clock = std::chrono::steady_clock;

    /// One look at the channel, under the session's lock and in non-blocking mode; the first one
    /// follows the command's end at once.
    /// \param progress CommandRecorder::progress().
    /// True: there is nothing more to wait for.
    bool isDrained(ssh_channel channel, std::uint64_t progress, Clock::time_point now);

    /// Silence before the server is asked.
    static constexpr std::chrono::milliseconds silenceBeforeAsking{250};
    /// Silence that is enough without an answer.
    static constexpr std::chrono::seconds silenceWithoutAnswer{3};
    /// After the command's end: when the server is asked though there is no silence.
    static constexpr std::chrono::seconds patience{5};
    /// After the command's end: the last limit.
    static constexpr std::chrono::seconds mostAfterTheEnd{30};

private:
    bool isOver(Clock::time_point now) const;
    bool isToAsk(Clock::time_point now) const;

    static constexpr int answersNeeded = 2;

    std::optional<Clock::time_point> commandEnded_;
    Clock::time_point lastChange_;
    std::uint64_t lastProgress_ = 0;
    int quietAnswers_ = 0;
    bool asked_ = false;
};

} // namespace Tarnis
