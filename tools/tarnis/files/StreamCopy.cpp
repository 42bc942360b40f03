#include "files/StreamCopy.h"

#include "Failure.h"
#include "files/CopyFailure.h"
#include "files/Paths.h"
#include "terminal/Descriptors.h"
#include "terminal/Messages.h"
#include "terminal/ProgressBar.h"
#include "terminal/Sizes.h"
#include "terminal/StandardStreams.h"

#include <FileSystem/FileStreams.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TarnisTool {

namespace fs = std::filesystem;

namespace {

constexpr int mostLinks = 40;
// Between two looks at whether to stop, while nothing moves.
constexpr int lookMilliseconds = 100;
constexpr const char* inputName = "standard input";

/// The number of a descriptor of this program whose path in /proc it is.
std::optional<int> numberOf(const fs::path& directory, const std::string& name)
{
    const bool isNumber = !name.empty() && name.size() < 7 &&
                          name.find_first_not_of("0123456789") == std::string::npos;
    std::error_code error;
    const fs::path place = isNumber ? fs::canonical(directory, error) : fs::path();
    const std::string own = "/proc/" + std::to_string(::getpid());
    const bool isOwn =
        !error && (place == own + "/fd" || (place.filename() == "fd" &&
                                            place.parent_path().parent_path() == own + "/task"));
    return isOwn ? std::optional(std::stoi(name)) : std::nullopt;
}

/// The number of the descriptor of this program that a path leads to. What is open there need not
/// have a path, and writing goes on at the descriptor's position.
std::optional<int> descriptorAt(fs::path path)
{
    for (int links = 0; links < mostLinks; ++links) {
        const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
        if (const auto number = numberOf(directory, path.filename().string())) {
            return number;
        }
        std::error_code error;
        const fs::path target = fs::read_symlink(path, error);
        if (error) {
            return std::nullopt;
        }
        path = directory / target;
    }
    return std::nullopt;
}

[[noreturn]] void failToOpen(const std::string& path, int error)
{
    throw Failure(FailureKind::LocalProblem, "cannot write to", textOf(path), std::strerror(error));
}

void throwIfCancelled(const std::string& path, const Cancellation& cancellation)
{
    if (cancellation.isRequested()) {
        throw Failure(FailureKind::Cancelled, "interrupted before anybody read", textOf(path),
                      "nothing was written");
    }
}

[[noreturn]] void failToRead(int error)
{
    throw Failure(FailureKind::LocalProblem, "cannot read", inputName, std::strerror(error));
}

} // namespace

StreamTarget::StreamTarget(std::string path)
    : path_(std::move(path))
{
    const bool isOutput = path_ == "-";
    if (const auto number = isOutput ? std::optional(STDOUT_FILENO) : descriptorAt(path_)) {
        path_ = isOutput ? "standard output" : path_;
        isDescriptor_ = true;
        // The stream was closed when the program began, and /dev/null stands in its place: writing
        // there would lose the file without an error.
        if (wasClosed(*number)) {
            error_ = EBADF;
            return;
        }
        descriptor_ = Posix::FileDescriptor(::fcntl(*number, F_DUPFD_CLOEXEC, 0));
        error_ = errno;
    }
}

TargetKind StreamTarget::kind() const
{
    if (isDescriptor_) {
        return TargetKind::Stream;
    }
    struct stat status = {};
    if (::stat(path_.c_str(), &status) != 0) {
        return TargetKind::Ordinary;
    }
    if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) {
        return TargetKind::Stream;
    }
    const bool isOrdinary = S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
    return isOrdinary ? TargetKind::Ordinary : TargetKind::Refused;
}

// Without O_NOCTTY a terminal could become the program's own, and without O_NONBLOCK it could not
// be interrupted while nobody reads.
Posix::FileDescriptor StreamTarget::open(const Cancellation& cancellation, KeepAlive& keepAlive)
{
    if (isDescriptor_) {
        if (!descriptor_.isOpen()) {
            failToOpen(path_, error_);
        }
        return std::move(descriptor_);
    }
    for (;;) {
        throwIfCancelled(path_, cancellation);
        Posix::FileDescriptor opened(
            ::open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
        if (opened.isOpen()) {
            return opened;
        }
        if (errno != ENXIO && errno != EINTR) {
            failToOpen(path_, errno);
        }
        ::poll(nullptr, 0, lookMilliseconds);
        keepAlive.wait();
    }
}

int writeAll(int descriptor, const char* bytes, std::size_t size,
             const std::function<bool()>& goesOn)
{
    // A write of more than the descriptor takes at once would wait, and goesOn() would not be
    // asked.
    const std::size_t most = goesOn ? std::min(size, largestReadyWrite(descriptor)) : size;
    while (size > 0) {
        if (!isReadyToWrite(descriptor, goesOn ? lookMilliseconds : -1)) {
            if (goesOn && !goesOn()) {
                return ECANCELED;
            }
            continue;
        }
        const ssize_t count = ::write(descriptor, bytes, std::min(size, most));
        if (count >= 0) {
            bytes += count;
            size -= static_cast<std::size_t>(count);
        } else if (errno != EINTR && errno != EAGAIN) {
            return errno;
        }
    }
    return 0;
}

bool streamFile(Endpoint& endpoint, const std::string& id, const Stream& stream,
                const std::function<bool(std::uint64_t done)>& goesOn)
{
    std::uint64_t written = 0;
    bool isStopped = false;
    const auto ask = [&] {
        isStopped = isStopped || (goesOn && !goesOn(written));
        return !isStopped;
    };
    KeepAlive keepAlive(endpoint);
    const auto wait = [&] {
        keepAlive.wait();
        return ask();
    };
    const auto taker = [&](const char* bytes, std::size_t size) {
        const int error = writeAll(stream.descriptor, bytes, size, wait);
        if (error != 0 && !isStopped) {
            throw Failure(FailureKind::LocalProblem, "cannot write to", stream.name,
                          std::strerror(error));
        }
        return error == 0;
    };
    const auto progress = [&](std::uint64_t done) {
        written = done;
        return ask();
    };
    if (readFile(endpoint.system(), id, taker, progress)) {
        return true;
    }
    if (!isStopped) {
        endpoint.failBecause("cannot read", id, FileSystem::Failure::last());
    }
    return false;
}

StreamedCopy::StreamedCopy(Endpoint& from, std::string source, StreamTarget& target,
                           const Cancellation& cancellation)
    : from_(from)
    , source_(std::move(source))
    , target_(target)
    , cancellation_(cancellation)
{}

void StreamedCopy::run()
{
    followLinks();
    const auto info = from_.find(source_);
    if (!isRegularFile(info.type)) {
        from_.refuse("cannot copy", source_, "it is no file");
    }
    KeepAlive keepAlive(from_);
    const Posix::FileDescriptor output = target_.open(cancellation_, keepAlive);
    ProgressBar bar(info.size);
    bar.setLabel(nameOf(source_));
    // The progress would mix with the file's text on a terminal.
    const bool isShown = ::isatty(output.get()) == 0;
    const std::string name = textOf(target_.path());
    std::uint64_t done = 0;
    const bool isWritten =
        streamFile(from_, source_, {output.get(), name}, [&](std::uint64_t written) {
            done = written;
            if (isShown) {
                bar.show(done);
            }
            return !cancellation_.isRequested();
        });
    if (!isWritten) {
        bar.clear();
        throw Failure(FailureKind::Cancelled, "interrupted after", humanSize(done),
                      name + " got no more");
    }
}

void StreamedCopy::followLinks()
{
    if (!isSymbolicLink(from_.find(source_).type)) {
        return;
    }
    auto target = from_.system().fileSymbolicLinkTargetFileId(source_, true);
    if (!target) {
        from_.failBecause("cannot follow the link", source_, FileSystem::Failure::last());
    }
    source_ = std::move(*target);
}

InputCopy::InputCopy(RemoteEndpoint& to, std::string target, bool isInPlace,
                     const Cancellation& cancellation)
    : to_(to)
    , target_(std::move(target))
    , isInPlace_(isInPlace)
    , cancellation_(cancellation)
    , keepAlive_(to)
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

/// Polls before each read, which could otherwise wait for ever.
std::optional<std::size_t> InputCopy::read(char* buffer, std::size_t size)
{
    while (!cancellation_.isRequested()) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (::poll(&input, 1, lookMilliseconds) <= 0) {
            keepAlive_.wait();
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
