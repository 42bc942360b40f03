#include "support/ScriptedChannel.h"

#include "support/ScriptedConnection.h"

#include <algorithm>
#include <array>

namespace TarnisTest {

ScriptedChannel::ScriptedChannel(ScriptedConnection& connection, ssh_channel channel, int number)
    : connection_(connection)
    , channel_(channel)
    , number_(number)
{
    registerCallbacks();
}

void ScriptedChannel::registerCallbacks()
{
    ssh_callbacks_init(&callbacks_);
    callbacks_.userdata = this;
    callbacks_.channel_data_function = &ScriptedChannel::onData;
    callbacks_.channel_eof_function = &ScriptedChannel::onEof;
    callbacks_.channel_close_function = &ScriptedChannel::onClose;
    // libssh has no message for signal requests; this callback is the only way to see one.
    callbacks_.channel_signal_function = &ScriptedChannel::onSignal;
    ssh_set_channel_callbacks(channel_, &callbacks_);
}

int ScriptedChannel::connectionNumber() const
{
    return connection_.number();
}

std::string ScriptedChannel::command() const
{
    const auto lock = connection_.peek();
    return command_;
}

std::map<std::string, std::string> ScriptedChannel::environment() const
{
    const auto lock = connection_.peek();
    return environment_;
}

bool ScriptedChannel::writeOutput(std::string_view bytes)
{
    return write(bytes, false);
}

bool ScriptedChannel::writeErrorOutput(std::string_view bytes)
{
    return write(bytes, true);
}

bool ScriptedChannel::write(std::string_view bytes, bool isErrorOutput)
{
    constexpr std::size_t kPiece = 32768;
    auto lock = connection_.enter();
    while (!bytes.empty()) {
        const auto size = static_cast<std::uint32_t>(std::min(bytes.size(), kPiece));
        const int written = isErrorOutput ? ssh_channel_write_stderr(channel_, bytes.data(), size)
                                          : ssh_channel_write(channel_, bytes.data(), size);
        connection_.noteChange();
        if (written < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
        if (written == 0) {
            connection_.waitForChange(lock);
        }
    }
    return true;
}

std::string ScriptedChannel::readInput(std::size_t limit)
{
    auto lock = connection_.enter();
    while (input_.empty() && !inputEnded_) {
        connection_.waitForChange(lock);
    }
    std::string bytes = input_.substr(0, limit);
    input_.erase(0, bytes.size());
    return bytes;
}

std::string ScriptedChannel::readInputToEnd()
{
    auto lock = connection_.enter();
    while (!inputEnded_) {
        connection_.waitForChange(lock);
    }
    return std::exchange(input_, {});
}

void ScriptedChannel::discardInputToEnd()
{
    auto lock = connection_.enter();
    input_.clear();
    while (!inputEnded_) {
        connection_.waitForChange(lock);
        input_.clear();
    }
}

std::uint64_t ScriptedChannel::receivedBytes() const
{
    const auto lock = connection_.peek();
    return receivedBytes_;
}

std::string ScriptedChannel::receivedSha256() const
{
    const auto lock = connection_.peek();
    return digest_.hexDigest();
}

void ScriptedChannel::pauseInput()
{
    const auto lock = connection_.enter();
    paused_ = true;
}

void ScriptedChannel::resumeInput()
{
    const auto lock = connection_.enter();
    paused_ = false;
    drainInput();
    connection_.noteChange();
}

// What arrived while the input was paused lies in libssh's buffer.
void ScriptedChannel::drainInput()
{
    std::array<char, 65536> buffer{};
    int size = 0;
    while ((size = ssh_channel_read_nonblocking(channel_, buffer.data(), buffer.size(), 0)) > 0) {
        takeInput({buffer.data(), static_cast<std::size_t>(size)});
    }
}

void ScriptedChannel::sendExitStatus(int status)
{
    const auto lock = connection_.enter();
    ssh_channel_request_send_exit_status(channel_, status);
    connection_.noteChange();
}

void ScriptedChannel::sendExitSignal(const std::string& signalName, bool coreDumped,
                                     const std::string& message)
{
    const auto lock = connection_.enter();
    ssh_channel_request_send_exit_signal(channel_, signalName.c_str(), coreDumped ? 1 : 0,
                                         message.c_str(), "");
    connection_.noteChange();
}

void ScriptedChannel::sendEof()
{
    const auto lock = connection_.enter();
    ssh_channel_send_eof(channel_);
    connection_.noteChange();
}

void ScriptedChannel::close()
{
    const auto lock = connection_.enter();
    if (!closed_) {
        closed_ = true;
        ssh_channel_close(channel_);
        connection_.noteChange();
    }
}

void ScriptedChannel::finish(int exitStatus)
{
    sendExitStatus(exitStatus);
    sendEof();
    close();
}

void ScriptedChannel::dropConnection()
{
    connection_.drop();
}

std::vector<std::string> ScriptedChannel::signals() const
{
    const auto lock = connection_.peek();
    return signals_;
}

std::string ScriptedChannel::waitForSignal()
{
    auto lock = connection_.enter();
    while (signalsReturned_ == signals_.size()) {
        connection_.waitForChange(lock);
    }
    return signals_[signalsReturned_++];
}

void ScriptedChannel::waitForClose()
{
    auto lock = connection_.enter();
    while (!clientClosed_) {
        connection_.waitForChange(lock);
    }
}

void ScriptedChannel::waitUntil(const std::function<bool()>& condition)
{
    while (!condition()) {
        auto lock = connection_.enter();
        connection_.waitBriefly(lock);
    }
}

std::uint32_t ScriptedChannel::takeInput(std::string_view bytes)
{
    if (paused_) {
        return 0;
    }
    input_ += bytes;
    receivedBytes_ += bytes.size();
    digest_.update(bytes);
    ServerEvent event{ServerEvent::Kind::Data};
    event.channel = number_;
    event.bytes = bytes.size();
    connection_.record(std::move(event));
    return static_cast<std::uint32_t>(bytes.size());
}

void ScriptedChannel::answerClose()
{
    if (clientClosed_ && !closed_) {
        closed_ = true;
        ssh_channel_close(channel_);
    }
}

int ScriptedChannel::onData(ssh_session /*session*/, ssh_channel /*channel*/, void* data,
                            std::uint32_t size, int /*isErrorOutput*/, void* self)
{
    const std::string_view bytes(static_cast<const char*>(data), size);
    return static_cast<int>(static_cast<ScriptedChannel*>(self)->takeInput(bytes));
}

void ScriptedChannel::onEof(ssh_session /*session*/, ssh_channel /*channel*/, void* self)
{
    auto& channel = *static_cast<ScriptedChannel*>(self);
    channel.inputEnded_ = true;
    channel.connection_.record({ServerEvent::Kind::Eof, 0, channel.number_});
}

void ScriptedChannel::onClose(ssh_session /*session*/, ssh_channel /*channel*/, void* self)
{
    auto& channel = *static_cast<ScriptedChannel*>(self);
    channel.inputEnded_ = true;
    channel.clientClosed_ = true;
    channel.connection_.record({ServerEvent::Kind::Close, 0, channel.number_});
}

void ScriptedChannel::onSignal(ssh_session /*session*/, ssh_channel /*channel*/, const char* name,
                               void* self)
{
    auto& channel = *static_cast<ScriptedChannel*>(self);
    channel.signals_.emplace_back(name);
    channel.connection_.record({ServerEvent::Kind::Signal, 0, channel.number_, {}, name});
}

} // namespace TarnisTest
