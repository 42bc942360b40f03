#pragma once

#include "tree/CopyContext.h"
#include "tree/Replacement.h"

#include <FileSystem/Failure.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace FileSystem {

/// The copy of one file or one link, from its first question to the moment at which it stands under
/// its name, or at which nothing of it is left. What the target's name leads to meanwhile is looked
/// at again before it is taken.
class EntryTransfer : public std::enable_shared_from_this<EntryTransfer>
{
public:
    enum class Outcome
    {
        Copied,
        Skipped,
        Failed,
    };

    using Done = std::function<void(EntryTransfer&)>;

    /// What is known of what stands at the target.
    struct Standing
    {
        bool isKnown = false;
        std::optional<StorageSystemAttributes> attributes; ///< Empty for nothing.
    };

    EntryTransfer(const EntryTransfer&) = delete;
    EntryTransfer& operator=(const EntryTransfer&) = delete;
    virtual ~EntryTransfer();

    /// \param done is called once, when nothing of the transfer is in flight any more.
    void start(Done done);

    /// Ends it, since the copy was stopped.
    void stop();

    const TreeEntry& entry() const noexcept { return entry_; }

    /// Nothing may stand at the target when the entry gets its name.
    bool mustBeNew() const noexcept { return mustBeNew_; }

    Outcome outcome() const noexcept { return outcome_; }

    /// It is to be done once more, by another transfer: nothing is left of this one.
    bool isToBeRepeated() const noexcept { return isToBeRepeated_; }

    /// Why it failed.
    const Failure& failure() const noexcept { return failure_; }

    /// Something that it has made could not be removed, as its failure says.
    bool isAnythingLeft() const noexcept { return isAnythingLeft_; }

    /// How many bytes of the context's it has counted.
    std::uint64_t bytes() const noexcept { return bytes_; }

    /// What was to be kept or removed and is not, of what was copied.
    const std::vector<Failure>& losses() const noexcept { return losses_; }

protected:
    using File = StorageSystemQueue::File;
    using OpenMode = StorageSystemQueue::OpenMode;
    using Permissions = CopyContext::Permissions;
    using Attributes = StorageSystemAttributes;

    /// \param mustBeNew nothing may stand at the target when it gets its name.
    EntryTransfer(CopyContext& context, TreeEntry entry, Standing standing, bool mustBeNew);

    CopyContext& context() const noexcept { return context_; }

    const std::optional<Attributes>& standing() const noexcept { return standing_.attributes; }

    /// What stands at the target is a regular file, and may be replaced.
    bool replacesFile() const noexcept;

    /// It was still a regular file when it was looked at again, and the same user's.
    bool standsStill() const noexcept { return standsStill_; }

    /// The path that the entry has until it gets its own.
    const std::string& temporaryPath() const noexcept { return temporaryPath_; }

    /// Another hidden name beside the target. False: there were enough of them.
    virtual bool takeTemporaryPath();

    /// The entry is made under this name beside the target.
    void useTemporaryPath(std::string path) { temporaryPath_ = std::move(path); }

    /// The entry is made under its own name.
    void useFinalPath() { temporaryPath_ = entry_.target; }

    /// What stands at the hidden name is this transfer's, and goes with it.
    void ownTemporary() noexcept { isTemporaryOwned_ = true; }

    /// Begins with the work, when it is known that the target's place may be taken.
    virtual void begin() = 0;

    /// Goes on when the target's place was looked at again.
    virtual void goOnAfterLook() = 0;

    /// Closes what is open, as a part of giving up.
    virtual void closeAll() {}

    /// Sees to what is left after giving up where that is not this transfer's to be removed.
    virtual void leave() {}

    /// Looks whether the target's place may still be taken, then goes on.
    void lookAgain();

    /// Gives the hidden file its name, and ends.
    void publish();

    /// Gives up where the system does not give it its name.
    virtual void refusedName(const Failure& why) { giveUp(why); }

    /// Ends, since what stands at the target is right already.
    void skip();

    /// Renames what is on the target's system. One that is reported as failed may have been done
    /// all the same. \param done is called in any case: what was renamed must not be forgotten.
    void rename(const std::string& from, const std::string& to,
                std::function<void(const Failure&)> done);

    /// Gives up for this reason, as soon as nothing is in flight any more.
    void giveUp(const Failure& failure);
    void giveUp(FailureCode code, const std::string& path, std::string text = {});

    /// Gives up, in favour of another transfer of the entry.
    void repeat(FailureCode code, const std::string& path);

    /// The hidden file was closed, and nothing was seen to stand at the target's name then. To be
    /// told anew before each publish().
    void noteTargetFree(bool isFree) noexcept { isTargetFree_ = isFree; }

    /// Bytes of the entry have arrived.
    void count(std::uint64_t bytes) noexcept;

    /// They are to arrive anew.
    void discount(std::uint64_t bytes) noexcept;

    /// Something was not kept, which is no reason to give up.
    void lose(const Failure& failure) { losses_.push_back(failure); }

    bool isGivenUp() const noexcept { return static_cast<bool>(failure_); }

    /// A completion that goes on with the results, and gives the transfer up after a failure.
    template <class... Results, class Next>
    StorageSystemQueue::Completion<Results...> then(Next next)
    {
        return whatever<Results...>(
            [this, next = std::move(next)](const Failure& failure, Results... results) mutable {
                if (failure) {
                    giveUp(failure);
                } else {
                    next(std::forward<Results>(results)...);
                }
            });
    }

    /// A completion that goes on with the failure and the results, unless the transfer has been
    /// given up.
    template <class... Results, class Next>
    StorageSystemQueue::Completion<Results...> whatever(Next next)
    {
        ++inFlight_;
        return [self = shared_from_this(), next = std::move(next)](const Failure& failure,
                                                                   Results... results) mutable {
            --self->inFlight_;
            if (!self->isEnding()) {
                next(failure, std::forward<Results>(results)...);
            }
            self->endIfIdle();
        };
    }

    /// A completion that is called in any case: what was made must not be forgotten.
    template <class... Results, class Next>
    StorageSystemQueue::Completion<Results...> always(Next next)
    {
        ++inFlight_;
        return [self = shared_from_this(), next = std::move(next)](const Failure& failure,
                                                                   Results... results) mutable {
            --self->inFlight_;
            static_cast<void>(self->isEnding());
            next(failure, std::forward<Results>(results)...);
            self->endIfIdle();
        };
    }

private:
    bool isEnding();
    void endIfIdle();
    void lookAtStanding();
    void checkStanding();
    void checkLink();
    void decide();
    void proceed();
    bool isSame() const;
    bool isReplaceable(const Attributes& now);
    void lookedAgain(const Failure& failure, const Attributes& now);
    void takeFreeName();
    void replaced(const Failure& why, const Replacement::Outcome& outcome);
    void keepWhatHasCome(const Failure& why);
    void published();
    void cleanUp();
    void removeTemporary();
    void finish();

    CopyContext& context_;
    TreeEntry entry_;
    Standing standing_;
    bool mustBeNew_;
    bool standsStill_ = false;
    Done done_;
    std::size_t inFlight_ = 0;
    bool isPublishing_ = false; ///< There may be nothing under the name: nothing stops it now.
    bool isOver_ = false;       ///< Published, or nothing but cleaning up is left.
    std::string temporaryPath_;
    int nameTries_ = 0;
    bool isTemporaryOwned_ = false;
    bool isTargetFree_ = false;
    bool isToBeRepeated_ = false;
    bool isAnythingLeft_ = false;
    std::uint64_t bytes_ = 0;
    bool isKept_ = false; ///< Something has come to the target, and is to stay.
    Outcome outcome_ = Outcome::Failed;
    Failure failure_;
    std::vector<Failure> losses_;
};

/// Whether a system does not do what it was asked to, for a reason of its own that may be the name.
bool isRefusalOfName(const Failure& why);

} // namespace FileSystem
