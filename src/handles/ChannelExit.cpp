#include "handles/ChannelExit.h"

namespace Tarnis {

ChannelExit::ChannelExit(ssh_channel channel)
    : channel_(channel)
{
    callbacks_.size = sizeof callbacks_;
    callbacks_.userdata = this;
    callbacks_.channel_exit_status_function = onStatus;
    callbacks_.channel_exit_signal_function = onSignal;
    callbacks_.channel_close_function = onClose;
    static_cast<void>(ssh_add_channel_callbacks(channel_, &callbacks_));
}

ChannelExit::~ChannelExit()
{
    static_cast<void>(ssh_remove_channel_callbacks(channel_, &callbacks_));
}

void ChannelExit::onStatus(ssh_session /*session*/, ssh_channel /*channel*/, int status, void* self)
{
    static_cast<ChannelExit*>(self)->status_ = status;
}

void ChannelExit::onSignal(ssh_session /*session*/, ssh_channel /*channel*/, const char* signal,
                           int /*core*/, const char* /*message*/, const char* /*language*/,
                           void* self)
{
    try {
        static_cast<ChannelExit*>(self)->signal_ = signal != nullptr ? signal : "";
    } catch (...) {
        // libssh is C and must not see it. Without memory for its name, the signal is not told.
    }
}

void ChannelExit::onClose(ssh_session /*session*/, ssh_channel /*channel*/, void* self)
{
    static_cast<ChannelExit*>(self)->markClosed();
}

} // namespace Tarnis
