#include "support/DirectSession.h"
#include "support/Interleaved.h"
#include "support/PeakMemory.h"
#include "support/Probe.h"
#include "support/PseudoRandom.h"
#include "support/Require.h"
#include "support/Table.h"
#include "support/TarnisSession.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include <poll.h>
#include <unistd.h>

namespace TarnisBench {

namespace {

constexpr const char* command = "cat";
constexpr std::size_t blockSize = std::size_t{1} << 20U;
constexpr std::size_t readSize = std::size_t{256} << 10U;
constexpr std::chrono::milliseconds shortWait{1};

/// Endless data: one block again and again.
class Pattern
{
public:
    Pattern()
        : block_(TarnisTest::pseudoRandomBytes(1, blockSize))
    {}

    const char* at(std::size_t position) const { return block_.data() + position % blockSize; }

    /// How much stands behind at(position) in one piece.
    static std::size_t piece(std::size_t position) { return blockSize - position % blockSize; }

    bool matches(std::size_t position, const char* data, std::size_t size) const
    {
        while (size > 0) {
            const std::size_t part = std::min(size, piece(position));
            if (std::memcmp(at(position), data, part) != 0) {
                return false;
            }
            position += part;
            data += part;
            size -= part;
        }
        return true;
    }

private:
    std::string block_;
};

/// Reading and writing a channel of the library without waiting for more than a moment.
class TarnisStream
{
public:
    explicit TarnisStream(Tarnis::SSHSession& session)
        : process_(session.createProcess(command))
    {
        require(process_->start(), "starting a command");
    }

    std::size_t write(const char* data, std::size_t size)
    {
        const auto transfer = process_->writeSome(data, size, std::chrono::milliseconds(0));
        wrote_ = transfer.count > 0;
        return transfer.count;
    }

    void sendEnd() { require(process_->sendEOF(), "ending the input"); }

    /// Waits a moment when there was nothing to write either.
    std::size_t read(char* buffer, std::size_t size)
    {
        using Status = Tarnis::SSHChannelTransfer::Status;
        const auto wait = wrote_ ? std::chrono::milliseconds(0) : shortWait;
        const auto transfer = process_->readSome(buffer, size, false, wait);
        require(transfer.status != Status::Error, "reading");
        ended_ = transfer.status == Status::EndOfStream;
        wrote_ = false;
        return transfer.count;
    }

    bool hasEnded() const { return ended_; }

private:
    std::unique_ptr<Tarnis::SSHProcess> process_;
    bool wrote_ = false;
    bool ended_ = false;
};

/// The same with libssh alone.
class DirectStream
{
public:
    explicit DirectStream(ssh_session session)
        : session_(session)
        , channel_(startDirectly(session, command))
    {
        ssh_set_blocking(session, 0);
    }

    std::size_t write(const char* data, std::size_t size)
    {
        const int count = ssh_channel_write(channel_.get(), data, static_cast<std::uint32_t>(size));
        require(count >= 0, "writing");
        wrote_ = count > 0;
        return static_cast<std::size_t>(count);
    }

    void sendEnd() { static_cast<void>(ssh_channel_send_eof(channel_.get())); }

    std::size_t read(char* buffer, std::size_t size)
    {
        const int count = ssh_channel_read_nonblocking(channel_.get(), buffer,
                                                       static_cast<std::uint32_t>(size), 0);
        require(count >= 0 || count == SSH_EOF || count == SSH_AGAIN, "reading");
        ended_ = count == SSH_EOF;
        if (count == 0 && !wrote_) {
            waitForSocket();
        }
        wrote_ = false;
        return count > 0 ? static_cast<std::size_t>(count) : 0;
    }

    bool hasEnded() const { return ended_; }

private:
    void waitForSocket() const
    {
        pollfd socket{};
        socket.fd = ssh_get_fd(session_);
        const bool hasOutput = (ssh_get_poll_flags(session_) & SSH_WRITE_PENDING) != 0;
        socket.events = static_cast<short>(hasOutput ? POLLIN | POLLOUT : POLLIN);
        static_cast<void>(::poll(&socket, 1, static_cast<int>(shortWait.count())));
    }

    ssh_session session_;
    DirectChannel channel_;
    bool wrote_ = false;
    bool ended_ = false;
};

template <class Stream>
void streamBothWays(Stream& stream, const Pattern& pattern, std::size_t bytes)
{
    std::string buffer(readSize, '\0');
    std::size_t sent = 0;
    std::size_t received = 0;
    while (!stream.hasEnded()) {
        if (sent < bytes) {
            const std::size_t piece = std::min(Pattern::piece(sent), bytes - sent);
            sent += stream.write(pattern.at(sent), piece);
            if (sent == bytes) {
                stream.sendEnd();
            }
        }
        const std::size_t count = stream.read(buffer.data(), buffer.size());
        require(pattern.matches(received, buffer.data(), count), "getting back what was sent");
        received += count;
    }
    require(received == bytes, "getting everything back");
}

struct Cost
{
    double seconds = 0;
    double processorSeconds = 0;
};

double processorSeconds()
{
    return static_cast<double>(std::clock()) / static_cast<double>(CLOCKS_PER_SEC);
}

template <class Action>
Cost costOf(Action&& action)
{
    const double before = processorSeconds();
    const auto time = timeOf(action);
    return {std::chrono::duration<double>(time).count(), processorSeconds() - before};
}

Cost streamWithTarnis(const Login& login, std::size_t bytes)
{
    const auto session = logInWithTarnis(login);
    const Pattern pattern;
    return costOf([&] {
        TarnisStream stream(*session);
        streamBothWays(stream, pattern, bytes);
    });
}

Cost streamDirectly(const Login& login, std::size_t bytes)
{
    const auto session = logInDirectly(login);
    const Pattern pattern;
    return costOf([&] {
        DirectStream stream(session.get());
        streamBothWays(stream, pattern, bytes);
    });
}

std::string inputOf(const Pattern& pattern, std::size_t bytes)
{
    std::string input;
    input.reserve(bytes);
    while (input.size() < bytes) {
        input.append(pattern.at(0), std::min(blockSize, bytes - input.size()));
    }
    return input;
}

Cost execute(const Login& login, std::size_t bytes)
{
    const auto session = logInWithTarnis(login);
    const std::string input = inputOf(Pattern(), bytes);
    Tarnis::SSHExecuteResult result;
    const Cost cost = costOf([&] { result = session->execute(command, input); });
    require(result.succeeded() && result.output == input, "getting everything back");
    return cost;
}

Cost transfer(const Login& login, const std::string& method, std::size_t bytes)
{
    if (method == "libssh") {
        return streamDirectly(login, bytes);
    }
    if (method == "process") {
        return streamWithTarnis(login, bytes);
    }
    require(method == "execute", "finding the method " + method);
    return execute(login, bytes);
}

} // namespace

std::string probeTransfer(const Login& login, const std::vector<std::string>& arguments)
{
    require(arguments.size() == 2, "reading the arguments: METHOD BYTES");
    const Cost cost = transfer(login, arguments[0], std::stoul(arguments[1]));
    constexpr int microseconds = 6;
    return formatNumber(cost.seconds, microseconds) + " " +
           formatNumber(cost.processorSeconds, microseconds) + " " +
           std::to_string(peakMemoryKiB(::getpid()));
}

} // namespace TarnisBench
