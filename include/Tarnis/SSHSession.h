#pragma once

#include <FileSystem/Failure.h>
#include <FileSystem/HandleLock.h>
#include <Tarnis/Export.h>
#include <Tarnis/RemoteSession.h>
#include <Tarnis/SSHAlgorithmMismatch.h>
#include <Tarnis/SSHExecuteResult.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

struct ssh_session_struct;

namespace Tarnis {

class SSHFileSystemSFTP;
class SSHHandleSession;
class SSHProcess;
class SSHSessionConnection;

/// An object of the caller's that can be attached to a session. The library stores the pointer and
/// does nothing else with it.
class SSHSessionInterface;

/// A session over SSH.
///
/// Ownership: the session owns the connection and every SSH object made on it. Processes and file
/// systems made from a session may outlive it; they are invalid from then on, and their operations
/// throw FileSystem::handle_fatal_error or answer false, as each says.
///
/// A session may be a static object, and so may what was made from it, in whatever order they are
/// destroyed: exit() ends every session that is still there, as its destructor would, before the
/// libraries below it clean up. An object that is older than the program's first session and looks
/// at one in its destructor finds that session invalid, and cannot make a new one. A child process
/// made by fork() must not use its parent's sessions; it leaves by _exit().
///
/// Configuration is by calls alone: neither the user's nor the system's ssh configuration file is
/// read. Still taken from the environment, by libssh: the agent's socket (SSH_AUTH_SOCK), the
/// default keys and the default known-hosts file of the user's home directory, and the system's
/// known-hosts file, /etc/ssh/ssh_known_hosts, always.
///
/// Algorithms are libssh's own, in its order, but for one thing: where the processor has
/// instructions for AES, connect() proposes AES-GCM before the other ciphers.
///
/// Failures: when libssh could not create a session object (out of memory), operations that need
/// one throw FileSystem::handle_fatal_error("invalid"); those that a session in another state
/// refuses first, as execute() and the authentications, do that. Everything else is told by
/// results, and why by FileSystem::Failure::last(), which belongs to the calling thread's last
/// operation. getLastError(), getOfferedMethods(), getAlgorithmMismatch(), interrupt() and
/// attachSSHSessionInterface() leave that as it is.
///
/// Threads: as RemoteSession says. The library starts no thread. interrupt() is the one operation
/// that may come while another thread is in any call and waits for none; getLastError() and
/// attachSSHSessionInterface() do not wait either, but nothing protects what they read and write. A
/// process that writes to a connection that its peer has closed gets no SIGPIPE.
class TARNIS_EXPORT SSHSession final : public RemoteSession
{
public:
    /// A session in state Disconnected, with libssh's default options. Does not touch the network.
    SSHSession();

    /// Disconnects if connected, then frees the connection. Objects made from the session become
    /// invalid. Blocks as disconnect() does, and like it breaks a call of another thread off that
    /// does not end within a moment; never throws.
    ~SSHSession();

    /// Ends the connection without telling the server, and makes everything created from the
    /// session invalid. Waits for no answer, and for a call of another thread only a moment: one
    /// that has not ended by then is broken off, as by interrupt(). The next getState() says
    /// Disconnected.
    void silentDisconnect();

    /// Frees every call that is blocked on this session, in any thread, by shutting its connection
    /// down: a connect() in flight, an authentication, a read, a transfer. Each of them fails
    /// within moments and the session reads as Disconnected, whatever has arrived and was not read;
    /// connect() may then be called again. A connect() is in flight from its first moment on,
    /// before it waits for other calls and before there is a socket: it fails, unless it is through
    /// already and it is its connection that has ended. What is called later is not concerned. Does
    /// nothing when there is no connection. Call it from any thread, at any time during the
    /// session's life; it does not block and does not wait for the session's lock. Two things that
    /// libssh waits for are not the connection and go on: a host name that is being resolved, and
    /// an agent that has not answered (UserAuthenticatorPrivateKeyAuto).
    void interrupt() noexcept;

    /// Sets the known-hosts file that hostAuthenticate() reads and writes; without it, the user's.
    /// libssh reads the system's /etc/ssh/ssh_known_hosts as well: a server that only that file
    /// knows is known.
    /// To be set before connect(), which asks a server of several host keys for one that the file
    /// knows. "~" at the start is the home directory, "%%" is a percent sign, and any other "%"
    /// begins an escape of libssh's or makes connect() fail; all are resolved by connect(), so a
    /// path that is set later is taken as it stands. Does not block on the network.
    /// False: it can be no path (BadName), nothing was changed.
    bool setKnownHostsFile(const std::string& path);

    /// The known-hosts file as set, or as connect() chose it; empty when there is none yet. Does
    /// not block on the network.
    std::string getKnownHostsFile() const;

    /// libssh's message for the last failure on this session; empty when there was none. After a
    /// failed connect() it says why until the next connect() starts. Takes no lock and does not
    /// block. It reads what the last call wrote: ask it from the thread whose call failed, while no
    /// other thread is in a call on the session.
    std::string getLastError() const;

    /// The server's public key in base64, as it stands in a known-hosts line; empty when not
    /// connected (NotConnected, Lost). Does not block on the network.
    std::string getPublicServerKeyB64() const;

    /// The SHA-256 fingerprint of the server's public key as ssh prints it, "SHA256:" and base64
    /// without padding; empty when not connected. Does not block on the network.
    std::string getPublicServerKeyFingerprint() const;

    /// The methods by which the server would still let the user in, as it said last, by the
    /// protocol's names: "publickey", "password", "keyboard-interactive", "hostbased",
    /// "gssapi-with-mic"; those that libssh does not know are left out. Known from the first
    /// attempt that did not succeed: UserAuthenticatorNone asks, and each Denied and Partial says
    /// it anew. Empty before; what was known stays when the connection is lost, and goes with
    /// disconnect() and connect(). Does not block on the network. Leaves Failure::last() as it is.
    std::set<std::string> getOfferedMethods() const;

    /// The algorithms that kept the last connect() from coming about, after
    /// SSHFailureCode::NoCommonAlgorithm and until the next connect(); empty otherwise. Does not
    /// block on the network. Leaves Failure::last() as it is.
    std::optional<SSHAlgorithmMismatch> getAlgorithmMismatch() const;

    /// Attaches an object of the caller's, not owned, which must outlive the session or be replaced
    /// by null. Takes no lock: call it from one thread at a time.
    void attachSSHSessionInterface(SSHSessionInterface* sessionInterface);

    /// A process, not yet started, that will run `commandLine` on the server through the user's
    /// shell. Does not touch the network. Null: libssh could not create a channel, as before the
    /// log-in (Denied) and before there was a connection (ConnectionLost).
    [[nodiscard]] std::unique_ptr<SSHProcess> createProcess(const std::string& commandLine);

    /// As a time limit of execute(): none.
    static constexpr std::chrono::milliseconds noTimeout = std::chrono::milliseconds::max();

    /// Runs one command line to its end: sends `input` to its standard input, then the end of file,
    /// and collects its output and error output, all at once, so that neither side can wait for
    /// the other for ever. Blocks until the command has ended or `timeout` is over; other threads
    /// may use the session meanwhile.
    ///
    /// The command has ended when the server closed its channel, or when it reported an exit code
    /// and has nothing more to say: a background child that keeps the channel open does not hold
    /// the call up, and what it writes later is lost. One that goes on writing is heard out for 5
    /// seconds, at most 30 when it never pauses. The output is held in memory, however much it is.
    ///
    /// \param commandLine every server takes 32,000 bytes; OpenSSH ends the connection at a request
    ///                    of more than 256 KiB.
    /// \param input   sent as it is; lent for the duration of the call.
    /// \param timeout counted from the call; when it is over, the command is sent KILL and its
    ///                channel is closed. Zero or less gives up at the first wait.
    /// \return what came of it, never an exception for a failure of the command or of the network;
    ///         see SSHExecuteResult::Outcome. Whatever is not Completed is a failure: Denied where
    ///         the server refused the channel or the command, or the user is not logged in;
    ///         ConnectionLost, TimedOut; BadName for a command line with a NUL byte.
    [[nodiscard]] SSHExecuteResult execute(const std::string& commandLine,
                                           std::string_view input = {},
                                           std::chrono::milliseconds timeout = noTimeout);

    /// A storage system over an SFTP session of its own. Blocks until the server has answered.
    /// Null; nothing is left open then. The failure says why: Denied before the log-in, and where
    /// the server refuses another channel, as it does when too many are open; Unsupported where it
    /// opened one and has no SFTP on it; ConnectionLost, or the reason that getState() gives, where
    /// there is no connection.
    [[nodiscard]] std::unique_ptr<SSHFileSystemSFTP> createSFTPFileSystem();

private:
    bool do_isConnected() const override;
    bool do_isAuthenticating() const override;
    bool do_isAuthenticated() const override;
    bool do_connect() override;
    bool do_disconnect() override;
    RemoteSessionState do_getState() override;
    bool do_setUserName(const std::string& userName) override;
    std::string do_getUserName() override;
    bool do_setHostName(const std::string& hostName) override;
    std::string do_getHostName() override;
    bool do_setPortNumber(unsigned short port) override;
    unsigned short do_getPortNumber() const override;
    std::unique_ptr<HostAuthenticatorResponse>
    do_hostAuthenticate(const HostAuthenticator& authenticator) override;
    std::unique_ptr<UserAuthenticatorResponse>
    do_userAuthenticate(const UserAuthenticator& authenticator) override;

    bool isSessionConnected() const;
    void noticeLostConnection();
    void leaveEndedConnection();
    void leaveConnection();
    std::string tellServerKey(const char* operation, std::string (*read)(SSHHandleSession&)) const;
    void setBlocking(bool blocking);
    bool isBlocking() const;
    FileSystem::FailureCode codeWithoutChannel() const;
    void noteWhyNoChannel() const;
    void noteWhyNoSftp(bool hasChannel) const;
    SSHExecuteResult executeCommand(const std::string& commandLine, std::string_view input,
                                    std::chrono::milliseconds timeout);
    void retire();
    void endAtExit();
    int runConnect(std::uint64_t interruptsBefore);
    FileSystem::HandleLock lockToEnd();
    void closeLostConnection();
    void endConnection(void (*disconnectCall)(ssh_session_struct*));

    std::unique_ptr<SSHHandleSession> session_;
    std::shared_ptr<std::atomic<RemoteSessionState>> state_;
    std::unique_ptr<SSHSessionConnection> connection_;
};

} // namespace Tarnis
