#include "files/InputCopy.h"

#include "Failure.h"
#include "files/CopyFailure.h"
#include "files/CopyLoss.h"
#include "files/EntryNames.h"
#include "terminal/Messages.h"
#include "terminal/StandardStreams.h"
#include "terminal/Units.h"

#include <FileSystem/FileStreams.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace TarnisTool {

namespace {

constexpr const char* inputName = "standard input";

// Between two looks at whether to stop, while nothing comes.
constexpr int lookMilliseconds = 100;

[[noreturn]] void failToRead(int error)
{
    throw Failure(FailureKind::LocalProblem, "cannot read", inputName, std::strerror(error));
}

} // namespace

InputCopy::InputCopy(RemotePlace& to, std::string target, bool isInPlace,
                     const Cancellation& cancellation)
    : to_(to)
    , target_(std::move(target))
    , isInPlace_(isInPlace)
    , cancellation_(cancellation)
{
    bar_.setLabel(nameOf(target_));
}

bool InputCopy::run()
{
    if (wasClosed(STDIN_FILENO)) {
        failToRead(EBADF);
    }
    FileSystem::WriteFileOptions options;
    options.isInPlace = isInPlace_;
    options.progress = [this](std::uint64_t done) { return show(done); };
    const auto giver = [this](char* buffer, std::size_t size) { return read(buffer, size); };
    if (writeFile(to_.system(), target_, giver, options)) {
        return true;
    }
    const auto why = FileSystem::Failure::last();
    bar_.clear();
    if (cancellation_.isRequested()) {
        throw Failure(FailureKind::Cancelled, "interrupted after", humanSize(done_),
                      leftByInterruption(to_.isAlive(), isInPlace_ ? to_.display(target_) : ""));
    }
    if (isLoss(why)) {
        to_.throwLost(why);
    }
    if (const auto loss = lossOf(why)) {
        report(std::string("copied ") + inputName + " to " + to_.display(target_) + ", but " +
               *loss);
        return false;
    }
    throw copyFailure(inputName, {}, to_, target_, why);
}

/// Reading without a look first could wait for ever.
std::optional<std::size_t> InputCopy::read(char* buffer, std::size_t size) const
{
    while (!cancellation_.isRequested()) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (::poll(&input, 1, lookMilliseconds) <= 0) {
            continue;
        }
        const ssize_t count = ::read(STDIN_FILENO, buffer, size);
        if (count >= 0) {
            return static_cast<std::size_t>(count);
        }
        if (errno != EINTR && errno != EAGAIN) {
            failToRead(errno);
        }
    }
    return std::nullopt;
}

bool InputCopy::show(std::uint64_t done)
{
    done_ = done;
    WorkProgress progress;
    progress.bytes = DoneOf{done, done};
    progress.areTotalsKnown = false;
    bar_.show(progress);
    return !cancellation_.isRequested();
}

} // namespace TarnisTool
