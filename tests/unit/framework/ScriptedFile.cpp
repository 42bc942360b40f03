#include "framework/ScriptedFile.h"

#include <algorithm>
#include <utility>
#include <vector>

using FileSystem::StorageSystemReadRange;
using FileSystem::StorageSystemReadResult;
using Mode = FileSystem::StorageSystemFileOpenModeFlag;
using Status = StorageSystemReadResult::Status;

namespace TarnisTest {

namespace {

class Services : public FileSystem::StorageSystemFileServices
{
public:
    Services(const ScriptedFile& file, std::shared_ptr<ScriptedNode> node)
        : file_(file)
        , node_(std::move(node))
    {}

    std::optional<bool> readRanges(std::vector<StorageSystemReadRange>& ranges) override
    {
        if (!file_.behaviour().hasRanges) {
            return std::nullopt;
        }
        bool isRead = true;
        for (auto& range : ranges) {
            file_.note("range.read " + std::to_string(range.offset) + "+" +
                       std::to_string(range.size));
            range.result = read(range);
            isRead = isRead && range.result.status != Status::Error;
        }
        return isRead;
    }

    std::optional<bool>
    writeRanges(const std::vector<FileSystem::StorageSystemWriteRange>& ranges) override
    {
        if (!file_.behaviour().hasRanges) {
            return std::nullopt;
        }
        return std::all_of(ranges.begin(), ranges.end(), [this](const auto& range) {
            file_.note("range.write " + std::to_string(range.offset) + "+" +
                       std::to_string(range.size));
            return file_.writeAt(range.offset, range.bytes, range.size) == range.size;
        });
    }

    std::optional<bool> own(const FileSystem::StorageSystemOwner& owner) override
    {
        if (!file_.behaviour().filesSucceed) {
            return std::nullopt;
        }
        node_->owner = owner;
        return true;
    }

    std::optional<bool> close() override
    {
        file_.note("close");
        return !file_.behaviour().closingFails;
    }

private:
    StorageSystemReadResult read(const StorageSystemReadRange& range) const
    {
        const auto left = file_.length() - std::min(file_.length(), range.offset);
        const auto wanted = std::min(range.size, left);
        const auto got = file_.readAt(range.offset, range.buffer, wanted);
        if (got < wanted) {
            return {got, Status::Error};
        }
        const bool isComplete = got == range.size || file_.behaviour().rangesClaimComplete;
        return {got, isComplete ? Status::Complete : Status::EndOfFile};
    }

    const ScriptedFile& file_;
    const std::shared_ptr<ScriptedNode> node_;
};

} // namespace

ScriptedFile::ScriptedFile(const ScriptedFileSystem& system, std::shared_ptr<ScriptedNode> node,
                           std::string path, Mode mode, std::shared_ptr<std::size_t> openFiles)
    : system_(system)
    , node_(std::move(node))
    , path_(std::move(path))
    , mode_(mode)
    , openFiles_(std::move(openFiles))
{
    ++*openFiles_;
    provide(std::make_unique<Services>(*this, node_));
}

ScriptedFile::~ScriptedFile()
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

std::uint64_t ScriptedFile::readAt(std::uint64_t offset, char* buffer, std::uint64_t size) const
{
    const auto end = std::min({std::uint64_t{node_->bytes.size()}, system_.behaviour.unreadableFrom,
                               system_.behaviour.seemsToEndAt});
    const auto count = offset < end ? std::min(size, end - offset) : 0;
    return node_->bytes.copy(buffer, count, std::min(offset, end));
}

std::uint64_t ScriptedFile::writeAt(std::uint64_t offset, const char* buffer,
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

bool ScriptedFile::do_isValid() const
{
    return system_.isValid();
}

std::string ScriptedFile::do_fileId()
{
    return path_;
}

ScriptedFile::Mode ScriptedFile::do_mode()
{
    return mode_;
}

bool ScriptedFile::do_eof() const
{
    return eof_;
}

bool ScriptedFile::do_seek(std::uint64_t offset) const
{
    note("seek " + std::to_string(offset));
    position_ = offset;
    eof_ = false;
    return system_.isValid();
}

std::optional<std::uint64_t> ScriptedFile::do_tell()
{
    return system_.isValid() ? std::make_optional(position_) : std::nullopt;
}

bool ScriptedFile::do_error() const
{
    return !system_.isValid();
}

std::uint64_t ScriptedFile::longestRead() const
{
    const auto& shortReads = system_.behaviour.shortReads;
    const auto here = shortReads.find(position_);
    return here != shortReads.end() ? here->second : system_.behaviour.longestRead;
}

std::uint64_t ScriptedFile::do_read(char* buffer, std::uint64_t size) const
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

std::uint64_t ScriptedFile::do_write(const char* buffer, std::uint64_t size) const
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

const FileSystem::FileSystem2& ScriptedFile::do_fileSystem() const
{
    return system_;
}

} // namespace TarnisTest
