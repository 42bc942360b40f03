#pragma once

#include <memory>
#include <string>

namespace Tarnis {

class SSHHandleSFTPSession;

// What stands in an operation's way. All of these block on the server as far as they ask it, and
// throw handle_fatal_error("invalid") when the handle is invalid.

// Before the operation. Some servers do more than they are asked to: they open what stands there
// though the file was to be a new one, remove a directory as a file or a file as a directory, or
// replace what stands at the new path of a rename. Where the server is not known to refuse that,
// these look first, at the cost of a round trip; what another client changes between the look and
// the operation is not noticed. False: the obstacle is noted.

/// Nothing may stand at the path of a file that is to be a new one.
bool mayOpenAsNew(SSHHandleSFTPSession& sftp, const std::string& path);

/// Makes a directory where nothing stands. Looks first on ProFTPD alone, whose mod_sftp (seen with
/// 1.3.9) says of what stands there that it has made it, and lets nobody in between.
bool makeDirectory(SSHHandleSFTPSession& sftp, const std::string& path, mode_t mode);

/// Nothing may stand at the new path of a rename. Looks first on every server: none is known that
/// never replaces.
bool mayRenameTo(SSHHandleSFTPSession& sftp, const std::string& path);

/// No directory may stand at the path.
bool mayRemoveAsFile(SSHHandleSFTPSession& sftp, const std::string& path);

/// Nothing but a directory may stand at the path.
bool mayRemoveAsDirectory(SSHHandleSFTPSession& sftp, const std::string& path);

/// Whether what a path leads to, links followed, is seen to be neither a regular file nor a
/// directory. Notes nothing: what cannot be told is no obstacle.
bool isSeenToBeNoFile(SSHHandleSFTPSession& sftp, const std::string& path);

// After the operation, where the failure just noted is a status of the server's that says little
// (most of what has no status of its own in version 3 comes as "failure"): look what stands there
// and note the failure anew with that reason. What the server was asked for, and its status and
// text, stay. Nothing happens after any other failure.

/// After opening a file.
void explainOpening(SSHHandleSFTPSession& sftp, const std::string& path, bool exclusive);

/// After reading a directory's first entries, or opening it.
void explainListing(SSHHandleSFTPSession& sftp, const std::string& path);

/// After making a directory.
/// \param parent the directory that it was to be made in.
void explainMaking(SSHHandleSFTPSession& sftp, const std::string& path, const std::string& parent);

/// After renaming.
void explainRenaming(SSHHandleSFTPSession& sftp, const std::string& path,
                     const std::string& newPath);

/// After removing a file.
void explainFileRemoval(SSHHandleSFTPSession& sftp, const std::string& path);

/// After removing a directory.
void explainDirectoryRemoval(const std::shared_ptr<SSHHandleSFTPSession>& sftp,
                             const std::string& path);

/// After reading a link's text.
void explainReadingLink(SSHHandleSFTPSession& sftp, const std::string& path);

} // namespace Tarnis
