#pragma once

#include <optional>
#include <string>

namespace Tarnis {

/// What SSHSession::execute has to tell about one command.
struct SSHExecuteResult
{
    /// How far the command came.
    enum class Outcome
    {
        NotStarted,     ///< No channel, or the server refused the command: nothing was run.
        Completed,      ///< The command ended and all of its output is here.
        TimedOut,       ///< The time was up: the command was sent KILL, its output so far is here.
        ConnectionLost, ///< The connection broke. Whether the command ended is not known.
    };

    Outcome outcome = Outcome::NotStarted;

    /// Everything that the command wrote to its standard output, byte for byte.
    std::string output;

    /// Everything that the command wrote to its standard error, byte for byte.
    std::string errorOutput;

    /// The command's exit code; empty when the server reported none, as for a command that was
    /// ended by a signal. Set beside TimedOut or ConnectionLost when the command itself had ended
    /// before, and a background child kept its channel open.
    std::optional<int> exitCode;

    /// Name of the signal that ended the command, without "SIG" ("KILL", "TERM"); empty when none
    /// was reported.
    std::string exitSignal;

    /// Bytes of the input that were handed to the connection before the command ended or stopped
    /// reading. Less than the whole input is no failure: `head -1` is right not to read on.
    std::size_t inputConsumed = 0;

    /// Why, after NotStarted and ConnectionLost: libssh's reason or the library's own, taken at
    /// that moment, so that it can be had while other threads use the session. Empty after the
    /// others.
    std::string error;

    /// Whether the time limit ended the command.
    bool timedOut() const noexcept { return outcome == Outcome::TimedOut; }

    /// Whether the command ran to its end and reported exit code 0.
    bool succeeded() const noexcept { return outcome == Outcome::Completed && exitCode == 0; }
};

} // namespace Tarnis
