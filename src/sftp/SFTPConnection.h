#pragma once

#include "handles/ChannelInput.h"
#include "handles/ChannelOpening.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SocketWakeUp.h"
#include "handles/SpareChannel.h"
#include "sftp/SFTPReceiveWindow.h"
#include "sftp/wire/SFTPExtension.h"
#include "sftp/wire/SFTPPacketReceiver.h"
#include "sftp/wire/SFTPPacketSplitter.h"
#include "sftp/wire/SFTPPacketWriter.h"
#include "sftp/wire/SFTPReplyFields.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Tarnis {

/// The answer to a request.
struct SFTPAnswer
{
    /// No answer comes any more; `fields` is the reason then, and the rest says nothing.
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
class SFTPConnection final : public SpareChannel,
                             private ChannelInputReceiver,
                             private SFTPPacketReceiver
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
    /// \param wakeUp    is told of what comes, and when to look again; has to outlive this, or
    ///                  rest().
    /// \param makesRoom whether the session is to close what it keeps for later where the server
    ///                  opens no further channel.
    static std::unique_ptr<SFTPConnection> create(SSHHandleSession& session, SocketWakeUp& wakeUp,
                                                  bool makesRoom);

    /// Gives the channel up; what is in flight is not answered. Takes the lock; does not wait.
    ~SFTPConnection() override;

    /// The channel's handle, for its lock.
    SSHHandleChannel& channel() noexcept { return *channel_; }

    Phase phase() const noexcept { return phase_; }

    /// Whether it is Refused or has Ended.
    bool isOver() const noexcept { return phase_ == Phase::Refused || phase_ == Phase::Ended; }

    /// Why it was refused or has ended.
    const std::string& error() const noexcept { return error_; }

    /// The shortest time that an answer has taken so far; the longest there is before the first.
    std::chrono::nanoseconds roundTrip() const noexcept { return roundTrip_; }

    bool offers(const SFTPExtension& extension) const;

    /// Opens the channel and sends what waits to be sent, as far as that goes without waiting.
    void advance();

    /// Takes in what has arrived at the session, for this channel and all others.
    void takeIn();

    /// Lets the server send further ahead than libssh does by itself: for who reads much.
    void keepWide();

    /// Ends the connection where what was taken in, here or by another channel, says so.
    void settle();

    /// How many requests are in flight.
    std::size_t inFlight() const noexcept { return pending_.size(); }

    /// How many bytes wait until the server takes them.
    std::size_t unsent() const noexcept { return out_.size() - sent_; }

    /// Starts a request. A connection that has ended answers it at once, as lost.
    /// \param write   writes the request with its identifier. What it throws ends the connection.
    /// \param buffer  where data goes, lent until the answer, and its size. More data than that is
    ///                no answer, and nothing is written beyond.
    template <class Write>
    void send(Write write, Handler handler, char* buffer = nullptr, std::uint32_t size = 0)
    {
        const std::uint32_t id = add(std::move(handler), buffer, size);
        if (phase_ != Phase::Ready) {
            return;
        }
        try {
            SFTPPacketWriter writer(out_);
            write(writer, id);
        } catch (const std::exception& problem) {
            // Nobody else would answer it.
            end(problem.what());
        }
    }

    /// What was answered since the last call.
    std::vector<Answered> takeAnswered();

    /// Ends the connection: what is in flight is lost.
    void end(const std::string& reason);

    /// Whether nothing at all is in flight, so that somebody else could go on with it.
    bool isAtRest() const noexcept;

    /// Lets go of whom it tells of what comes, as nobody uses it any more.
    void rest() noexcept;

    /// Takes it up again for somebody else, as it was given to create(), and takes in what has come
    /// meanwhile. \return for how long it was at rest.
    std::chrono::nanoseconds resume(SocketWakeUp& wakeUp);

    void close() override;
    bool isClosed() const override;

private:
    using Clock = std::chrono::steady_clock;

    struct Pending
    {
        Handler handler;
        char* buffer;
        std::uint32_t size;
    };

    SFTPConnection(std::shared_ptr<SSHHandleChannel> channel, SocketWakeUp& wakeUp, bool makesRoom);

    void received(std::string_view bytes) noexcept override;
    void ended() noexcept override;
    void gone() noexcept override;
    void packet(const SFTPPacket& packet) override;
    void dataBegins(std::uint32_t id, std::uint32_t size) override;
    void dataContinues(std::string_view bytes) override;
    void dataEnds() override;

    std::uint32_t add(Handler&& handler, char* buffer, std::uint32_t size);
    void answer(std::uint32_t id, SFTPAnswer&& answer);
    void greet(const SFTPPacket& packet);
    void openChannel();
    void tellOfInput() noexcept;
    void requestSubsystem(ssh_channel channel);
    void transmit(ssh_channel channel);
    /// Whether something is waited for that may come without a sign.
    bool isWaitingUnseen() const noexcept;
    void refuse(ssh_channel channel, const char* what);

    std::shared_ptr<SSHHandleChannel> channel_;
    ChannelOpening opening_;
    SocketWakeUp* wakeUp_; ///< Null while it is at rest.
    Clock::time_point restingSince_;
    SFTPPacketSplitter splitter_;
    SFTPReceiveWindow window_;
    std::uint64_t arrived_ = SFTPReceiveWindow::arrivalStep; ///< Since the window was widened.
    Phase phase_ = Phase::Opening;
    bool hasMoved_ = false;
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
    bool isTooLong_ = false;
    /// The request whose answer is waited for with the clock running; 0: none.
    std::uint32_t timedId_ = 0;
    Clock::time_point timedSince_;
    std::chrono::nanoseconds roundTrip_ = std::chrono::nanoseconds::max();
};

} // namespace Tarnis
