#include "support/selftest/SshClient.h"

#include <array>

namespace TarnisTest {

SshCommand::SshCommand(std::uint16_t port, std::string user)
    : port_(port)
    , user_(std::move(user))
{
    withOption("StrictHostKeyChecking=no");
    withOption("UserKnownHostsFile=" + directory_.file("known_hosts"));
    withOption("GlobalKnownHostsFile=none");
    withOption("IdentitiesOnly=yes");
    withOption("IdentityAgent=none");
    withOption("NumberOfPasswordPrompts=1");
}

SshCommand& SshCommand::withKey(const KeyPair& key)
{
    return withOption("IdentityFile=" + key.privatePath);
}

SshCommand& SshCommand::withPassword(const std::string& password)
{
    directory_.write("password", password + "\n");
    const std::string script = "#!/bin/sh\ncat '" + directory_.file("password") + "'\n";
    environment_ = {"SSH_ASKPASS_REQUIRE=force",
                    "SSH_ASKPASS=" + directory_.write("askpass", script, 0700)};
    return *this;
}

SshCommand& SshCommand::withOption(const std::string& option)
{
    options_.push_back(option);
    return *this;
}

SshCommand& SshCommand::withVerbosity()
{
    logLevel_ = "DEBUG2";
    return *this;
}

SshCommand& SshCommand::withInput(std::string input)
{
    input_ = std::move(input);
    return *this;
}

std::vector<std::string> SshCommand::commonArguments() const
{
    std::vector<std::string> arguments = {"-F", "none"};
    for (const std::string& option : options_) {
        arguments.insert(arguments.end(), {"-o", option});
    }
    for (const std::string& option :
         {"Port=" + std::to_string(port_), "User=" + user_, "LogLevel=" + logLevel_}) {
        arguments.insert(arguments.end(), {"-o", option});
    }
    arguments.emplace_back("127.0.0.1");
    return arguments;
}

Command SshCommand::command(const std::string& remoteCommand) const
{
    Command command;
    command.arguments = commonArguments();
    command.arguments.insert(command.arguments.begin(), "ssh");
    command.arguments.push_back(remoteCommand);
    command.environment = environment_;
    command.input = input_;
    return command;
}

Command SshCommand::sftpCommand(const std::string& batch) const
{
    Command command;
    command.arguments = commonArguments();
    command.arguments.insert(command.arguments.begin(), {"sftp", "-b", "-"});
    command.environment = environment_;
    command.input = batch;
    return command;
}

CommandResult SshCommand::runSftp(const std::string& batch) const
{
    return runCommand(sftpCommand(batch));
}

std::unique_ptr<ChildProcess> SshCommand::startSftp(const std::string& batch) const
{
    return std::make_unique<ChildProcess>(sftpCommand(batch));
}

CommandResult SshCommand::run(const std::string& remoteCommand) const
{
    return runCommand(command(remoteCommand));
}

std::unique_ptr<ChildProcess> SshCommand::start(const std::string& remoteCommand) const
{
    return std::make_unique<ChildProcess>(command(remoteCommand));
}

ClientSession::ClientSession(std::uint16_t port, const std::string& user)
    : session_(ssh_new())
{
    const unsigned int number = port;
    const int noConfiguration = 0;
    const long seconds = kGenerousLimit.count();
    ssh_options_set(session_, SSH_OPTIONS_HOST, "127.0.0.1");
    ssh_options_set(session_, SSH_OPTIONS_PORT, &number);
    ssh_options_set(session_, SSH_OPTIONS_USER, user.c_str());
    ssh_options_set(session_, SSH_OPTIONS_TIMEOUT, &seconds);
    ssh_options_set(session_, SSH_OPTIONS_PROCESS_CONFIG, &noConfiguration);
}

ClientSession::~ClientSession()
{
    ssh_silent_disconnect(session_);
    ssh_free(session_);
}

bool ClientSession::logIn(const std::string& password)
{
    return connect() == SSH_OK &&
           ssh_userauth_password(session_, nullptr, password.c_str()) == SSH_AUTH_SUCCESS;
}

bool ClientSession::logIn(const KeyPair& key)
{
    ssh_key imported = nullptr;
    if (ssh_pki_import_privkey_file(key.privatePath.c_str(), nullptr, nullptr, nullptr,
                                    &imported) != SSH_OK) {
        return false;
    }
    const bool isIn = connect() == SSH_OK &&
                      ssh_userauth_publickey(session_, nullptr, imported) == SSH_AUTH_SUCCESS;
    ssh_key_free(imported);
    return isIn;
}

ClientChannel::ClientChannel(const ClientSession& session)
    : channel_(ssh_channel_new(session.get()))
{}

ClientChannel::~ClientChannel()
{
    ssh_channel_free(channel_);
}

std::string ClientChannel::readAll(bool errorOutput)
{
    std::string all;
    std::array<char, 32768> buffer{};
    int size = 0;
    while ((size = ssh_channel_read(channel_, buffer.data(), buffer.size(), errorOutput ? 1 : 0)) >
           0) {
        all.append(buffer.data(), static_cast<std::size_t>(size));
    }
    return all;
}

} // namespace TarnisTest
