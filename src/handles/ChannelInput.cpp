#include "handles/ChannelInput.h"

#include <new>

namespace Tarnis {

ChannelInput::ChannelInput(ssh_channel channel, ChannelInputReceiver& receiver)
    : channel_(channel)
    , receiver_(receiver)
{
    callbacks_.size = sizeof callbacks_;
    callbacks_.userdata = this;
    callbacks_.channel_data_function = onData;
    callbacks_.channel_eof_function = onEnd;
    callbacks_.channel_close_function = onClose;
    if (ssh_add_channel_callbacks(channel_, &callbacks_) != SSH_OK) {
        throw std::bad_alloc();
    }
}

ChannelInput::~ChannelInput()
{
    static_cast<void>(ssh_remove_channel_callbacks(channel_, &callbacks_));
    receiver_.gone();
}

int ChannelInput::onData(ssh_session /*session*/, ssh_channel /*channel*/, void* data,
                         std::uint32_t size, int isErrorOutput, void* self)
{
    if (isErrorOutput == 0) {
        static_cast<ChannelInput*>(self)->receiver_.received(
            {static_cast<const char*>(data), size});
    }
    return static_cast<int>(size);
}

void ChannelInput::onEnd(ssh_session /*session*/, ssh_channel /*channel*/, void* self)
{
    static_cast<ChannelInput*>(self)->receiver_.ended();
}

void ChannelInput::onClose(ssh_session session, ssh_channel channel, void* self)
{
    static_cast<ChannelInput*>(self)->isClosed_ = true;
    onEnd(session, channel, self);
}

} // namespace Tarnis
