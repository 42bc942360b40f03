#pragma once

#include "support/LoopbackSocket.h"
#include "support/ScriptedChannel.h"
#include "support/ScriptedPolicy.h"
#include "support/ServerEvents.h"

#include <libssh/libssh.h>
#include <libssh/server.h>

#include <atomic>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace TarnisTest {

/// One connection of a ScriptedServer, served by a thread of its own; for the server's own use.
///
/// libssh allows one thread at a time in a session. Here that is whoever holds the connection's
/// mutex: the serving thread while it takes in packets (libssh's callbacks run then), and a script
/// during one call of its ScriptedChannel. Nobody holds it while waiting.
class ScriptedConnection
{
public:
    ScriptedConnection(int number, UniqueFd socket, const ScriptedPolicy& policy, EventLog& events);
    ScriptedConnection(const ScriptedConnection&) = delete;
    ScriptedConnection& operator=(const ScriptedConnection&) = delete;
    ~ScriptedConnection();

    int number() const { return number_; }

    const ScriptedPolicy& policy() const { return policy_; }

    /// Ends the connection without a word. Any thread, locked or not.
    void drop();
    /// Stops or resumes all traffic. Any thread, not locked.
    void setFrozen(bool frozen);

    using Lock = std::unique_lock<std::mutex>;

    /// For a script: locks the connection once it is not frozen. Throws ConnectionGone.
    Lock enter();
    /// For a script: unlocks until something has happened. Throws ConnectionGone.
    void waitForChange(Lock& lock);
    /// The same, for a few milliseconds at most.
    void waitBriefly(Lock& lock);
    /// Locks the connection whatever its state, for reading what was recorded.
    Lock peek();
    /// After a libssh call that may have taken packets in or left some to be sent.
    void noteChange();

    /// Adds an event of this connection. Locked.
    void record(ServerEvent event);

private:
    void serve();
    void serveSsh();
    void openSession();
    bool isFinished() const;
    bool waitForTraffic();
    void takePacketsIn();
    void recordKeyExchangeOnce();
    void answerCloses();
    void finish();
    void sendRaw(std::string_view bytes);
    void discardUntilClosed();

    static int onMessage(ssh_session session, ssh_message message, void* self);
    bool handle(ssh_message message);
    bool handleService(ssh_message message);
    bool handleAuthentication(ssh_message message);
    bool handleChannelOpen(ssh_message message);
    bool handleChannelRequest(ssh_message message);
    bool refuseOrIgnore(Answer answer, ssh_message message);

    ServerEvent describeAttempt(ssh_message message);
    AuthReply decide(const ServerEvent& attempt) const;
    void replyTo(ssh_message message, const ServerEvent& attempt, const AuthReply& reply);
    void sendIssueBannerOnce();

    void acceptChannel(ssh_message message);
    void acceptRequest(ssh_message message, ScriptedChannel& channel, const ServerEvent& event);
    ScriptedChannel* find(ssh_channel channel) const;
    void startScript(ScriptedChannel& channel);
    void runScript(ScriptedChannel& channel) const;

    const int number_;
    const ScriptedPolicy& policy_;
    EventLog& events_;
    /// The same socket as the session's, which libssh may close at any time.
    UniqueFd socket_;
    WakeUp wakeUp_;
    std::atomic<bool> dropped_{false};

    std::mutex mutex_;
    std::condition_variable changed_;
    bool frozen_ = false;
    bool ended_ = false;
    ssh_bind bind_ = nullptr;
    ssh_session session_ = nullptr;
    /// Made when the keys have been exchanged.
    ssh_event poll_ = nullptr;
    bool failed_ = false;
    bool keyExchangeRecorded_ = false;
    bool issueBannerSent_ = false;
    std::string lastUser_;
    /// A list: answering one channel may take in the opening of the next.
    std::list<std::unique_ptr<ScriptedChannel>> channels_;
    std::vector<std::thread> scripts_;
    std::thread thread_;
};

/// The key that every ScriptedServer of this process identifies itself with.
ssh_key scriptedHostKey();

/// "SHA256:..." of a key.
std::string fingerprintOf(ssh_key key);

} // namespace TarnisTest
