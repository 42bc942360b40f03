#pragma once

#include "tree/EntryTransfer.h"

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

/// The copy of a regular file. Several pieces of it are read and written at once.
///
/// Permissions that are not to be preserved: a new file gets the source's, less the umask; one that
/// is replaced keeps its own, and its owner and group where the system lets us. What the bytes go
/// to is never open to more people than the source is and the file that it becomes.
class FileTransfer : public EntryTransfer
{
public:
    FileTransfer(CopyContext& context, TreeEntry entry, Standing standing, bool mustBeNew);
    ~FileTransfer() override;

    /// Whether there is more to be read now. Reading is begun by whoever looks after the memory.
    bool wantsToRead() const noexcept;

    /// Whether what is read can be written at once.
    bool hasTarget() const noexcept { return canWrite_; }

    /// Begins to read the next piece.
    void readNext();

protected:
    /// Opens what is written to, when it is known what the source is, and begins to write. \param
    /// source as it is open.
    virtual void openTarget(const Attributes& source);

    /// Gives the file what it is to have in the end, when all bytes are written, and closes it.
    void goOnAfterLook() override;

    /// The file that is written to, at temporaryPath().
    void writeTo(File file) noexcept { temporary_ = file; }

    const std::optional<File>& target() const noexcept { return temporary_; }

    const std::optional<File>& source() const noexcept { return sourceFile_; }

    Permissions sourcePermissions() const noexcept { return permissions_; }

    /// Nothing is read before startAt().
    void holdReading() noexcept { canRead_ = false; }

    /// Reads the source from there on, which is so long, and writes what was read in its order.
    void startAt(std::uint64_t offset, std::uint64_t size);

    /// What is read before the source is: so much of a file of the target's system.
    void readFirst(File file, std::uint64_t size);

    /// Goes on when all bytes of the source are written.
    virtual void wroteAll() { closeSource(); }

    /// What the file is to have in the end.
    virtual Permissions finalPermissions() const;

    /// What the system gave to the file that is written to, and what it has now.
    void hasPermissions(Permissions made, Permissions now) noexcept;

    std::uint64_t written() const noexcept { return written_; }

    void beginWriting();
    void closeSource();
    void setFinal();
    void setTime();
    void setPermissions();
    void keepOrLose(const Failure& why, const char* what);
    void closeTemporary();
    void closeAll() override;
    void refusedName(const Failure& why) override;

private:
    /// As whatever(), for what the hidden file must not be published before.
    template <class... Results, class Next>
    StorageSystemQueue::Completion<Results...> settling(Next next)
    {
        ++unsettled_;
        return whatever<Results...>(
            [this, next = std::move(next)](const Failure& failure, Results... results) mutable {
                --unsettled_;
                next(failure, std::forward<Results>(results)...);
                endTemporary();
            });
    }

    struct Piece
    {
        CopyBuffer buffer;
        std::uint64_t offset;
        std::uint64_t size;
    };

    void begin() override;

    void openedSource(File file);
    void lookedAtSource(const Attributes& now);
    void createTemporary();
    void refusedTemporary(const Failure& why);
    void lookAtRefused(const Failure& why);
    void explainRefusal(const Failure& why);
    bool mayHelpToWriteInPlace() const;
    void giveUpOnlyInPlace(const Failure& why);
    void createdTemporary(File file);
    void lookedAtTemporary(const Attributes& made);
    void foreseePermissions();
    void checkForeseen();
    bool isSecret() const;
    bool keepsToPermissions() const;
    Permissions permissionsWhileFilled() const;
    void narrowTo(Permissions permissions);
    void read(const Piece& piece, std::uint64_t got, bool isProbe);
    bool mayCopyNext() const noexcept;
    void copyNext();
    void copied(std::uint64_t offset, std::uint64_t size, const Failure& why);
    void take(const Piece& piece);
    void writeInOrder();
    void write(const Piece& piece);
    bool areBytesOver() const noexcept;
    bool mayCloseBehindWrites() const noexcept;
    void endBytes();
    void checkEnd();
    void takeOwner();
    void endTemporary();
    void checkWritten(const Attributes& now);
    bool isAsWritten(const Attributes& now) const;
    void doubt(const Attributes& now);
    bool keepsTime(const Attributes& now) const;

    std::optional<File> sourceFile_;
    std::optional<File> temporary_;
    Permissions permissions_; ///< The source's; when it is open, no more than it has then.
    std::uint64_t expected_ = 0;
    std::uint64_t nextRead_ = 0;
    std::uint64_t end_ =
        std::numeric_limits<std::uint64_t>::max(); ///< Of the file, once it is met.
    bool canRead_ = true;
    bool isCopying_ = false; ///< By the system itself, up to nextRead_.
    bool isProbing_ = false; ///< What lies beyond the expected end is being read.
    std::size_t reading_ = 0;
    std::size_t writing_ = 0;
    /// By their offsets: read before they could be written.
    std::map<std::uint64_t, Piece> unwritten_;
    bool canWrite_ = false;
    std::uint64_t pieceSize_;
    std::size_t mostPieces_;
    std::uint64_t probeSize_;
    std::uint64_t nextWrite_ = 0;
    std::optional<File> firstFile_;
    std::uint64_t firstSize_ = 0;
    bool areBytesOver_ = false;
    std::uint64_t reached_ = 0; ///< How far the file was seen to go.
    std::uint64_t sent_ = 0;    ///< Given to be written.
    std::uint64_t written_ = 0;
    Permissions made_; ///< What the system gave to the new file.
    Permissions now_;  ///< What it has.
    std::optional<StorageSystemOwner> madeOwner_;
    bool hasItsGroup_ = false;
    bool arePermissionsKnown_ = false; ///< made_ and now_ are true, or hold until they are seen.
    std::size_t unsettled_ = 0;        ///< Operations on the hidden file, but for writes.
    std::optional<Attributes> closed_; ///< What it was seen to be behind its closing.
    bool isDoubted_ = false;
};

} // namespace FileSystem
