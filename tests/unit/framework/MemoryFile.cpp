#include "framework/MemoryFile.h"

#include <algorithm>
#include <utility>

using FileSystem::StorageSystemReadResult;
using Mode = FileSystem::StorageSystemFileOpenModeFlag;

namespace TarnisTest {

namespace {

/// Keeps what is written to itself until it is told to finish, as a transfer with requests under
/// way may.
class MemoryBulkTransfer : public FileSystem::StorageSystemBulkTransfer
{
public:
    explicit MemoryBulkTransfer(const MemoryFile& file)
        : file_(file)
    {}

    bool start(std::uint64_t offset) override
    {
        file_.note("bulk.start " + std::to_string(offset));
        offset_ = offset;
        pending_.clear();
        return !file_.behaviour().bulkStartFails;
    }

    void expectEnd(std::uint64_t offset) override
    {
        file_.note("bulk.expectEnd " + std::to_string(offset));
    }

    StorageSystemReadResult read(char* buffer, std::uint64_t size) override
    {
        using Status = StorageSystemReadResult::Status;
        file_.note("bulk.read " + std::to_string(size));
        const auto left = file_.length() - std::min(file_.length(), offset_);
        const auto wanted = std::min(size, left);
        const auto got = file_.readAt(offset_, buffer, wanted);
        offset_ += got;
        if (got < wanted) {
            return {got, Status::Error};
        }
        const bool isComplete = got == size || file_.behaviour().bulkReadsClaimComplete;
        return {got, isComplete ? Status::Complete : Status::EndOfFile};
    }

    bool write(const char* buffer, std::uint64_t size) override
    {
        file_.note("bulk.write " + std::to_string(size));
        pending_.append(buffer, size);
        return true;
    }

    bool finish() override
    {
        file_.note("bulk.finish");
        const auto written = file_.writeAt(offset_, pending_.data(), pending_.size());
        return written == pending_.size() && !file_.behaviour().bulkFinishFails;
    }

private:
    const MemoryFile& file_;
    std::uint64_t offset_ = 0;
    std::string pending_;
};

} // namespace

MemoryFile::MemoryFile(const MemoryFileSystem& system, std::shared_ptr<MemoryNode> node,
                       std::string path, Mode mode, std::shared_ptr<std::size_t> openFiles)
    : system_(system)
    , node_(std::move(node))
    , path_(std::move(path))
    , mode_(mode)
    , openFiles_(std::move(openFiles))
{
    ++*openFiles_;
    if (system_.behaviour.hasBulkTransfer) {
        setBulkTransfer(std::make_unique<MemoryBulkTransfer>(*this));
    }
    if (system_.behaviour.filesSucceed) {
        AttributeKeeper keeper;
        keeper.own = [this](const FileSystem::StorageSystemOwner& owner) {
            node_->owner = owner;
            return true;
        };
        setAttributeKeeper(std::move(keeper));
    }
    setCommit([this] {
        note("commit");
        return !system_.behaviour.commitFails;
    });
}

MemoryFile::~MemoryFile()
{
    --*openFiles_;
    if (!isSystemAlive()) {
        return;
    }
    const auto kept = system_.behaviour.keptOnClosing;
    if (mode_.has(::Mode::Write) && node_->bytes.size() > kept) {
        node_->bytes.resize(kept);
    }
}

std::uint64_t MemoryFile::readAt(std::uint64_t offset, char* buffer, std::uint64_t size) const
{
    const auto end = std::min({std::uint64_t{node_->bytes.size()}, system_.behaviour.unreadableFrom,
                               system_.behaviour.seemsToEndAt});
    const auto count = offset < end ? std::min(size, end - offset) : 0;
    return node_->bytes.copy(buffer, count, std::min(offset, end));
}

std::uint64_t MemoryFile::writeAt(std::uint64_t offset, const char* buffer,
                                  std::uint64_t size) const
{
    const auto end = system_.behaviour.unwritableFrom;
    const auto count = offset < end ? std::min(size, end - offset) : 0;
    if (count > 0) {
        node_->bytes.resize(std::max<std::uint64_t>(node_->bytes.size(), offset + count));
        node_->bytes.replace(offset, count, buffer, count);
        node_->modTime = system_.now();
    }
    return count;
}

bool MemoryFile::do_isValid() const
{
    return system_.isValid();
}

std::string MemoryFile::do_fileId()
{
    return path_;
}

MemoryFile::Mode MemoryFile::do_mode()
{
    return mode_;
}

bool MemoryFile::do_eof() const
{
    return eof_;
}

bool MemoryFile::do_seek(std::uint64_t offset) const
{
    note("seek " + std::to_string(offset));
    position_ = offset;
    eof_ = false;
    return system_.isValid();
}

std::optional<std::uint64_t> MemoryFile::do_tell()
{
    return system_.isValid() ? std::make_optional(position_) : std::nullopt;
}

bool MemoryFile::do_error() const
{
    return !system_.isValid();
}

std::uint64_t MemoryFile::longestRead() const
{
    const auto& shortReads = system_.behaviour.shortReads;
    const auto here = shortReads.find(position_);
    return here != shortReads.end() ? here->second : system_.behaviour.longestRead;
}

std::uint64_t MemoryFile::do_read(char* buffer, std::uint64_t size) const
{
    note("read " + std::to_string(size));
    if (!mode_.has(::Mode::Read)) {
        return 0;
    }
    if (system_.behaviour.overcounts) {
        return size + 1;
    }
    const auto count = readAt(position_, buffer, std::min(size, longestRead()));
    position_ += count;
    if (count == 0 && system_.behaviour.readingAtTheEndFails) {
        return 0;
    }
    eof_ =
        (count == 0 || system_.behaviour.endsEarly) &&
        position_ >= std::min<std::uint64_t>(node_->bytes.size(), system_.behaviour.seemsToEndAt);
    return count;
}

std::uint64_t MemoryFile::do_write(const char* buffer, std::uint64_t size) const
{
    note("write " + std::to_string(size));
    if (!mode_.has(::Mode::Write)) {
        return 0;
    }
    if (system_.behaviour.overcounts) {
        return size + 1;
    }
    const auto count = writeAt(position_, buffer, std::min(size, system_.behaviour.longestWrite));
    position_ += count;
    return count;
}

const FileSystem::FileSystem2& MemoryFile::do_fileSystem() const
{
    return system_;
}

} // namespace TarnisTest
