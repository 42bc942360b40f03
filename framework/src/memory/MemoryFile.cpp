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
    setCommit([this] { return faults_->let({Kind::Commit, fileId_, {}, 0, 0, {}}); });
    setAttributeKeeper(attributeKeeper());
}

MemoryFile::~MemoryFile() = default;

/// For as long as the file lives.
MemoryFile::AttributeKeeper MemoryFile::attributeKeeper() const
{
    using Permissions = Utilities::Flags<PosixFilePermissionFlag>;
    AttributeKeeper keeper;
    keeper.set = [this](Permissions permissions) { return setPermissions(permissions); };
    keeper.look = [this] { return look(); };
    keeper.cut = [this](std::uint64_t size) {
        const bool isLet = faults_->let({Kind::Truncate, fileId_, {}, 0, size, {}});
        if (isLet) {
            tree_->cut(*node_, size);
        }
        return isLet;
    };
    return keeper;
}

bool MemoryFile::setPermissions(Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    const bool isLet = faults_->let({Kind::SetPermissions, fileId_, {}, 0, 0, {}});
    if (isLet) {
        tree_->setPermissionsOf(*node_, permissions);
    }
    return isLet;
}

std::optional<MemoryFile::OpenFileState> MemoryFile::look() const
{
    if (!faults_->let({Kind::LookUp, fileId_, {}, 0, 0, {}})) {
        return std::nullopt;
    }
    const auto now = tree_->attributesOf(*node_);
    OpenFileState state;
    state.permissions = now.permissions;
    state.size = now.size;
    // One address is one file, for as long as it is open.
    state.number = reinterpret_cast<std::uintptr_t>(node_.get());
    return state;
}

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
