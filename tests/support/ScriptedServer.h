#pragma once

#include "support/LoopbackSocket.h"
#include "support/ScriptedChannel.h"
#include "support/ScriptedPolicy.h"
#include "support/ServerEvents.h"

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace TarnisTest {

class ScriptedConnection;

/// An SSH server within the test process that does exactly what its policy says, and records what
/// its clients do. It runs in threads of its own, one for each connection and one for each script;
/// any thread may call any member. The host key is an Ed25519 key made once for the process.
class ScriptedServer
{
public:
    /// Listens on a free port of 127.0.0.1 when it returns.
    explicit ScriptedServer(ScriptedPolicy policy = {});
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    /// Ends every connection and every script, whatever they are waiting for.
    ~ScriptedServer();

    std::uint16_t port() const { return port_; }

    /// The public host key in base64, and its "SHA256:..." fingerprint.
    static std::string hostPublicKeyBase64();
    static std::string hostKeyFingerprint();

    const EventLog& events() const { return events_; }

    /// Connections accepted so far.
    std::size_t connectionCount() const;

    /// Ends every connection without a word; new ones are still served.
    void dropConnections();

    /// Reads and answers nothing any more, on every connection, as a server that hangs. Scripts go
    /// on, but nothing that they send is sure to leave.
    void freeze();
    void thaw();

private:
    void acceptConnections();
    void accept();

    const ScriptedPolicy policy_;
    EventLog events_;
    UniqueFd listener_;
    std::uint16_t port_;
    mutable std::mutex mutex_;
    bool stopping_ = false;
    bool frozen_ = false;
    std::list<std::unique_ptr<ScriptedConnection>> connections_;
    WakeUp wakeUp_;
    std::thread acceptor_;
};

} // namespace TarnisTest
