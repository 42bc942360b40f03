#include "tree/SlotReplacement.h"

#include "failure/FailureWatch.h"
#include "queue/AwaitAnswer.h"
#include "queue/SlotQueue.h"
#include "tree/HiddenName.h"
#include "tree/Replacement.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystem.h>
#include <FileSystem/StorageSystemServices.h>

#include <utility>

namespace FileSystem {

namespace {

/// Whether both can be the same file: there is nothing else to tell them apart by.
bool areAlike(const StorageSystemFileInfo& one, const StorageSystemFileInfo& other)
{
    return one.type == other.type && one.size == other.size && one.modTime == other.modTime &&
           one.permissions == other.permissions;
}

/// The steps, one after the other.
class SlotReplacement
{
public:
    SlotReplacement(const StorageSystem& system, const StorageSystemFileInfo& file,
                    std::string newPath)
        : queue_(system)
        , isLocal_(system.getType() == StorageSystemType::Local)
        , file_(file)
        , newPath_(std::move(newPath))
    {}

    bool replace(const std::string& path)
    {
        return succeeded([&](auto done) {
            Replacement::Task task{path, newPath_};
            task.isLocal = isLocal_;
            Replacement::start(
                queue_, "replace", std::move(task),
                [done = std::move(done)](const Failure& why,
                                         const Replacement::Outcome& /*outcome*/) { done(why); });
        });
    }

    /// Whether the file, which has just been given the new path, still stands at another one, as a
    /// second name of it.
    bool isAlsoAt(const std::string& path)
    {
        const FailureKeeper keeper;
        Failure why;
        const auto now = lookNow(queue_, path, why);
        if (!now || !now->identity) {
            return now && isAlike(*now);
        }
        const auto there = lookNow(queue_, newPath_, why);
        return there && there->identity == now->identity;
    }

    // The two paths may also be two ways to one name, through a link above it or in another case.
    // So the old one is set aside, and removed once it is seen that the new one is still there.
    bool removeOtherName(const std::string& path)
    {
        const auto aside = hiddenPath(path, HiddenNameUse::SetAside);
        if (!rename(path, aside)) {
            return false;
        }
        if (!isThere(newPath_)) {
            return rename(aside, newPath_);
        }
        if (!isAlsoAt(aside)) {
            // Another writer was in between.
            return rename(aside, path);
        }
        if (succeeded([&](auto done) { queue_.removeFile(aside, std::move(done)); })) {
            return true;
        }
        const FailureKeeper keeper;
        rename(aside, path);
        return false;
    }

private:
    template <class Start>
    bool succeeded(Start start)
    {
        auto why = awaitAnswer(queue_, std::move(start));
        const bool isDone = !why;
        if (!isDone) {
            noteAgain(std::move(why));
        }
        return isDone;
    }

    bool rename(const std::string& from, const std::string& to)
    {
        return succeeded([&](auto done) { queue_.rename(from, to, std::move(done)); });
    }

    bool isThere(const std::string& path)
    {
        Failure why;
        return lookNow(queue_, path, why).has_value();
    }

    bool isAlike(const StorageSystemAttributes& now) const
    {
        const auto known = StorageSystemServices::attributesOf(file_);
        return now.type == known.type && now.size == known.size && now.modTime == known.modTime &&
               now.permissions == known.permissions;
    }

    SlotQueue queue_;
    bool isLocal_;
    const StorageSystemFileInfo& file_;
    std::string newPath_;
};

} // namespace

// Systems that rename one name of a file onto another of the same file do nothing, and say that
// they did it. What stands at the old path then may also be another writer's next file, of the same
// size and from the same second: it is left alone unless the file was at both paths before.
bool replaceForSlot(const StorageSystem& system, const std::string& path,
                    const StorageSystemFileInfo& file, const std::string& newPath,
                    const std::optional<StorageSystemFileInfo>& replaced)
{
    SlotReplacement steps(system, file, newPath);
    if (!steps.replace(path)) {
        return false;
    }
    const bool isLocal = system.getType() == StorageSystemType::Local;
    const bool mayHaveBeenBoth = replaced && (isLocal || areAlike(*replaced, file));
    return !mayHaveBeenBoth || !steps.isAlsoAt(path) || steps.removeOtherName(path);
}

} // namespace FileSystem
