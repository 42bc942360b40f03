#pragma once

#include <libssh/callbacks.h>
#include <libssh/libssh.h>

#include <cstdint>
#include <string_view>

namespace Tarnis {

/// Gets what comes on one channel. Called under the session's lock, on whichever thread reads the
/// connection, from within libssh: must call nothing of the session's.
class ChannelInputReceiver
{
public:
    ChannelInputReceiver() = default;
    ChannelInputReceiver(const ChannelInputReceiver&) = delete;
    ChannelInputReceiver& operator=(const ChannelInputReceiver&) = delete;

    /// The next bytes of the channel's output, valid during the call. The server may send more at
    /// once: they count as read.
    virtual void received(std::string_view bytes) noexcept = 0;

    /// The server has said that nothing comes any more, or has closed the channel.
    virtual void ended() noexcept = 0;

    /// Nothing comes any more: the channel was given up, here or with its session.
    virtual void gone() noexcept = 0;

protected:
    ~ChannelInputReceiver() = default;
};

/// Hands over the bytes of a channel at the moment at which libssh takes them off the connection,
/// so that nobody need ask for them. What comes as error output is dropped.
///
/// This relies on two things that libssh does (0.10.6, 0.11.5 and 0.12.2, each in
/// channel_rcv_data): it calls a data callback for each packet with all that it has buffered,
/// whichever thread and whichever call reads the connection; and after a callback that has taken
/// the bytes it opens the channel's receive window again by itself, though nobody ever reads the
/// channel. Where it did not, a transfer would stand still after the first window, which the test
/// SftpQueueTest.TakesMoreThanAnyReceiveWindow notices. Of what else comes for a channel, 0.10
/// tells its end and its closing alone, and neither that it was opened nor that there is room for
/// output again: who waits for these has to look (SocketWakeUp::lookAgainSoon()).
class ChannelInput
{
public:
    /// Begins to listen. The channel must not be in use yet. Throws std::bad_alloc. \param receiver
    /// has to outlive this.
    ChannelInput(ssh_channel channel, ChannelInputReceiver& receiver);
    ChannelInput(const ChannelInput&) = delete;
    ChannelInput& operator=(const ChannelInput&) = delete;

    /// Must come before the channel is released: libssh keeps a channel until the server closes it
    /// too, and would go on calling in.
    ~ChannelInput();

    /// Whether the server has closed the channel.
    bool isClosed() const noexcept { return isClosed_; }

private:
    static int onData(ssh_session session, ssh_channel channel, void* data, std::uint32_t size,
                      int isErrorOutput, void* self);
    static void onEnd(ssh_session session, ssh_channel channel, void* self);
    static void onClose(ssh_session session, ssh_channel channel, void* self);

    ssh_channel channel_;
    ChannelInputReceiver& receiver_;
    ssh_channel_callbacks_struct callbacks_{};
    bool isClosed_ = false;
};

} // namespace Tarnis
