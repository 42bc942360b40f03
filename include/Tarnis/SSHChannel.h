#pragma once

#include <Tarnis/Export.h>
#include <Tarnis/SSHChannelTransfer.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace Tarnis {

class SSHHandleChannel;

/// One channel of a session: a stream of input to a remote command and two streams of output from
/// it. Made by SSHSession::createProcess, as an SSHProcess.
///
/// Failures: when the session was disconnected or destroyed, every operation that needs it, here
/// all but isValid() and the destructor, throws FileSystem::handle_fatal_error("invalid").
/// Everything else is told by results; FileSystem::Failure::last() has the reason: ConnectionLost
/// where the channel or the connection has gone; Denied where the server refused, with libssh's
/// text; TimedOut where a time that was given is over, of our own limits also; BadName for a text
/// with a NUL byte. A question whose answer is no, the end of a stream and a look without waiting
/// that finds nothing are no failures.
///
/// Threads: any thread may call any operation. All channels of a session take turns with it: a
/// call waits for those of other threads on the same session. "Blocks on the server" below means
/// for as long as the server likes; SSHSession::interrupt() frees such a call.
///
/// Flow control: output and error output share one window. Whoever reads only one of them can
/// bring both to a halt; SSHSession::execute drains both.
class TARNIS_EXPORT SSHChannel
{
public:
    /// Takes the handle over, leaving `channel` empty. The channel is not opened. With a null
    /// handle the channel is invalid: operations that need one throw as after a disconnect.
    explicit SSHChannel(std::shared_ptr<SSHHandleChannel>&& channel);
    SSHChannel(const SSHChannel&) = delete;
    SSHChannel& operator=(const SSHChannel&) = delete;

    /// Closes the channel if it is open, without waiting for the server, and frees it. Never
    /// throws. Input that was written and not yet sent is sent on by later calls on the session.
    virtual ~SSHChannel();

    /// Whether the channel can be used: false once its session was disconnected or destroyed. Does
    /// not block, does not throw.
    bool isValid() const;

    /// Opens the channel. Blocks on the server. False: the server refused it, or the connection is
    /// lost; the channel stays closed.
    [[nodiscard]] bool open();

    /// Whether the channel is open: opened, closed by neither side, connection alive as far as the
    /// last exchange with the server showed. Does not wait for the network.
    bool isOpen() const;

    /// Closes the channel. Blocks until the request is sent. True also when it was closed before.
    /// False: it could not be sent, or the channel was never opened.
    bool close();

    /// Whether the remote side has ended both streams and everything was read. Does not wait for
    /// the network.
    bool isEOF() const;

    /// Tells the remote side that no more input comes. Blocks until the request is sent, or taken
    /// over by libssh, whose later calls send it; at most about 100 seconds. True also when it was
    /// told before. False: it could not be sent, or the channel is not open.
    bool sendEOF() const;

    /// Sends a signal to the remote command.
    /// \param signalName without "SIG", for example "INT"; passed on as given.
    /// Blocks until the request is sent, at most about 100 seconds. True: it was sent; whether the
    /// server heeds it is not told. False: it could not be sent.
    bool sendSignal(const std::string& signalName) const;

    /// The exit code of the remote command, as it was reported: any number, also a negative one.
    /// Does not wait for it. Empty: none was reported yet. -1 once the channel is closed: none was
    /// reported, as for a command that was ended by a signal, which getExitSignal() tells. With a
    /// failure, whose code is ConnectionLost: none ever will be, as the connection was lost before.
    std::optional<int> getExitCode();

    /// The signal that ended the remote command, without "SIG", for example "TERM"; as the server
    /// says it, so escape it before it goes to a terminal. Does not wait for it. Empty: none was
    /// reported, as for a command that runs or has exited, and by servers that tell no signals; a
    /// connection that was lost before is a failure, as there.
    std::optional<std::string> getExitSignal() const;

    /// Bytes that can be read at once. Waits up to a millisecond for some to arrive. 0: none, or
    /// the stream has ended, or the connection is lost.
    /// \param isStderr the error output when true, the output otherwise.
    std::size_t bytesAvailable(bool isStderr) const;

    /// Reads into `buffer`, waiting up to a millisecond.
    ///
    /// Careful: the result counts what was asked for, not what arrived. It is `size` unless libssh
    /// reports an error; bytes beyond those that arrived are left as they were. Ask
    /// bytesAvailable() first and read no more than that, or use readSome().
    /// \param size bytes that `buffer` has room for.
    /// \return bytes counted; less than `size` after an error.
    std::size_t read(char* buffer, std::size_t size, bool isStderr) const;

    /// Writes to the remote command's input.
    ///
    /// Careful: the result counts what was given, not what was sent. It is `size` unless libssh
    /// reports an error, though only the first bytes may fit the peer's window. Use writeSome(),
    /// which tells.
    /// \return bytes counted; less than `size` after an error.
    std::size_t write(const char* data, std::size_t size) const;

    /// What can be read at once, as bytesAvailable() counts it; possibly nothing. Waits up to a
    /// millisecond.
    std::string readAll(bool isStderr);

    /// Reads what is there, waiting for the first byte up to `timeout`; other threads may use the
    /// session meanwhile.
    /// \param size    bytes that `buffer` has room for; 0 transfers nothing and reads as TimedOut
    ///                unless the stream has ended.
    /// \param timeout zero or less does not wait; a TimedOut is no failure then.
    /// \return how many bytes really arrived, or why none did. Bytes that had arrived before the
    ///         connection broke may be lost with it: an Error means that the stream is incomplete.
    [[nodiscard]] SSHChannelTransfer readSome(char* buffer, std::size_t size, bool isStderr,
                                              std::chrono::milliseconds timeout) const;

    /// Writes as much as the peer's window takes, waiting for room up to `timeout`; other threads
    /// may use the session meanwhile.
    /// \param size    bytes at `data`; 0 transfers nothing and reads as TimedOut.
    /// \param timeout zero or less does not wait; a TimedOut is no failure then.
    /// \return how many bytes were really taken, from the front, or why none were.
    [[nodiscard]] SSHChannelTransfer writeSome(const char* data, std::size_t size,
                                               std::chrono::milliseconds timeout) const;

protected:
    /// Another reference to the handle.
    std::shared_ptr<SSHHandleChannel> getChannel();

    /// An exit status that was reported, or the negative number that libssh has for none.
    struct ExitStatus
    {
        bool isReported;
        int value;
    };

    /// The exit status. Does not wait for it.
    ExitStatus queryExitStatus() const;

    /// Notes as the present operation's failure that the connection was lost before the command's
    /// end was reported, where it was. Asks the server for nothing.
    void noteIfCutOff() const;

    virtual bool do_open();
    virtual bool do_isOpen() const;
    virtual bool do_close();

private:
    std::shared_ptr<SSHHandleChannel> channel_;
};

} // namespace Tarnis
