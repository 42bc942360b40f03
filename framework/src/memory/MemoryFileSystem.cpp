#include "failure/CallbackScope.h"
#include "memory/MemoryFaults.h"
#include "memory/MemoryFile.h"
#include "memory/MemoryTree.h"
#include "path/NameCheck.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/MemoryFileSystem.h>
#include <FileSystem/NameFilter.h>
#include <FileSystem/StorageSystemServices.h>

#include <utility>

namespace FileSystem {

namespace {

using Kind = MemoryOperationKind;

/// The one user, whose everything is.
constexpr StorageSystemOwner theUser{1000, 1000};

MemoryOperation stepAt(Kind kind, const std::string& path, const std::string& otherPath = {})
{
    return {kind, path, otherPath, 0, 0, {}};
}

StorageSystemFileInfo describe(const MemoryTree::Attributes& attributes)
{
    StorageSystemFileInfo info;
    info.type = attributes.type;
    info.size = attributes.size;
    info.modTime = attributes.modTime;
    info.permissions = attributes.permissions;
    return info;
}

/// The entry's id begins with the path as the caller gave it.
std::string entryId(const std::string& directory, const std::string& name)
{
    return directory + "/" + name;
}

StorageSystemFileInfo describe(const std::string& directory, const MemoryTree::Entry& entry)
{
    auto info = describe(entry.attributes);
    info.name = entry.name;
    info.fileId = entryId(directory, entry.name);
    info.parentDirectoryId = directory;
    return info;
}

/// Lists a directory, if that is let, without what a filter leaves out.
class FilteredListing
{
public:
    FilteredListing(const MemoryFaults& faults, const MemoryTree& tree, const std::string& path,
                    std::uint64_t limit, NameFilter wanted = NameFilter())
        : path_(path)
        , wanted_(std::move(wanted))
    {
        if (namesEntry(path) && faults.let(stepAt(Kind::List, path))) {
            listing_ = tree.list(path, limit);
        }
    }

    bool isWhole() const { return listing_.isWhole; }

    /// What `make` makes of each entry.
    template <class Make>
    auto collect(const Make& make) const -> std::vector<decltype(make(MemoryTree::Entry()))>
    {
        std::vector<decltype(make(MemoryTree::Entry()))> results;
        for (const auto& entry : listing_.entries) {
            if (wanted_.passes(entry.name)) {
                results.push_back(make(entry));
            }
        }
        return results;
    }

    std::vector<StorageSystemFileInfo> infos() const
    {
        return collect([this](const auto& entry) { return describe(path_, entry); });
    }

private:
    const std::string& path_;
    const NameFilter wanted_;
    MemoryTree::Listing listing_;
};

} // namespace

class MemoryFileSystem::Services final : public StorageSystemServices
{
public:
    explicit Services(const MemoryFileSystem& system)
        : StorageSystemServices(system)
        , system_(system)
    {}

    std::optional<std::vector<StorageSystemFileInfo>>
    readDirectory(const std::string& path) const override
    {
        const FilteredListing listing(*system_.faults_, *system_.tree_, path,
                                      system_.listingLimit());
        return listing.isWhole() ? std::make_optional(listing.infos()) : std::nullopt;
    }

    std::optional<std::string> startDirectory() const override { return "/"; }

    bool replace(const std::string& path, const std::string& newPath) const override
    {
        return system_.faults_->let(stepAt(Kind::Replace, path, newPath)) &&
               system_.tree_->rename(path, newPath, true);
    }

    std::unique_ptr<StorageSystemFile> openItself(const std::string& path,
                                                  OpenMode mode) const override
    {
        return system_.open(path, mode, defaultFilePermissions, false);
    }

    bool leadsToNoFile(const std::string& path) const override
    {
        // Outside of all operations nothing is noted.
        const CallbackScope scope;
        const auto target = system_.faults_->let(stepAt(Kind::LookUp, path))
                                ? system_.tree_->lookBehindLink(path)
                                : std::nullopt;
        return target && target->type.isEmpty();
    }

    std::optional<StorageSystemAttributes> look(const std::string& path) const override
    {
        const auto info = system_.do_fileInfo(path);
        auto attributes = info ? std::make_optional(attributesOf(*info)) : std::nullopt;
        if (attributes) {
            attributes->owner = theUser;
        }
        return attributes;
    }

private:
    const MemoryFileSystem& system_;
};

MemoryFileSystem::MemoryFileSystem()
    : MemoryFileSystem(std::make_shared<MemoryTree>(defaultCapacity))
{}

MemoryFileSystem::MemoryFileSystem(std::shared_ptr<MemoryTree> tree)
    : tree_(std::move(tree))
    , faults_(std::make_shared<MemoryFaults>())
{
    setServices(std::make_unique<Services>(*this));
}

// An open file, which may live on, asks nobody any more; what the function has captured need not.
MemoryFileSystem::~MemoryFileSystem()
{
    faults_->setFunction({});
}

std::unique_ptr<MemoryFileSystem> MemoryFileSystem::another() const
{
    return std::unique_ptr<MemoryFileSystem>(new MemoryFileSystem(tree_));
}

void MemoryFileSystem::setCapacity(std::uint64_t bytes)
{
    tree_->setCapacity(bytes);
}

void MemoryFileSystem::setFaultFunction(MemoryFaultFunction function)
{
    faults_->setFunction(std::move(function));
}

bool MemoryFileSystem::fileHardLinkCreateAs(const std::string& path,
                                            const std::string& newPath) const
{
    FailureScope scope("fileHardLinkCreateAs", path, newPath);
    return scope.result(namesEntry(path) && namesEntry(newPath) &&
                        tree_->makeOtherName(path, newPath));
}

bool MemoryFileSystem::specialFileCreateAs(const std::string& path) const
{
    FailureScope scope("specialFileCreateAs", path);
    return scope.result(namesEntry(path) && tree_->makeSpecial(path));
}

std::string MemoryFileSystem::do_hostName() const
{
    return {};
}

StorageSystemType MemoryFileSystem::do_getType() const
{
    return StorageSystemType::Memory;
}

bool MemoryFileSystem::do_isValid() const
{
    return true;
}

std::unique_ptr<StorageSystemFile>
MemoryFileSystem::do_fileOpen(const std::string& path,
                              Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                              Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    return open(path, mode, permissions, true);
}

std::unique_ptr<StorageSystemFile> MemoryFileSystem::open(
    const std::string& path, Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
    Utilities::Flags<PosixFilePermissionFlag> permissions, bool followsLink) const
{
    if (!faults_->let({Kind::Open, path, {}, 0, 0, mode})) {
        return nullptr;
    }
    auto node = tree_->open(path, mode, permissions, followsLink);
    return node != nullptr
               ? std::make_unique<MemoryFile>(*this, tree_, faults_, std::move(node), path, mode)
               : nullptr;
}

std::optional<StorageSystemFileInfo> MemoryFileSystem::do_fileInfo(const std::string& path) const
{
    const auto attributes =
        faults_->let(stepAt(Kind::LookUp, path)) ? tree_->look(path) : std::nullopt;
    if (!attributes) {
        return std::nullopt;
    }
    auto info = describe(*attributes);
    info.name = pathFileName(path);
    info.fileId = path;
    info.parentDirectoryId = pathParentId(path);
    return info;
}

// There is one volume, wherever the path leads.
std::optional<StorageSystemStorageInfo>
MemoryFileSystem::do_fileStorageInfo(const std::string& path) const
{
    return faults_->let(stepAt(Kind::StorageInfo, path)) ? std::make_optional(tree_->storageInfo())
                                                         : std::nullopt;
}

bool MemoryFileSystem::do_fileRemove(const std::string& path) const
{
    return faults_->let(stepAt(Kind::RemoveFile, path)) && tree_->removeFile(path);
}

bool MemoryFileSystem::do_fileSetPermissions(
    const std::string& path, const Utilities::Flags<PosixFilePermissionFlag>& permissions) const
{
    return faults_->let(stepAt(Kind::SetPermissions, path)) &&
           tree_->setPermissions(path, permissions);
}

bool MemoryFileSystem::do_fileSetModTime(const std::string& path,
                                         const StorageSystemTimePoint time) const
{
    return faults_->let(stepAt(Kind::SetModTime, path)) && tree_->setModTime(path, time);
}

std::optional<std::string>
MemoryFileSystem::do_fileSymbolicLinkTarget(const std::string& path) const
{
    return faults_->let(stepAt(Kind::ReadLink, path)) ? tree_->readLink(path) : std::nullopt;
}

bool MemoryFileSystem::do_fileSymbolicLinkRemove(const std::string& path) const
{
    const auto info = do_fileInfo(path);
    return info && (isSymbolicLink(info->type) || fail(FailureCode::NotALink)) &&
           do_fileRemove(path);
}

std::vector<StorageSystemDirectoryInfo>
MemoryFileSystem::do_directoryList(const std::string& path, const std::string& filter,
                                   StorageSystemDirectoryFilterType type) const
{
    const FilteredListing listing(*faults_, *tree_, path, listingLimit(), {filter, type});
    return listing.collect([&path](const auto& entry) {
        return StorageSystemDirectoryInfo{entry.name, entryId(path, entry.name), path,
                                          entry.attributes.type};
    });
}

std::vector<StorageSystemFileInfo>
MemoryFileSystem::do_directoryFileInfoList(const std::string& path, const std::string& filter,
                                           StorageSystemDirectoryFilterType type) const
{
    return FilteredListing(*faults_, *tree_, path, listingLimit(), {filter, type}).infos();
}

std::vector<std::string>
MemoryFileSystem::do_directoryListFileNames(const std::string& path, const std::string& filter,
                                            StorageSystemDirectoryFilterType type) const
{
    // The tree keeps them in order.
    const FilteredListing listing(*faults_, *tree_, path, listingLimit(), {filter, type});
    return listing.collect([](const auto& entry) { return entry.name; });
}

std::optional<std::string>
MemoryFileSystem::do_directorySymbolicLinkTarget(const std::string& path) const
{
    return do_fileSymbolicLinkTarget(path);
}

bool MemoryFileSystem::do_directorySymbolicLinkRemove(const std::string& path) const
{
    return do_fileSymbolicLinkRemove(path);
}

bool MemoryFileSystem::do_fileRenameAs(const std::string& path, const std::string& newPath) const
{
    return faults_->let(stepAt(Kind::Rename, path, newPath)) && tree_->rename(path, newPath, false);
}

bool MemoryFileSystem::do_fileSymbolicLinkCreateAs(const std::string& target,
                                                   const std::string& linkPath,
                                                   bool failIfLinkExists) const
{
    return (!(failIfLinkExists && fileIsSymbolicLink(linkPath)) || fail(FailureCode::Exists)) &&
           replaceByLink(target, linkPath);
}

bool MemoryFileSystem::do_directoryCreateAs(
    const std::string& path, bool /*exclusive*/,
    Utilities::Flags<PosixFilePermissionFlag> permissions) const
{
    // What exists is refused in either case.
    return faults_->let(stepAt(Kind::MakeDirectory, path)) &&
           tree_->makeDirectory(path, permissions);
}

bool MemoryFileSystem::do_directoryRemove(const std::string& path) const
{
    return faults_->let(stepAt(Kind::RemoveDirectory, path)) && tree_->removeDirectory(path);
}

bool MemoryFileSystem::do_directorySymbolicLinkCreateAs(const std::string& target,
                                                        const std::string& linkPath,
                                                        bool failIfLinkExists) const
{
    return (!(failIfLinkExists && directoryIsSymbolicLink(linkPath)) ||
            fail(FailureCode::Exists)) &&
           replaceByLink(target, linkPath);
}

bool MemoryFileSystem::replaceByLink(const std::string& target, const std::string& linkPath) const
{
    const auto place = linkPlace(target, linkPath);
    if (!place) {
        return false;
    }
    if (directoryExists(*place, false) && !do_directoryRemove(*place, true)) {
        return false;
    }
    if (fileExists(*place, true) && !do_fileRemove(*place)) {
        return false;
    }
    return faults_->let(stepAt(Kind::MakeLink, *place, target)) && tree_->makeLink(target, *place);
}

} // namespace FileSystem
