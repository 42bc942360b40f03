#pragma once

#include "support/sftp/SftpProtocol.h"
#include "support/sftp/SftpRule.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TarnisTest {

/// In which order replies go out.
enum class SftpOrder : std::uint8_t
{
    AsReceived,
    /// A group of `heldReplies` is gathered and goes out backwards.
    Reversed,
    /// `heldReplies` are kept back; for each further one, one of them goes out, picked at random:
    /// what a server with a pool of threads looks like.
    Shuffled,
    /// Each reply waits until another request arrives. A client that has one request in flight
    /// waits for ever.
    AfterNextRequest,
};

/// Which of its two arguments a server takes for the target of a new symbolic link.
enum class SftpSymlinkOrder : std::uint8_t
{
    TargetFirst, ///< as OpenSSH's server does
    LinkFirst,   ///< as the protocol's draft says
};

/// How a server tells the target of a symbolic link.
enum class SftpLinkAnswer : std::uint8_t
{
    AsStored,
    Absolute, ///< resolved to an absolute path
};

/// Which files a server empties when it opens them, though it was not asked to.
enum class SftpEmptying : std::uint8_t
{
    None,
    OpenedToWrite,     ///< Those that are opened to be written.
    OpenedToWriteOnly, ///< Those that are opened to be written and not to be read.
    FirstWritten,      ///< Those that are written to, with the first write.
};

/// An extension that the server announces.
struct SftpExtension
{
    std::string name;
    std::string data;
};

/// An entry that listings show though nothing of the kind exists.
struct SftpFakeEntry
{
    /// Any bytes at all.
    std::string name;
    /// With the type bits: a regular file, unless said otherwise.
    std::uint32_t permissions = 0100644;
    std::uint64_t size = 0;
};

// NOLINTBEGIN(clang-analyzer-optin.performance.Padding): settings stand with their like.
/// How a scripted SFTP server behaves. As it stands: a small, correct server. An empty optional
/// means that there is no such limit.
struct SftpScript
{
    // Sizes
    /// No reply to a Read holds more.
    std::optional<std::uint64_t> maxReadReply;
    /// A Read for less is answered with so many bytes, as far as the file has them.
    std::optional<std::uint64_t> minReadReply;
    /// A Read for more than this ends the session.
    std::optional<std::uint64_t> fatalReadLength;
    /// A Write of more than this fails.
    std::optional<std::uint64_t> maxWrite;
    /// A Write that would put down the byte at this offset fails, with nothing written.
    std::optional<std::uint64_t> failWriteAt;
    /// So many bytes can be written in a session: then the disk is full. What still fits of a Write
    /// is written, and the Write fails.
    std::optional<std::uint64_t> diskSpace;

    // Files
    SftpEmptying emptying = SftpEmptying::None;
    /// New files and directories are everybody's, whatever permissions they are asked for with.
    bool ignoresModes = false;
    /// In place of the one that the server was started with.
    std::optional<std::uint64_t> umask;
    /// Set-ID and sticky bits are dropped from what permissions are set.
    bool keepsNineBits = false;
    /// What is put there cannot be read: no file is made that is opened to be read as well.
    bool refusesReadingNew = false;

    // Order of replies
    SftpOrder order = SftpOrder::AsReceived;
    std::uint64_t heldReplies = 8;
    /// Replies to these requests take part; Any: to all.
    SftpPacket heldRequest = SftpPacket::Read;
    /// Reversed and Shuffled give up gathering when no request has arrived for so long.
    std::uint64_t idleMilliseconds = 30;
    std::uint64_t seed = 1;

    // Attributes
    /// SftpAttribute flags that no reply has.
    std::uint64_t omittedAttributes = 0;

    // Listings
    bool listsDots = true;
    std::uint64_t entriesPerReply = 100;
    /// A listing fails after this many entries, "." and ".." included.
    std::optional<std::uint64_t> listingErrorAfter;
    /// Come after the real ones.
    std::vector<SftpFakeEntry> fakeEntries;
    bool listsRealEntries = true;
    /// Stands for the "ls -l" line of every entry.
    std::optional<std::string> longName;

    // Links and renames
    SftpSymlinkOrder symlinkOrder = SftpSymlinkOrder::TargetFirst;
    SftpLinkAnswer linkAnswer = SftpLinkAnswer::AsStored;
    /// Answers every Readlink.
    std::optional<std::string> linkTarget;
    bool renameReplaces = false;
    /// Describes what a link leads to, also where it is asked for the link, and in listings.
    bool followsLinks = false;
    /// A name is found whether its letters are capital or small.
    bool foldsCase = false;
    /// Opening a file that is to be a new one opens what stands there.
    bool ignoresExclusive = false;
    /// Remove takes an empty directory too, and Rmdir a file or a link.
    bool removesWhateverIsThere = false;

    // Start of the session
    std::uint64_t version = 3;
    /// copy-data, limits@openssh.com, posix-rename@openssh.com and statvfs@openssh.com work;
    /// announced, the others are answered OpUnsupported like unknown ones.
    std::vector<SftpExtension> extensions{{"statvfs@openssh.com", "2"}};
    /// An Extended request that was not announced ends the session instead of being refused.
    bool unknownExtensionIsFatal = false;

    /// Further misbehaviour; every rule that matches a request has its effect, in this order.
    std::vector<SftpRule> rules;
};

// NOLINTEND(clang-analyzer-optin.performance.Padding)

/// The script as text, one setting a line, as tarnis_test_sftp_server reads it.
std::string toText(const SftpScript& script);

/// The inverse of toText. Throws std::invalid_argument when the text is no script.
SftpScript parseSftpScript(const std::string& text);

} // namespace TarnisTest
