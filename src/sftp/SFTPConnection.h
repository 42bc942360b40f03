#pragma once

#include "handles/ChannelInput.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SocketWakeUp.h"
#include "sftp/wire/SFTPExtension.h"
#include "sftp/wire/SFTPPacketReceiver.h"
#include "sftp/wire/SFTPPacketSplitter.h"
#include "sftp/wire/SFTPPacketWriter.h"
#include "sftp/wire/SFTPReplyFields.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Tarnis {

/// The answer to a request.
struct SFTPAnswer
{
    /// No answer comes any more. The rest says nothing then.
    bool isLost = false;
    SFTPPacketType type = SFTPPacketType::Status;
    std::string fields;         ///< Of any packet but data.
    std::uint32_t dataSize = 0; ///< How many bytes of data stand in the request's buffer.
};

/// A connection of its own with the SFTP server, on one channel of a session: many requests under
/// way, whose answers come in any order.
///
/// Everything is to be called under the channel's lock, except where it says otherwise, and by one
/// thread; what comes on the channel is taken in by whichever thread reads the session.
class SFTPConnection final : private ChannelInputReceiver, private SFTPPacketReceiver
{
public:
    using Handler = std::function<void(const SFTPAnswer&)>;

    enum class Phase
    {
        Opening,    ///< The channel is being opened.
        Requesting, ///< The server is being asked for SFTP.
        Greeting,   ///< The server's version has not come yet.
        Ready,
        Refused, ///< There is no SFTP on this channel, for the reason that error() gives.
        Ended,   ///< It was ready, and is so no more.
    };

    /// An answered request, to be handled without the lock.
    struct Answered
    {
        Handler handler;
        SFTPAnswer answer;
    };

    /// Null: libssh has no memory for a channel. Takes the lock. Throws
    /// handle_fatal_error("invalid") when the session's handle is invalid.
    /// \param wakeUp is signalled when another thread takes something in; has to outlive this.
    static std::unique_ptr<SFTPConnection> create(SSHHandleSession& session, SocketWakeUp& wakeUp);

    SFTPConnection(const SFTPConnection&) = delete;
    SFTPConnection& operator=(const SFTPConnection&) = delete;

    /// Gives the channel up; what is under way is not answered. Takes the lock; does not wait.
    ~SFTPConnection();

    /// The channel's handle, for its lock.
    SSHHandleChannel& channel() noexcept { return *channel_; }

    Phase phase() const noexcept { return phase_; }

    /// Why it was refused or has ended.
    const std::string& error() const noexcept { return error_; }

    bool offers(const SFTPExtension& extension) const;

    /// Opens the channel, sends what waits to be sent and takes in what has arrived, as far as that
    /// goes without waiting.
    void advance();

    /// How many requests are under way.
    std::size_t inFlight() const noexcept { return pending_.size(); }

    /// How many bytes wait until the server takes them.
    std::size_t unsent() const noexcept { return out_.size() - sent_; }

    /// Starts a request. A connection that has ended answers it at once, as lost.
    /// \param write   writes the request with its identifier.
    /// \param buffer  where data goes, lent until the answer, and its size; what comes beyond that
    ///                is dropped.
    template <class Write>
    void send(Write write, Handler handler, char* buffer = nullptr, std::uint32_t size = 0)
    {
        const std::uint32_t id = add(std::move(handler), buffer, size);
        if (phase_ == Phase::Ready) {
            SFTPPacketWriter writer(out_);
            write(writer, id);
        }
    }

    /// What was answered since the last call.
    std::vector<Answered> takeAnswered();

    /// Ends the connection: what is under way is lost.
    void end(const std::string& reason);

private:
    struct Pending
    {
        Handler handler;
        char* buffer;
        std::uint32_t size;
    };

    SFTPConnection(std::shared_ptr<SSHHandleChannel> channel, SocketWakeUp& wakeUp);

    void received(std::string_view bytes) noexcept override;
    void gone() noexcept override;
    void packet(const SFTPPacket& packet) override;
    void dataBegins(std::uint32_t id, std::uint32_t size) override;
    void dataContinues(std::string_view bytes) override;
    void dataEnds() override;

    std::uint32_t add(Handler&& handler, char* buffer, std::uint32_t size);
    void answer(std::uint32_t id, SFTPAnswer&& answer);
    void greet(const SFTPPacket& packet);
    void openChannel(ssh_channel channel);
    void requestSubsystem(ssh_channel channel);
    void transmit(ssh_channel channel);
    void takeIn(ssh_channel channel);
    void refuse(ssh_channel channel, const char* what);

    std::shared_ptr<SSHHandleChannel> channel_;
    SocketWakeUp& wakeUp_;
    SFTPPacketSplitter splitter_;
    Phase phase_ = Phase::Opening;
    bool isAdvancing_ = false;
    std::string error_;
    /// Of which version and extensions are told.
    std::string greeting_;
    std::string out_;
    std::size_t sent_ = 0;
    std::uint32_t lastId_ = 0;
    std::unordered_map<std::uint32_t, Pending> pending_;
    std::vector<Answered> answered_;
    /// Of the data that comes just now.
    std::uint32_t dataId_ = 0;
    std::uint32_t dataTaken_ = 0;
    char* dataBuffer_ = nullptr;
    std::uint32_t dataRoom_ = 0;
};

} // namespace Tarnis
