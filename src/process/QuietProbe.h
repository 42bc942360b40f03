#pragma once

#include <libssh/libssh.h>

#include <chrono>
#include <cstdint>

namespace Tarnis {

/// Tells when a command that has ended has nothing more to say though its channel stays open, as a
/// background child that inherited its streams makes it.
///
/// The exit code overtakes output that the server has yet to read from the command's pipes, so
/// silence alone proves nothing on a slow line. After a moment of it, the server is asked something
/// harmless that it must answer: servers look at the pipes between two requests, so two answers in
/// a row without data in between mean that the pipes are empty. A server that does not answer gets
/// a few seconds.
class QuietProbe
{
public:
    using Clock = std::chrono::steady_clock;

    /// One look at the channel, under the session's lock and in non-blocking mode.
    /// \param progress CommandRecorder::progress().
    /// True: there is nothing more to wait for.
    bool isDrained(ssh_channel channel, std::uint64_t progress);

private:
    static constexpr std::chrono::milliseconds quietBeforeAsking{250};
    static constexpr std::chrono::milliseconds quietWithoutAnswer{3000};
    static constexpr int answersNeeded = 2;

    std::uint64_t lastProgress_ = 0;
    Clock::time_point lastChange_ = Clock::now();
    int quietAnswers_ = 0;
    bool asked_ = false;
};

} // namespace Tarnis
