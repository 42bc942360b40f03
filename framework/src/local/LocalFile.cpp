#include "local/LocalFile.h"

#include "SystemCall.h"
#include "local/LocalError.h"

#include <FileSystem/LocalFileSystem.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

namespace FileSystem {

namespace {

static_assert(sizeof(off_t) == sizeof(std::int64_t), "files may be larger than 2 GiB");

constexpr auto largestSize = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());

// No system moves more in one call.
constexpr std::uint64_t largestStep = 0x40000000;

std::size_t stepOf(std::uint64_t size)
{
    return static_cast<std::size_t>(std::min(size, largestStep));
}

class LocalFileServices final : public StorageSystemFileServices
{
public:
    LocalFileServices(Posix::FileDescriptor& descriptor, const std::string& fileId)
        : descriptor_(descriptor)
        , fileId_(fileId)
    {}

    // A network file system says now what became of the bytes. The file's own descriptor and not a
    // duplicate of it, which there might be no room for. Not again after EINTR: it is gone then,
    // too.
    std::optional<bool> close() override
    {
        const bool isClosed = ::close(descriptor_.release()) == 0 || errno == EINTR;
        return LocalError::succeeded(isClosed, fileId_);
    }

private:
    Posix::FileDescriptor& descriptor_;
    const std::string& fileId_;
};

} // namespace

LocalFile::LocalFile(Posix::FileDescriptor&& descriptor, const std::string& fileId,
                     Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                     const LocalFileSystem& fileSystem)
    : descriptor_(std::move(descriptor))
    , fileId_(fileId)
    , mode_(mode)
    , fileSystem_(fileSystem)
{
    belongTo(fileSystem);
    provide(std::make_unique<LocalFileServices>(descriptor_, fileId_));
}

LocalFile::~LocalFile() = default;

bool LocalFile::do_isValid() const
{
    return fileSystem_.isValid();
}

std::string LocalFile::do_fileId()
{
    return fileId_;
}

Utilities::Flags<StorageSystemFileOpenModeFlag> LocalFile::do_mode()
{
    return mode_;
}

bool LocalFile::do_eof() const
{
    return eof_;
}

bool LocalFile::do_seek(std::uint64_t offset) const
{
    if (offset > largestSize) {
        return fail(FailureCode::TooLarge, {}, fileId_);
    }
    if (::lseek(descriptor_.get(), static_cast<off_t>(offset), SEEK_SET) == -1) {
        return failBySystem(errno, fileId_);
    }
    eof_ = false;
    return true;
}

std::optional<std::uint64_t> LocalFile::do_tell()
{
    const off_t offset = ::lseek(descriptor_.get(), 0, SEEK_CUR);
    if (offset == -1) {
        failBySystem(errno, fileId_);
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(offset);
}

bool LocalFile::do_error() const
{
    return !do_isValid();
}

std::uint64_t LocalFile::do_read(char* buffer, std::uint64_t size) const
{
    std::uint64_t done = 0;
    eof_ = false;
    while (done < size) {
        const ssize_t count = retryInterrupted(
            [&] { return ::read(descriptor_.get(), buffer + done, stepOf(size - done)); });
        if (count <= 0) {
            eof_ = LocalError::succeeded(count == 0, fileId_);
            break;
        }
        done += static_cast<std::uint64_t>(count);
    }
    return done;
}

std::uint64_t LocalFile::do_write(const char* buffer, std::uint64_t size) const
{
    std::uint64_t done = 0;
    while (done < size) {
        const ssize_t count = retryInterrupted(
            [&] { return ::write(descriptor_.get(), buffer + done, stepOf(size - done)); });
        if (count <= 0) {
            LocalError::note(count == 0 ? EIO : errno, fileId_);
            return 0;
        }
        done += static_cast<std::uint64_t>(count);
    }
    return done;
}

const FileSystem2& LocalFile::do_fileSystem() const
{
    return fileSystem_;
}

} // namespace FileSystem
