#pragma once

#include "tree/CopyContext.h"

#include <FileSystem/Failure.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

/// The copy of one directory, without what is in it: made or found at its target, open to nobody
/// else than it has to be while it is filled, and given what it is to have in the end.
class DirectoryTransfer : public std::enable_shared_from_this<DirectoryTransfer>
{
public:
    /// \param failure none where it is there.
    using Made = std::function<void(const Failure& failure)>;

    /// \param losses what could not be kept.
    using Finished = std::function<void(const std::vector<Failure>& losses)>;

    /// \param entry  must outlive this.
    /// \param isOurs this copy has made it before, for another source.
    DirectoryTransfer(CopyContext& context, const TreeEntry& entry, bool isOurs);

    /// May be called again where there was no room for it: goes on with what it has made.
    void make(Made done);

    /// Gives it its permissions and its time: what is put into a directory changes its time, and
    /// takes permissions that it may not be meant to keep.
    void finish(Finished done);

    /// What finish() could not do for want of descriptors, handles or memory: it may be called
    /// again.
    const Failure& shortage() const noexcept { return shortage_; }

    /// It was not there before.
    bool isNew() const noexcept { return isNew_; }

private:
    using Permissions = CopyContext::Permissions;

    /// What may be set of a directory: the nine bits and the sticky one.
    struct Mode
    {
        Permissions permissions;
        std::optional<bool> isSticky;
    };

    static Mode modeOf(const StorageSystemAttributes& attributes);
    static StorageSystemAttributes toAttributes(const Mode& mode,
                                                const StorageSystemAttributes& now);

    void tellMade(const Failure& failure);
    void tellFinished();
    void begin();
    void refused(const Failure& why);
    void lookUpNew();
    void lookAtNew(const StorageSystemAttributes& made);
    void closeStanding(const StorageSystemAttributes& standing);
    void adjustStickyBit(std::optional<bool> told);
    void set(const StorageSystemAttributes& attributes, Made then);
    void setFinalMode();
    void withoutSticky(const Failure& why);
    void lose(const Failure& why, const char* what);

    CopyContext& context_;
    const TreeEntry& entry_;
    Made made_;
    Finished finished_;
    Permissions asked_; ///< What it was made with.
    bool isOurs_;
    bool isNew_ = false;
    StorageSystemAttributes now_;
    std::optional<Mode> final_; ///< Empty: what it has is right.
    std::vector<Failure> losses_;
    Failure shortage_;
};

} // namespace FileSystem
