// Tells how much room there is on the volume of a remote path. The path need not exist yet.

#include "Login.h"

int main(int argc, char** argv)
{
    if (argc != 1 + Login::argumentCount + 1) {
        std::cerr << "usage: " << argv[0] << ' ' << Login::usage << " PATH\n";
        return 2;
    }
    Tarnis::SSHSession session;
    if (!logIn(session, Login::fromArguments(argv + 1))) {
        return 1;
    }
    const auto files = openFiles(session);
    if (!files) {
        return 1;
    }
    const std::string path = argv[1 + Login::argumentCount];
    const auto room = files->fileStorageInfo(path);
    if (!room) {
        failed(); // not supported, where the server has no such figures
        return 1;
    }
    std::cout << room->available << " of " << room->capacity << " bytes are free on the volume of "
              << files->displayPath(path) << '\n';
    return 0;
}
