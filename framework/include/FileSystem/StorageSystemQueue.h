#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/Failure.h>
#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

/// Which entry of which volume something is: two names of one file have the same. Means nothing to
/// another system.
struct StorageSystemIdentity
{
    std::uint64_t volume = 0;
    std::uint64_t number = 0;
};

constexpr bool operator==(const StorageSystemIdentity& left,
                          const StorageSystemIdentity& right) noexcept
{
    return left.volume == right.volume && left.number == right.number;
}

constexpr bool operator!=(const StorageSystemIdentity& left,
                          const StorageSystemIdentity& right) noexcept
{
    return !(left == right);
}

/// What is known of an entry, or is to be set. What is empty was not told, or stays as it is.
struct StorageSystemAttributes
{
    /// Regular, Directory or SymbolicLink alone; none of them for a pipe, a socket or a device.
    /// Cannot be set.
    std::optional<Utilities::Flags<StorageSystemFileTypeFlag>> type = {};
    std::optional<std::uint64_t> size = {}; ///< Bytes.
    std::optional<StorageSystemTimePoint> modTime = {};
    std::optional<Utilities::Flags<PosixFilePermissionFlag>> permissions = {}; ///< The nine bits.
    /// Set-ID and sticky bits (07000). They are set together with the permissions; permissions
    /// without them leave a directory those that it has, and take a file's away.
    std::optional<std::uint32_t> specialBits = {};
    std::optional<StorageSystemOwner> owner = {};
    std::optional<StorageSystemIdentity> identity = {}; ///< Cannot be set.
};

/// One entry of a directory.
struct StorageSystemEntry
{
    std::string name;
    StorageSystemAttributes attributes;
};

/// Many operations in flight on a storage system at once, so that nobody waits for the answer to
/// one before the next is asked. Get one from StorageSystem::createQueue().
///
/// An operation is started by its function, which does not block, and is answered by its
/// completion: once, with no failure or with one, and what it was to bring. The completions are
/// called by pump(), on the thread that calls it, one after the other; each may start further
/// operations. What a completion is given as a reference is lent for the call.
///
///     auto queue = system.createQueue();
///     for (const std::string& path : paths) {
///         queue->lookUp(path, [&path](const Failure& failure, const auto& attributes) { ... });
///     }
///     queue->finish();
///
/// Order: operations on one open file are done in the order in which they were started, so that a
/// file can be closed while it is still being written. All others may be done in any order: what
/// needs another to be done first is started by that one's completion.
///
/// Failures: a failure belongs to its operation and names it and its path. When the system has lost
/// its resources every operation in flight fails with ConnectionLost. A completion that throws ends
/// pump(), which passes the exception on; the others are called by the next one.
///
/// Ownership: the queue owns what it has opened. Destroying it gives up what is in flight, without
/// calling any completion, and closes its files; whether an operation that was given up was done is
/// not known. Memory that is lent to an operation must last until its completion, or until the
/// queue is destroyed. A queue that outlives its storage system fails every operation.
///
/// Threads: one thread at a time works with a queue. Many queues and the storage system itself may
/// be used by as many threads.
class FILESYSTEM_EXPORT StorageSystemQueue
{
public:
    /// A file that the queue has opened; means nothing to another queue.
    enum class File : std::uint64_t
    {
    };

    using OpenMode = Utilities::Flags<StorageSystemFileOpenModeFlag>;
    using Permissions = Utilities::Flags<PosixFilePermissionFlag>;

    /// How an operation is answered: with a failure, or with none and its results.
    template <class... Results>
    using Completion = std::function<void(const Failure& failure, Results... results)>;

    /// Takes some entries of a directory that is being listed. False: no more of them are wanted.
    using EntryReceiver = std::function<bool(std::vector<StorageSystemEntry>& entries)>;

    StorageSystemQueue(const StorageSystemQueue&) = delete;
    StorageSystemQueue& operator=(const StorageSystemQueue&) = delete;
    virtual ~StorageSystemQueue();

    // Moving on

    /// Sends what was started, takes in what was answered and calls the completions of that. With
    /// nothing answered yet, waits up to `limit` for it; other threads go on using the system
    /// meanwhile. Where operations are done here and now, does the next one, however long it takes.
    /// \return how many completions were called.
    std::size_t pump(std::chrono::milliseconds limit = std::chrono::milliseconds::max());

    /// pump() until nothing is in flight. Blocks for as long as the system likes.
    void finish();

    /// From now on nothing below this directory is reached through a symbolic link, as far as the
    /// system can see to that: an operation on what is there fails with Changed where a link stands
    /// on the way. For trees that others may change meanwhile. One directory or several; where the
    /// way to it leads is left to the path.
    void confine(const std::string& directory);

    /// How many operations are in flight.
    std::size_t pending() const noexcept;

    /// How many operations in flight are worth it; more only take memory.
    std::size_t capacity() const noexcept;

    /// A descriptor that can be read from when pump() has something to do, for a host that waits
    /// for other things too. The queue's own: to be polled, and nothing else. -1 where there is
    /// none: pump() does the work itself then.
    int descriptor() const noexcept;

    // Open files. Failure::path() of these is the path that the file was opened by.

    /// Opens a file as StorageSystem::fileOpen() does.
    void open(const std::string& path, OpenMode mode, Permissions permissions,
              Completion<File> done);

    /// Opens the regular file that stands at the path itself, to read or to write what it holds.
    /// Changed for a symbolic link, as far as the system can refuse to follow one.
    void openItself(const std::string& path, OpenMode mode, Completion<File> done);

    /// Reads `size` bytes at an offset; fewer only where the file ends before.
    /// \param buffer lent until the completion.
    void read(File file, std::uint64_t offset, char* buffer, std::uint64_t size,
              Completion<std::uint64_t> done);

    /// Writes bytes at an offset. After a failure it is not known which of them were written.
    /// \param bytes lent until the completion.
    void write(File file, std::uint64_t offset, const char* bytes, std::uint64_t size,
               Completion<> done);

    /// What the open file is.
    void look(File file, Completion<const StorageSystemAttributes&> done);

    /// From now on files that are opened can be copied into each other by copy(), which the queue
    /// may have to see to when it opens them: to be called before anything else. Does not block.
    /// False: the system cannot copy by itself, and nothing has changed.
    bool beginCopies();

    /// Has the system copy bytes of one open file into another, so that they travel nowhere. Both
    /// must have been opened after beginCopies(); Unsupported otherwise, or where the system cannot
    /// after all: nothing was written then. After another failure it is not known what was. Where
    /// the source ends before, that is a failure.
    void copy(File from, std::uint64_t fromOffset, std::uint64_t size, File to,
              std::uint64_t toOffset, Completion<> done);

    /// Sets attributes of the open file: size, owner, permissions, modification time, in that
    /// order. NotKept where the system says that it did and has not.
    void setAttributes(File file, const StorageSystemAttributes& attributes, Completion<> done);

    /// Closes the file. Some systems find out only now that they could not write. The file is
    /// closed in any case; one that is not closed goes with the queue.
    void close(File file, Completion<> done);

    /// close(), and then lookUp() of the path that the file was opened by, which are asked together
    /// where the system answers in order: what it has kept. Fails as the first of them that does.
    /// \param path    that the file was opened by.
    /// \param newPath that the file is to be renamed to; may be empty.
    /// \param done    is given what stands at the path, and whether it was seen that nothing stands
    ///                at the new one: false also where nobody looked.
    void closeAndLook(File file, const std::string& path, const std::string& newPath,
                      Completion<const StorageSystemAttributes&, bool> done);

    // Entries by path. None of them follows a link in the last component, but lookThrough() and
    // setAttributes().

    /// What stands at a path.
    void lookUp(const std::string& path, Completion<const StorageSystemAttributes&> done);

    /// What a path leads to through links.
    void lookThrough(const std::string& path, Completion<const StorageSystemAttributes&> done);

    /// Reads a directory, without "." and "..", in the order in which the system gives its entries.
    /// An entry whose name is no single component is left out, and is a failure with code Protocol
    /// in the end; one more than StorageSystem::listingLimit() is one with code TooMany. A listing
    /// of which the receiver wants no more ends without a failure, and without waiting for what the
    /// system still has in flight of it.
    /// \param receiver called as often as entries come, by pump(). What it throws ends pump() as
    ///                 with completions, and no more entries come.
    void list(const std::string& path, EntryReceiver receiver, Completion<> done);

    /// Makes one directory.
    void makeDirectory(const std::string& path, Permissions permissions, Completion<> done);

    /// Removes what is not a directory.
    void removeFile(const std::string& path, Completion<> done);

    /// Removes an empty directory.
    void removeDirectory(const std::string& path, Completion<> done);

    /// Renames an entry. What stands at the new path stays, and is a failure.
    void rename(const std::string& path, const std::string& newPath, Completion<> done);

    /// rename() of a file that closeAndLook() has just told that nothing stands at the new path: a
    /// system that cannot rename without replacing, and looks before, need not look again.
    void renameToFree(const std::string& path, const std::string& newPath, Completion<> done);

    /// Renames a file or a link onto what stands at the new path, in one step: never a directory.
    /// Unsupported where the system has no such step.
    void replace(const std::string& path, const std::string& newPath, Completion<> done);

    /// Makes a symbolic link with a target as its text.
    void makeLink(const std::string& target, const std::string& path, Completion<> done);

    /// The text of a symbolic link.
    void readLink(const std::string& path, Completion<const std::string&> done);

    /// Sets attributes of what a path leads to: owner, permissions, modification time, in that
    /// order. A size can be set of an open file only (Unsupported).
    void setAttributes(const std::string& path, const StorageSystemAttributes& attributes,
                       Completion<> done);

    /// Room on the volume that holds a path.
    void storageInfo(const std::string& path, Completion<const StorageSystemStorageInfo&> done);

protected:
    StorageSystemQueue();

    // For those who write a queue: each as the public operation of its name, with paths that can be
    // paths. No completion is called but by do_pump(). A queue that is destroyed calls none.

    virtual std::size_t do_pump(std::chrono::milliseconds limit) = 0;
    virtual std::size_t do_pending() const noexcept = 0;
    virtual std::size_t do_capacity() const noexcept = 0;
    virtual int do_descriptor() const noexcept = 0;

    /// pump() has something to do though do_pump() has not: the descriptor is to tell so. Does
    /// nothing where there is none.
    virtual void do_wake() noexcept;

    /// Does nothing where the system can see to nothing.
    virtual void do_confine(const std::string& directory);
    virtual void do_open(const std::string& path, OpenMode mode, Permissions permissions,
                         Completion<File> done) = 0;
    virtual void do_openItself(const std::string& path, OpenMode mode, Completion<File> done) = 0;
    virtual void do_read(File file, std::uint64_t offset, char* buffer, std::uint64_t size,
                         Completion<std::uint64_t> done) = 0;
    virtual void do_write(File file, std::uint64_t offset, const char* bytes, std::uint64_t size,
                          Completion<> done) = 0;
    /// Cannot.
    virtual bool do_beginCopies();
    virtual void do_copy(File from, std::uint64_t fromOffset, std::uint64_t size, File to,
                         std::uint64_t toOffset, Completion<> done);
    virtual void do_look(File file, Completion<const StorageSystemAttributes&> done) = 0;
    virtual void do_setAttributes(File file, const StorageSystemAttributes& attributes,
                                  Completion<> done) = 0;
    virtual void do_close(File file, Completion<> done) = 0;
    /// One after the other.
    virtual void do_closeAndLook(File file, const std::string& path, const std::string& newPath,
                                 Completion<const StorageSystemAttributes&, bool> done);
    virtual void do_lookUp(const std::string& path,
                           Completion<const StorageSystemAttributes&> done) = 0;
    virtual void do_lookThrough(const std::string& path,
                                Completion<const StorageSystemAttributes&> done) = 0;
    virtual void do_list(const std::string& path, EntryReceiver receiver, Completion<> done) = 0;
    virtual void do_makeDirectory(const std::string& path, Permissions permissions,
                                  Completion<> done) = 0;
    virtual void do_removeFile(const std::string& path, Completion<> done) = 0;
    virtual void do_removeDirectory(const std::string& path, Completion<> done) = 0;
    virtual void do_rename(const std::string& path, const std::string& newPath,
                           Completion<> done) = 0;
    /// do_rename()
    virtual void do_renameToFree(const std::string& path, const std::string& newPath,
                                 Completion<> done);
    virtual void do_replace(const std::string& path, const std::string& newPath,
                            Completion<> done) = 0;
    virtual void do_makeLink(const std::string& target, const std::string& path,
                             Completion<> done) = 0;
    virtual void do_readLink(const std::string& path, Completion<const std::string&> done) = 0;
    virtual void do_setAttributes(const std::string& path,
                                  const StorageSystemAttributes& attributes, Completion<> done) = 0;
    virtual void do_storageInfo(const std::string& path,
                                Completion<const StorageSystemStorageInfo&> done) = 0;

private:
    template <class... Results>
    bool admit(const char* operation, const std::string& path, Completion<Results...>& done);

    /// Calls the completions of what was refused at once.
    std::deque<std::function<void()>> refusals_;
};

} // namespace FileSystem
