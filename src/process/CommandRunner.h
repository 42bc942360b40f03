#pragma once

#include "handles/ChannelOpening.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHSocketWait.h"
#include "process/CommandRecorder.h"
#include "process/DrainDetector.h"

#include <Tarnis/SSHExecuteResult.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Tarnis {

/// Runs one command line to its end on a channel of its own, as SSHSession::execute promises. Holds
/// the session's lock for one step at a time, never while it waits.
class CommandRunner
{
public:
    /// \param channel new, not opened.
    /// \param input   lent until run() returns.
    CommandRunner(std::shared_ptr<SSHHandleChannel> channel, std::string_view input,
                  std::chrono::milliseconds timeout);
    /// The error of a command whose session was disconnected or destroyed.
    static constexpr const char* sessionEnded = "the session was disconnected";

    CommandRunner(const CommandRunner&) = delete;
    CommandRunner& operator=(const CommandRunner&) = delete;

    /// Closes the channel and retires it, without waiting.
    ~CommandRunner();

    /// To be called once. What goes wrong with the command or the connection is told by the result;
    /// throws only when there is no memory for it.
    SSHExecuteResult run(const std::string& commandLine);

private:
    using Outcome = SSHExecuteResult::Outcome;

    /// How one step of a phase went.
    enum class Step
    {
        Again,
        Done,
        Failed,
        Lost
    };

    Outcome runPhases(const std::string& commandLine);
    template <class StepFunction>
    Step repeat(StepFunction stepFunction);
    template <class StepFunction>
    Step takeStep(StepFunction stepFunction);

    Step noteFailure(Step step, ssh_session session);
    static Step stepOf(int status);
    Step open();
    bool renewChannel();
    Step exec(ssh_channel channel, const char* line);
    Step transfer(ssh_channel channel);
    void feedInput(ssh_channel channel);
    void pump(ssh_channel channel) const;
    bool isComplete(ssh_channel channel);
    void killCommand();
    SSHExecuteResult collect(Outcome outcome);

    std::shared_ptr<SSHHandleChannel> channel_;
    ChannelOpening opening_;
    CommandRecorder recorder_;
    SSHSocketWait wait_;
    DrainDetector drainDetector_;
    std::string_view input_;
    std::size_t inputConsumed_ = 0;
    std::string error_;
    bool execSent_ = false;
    bool closedUnanswered_ = false;
    bool inputEnded_ = false;
};

} // namespace Tarnis
