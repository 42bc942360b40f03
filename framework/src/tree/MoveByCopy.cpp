#include "tree/MoveByCopy.h"

#include "failure/FailureWatch.h"
#include "failure/NewFailure.h"
#include "path/PathText.h"
#include "tree/HiddenName.h"
#include "tree/SlotCopy.h"
#include "tree/SlotRemoval.h"
#include "tree/TreeCopier.h"
#include "tree/TreeRemover.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/FileSystem2.h>

#include <optional>
#include <unordered_map>
#include <utility>

namespace FileSystem {

namespace {

constexpr auto keepAll = StorageSystemCopyOptionFlag::FailIfExists |
                         StorageSystemCopyOptionFlag::PreservePermissions |
                         StorageSystemCopyOptionFlag::PreserveModTime;

/// Whether what stands at the path is still what was copied.
bool isUnchanged(const FileSystem2& system, const std::string& path,
                 const StorageSystemFileInfo& copied)
{
    const auto info = system.fileInfo(path);
    return info && ((info->type == copied.type && info->size == copied.size &&
                     info->modTime == copied.modTime) ||
                    fail(FailureCode::Changed, {}, path));
}

/// Whether an entry is as it was when it was copied.
bool isAsCopied(const StorageSystemAttributes& now, const StorageSystemAttributes& copied)
{
    return now.type == copied.type && now.size == copied.size && now.modTime == copied.modTime;
}

/// Keeps what was copied, and ends the copy at the first failure.
class Record final : public TreeObserver
{
public:
    void done(const TreeEntry& entry) override { entries_.emplace(entry.below, entry.attributes); }

    bool failed(const TreeEntry& /*entry*/, const Failure& failure) override
    {
        failure_ = failure;
        return false;
    }

    const Failure& failure() const noexcept { return failure_; }

    /// Null: it was not copied.
    const StorageSystemAttributes* find(const std::string& below) const
    {
        const auto found = entries_.find(below);
        return found != entries_.end() ? &found->second : nullptr;
    }

private:
    std::unordered_map<std::string, StorageSystemAttributes> entries_;
    Failure failure_;
};

/// Removes a tree that was copied from another place. What has come since, or has changed, stays,
/// and with it the directories that it is in.
class RemovalOfCopied final : public TreeObserver
{
public:
    explicit RemovalOfCopied(const Record& record)
        : record_(record)
    {}

    bool wants(const TreeEntry& entry) override
    {
        const auto* const copied = record_.find(entry.below);
        const bool isDirectory = entry.attributes.type &&
                                 entry.attributes.type->has(StorageSystemFileTypeFlag::Directory);
        if (copied != nullptr && (isDirectory || isAsCopied(entry.attributes, *copied))) {
            return true;
        }
        stop(newFailure("remove", entry.path, FailureCode::Changed));
        return false;
    }

    bool failed(const TreeEntry& /*entry*/, const Failure& failure) override
    {
        stop(failure);
        return false;
    }

    bool progress(const TreeProgress& /*progress*/) override { return !failure_; }

    const Failure& failure() const noexcept { return failure_; }

private:
    void stop(const Failure& failure)
    {
        if (!failure_) {
            failure_ = failure;
        }
    }

    const Record& record_;
    Failure failure_;
};

/// The original leaves its place in one step, which also tells whether it may. One that is reported
/// as failed may have been done all the same.
std::optional<std::string> setAside(const FileSystem2& system, const std::string& path)
{
    const auto name = hiddenName(PathText::fileName(path), HiddenNameUse::SetAside);
    auto aside = system.directoryRename(path, name);
    if (!aside) {
        const FailureKeeper keeper;
        const auto hidden = PathText::sibling(path, name);
        const bool isDone =
            !system.directoryExists(path, false) && system.directoryExists(hidden, false);
        return isDone ? std::make_optional(hidden) : std::nullopt;
    }
    return aside;
}

/// False: something is left there.
bool removeCopied(const FileSystem2& system, const Record& record, const std::string& place)
{
    RemovalOfCopied removal(record);
    TreeRemover remover(system, removal, {});
    remover.lookAgainAtFiles();
    static_cast<void>(remover.remove({place}));
    if (removal.failure()) {
        noteAgain(Failure(removal.failure()));
    }
    return !removal.failure();
}

} // namespace

bool moveFileByCopy(const FileSystem2& system, const std::string& path, const std::string& newPath)
{
    const auto source = system.fileInfo(path);
    if (!source || !system.fileCopyAs(path, system, newPath, {}, keepAll)) {
        return false;
    }
    if (isUnchanged(system, path, *source) && system.fileRemove(path)) {
        return true;
    }
    const FailureKeeper keeper;
    // A removal that was reported as failed may have been done, and then the copy is all there is.
    if (system.fileType(path)) {
        static_cast<void>(system.fileRemove(newPath));
        return false;
    }
    return system.fileType(newPath).has_value();
}

bool moveTreeByCopy(const FileSystem2& system, const std::string& path, const std::string& newPath)
{
    if (leadsIntoItself(system, path, system, newPath)) {
        return fail(FailureCode::IntoItself, {}, newPath);
    }
    const auto source = system.directoryInfo(path);
    const StorageSystemProgress unheard;
    if (!source || !surveyTree({system, path, *source, system, newPath, unheard, {}, {}})) {
        return false;
    }
    Record record;
    TreeCopyOptions options;
    options.standing = TreeStanding::Fail;
    options.preservesPermissions = options.preservesTimes = true;
    TreeCopier copier(system, system, record, options);
    copier.beStrict(true);
    copier.makeRootsNew(true);
    static_cast<void>(copier.copy({{path, newPath}}));
    if (record.failure()) {
        noteAgain(Failure(record.failure()));
    }
    const auto aside = !record.failure() ? setAside(system, path) : std::nullopt;
    if (!aside) {
        const FailureKeeper keeper;
        if (copier.hasMadeRoot()) {
            static_cast<void>(removeForSlot(system, newPath));
        }
        return false;
    }
    if (removeCopied(system, record, *aside)) {
        return true;
    }
    const FailureKeeper keeper;
    static_cast<void>(system.directoryRenameAs(*aside, path));
    return false;
}

} // namespace FileSystem
