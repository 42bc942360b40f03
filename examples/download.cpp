// Downloads one file, shows how far it is, and keeps its permissions and time. The local file takes
// its name only when it is complete.

#include "Login.h"

#include <FileSystem/LocalFileSystem.h>

namespace {

bool showProgress(std::uint64_t done, std::uint64_t total)
{
    std::cerr << '\r' << done << " of " << total << " bytes" << std::flush;
    return true; // false would end the copy
}

} // namespace

int main(int argc, char** argv)
{
    using Option = FileSystem::StorageSystemCopyOptionFlag;
    if (argc != 1 + Login::argumentCount + 2) {
        std::cerr << "usage: " << argv[0] << ' ' << Login::usage << " REMOTE_FILE LOCAL_FILE\n";
        return 2;
    }
    Tarnis::SSHSession session;
    if (!logIn(session, Login::fromArguments(argv + 1))) {
        return 1;
    }
    const auto remote = openFiles(session);
    if (!remote) {
        return 1;
    }
    const FileSystem::LocalFileSystem local;
    const bool isCopied =
        remote->fileCopyAs(argv[1 + Login::argumentCount], local, argv[2 + Login::argumentCount],
                           showProgress, Option::PreservePermissions | Option::PreserveModTime);
    std::cerr << '\n';
    if (!isCopied) {
        failed();
        return 1;
    }
    return 0;
}
