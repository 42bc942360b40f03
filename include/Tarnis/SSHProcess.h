#pragma once

#include <Tarnis/Export.h>
#include <Tarnis/SSHChannel.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace Tarnis {

/// Where a remote command stands.
enum class SSHCommandLineProcessState : std::uint32_t
{
    NotStarted = 0, ///< start() was not called yet.
    Starting = 1,   ///< The channel is being opened, the command being sent.
    Running = 2,    ///< The server accepted the command.
    Finished = 3,   ///< The command reported an exit code, or its channel was closed.
    Failed = 4,     ///< The channel was refused or the command was; start() may be called again.
};

/// One command line that runs on the server, through the user's shell, on a channel of its own.
///
/// Its output, error output and input are read and written with the operations of SSHChannel. Its
/// open() is start() without the question whether it may: in any state it runs the command, anew on
/// a new channel. The former channel is closed; what becomes of a command that still ran there is
/// the server's business. As start() it blocks on the server, and false means that it was refused.
/// isOpen() and close() are those of the channel, but that closing tells a running command the end
/// of its input first. Threads and failures as there; one thread may ask for the state while
/// another one drives the process. Before the start and after the end, asking for the command line
/// or the state needs no session and does not throw.
class TARNIS_EXPORT SSHProcess : public SSHChannel
{
public:
    /// A process without a command line, not started. Takes the handle over; with a null one,
    /// start() answers false.
    explicit SSHProcess(std::shared_ptr<SSHHandleChannel>&& channel);

    /// A process for `commandLine`, not started. Takes the handle over.
    SSHProcess(const std::string& commandLine, std::shared_ptr<SSHHandleChannel>&& channel);

    /// As SSHChannel's: an open channel is closed. No end of file is sent first; what becomes of
    /// the command is the server's business.
    ~SSHProcess() override;

    /// The command line, as given.
    std::string getCommandLine();

    /// Replaces the command line, unless the command is running or finished, which is a failure
    /// with the code Busy. The result is always false and means nothing.
    bool setCommandLine(const std::string& commandLine);

    /// Opens the channel and sends the command line followed by a line feed. Blocks on the server.
    /// True: the command runs. False: it is running or finished already (nothing was done; the
    /// failure's code is Busy), or the
    /// channel or the command was refused (the state is Failed; start() may be called again). When
    /// it throws, as on a session that is gone, the state stays Starting.
    ///
    /// Where the server opens no further channel and queues of the session are in use, it waits up
    /// to five seconds for one of theirs, while others use the session.
    [[nodiscard]] bool start();

    /// setCommandLine(), then start().
    [[nodiscard]] bool start(const std::string& commandLine);

    /// Whether the command runs. Takes note of its end, as do the next two. Does not wait.
    ///
    /// A command whose connection was lost or interrupted before its end was reported counts as
    /// finished, and nobody knows whether it is. These three, waitForFinished(), getExitCode() and
    /// getExitSignal() then leave a failure with the code ConnectionLost behind, whatever they
    /// answer.
    bool isRunning() const;

    /// Whether the command has ended.
    bool isFinished() const;

    /// Where the command stands.
    SSHCommandLineProcessState getProcessState();

    /// Waits until the command has ended, at most `timeout`; zero or less only looks. Does not read
    /// its output: a command that waits for somebody to read does not end, and the end of one that
    /// was killed shows once its output was read. Other threads may use the session meanwhile.
    /// True: it has ended, or its channel is closed, as it is before the start; output may still be
    /// on its way, so read with readSome() until EndOfStream. False: the time is over, which is a
    /// failure with the code TimedOut unless there was none to wait. Does not change the state.
    bool waitForFinished(std::chrono::milliseconds timeout) const;

    /// Sends the signal KILL. As SSHChannel::sendSignal.
    bool kill();

    /// Sends the signal TERM. As SSHChannel::sendSignal.
    bool terminate();

protected:
    bool do_open() override;
    bool do_isOpen() const override;
    bool do_close() override;

private:
    bool startAtOnce();
    void checkState() const;
    bool hasBegunToRun() const;
    SSHCommandLineProcessState currentState() const;
    bool hasEnded() const;
    bool runOnChannel(SSHCommandLineProcessState previous);

    std::string commandLine_;
    mutable std::mutex commandLineMutex_;
    mutable std::atomic<SSHCommandLineProcessState> state_;
};

} // namespace Tarnis
