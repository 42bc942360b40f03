#pragma once

#include <FileSystem/StorageSystemRecords.h>

#include <string>

namespace Tarnis {

class SSHHandleSFTPSession;

/// Sets the modification time of a remote file or directory and asks the server for it afterwards.
/// True: the server has the time, to the second. False: nothing there, a symbolic link (the server
/// would set the time of what it points to), a time that SFTP cannot express, a refusal.
bool setModificationTime(SSHHandleSFTPSession& sftp, const std::string& path,
                         FileSystem::StorageSystemTimePoint time);

} // namespace Tarnis
