#pragma once

#include "login/ConnectionOptions.h"
#include "login/Target.h"

#include <FileSystem/Failure.h>
#include <Tarnis/SSHSession.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace TarnisTool {

/// Interrupts a session when a call on it takes too long: calls that wait for a server wait for as
/// long as it likes. To be put around such a call.
class Watchdog
{
public:
    /// \param session must outlive this object.
    /// \param limit   zero or less: never.
    Watchdog(Tarnis::SSHSession& session, std::chrono::milliseconds limit);
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog();

    /// Whether the limit passed and the session was interrupted.
    bool hasBitten() const;

private:
    void watch(std::chrono::milliseconds limit);

    Tarnis::SSHSession& session_;
    mutable std::mutex mutex_;
    std::condition_variable condition_;
    bool isOver_ = false;
    bool hasBitten_ = false;
    std::thread thread_;
};

/// Connects the session to the target and fills in the user name where the target has none. Throws
/// Failure, with a kind that tells what to do about it.
void connectTo(Tarnis::SSHSession& session, Target& target, const ReachOptions& options);

/// Throws the Failure for a session that was lost while `what` was going on.
/// \param why what is known of it; may be no failure.
[[noreturn]] void throwConnectionLost(const Target& target, const std::string& what,
                                      const FileSystem::Failure& why);

} // namespace TarnisTool
