#pragma once

#include "support/Sha256.h"

#include <libssh/callbacks.h>
#include <libssh/libssh.h>

#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace TarnisTest {

class ScriptedConnection;

/// Thrown out of a ScriptedChannel's members when the connection has ended or the server is being
/// destroyed. A script lets it pass: the server expects it.
class ConnectionGone : public std::runtime_error
{
public:
    ConnectionGone()
        : std::runtime_error("the connection is gone")
    {}
};

/// The server's end of one session channel, for the script that plays the remote command. Every
/// member may throw ConnectionGone. The server goes on serving the connection (it answers other
/// requests, and takes in data and signals) while a script waits.
class ScriptedChannel
{
public:
    ScriptedChannel(ScriptedConnection& connection, ssh_channel channel, int number);
    ScriptedChannel(const ScriptedChannel&) = delete;
    ScriptedChannel& operator=(const ScriptedChannel&) = delete;
    ~ScriptedChannel() = default;

    /// Counted from 1 on each connection.
    int number() const { return number_; }

    int connectionNumber() const;

    /// The command line of the exec request, or the name of the subsystem; empty for a shell.
    std::string command() const;
    /// Variables that the client set and the policy accepted.
    std::map<std::string, std::string> environment() const;

    /// Sends all of it, as the client's window allows. False when the channel takes no more because
    /// the client closed it or because sendEof() came before.
    bool writeOutput(std::string_view bytes);
    bool writeErrorOutput(std::string_view bytes);

    /// Waits for input and returns what is there, `limit` bytes at most; empty at the end of input.
    std::string readInput(std::size_t limit);
    /// Waits for the end of input and returns all of it.
    std::string readInputToEnd();
    /// Waits for the end of input and forgets it; for amounts that need not stay in memory.
    void discardInputToEnd();

    /// How much input has arrived, read or not, and its digest.
    std::uint64_t receivedBytes() const;
    std::string receivedSha256() const;

    /// Takes no more input in: the client may send until its window is used up, and no further.
    void pauseInput();
    void resumeInput();

    void sendExitStatus(int status);
    void sendExitSignal(const std::string& signalName, bool coreDumped = false,
                        const std::string& message = "");
    void sendEof();
    /// Closes the channel. libssh sends the end of file first where sendEof() did not.
    void close();
    /// The usual end: exit status, end of file, close.
    void finish(int exitStatus);

    /// Ends the TCP connection without a word; no ConnectionGone out of this call itself.
    void dropConnection();

    /// Names, without "SIG", of the signals that the client sent to this channel so far.
    std::vector<std::string> signals() const;
    /// Waits for the next signal that no call has returned yet.
    std::string waitForSignal();
    /// Waits until the client has closed the channel.
    void waitForClose();
    /// Waits until a condition of the test's own holds; it is asked every few milliseconds.
    void waitUntil(const std::function<bool()>& condition);

private:
    friend class ScriptedConnection;

    // Called by the connection, which is locked then.
    void noteRequest(const std::string& command) { command_ = command; }

    void noteVariable(const std::string& name, const std::string& value)
    {
        environment_[name] = value;
    }

    void registerCallbacks();
    std::uint32_t takeInput(std::string_view bytes);
    void drainInput();
    void answerClose();
    bool write(std::string_view bytes, bool isErrorOutput);

    static int onData(ssh_session session, ssh_channel channel, void* data, std::uint32_t size,
                      int isErrorOutput, void* self);
    static void onEof(ssh_session session, ssh_channel channel, void* self);
    static void onClose(ssh_session session, ssh_channel channel, void* self);
    static void onSignal(ssh_session session, ssh_channel channel, const char* name, void* self);

    ScriptedConnection& connection_;
    ssh_channel channel_;
    const int number_;
    ssh_channel_callbacks_struct callbacks_{};
    std::string command_;
    std::map<std::string, std::string> environment_;
    std::string input_;
    std::uint64_t receivedBytes_ = 0;
    Sha256 digest_;
    std::vector<std::string> signals_;
    std::size_t signalsReturned_ = 0;
    bool paused_ = false;
    bool inputEnded_ = false;
    bool clientClosed_ = false;
    bool closed_ = false;
};

} // namespace TarnisTest
