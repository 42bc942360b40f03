#pragma once

#include "tree/FileTransfer.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace FileSystem {

/// The copy of a regular file that goes on where an earlier one has ended, and can be gone on from.
/// It gathers in a part, a hidden file of a fixed name beside the target, which is compared with
/// the source byte for byte before anything is put behind it.
///
/// A target that is the beginning of the source is copied into the part on this machine. Elsewhere
/// that would be to begin anew: it is renamed to be the part, and back when the copy fails, unless
/// the system has lost what it held.
class ResumeTransfer final : public FileTransfer
{
public:
    /// Whether a path beside the target is for something else of this copy.
    using IsTaken = std::function<bool(const std::string& path)>;

    ResumeTransfer(CopyContext& context, TreeEntry entry, Standing standing, bool mustBeNew,
                   IsTaken isTaken);
    ~ResumeTransfer() override;

private:
    using Compared = std::function<void(const Failure& failure, bool areSame)>;
    using Closed = std::function<void(const Failure& why, Permissions closed)>;

    /// Where that is which stood at the target.
    enum class StandingAt
    {
        Target, ///< It has not been renamed, or what was copied has replaced it.
        Part,
        TargetAgain,
        Nowhere, ///< The system has emptied it; the part has what was copied since.
    };

    /// What the part was before it was written to.
    struct Beginning
    {
        std::uint64_t size = 0;
        std::string ends;
    };

    void openTarget(const Attributes& source) override;
    void wroteAll() override;
    void goOnAfterLook() override;
    void refusedName(const Failure& why) override;
    void refusedNewName(const Failure& why);
    void closeAll() override;
    void leave() override;
    Permissions finalPermissions() const override;

    void lookForContents();

    // Which file is the part.
    void choosePart();
    void lookAtPart(const Failure& failure, const Attributes& now);
    void lookForNeighbour();
    void compareDoubtful();
    void takePart();

    // Where to begin.
    void compareTarget();
    void compareWithSource(const std::string& path, std::uint64_t size, Compared done);
    void compareOpen(File file, std::uint64_t size, const Compared& done);
    void keepBeginning(std::uint64_t size, const Compared& done);
    void isWhole();
    void setAttribute(const Attributes& attributes, const char* what);
    void findStart();
    void compareBeginning();
    void beginWithStanding();
    void renameStanding();
    void takeRenamed(const Attributes& now);

    // Filling it.
    void makeReachable();
    void openPart();
    void openedPart();
    void lookedAtOpenPart(const Attributes& now);
    void beginAnew();
    void createPart();
    void createdPart();
    void reopenPart();
    void reopenedPart(const Attributes& now);
    void lookAtNewPart();
    void madePart(const Attributes& now);
    void hide(const Attributes& now, std::function<void()> next);
    void closePart(Permissions has, Closed then);
    void fillFrom(std::uint64_t offset);
    void checkBeginning();
    void checkEnds(const std::string& copied, const std::string& wanted);

    // Leaving it.
    void giveBack();
    void giveBackIfThere(const Failure& failure, const Attributes& now);
    void checkLeft(File file, const Attributes& now);
    void restore(const Attributes& now);
    void returnToTarget();
    void tellKept();

    bool claimPart();
    bool isOfSomebodyElse() const;
    bool mayBeBeginning(const std::optional<Attributes>& there, std::uint64_t smallest) const;
    Permissions permissionsOfPart() const;
    Permissions permissionsOfReplaced() const;
    Permissions permissionsOfReturned(std::uint64_t size) const;

    IsTaken isTaken_;
    bool isPlain_ = false; ///< Copied as any other: nobody knows how far that has come.
    std::uint64_t size_ = 0;
    std::string part_;
    std::string claim_; ///< As it stands in the context's.
    int number_ = 0;
    std::optional<Attributes> there_; ///< The part, when it was chosen; empty for none.
    bool isCompared_ = false;         ///< The part is the beginning of the source.
    bool isTargetOther_ = false;      ///< The target is not.
    bool isPartNew_ = false;
    bool isUnusable_ = false; ///< The part, for it is open to others or theirs.
    bool isChecked_ = false;
    bool mayBeWritten_ = false; ///< What stood at the target, as it was opened for that.
    StandingAt standingAt_ = StandingAt::Target;
    std::optional<File> compared_;
    std::optional<Beginning> beginning_;
    std::optional<Permissions> replaced_; ///< Of the file that stood at the target.
    std::optional<StorageSystemOwner> partOwner_;
    std::uint64_t counted_ = 0; ///< Of the progress: bytes that were there.
};

} // namespace FileSystem
