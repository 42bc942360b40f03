// Uploads what comes in on standard input to a remote file, piece by piece as it comes.

#include "Login.h"

#include <FileSystem/StorageSystemFile.h>

#include <vector>

namespace {

/// Everything from standard input goes to the file. A server may find out only at the end that it
/// has no room.
bool writeInput(FileSystem::StorageSystemFile& file, std::uint64_t pieceSize)
{
    std::vector<char> piece(pieceSize);
    while (std::cin) {
        std::cin.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        const auto count = static_cast<std::uint64_t>(std::cin.gcount());
        if (!file.writeFully(piece.data(), count)) {
            return false;
        }
    }
    return file.close();
}

} // namespace

int main(int argc, char** argv)
{
    using Mode = FileSystem::StorageSystemFileOpenModeFlag;
    if (argc != 1 + Login::argumentCount + 1) {
        std::cerr << "usage: " << argv[0] << ' ' << Login::usage << " REMOTE_FILE <DATA\n";
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
    const std::string target = argv[1 + Login::argumentCount];
    // Under another name until it is complete.
    const std::string unfinished = target + ".part";
    auto file = remote->fileOpen(unfinished, Mode::Write | Mode::Create | Mode::Truncate);
    // Some servers tell only at the end that they could not keep it all.
    if (!file || !writeInput(*file, remote->recommendedWriteBufferSize())) {
        failed();
        file.reset();
        static_cast<void>(remote->fileRemove(unfinished));
        return 1;
    }
    file.reset(); // closes it
    if (!remote->fileRenameAs(unfinished, target)) {
        failed();
        static_cast<void>(remote->fileRemove(unfinished));
        return 1;
    }
    return 0;
}
