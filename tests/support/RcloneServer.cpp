#include "support/RcloneServer.h"

#include <stdexcept>

namespace TarnisTest {

namespace {

std::string findRclone()
{
    return findProgram({"/usr/bin/rclone", "/usr/local/bin/rclone"});
}

/// The port that the server says it listens on; empty until it has said so.
std::string announcedPort(const std::string& log)
{
    const std::string announcement = "listening on 127.0.0.1:";
    const auto found = log.find(announcement);
    if (found == std::string::npos) {
        return {};
    }
    const auto begin = found + announcement.size();
    const auto end = log.find('\n', begin);
    return end == std::string::npos ? std::string() : log.substr(begin, end - begin);
}

} // namespace

Availability RcloneServer::availability()
{
    return findRclone().empty() ? Availability::no("rclone is not installed") : Availability::yes();
}

RcloneServer::RcloneServer()
    : hostKey_(generateKey(directory_, "host_key"))
    , clientKey_(generateKey(directory_, "client"))
{
    directory_.write("authorized_keys", clientKey_.publicLine + "\n");
    directory_.makeDirectory("root");
    process_ = std::make_unique<ChildProcess>(command());
    awaitPort();
}

Command RcloneServer::command() const
{
    Command command;
    command.arguments = {findRclone(),
                         "serve",
                         "sftp",
                         root(),
                         "--addr=127.0.0.1:0",
                         "--key=" + hostKey_.privatePath,
                         "--user=" + user(),
                         "--authorized-keys=" + directory_.file("authorized_keys"),
                         "--config=" + directory_.file("rclone.conf"),
                         "--cache-dir=" + directory_.file("cache"),
                         "--vfs-cache-mode=off",
                         "-v"};
    command.environment = {"PATH=/usr/local/bin:/usr/bin:/bin", "HOME=" + directory_.file("home")};
    return command;
}

void RcloneServer::awaitPort()
{
    const auto hasSpoken = [this] {
        return !announcedPort(log()).empty() || !process_->isRunning();
    };
    if (!waitUntil(hasSpoken) || !process_->isRunning()) {
        throw std::runtime_error("the server does not come up: " + log());
    }
    port_ = static_cast<std::uint16_t>(std::stoi(announcedPort(log())));
}

} // namespace TarnisTest
