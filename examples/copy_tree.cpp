// Copies a local directory with everything below it to a server, and verifies the names that have
// arrived. The same call copies from any storage system to any other.

#include "Login.h"

#include <FileSystem/LocalFileSystem.h>

int main(int argc, char** argv)
{
    using Option = FileSystem::StorageSystemCopyOptionFlag;
    if (argc != 1 + Login::argumentCount + 2) {
        std::cerr << "usage: " << argv[0] << ' ' << Login::usage
                  << " LOCAL_DIRECTORY REMOTE_DIRECTORY\n";
        return 2;
    }
    const std::string source = argv[1 + Login::argumentCount];
    const std::string target = argv[2 + Login::argumentCount];
    Tarnis::SSHSession session;
    if (!logIn(session, Login::fromArguments(argv + 1))) {
        return 1;
    }
    const auto remote = openFiles(session);
    if (!remote) {
        return 1;
    }
    const FileSystem::LocalFileSystem local;
    if (!local.fileCopyAs(source, *remote, target, {},
                          Option::Recursive | Option::PreservePermissions |
                              Option::PreserveModTime)) {
        failed();
        return 1;
    }
    const bool isSame =
        remote->directoryListFileNames(target) == local.directoryListFileNames(source);
    std::cout << (isSame ? "copied\n" : "the names differ\n");
    return isSame ? 0 : 1;
}
