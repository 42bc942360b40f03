#include "sftp/SFTPConnection.h"

#include "handles/SSHCall.h"
#include "handles/SSHChannelClose.h"
#include "handles/SSHFailure.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Tarnis {

namespace {

constexpr const char* subsystem = "sftp";
// How much is moved to the front at once where a part of what waits was sent.
constexpr std::size_t worthMoving = 256U << 10U;

} // namespace

std::unique_ptr<SFTPConnection> SFTPConnection::create(SSHHandleSession& session,
                                                       SocketWakeUp& wakeUp, bool makesRoom)
{
    auto channel = SSHHandleChannel::create(session);
    if (channel == nullptr) {
        return nullptr;
    }
    return std::unique_ptr<SFTPConnection>(
        new SFTPConnection(std::move(channel), wakeUp, makesRoom));
}

SFTPConnection::SFTPConnection(std::shared_ptr<SSHHandleChannel> channel, SocketWakeUp& wakeUp,
                               bool makesRoom)
    : channel_(std::move(channel))
    , opening_(*channel_,
               makesRoom ? ChannelOpening::Renew([this] {
                   const bool isRenewed = channel_->renew();
                   channel_->readInto(*this);
                   return isRenewed;
               })
                         : nullptr,
               true)
    , wakeUp_(&wakeUp)
    , splitter_(*this)
{
    SFTPPacketWriter(out_).init();
    channel_->readInto(*this);
}

SFTPConnection::~SFTPConnection()
{
    const auto lock = channel_->getLock();
    if (opening_.isAsked()) {
        // The server would keep the channel open if nothing here closed it once it is.
        channel_->ignoreInput();
        SSHHandleChannel::abandon(channel_);
    } else {
        channel_->deleteMe();
    }
}

bool SFTPConnection::offers(const SFTPExtension& extension) const
{
    const auto version = decodeVersion(greeting_);
    return version && version->offers(extension);
}

void SFTPConnection::advance()
{
    const SocketWakeUp::Awake awake(*wakeUp_);
    if (channel_->getResource() == nullptr) {
        end("the session has ended");
        return;
    }
    const SessionBlockingGuard guard(channel_->getResource(), 0);
    if (phase_ == Phase::Opening) {
        openChannel();
    }
    const ssh_channel channel = channel_->getResource();
    if (phase_ == Phase::Requesting) {
        requestSubsystem(channel);
    }
    if (phase_ == Phase::Requesting || phase_ == Phase::Greeting || phase_ == Phase::Ready) {
        transmit(channel);
    }
    wakeUp_->watch(ssh_channel_get_session(channel));
    if (isWaitingUnseen()) {
        wakeUp_->lookAgainSoon(std::exchange(hasMoved_, false));
    }
}

bool SFTPConnection::isWaitingUnseen() const noexcept
{
    return phase_ == Phase::Opening || phase_ == Phase::Requesting || (unsent() > 0 && !isOver());
}

void SFTPConnection::openChannel()
{
    const int result = opening_.advance();
    if (result == SSH_OK) {
        phase_ = Phase::Requesting;
    } else if (result != SSH_AGAIN) {
        refuse(channel_->getResource(), "the server opens no further channel");
    }
}

// The server's version is asked for together with the subsystem, to save a round trip: what comes
// before the subsystem is granted waits over there.
void SFTPConnection::requestSubsystem(ssh_channel channel)
{
    const int result = ssh_channel_request_subsystem(channel, subsystem);
    if (result == SSH_OK) {
        phase_ = greeting_.empty() ? Phase::Greeting : Phase::Ready;
    } else if (result != SSH_AGAIN || ssh_channel_is_open(channel) == 0) {
        refuse(channel, "the server has no SFTP");
    }
}

void SFTPConnection::transmit(ssh_channel channel)
{
    while (unsent() > 0) {
        const auto size = static_cast<std::uint32_t>(std::min<std::size_t>(unsent(), worthMoving));
        const int written = ssh_channel_write(channel, out_.data() + sent_, size);
        if (written <= 0) {
            if (written != 0 && written != SSH_AGAIN) {
                end(transportFailureText(ssh_channel_get_session(channel)));
            }
            break;
        }
        sent_ += static_cast<std::size_t>(written);
        hasMoved_ = true;
    }
    if (unsent() == 0 || sent_ >= worthMoving) {
        out_.erase(0, sent_);
        sent_ = 0;
    }
}

// Asking whether something can be read takes in what has arrived for any channel, 4 KiB of it at a
// time.
void SFTPConnection::takeIn()
{
    const ssh_channel channel = channel_->getResource();
    if (channel == nullptr || phase_ == Phase::Opening || isOver()) {
        return;
    }
    const SocketWakeUp::Awake awake(*wakeUp_);
    const SessionBlockingGuard guard(channel, 0);
    constexpr std::size_t atATime = 4'096;
    constexpr std::size_t mostAtOnce = 256U << 10U;
    const std::size_t arrived = std::min(wakeUp_->unread(), mostAtOnce);
    int result = 0;
    for (std::size_t taken = 0; result == 0 && taken <= arrived; taken += atATime) {
        result = ssh_channel_poll(channel, 0);
    }
    settle();
    if (result < 0 && result != SSH_AGAIN) {
        end(transportFailureText(ssh_channel_get_session(channel)));
    }
}

void SFTPConnection::keepWide()
{
    const ssh_channel channel = channel_->getResource();
    if (channel == nullptr || phase_ != Phase::Ready || arrived_ < SFTPReceiveWindow::arrivalStep) {
        return;
    }
    const SocketWakeUp::Awake awake(*wakeUp_);
    const SessionBlockingGuard guard(channel, 0);
    arrived_ = 0;
    window_.widen(channel);
}

void SFTPConnection::settle()
{
    const ssh_channel channel = channel_->getResource();
    if (splitter_.isBroken()) {
        end(splitter_.reason());
    } else if (channel == nullptr) {
        end("the session has ended");
    } else if (phase_ != Phase::Opening &&
               (ssh_channel_is_closed(channel) != 0 || ssh_channel_is_eof(channel) != 0)) {
        end(transportFailureText(ssh_channel_get_session(channel)));
    }
}

bool SFTPConnection::isAtRest() const noexcept
{
    return phase_ == Phase::Ready && pending_.empty() && unsent() == 0 && !splitter_.isBroken() &&
           !splitter_.isInPacket();
}

void SFTPConnection::rest() noexcept
{
    answered_.clear();
    wakeUp_ = nullptr;
    restingSince_ = Clock::now();
}

std::chrono::nanoseconds SFTPConnection::resume(SocketWakeUp& wakeUp)
{
    wakeUp_ = &wakeUp;
    advance();
    takeIn();
    settle();
    return Clock::now() - restingSince_;
}

void SFTPConnection::close()
{
    const SessionBlockingGuard guard(channel_->getResource(), 0);
    queueChannelClose(channel_->getResource());
}

bool SFTPConnection::isClosed() const
{
    return channel_->getResource() == nullptr || channel_->isClosedByServer();
}

void SFTPConnection::refuse(ssh_channel channel, const char* what)
{
    const std::string text = transportFailureText(ssh_channel_get_session(channel));
    error_ = text.empty() ? what : text;
    phase_ = Phase::Refused;
}

void SFTPConnection::end(const std::string& reason)
{
    if (phase_ == Phase::Ended || phase_ == Phase::Refused) {
        return;
    }
    phase_ = phase_ == Phase::Ready ? Phase::Ended : Phase::Refused;
    error_ = reason;
    splitter_.breakOff(reason);
    SFTPAnswer lost;
    lost.isLost = true;
    lost.fields = reason;
    for (auto& [id, pending] : pending_) {
        answered_.push_back({std::move(pending.handler), lost});
    }
    pending_.clear();
    out_.clear();
    sent_ = 0;
}

std::uint32_t SFTPConnection::add(Handler&& handler, char* buffer, std::uint32_t size)
{
    if (phase_ != Phase::Ready) {
        SFTPAnswer lost;
        lost.isLost = true;
        lost.fields = error_;
        answered_.push_back({std::move(handler), std::move(lost)});
        return 0;
    }
    do {
        ++lastId_;
    } while (lastId_ == 0 || pending_.count(lastId_) != 0);
    pending_.emplace(lastId_, Pending{std::move(handler), buffer, size});
    if (timedId_ == 0) {
        timedId_ = lastId_;
        timedSince_ = Clock::now();
    }
    return lastId_;
}

std::vector<SFTPConnection::Answered> SFTPConnection::takeAnswered()
{
    return std::exchange(answered_, {});
}

void SFTPConnection::received(std::string_view bytes) noexcept
{
    arrived_ += bytes.size();
    try {
        static_cast<void>(splitter_.take(bytes));
    } catch (...) {
        // libssh is C and must not see it. Nobody knows what was lost, so that nothing else of it
        // can be trusted; the next advance() says so.
    }
    tellOfInput();
}

void SFTPConnection::ended() noexcept
{
    tellOfInput();
}

void SFTPConnection::tellOfInput() noexcept
{
    if (wakeUp_ != nullptr) {
        wakeUp_->arrived();
    }
}

void SFTPConnection::gone() noexcept
{
    if (wakeUp_ != nullptr) {
        wakeUp_->forget();
        wakeUp_->signal();
    }
}

void SFTPConnection::packet(const SFTPPacket& packet)
{
    if (packet.type == SFTPPacketType::Version) {
        greet(packet);
        return;
    }
    SFTPAnswer given;
    given.type = packet.type;
    given.fields = packet.fields;
    answer(packet.id, std::move(given));
}

void SFTPConnection::greet(const SFTPPacket& packet)
{
    const auto version = decodeVersion(packet.fields);
    const bool isExpected = greeting_.empty() && version && version->version == sftpVersion;
    if (!isExpected) {
        splitter_.breakOff("the server speaks another version of SFTP");
        return;
    }
    greeting_ = packet.fields;
    if (phase_ == Phase::Greeting) {
        phase_ = Phase::Ready;
    }
}

void SFTPConnection::answer(std::uint32_t id, SFTPAnswer&& answer)
{
    if (id == timedId_ && pending_.count(id) != 0) {
        timedId_ = 0;
        roundTrip_ = std::min<std::chrono::nanoseconds>(roundTrip_, Clock::now() - timedSince_);
    }
    auto request = pending_.extract(id);
    if (request.empty()) {
        splitter_.breakOff("the server answers what it was not asked");
        return;
    }
    answered_.push_back({std::move(request.mapped().handler), std::move(answer)});
}

void SFTPConnection::dataBegins(std::uint32_t id, std::uint32_t size)
{
    const auto found = pending_.find(id);
    dataId_ = id;
    dataTaken_ = 0;
    dataBuffer_ = found != pending_.end() ? found->second.buffer : nullptr;
    dataRoom_ = found != pending_.end() ? found->second.size : 0;
    isTooLong_ = size > dataRoom_;
}

void SFTPConnection::dataContinues(std::string_view bytes)
{
    const auto taken =
        static_cast<std::uint32_t>(std::min<std::size_t>(bytes.size(), dataRoom_ - dataTaken_));
    if (taken > 0) {
        std::memcpy(dataBuffer_ + dataTaken_, bytes.data(), taken);
        dataTaken_ += taken;
    }
}

void SFTPConnection::dataEnds()
{
    SFTPAnswer given;
    given.type = SFTPPacketType::Data;
    // An answer of more bytes than were asked for counts as none.
    given.dataSize = isTooLong_ ? 0 : dataTaken_;
    answer(dataId_, std::move(given));
}

} // namespace Tarnis
