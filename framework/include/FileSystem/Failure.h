#pragma once

#include <FileSystem/Export.h>

#include <cstdint>
#include <string>
#include <system_error>
#include <type_traits>

namespace FileSystem {

/// Why an operation failed, in a few kinds that a host can act on. A std::error_code made of one
/// compares equal to the std::errc that stands beside it. Values are never changed or used again;
/// new ones may come.
enum class FailureCode : int
{
    NotFound = 1,   ///< Nothing is there. std::errc::no_such_file_or_directory
    Denied,         ///< Not permitted. permission_denied, operation_not_permitted
    Exists,         ///< Something is there already. file_exists
    NotEmpty,       ///< The directory holds something. directory_not_empty
    IsDirectory,    ///< A directory is there. is_a_directory
    NotDirectory,   ///< What is there is no directory. not_a_directory
    NoSpace,        ///< No room, or over a quota. no_space_on_device
    Unsupported,    ///< The system cannot do this at all. not_supported, operation_not_supported
    NotCopyable,    ///< A pipe, a socket or a device, as a source or at the target.
    Cancelled,      ///< The progress function said stop. operation_canceled
    ConnectionLost, ///< The session or the channel has gone. connection_reset, not_connected
    TimedOut,       ///< The time limit is over. timed_out
    BadName,        ///< A path or a name that nothing can have. invalid_argument,
                    ///< filename_too_long
    Protocol,       ///< An answer that makes no sense. protocol_error
    Other,          ///< None of these; number() and text() may tell. io_error
    IntoItself,     ///< A directory cannot be copied or moved into itself, nor a file be written
                    ///< over with what it holds.
    TooDeep,        ///< Directories within directories beyond any path that a system takes.
    TooMany,        ///< More entries than the limit allows.
    TooLarge,       ///< Beyond what the system keeps in a file. file_too_large
    ReadOnly,       ///< The volume is mounted so. read_only_file_system
    OtherVolume,    ///< Source and target are on two volumes. cross_device_link
    LinkLoop,       ///< Too many symbolic links on the way. too_many_symbolic_link_levels
    Busy,           ///< In use. device_or_resource_busy, text_file_busy
    NoResources,    ///< No memory, descriptors or handles left. not_enough_memory,
                    ///< too_many_files_open
    Changed,        ///< Something became something else, or ended early, while it was worked on.
    NotKept,        ///< The system said yes, and what was to be set is not there.
    NotALink,       ///< What is there is no symbolic link.
    OnlyInPlace,    ///< No hidden file can be made beside a copy's target, or it cannot get the
                    ///< target's name; StorageSystemCopyOptionFlag::InPlace may help.
                    ///< permission_denied, operation_not_permitted
    NotRemoved,     ///< A file that was replaced is left under a hidden name.
};

/// The category of these codes.
FILESYSTEM_EXPORT const std::error_category& failureCategory() noexcept;

/// For std::error_code, which finds it by itself.
FILESYSTEM_EXPORT std::error_code make_error_code(FailureCode code) noexcept;

/// The kind of an errno value; Other for one that has no kind of its own.
FILESYSTEM_EXPORT FailureCode failureCodeOfErrno(int number) noexcept;

/// Who found the failure, and so whose number number() is.
enum class FailureSource : std::uint32_t
{
    Library = 1,   ///< The library refused by itself; there is no number.
    System = 2,    ///< This machine; an errno value.
    Server = 3,    ///< The remote file server; the status of its answer.
    Transport = 4, ///< What carries the requests; its own number.
};

/// Why the calling thread's last public operation on a storage system, an open file, a session, a
/// channel or a process failed. It belongs to that call: whichever operation comes next forgets it,
/// and one that succeeds leaves none.
///
///     if (!remote.fileCopyAs("a", local, "b")) {
///         const auto failure = FileSystem::Failure::last();
///         if (failure.code() == std::errc::no_space_on_device) { ... }
///         std::cerr << failure.message() << '\n'; // fileCopyAs a, b: no space left (...)
///     }
///
/// A question whose answer is no (fileExists(), fileInfo(), ...) leaves NotFound where nothing is
/// there; where something else is, NotDirectory, IsDirectory, NotALink or no failure. Any other
/// code says that it could not be told. A listing that is empty, or shortened, has a failure
/// exactly where it could not be read to its end. An operation that throws leaves a failure too.
/// What asks nobody (isValid(), getType(), mode(), the functions on paths as texts) changes
/// nothing.
///
/// Threads: each has its own. A value; copying and reading it neither blocks nor asks anybody.
class FILESYSTEM_EXPORT Failure
{
public:
    /// No failure.
    Failure();
    Failure(const Failure& other);
    Failure(Failure&& other) noexcept;
    Failure& operator=(const Failure& other);
    Failure& operator=(Failure&& other) noexcept;
    ~Failure();

    /// The failure of the calling thread's last public operation; none when it succeeded.
    static Failure last();

    /// Whether there is a failure.
    explicit operator bool() const noexcept { return static_cast<bool>(code_); }

    /// What kind of failure it is, comparable with FailureCode and std::errc; zero for none.
    /// Libraries on top have codes of their own, which compare with std::errc as well.
    std::error_code code() const noexcept { return code_; }

    /// The operation that the caller asked for, as it is named ("fileCopyAs").
    const std::string& operation() const noexcept { return operation_; }

    /// The path that the operation was given; empty for one without.
    const std::string& path() const noexcept { return path_; }

    /// The second path of an operation that was given two.
    const std::string& otherPath() const noexcept { return otherPath_; }

    /// The path that the cause is about: an entry deep in a tree that is copied, or a hidden name
    /// beside the target. path() itself for a simple operation.
    const std::string& entry() const noexcept { return entry_; }

    /// Who found it.
    FailureSource source() const noexcept { return source_; }

    /// The number that the source has for it: errno, or a status. Zero for none.
    std::int64_t number() const noexcept { return number_; }

    /// What the source says, for people, as it came; empty when it says nothing. From a server this
    /// is text of the server's: escape it before it goes to a terminal.
    const std::string& text() const noexcept { return text_; }

    /// The cause for people, in one line without a full stop: the code's meaning, and the source's
    /// text where that says more.
    std::string cause() const;

    /// Operation, paths and cause in one line; empty for no failure.
    std::string message() const;

private:
    friend class FailureRecord;

    std::error_code code_;
    FailureSource source_ = FailureSource::Library;
    std::int64_t number_ = 0;
    std::string operation_;
    std::string path_;
    std::string otherPath_;
    std::string entry_;
    std::string text_;
};

} // namespace FileSystem

template <>
struct std::is_error_code_enum<FileSystem::FailureCode> : std::true_type
{};
