#include "files/StreamTarget.h"

#include "Failure.h"
#include "files/EntryNames.h"
#include "terminal/ReadyWrite.h"
#include "terminal/StandardStreams.h"

#include <algorithm>
#include <cerrno>
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
constexpr int lookMilliseconds = 100;

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

/// The number of the descriptor of this program that a path leads to: what stands behind that need
/// not have a path at all, and is written at the place where it is.
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

} // namespace

StreamTarget::StreamTarget(std::string path)
    : path_(std::move(path))
{
    const bool isOutput = path_ == "-";
    if (const auto number = isOutput ? std::optional(STDOUT_FILENO) : descriptorAt(path_)) {
        path_ = isOutput ? "standard output" : path_;
        isDescriptor_ = true;
        // What stands in the place of a closed stream would take everything and keep nothing.
        if (wasClosed(*number)) {
            error_ = EBADF;
            return;
        }
        descriptor_ = FileDescriptor(::fcntl(*number, F_DUPFD_CLOEXEC, 0));
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
FileDescriptor StreamTarget::open(const Cancellation& cancellation)
{
    if (isDescriptor_) {
        if (!descriptor_.isOpen()) {
            failToOpen(path_, error_);
        }
        return std::move(descriptor_);
    }
    for (;;) {
        throwIfCancelled(path_, cancellation);
        FileDescriptor opened(::open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
        if (opened.isOpen()) {
            return opened;
        }
        if (errno != ENXIO && errno != EINTR) {
            failToOpen(path_, errno);
        }
        ::poll(nullptr, 0, lookMilliseconds);
    }
}

int writeAll(int descriptor, const char* bytes, std::size_t size,
             const std::function<bool()>& goesOn)
{
    // A write that waits would not let anybody ask.
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

} // namespace TarnisTool
