#include "memory/MemoryFile.h"

#include <FileSystem/FailureScope.h>

#include <cstdint>
#include <limits>
#include <utility>

namespace FileSystem {

namespace {

using Kind = MemoryOperationKind;

// As on this machine.
constexpr auto largestOffset = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

class MemoryFileServices final : public StorageSystemFileServices
{
public:
    MemoryFileServices(std::shared_ptr<MemoryTree> tree, std::shared_ptr<const MemoryFaults> faults,
                       MemoryTree::Node node, std::string fileId)
        : tree_(std::move(tree))
        , faults_(std::move(faults))
        , node_(std::move(node))
        , fileId_(std::move(fileId))
    {}

    std::optional<bool> close() override { return lets(Kind::Close); }

    std::optional<bool> set(Permissions permissions) override
    {
        const bool isLet = lets(Kind::SetPermissions);
        if (isLet) {
            tree_->setPermissionsOf(*node_, permissions);
        }
        return isLet;
    }

    std::optional<StorageSystemOpenFileState> look() override
    {
        if (!lets(Kind::LookUp)) {
            return std::nullopt;
        }
        const auto now = tree_->attributesOf(*node_);
        StorageSystemOpenFileState state;
        state.permissions = now.permissions;
        state.size = now.size;
        // One address is one file, for as long as it is open.
        state.number = reinterpret_cast<std::uintptr_t>(node_.get());
        return state;
    }

    std::optional<bool> cut(std::uint64_t size) override
    {
        const bool isLet = lets(Kind::Truncate, size);
        if (isLet) {
            tree_->cut(*node_, size);
        }
        return isLet;
    }

private:
    bool lets(Kind kind, std::uint64_t size = 0) const
    {
        return faults_->let({kind, fileId_, {}, 0, size, {}});
    }

    const std::shared_ptr<MemoryTree> tree_;
    const std::shared_ptr<const MemoryFaults> faults_;
    const MemoryTree::Node node_;
    const std::string fileId_;
};

} // namespace

MemoryFile::MemoryFile(const MemoryFileSystem& fileSystem, std::shared_ptr<MemoryTree> tree,
                       std::shared_ptr<const MemoryFaults> faults, MemoryTree::Node node,
                       const std::string& fileId,
                       Utilities::Flags<StorageSystemFileOpenModeFlag> mode)
    : fileSystem_(fileSystem)
    , tree_(std::move(tree))
    , faults_(std::move(faults))
    , node_(std::move(node))
    , fileId_(fileId)
    , mode_(mode)
{
    belongTo(fileSystem);
    provide(std::make_unique<MemoryFileServices>(tree_, faults_, node_, fileId_));
}

MemoryFile::~MemoryFile() = default;

bool MemoryFile::do_isValid() const
{
    return fileSystem_.isValid();
}

std::string MemoryFile::do_fileId()
{
    return fileId_;
}

Utilities::Flags<StorageSystemFileOpenModeFlag> MemoryFile::do_mode()
{
    return mode_;
}

bool MemoryFile::do_eof() const
{
    return eof_;
}

bool MemoryFile::do_seek(std::uint64_t offset) const
{
    if (offset > largestOffset) {
        return fail(FailureCode::TooLarge, {}, fileId_);
    }
    position_ = offset;
    eof_ = false;
    return true;
}

std::optional<std::uint64_t> MemoryFile::do_tell()
{
    return position_;
}

bool MemoryFile::do_error() const
{
    return !do_isValid();
}

std::uint64_t MemoryFile::do_read(char* buffer, std::uint64_t size) const
{
    eof_ = false;
    if (!readsIn(mode_)) {
        fail(FailureCode::Denied, "it is open for writing alone", fileId_);
        return 0;
    }
    const auto most = faults_->letMove({Kind::Read, fileId_, {}, position_, size, {}});
    if (!most) {
        return 0;
    }
    const auto count = tree_->read(*node_, position_, buffer, *most);
    position_ += count;
    eof_ = count < *most;
    return count;
}

// What does not fit is no short write: the caller is told as on a disk that is full.
std::uint64_t MemoryFile::do_write(const char* buffer, std::uint64_t size) const
{
    if (!writesIn(mode_)) {
        fail(FailureCode::Denied, "it is open for reading alone", fileId_);
        return 0;
    }
    const bool appends = mode_.has(StorageSystemFileOpenModeFlag::Append);
    const auto offset = appends ? tree_->attributesOf(*node_).size : position_;
    const auto most = faults_->letMove({Kind::Write, fileId_, {}, offset, size, {}});
    if (!most) {
        return 0;
    }
    auto place = appends ? std::nullopt : std::make_optional(position_);
    const auto refusal = tree_->write(*node_, place, buffer, *most);
    position_ = place.value_or(position_);
    if (refusal) {
        fail(*refusal, {}, fileId_);
        return 0;
    }
    return *most;
}

const FileSystem2& MemoryFile::do_fileSystem() const
{
    return fileSystem_;
}

} // namespace FileSystem
