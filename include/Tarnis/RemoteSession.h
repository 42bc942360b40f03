#pragma once

#include <Tarnis/Export.h>
#include <Tarnis/RemoteSessionState.h>

#include <memory>
#include <string>

namespace Tarnis {

class HostAuthenticator;
class HostAuthenticatorResponse;
class UserAuthenticator;
class UserAuthenticatorResponse;

/// A session with a remote machine, whatever the protocol below it. SSHSession is the
/// implementation; this class adds no behaviour of its own and is never owned through: its
/// destructor is protected.
///
/// The road of a session: setHostName() and setUserName(), connect(), hostAuthenticate(),
/// userAuthenticate(). Each step runs only in the state that the step before it reached; a step
/// that fails leaves the state, so it can be tried again.
///
/// Failures: each operation that does not do what it is for leaves FileSystem::Failure::last(),
/// with an SSHFailureCode or, where that says it, a FileSystem::FailureCode: a step in the wrong
/// state (OutOfTurn, NotConnected, AlreadyConnected), an option that cannot be (BadName), and
/// whatever an operation below names. Once a connection was lost, the steps and the queries of the
/// state fail with Lost and the reason, or with Interrupted, until the next connect().
///
/// Threads: a session and everything made from it form one unit. Any thread may call any operation;
/// the calls take turns, so one waits while another one blocks.
class TARNIS_EXPORT RemoteSession
{
public:
    RemoteSession(const RemoteSession&) = delete;
    RemoteSession& operator=(const RemoteSession&) = delete;

    /// Connects to the server and exchanges keys. Blocks until that is done or failed, at most
    /// about 100 seconds; resolving the host name comes on top of it. A connection that is at its
    /// end is left behind for the new one, with whatever it brought that was not read. Where the
    /// key exchange failed and libssh has forgotten why, there is a second attempt, with as much
    /// time.
    ///
    /// True: the state is HostAuthenticating. False: the session was not Disconnected (nothing was
    /// done), or the attempt failed (the state is Disconnected and connect() may be called again).
    /// Failures, with the host and port as Failure::entry(): NameNotResolved, Refused, Unreachable,
    /// TimedOut, NoSshServer, NoCommonAlgorithm, Lost (while the keys were exchanged), Interrupted;
    /// Protocol, for a server that breaks it; BadName, for a session without a host name.
    /// When it throws, as for a session without an object of libssh's, the state stays Connecting:
    /// no later connect() begins.
    [[nodiscard]] bool connect();

    /// Ends the connection. Everything made from the session (processes, file systems) becomes
    /// invalid. A call of another thread that does not end within a moment is broken off; for up to
    /// half a second, data that was written and not yet sent is handed to the network.
    ///
    /// True: the state is Disconnected. False: it already was; what may be left of a
    /// connection that was lost has gone the same way.
    bool disconnect();

    /// The state. A connection that was lost is noticed here: the state is then Disconnected. While
    /// there is a process, and bytes that arrived before the loss are unread, the state stays, so
    /// that output among them can be read, until connect() or disconnect(); bytes that are none,
    /// such as the server's signs of life, keep it too. Whatever else is asked of that process or
    /// another one may notice the loss first, and what is unread then is gone. Does not wait for
    /// the network.
    RemoteSessionState getState();

    /// Whether there is a live connection, authenticated or not. As getState(), does not wait for
    /// the network and notices a lost connection.
    bool isConnected() const;

    /// Whether there is a live connection on which the host or the user is still to be
    /// authenticated. As isConnected(), does not wait for the network and notices a lost
    /// connection.
    bool isAuthenticating() const;

    /// Whether there is a live connection and the user has been accepted. As isConnected(), does
    /// not wait for the network and notices a lost connection.
    bool isAuthenticated() const;

    /// Sets the server's host name or address; "user@host" sets the user name too. The next
    /// connect() goes there. On a session that is connected it changes the name whose known-hosts
    /// entry hostAuthenticate() looks up, so do not set it between the two. Does not block on the
    /// network. False: it can be no host name, or the user's before it no user name (see
    /// setUserName()); nothing was changed.
    bool setHostName(const std::string& hostName);

    /// The host name as set; empty when none was. libssh's copy of it is not released, so each call
    /// costs its few bytes. Does not block on the network.
    std::string getHostName();

    /// Sets the name to log in with; without it libssh takes the local user's at connect(). Does
    /// not block on the network. False: it can be no user name, since a shell would read something
    /// else into it: one of '`";&<>|(){}$, a comma or a backslash, or a dash at the start or after
    /// a blank. Nothing was changed.
    bool setUserName(const std::string& userName);

    /// The user name as set, or as connect() chose it; empty when there is none yet. Does not block
    /// on the network.
    std::string getUserName();

    /// Sets the server's TCP port, 22 when never called. As setHostName(): for the next connect(),
    /// and at once for the known-hosts entry that is looked up. Does not block on the network.
    /// False: libssh refuses the number, nothing was changed.
    bool setPortNumber(unsigned short port);

    /// The port in use; 0 when libssh cannot tell. Does not block on the network.
    unsigned short getPortNumber() const;

    /// Decides whether the server is to be trusted, in the way that `authenticator` says. Runs only
    /// in state HostAuthenticating. Does not wait for the network; reads and, if asked, writes the
    /// known-hosts file.
    ///
    /// Null: the state was another one, nothing was done. A response whose result is Accepted:
    /// the state is UserAuthenticating. Any other result: the state is unchanged and another
    /// authenticator may be tried. Failures, with the known-hosts file as Failure::entry():
    /// HostUnknown, HostKeyChanged, KnownHostsUnreadable; HostKeyRefused, by a list of keys.
    /// Undecided leaves one as well.
    [[nodiscard]] std::unique_ptr<HostAuthenticatorResponse>
    hostAuthenticate(const HostAuthenticator& authenticator);

    /// Proves who the user is, in the way that `authenticator` says. Runs only in state
    /// UserAuthenticating. Blocks until the server has answered, at most about 100 seconds; with an
    /// agent, for as long as that takes to answer.
    ///
    /// Null: the state was another one, nothing was done. A response whose result is Success: the
    /// state is Authenticated. Any other result: the state is unchanged; after Partial the server
    /// expects a further method, after Denied another one may be tried. A key that cannot be read,
    /// and a text with a NUL byte, are Denied without a word to the server. Failures: Denied, by
    /// the server; MoreRequired, after Partial, with the methods as its text; TimedOut, Lost,
    /// Interrupted; KeyFileMissing, KeyFileUnreadable, NotAKey and WrongPassPhrase, with the file
    /// as Failure::entry(); BadName, for a NUL byte.
    [[nodiscard]] std::unique_ptr<UserAuthenticatorResponse>
    userAuthenticate(const UserAuthenticator& authenticator);

protected:
    RemoteSession() = default;
    // Not virtual: sessions are destroyed through their own type.
    ~RemoteSession() = default;

    virtual bool do_isConnected() const;
    virtual bool do_isAuthenticating() const;
    virtual bool do_isAuthenticated() const;
    virtual bool do_connect() = 0;
    virtual bool do_disconnect() = 0;
    virtual RemoteSessionState do_getState() = 0;
    virtual bool do_setUserName(const std::string& userName) = 0;
    virtual std::string do_getUserName() = 0;
    virtual bool do_setHostName(const std::string& hostName) = 0;
    virtual std::string do_getHostName() = 0;
    virtual bool do_setPortNumber(unsigned short port) = 0;
    virtual unsigned short do_getPortNumber() const = 0;
    virtual std::unique_ptr<HostAuthenticatorResponse>
    do_hostAuthenticate(const HostAuthenticator& authenticator) = 0;
    virtual std::unique_ptr<UserAuthenticatorResponse>
    do_userAuthenticate(const UserAuthenticator& authenticator) = 0;

private:
    RemoteSessionState stateNow() const;
};

} // namespace Tarnis
