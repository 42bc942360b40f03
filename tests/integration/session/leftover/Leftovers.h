#pragma once

#include <FileSystem/OpenMode.h>
#include <FileSystem/StorageSystemFile.h>
#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/SSHFileSystemSFTP.h>
#include <Tarnis/SSHProcess.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <cstdlib>
#include <iostream>
#include <memory>

namespace TarnisTest {

/// What a program has made from a session and never let go of.
struct Leftovers
{
    std::unique_ptr<Tarnis::SSHProcess> process;
    std::unique_ptr<Tarnis::SSHFileSystemSFTP> files;
    std::unique_ptr<FileSystem::StorageSystemFile> file;
};

/// Connects and logs in as the arguments PORT USER KEY_FILE say and makes something of every kind;
/// leaves the session as it is without arguments. The program's exit code.
inline int use(Tarnis::SSHSession& session, Leftovers& leftovers, int argc, char** argv)
{
    using namespace Tarnis;
    std::cout << "begins" << std::endl;
    if (argc < 4) {
        return EXIT_SUCCESS;
    }
    session.setHostName("127.0.0.1");
    session.setPortNumber(static_cast<unsigned short>(std::stoi(argv[1])));
    session.setUserName(argv[2]);
    if (!session.connect() || session.hostAuthenticate(HostAuthenticatorNone()) == nullptr) {
        return EXIT_FAILURE;
    }
    const auto response = session.userAuthenticate(UserAuthenticatorPrivateKeyFile(argv[3], ""));
    if (response == nullptr || response->getResult() != AuthenticateUserResult::Success) {
        return EXIT_FAILURE;
    }
    leftovers.process = session.createProcess("echo unread; cat");
    leftovers.files = session.createSFTPFileSystem();
    if (leftovers.process == nullptr || !leftovers.process->start() || leftovers.files == nullptr) {
        return EXIT_FAILURE;
    }
    leftovers.file =
        leftovers.files->fileOpen(argv[3], FileSystem::StorageSystemFileOpenModeFlag::Read);
    return leftovers.file != nullptr ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace TarnisTest
