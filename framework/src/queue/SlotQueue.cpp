#include "queue/SlotQueue.h"

#include "path/EntryKind.h"
#include "path/LinkResolution.h"
#include "path/PathText.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/FileSystem2.h>
#include <FileSystem/StorageSystemServices.h>

#include <limits>
#include <utility>
#include <vector>

namespace FileSystem {

namespace {

using ReadStatus = StorageSystemReadResult::Status;

constexpr std::uint32_t stickyBit = 01000;

/// Of an entry of a list. One without a type is to be asked for: not every list tells it.
StorageSystemAttributes attributesInList(const StorageSystemFileInfo& info)
{
    auto attributes = StorageSystemServices::attributesOf(info);
    if (info.type.isEmpty()) {
        attributes.type.reset();
    }
    return attributes;
}

} // namespace

SlotQueue::SlotQueue(const StorageSystem& system, std::shared_ptr<const std::atomic<bool>> isAlive)
    : system_(system)
    , isAlive_(std::move(isAlive))
{}

SlotQueue::SlotQueue(const StorageSystem& system)
    : SlotQueue(system, std::make_shared<const std::atomic<bool>>(true))
{}

SlotQueue::~SlotQueue() = default;

bool SlotQueue::isThere() const
{
    return *isAlive_;
}

std::string SlotQueue::pathOf(File file) const
{
    return files_.pathOf(file);
}

std::optional<StorageSystemQueue::File> SlotQueue::keep(const std::string& path, OpenFile&& open)
{
    return open.file != nullptr ? std::make_optional(files_.add(path, std::move(open)))
                                : std::nullopt;
}

/// Null, with a failure noted, where there is no such file.
StorageSystemFile* SlotQueue::find(File file)
{
    const auto* const open = files_.find(file);
    return open != nullptr ? open->file.get() : nullptr;
}

std::optional<StorageSystemQueue::File> SlotQueue::openNow(const std::string& path, OpenMode mode,
                                                           Permissions permissions)
{
    return keep(path, {system_.fileOpen(path, mode, permissions), false});
}

std::optional<StorageSystemQueue::File> SlotQueue::openItselfNow(const std::string& path,
                                                                 OpenMode mode)
{
    return keep(path, {system_.own(system_.services_->openItself(path, mode)), true});
}

std::optional<std::uint64_t> SlotQueue::readNow(File file, std::uint64_t offset, char* buffer,
                                                std::uint64_t size)
{
    auto* const open = find(file);
    if (open == nullptr) {
        return std::nullopt;
    }
    std::vector<StorageSystemReadRange> range{{offset, buffer, size, {0, ReadStatus::Error}}};
    auto& result = range.front().result;
    if (!takesRanges(*open, offset, size) || !open->services_->readRanges(range)) {
        result = open->seek(offset) ? open->readFully(buffer, size) : result;
    }
    return result.status != ReadStatus::Error ? std::make_optional(result.count) : std::nullopt;
}

bool SlotQueue::writeNow(File file, std::uint64_t offset, const char* bytes, std::uint64_t size)
{
    auto* const open = find(file);
    if (open == nullptr) {
        return false;
    }
    const bool takesRange = takesRanges(*open, offset, size) && !open->isAppendedTo();
    const auto done =
        takesRange ? open->services_->writeRanges({{offset, bytes, size}}) : std::nullopt;
    return done ? *done : open->seek(offset) && open->writeFully(bytes, size);
}

/// Whether it can be asked to move a range of bytes, of which some systems have several requests in
/// flight.
bool SlotQueue::takesRanges(const StorageSystemFile& file, std::uint64_t offset, std::uint64_t size)
{
    return file.hasSystem() && size <= std::numeric_limits<std::uint64_t>::max() - offset;
}

/// A system that cannot refuse to follow a link when it opens what stands at a path is asked what
/// stands there now.
std::optional<StorageSystemAttributes> SlotQueue::lookNow(File file)
{
    const auto* const open = files_.find(file);
    if (open == nullptr) {
        return std::nullopt;
    }
    const auto state = open->file->isValid() ? open->file->services_->look() : std::nullopt;
    auto attributes = open->isItself ? lookUpNow(pathOf(file)) : lookThroughNow(pathOf(file));
    if (state && attributes) {
        attributes->permissions = state->permissions;
        attributes->size = state->size;
        attributes->identity = StorageSystemIdentity{state->volume, state->number};
    }
    return attributes;
}

/// What the open file can be given itself, it is given; its path gets the others.
bool SlotQueue::setOfFileNow(File file, const Attributes& attributes)
{
    const auto* const open = find(file);
    if (open == nullptr) {
        return false;
    }
    auto& services = *open->services_;
    Attributes others = attributes;
    const auto give = [](auto& attribute, const auto& service) {
        const auto isGiven = attribute ? service(*attribute) : std::nullopt;
        if (isGiven) {
            attribute.reset();
        }
        return isGiven.value_or(true);
    };
    if (!give(others.size, [&](std::uint64_t size) { return services.cut(size); })) {
        return false;
    }
    if (others.size) {
        return fail(FailureCode::Unsupported);
    }
    const auto own = [&](const StorageSystemOwner& owner) { return services.own(owner); };
    const auto set = [&](Permissions permissions) { return services.set(permissions); };
    return give(others.owner, own) && give(others.permissions, set) &&
           setOfPathNow(pathOf(file), others);
}

bool SlotQueue::closeNow(File file)
{
    auto* const open = find(file);
    if (open == nullptr) {
        return false;
    }
    const bool isKept = !open->mode().has(StorageSystemFileOpenModeFlag::Write) || open->close();
    files_.remove(file);
    return isKept;
}

std::optional<StorageSystemAttributes> SlotQueue::lookUpNow(const std::string& path)
{
    auto attributes = system_.services_->look(path);
    // What passes for a directory may be a device.
    if (attributes && attributes->type && isDirectory(*attributes->type) &&
        !isDirectoryItself(system_, path)) {
        attributes->type = Utilities::Flags<StorageSystemFileTypeFlag>();
    }
    return attributes;
}

std::optional<StorageSystemAttributes> SlotQueue::lookThroughNow(const std::string& path)
{
    const auto attributes = lookUpNow(path);
    const bool isLink = attributes && attributes->type == StorageSystemFileTypeFlag::SymbolicLink;
    if (!isLink) {
        return attributes;
    }
    const auto end = followLinks(system_, path);
    return end ? lookUpNow(end->path) : std::nullopt;
}

bool SlotQueue::listNow(const std::string& path, const EntryReceiver& receiver)
{
    const auto infos = system_.directoryReadFully(path);
    if (!infos) {
        return false;
    }
    std::vector<StorageSystemEntry> entries;
    entries.reserve(infos->size());
    std::optional<std::string> leftOut;
    for (const auto& info : *infos) {
        if (PathText::isEntryName(info.name)) {
            entries.push_back({info.name, attributesInList(info)});
        } else {
            leftOut = info.name;
        }
    }
    static_cast<void>(entries.empty() || receiver(entries));
    return !leftOut || fail(FailureCode::BadName, {}, PathText::childId(path, {*leftOut}));
}

bool SlotQueue::makeDirectoryNow(const std::string& path, Permissions permissions)
{
    const auto* const byPath = dynamic_cast<const FileSystem2*>(&system_);
    if (byPath != nullptr) {
        return byPath->directoryCreateAs(path, false, permissions);
    }
    return system_
        .directoryCreate(PathText::parentId(path), {PathText::fileName(path)}, true, permissions)
        .has_value();
}

bool SlotQueue::removeFileNow(const std::string& path)
{
    return system_.fileRemove(path);
}

bool SlotQueue::removeDirectoryNow(const std::string& path)
{
    return system_.directoryRemove(path, false);
}

bool SlotQueue::renameNow(const std::string& path, const std::string& newPath)
{
    // Some systems replace what stands there.
    if (system_.fileType(newPath)) {
        return fail(FailureCode::Exists, {}, newPath);
    }
    const auto* const byPath = dynamic_cast<const FileSystem2*>(&system_);
    if (byPath != nullptr) {
        return byPath->fileRenameAs(path, newPath);
    }
    const bool isNear = PathText::parentId(path) == PathText::parentId(newPath);
    return isNear ? system_.fileRename(path, PathText::fileName(newPath)).has_value()
                  : fail(FailureCode::Unsupported, {}, newPath);
}

bool SlotQueue::replaceNow(const std::string& path, const std::string& newPath)
{
    return system_.services_->replace(path, newPath);
}

bool SlotQueue::makeLinkNow(const std::string& target, const std::string& path)
{
    // Making a link replaces a file or a directory.
    if (system_.fileInfo(path)) {
        return fail(FailureCode::Exists);
    }
    const auto* const byPath = dynamic_cast<const FileSystem2*>(&system_);
    if (byPath != nullptr) {
        return byPath->fileSymbolicLinkCreateAs(target, path, true);
    }
    return system_
        .fileSymbolicLinkCreate(PathText::parentId(path), PathText::fileName(path), target, true)
        .has_value();
}

std::optional<std::string> SlotQueue::readLinkNow(const std::string& path)
{
    return system_.fileSymbolicLinkTarget(path);
}

bool SlotQueue::setOfPathNow(const std::string& path, const Attributes& attributes)
{
    if (attributes.size) {
        return fail(FailureCode::Unsupported, "a size can be set of an open file only");
    }
    return (!attributes.owner || fail(FailureCode::Unsupported, "the owner cannot be set")) &&
           (!attributes.permissions || setPermissions(path, attributes)) &&
           (!attributes.modTime || system_.fileSetModTime(path, *attributes.modTime));
}

/// Of a directory its sticky bit too, where that is known of.
bool SlotQueue::setPermissions(const std::string& path, const Attributes& attributes) const
{
    const bool isSticky = (attributes.specialBits.value_or(0) & stickyBit) != 0;
    return isSticky ? system_.directorySetPermissions(path, *attributes.permissions |
                                                                Permissions(stickyBit))
                    : system_.fileSetPermissions(path, *attributes.permissions);
}

std::optional<StorageSystemStorageInfo> SlotQueue::storageInfoNow(const std::string& path)
{
    return system_.fileStorageInfo(path);
}

} // namespace FileSystem
