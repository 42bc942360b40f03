#pragma once

#include <libssh/libssh.h>
#include <libssh/sftp.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

// Everything that touches the members of libssh's structures, and nothing else does
// (scripts/lint/structures.sh): sftp_session_struct, sftp_file_struct, sftp_dir_struct and what
// hangs on them stand in <libssh/sftp.h>, but libssh promises nothing about them. All of it is to
// be called under the lock. What it relies on was read in the sources of 0.10.6, 0.11.5 and 0.12.2
// and is the same in all three, except where it says otherwise. Where the names of tests stand,
// those run with the real libssh and fail where it no longer holds.
//
// 1. What belongs to what. `session` and `channel` of an SFTP session, `sftp` of an open file and
//    of a directory. `errnum` is the status of the last reply: sftp_get_error() gives it, but
//    nothing takes it back before a call, and a call that fails without a reply leaves it as it
//    was. RefusalTest.
// 2. A handle of the server's. `handle` of an open file or a directory holds the bytes that the
//    server chose. sftp_close() and sftp_closedir() tell the server of it, free it and then the
//    rest; without one they only free. OutlivingFileTest, SftpTearDownTest and, under the address
//    sanitizer, LossTest.
// 3. The end, `eof`, which is 1 there, and the position of an open file, `offset`; sftp_read() and
//    sftp_write() move them. `eof` of a directory. SftpFileTest, ReadBehaviourTest.
// 4. A number for a request of our own. sftp_async_read_begin() takes the next number before it
//    sends, and leaves the file's position alone where it cannot send. Without a channel it cannot,
//    and sets nothing but the status. From 0.11 on a reply with a number that libssh has not taken
//    itself is an error, so that counting `id_counter` up would not do.
//    TransferTest.ReadsAreInFlightTogether and WritesAreInFlightTogether: without a number, ranges
//    are moved one after the other.
// 5. Replies that have come. sftp_async_read() reads them into the queue while it waits for the one
//    that it was asked for, and gives up with SSH_AGAIN where nothing more has come and it must not
//    block. So it is asked to wait for number 0, which no request has: they count from 1. Of the
//    file it uses nothing but the SFTP session, `eof` and `nonblocking`, so that a structure of our
//    own does, open or not. TransferTest.WritesAreInFlightTogether, RcloneFlowTest.
// 6. The queue. `queue` is a list with one entry for each reply, in the order in which they came;
//    an entry and its message were made with malloc(), and the message's payload holds what follows
//    the number. SftpReplies (over the real list) and, with the real libssh, ReadBehaviourTest.
// 7. Replies that came out of turn. Up to 0.11.5 sftp_async_read() reads one more reply before it
//    looks into the queue, for ever where none is to come; from 0.12 on it looks first. The end of
//    the file in a reply leaves the position behind what was asked for.
//    ReadBehaviourTest.APlainReadOfManyPackagesEnds.
// 8. A rename that replaces nothing. From 0.11 on sftp_rename() sends posix-rename@openssh.com
//    where sftp_extension_supported() says that the server offers it, and that says no while the
//    SFTP session has no list of extensions: the member `ext`, which sftp_init() alone fills, and
//    which nothing else looks at during the call. RenameRequestTest.
// 9. A write without a limit. From 0.11 on `limits` holds what the server has told, and
//    sftp_write() writes nothing where `max_write_length` is 0, which is how a server says that it
//    has none. 0.10 asks for no limits. WriteLimitTest.OfZeroIsNone.
// 10. A reply of names that holds none. A directory's `buffer` holds the reply until its last name
//     was read, and `count` what is left of it. libssh takes a reply without any for an error and
//     would look into the same one for ever; without the reply it asks for the next.
//     UnusualListingTest.
// 11. Names of owners. From a server whose banner says OpenSSH, libssh takes them out of the line
//     that "ls -l" would print. Where that line is too short it reads beyond its end, or ends the
//     listing, with later versions. It looks for the banner in `session`, so it is shown one that
//     is connected to nothing; the text of an error then stands there, and ssh_get_error() points
//     to a place that is as large in every session.
//     NameReplyTest.MayHaveAnyTextWhereTheLongNameIs, under the address sanitizer.

namespace Tarnis {

ssh_session sessionOf(sftp_session sftp) noexcept;
ssh_channel channelOf(sftp_session sftp) noexcept;
sftp_session sftpOf(sftp_file file) noexcept;

inline sftp_session sftpOf(sftp_session sftp) noexcept
{
    return sftp;
}

/// The status of the last reply, or what setStatus() left.
int statusOf(sftp_session sftp) noexcept;
void setStatus(sftp_session sftp, int status) noexcept;

/// Before a call, so that a status afterwards is that call's.
inline void clearStatus(sftp_session sftp) noexcept
{
    setStatus(sftp, SSH_FX_OK);
}

/// Makes sftp_write() of an SFTP session that has begun write whatever is asked for where the
/// server says that it has no limit.
void allowUnlimitedWrites(sftp_session sftp) noexcept;

/// Empty where it was dropped. Stays valid as long as the file has it.
std::string_view handleOf(sftp_file file);
bool hasHandle(sftp_file file) noexcept;

/// Forgets the server's handle: closing then asks the server for nothing and only frees memory.
void dropHandle(sftp_file file) noexcept;
void dropHandle(sftp_dir directory) noexcept;

bool isAtEnd(sftp_file file) noexcept;
bool isAtEnd(sftp_dir directory) noexcept;
void setAtEnd(sftp_file file, bool atEnd) noexcept;

std::uint64_t positionOf(sftp_file file) noexcept;
void movePositionBack(sftp_file file, std::uint64_t by) noexcept;

/// A reply that has arrived. Owns what libssh made of it.
class LibsshReply
{
public:
    explicit LibsshReply(sftp_message message) noexcept
        : message_(message)
    {}

    /// As the protocol numbers them.
    std::uint8_t type() const noexcept;

    /// What follows the request's number.
    std::string_view fields() const noexcept;

private:
    struct Deleter
    {
        void operator()(sftp_message message) const noexcept;
    };

    std::unique_ptr<sftp_message_struct, Deleter> message_;
};

/// A number for the next request, which has to be sent then. Empty: the libssh at hand gives none.
/// \param noHandle an empty text.
std::optional<std::uint32_t> takeRequestNumber(sftp_session sftp, ssh_string noHandle) noexcept;

/// Reads the replies that have arrived into the queue, for whomever they are. False: one could not
/// be read.
bool readArrivals(sftp_session sftp) noexcept;

/// Whether the queue has the reply to the request of this number.
bool hasArrived(sftp_session sftp, std::uint32_t number) noexcept;

/// Takes it out of the queue. Empty: it is not there.
std::optional<LibsshReply> takeArrived(sftp_session sftp, std::uint32_t number) noexcept;

/// sftp_rename, but always with the protocol's own request, which does not replace what stands at
/// the new path (as most servers take it). Result as sftp_rename's.
int renamePlainly(sftp_session sftp, const char* path, const char* newPath) noexcept;

/// Lets go of a reply that says that it holds no entry, so that the next call asks for another one.
/// False: there is no such reply.
bool dropEmptyReply(sftp_dir directory) noexcept;

/// sftp_readdir, without the owner's and the group's names.
/// \param unconnected a session that was never connected to anything, where the text of an error is
///                    put too; null: the names are taken as libssh takes them.
sftp_attributes readEntry(sftp_dir directory, ssh_session unconnected) noexcept;

} // namespace Tarnis
