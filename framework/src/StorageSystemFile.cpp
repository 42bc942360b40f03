#include "GoneFileSystem.h"
#include "RequestSize.h"
#include "failure/CallbackScope.h"
#include "path/LinkResolution.h"
#include "path/PathText.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystem.h>
#include <FileSystem/StorageSystemFile.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace FileSystem {

namespace {

// Some servers end the connection at a longer read, or refuse a longer write. A multiple of what
// many answer a read with at most, as some answer what is left with more than was asked for.
constexpr std::uint64_t largestRead = std::uint64_t{7} * 32'768;
constexpr std::uint64_t largestWrite = 256'000;

constexpr std::uint64_t largestDefaultStep = 4U << 20U;
constexpr std::uint64_t largestStep = 64U << 20U;

/// Bytes per step of a copy.
std::uint64_t stepSize(const StorageSystem& source, const StorageSystem& target,
                       std::optional<std::uint64_t> wanted)
{
    if (wanted.value_or(0) != 0) {
        return std::min(*wanted, largestStep);
    }
    const auto recommended =
        std::max(source.recommendedReadBufferSize(), target.recommendedWriteBufferSize());
    return std::clamp(recommended, largestRead, largestDefaultStep);
}

/// Tells the progress of one file.
class Report
{
public:
    Report(const StorageSystemProgress& progress, std::uint64_t total)
        : progress_(progress)
        , total_(total)
    {}

    /// False: stop.
    bool operator()(std::uint64_t done) const
    {
        return goesOn(progress_, done, total_) || fail(FailureCode::Cancelled);
    }

private:
    const StorageSystemProgress& progress_;
    std::uint64_t total_;
};

std::optional<std::uint64_t> positionOf(const StorageSystemFile& file)
{
    // Asking for the position changes nothing, though the interface does not say so.
    return const_cast<StorageSystemFile&>(file).tell();
}

/// Makes a file that has met its end look for it anew.
bool forgetEnd(const StorageSystemFile& file)
{
    const auto position = positionOf(file);
    return position && file.seek(*position);
}

/// Whether 64 bits count where every range ends.
template <class Range>
bool areCountable(const std::vector<Range>& ranges)
{
    return std::all_of(ranges.begin(), ranges.end(), [](const Range& range) {
        return range.size <= std::numeric_limits<std::uint64_t>::max() - range.offset ||
               fail(FailureCode::TooLarge);
    });
}

} // namespace

StorageSystemFile::StorageSystemFile()
    : services_(std::make_unique<StorageSystemFileServices>())
{}

StorageSystemFile::~StorageSystemFile() = default;

bool StorageSystemFile::isValid() const
{
    return isSystemAlive() && do_isValid();
}

std::string StorageSystemFile::fileId()
{
    return do_fileId();
}

std::string StorageSystemFile::parentDirectoryId()
{
    return isSystemAlive() ? do_parentDirectoryId() : PathText::parentId(fileId());
}

std::string StorageSystemFile::name()
{
    return isSystemAlive() ? do_name() : PathText::fileName(fileId());
}

Utilities::Flags<StorageSystemFileOpenModeFlag> StorageSystemFile::mode()
{
    return do_mode();
}

bool StorageSystemFile::eof() const
{
    return isSystemAlive() && do_eof();
}

bool StorageSystemFile::seek(std::uint64_t offset) const
{
    FailureScope scope("seek");
    return scope.result(hasSystem() && do_seek(offset));
}

std::optional<std::uint64_t> StorageSystemFile::tell()
{
    FailureScope scope("tell");
    return scope.result(hasSystem() ? do_tell() : std::nullopt);
}

bool StorageSystemFile::error() const
{
    return !isSystemAlive() || do_error();
}

std::uint64_t StorageSystemFile::read(char* buffer, std::uint64_t size) const
{
    FailureScope scope("read");
    return scope.answer(hasSystem() ? do_read(buffer, size) : 0);
}

std::uint64_t StorageSystemFile::write(const char* buffer, std::uint64_t size) const
{
    FailureScope scope("write");
    const auto written = hasSystem() ? do_write(buffer, size) : 0;
    scope.result(written != 0 || size == 0);
    return written;
}

StorageSystemReadResult StorageSystemFile::readFully(char* buffer, std::uint64_t size) const
{
    FailureScope scope("readFully");
    const auto result = readInSteps(buffer, size);
    scope.result(result.status != StorageSystemReadResult::Status::Error);
    return result;
}

StorageSystemReadResult StorageSystemFile::readInSteps(char* buffer, std::uint64_t size) const
{
    using Status = StorageSystemReadResult::Status;
    // What was once the end of the file need not be any more, and an end that is told from then on
    // must be a new one.
    if (eof() && !forgetEnd(*this)) {
        return {0, Status::Error};
    }
    RequestSize requestSize(largestRead);
    std::uint64_t count = 0;
    while (count < size) {
        const auto wanted = requestSize.atMost(size - count);
        const auto got = read(buffer + count, wanted);
        requestSize.learn(wanted, got);
        if (got > wanted) {
            return {count, Status::Error};
        }
        count += got;
        if (got < wanted && eof()) {
            return {count, Status::EndOfFile};
        }
        if (got == 0) {
            return {count, Status::Error};
        }
    }
    return {count, Status::Complete};
}

bool StorageSystemFile::writeFully(const char* buffer, std::uint64_t size) const
{
    FailureScope scope("writeFully");
    return scope.result(writeInSteps(buffer, size));
}

bool StorageSystemFile::writeInSteps(const char* buffer, std::uint64_t size) const
{
    std::uint64_t count = 0;
    while (count < size) {
        const auto wanted = std::min(size - count, largestWrite);
        const auto written = write(buffer + count, wanted);
        if (written == 0 || written > wanted) {
            return false;
        }
        count += written;
    }
    return true;
}

bool StorageSystemFile::readRanges(std::vector<StorageSystemReadRange>& ranges) const
{
    FailureScope scope("readRanges");
    for (auto& range : ranges) {
        range.result = {0, StorageSystemReadResult::Status::Error};
    }
    if (!hasSystem() || !areCountable(ranges)) {
        return scope.result(false);
    }
    const auto done = services_->readRanges(ranges);
    return scope.result(done ? *done : readInTurn(ranges));
}

bool StorageSystemFile::readInTurn(std::vector<StorageSystemReadRange>& ranges) const
{
    using Status = StorageSystemReadResult::Status;
    const auto position = positionOf(*this);
    if (!position) {
        return false;
    }
    std::optional<FailureKeeper> firstFailure;
    for (auto& range : ranges) {
        if (range.size == 0 || seek(range.offset)) {
            range.result = readFully(range.buffer, range.size);
        }
        if (range.result.status == Status::Error && !firstFailure) {
            firstFailure.emplace();
        }
    }
    return seek(*position) && !firstFailure;
}

bool StorageSystemFile::writeRanges(const std::vector<StorageSystemWriteRange>& ranges) const
{
    FailureScope scope("writeRanges");
    if (!hasSystem() || !areCountable(ranges)) {
        return scope.result(false);
    }
    if (isAppendedTo()) {
        return scope.result(
            fail(FailureCode::Unsupported, "the file is open for appending to it alone"));
    }
    const auto done = services_->writeRanges(ranges);
    return scope.result(done ? *done : writeInTurn(ranges));
}

bool StorageSystemFile::writeInTurn(const std::vector<StorageSystemWriteRange>& ranges) const
{
    const auto position = positionOf(*this);
    const bool isWritten =
        position && std::all_of(ranges.begin(), ranges.end(), [this](const auto& range) {
            return range.size == 0 || (seek(range.offset) && writeFully(range.bytes, range.size));
        });
    std::optional<FailureKeeper> failure;
    if (!isWritten) {
        failure.emplace();
    }
    return position && seek(*position) && isWritten;
}

Utilities::Flags<PosixFilePermissionFlag> StorageSystemFile::permissions()
{
    FailureScope scope("permissions");
    return scope.asNoted(hasSystem() ? do_permissions()
                                     : Utilities::Flags<PosixFilePermissionFlag>());
}

std::uint64_t StorageSystemFile::size()
{
    FailureScope scope("size");
    return scope.asNoted(hasSystem() ? do_size() : 0);
}

StorageSystemFileInfo StorageSystemFile::fileInfo()
{
    FailureScope scope("fileInfo");
    if (hasSystem()) {
        return scope.asNoted(do_fileInfo());
    }
    StorageSystemFileInfo info;
    info.name = name();
    info.fileId = fileId();
    info.parentDirectoryId = parentDirectoryId();
    return scope.asNoted(std::move(info));
}

const StorageSystem& StorageSystemFile::storageSystem()
{
    return isSystemAlive() ? do_storageSystem() : goneFileSystem();
}

bool StorageSystemFile::copy(StorageSystemFile& target, const StorageSystemProgress& progress,
                             std::optional<std::uint64_t> bufferSize)
{
    FailureScope scope("copy");
    if (&target == this) {
        return scope.result(fail(FailureCode::IntoItself));
    }
    if (!hasSystem() || !target.hasSystem()) {
        return scope.result(false);
    }
    // Taken back on every way out.
    const auto forget = [](StorageSystemFile* file) { file->copyTarget_ = nullptr; };
    const std::unique_ptr<StorageSystemFile, decltype(forget)> copying(this, forget);
    copyTarget_ = &target;
    return scope.result(do_copy(progress, bufferSize));
}

Utilities::Flags<PosixFilePermissionFlag> StorageSystemFile::do_permissions()
{
    return fileInfo().permissions;
}

std::uint64_t StorageSystemFile::do_size()
{
    return fileInfo().size;
}

StorageSystemFileInfo StorageSystemFile::do_fileInfo()
{
    const auto path = fileId();
    const auto& system = storageSystem();
    auto info = system.fileInfo(path);
    if (info && isSymbolicLink(info->type)) {
        // What was opened is what the link leads to.
        const auto end = followLinks(system, path);
        info = end ? system.fileInfo(end->path) : std::nullopt;
    }
    auto known = std::move(info).value_or(StorageSystemFileInfo{});
    known.name = name();
    known.fileId = path;
    known.parentDirectoryId = parentDirectoryId();
    return known;
}

bool StorageSystemFile::do_copy(const StorageSystemProgress& progress,
                                std::optional<std::uint64_t> bufferSize)
{
    auto* const target = copyTarget();
    if (target == nullptr) {
        return false;
    }
    const auto total = progress ? size() : 0;
    const Report report(progress, total);
    const auto step = stepSize(storageSystem(), target->storageSystem(), bufferSize);
    return report(0) && seek(0) && copyInSteps(*target, step, report);
}

bool StorageSystemFile::copyInSteps(StorageSystemFile& target, std::uint64_t step,
                                    const std::function<bool(std::uint64_t)>& report) const
{
    using Status = StorageSystemReadResult::Status;
    const auto start = target.tell();
    if (!start) {
        return false;
    }
    // Not filled with zeros: a tree of small files would pay for every one of them.
    const std::unique_ptr<char[]> buffer(new char[step]);
    std::uint64_t done = 0;
    auto status = Status::Complete;
    while (status == Status::Complete) {
        const auto got = readNext(done, buffer.get(), step);
        status = got.status;
        const bool isPart = status == Status::Complete && got.count < step;
        if (status == Status::Error || got.count > step || isPart) {
            return false;
        }
        if (got.count == 0) {
            break;
        }
        if (!target.writeNext(*start + done, buffer.get(), got.count)) {
            return false;
        }
        done += got.count;
        if (!report(done)) {
            return false;
        }
    }
    return report(done);
}

/// Reads at an offset. Ranges leave the position alone, and what went before may have been one.
StorageSystemReadResult StorageSystemFile::readNext(std::uint64_t offset, char* buffer,
                                                    std::uint64_t size) const
{
    std::vector<StorageSystemReadRange> range{
        {offset, buffer, size, {0, StorageSystemReadResult::Status::Error}}};
    if (services_->readRanges(range)) {
        return range.front().result;
    }
    const auto position = positionOf(*this);
    const bool isThere = position && (*position == offset || seek(offset));
    return isThere ? readFully(buffer, size)
                   : StorageSystemReadResult{0, StorageSystemReadResult::Status::Error};
}

/// Writes at an offset, which is the position, and moves that.
bool StorageSystemFile::writeNext(std::uint64_t offset, const char* buffer,
                                  std::uint64_t size) const
{
    const auto done =
        isAppendedTo() ? std::nullopt : services_->writeRanges({{offset, buffer, size}});
    return done ? *done && seek(offset + size) : writeFully(buffer, size);
}

bool StorageSystemFile::close()
{
    FailureScope scope("close");
    return scope.result(hasSystem() && services_->close().value_or(true));
}

bool StorageSystemFile::isAppendedTo() const
{
    // Asking for the mode changes nothing, either.
    return const_cast<StorageSystemFile*>(this)->mode().has(StorageSystemFileOpenModeFlag::Append);
}

void StorageSystemFile::belongTo(const StorageSystem& system)
{
    if (systemAlive_ == nullptr) {
        systemAlive_ = system.alive_;
    }
}

bool StorageSystemFile::isSystemAlive() const noexcept
{
    return systemAlive_ == nullptr || *systemAlive_;
}

/// Says why where it has not.
bool StorageSystemFile::hasSystem() const
{
    return isSystemAlive() ||
           fail(FailureCode::ConnectionLost, "the file's storage system is gone");
}

StorageSystemFile* StorageSystemFile::copyTarget() const noexcept
{
    return copyTarget_;
}

void StorageSystemFile::provide(std::unique_ptr<StorageSystemFileServices> services) noexcept
{
    if (services != nullptr) {
        services_ = std::move(services);
    }
}

} // namespace FileSystem
