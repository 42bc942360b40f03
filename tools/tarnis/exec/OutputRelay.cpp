#include "exec/OutputRelay.h"

#include "Failure.h"
#include "terminal/ReadyWrite.h"

#include <Tarnis/SSHProcess.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <poll.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

constexpr std::size_t bufferSize = std::size_t{256} * 1024;

} // namespace

OutputRelay::OutputRelay(const Tarnis::SSHProcess& process, bool isStderr, int descriptor)
    : process_(process)
    , isStderr_(isStderr)
    , descriptor_(descriptor)
    , largestWrite_(largestReadyWrite(descriptor))
    , buffer_(bufferSize)
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
