#include "process/CommandRecorder.h"

#include "handles/SSHCall.h"

#include <utility>

namespace Tarnis {

namespace {

CommandRecorder& recorder(void* self)
{
    return *static_cast<CommandRecorder*>(self);
}

} // namespace

CommandRecorder::CommandRecorder(std::shared_ptr<SSHHandleChannel> channel)
    : channel_(std::move(channel))
{
    callbacks_.size = sizeof callbacks_;
    callbacks_.userdata = this;
    callbacks_.channel_data_function = onData;
    callbacks_.channel_eof_function = onEndOfStreams;
    callbacks_.channel_close_function = onClose;
    callbacks_.channel_exit_status_function = onExitStatus;
    callbacks_.channel_exit_signal_function = onExitSignal;
    start();
}

CommandRecorder::~CommandRecorder()
{
    stop();
}

void CommandRecorder::start()
{
    static_cast<void>(callLocked(*channel_, ssh_add_channel_callbacks, &callbacks_));
    recording_ = true;
}

void CommandRecorder::stop() noexcept
{
    if (!std::exchange(recording_, false)) {
        return;
    }
    try {
        static_cast<void>(callLocked(*channel_, ssh_remove_channel_callbacks, &callbacks_));
    } catch (...) {
        // The channel is gone, and nothing calls in any more.
    }
}

void CommandRecorder::rethrowFailure() const
{
    if (failure_ != nullptr) {
        std::rethrow_exception(failure_);
    }
}

int CommandRecorder::onData(ssh_session /*session*/, ssh_channel /*channel*/, void* data,
                            std::uint32_t size, int isStderr, void* self)
{
    CommandRecorder& to = recorder(self);
    try {
        (isStderr != 0 ? to.errorOutput : to.output).append(static_cast<const char*>(data), size);
    } catch (...) {
        // libssh is C: the exception must wait until its call has returned.
        to.failure_ = std::current_exception();
    }
    to.progress_ += size;
    return static_cast<int>(size);
}

void CommandRecorder::onEndOfStreams(ssh_session /*session*/, ssh_channel /*channel*/, void* self)
{
    recorder(self).endOfStreams = true;
    ++recorder(self).progress_;
}

void CommandRecorder::onClose(ssh_session /*session*/, ssh_channel /*channel*/, void* self)
{
    recorder(self).closed = true;
    ++recorder(self).progress_;
}

void CommandRecorder::onExitStatus(ssh_session /*session*/, ssh_channel /*channel*/, int status,
                                   void* self)
{
    recorder(self).exitStatus = status;
    ++recorder(self).progress_;
}

void CommandRecorder::onExitSignal(ssh_session /*session*/, ssh_channel /*channel*/,
                                   const char* signal, int /*core*/, const char* /*message*/,
                                   const char* /*language*/, void* self)
{
    CommandRecorder& to = recorder(self);
    try {
        to.exitSignal = signal;
    } catch (...) {
        to.failure_ = std::current_exception();
    }
    ++to.progress_;
}

} // namespace Tarnis
