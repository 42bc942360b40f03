#pragma once

#include "support/ChildProcess.h"
#include "support/KeyPair.h"

#include <libssh/libssh.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace TarnisTest {

/// OpenSSH's client, run with nothing of the user's own.
class SshCommand
{
public:
    SshCommand(std::uint16_t port, std::string user);

    SshCommand& withKey(const KeyPair& key);
    /// Answers every question with this.
    SshCommand& withPassword(const std::string& password);
    /// "-o" option, as in the client's configuration file.
    SshCommand& withOption(const std::string& option);
    /// Makes the client tell on its error output what it does.
    SshCommand& withVerbosity();
    SshCommand& withInput(std::string input);

    /// Runs the client to its end.
    CommandResult run(const std::string& remoteCommand) const;
    /// Runs OpenSSH's "sftp" with these lines as its batch, up to the first that fails.
    CommandResult runSftp(const std::string& batch) const;
    std::unique_ptr<ChildProcess> startSftp(const std::string& batch) const;
    /// Starts the client and lets it run. It may need this object's files until it has logged in.
    std::unique_ptr<ChildProcess> start(const std::string& remoteCommand) const;

private:
    Command command(const std::string& remoteCommand) const;
    Command sftpCommand(const std::string& batch) const;
    std::vector<std::string> commonArguments() const;

    TemporaryDirectory directory_;
    std::uint16_t port_;
    std::string user_;
    std::vector<std::string> options_;
    std::vector<std::string> environment_;
    std::string logLevel_ = "ERROR";
    std::string input_;
};

/// A libssh client session that reads no configuration file.
class ClientSession
{
public:
    explicit ClientSession(std::uint16_t port, const std::string& user = "tester");
    ClientSession(const ClientSession&) = delete;
    ClientSession& operator=(const ClientSession&) = delete;
    ~ClientSession();

    ssh_session get() const { return session_; }

    /// libssh's result of the connection attempt.
    int connect() { return ssh_connect(session_); }

    /// Connects and logs in with a password; false when either fails.
    bool logIn(const std::string& password);
    /// The same with a key.
    bool logIn(const KeyPair& key);

private:
    ssh_session session_;
};

/// A libssh channel, closed on destruction.
class ClientChannel
{
public:
    explicit ClientChannel(const ClientSession& session);
    ClientChannel(const ClientChannel&) = delete;
    ClientChannel& operator=(const ClientChannel&) = delete;
    ~ClientChannel();

    ssh_channel get() const { return channel_; }

    bool open() { return ssh_channel_open_session(channel_) == SSH_OK; }

    bool execute(const std::string& command)
    {
        return ssh_channel_request_exec(channel_, command.c_str()) == SSH_OK;
    }

    /// Everything up to the end of one of the two output streams.
    std::string readAll(bool errorOutput = false);

private:
    ssh_channel channel_;
};

} // namespace TarnisTest
