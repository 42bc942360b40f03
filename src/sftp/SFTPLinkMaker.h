#pragma once

#include "handles/SSHHandleSFTPSession.h"

#include <string>

namespace Tarnis {

/// Makes symbolic links on servers that disagree about the order of the two paths.
///
/// libssh chooses the order by the server's banner, but it is the SFTP server's own, and the banner
/// of OpenSSH 10 is mistaken too. Where the order is wrong, a link appears at the target's path and
/// points to the link's. So a link is read back after it was made, the other order is tried where
/// the first one did not do, and what was found out is remembered for the SFTP session.
///
/// Blocks on the server; throws handle_fatal_error("invalid") when the handle is invalid.
class SFTPLinkMaker
{
public:
    explicit SFTPLinkMaker(SSHHandleSFTPSession& sftp)
        : sftp_(sftp)
    {}

    /// Makes a link at `linkPath`, where nothing may stand. True: it is there and reads back as
    /// `target`. False: it could not be made so, for the reason that is noted; no link that this
    /// call made is left, unless the server would not remove it. On such a server no more are made
    /// in the SFTP session: each would leave another one behind.
    bool make(const std::string& target, const std::string& linkPath);

private:
    using Order = SSHHandleSFTPSession::LinkPathOrder;

    struct Guess
    {
        Order order;
        /// Whether a refusal is taken for one, and not for a sign of the wrong order.
        bool trusted;
    };

    enum class Answer
    {
        Made,
        Refused,
        NotAsAsked, ///< The server answered with success, but the link is not what it should be.
    };

    Guess guess() const;
    bool makeInKnownOrder(Order order, const std::string& target, const std::string& linkPath);
    bool findOrder(const std::string& target, const std::string& linkPath);
    Answer tryOrder(Order order, const std::string& target, const std::string& linkPath,
                    bool targetStood);
    Answer attempt(Order order, const std::string& target, const std::string& linkPath);
    void removeStray(const std::string& target, const std::string& linkPath);
    bool standsAt(const std::string& path);
    bool isLink(const std::string& path);
    void remove(const std::string& path);

    SSHHandleSFTPSession& sftp_;
};

} // namespace Tarnis
