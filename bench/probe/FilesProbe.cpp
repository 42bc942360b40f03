#include "support/Probe.h"
#include "support/Require.h"
#include "support/TarnisSession.h"

#include <FileSystem/LocalFileSystem.h>

#include <iostream>

namespace TarnisBench {

namespace {

using Option = FileSystem::StorageSystemCopyOptionFlag;

void list(const FileSystem::FileSystem2& system, const std::string& path)
{
    for (const std::string& name : system.directoryListFileNames(path)) {
        std::cout << name << '\n';
    }
}

} // namespace

/// A small program that moves files with the library: no options, no messages, no bar.
std::string probeFiles(const Login& login, const std::vector<std::string>& arguments)
{
    require(arguments.size() == 3, "reading the arguments: METHOD REMOTE LOCAL");
    const std::string& remotePath = arguments[1];
    const std::string& localPath = arguments[2];
    const auto session = logInWithTarnis(login);
    const auto remote = session->createSFTPFileSystem();
    require(remote != nullptr, "starting SFTP");
    const FileSystem::LocalFileSystem local;
    if (arguments[0] == "get") {
        require(remote->fileCopyAs(remotePath, local, localPath, {}, Option::Recursive), "copying");
    } else if (arguments[0] == "put") {
        require(local.fileCopyAs(localPath, *remote, remotePath, {}, Option::Recursive), "copying");
    } else {
        require(arguments[0] == "list", "finding the method " + arguments[0]);
        list(*remote, remotePath);
    }
    return {};
}

} // namespace TarnisBench
