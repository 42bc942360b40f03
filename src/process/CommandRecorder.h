#pragma once

#include "handles/SSHHandleChannel.h"

#include <libssh/callbacks.h>
#include <libssh/libssh.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>

namespace Tarnis {

/// Collects all that a server says on one channel, at the moment at which libssh takes it off the
/// connection, whichever thread makes it do so. What libssh buffers instead would be out of reach
/// once the connection is lost.
///
/// Everything here is guarded by the session's lock: libssh calls in under it, and readers hold it.
class CommandRecorder
{
public:
    /// start()
    explicit CommandRecorder(std::shared_ptr<SSHHandleChannel> channel);
    CommandRecorder(const CommandRecorder&) = delete;
    CommandRecorder& operator=(const CommandRecorder&) = delete;
    ~CommandRecorder();

    /// Begins to record. The channel must not be in use yet.
    void start();

    /// Ends the recording. Must come before the channel is retired: libssh keeps a channel until
    /// the server closes it too, and would go on calling in.
    void stop() noexcept;

    std::string output;
    std::string errorOutput;
    std::optional<int> exitStatus;
    std::string exitSignal;
    bool endOfStreams = false;
    bool closed = false;

    /// Grows with everything that is recorded.
    std::uint64_t progress() const noexcept { return progress_; }

    /// Whether the server has told how the command ended.
    bool hasExit() const noexcept { return exitStatus.has_value() || !exitSignal.empty(); }

    /// Throws what kept data from being recorded (there is no memory for it), if anything did.
    void rethrowFailure() const;

private:
    static int onData(ssh_session session, ssh_channel channel, void* data, std::uint32_t size,
                      int isStderr, void* self);
    static void onEndOfStreams(ssh_session session, ssh_channel channel, void* self);
    static void onClose(ssh_session session, ssh_channel channel, void* self);
    static void onExitStatus(ssh_session session, ssh_channel channel, int status, void* self);
    static void onExitSignal(ssh_session session, ssh_channel channel, const char* signal, int core,
                             const char* message, const char* language, void* self);

    std::shared_ptr<SSHHandleChannel> channel_;
    ssh_channel_callbacks_struct callbacks_{};
    std::exception_ptr failure_;
    std::uint64_t progress_ = 0;
    bool recording_ = false;
};

} // namespace Tarnis
