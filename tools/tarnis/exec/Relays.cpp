#include "exec/Relays.h"

#include "Failure.h"
#include "terminal/Descriptors.h"
#include "terminal/Messages.h"

#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHProcess.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <poll.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

// More than a pipe holds.
constexpr std::size_t inputBufferSize = std::size_t{128} * 1024;
// Between two looks at whether to stop, while the remote side takes nothing.
constexpr std::chrono::milliseconds inputPatience{50};
constexpr std::size_t outputBufferSize = std::size_t{256} * 1024;

} // namespace

InputForwarder::InputForwarder(Tarnis::SSHProcess& process)
    : process_(process)
    , buffer_(inputBufferSize)
    , thread_([this] { run(); })
{}

InputForwarder::~InputForwarder()
{
    stopping_ = true;
    tryWrite(stop_.writeEnd.get(), "x");
    thread_.join();
}

void InputForwarder::run()
{
    try {
        std::size_t count = 0;
        while (waitForInput() && readInput(count)) {
            if (!forward(count)) {
                return;
            }
        }
        if (!stopping_) {
            static_cast<void>(process_.sendEOF());
        }
    } catch (const FileSystem::handle_fatal_error&) {
        // The session was ended meanwhile: there is nobody left to forward to.
    }
}

/// True also when reading would fail or meet the end; false when it is time to stop. Reading
/// without this could wait for ever.
bool InputForwarder::waitForInput() const
{
    std::array<pollfd, 2> events{{{STDIN_FILENO, POLLIN, 0}, {stop_.readEnd.get(), POLLIN, 0}}};
    while (::poll(events.data(), events.size(), -1) < 0 && errno == EINTR) {
    }
    return !stopping_;
}

bool InputForwarder::readInput(std::size_t& count)
{
    for (;;) {
        const ssize_t result = ::read(STDIN_FILENO, buffer_.data(), buffer_.size());
        if (result > 0) {
            count = static_cast<std::size_t>(result);
            return true;
        }
        if (result == 0) {
            return false;
        }
        if (errno == EAGAIN) {
            // Another process made the descriptor non-blocking, and another reader took what was
            // there.
            count = 0;
            return true;
        }
        if (errno != EINTR) {
            report(std::string("cannot read standard input: ") + std::strerror(errno));
            return false;
        }
    }
}

bool InputForwarder::forward(std::size_t count)
{
    using Status = Tarnis::SSHChannelTransfer::Status;
    std::size_t done = 0;
    while (done < count && !stopping_) {
        const auto transfer =
            process_.writeSome(buffer_.data() + done, count - done, inputPatience);
        if (transfer.status == Status::EndOfStream || transfer.status == Status::Error) {
            // A command need not read its input, so this is no failure. A lost connection is
            // reported by the reader of the output.
            return false;
        }
        done += transfer.count;
    }
    return true;
}

OutputRelay::OutputRelay(const Tarnis::SSHProcess& process, bool isStderr, int descriptor)
    : process_(process)
    , isStderr_(isStderr)
    , descriptor_(descriptor)
    , largestWrite_(largestReadyWrite(descriptor))
    , buffer_(outputBufferSize)
{}

bool OutputRelay::advance(std::chrono::milliseconds patience)
{
    const bool hasFetched = !hasPending() && !hasEnded_ && fetch(patience);
    const bool hasFlushed = flush();
    return hasFetched || hasFlushed;
}

bool OutputRelay::fetch(std::chrono::milliseconds patience)
{
    using Status = Tarnis::SSHChannelTransfer::Status;
    const auto transfer = process_.readSome(buffer_.data(), buffer_.size(), isStderr_, patience);
    begin_ = 0;
    end_ = transfer.count;
    hasEnded_ = transfer.status == Status::EndOfStream || transfer.status == Status::Error;
    isIncomplete_ = transfer.status == Status::Error;
    if (isIncomplete_) {
        failure_ = FileSystem::Failure::last();
    }
    return transfer.status == Status::Transferred;
}

bool OutputRelay::flush()
{
    const std::size_t before = begin_;
    if (isDiscarding_) {
        begin_ = end_;
    }
    while (hasPending() && isReadyToWrite(descriptor_, 0)) {
        const std::size_t size = std::min(end_ - begin_, largestWrite_);
        const ssize_t count = ::write(descriptor_, buffer_.data() + begin_, size);
        if (count >= 0) {
            begin_ += static_cast<std::size_t>(count);
        } else if (errno == EPIPE) {
            isReaderGone_ = true;
            break;
        } else if (errno != EINTR && errno != EAGAIN) {
            throw Failure(FailureKind::LocalProblem, "cannot write to",
                          isStderr_ ? "standard error" : "standard output", std::strerror(errno));
        }
    }
    return begin_ != before;
}

bool OutputRelay::isReaderGone()
{
    pollfd output{descriptor_, 0, 0};
    if (::poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0) {
        isReaderGone_ = true;
    }
    return isReaderGone_ && !isDiscarding_;
}

} // namespace TarnisTool
