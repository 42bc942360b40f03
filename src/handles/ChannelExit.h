#pragma once

#include <libssh/callbacks.h>
#include <libssh/libssh.h>

#include <optional>
#include <string>

namespace Tarnis {

/// Takes down how a server says that the command of one channel ended, at the moment at which
/// libssh takes it off the connection. libssh itself cannot be asked: 0.10 forgets the signal, and
/// tells a status of -1 or -2 by the number that also says "none yet" or "try again".
///
/// Guarded by the session's lock: libssh calls in under it.
class ChannelExit
{
public:
    /// Begins to listen. The channel must not be in use yet.
    explicit ChannelExit(ssh_channel channel);
    ChannelExit(const ChannelExit&) = delete;
    ChannelExit& operator=(const ChannelExit&) = delete;

    /// Must come before the channel is released: libssh keeps a channel until the server closes it
    /// too, and would go on calling in.
    ~ChannelExit();

    /// The exit status, any number; empty while none was reported.
    const std::optional<int>& status() const noexcept { return status_; }

    /// The signal's name, without "SIG"; empty while none was reported.
    const std::optional<std::string>& signal() const noexcept { return signal_; }

    /// Whether the channel was closed, by either side, so that nothing more can be reported.
    bool isClosed() const noexcept { return closed_; }

    void markClosed() noexcept { closed_ = true; }

private:
    static void onStatus(ssh_session session, ssh_channel channel, int status, void* self);
    static void onSignal(ssh_session session, ssh_channel channel, const char* signal, int core,
                         const char* message, const char* language, void* self);
    static void onClose(ssh_session session, ssh_channel channel, void* self);

    ssh_channel channel_;
    ssh_channel_callbacks_struct callbacks_{};
    std::optional<int> status_;
    std::optional<std::string> signal_;
    bool closed_ = false;
};

} // namespace Tarnis
