#pragma once

#include "tree/FileTransfer.h"

#include <functional>

namespace FileSystem {

/// The copy of a regular file into the one that stands at its target, or into a new one under that
/// name. What goes wrong on the way leaves a file that is neither the old one nor the new one; a
/// new one is removed.
class InPlaceTransfer final : public FileTransfer
{
public:
    InPlaceTransfer(CopyContext& context, TreeEntry entry, Standing standing, bool mustBeNew);
    ~InPlaceTransfer() override;

private:
    bool takeTemporaryPath() override;
    void openTarget(const Attributes& source) override;
    void goOnAfterLook() override;

    bool mayBeItself();
    bool looksLikeItself() const;
    void openedStanding(File file);
    void lookedAtStanding(const Attributes& now);
    void closeToOthers();
    void refusedToClose(const Failure& why);
    void cutStanding();
    void emptyStanding();
    void checkSource(std::function<void()> next);
    void finish();

    Attributes source_;
    Attributes now_; ///< What stands there, as it is open.
};

} // namespace FileSystem
