#include "support/ScriptedServer.h"

#include "support/ScriptedConnection.h"

#include <array>
#include <stdexcept>

#include <poll.h>

namespace TarnisTest {

ScriptedServer::ScriptedServer(ScriptedPolicy policy)
    : policy_(std::move(policy))
    , listener_(listenOnLoopback())
    , port_(localPort(listener_))
    , acceptor_([this] { acceptConnections(); })
{}

ScriptedServer::~ScriptedServer()
{
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        stopping_ = true;
    }
    wakeUp_.signal();
    acceptor_.join();
}

std::string ScriptedServer::hostPublicKeyBase64()
{
    char* text = nullptr;
    if (ssh_pki_export_pubkey_base64(scriptedHostKey(), &text) != SSH_OK) {
        throw std::runtime_error("libssh cannot export the host key");
    }
    std::string base64 = text;
    ssh_string_free_char(text);
    return base64;
}

std::string ScriptedServer::hostKeyFingerprint()
{
    return fingerprintOf(scriptedHostKey());
}

std::size_t ScriptedServer::connectionCount() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return connections_.size();
}

void ScriptedServer::dropConnections()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& connection : connections_) {
        connection->drop();
    }
}

void ScriptedServer::freeze()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    frozen_ = true;
    for (const auto& connection : connections_) {
        connection->setFrozen(true);
    }
}

void ScriptedServer::thaw()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    frozen_ = false;
    for (const auto& connection : connections_) {
        connection->setFrozen(false);
    }
}

void ScriptedServer::acceptConnections()
{
    std::array<pollfd, 2> watched{{{listener_.get(), POLLIN, 0}, {wakeUp_.fd(), POLLIN, 0}}};
    while (true) {
        ::poll(watched.data(), watched.size(), -1);
        const std::lock_guard<std::mutex> guard(mutex_);
        if (stopping_) {
            return;
        }
        if (watched[0].revents != 0) {
            accept();
        }
    }
}

void ScriptedServer::accept()
{
    UniqueFd socket = acceptConnection(listener_);
    if (!socket.isOpen()) {
        return;
    }
    const int number = static_cast<int>(connections_.size()) + 1;
    connections_.push_back(
        std::make_unique<ScriptedConnection>(number, std::move(socket), policy_, events_));
    if (frozen_) {
        connections_.back()->setFrozen(true);
    }
}

} // namespace TarnisTest
